#include <vorn/vorn.h>

#include "file/host_shell.h"
#include "file/scratch_dir.h"
#include "support/failing_call.h"
#include "support/leak_watch.h"

#include <gtest/gtest.h>
#include <random>
#include <set>

using namespace vorn_test;
namespace fs = std::filesystem;

namespace {

using Names = std::set<std::wstring>;

class FileRemoveDir : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(VornInitialize(), VORN_OK);
        VornSetLastError(VORN_E_BUSY);
        root = dir.MakeDir(L"root");
    }
    void TearDown() override
    {
        EXPECT_EQ(VornGetLastError(), VORN_E_BUSY) << "the last error is left alone";
        VornTerminate();
    }
    // Everything below the root, relative to it; the root itself is there.
    Names Left() const
    {
        Names names;
        for (const auto& entry : fs::recursive_directory_iterator(root)) {
            names.insert(entry.path().native().substr(root.size() + 1));
        }
        return names;
    }
    void MakeReadOnly(const std::wstring& name) const
    {
        ASSERT_TRUE(SetFileAttributesW((root + L"\\" + name).c_str(), FILE_ATTRIBUTE_READONLY));
    }
    // Two files and two directories, one of which holds a file.
    void Fill() const
    {
        dir.MakeFile(L"root\\a");
        dir.MakeFile(L"root\\b");
        dir.MakeDir(L"root\\empty");
        dir.MakeDir(L"root\\full");
        dir.MakeFile(L"root\\full\\c");
    }
    const Names everything{L"a", L"b", L"empty", L"full", L"full\\c"};

    ScratchDir dir;
    std::wstring root;
};

}  // namespace

TEST_F(FileRemoveDir, RefusesANullAndAnEmptyPath)
{
    EXPECT_EQ(VornFileRemoveDir(nullptr, 1, 1, 1), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornFileRemoveDir(L"", 1, 1, 1), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornFileRemoveDir(L"", 0, 0, 0), VORN_E_INVALID_ARG);
}

TEST_F(FileRemoveDir, RemovesAnEmptyDirectoryWithAnyFlags)
{
    for (const int flags : {0, 1, 2, 3}) {
        const std::wstring empty = dir.MakeDir(L"empty");
        EXPECT_EQ(VornFileRemoveDir(empty.c_str(), flags & 1, (flags & 2) != 0, 0), VORN_OK) << flags;
        EXPECT_FALSE(IsThere(empty));
    }
}

TEST_F(FileRemoveDir, WithoutFlagsANonEmptyDirectoryIsNotEmptyAndKept)
{
    Fill();
    EXPECT_EQ(VornFileRemoveDir(root.c_str(), 0, 0, 0), VORN_E_DIR_NOT_EMPTY);
    EXPECT_EQ(VornFileRemoveDir(root.c_str(), 0, 0, 1), VORN_E_DIR_NOT_EMPTY);
    EXPECT_EQ(Left(), everything);
}

TEST_F(FileRemoveDir, WithBothFlagsRemovesTheWholeTree)
{
    Fill();
    EXPECT_EQ(VornFileRemoveDir(root.c_str(), 1, 1, 0), VORN_OK);
    EXPECT_FALSE(IsThere(root));
}

TEST_F(FileRemoveDir, AnyValueButZeroIsTrue)
{
    Fill();
    EXPECT_EQ(VornFileRemoveDir(root.c_str(), -5, 0x80000000u, 0), VORN_OK);
    EXPECT_FALSE(IsThere(root));
}

TEST_F(FileRemoveDir, WithoutRecursionASubdirectoryStopsTheCall)
{
    Fill();
    EXPECT_EQ(VornFileRemoveDir(root.c_str(), 0, 1, 0), VORN_E_DIR_NOT_EMPTY);
    const Names left = Left();
    EXPECT_EQ(left.count(L"empty"), 1u);
    EXPECT_EQ(left.count(L"full\\c"), 1u);
}

