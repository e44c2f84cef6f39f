// Searches of named streams. Where the system has them the cases that need no special data run on real
// streams; elsewhere, and for data that a sound system never gives, the module reads recorded backup data and
// a stream's open test meets a plain file of the stream's whole name.

#include <vorn/vorn.h>

#include "file/backup_replay.h"
#include "file/scratch_dir.h"
#include "support/failing_call.h"
#include "support/leak_watch.h"

#include <gtest/gtest.h>
#include <memory>
#include <vector>

using namespace vorn_test;

namespace {

struct StreamFacts {
    std::wstring name;
    uint64_t size;
    bool operator==(const StreamFacts& other) const { return name == other.name && size == other.size; }
};

// A test of the module's own behaviour on data that we choose.
class RecordedStreams : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(VornInitialize(), VORN_OK);
        ASSERT_TRUE(RedirectBackupLookUps());
        file = dir.MakeFile(L"f.txt", 10);
        replay = std::make_unique<BackupReplay>(Bytes());
    }
    void TearDown() override
    {
        if (find != nullptr) {
            EXPECT_EQ(VornFileFindClose(find), VORN_OK);
        }
        if (replay != nullptr) {
            EXPECT_EQ(replay->LiveContexts(), 0);
            EXPECT_TRUE(replay->CalledAsDocumented());
        }
        VornTerminate();
    }

    VornStatus First(const std::wstring& pattern)
    {
        find = VornFileFindFirst((file + L"\\" + pattern).c_str(), &name);
        return VornGetLastError();
    }
    VornStatus Next() { return VornFileFindNext(find, &name); }
    // Makes the open test of a stream succeed.
    void MakeOpenable(const std::wstring& streamName)
    {
        HANDLE stream = CreateFileW((file + streamName).c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                    OPEN_ALWAYS, 0, nullptr);
        ASSERT_NE(stream, INVALID_HANDLE_VALUE) << GetLastError();
        CloseHandle(stream);
    }

    ScratchDir dir;
    std::wstring file;
    std::unique_ptr<BackupReplay> replay;
    VornFileFind* find = nullptr;
    const wchar_t* name = L"untouched";
};

// A test that runs on real streams where there are any.
class FileStreams : public RecordedStreams {
protected:
    void SetUp() override
    {
        RecordedStreams::SetUp();
        if (SystemHasNamedStreams()) replay.reset();
        RecordProperty("streams", replay == nullptr ? "plain" : "redirected");
        static bool said = false;
        if (!said) std::printf("named streams: %s\n", replay == nullptr ? "plain" : "redirected");
        said = true;
    }
    // Gives the file a stream L":name:$DATA".
    void AddStream(const std::wstring& streamName, size_t bytes)
    {
        HANDLE stream =
            CreateFileW((file + streamName).c_str(), GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS, 0, nullptr);
        ASSERT_NE(stream, INVALID_HANDLE_VALUE) << GetLastError();
        DWORD written = 0;
        const std::string contents(bytes, 's');
        WriteFile(stream, contents.data(), static_cast<DWORD>(bytes), &written, nullptr);
        CloseHandle(stream);
        recorded = recorded + NamedStream(UnitText(streamName.c_str()), bytes);
        if (replay != nullptr) replay->SetData(recorded);
    }
    std::vector<StreamFacts> Search(const std::wstring& pattern)
    {
        std::vector<StreamFacts> found;
        VornStatus status = First(pattern);
        for (; status == VORN_OK; status = Next()) found.push_back({name, VornFileFindGetSize(find)});
        if (find != nullptr) {
            EXPECT_EQ(status, VORN_E_NO_MORE);
            EXPECT_EQ(VornFileFindClose(find), VORN_OK);
        }
        find = nullptr;
        lastStatus = status;
        return found;
    }

    Bytes recorded = Stream(kBackupSecurity, {}, 96) + UnnamedStream(10);
    VornStatus lastStatus = VORN_OK;
};

using Facts = std::vector<StreamFacts>;

}  // namespace

TEST_F(FileStreams, AreListedWithTheirSizesAndWithoutTheUnnamedOne)
{
    AddStream(L":alpha:$DATA", 5);
    AddStream(L":beta:$DATA", 70000);
    EXPECT_EQ(Search(L"*"), (Facts{{L":alpha:$DATA", 5}, {L":beta:$DATA", 70000}}));
    EXPECT_EQ(Search(L"*:$DATA"), (Facts{{L":alpha:$DATA", 5}, {L":beta:$DATA", 70000}}));
}

