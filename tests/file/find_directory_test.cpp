#include <vorn/vorn.h>

#include "file/host_shell.h"
#include "file/scratch_dir.h"
#include "support/failing_call.h"
#include "support/leak_watch.h"

#include <algorithm>
#include <atomic>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <set>
#include <thread>

using namespace vorn_test;
namespace fs = std::filesystem;

namespace {

constexpr FaultPoint kFindFirstFile = {"FindFirstFileW", kInvalidHandle, kGenericFailure};
constexpr FaultPoint kFindNextFile = {"FindNextFileW", 0, kGenericFailure};

class FileFind : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(VornInitialize(), VORN_OK); }
    void TearDown() override
    {
        if (find != nullptr) {
            EXPECT_EQ(VornFileFindClose(find), VORN_OK);
        }
        VornTerminate();
    }

    VornStatus First(const std::wstring& pattern)
    {
        find = VornFileFindFirst(pattern.c_str(), &name);
        return VornGetLastError();
    }

    ScratchDir dir;
    VornFileFind* find = nullptr;
    const wchar_t* name = L"untouched";
};

using FileFindFirst = FileFind;
using FileFindNext = FileFind;
using FileFindGetSize = FileFind;
using FileFindGetTime = FileFind;
using FileFindClose = FileFind;

// All names that a search gives, in its order; empty when there are none.
std::vector<std::wstring> Search(const std::wstring& pattern)
{
    std::vector<std::wstring> names;
    const wchar_t* name = nullptr;
    VornFileFind* find = VornFileFindFirst(pattern.c_str(), &name);
    if (find == nullptr) return names;
    do names.emplace_back(name);
    while (VornFileFindNext(find, &name) == VORN_OK);
    EXPECT_EQ(VornFileFindClose(find), VORN_OK);
    return names;
}

std::set<std::wstring> SearchSet(const std::wstring& pattern)
{
    const std::vector<std::wstring> names = Search(pattern);
    std::set<std::wstring> set(names.begin(), names.end());
    EXPECT_EQ(set.size(), names.size()) << "a name came twice";
    return set;
}

using Names = std::set<std::wstring>;

}  // namespace

TEST_F(FileFindFirst, RefusesANullPatternOrName)
{
    EXPECT_EQ(VornFileFindFirst(nullptr, &name), nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_E_INVALID_ARG);
    VornSetLastError(VORN_OK);
    EXPECT_EQ(VornFileFindFirst(L"*", nullptr), nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_E_INVALID_ARG);
    EXPECT_STREQ(name, L"untouched");
}

TEST_F(FileFindFirst, FindsEveryEntryOnceAndNeverTheDots)
{
    dir.MakeFile(L"a.txt");
    dir.MakeFile(L"b.txt");
    dir.MakeFile(L"...x");
    dir.MakeDir(L"sub");
    EXPECT_EQ(SearchSet(dir / L"*"), (Names{L"a.txt", L"b.txt", L"...x", L"sub"}));
}

TEST_F(FileFindFirst, GivesTheFirstNameAndClearsTheLastError)
{
    dir.MakeFile(L"only.txt");
    VornSetLastError(VORN_E_BUSY);
    EXPECT_EQ(First(dir / L"*"), VORN_OK);
    ASSERT_NE(find, nullptr);
    EXPECT_STREQ(name, L"only.txt");
}

TEST_F(FileFindFirst, LeavesMatchingToTheSystem)
{
    dir.MakeFile(L"a.txt");
    dir.MakeFile(L"ab.txt");
    dir.MakeFile(L"ab.log");
    EXPECT_EQ(SearchSet(dir / L"*.txt"), (Names{L"a.txt", L"ab.txt"}));
    EXPECT_EQ(SearchSet(dir / L"A?.*"), (Names{L"ab.txt", L"ab.log"}));
    EXPECT_EQ(SearchSet(dir / L"AB.LOG"), (Names{L"ab.log"}));
}

TEST_F(FileFindFirst, AnEmptyDirectoryHasNothing)
{
    dir.MakeDir(L"empty");
    EXPECT_EQ(First(dir / L"empty\\*"), VORN_E_NOT_FOUND);
    EXPECT_EQ(find, nullptr);
    EXPECT_STREQ(name, L"untouched");
}