TEST_F(FileRemoveDir, FilesMetBeforeTheSubdirectoryAreGoneAndOthersKept)
{
    // In the order in which the system lists them.
    Fill();
    std::vector<std::wstring> order;
    const wchar_t* name = nullptr;
    VornFileFind* find = VornFileFindFirst((root + L"\\*").c_str(), &name);
    ASSERT_NE(find, nullptr);
    do order.emplace_back(name);
    while (VornFileFindNext(find, &name) == VORN_OK);
    VornFileFindClose(find);
    VornSetLastError(VORN_E_BUSY);
    Names expected = everything;
    for (const std::wstring& each : order) {
        if (each == L"empty" || each == L"full") break;
        expected.erase(each);
    }
    EXPECT_EQ(VornFileRemoveDir(root.c_str(), 0, 1, 0), VORN_E_DIR_NOT_EMPTY);
    EXPECT_EQ(Left(), expected);
}

TEST_F(FileRemoveDir, WithoutDeletionAFileStopsTheCall)
{
    dir.MakeDir(L"root\\empty\\deeper");
    EXPECT_EQ(VornFileRemoveDir(root.c_str(), 1, 0, 0), VORN_OK) << "directories alone";
    EXPECT_FALSE(IsThere(root));
    dir.MakeDir(L"root");
    dir.MakeDir(L"root\\d");
    dir.MakeFile(L"root\\d\\file");
    EXPECT_EQ(VornFileRemoveDir(root.c_str(), 1, 0, 1), VORN_E_DIR_NOT_EMPTY);
    EXPECT_EQ(Left(), (Names{L"d", L"d\\file"}));
}

TEST_F(FileRemoveDir, DeletesTheFilesOfAFlatDirectoryWithoutRecursion)
{
    for (int i = 0; i < 40; ++i) dir.MakeFile(L"root\\f" + std::to_wstring(i));
    EXPECT_EQ(VornFileRemoveDir(root.c_str(), 0, 1, 0), VORN_OK);
    EXPECT_FALSE(IsThere(root));
}

TEST_F(FileRemoveDir, AReadOnlyFileIsNotPermittedUnlessItsAttributeIsCleared)
{
    dir.MakeFile(L"root\\locked");
    MakeReadOnly(L"locked");
    EXPECT_EQ(VornFileRemoveDir(root.c_str(), 0, 1, 0), VORN_E_NOT_PERMITTED);
    EXPECT_EQ(VornFileRemoveDir(root.c_str(), 1, 1, 2), VORN_E_NOT_PERMITTED) << "only 1 clears";
    EXPECT_EQ(Left(), (Names{L"locked"}));
    EXPECT_NE(GetFileAttributesW((root + L"\\locked").c_str()) & FILE_ATTRIBUTE_READONLY, 0u);
    EXPECT_EQ(VornFileRemoveDir(root.c_str(), 0, 1, 1), VORN_OK);
    EXPECT_FALSE(IsThere(root));
}

TEST_F(FileRemoveDir, ClearsTheAttributeInSubdirectoriesToo)
{
    dir.MakeDir(L"root\\d");
    dir.MakeFile(L"root\\d\\locked");
    MakeReadOnly(L"d\\locked");
    EXPECT_EQ(VornFileRemoveDir(root.c_str(), 1, 1, 1), VORN_OK);
    EXPECT_FALSE(IsThere(root));
}

TEST_F(FileRemoveDir, ClearsNothingButTheReadOnlyAttribute)
{
    dir.MakeFile(L"root\\locked");
    ASSERT_TRUE(
        SetFileAttributesW((root + L"\\locked").c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN));
    static DWORD set;
    BOOL(WINAPI * setAttributes)
    (const wchar_t*, DWORD) = [](const wchar_t*, DWORD attributes) -> BOOL {
        set = attributes;
        return FALSE;
    };
    ImportRedirect redirect("SetFileAttributesW", reinterpret_cast<void*>(setAttributes));
    static DWORD shown = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_ARCHIVE;
    DWORD(WINAPI * getAttributes)(const wchar_t*) = [](const wchar_t*) -> DWORD { return shown; };
    ImportRedirect attributes("GetFileAttributesW", reinterpret_cast<void*>(getAttributes));
    EXPECT_EQ(VornFileRemoveDir(root.c_str(), 0, 1, 1), VORN_E_NOT_PERMITTED);
    EXPECT_EQ(set, DWORD{FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_ARCHIVE});
}

