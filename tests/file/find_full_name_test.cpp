#include <vorn/vorn.h>

#include "file/scratch_dir.h"
#include "support/failing_call.h"
#include "support/leak_watch.h"

#include <gtest/gtest.h>
#include <thread>
#include <vector>

using namespace vorn_test;

namespace {

constexpr FaultPoint kLoadLibrary = {"LoadLibraryW", 0, kGenericFailure};
constexpr FaultPoint kFreeLibrary = {"FreeLibrary", 0, kGenericFailure};

class FileFindGetFullName : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(VornInitialize(), VORN_OK);
        dir.MakeFile(L"entry.txt");
        find = VornFileFindFirst((dir / L"*").c_str(), &name);
        ASSERT_NE(find, nullptr);
    }
    void TearDown() override
    {
        if (find != nullptr) {
            EXPECT_EQ(VornFileFindClose(find), VORN_OK);
        }
        VornTerminate();
    }

    std::wstring FullName()
    {
        const wchar_t* fullName = nullptr;
        EXPECT_EQ(VornFileFindGetFullName(find, &fullName), VORN_OK);
        return fullName != nullptr ? fullName : L"";
    }

    ScratchDir dir;
    VornFileFind* find = nullptr;
    const wchar_t* name = nullptr;
};

// What the qualification is replaced by. It answers `answer`, or fails when that is null.
struct Qualification {
    static inline const wchar_t* answer;
    static inline std::wstring asked;
    static inline unsigned units;

    static BOOL WINAPI Qualify(const wchar_t* path, wchar_t* buffer, UINT size)
    {
        asked = path;
        units = size;
        if (answer == nullptr) return FALSE;
        wcsncpy(buffer, answer, size);
        return TRUE;
    }
};

}  // namespace

TEST_F(FileFindGetFullName, RefusesAnUnknownSearchAndANullOutput)
{
    const wchar_t* fullName = L"untouched";
    EXPECT_EQ(VornFileFindGetFullName(nullptr, &fullName), VORN_E_INVALID_ARG);
    int foreign = 0;
    EXPECT_EQ(VornFileFindGetFullName(reinterpret_cast<VornFileFind*>(&foreign), &fullName),
              VORN_E_INVALID_ARG);
    EXPECT_STREQ(fullName, L"untouched");
    EXPECT_EQ(VornFileFindGetFullName(find, nullptr), VORN_E_INVALID_ARG);
}

TEST_F(FileFindGetFullName, IsThePatternsDirectoryAndTheName)
{
    EXPECT_EQ(FullName(), dir / L"entry.txt");
}

TEST_F(FileFindGetFullName, UsesTheDirectoryThatWasCurrentWhenTheSearchBegan)
{
    dir.MakeDir(L"elsewhere");
    ASSERT_EQ(VornFileFindClose(find), VORN_OK);
    {
        CurrentDirScope current(dir.Path());
        find = VornFileFindFirst(L"*.txt", &name);
        ASSERT_NE(find, nullptr);
    }
    CurrentDirScope current(dir / L"elsewhere");
    EXPECT_EQ(FullName(), dir / L"entry.txt");
}

TEST_F(FileFindGetFullName, ACurrentDirectoryThatEndsInABackslashGetsNoSecondOne)
{
    ASSERT_EQ(VornFileFindClose(find), VORN_OK);
    CurrentDirScope current(L"C:\\");
    find = VornFileFindFirst(L"windows", &name);
    ASSERT_NE(find, nullptr);
    EXPECT_EQ(FullName(), std::wstring(L"C:\\") + name);
}

TEST_F(FileFindGetFullName, AForwardSlashSeparatesNothing)
{
    dir.MakeDir(L"sub");
    dir.MakeFile(L"sub\\x.txt");
    ASSERT_EQ(VornFileFindClose(find), VORN_OK);
    CurrentDirScope current(dir.Path());
    find = VornFileFindFirst(L"sub/*", &name);
    ASSERT_NE(find, nullptr);
    EXPECT_STREQ(name, L"x.txt");
    EXPECT_EQ(FullName(), dir / L"x.txt");
}