TEST_F(FileFindFirst, NothingThatMatchesIsNotFound)
{
    dir.MakeFile(L"a.txt");
    EXPECT_EQ(First(dir / L"*.log"), VORN_E_NOT_FOUND);
    EXPECT_EQ(find, nullptr);
}

TEST_F(FileFindFirst, AMissingDirectoryIsPathNotFound)
{
    EXPECT_EQ(First(dir / L"missing\\*"), VORN_E_PATH_NOT_FOUND);
    EXPECT_EQ(find, nullptr);
}

TEST_F(FileFindFirst, TranslatesTheSystemsError)
{
    const std::pair<DWORD, VornStatus> table[] = {{ERROR_FILE_NOT_FOUND, 131}, {ERROR_PATH_NOT_FOUND, 132},
                                                  {ERROR_ACCESS_DENIED, 118},  {ERROR_SHARING_VIOLATION, 134},
                                                  {ERROR_INVALID_NAME, 128},   {ERROR_INVALID_PARAMETER, 102},
                                                  {ERROR_NOT_READY, 99}};
    for (const auto& [error, status] : table) {
        FailingCall fail({"FindFirstFileW", kInvalidHandle, error});
        ASSERT_TRUE(fail.Found());
        EXPECT_EQ(First(dir / L"*"), status) << error;
        EXPECT_EQ(find, nullptr);
    }
}

TEST_F(FileFindFirst, APatternThatEndsInABackslashFindsNothing)
{
    dir.MakeFile(L"a.txt");
    EXPECT_NE(First(dir.Path() + L"\\"), VORN_OK);
    EXPECT_EQ(find, nullptr);
}

TEST_F(FileFindFirst, WithoutABackslashSearchesTheCurrentDirectory)
{
    dir.MakeFile(L"here.txt");
    CurrentDirScope current(dir.Path());
    EXPECT_EQ(SearchSet(L"*"), (Names{L"here.txt"}));
}

TEST_F(FileFindFirst, SearchesARelativeDirectory)
{
    dir.MakeDir(L"sub");
    dir.MakeFile(L"sub\\x");
    CurrentDirScope current(dir.Path());
    EXPECT_EQ(SearchSet(L"sub\\*"), (Names{L"x"}));
}

TEST_F(FileFindFirst, AnUnknownCurrentDirectoryIsTheSystemsError)
{
    FailingCall fail({"GetCurrentDirectoryW", 0, ERROR_ACCESS_DENIED});
    ASSERT_TRUE(fail.Found());
    EXPECT_EQ(First(L"*"), VORN_E_NOT_PERMITTED);
    EXPECT_EQ(find, nullptr);
}

TEST_F(FileFindFirst, FindsNamesOf255UnitsAndOfAnyScript)
{
    const std::wstring longest(255, L'n');
    const std::wstring scripts = L"\x00E4\x03B1\x0436\x4E2D\xD83D\xDE00.txt";
    dir.MakeFile(longest);
    dir.MakeFile(scripts);
    EXPECT_EQ(SearchSet(dir / L"*"), (Names{longest, scripts}));
}

TEST_F(FileFindFirst, SearchesPathsBeyondTheSystemsLimitWithItsPrefix)
{
    std::wstring deep = L"\\\\?\\" + dir.Path();
    for (int i = 0; i < 6; ++i) {
        deep += L"\\" + std::wstring(100, static_cast<wchar_t>(L'a' + i));
        ASSERT_TRUE(CreateDirectoryW(deep.c_str(), nullptr)) << GetLastError();
    }
    const std::wstring file = deep + L"\\leaf.txt";
    HANDLE made = CreateFileW(file.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr);
    ASSERT_NE(made, INVALID_HANDLE_VALUE);
    CloseHandle(made);
    EXPECT_EQ(First(deep + L"\\*"), VORN_OK);
    ASSERT_NE(find, nullptr);
    EXPECT_STREQ(name, L"leaf.txt");
    const wchar_t* fullName = nullptr;
    EXPECT_EQ(VornFileFindGetFullName(find, &fullName), VORN_OK);
    // Too long to be qualified, so it stays as it is.
    EXPECT_EQ(fullName, file);
    EXPECT_EQ(VornFileFindClose(find), VORN_OK);
    find = nullptr;
    EXPECT_EQ(VornFileRemoveDir((L"\\\\?\\" + dir.Path()).c_str(), 1, 1, 0), VORN_OK);
}