TEST_F(FileRemoveDir, AStopInTheMiddleLeavesTheRest)
{
    for (int i = 0; i < 8; ++i) dir.MakeFile(L"root\\f" + std::to_wstring(i));
    {
        FailingCall fail({"DeleteFileW", 0, ERROR_SHARING_VIOLATION}, 4);
        EXPECT_EQ(VornFileRemoveDir(root.c_str(), 1, 1, 0), VORN_E_SHARING);
    }
    EXPECT_EQ(Left().size(), 5u);
    EXPECT_EQ(VornFileRemoveDir(root.c_str(), 1, 1, 0), VORN_OK);
}

TEST_F(FileRemoveDir, AStopInASubdirectoryStopsEverything)
{
    dir.MakeDir(L"root\\d1\\d2");
    dir.MakeFile(L"root\\d1\\d2\\f");
    FailingCall fail({"DeleteFileW", 0, ERROR_ACCESS_DENIED}, 1, true);
    EXPECT_EQ(VornFileRemoveDir(root.c_str(), 1, 1, 0), VORN_E_NOT_PERMITTED);
    EXPECT_EQ(fail.Calls(), 1);
    EXPECT_EQ(Left(), (Names{L"d1", L"d1\\d2", L"d1\\d2\\f"}));
}

TEST_F(FileRemoveDir, ASubdirectoryThatCannotBeRemovedStopsWithItsError)
{
    dir.MakeDir(L"root\\d");
    FailingCall fail({"RemoveDirectoryW", 0, ERROR_SHARING_VIOLATION}, 1);
    EXPECT_EQ(VornFileRemoveDir(root.c_str(), 1, 0, 0), VORN_E_SHARING);
    EXPECT_EQ(fail.Calls(), 1);
}

TEST_F(FileRemoveDir, AnEntryThatCannotBeExaminedCountsAsADirectory)
{
    dir.MakeFile(L"root\\f");
    // The first question is about the root, the second about its entry.
    const FaultPoint unreadable = {"GetFileAttributesW", 0xFFFFFFFF, ERROR_ACCESS_DENIED};
    {
        FailingCall fail(unreadable, 2);
        EXPECT_EQ(VornFileRemoveDir(root.c_str(), 0, 1, 0), VORN_E_DIR_NOT_EMPTY);
    }
    FailingCall fail(unreadable, 2);
    EXPECT_NE(VornFileRemoveDir(root.c_str(), 1, 1, 0), VORN_OK)
        << "a file is no directory that can be removed";
    EXPECT_EQ(Left(), (Names{L"f"}));
}

TEST_F(FileRemoveDir, AMissingDirectoryHasTheSystemsError)
{
    EXPECT_EQ(VornFileRemoveDir((dir / L"missing").c_str(), 0, 0, 0), VORN_E_NOT_FOUND);
    EXPECT_EQ(VornFileRemoveDir((dir / L"missing").c_str(), 1, 1, 1), VORN_E_NOT_FOUND);
    EXPECT_EQ(VornFileRemoveDir((dir / L"missing\\below").c_str(), 1, 1, 1), VORN_E_PATH_NOT_FOUND);
}

TEST_F(FileRemoveDir, AFileIsNeverRemoved)
{
    const std::wstring file = dir.MakeFile(L"file");
    EXPECT_EQ(VornFileRemoveDir(file.c_str(), 0, 0, 0), VORN_E_UNKNOWN);
    EXPECT_EQ(VornFileRemoveDir(file.c_str(), 1, 1, 1), VORN_E_UNKNOWN);
    EXPECT_TRUE(IsThere(file));
}

TEST_F(FileRemoveDir, TakesAPathWithATrailingBackslash)
{
    Fill();
    EXPECT_EQ(VornFileRemoveDir((root + L"\\").c_str(), 1, 1, 0), VORN_OK);
    EXPECT_FALSE(IsThere(root));
}

TEST_F(FileRemoveDir, TakesARelativePath)
{
    Fill();
    CurrentDirScope current(dir.Path());
    EXPECT_EQ(VornFileRemoveDir(L"root", 1, 1, 0), VORN_OK);
    EXPECT_FALSE(IsThere(root));
}