TEST_F(FileFindGetFullName, IsWhatTheSystemQualifiesThePathTo)
{
    ASSERT_EQ(FullName(), dir / L"entry.txt");  // the module is there now
    PatchedFunction patch(L"shlwapi.dll", "PathSearchAndQualifyW", &Qualification::Qualify);
    ASSERT_TRUE(patch.Found());
    Qualification::answer = L"Q:\\qualified";
    EXPECT_EQ(FullName(), L"Q:\\qualified");
    EXPECT_EQ(Qualification::asked, dir / L"entry.txt");
    EXPECT_EQ(Qualification::units, 520u);
    Qualification::answer = nullptr;
    EXPECT_EQ(FullName(), dir / L"entry.txt");
}

TEST_F(FileFindGetFullName, AnEmptyQualifiedPathCountsAsNone)
{
    ASSERT_EQ(FullName(), dir / L"entry.txt");
    PatchedFunction patch(L"shlwapi.dll", "PathSearchAndQualifyW", &Qualification::Qualify);
    Qualification::answer = L"";
    EXPECT_EQ(FullName(), dir / L"entry.txt");
}

TEST_F(FileFindGetFullName, AQualifiedPathOfTheBuffersWholeSizeIsTerminated)
{
    ASSERT_EQ(FullName(), dir / L"entry.txt");
    PatchedFunction patch(L"shlwapi.dll", "PathSearchAndQualifyW", &Qualification::Qualify);
    const std::wstring full(600, L'q');
    Qualification::answer = full.c_str();
    EXPECT_EQ(FullName(), std::wstring(519, L'q'));
}

TEST_F(FileFindGetFullName, TheBufferGrowsOnDemandAndIsKeptForShorterNames)
{
    ASSERT_EQ(FullName(), dir / L"entry.txt");
    PatchedFunction patch(L"shlwapi.dll", "PathSearchAndQualifyW", &Qualification::Qualify);
    const std::wstring longer(400, L'q');
    Qualification::answer = longer.c_str();
    const wchar_t* grown = nullptr;
    ASSERT_EQ(VornFileFindGetFullName(find, &grown), VORN_OK);
    EXPECT_EQ(grown, longer);
    for (const wchar_t* shorter : {L"Q:\\a", L"Q:", longer.c_str()}) {
        Qualification::answer = shorter;
        const wchar_t* kept = nullptr;
        ASSERT_EQ(VornFileFindGetFullName(find, &kept), VORN_OK);
        EXPECT_EQ(kept, grown) << "the same memory";
        EXPECT_STREQ(kept, shorter);
    }
}

TEST_F(FileFindGetFullName, EachAllocationThatFailsIsReportedAndTheNextRequestSucceeds)
{
    ASSERT_EQ(FullName(), dir / L"entry.txt");
    ASSERT_EQ(VornFileFindClose(find), VORN_OK);
    LeakWatch watch;
    const long failures = FailEachCallInTurn(kAllocations, [&] {
        find = VornFileFindFirst((dir / L"*").c_str(), &name);
        if (find == nullptr) return;
        const wchar_t* fullName = L"untouched";
        const VornStatus status = VornFileFindGetFullName(find, &fullName);
        if (status != VORN_OK) {
            EXPECT_EQ(status, VORN_E_NO_MEMORY);
            EXPECT_STREQ(fullName, L"untouched");
            EXPECT_EQ(FullName(), dir / L"entry.txt");
        }
        EXPECT_EQ(VornFileFindClose(find), VORN_OK);
    });
    find = nullptr;
    EXPECT_GE(failures, 3) << "prefix, record, full name";
    EXPECT_EQ(watch.Leaks(), "");
}