TEST_F(FileFindFirst, EachAllocationThatFailsIsReportedAndLeaksNothing)
{
    dir.MakeFile(L"a");
    const std::wstring pattern = dir / L"*";
    ASSERT_EQ(First(pattern), VORN_OK);
    ASSERT_EQ(VornFileFindClose(find), VORN_OK);
    LeakWatch watch;
    const long failures = FailEachCallInTurn(kAllocations, [&] {
        const VornStatus status = First(pattern);
        if (find != nullptr) {
            EXPECT_EQ(status, VORN_OK);
            EXPECT_EQ(VornFileFindClose(find), VORN_OK);
        } else {
            EXPECT_EQ(status, VORN_E_NO_MEMORY);
        }
        find = nullptr;
    });
    EXPECT_GE(failures, 2) << "the prefix and the record";
    EXPECT_EQ(watch.Leaks(), "");
}

TEST_F(FileFindFirst, ARegistryThatCannotGrowIsNoMemory)
{
    dir.MakeFile(L"a");
    const std::wstring pattern = dir / L"*";
    std::vector<VornFileFind*> open;
    long failed = 0;
    for (int i = 0; i < 300; ++i) {
        // Two allocations make the search; the third belongs to the registry when it must grow.
        FailingCall noCalloc(kCalloc, 2, true);
        const VornStatus status = First(pattern);
        if (find != nullptr) {
            open.push_back(find);
            find = nullptr;
        } else {
            EXPECT_EQ(status, VORN_E_NO_MEMORY);
            ++failed;
        }
        if (failed != 0) break;
    }
    EXPECT_EQ(failed, 1);
    for (VornFileFind* each : open) EXPECT_EQ(VornFileFindClose(each), VORN_OK);
}

TEST_F(FileFindNext, RefusesAnUnknownSearchAndANullName)
{
    dir.MakeFile(L"a");
    EXPECT_EQ(VornFileFindNext(nullptr, &name), VORN_E_INVALID_ARG);
    int foreign = 0;
    EXPECT_EQ(VornFileFindNext(reinterpret_cast<VornFileFind*>(&foreign), &name), VORN_E_INVALID_ARG);
    EXPECT_STREQ(name, L"untouched");
    ASSERT_EQ(First(dir / L"*"), VORN_OK);
    EXPECT_EQ(VornFileFindNext(find, nullptr), VORN_E_INVALID_ARG);
}

TEST_F(FileFindNext, EndsWithNoMoreAgainAndAgain)
{
    dir.MakeFile(L"a");
    ASSERT_EQ(First(dir / L"*"), VORN_OK);
    VornSetLastError(VORN_E_BUSY);
    for (int i = 0; i < 3; ++i) {
        name = L"untouched";
        EXPECT_EQ(VornFileFindNext(find, &name), VORN_E_NO_MORE);
        EXPECT_EQ(name, nullptr);
    }
    EXPECT_EQ(VornGetLastError(), VORN_E_BUSY);
}

TEST_F(FileFindNext, AnyFailureOfTheSystemEndsTheSearch)
{
    dir.MakeFile(L"a");
    dir.MakeFile(L"b");
    ASSERT_EQ(First(dir / L"*"), VORN_OK);
    FailingCall fail(kFindNextFile);
    ASSERT_TRUE(fail.Found());
    EXPECT_EQ(VornFileFindNext(find, &name), VORN_E_NO_MORE);
    EXPECT_EQ(name, nullptr);
}

TEST_F(FileFindFirst, AFailureBehindTheDotsIsNotFoundAndLeaksNothing)
{
    dir.MakeFile(L"a");
    LeakWatch watch;
    {
        FailingCall fail(kFindNextFile);
        EXPECT_EQ(First(dir / L"*"), VORN_E_NOT_FOUND);
        EXPECT_EQ(fail.Failures(), 1);
    }
    EXPECT_EQ(find, nullptr);
    EXPECT_EQ(watch.Leaks(), "");
}