TEST_F(FileRemoveDir, RemovesNamesOf255UnitsOnManyLevelsWithTheLongPathPrefix)
{
    std::wstring deep = L"\\\\?\\" + root;
    for (int i = 0; i < 12; ++i) {
        deep += L"\\" + std::wstring(255, static_cast<wchar_t>(L'a' + i));
        ASSERT_TRUE(CreateDirectoryW(deep.c_str(), nullptr)) << i << ": " << GetLastError();
    }
    HANDLE file = CreateFileW((deep + L"\\leaf").c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    CloseHandle(file);
    EXPECT_EQ(VornFileRemoveDir((L"\\\\?\\" + root).c_str(), 1, 1, 0), VORN_OK);
    EXPECT_FALSE(IsThere(root));
}

namespace {

// Runs a removal on a thread with the smallest stack that the system gives.
DWORD WINAPI RemoveOnSmallStack(void* path)
{
    return VornFileRemoveDir(static_cast<const wchar_t*>(path), 1, 1, 0);
}

}  // namespace

TEST_F(FileRemoveDir, ADeepTreeNeedsNoDeepStack)
{
    std::wstring deep = L"\\\\?\\" + root;
    constexpr int kLevels = 120;
    for (int i = 0; i < kLevels; ++i) {
        deep += L"\\d";
        ASSERT_TRUE(CreateDirectoryW(deep.c_str(), nullptr)) << i << ": " << GetLastError();
    }
    std::wstring path = L"\\\\?\\" + root;
    HANDLE thread = CreateThread(nullptr, 65536, RemoveOnSmallStack, path.data(),
                                 STACK_SIZE_PARAM_IS_A_RESERVATION, nullptr);
    ASSERT_NE(thread, nullptr);
    ASSERT_TRUE(WaitBounded(thread));
    DWORD status = 0;
    GetExitCodeThread(thread, &status);
    CloseHandle(thread);
    EXPECT_EQ(status, VORN_OK);
    EXPECT_FALSE(IsThere(root));
}

TEST_F(FileRemoveDir, EachAllocationThatFailsIsReportedAndLeaksNothing)
{
    LeakWatch watch;
    const long failures = FailEachCallInTurn(kAllocations, [&] {
        fs::create_directory(root);
        std::wstring deep = L"\\\\?\\" + root;
        for (int i = 0; i < 4; ++i) {
            deep += L"\\" + std::wstring(200, L'd');
            CreateDirectoryW(deep.c_str(), nullptr);
        }
        const VornStatus status = VornFileRemoveDir((L"\\\\?\\" + root).c_str(), 1, 1, 0);
        EXPECT_EQ(IsThere(root), status != VORN_OK);
        EXPECT_TRUE(status == VORN_OK || status == VORN_E_NO_MEMORY) << status;
    });
    EXPECT_GE(failures, 2) << "the path and its growth";
    EXPECT_EQ(watch.Leaks(), "");
}

TEST_F(FileRemoveDir, EachSystemCallThatFailsLeaksNothingAndNeverLoops)
{
    const FaultPoint points[] = {{"FindFirstFileW", kInvalidHandle, ERROR_ACCESS_DENIED},
                                 {"FindNextFileW", 0, ERROR_ACCESS_DENIED},
                                 {"GetFileAttributesW", 0xFFFFFFFF, ERROR_ACCESS_DENIED},
                                 {"SetFileAttributesW", 0, ERROR_ACCESS_DENIED},
                                 {"DeleteFileW", 0, ERROR_ACCESS_DENIED},
                                 {"RemoveDirectoryW", 0, ERROR_ACCESS_DENIED}};
    LeakWatch watch;
    for (const FaultPoint& point : points) {
        const long failures = FailEachCallInTurn(point, [&] {
            fs::create_directory(root);
            Fill();
            MakeReadOnly(L"full\\c");
            const VornStatus status = VornFileRemoveDir(root.c_str(), 1, 1, 1);
            EXPECT_EQ(IsThere(root), status != VORN_OK) << point.import;
        });
        EXPECT_GE(failures, 1) << point.import;
    }
    fs::create_directory(root);
    EXPECT_EQ(watch.Leaks(), "");
}

TEST_F(FileRemoveDir, RandomTreesVanishWithNothingElse)
{
    std::mt19937 random(20261124);
    dir.MakeFile(L"beside", 3);
    for (int round = 0; round < 8; ++round) {
        fs::create_directory(root);
        std::vector<std::wstring> directories{root};
        for (int i = 0; i < 50; ++i) {
            const std::wstring path =
                directories[random() % directories.size()] + L"\\n" + std::to_wstring(i);
            if (random() % 2 == 0) {
                fs::create_directory(path);
                directories.push_back(path);
            } else {
                std::ofstream(fs::path(path)) << i;
                if (random() % 4 == 0) SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_READONLY);
            }
        }
        ASSERT_EQ(VornFileRemoveDir(root.c_str(), 1, 1, 1), VORN_OK);
        ASSERT_FALSE(IsThere(root));
    }
    EXPECT_TRUE(IsThere(dir / L"beside"));
}

