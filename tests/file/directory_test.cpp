#include <vorn/vorn.h>

#include "file/scratch_dir.h"
#include "support/failing_call.h"
#include "support/guard_buffer.h"

#include <gtest/gtest.h>

using namespace vorn_test;

namespace {

class FileDirectory : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(VornInitialize(), VORN_OK);
        VornSetLastError(VORN_E_BUSY);
    }
    void TearDown() override
    {
        EXPECT_EQ(VornGetLastError(), VORN_E_BUSY) << "these functions leave the last error alone";
        VornTerminate();
    }

    ScratchDir dir;
};

using FileCreateDir = FileDirectory;
using FileGetCurrentDir = FileDirectory;
using FileSetCurrentDir = FileDirectory;

}  // namespace

TEST_F(FileCreateDir, CreatesADirectory)
{
    EXPECT_EQ(VornFileCreateDir((dir / L"new").c_str(), nullptr), VORN_OK);
    EXPECT_TRUE(VornFileExistsDir((dir / L"new").c_str()));
}

TEST_F(FileCreateDir, TakesASecurityDescriptorWithAndWithoutAttributes)
{
    VornSecurityDescriptor security = {nullptr};
    EXPECT_EQ(VornFileCreateDir((dir / L"one").c_str(), &security), VORN_OK);
    SECURITY_ATTRIBUTES attributes = {sizeof(attributes), nullptr, FALSE};
    security.attributes = &attributes;
    EXPECT_EQ(VornFileCreateDir((dir / L"two").c_str(), &security), VORN_OK);
    static void* passed;
    BOOL(WINAPI * create)
    (const wchar_t*, SECURITY_ATTRIBUTES*) = [](const wchar_t*, SECURITY_ATTRIBUTES* given) {
        passed = given;
        return TRUE;
    };
    ImportRedirect redirect("CreateDirectoryW", reinterpret_cast<void*>(create));
    EXPECT_EQ(VornFileCreateDir(L"x", &security), VORN_OK);
    EXPECT_EQ(passed, &attributes);
    EXPECT_EQ(VornFileCreateDir(L"x", nullptr), VORN_OK);
    EXPECT_EQ(passed, nullptr);
}

TEST_F(FileCreateDir, RefusesANullPath)
{
    EXPECT_EQ(VornFileCreateDir(nullptr, nullptr), VORN_E_INVALID_ARG);
}

TEST_F(FileCreateDir, AnExistingNameExists)
{
    dir.MakeDir(L"there");
    dir.MakeFile(L"file");
    EXPECT_EQ(VornFileCreateDir((dir / L"there").c_str(), nullptr), VORN_E_EXISTS);
    EXPECT_EQ(VornFileCreateDir((dir / L"file").c_str(), nullptr), VORN_E_EXISTS);
}

TEST_F(FileCreateDir, AMissingParentIsPathNotFound)
{
    EXPECT_EQ(VornFileCreateDir((dir / L"a\\b").c_str(), nullptr), VORN_E_PATH_NOT_FOUND);
}

TEST_F(FileCreateDir, AnyOtherErrorIsASystemError)
{
    for (const DWORD error :
         {ERROR_ACCESS_DENIED, ERROR_INVALID_NAME, ERROR_FILE_EXISTS, ERROR_FILE_NOT_FOUND}) {
        FailingCall fail({"CreateDirectoryW", 0, error});
        ASSERT_TRUE(fail.Found());
        EXPECT_EQ(VornFileCreateDir((dir / L"x").c_str(), nullptr), VORN_E_SYSTEM) << error;
    }
}

TEST_F(FileGetCurrentDir, GivesTheSizeThatTheTextNeeds)
{
    CurrentDirScope current(dir.Path());
    const auto needed = static_cast<uint32_t>(dir.Path().size() + 1);
    EXPECT_EQ(VornFileGetCurrentDir(nullptr, 0), needed);
    EXPECT_EQ(VornFileGetCurrentDir(nullptr, 1000), needed);
    wchar_t small[4] = {L'u', L'v', L'w', L'x'};
    EXPECT_EQ(VornFileGetCurrentDir(small, 0), needed);
    EXPECT_EQ(VornFileGetCurrentDir(small, 4), needed);
    EXPECT_EQ(std::wstring(small, 4), L"uvwx");
}

TEST_F(FileGetCurrentDir, FillsABufferOfExactlyTheSizeNeededAndNothingBehindIt)
{
    CurrentDirScope current(dir.Path());
    const auto needed = static_cast<uint32_t>(dir.Path().size() + 1);
    GuardBuffer exact(needed * sizeof(wchar_t));
    EXPECT_EQ(VornFileGetCurrentDir(exact.As<wchar_t>(), needed), needed);
    EXPECT_EQ(exact.As<wchar_t>(), dir.Path());
    GuardBuffer tooSmall((needed - 1) * sizeof(wchar_t));
    tooSmall.As<wchar_t>()[0] = L'u';
    EXPECT_EQ(VornFileGetCurrentDir(tooSmall.As<wchar_t>(), needed - 1), needed);
    EXPECT_EQ(tooSmall.As<wchar_t>()[0], L'u');
    wchar_t large[1000];
    EXPECT_EQ(VornFileGetCurrentDir(large, 1000), needed);
    EXPECT_EQ(large, dir.Path());
}

TEST_F(FileGetCurrentDir, IsZeroWhenTheSystemCannotTell)
{
    wchar_t buffer[1000] = L"untouched";
    for (const long nth : {1L, 2L}) {
        FailingCall fail({"GetCurrentDirectoryW", 0, ERROR_ACCESS_DENIED}, nth);
        ASSERT_TRUE(fail.Found());
        EXPECT_EQ(VornFileGetCurrentDir(buffer, 1000), 0u);
    }
    EXPECT_STREQ(buffer, L"untouched");
}

TEST_F(FileGetCurrentDir, ADirectoryThatGrowsMeanwhileGivesTheSizeItNeedsNow)
{
    CurrentDirScope current(dir.Path());
    wchar_t buffer[1000];
    FailingCall fail({"GetCurrentDirectoryW", 1500, 0}, 2);
    EXPECT_EQ(VornFileGetCurrentDir(buffer, 1000), 1500u);
}

TEST_F(FileSetCurrentDir, MakesADirectoryCurrent)
{
    const CurrentDirScope restore(dir.Path());
    dir.MakeDir(L"sub");
    EXPECT_EQ(VornFileSetCurrentDir((dir / L"sub").c_str()), VORN_OK);
    EXPECT_EQ(std::filesystem::current_path().native(), dir / L"sub");
}

TEST_F(FileSetCurrentDir, RefusesNullAndReportsAnyFailureAsASystemError)
{
    const CurrentDirScope restore(dir.Path());
    EXPECT_EQ(VornFileSetCurrentDir(nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornFileSetCurrentDir((dir / L"missing").c_str()), VORN_E_SYSTEM);
    EXPECT_EQ(VornFileSetCurrentDir(dir.MakeFile(L"file").c_str()), VORN_E_SYSTEM);
    EXPECT_EQ(std::filesystem::current_path().native(), dir.Path());
}