TEST_F(FileFindNext, SkipsDotsWhereverTheSystemPutsThem)
{
    static int call;
    call = 0;
    dir.MakeFile(L"a");
    ASSERT_EQ(First(dir / L"*"), VORN_OK);
    BOOL(WINAPI * next)
    (HANDLE, WIN32_FIND_DATAW*) = [](HANDLE, WIN32_FIND_DATAW* data) -> BOOL {
        const wchar_t* const names[] = {L"..", L"b", L".", L"..", L"..c", L"."};
        if (call == 6) return FALSE;
        wcscpy(data->cFileName, names[call++]);
        return TRUE;
    };
    ImportRedirect redirect("FindNextFileW", reinterpret_cast<void*>(next));
    EXPECT_EQ(VornFileFindNext(find, &name), VORN_OK);
    EXPECT_STREQ(name, L"b");
    EXPECT_EQ(VornFileFindNext(find, &name), VORN_OK);
    EXPECT_STREQ(name, L"..c");
    EXPECT_EQ(VornFileFindNext(find, &name), VORN_E_NO_MORE);
}

TEST_F(FileFindGetSize, GivesBytesAlsoBeyondFourGigabytes)
{
    const std::wstring path = dir.MakeFile(L"large");
    HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    LARGE_INTEGER size;
    size.QuadPart = 0x140000007;
    ASSERT_TRUE(SetFilePointerEx(file, size, nullptr, FILE_BEGIN));
    ASSERT_TRUE(SetEndOfFile(file));
    CloseHandle(file);
    ASSERT_EQ(First(dir / L"*"), VORN_OK);
    EXPECT_EQ(VornFileFindGetSize(find), 0x140000007u);
}

TEST_F(FileFindGetSize, IsAllOnesForAnUnknownSearchAndLeavesTheLastErrorAlone)
{
    VornSetLastError(VORN_E_BUSY);
    EXPECT_EQ(VornFileFindGetSize(nullptr), UINT64_MAX);
    int foreign = 0;
    EXPECT_EQ(VornFileFindGetSize(reinterpret_cast<VornFileFind*>(&foreign)), UINT64_MAX);
    EXPECT_EQ(VornGetLastError(), VORN_E_BUSY);
}

TEST_F(FileFindGetTime, GivesAccessAndModificationInUtc)
{
    const std::wstring path = dir.MakeFile(L"a");
    SYSTEMTIME accessed = {2019, 2, 0, 28, 23, 59, 58, 0};
    SYSTEMTIME modified = {2024, 2, 0, 29, 1, 2, 4, 0};
    FILETIME access, modify;
    ASSERT_TRUE(SystemTimeToFileTime(&accessed, &access) && SystemTimeToFileTime(&modified, &modify));
    HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_TRUE(SetFileTime(file, nullptr, &access, &modify));
    CloseHandle(file);
    ASSERT_EQ(First(dir / L"*"), VORN_OK);
    VornTime accessTime = {}, modifyTime = {};
    EXPECT_EQ(VornFileFindGetTime(find, &accessTime, &modifyTime), VORN_OK);
    const VornTime expectedAccess = {2019, 2, 4, 28, 23, 59, 58, 0};
    const VornTime expectedModify = {2024, 2, 4, 29, 1, 2, 4, 0};
    EXPECT_EQ(VornTimeCmp(&accessTime, &expectedAccess, 0), 0);
    EXPECT_EQ(VornTimeCmp(&modifyTime, &expectedModify, 0), 0);
    EXPECT_EQ(accessTime.dayOfWeek, 4);
    EXPECT_EQ(modifyTime.dayOfWeek, 4);
    VornTime alone = {};
    EXPECT_EQ(VornFileFindGetTime(find, nullptr, &alone), VORN_OK);
    EXPECT_EQ(VornTimeCmp(&alone, &expectedModify, 0), 0);
    EXPECT_EQ(VornFileFindGetTime(find, &alone, nullptr), VORN_OK);
    EXPECT_EQ(VornTimeCmp(&alone, &expectedAccess, 0), 0);
    EXPECT_EQ(VornFileFindGetTime(find, nullptr, nullptr), VORN_OK);
}

TEST_F(FileFindGetTime, RefusesAnUnknownSearch)
{
    VornTime time = {1, 2, 3, 4, 5, 6, 7, 8};
    EXPECT_EQ(VornFileFindGetTime(nullptr, &time, &time), VORN_E_INVALID_ARG);
    EXPECT_EQ(time.year, 1);
}