TEST_F(FileStreams, AnEmptyStreamInTheMiddleDoesNotEndTheList)
{
    AddStream(L":a-empty:$DATA", 0);
    AddStream(L":b-full:$DATA", 3);
    EXPECT_EQ(Search(L"*"), (Facts{{L":a-empty:$DATA", 0}, {L":b-full:$DATA", 3}}));
}

TEST_F(FileStreams, AFileWithoutNamedStreamsHasNothingAvailable)
{
    if (replay != nullptr) replay->SetData(recorded);
    EXPECT_EQ(First(L"*"), VORN_E_NOT_AVAILABLE);
    EXPECT_EQ(find, nullptr);
    EXPECT_STREQ(name, L"untouched");
}

TEST_F(FileStreams, APatternOfMoreThanSixUnitsGetsTheTypeAppended)
{
    AddStream(L":summary:$DATA", 1);
    AddStream(L":notes:$DATA", 2);
    const Facts summary{{L":summary:$DATA", 1}};
    EXPECT_EQ(Search(L"summary"), summary);
    EXPECT_EQ(Search(L"summary:$DATA"), summary);
    EXPECT_EQ(Search(L"summar?"), summary);
    EXPECT_EQ(Search(L"s*m?*ry"), summary);
}

TEST_F(FileStreams, AShortPatternStaysAsItIs)
{
    AddStream(L":notes:$DATA", 2);
    AddStream(L":sixsix:$DATA", 3);
    EXPECT_EQ(Search(L"notes"), Facts());
    EXPECT_EQ(lastStatus, VORN_E_NOT_AVAILABLE);
    EXPECT_EQ(Search(L"sixsix"), Facts());
    EXPECT_EQ(Search(L"notes*"), (Facts{{L":notes:$DATA", 2}}));
    EXPECT_EQ(Search(L"notes:$DATA"), (Facts{{L":notes:$DATA", 2}}));
    EXPECT_EQ(Search(L":$DATA"), Facts());
}

TEST_F(FileStreams, MatchWithCase)
{
    AddStream(L":Summary:$DATA", 1);
    EXPECT_EQ(Search(L"summary"), Facts());
    EXPECT_EQ(Search(L"Summary:$data"), Facts());
    EXPECT_EQ(Search(L"Summary"), (Facts{{L":Summary:$DATA", 1}}));
}

TEST_F(FileStreams, AnEmptyPatternMatchesNothing)
{
    AddStream(L":alpha:$DATA", 5);
    EXPECT_EQ(Search(L""), Facts());
    EXPECT_EQ(lastStatus, VORN_E_NOT_AVAILABLE);
}