namespace {

// Makes every directory whose path ends in L"link" look like a reparse point with a tag.
struct FakeLinks {
    static inline DWORD tag;
    static inline HANDLE(WINAPI* findFirst)(const wchar_t*, WIN32_FIND_DATAW*);
    static inline BOOL(WINAPI* findNext)(HANDLE, WIN32_FIND_DATAW*);
    static inline DWORD(WINAPI* getAttributes)(const wchar_t*);
    static inline int searchesInside;

    static bool IsLink(const std::wstring& path)
    {
        return path.size() >= 4 && path.compare(path.size() - 4, 4, L"link") == 0;
    }
    static void Mark(WIN32_FIND_DATAW* data)
    {
        if (!IsLink(data->cFileName)) return;
        data->dwFileAttributes |= FILE_ATTRIBUTE_REPARSE_POINT;
        data->dwReserved0 = tag;
    }
    static HANDLE WINAPI FindFirst(const wchar_t* path, WIN32_FIND_DATAW* data)
    {
        if (std::wstring(path).find(L"link\\") != std::wstring::npos) ++searchesInside;
        HANDLE search = findFirst(path, data);
        if (search != INVALID_HANDLE_VALUE) Mark(data);
        return search;
    }
    static BOOL WINAPI FindNext(HANDLE search, WIN32_FIND_DATAW* data)
    {
        if (!findNext(search, data)) return FALSE;
        Mark(data);
        return TRUE;
    }
    static DWORD WINAPI GetAttributes(const wchar_t* path)
    {
        const DWORD attributes = getAttributes(path);
        std::wstring plain = path;
        while (!plain.empty() && plain.back() == L'\\') plain.pop_back();
        return attributes != INVALID_FILE_ATTRIBUTES && IsLink(plain)
                   ? attributes | FILE_ATTRIBUTE_REPARSE_POINT
                   : attributes;
    }

    explicit FakeLinks(DWORD theirTag)
        : first("FindFirstFileW", reinterpret_cast<void*>(&FindFirst)),
          next("FindNextFileW", reinterpret_cast<void*>(&FindNext)),
          attributes("GetFileAttributesW", reinterpret_cast<void*>(&GetAttributes))
    {
        tag = theirTag;
        searchesInside = 0;
        findFirst = first.Original<decltype(findFirst)>();
        findNext = next.Original<decltype(findNext)>();
        getAttributes = attributes.Original<decltype(getAttributes)>();
    }
    ImportRedirect first, next, attributes;
};

constexpr DWORD kCloudTag = 0x9000001A;  // a directory of which a part lies in another store; no link

// Makes a link from `link` to the existing directory `target` in whichever way the system offers; the way's
// name, or null.
const char* MakeDirectoryLink(const std::wstring& link, const std::wstring& target)
{
    if (CreateSymbolicLinkW(link.c_str(), target.c_str(), SYMBOLIC_LINK_FLAG_DIRECTORY) && IsThere(link)) {
        return "symbolic link";
    }
    const std::wstring directory(link, 0, link.rfind(L'\\'));
    const std::wstring name(link, directory.size() + 1);
    if (RunOnHost(directory, L"ln -s '" + HostPath(target) + L"' " + name) && IsThere(link)) {
        return "symbolic link of the host";
    }
    return nullptr;
}

}  // namespace