TEST_F(FileFindGetTime, ATimeThatIsNoCalendarTimeLeavesItsOutput)
{
    dir.MakeFile(L"a");
    ASSERT_EQ(First(dir / L"*"), VORN_OK);
    FailingCall fail({"FileTimeToSystemTime", 0, ERROR_INVALID_PARAMETER}, 1);
    ASSERT_TRUE(fail.Found());
    VornTime accessTime = {1, 2, 3, 4, 5, 6, 7, 8}, modifyTime = {1, 2, 3, 4, 5, 6, 7, 8};
    EXPECT_EQ(VornFileFindGetTime(find, &accessTime, &modifyTime), VORN_OK);
    EXPECT_EQ(accessTime.year, 1);
    EXPECT_EQ(accessTime.milliseconds, 8);
    EXPECT_GT(modifyTime.year, 2000);
}

TEST_F(FileFindClose, RefusesAnUnknownSearchAndASecondClose)
{
    dir.MakeFile(L"a");
    EXPECT_EQ(VornFileFindClose(nullptr), VORN_E_INVALID_ARG);
    ASSERT_EQ(First(dir / L"*"), VORN_OK);
    VornFileFind* closed = find;
    find = nullptr;
    EXPECT_EQ(VornFileFindClose(closed), VORN_OK);
    EXPECT_EQ(VornFileFindClose(closed), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornFileFindNext(closed, &name), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornFileFindGetSize(closed), UINT64_MAX);
}

TEST_F(FileFindClose, AFileHandleIsNoSearch)
{
    const std::wstring path = dir.MakeFile(L"a");
    VornFile* file = VornFileCreate(path.c_str(), VORN_FILE_OPEN_EXISTING, VORN_FILE_ACCESS_READ, VORN_TRUE,
                                    nullptr, nullptr);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(VornFileFindClose(reinterpret_cast<VornFileFind*>(file)), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileFindClose, AFaultIsCaughtAndLeavesTheSearchOpen)
{
    dir.MakeFile(L"a");
    LeakWatch watch;
    ASSERT_EQ(First(dir / L"*"), VORN_OK);
    const wchar_t* fullName = nullptr;
    ASSERT_EQ(VornFileFindGetFullName(find, &fullName), VORN_OK);
    {
        BOOL(WINAPI * faulting)
        (HANDLE) = [](HANDLE) -> BOOL {
            RaiseException(EXCEPTION_ACCESS_VIOLATION, 0, 0, nullptr);
            return TRUE;
        };
        ImportRedirect redirect("FindClose", reinterpret_cast<void*>(faulting));
        ASSERT_TRUE(redirect.Found());
        EXPECT_EQ(VornFileFindClose(find), VORN_E_SYSTEM);
        EXPECT_EQ(VornFileFindClose(find), VORN_E_SYSTEM);
    }
    // It has lost its prefix, but nothing that it lost is touched again.
    EXPECT_EQ(VornFileFindGetSize(find), 0u);
    EXPECT_EQ(VornFileFindGetFullName(find, &fullName), VORN_OK);
    EXPECT_EQ(VornFileFindNext(find, &name), VORN_E_NO_MORE);
    EXPECT_EQ(VornFileFindClose(find), VORN_OK);
    EXPECT_EQ(VornFileFindClose(find), VORN_E_INVALID_ARG);
    find = nullptr;
    EXPECT_EQ(watch.Leaks(), "");
}

TEST_F(FileFind, GivesTenThousandEntriesOfOneDirectory)
{
    Names expected;
    for (int i = 0; i < 10000; ++i) expected.insert(L"entry" + std::to_wstring(i));
    ASSERT_TRUE(MakeManyFiles(dir.Path(), L"entry", 10000));
    EXPECT_EQ(SearchSet(dir / L"*"), expected);
    EXPECT_EQ(SearchSet(dir / L"entry99*").size(), 111u);
    RunOnHost(dir.Path(), L"ls | xargs rm");
}

namespace {

struct EntryFacts {
    bool directory;
    uint64_t size;
    uint64_t modified;  // 100-nanosecond ticks
    bool operator==(const EntryFacts& other) const
    {
        return directory == other.directory && size == other.size && modified == other.modified;
    }
};

using Facts = std::map<std::wstring, EntryFacts>;

uint64_t Ticks(const VornTime& time)
{
    SYSTEMTIME calendar;
    memcpy(&calendar, &time, sizeof(calendar));
    FILETIME ticks = {};
    EXPECT_TRUE(SystemTimeToFileTime(&calendar, &ticks));
    return uint64_t{ticks.dwHighDateTime} << 32 | ticks.dwLowDateTime;
}

// By the search family.
void CollectFound(const std::wstring& root, Facts* facts)
{
    const wchar_t* name = nullptr;
    VornFileFind* find = VornFileFindFirst((root + L"\\*").c_str(), &name);
    if (find == nullptr) {
        EXPECT_EQ(VornGetLastError(), VORN_E_NOT_FOUND);
        return;
    }
    do {
        const wchar_t* fullName = nullptr;
        VornTime modified = {};
        ASSERT_EQ(VornFileFindGetFullName(find, &fullName), VORN_OK);
        ASSERT_EQ(VornFileFindGetTime(find, nullptr, &modified), VORN_OK);
        ASSERT_EQ(fullName, root + L"\\" + name);
        const bool directory = VornFileGetType(fullName) == VORN_FILE_TYPE_DIRECTORY;
        ASSERT_TRUE(
            facts->emplace(fullName, EntryFacts{directory, VornFileFindGetSize(find), Ticks(modified)})
                .second);
        if (directory) CollectFound(fullName, facts);
    } while (VornFileFindNext(find, &name) == VORN_OK);
    EXPECT_EQ(VornFileFindClose(find), VORN_OK);
}

// By the C++ library and, for the time to the millisecond, the system.
Facts CollectIndependently(const std::wstring& root)
{
    Facts facts;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        WIN32_FILE_ATTRIBUTE_DATA data = {};
        EXPECT_TRUE(GetFileAttributesExW(entry.path().c_str(), GetFileExInfoStandard, &data));
        const uint64_t ticks =
            uint64_t{data.ftLastWriteTime.dwHighDateTime} << 32 | data.ftLastWriteTime.dwLowDateTime;
        const bool directory = entry.is_directory();
        facts.emplace(entry.path().native(),
                      EntryFacts{directory, directory ? 0 : entry.file_size(), ticks - ticks % 10000});
    }
    return facts;
}

}  // namespace