TEST_F(FileFindGetFullName, WithoutTheModuleThePathStaysUnqualified)
{
    VornTerminate();
    ASSERT_EQ(VornInitialize(), VORN_OK);
    {
        FailingCall fail(kLoadLibrary, 1, true);
        ASSERT_TRUE(fail.Found());
        EXPECT_EQ(FullName(), dir / L"entry.txt");
        EXPECT_EQ(fail.Failures(), 1);
    }
    FailingCall count(kLoadLibrary, 0);
    EXPECT_EQ(FullName(), dir / L"entry.txt");
    EXPECT_EQ(count.Calls(), 1) << "a module that could not be loaded is tried again";
}

TEST_F(FileFindGetFullName, WithoutTheEntryPointThePathStaysUnqualified)
{
    VornTerminate();
    ASSERT_EQ(VornInitialize(), VORN_OK);
    FailingCall fail({"GetProcAddress", 0, ERROR_PROC_NOT_FOUND}, 1, true);
    ASSERT_TRUE(fail.Found());
    EXPECT_EQ(FullName(), dir / L"entry.txt");
    EXPECT_GE(fail.Failures(), 1);
}

TEST_F(FileFindGetFullName, TheModuleIsLoadedOnceForAllSearches)
{
    VornTerminate();
    ASSERT_EQ(VornInitialize(), VORN_OK);
    FailingCall loads(kLoadLibrary, 0);
    FailingCall lookUps({"GetProcAddress", 0, 0}, 0);
    FullName();
    FullName();
    VornFileFind* other = VornFileFindFirst((dir / L"*").c_str(), &name);
    const wchar_t* fullName = nullptr;
    EXPECT_EQ(VornFileFindGetFullName(other, &fullName), VORN_OK);
    EXPECT_EQ(VornFileFindClose(other), VORN_OK);
    EXPECT_EQ(loads.Calls(), 1);
    EXPECT_EQ(lookUps.Calls(), 1);
}

TEST_F(FileFindGetFullName, TheFinalTerminateFreesTheModuleAndTheNextRequestLoadsItAgain)
{
    FullName();
    FailingCall loads(kLoadLibrary, 0);
    FailingCall frees(kFreeLibrary, 0);
    VornTerminate();
    EXPECT_EQ(frees.Calls(), 1);
    ASSERT_EQ(VornInitialize(), VORN_OK);
    // The same search, opened before.
    EXPECT_EQ(FullName(), dir / L"entry.txt");
    EXPECT_EQ(loads.Calls(), 1);
    EXPECT_EQ(frees.Calls(), 1);
    ASSERT_EQ(VornInitialize(), VORN_OK);
    VornTerminate();
    EXPECT_EQ(frees.Calls(), 1) << "a nested use keeps it";
}

TEST_F(FileFindGetFullName, ThreadsThatNeedTheModuleAtOnceLeaveOneReference)
{
    constexpr int kThreads = 4;
    std::vector<VornFileFind*> searches;
    for (int i = 0; i < kThreads; ++i) searches.push_back(VornFileFindFirst((dir / L"*").c_str(), &name));
    for (int round = 0; round < 25; ++round) {
        VornTerminate();
        ASSERT_EQ(VornInitialize(), VORN_OK);
        FailingCall loads(kLoadLibrary, 0);
        FailingCall frees(kFreeLibrary, 0);
        Event start;
        std::vector<std::thread> threads;
        for (VornFileFind* search : searches) {
            threads.emplace_back([&, search] {
                const wchar_t* fullName = nullptr;
                EXPECT_TRUE(start.Wait());
                EXPECT_EQ(VornFileFindGetFullName(search, &fullName), VORN_OK);
                EXPECT_EQ(fullName, dir / L"entry.txt");
            });
        }
        start.Set();
        for (std::thread& thread : threads) thread.join();
        ASSERT_EQ(loads.Calls() - frees.Calls(), 1) << "round " << round;
    }
    for (VornFileFind* search : searches) EXPECT_EQ(VornFileFindClose(search), VORN_OK);
}