TEST_F(FileRemoveDir, ALinkInTheTreeIsNeverEntered)
{
    dir.MakeDir(L"root\\link");
    dir.MakeFile(L"root\\link\\precious");
    for (const DWORD tag :
         {DWORD{IO_REPARSE_TAG_MOUNT_POINT}, DWORD{IO_REPARSE_TAG_SYMLINK}, DWORD{0}, DWORD{1}}) {
        const FakeLinks links(tag);
        // The stand-in is a real directory with a file, so that removing it itself must fail.
        EXPECT_EQ(VornFileRemoveDir(root.c_str(), 1, 1, 1), VORN_E_DIR_NOT_EMPTY) << tag;
        EXPECT_EQ(FakeLinks::searchesInside, 0) << tag;
        EXPECT_EQ(Left(), (Names{L"link", L"link\\precious"})) << tag;
    }
}

TEST_F(FileRemoveDir, ALinkInTheTreeIsRemovedItself)
{
    dir.MakeDir(L"root\\d\\link");
    const FakeLinks links(IO_REPARSE_TAG_MOUNT_POINT);
    EXPECT_EQ(VornFileRemoveDir(root.c_str(), 1, 1, 0), VORN_OK);
    EXPECT_EQ(FakeLinks::searchesInside, 0);
    EXPECT_FALSE(IsThere(root));
}

TEST_F(FileRemoveDir, ALinkCountsAsASubdirectory)
{
    dir.MakeDir(L"root\\link");
    const FakeLinks links(IO_REPARSE_TAG_MOUNT_POINT);
    EXPECT_EQ(VornFileRemoveDir(root.c_str(), 0, 1, 0), VORN_E_DIR_NOT_EMPTY);
    EXPECT_EQ(Left(), (Names{L"link"}));
}

TEST_F(FileRemoveDir, APathThatIsALinkIsNotEmptied)
{
    const std::wstring link = dir.MakeDir(L"link");
    dir.MakeFile(L"link\\precious");
    const FakeLinks links(IO_REPARSE_TAG_SYMLINK);
    for (const std::wstring& path : {link, link + L"\\"}) {
        EXPECT_EQ(VornFileRemoveDir(path.c_str(), 1, 1, 1), VORN_E_DIR_NOT_EMPTY);
        EXPECT_TRUE(IsThere(link + L"\\precious"));
    }
    EXPECT_EQ(FakeLinks::searchesInside, 0);
}

TEST_F(FileRemoveDir, AReparsePointThatIsNoLinkIsAnOrdinaryDirectory)
{
    dir.MakeDir(L"root\\link");
    dir.MakeFile(L"root\\link\\f");
    const std::wstring own = dir.MakeDir(L"own link");
    dir.MakeFile(L"own link\\f");
    const FakeLinks links(kCloudTag);
    EXPECT_EQ(VornFileRemoveDir(root.c_str(), 1, 1, 0), VORN_OK);
    EXPECT_FALSE(IsThere(root));
    EXPECT_EQ(VornFileRemoveDir((own + L"\\").c_str(), 1, 1, 0), VORN_OK);
    EXPECT_FALSE(IsThere(own));
}

TEST_F(FileRemoveDir, WhatARealLinkPointsToIsNeverTouched)
{
    const std::wstring target = dir.MakeDir(L"target");
    dir.MakeFile(L"target\\precious", 5);
    const char* way = MakeDirectoryLink(root + L"\\alias", target);
    std::printf("link to a directory: %s\n", way != nullptr ? way : "none can be made here");
    // Whether the system itself can remove a link to a directory that is not empty.
    const std::wstring probe = dir / L"probe";
    const bool removable = MakeDirectoryLink(probe, target) == nullptr || RemoveDirectoryW(probe.c_str());
    std::printf("the system removes such a link: %s\n", removable ? "yes" : "no");
    EXPECT_EQ(VornFileRemoveDir(root.c_str(), 1, 1, 0), removable ? VORN_OK : VORN_E_DIR_NOT_EMPTY);
    EXPECT_EQ(IsThere(root), !removable);
    EXPECT_EQ(VornFileRemoveDir(probe.c_str(), 1, 1, 0), removable ? VORN_E_NOT_FOUND : VORN_E_DIR_NOT_EMPTY);
    EXPECT_TRUE(IsThere(target + L"\\precious"));
    // Links that the system cannot remove are cleared away behind it, so that no clean-up follows them.
    RunOnHost(dir.Path(), L"rm -f probe root/alias");
}