TEST_F(FileFind, AgreesWithAnIndependentListingOverRandomTrees)
{
    std::mt19937 random(20261123);
    size_t compared = 0;
    for (int round = 0; round < 6; ++round) {
        const std::wstring root = dir.MakeDir(L"tree" + std::to_wstring(round));
        std::vector<std::wstring> directories{root};
        for (int i = 0; i < 60; ++i) {
            const std::wstring at = directories[random() % directories.size()];
            const std::wstring path = at + L"\\n" + std::to_wstring(i);
            if (random() % 3 == 0) {
                fs::create_directory(path);
                directories.push_back(path);
            } else {
                std::ofstream(fs::path(path), std::ios::binary) << std::string(random() % 5000, 'y');
            }
        }
        Facts found;
        CollectFound(root, &found);
        const Facts expected = CollectIndependently(root);
        EXPECT_EQ(found.size(), 60u);
        EXPECT_TRUE(found == expected) << "round " << round;
        compared += found.size();
        // And removed without a trace.
        EXPECT_EQ(VornFileRemoveDir(root.c_str(), 1, 1, 0), VORN_OK);
        EXPECT_FALSE(IsThere(root));
    }
    EXPECT_EQ(compared, 360u);
}

TEST_F(FileFind, ThreadsWithSearchesOfTheirOwnDoNotDisturbEachOther)
{
    for (int i = 0; i < 50; ++i) dir.MakeFile(L"f" + std::to_wstring(i), static_cast<size_t>(i));
    std::atomic<int> complete{0};
    const auto work = [&] {
        for (int round = 0; round < 10; ++round) {
            std::set<std::wstring> names;
            uint64_t total = 0;
            const wchar_t* each = nullptr;
            VornFileFind* search = VornFileFindFirst((dir / L"*").c_str(), &each);
            if (search == nullptr) return;
            do {
                const wchar_t* fullName = nullptr;
                if (VornFileFindGetFullName(search, &fullName) != VORN_OK || fullName != dir / each) return;
                names.insert(each);
                total += VornFileFindGetSize(search);
            } while (VornFileFindNext(search, &each) == VORN_OK);
            if (VornFileFindClose(search) != VORN_OK || names.size() != 50 || total != 49 * 50 / 2) return;
            ++complete;
        }
    };
    std::thread first(work), second(work), third(work);
    first.join();
    second.join();
    third.join();
    EXPECT_EQ(complete, 30);
}