TEST_F(FileStreams, HaveTheTimesOfTheirFile)
{
    AddStream(L":alpha:$DATA", 5);
    SYSTEMTIME calendar = {2018, 5, 0, 17, 3, 4, 6, 0};
    FILETIME time;
    ASSERT_TRUE(SystemTimeToFileTime(&calendar, &time));
    HANDLE opened = CreateFileW(file.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_TRUE(SetFileTime(opened, nullptr, nullptr, &time));
    CloseHandle(opened);
    ASSERT_EQ(First(L"*"), VORN_OK);
    VornTime modified = {};
    EXPECT_EQ(VornFileFindGetTime(find, nullptr, &modified), VORN_OK);
    const VornTime expected = {2018, 5, 0, 17, 3, 4, 6, 0};
    EXPECT_EQ(VornTimeCmp(&modified, &expected, 0), 0);
    EXPECT_EQ(VornFileFindGetTime(find, nullptr, nullptr), VORN_OK);
}

TEST_F(FileStreams, TheTimesOfAVanishedFileCannotBeRead)
{
    AddStream(L":alpha:$DATA", 5);
    ASSERT_EQ(First(L"*"), VORN_OK);
    ASSERT_TRUE(DeleteFileW(file.c_str()));
    VornTime modified = {1, 2, 3, 4, 5, 6, 7, 8};
    EXPECT_EQ(VornFileFindGetTime(find, nullptr, &modified), VORN_E_READ);
    EXPECT_EQ(modified.year, 1);
}

TEST_F(FileStreams, AFullNameIsTheFilesDirectoryAndTheStreamsName)
{
    AddStream(L":alpha:$DATA", 5);
    // Without the system's qualification, which may have its own idea of such a name.
    FailingCall fail({"LoadLibraryW", 0, kGenericFailure}, 1, true);
    VornTerminate();
    ASSERT_EQ(VornInitialize(), VORN_OK);
    ASSERT_EQ(First(L"*"), VORN_OK);
    const wchar_t* fullName = nullptr;
    EXPECT_EQ(VornFileFindGetFullName(find, &fullName), VORN_OK);
    EXPECT_EQ(fullName, dir / L":alpha:$DATA");
}

TEST_F(FileStreams, AFileInTheCurrentDirectoryIsPartOfTheFullName)
{
    AddStream(L":alpha:$DATA", 5);
    FailingCall fail({"LoadLibraryW", 0, kGenericFailure}, 1, true);
    VornTerminate();
    ASSERT_EQ(VornInitialize(), VORN_OK);
    CurrentDirScope current(dir.Path());
    find = VornFileFindFirst(L"f.txt\\*", &name);
    ASSERT_NE(find, nullptr);
    const wchar_t* fullName = nullptr;
    EXPECT_EQ(VornFileFindGetFullName(find, &fullName), VORN_OK);
    EXPECT_EQ(fullName, dir / L"f.txt:alpha:$DATA");
}

TEST_F(FileStreams, StreamsMadeSinceTheSearchBeganAreReportedOnce)
{
    AddStream(L":alpha:$DATA", 5);
    ASSERT_EQ(First(L"*"), VORN_OK);
    EXPECT_STREQ(name, L":alpha:$DATA");
    AddStream(L":later:$DATA", 7);
    EXPECT_EQ(Next(), VORN_OK);
    EXPECT_STREQ(name, L":later:$DATA");
    EXPECT_EQ(VornFileFindGetSize(find), 7u);
    EXPECT_EQ(Next(), VORN_E_NO_MORE);
    EXPECT_EQ(name, nullptr);
    EXPECT_EQ(Next(), VORN_E_NO_MORE);
    AddStream(L":last:$DATA", 8);
    EXPECT_EQ(Next(), VORN_OK);
    EXPECT_STREQ(name, L":last:$DATA");
    EXPECT_EQ(Next(), VORN_E_NO_MORE);
}

TEST_F(FileStreams, NewStreamsMustMatchToo)
{
    AddStream(L":alpha-1:$DATA", 5);
    ASSERT_EQ(First(L"alpha-*"), VORN_OK);
    AddStream(L":other:$DATA", 7);
    AddStream(L":alpha-2:$DATA", 9);
    EXPECT_EQ(Next(), VORN_OK);
    EXPECT_STREQ(name, L":alpha-2:$DATA");
    EXPECT_EQ(Next(), VORN_E_NO_MORE);
}

TEST_F(FileStreams, AVanishedFileEndsTheSearch)
{
    AddStream(L":alpha:$DATA", 5);
    ASSERT_EQ(First(L"*"), VORN_OK);
    ASSERT_TRUE(DeleteFileW(file.c_str()));
    EXPECT_EQ(Next(), VORN_E_NO_MORE);
    EXPECT_EQ(Next(), VORN_E_NO_MORE);
}

TEST_F(FileStreams, AFileThatIsInUseElsewhereCannotBeSearched)
{
    AddStream(L":alpha:$DATA", 5);
    HANDLE opened = CreateFileW(file.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(opened, INVALID_HANDLE_VALUE);
    EXPECT_EQ(First(L"*"), VORN_E_SHARING);
    EXPECT_EQ(find, nullptr);
    CloseHandle(opened);
}

TEST_F(RecordedStreams, ADirectoryIsNeverSearchedForStreams)
{
    dir.MakeFile(L"sub");
    replay->SetData(NamedStream(L":a:$DATA", 1));
    find = VornFileFindFirst((dir / L"*").c_str(), &name);
    ASSERT_NE(find, nullptr);
    EXPECT_EQ(replay->Reads(), 0);
}

TEST_F(RecordedStreams, ReadFailsWhenTheFirstHeaderCannotBeRead)
{
    replay->SetData(NamedStream(L":a:$DATA", 1));
    replay->failReadNumber = 1;
    EXPECT_EQ(First(L"*"), VORN_E_READ);
    EXPECT_EQ(find, nullptr);
}

TEST_F(RecordedStreams, ReadFailsWhenTheFirstHeaderIsShort)
{
    for (const size_t bytes : {0u, 1u, 19u}) {
        replay->SetData(Bytes(bytes, 0));
        EXPECT_EQ(First(L"*"), VORN_E_READ) << bytes;
        EXPECT_EQ(find, nullptr);
    }
}

TEST_F(RecordedStreams, TheSystemsContextIsReleasedOnceAfterEachWalk)
{
    replay->SetData(NamedStream(L":a:$DATA", 1) + NamedStream(L":b:$DATA", 1));
    MakeOpenable(L":b:$DATA");
    ASSERT_EQ(First(L"*"), VORN_OK);
    EXPECT_EQ(replay->Aborts(), 1);
    EXPECT_EQ(Next(), VORN_OK);
    EXPECT_EQ(replay->Aborts(), 1);
    EXPECT_EQ(Next(), VORN_E_NO_MORE);
    EXPECT_EQ(replay->Aborts(), 2) << "the file was looked at again";
}

TEST_F(RecordedStreams, AnUnreadableNameEndsTheListAndKeepsWhatWasFound)
{
    replay->SetData(NamedStream(L":a:$DATA", 1) + NamedStream(L":b:$DATA", 1));
    replay->failReadNumber = 4;
    EXPECT_EQ(First(L"*"), VORN_OK);
    EXPECT_STREQ(name, L":a:$DATA");
    EXPECT_EQ(replay->Reads(), 4);
}

TEST_F(RecordedStreams, AnUnreadableNameAloneLeavesNothingAvailable)
{
    replay->SetData(NamedStream(L":a:$DATA", 1));
    replay->failReadNumber = 2;
    EXPECT_EQ(First(L"*"), VORN_E_NOT_AVAILABLE);
}

TEST_F(RecordedStreams, ASeekThatFailsOrSkipsADifferentAmountEndsTheList)
{
    const Bytes data = NamedStream(L":a:$DATA", 9) + NamedStream(L":b:$DATA", 9);
    replay->SetData(data);
    replay->failSeekNumber = 1;
    ASSERT_EQ(First(L"*"), VORN_OK);
    EXPECT_EQ(replay->Reads(), 2);
    ASSERT_EQ(VornFileFindClose(find), VORN_OK);
    replay = std::make_unique<BackupReplay>(data);
    replay->shortSeekNumber = 1;
    ASSERT_EQ(First(L"*"), VORN_OK);
    EXPECT_STREQ(name, L":a:$DATA");
    EXPECT_EQ(replay->Reads(), 2);
}

TEST_F(RecordedStreams, ASizeBeyondFourGigabytesIsReportedWhole)
{
    replay->SetData(Header(kBackupAlternateData, 0x123456789Au, 16) + NameBytes(L":a:$DATA"));
    ASSERT_EQ(First(L"*"), VORN_OK);
    EXPECT_EQ(VornFileFindGetSize(find), 0x123456789Au);
    EXPECT_EQ(replay->Seeks(), 1);
}

TEST_F(RecordedStreams, TheFirstStreamIsReportedWithoutAnOpenTest)
{
    replay->SetData(NamedStream(L":cannot-open:$DATA", 1));
    EXPECT_EQ(First(L"*"), VORN_OK);
    EXPECT_STREQ(name, L":cannot-open:$DATA");
}

TEST_F(RecordedStreams, StreamsThatCannotBeOpenedAreLeftOut)
{
    replay->SetData(NamedStream(L":a:$DATA", 1) + NamedStream(L":b:$DATA", 2) + NamedStream(L":c:$DATA", 3) +
                    NamedStream(L":d:$DATA", 4) + NamedStream(L":e:$DATA", 5));
    MakeOpenable(L":c:$DATA");
    MakeOpenable(L":e:$DATA");
    ASSERT_EQ(First(L"*"), VORN_OK);
    EXPECT_EQ(Next(), VORN_OK);
    EXPECT_STREQ(name, L":c:$DATA");
    EXPECT_EQ(VornFileFindGetSize(find), 3u);
    EXPECT_EQ(Next(), VORN_OK);
    EXPECT_STREQ(name, L":e:$DATA");
    EXPECT_EQ(VornFileFindGetSize(find), 5u);
    EXPECT_EQ(Next(), VORN_E_NO_MORE);
}

TEST_F(RecordedStreams, ARefusedStreamIsNotTriedAgainWithinTheCallButInTheNext)
{
    replay->SetData(NamedStream(L":a:$DATA", 1) + NamedStream(L":b:$DATA", 2));
    ASSERT_EQ(First(L"*"), VORN_OK);
    FailingCall opens({"CreateFileW", kInvalidHandle, ERROR_SHARING_VIOLATION}, 0);
    EXPECT_EQ(Next(), VORN_E_NO_MORE);
    EXPECT_EQ(opens.Calls(), 2) << "the open test and one look at the file";
    MakeOpenable(L":b:$DATA");
    EXPECT_EQ(Next(), VORN_OK);
    EXPECT_STREQ(name, L":b:$DATA");
    EXPECT_EQ(Next(), VORN_E_NO_MORE);
}

TEST_F(RecordedStreams, ANewStreamBehindARefusedOneIsStillReported)
{
    replay->SetData(NamedStream(L":a:$DATA", 1) + NamedStream(L":b:$DATA", 2));
    ASSERT_EQ(First(L"*"), VORN_OK);
    replay->SetData(NamedStream(L":a:$DATA", 1) + NamedStream(L":b:$DATA", 2) + NamedStream(L":n:$DATA", 9));
    MakeOpenable(L":n:$DATA");
    EXPECT_EQ(Next(), VORN_OK);
    EXPECT_STREQ(name, L":n:$DATA");
    EXPECT_EQ(VornFileFindGetSize(find), 9u);
}

TEST_F(RecordedStreams, ANameThatComesTwiceInOneLookIsAppendedOnce)
{
    replay->SetData(NamedStream(L":a:$DATA", 1));
    ASSERT_EQ(First(L"*"), VORN_OK);
    replay->SetData(NamedStream(L":n:$DATA", 7) + NamedStream(L":n:$DATA", 8));
    MakeOpenable(L":n:$DATA");
    EXPECT_EQ(Next(), VORN_OK);
    EXPECT_EQ(VornFileFindGetSize(find), 7u);
    EXPECT_EQ(Next(), VORN_E_NO_MORE);
}

TEST_F(RecordedStreams, ALookThatFailsEndsTheCallWithNoMore)
{
    replay->SetData(NamedStream(L":a:$DATA", 1));
    ASSERT_EQ(First(L"*"), VORN_OK);
    replay->failReadNumber = replay->Reads() + 1;
    EXPECT_EQ(Next(), VORN_E_NO_MORE);
    {
        FailingCall fail({"CreateFileW", kInvalidHandle, ERROR_ACCESS_DENIED});
        EXPECT_EQ(Next(), VORN_E_NO_MORE);
    }
    MakeOpenable(L":n:$DATA");
    replay->SetData(NamedStream(L":n:$DATA", 1));
    EXPECT_EQ(Next(), VORN_OK);
}

TEST_F(RecordedStreams, FindNextRefusesANullName)
{
    replay->SetData(NamedStream(L":a:$DATA", 1));
    ASSERT_EQ(First(L"*"), VORN_OK);
    EXPECT_EQ(VornFileFindNext(find, nullptr), VORN_E_INVALID_ARG);
}

TEST_F(RecordedStreams, EachAllocationThatFailsIsReportedAndLeaksNothing)
{
    replay->SetData(NamedStream(L":a:$DATA", 1) + NamedStream(L":b:$DATA", 2));
    MakeOpenable(L":b:$DATA");
    CurrentDirScope current(dir.Path());
    const auto open = [&] { find = VornFileFindFirst(L"f.txt\\*", &name); };
    open();
    ASSERT_NE(find, nullptr);
    ASSERT_EQ(VornFileFindClose(find), VORN_OK);
    find = nullptr;
    LeakWatch watch;
    const long failures = FailEachCallInTurn(kAllocations, [&] {
        open();
        if (find == nullptr) {
            EXPECT_EQ(VornGetLastError(), VORN_E_NO_MEMORY);
            return;
        }
        VornStatus status = Next();
        if (status == VORN_E_NO_MEMORY) {
            EXPECT_EQ(name, nullptr);
            status = Next();  // nothing was lost
        }
        EXPECT_EQ(status, VORN_OK);
        EXPECT_STREQ(name, L":b:$DATA");
        EXPECT_EQ(Next(), VORN_E_NO_MORE);
        EXPECT_EQ(VornFileFindClose(find), VORN_OK);
        find = nullptr;
    });
    EXPECT_GE(failures, 14) << "texts, two names and nodes, the record, two open tests, a second look";
    EXPECT_EQ(watch.Leaks(), "");
    EXPECT_EQ(replay->LiveContexts(), 0);
}

TEST_F(RecordedStreams, EachSystemCallThatFailsLeaksNothing)
{
    replay->SetData(NamedStream(L":a:$DATA", 1) + NamedStream(L":b:$DATA", 2));
    MakeOpenable(L":b:$DATA");
    CurrentDirScope current(dir.Path());
    long failures = 0;
    const auto run = [&] {
        find = VornFileFindFirst(L"f.txt\\*", &name);
        if (find == nullptr) return;
        while (Next() == VORN_OK) {
        }
        EXPECT_EQ(VornFileFindClose(find), VORN_OK);
        find = nullptr;
    };
    run();
    LeakWatch watch;
    failures += FailEachCallInTurn({"CreateFileW", kInvalidHandle, ERROR_ACCESS_DENIED}, run);
    failures += FailEachCallInTurn({"GetCurrentDirectoryW", 0, ERROR_ACCESS_DENIED}, run);
    failures += FailEachCallInTurn({"GetFileAttributesW", 0xFFFFFFFF, ERROR_ACCESS_DENIED}, run);
    EXPECT_GE(failures, 6);
    EXPECT_EQ(watch.Leaks(), "");
}

namespace {

// In a process of its own: the module keeps an entry point once it has found it. `missing` is looked up in
// vain, with the system error `error`.
const char* missingEntry;
DWORD missingError;
FARPROC(WINAPI* realLookUp)(HMODULE, const char*);

FARPROC WINAPI LookUpWithoutOne(HMODULE module, const char* name)
{
    if (std::string(name) != missingEntry) return realLookUp(module, name);
    SetLastError(missingError);
    return nullptr;
}

VornStatus SearchWithout(const char* entry, DWORD error)
{
    ScratchDir dir;
    const std::wstring pattern = dir.MakeFile(L"f.txt") + L"\\*";
    missingEntry = entry;
    missingError = error;
    ImportRedirect redirect("GetProcAddress", reinterpret_cast<void*>(&LookUpWithoutOne));
    realLookUp = redirect.Original<FARPROC(WINAPI*)(HMODULE, const char*)>();
    const wchar_t* name = nullptr;
    VornFileFind* find = VornFileFindFirst(pattern.c_str(), &name);
    return find == nullptr ? VornGetLastError() : VORN_OK;
}

}  // namespace

VORN_CHILD(SearchStreamsWithoutEntryPoints)
{
    if (VornInitialize() != VORN_OK) return 1;
    {
        FailingCall fail({"GetModuleHandleW", 0, ERROR_ACCESS_DENIED});
        if (SearchWithout("none", 0) != VORN_E_NOT_PERMITTED || fail.Failures() != 1) return 7;
    }
    if (SearchWithout("BackupRead", ERROR_PROC_NOT_FOUND) != VORN_E_UNKNOWN) return 2;
    if (SearchWithout("BackupRead", ERROR_ACCESS_DENIED) != VORN_E_NOT_PERMITTED) return 3;
    if (SearchWithout("BackupSeek", ERROR_PROC_NOT_FOUND) != VORN_E_UNKNOWN) return 4;
    if (SearchWithout("BackupSeek", ERROR_FILE_NOT_FOUND) != VORN_E_NOT_FOUND) return 5;
    // A directory search needs neither.
    ScratchDir dir;
    dir.MakeFile(L"x");
    const wchar_t* name = nullptr;
    VornFileFind* find = VornFileFindFirst((dir / L"*").c_str(), &name);
    if (find == nullptr || VornFileFindClose(find) != VORN_OK) return 6;
    VornTerminate();
    return 100;
}

TEST(FileStreamsWithoutEntryPoints, FailWithTheLookUpsOwnError)
{
    ChildProcess child("SearchStreamsWithoutEntryPoints");
    EXPECT_EQ(child.Wait(), 100u);
}

VORN_CHILD(SearchStreamsWithTheSystemsOwnEntryPoints)
{
    if (VornInitialize() != VORN_OK) return 1;
    ScratchDir dir;
    const std::wstring pattern = dir.MakeFile(L"f.txt", 1) + L"\\*";
    const wchar_t* name = nullptr;
    VornFileFind* find = VornFileFindFirst(pattern.c_str(), &name);
    if (find != nullptr) return 2;
    // Without backup data the first header cannot be read; with it there is no named stream.
    const VornStatus expected = SystemHasNamedStreams() ? VORN_E_NOT_AVAILABLE : VORN_E_READ;
    return VornGetLastError() == expected ? 100 : 3;
}

TEST(FileStreamsPlain, AreSearchedThroughTheSystemsOwnEntryPoints)
{
    ChildProcess child("SearchStreamsWithTheSystemsOwnEntryPoints");
    EXPECT_EQ(child.Wait(), 100u);
}
