#include "file/temp_folder.h"
#include "support/failing_call.h"

#include <gtest/gtest.h>

using namespace vorn_test;

namespace {

class FileSeek : public FileFixture {};
class FileGetSize : public FileFixture {};
class FileSetSize : public FileFixture {};

constexpr uint64_t kGiB = 1u << 30;
constexpr FaultPoint kSetFilePointer = {"SetFilePointer", 0xFFFFFFFF, kGenericFailure};
constexpr FaultPoint kSetEndOfFile = {"SetEndOfFile", 0, kGenericFailure};

// The handle that the next call of SetFilePointer closes on its way.
VornFile* closedOnTheWay;
decltype(&SetFilePointer) originalSetFilePointer;
int movesUntilClose;

DWORD WINAPI CloseAfterMoving(HANDLE native, LONG low, PLONG high, DWORD method)
{
    const DWORD result = originalSetFilePointer(native, low, high, method);
    if (--movesUntilClose == 0) {
        VornFileClose(closedOnTheWay);
        SetLastError(ERROR_SUCCESS);
    }
    return result;
}

decltype(&GetProcAddress) originalGetProcAddress;
int lookUps;

FARPROC WINAPI CountLookUps(HMODULE module, LPCSTR name)
{
    if (std::string(name) == "GetFileSizeEx") ++lookUps;
    return originalGetProcAddress(module, name);
}

FARPROC WINAPI HideGetFileSizeEx(HMODULE module, LPCSTR name)
{
    if (std::string(name) == "GetFileSizeEx") return nullptr;
    return originalGetProcAddress(module, name);
}

BOOL WINAPI RefuseSize(HANDLE, LARGE_INTEGER*)
{
    SetLastError(ERROR_ACCESS_DENIED);
    return FALSE;
}

FARPROC WINAPI FindRefusingSize(HMODULE module, LPCSTR name)
{
    if (std::string(name) == "GetFileSizeEx") {
        return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&RefuseSize));
    }
    return originalGetProcAddress(module, name);
}

}  // namespace

TEST_F(FileSeek, CountsFromTheBeginningTheCurrentPositionAndTheEnd)
{
    VornFile* file = OpenWith(L"file", "0123456789");
    EXPECT_EQ(VornFileSeek(file, 4, VORN_FILE_SEEK_BEGIN), 4u);
    EXPECT_EQ(VornFileSeek(file, 3, VORN_FILE_SEEK_CURRENT), 7u);
    EXPECT_EQ(VornFileSeek(file, -2, VORN_FILE_SEEK_CURRENT), 5u);
    EXPECT_EQ(VornFileSeek(file, -1, VORN_FILE_SEEK_END), 9u);
    EXPECT_EQ(VornFileSeek(file, 5, VORN_FILE_SEEK_END), 15u);
    EXPECT_EQ(VornFileGetPos(file), 15u);
    EXPECT_EQ(VornFileGetSize(file), 10u);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileSeek, RefusesAMethodOutOfRangeAndKeepsThePosition)
{
    VornFile* file = OpenWith(L"file", "0123456789");
    EXPECT_EQ(VornFileSeek(file, 4, VORN_FILE_SEEK_BEGIN), 4u);
    EXPECT_EQ(VornFileSeek(file, 1, 3), VORN_FILE_FAILED);
    EXPECT_EQ(VornFileSeek(file, 1, 0xFFFFFFFF), VORN_FILE_FAILED);
    EXPECT_EQ(VornFileGetPos(file), 4u);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileSeek, RefusesANegativePositionAndKeepsTheOldOne)
{
    VornFile* file = OpenWith(L"file", "0123456789");
    VornSetLastError(kUntouched);
    EXPECT_EQ(VornFileSeek(file, 4, VORN_FILE_SEEK_BEGIN), 4u);
    EXPECT_EQ(VornFileSeek(file, -5, VORN_FILE_SEEK_CURRENT), VORN_FILE_FAILED);
    EXPECT_EQ(VornFileGetPos(file), 4u);
    EXPECT_EQ(VornGetLastError(), kUntouched);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileSeek, ReachesPositionsBeyondFourGiB)
{
    VornFile* file = OpenWith(L"file", "text");
    EXPECT_EQ(VornFileSeek(file, 5 * kGiB + 3, VORN_FILE_SEEK_BEGIN), 5 * kGiB + 3);
    EXPECT_EQ(VornFileGetPos(file), 5 * kGiB + 3);
    EXPECT_EQ(VornFileSeek(file, -static_cast<int64_t>(kGiB), VORN_FILE_SEEK_CURRENT), 4 * kGiB + 3);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileSeek, APositionWhoseLowHalfLooksLikeAFailureIsNone)
{
    VornFile* file = OpenWith(L"file", "text");
    EXPECT_EQ(VornFileSeek(file, 0xFFFFFFFF, VORN_FILE_SEEK_BEGIN), 0xFFFFFFFFu);
    EXPECT_EQ(VornFileGetPos(file), 0xFFFFFFFFu);
    EXPECT_EQ(VornFileSeek(file, 0x1FFFFFFFF, VORN_FILE_SEEK_BEGIN), 0x1FFFFFFFFu);
    EXPECT_EQ(VornFileGetPos(file), 0x1FFFFFFFFu);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileSeek, ReportsAFailureOfTheSystemAndLeavesTheLastErrorAlone)
{
    VornFile* file = OpenWith(L"file", "text");
    VornSetLastError(kUntouched);
    EXPECT_EQ(FailEachCallInTurn(kSetFilePointer,
                                 [&] {
                                     const uint64_t position = VornFileGetPos(file);
                                     EXPECT_TRUE(position == VORN_FILE_FAILED || position == 0) << position;
                                 }),
              1);
    EXPECT_EQ(VornGetLastError(), kUntouched);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileGetSize, GivesTheSizeAndLeavesTheLastErrorAlone)
{
    VornFile* file = OpenWith(L"file", "0123456789");
    VornSetLastError(kUntouched);
    EXPECT_EQ(VornFileGetSize(file), 10u);
    EXPECT_EQ(VornGetLastError(), kUntouched);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileGetSize, SeesWhatAnotherHandleWrites)
{
    VornFile* file = OpenWith(L"file", "0123456789");
    VornFile* other = Open(L"file", VORN_FILE_APPEND_EXISTING);
    uint32_t written = 0;
    EXPECT_EQ(VornFileWrite(other, "AB", 2, &written), VORN_OK);
    EXPECT_EQ(VornFileGetSize(file), 12u);
    EXPECT_EQ(VornFileClose(other), VORN_OK);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

VORN_CHILD(LooksGetFileSizeExUpOnce)
{
    VornInitialize();
    TempFolder folder;
    ImportRedirect redirect("GetProcAddress", &CountLookUps);
    originalGetProcAddress = redirect.Original<decltype(&GetProcAddress)>();
    VornFile* file = VornFileCreate(folder.Path(L"file").c_str(), VORN_FILE_CREATE_ALWAYS,
                                    VORN_FILE_ACCESS_WRITE, VORN_TRUE, nullptr, nullptr);
    const bool right = VornFileGetSize(file) == 0 && VornFileGetSize(file) == 0 && VornFileGetSize(file) == 0;
    VornFileClose(file);
    return right ? lookUps : 50;
}

TEST_F(FileGetSize, LooksTheEntryPointUpOnce)
{
    ChildProcess child("LooksGetFileSizeExUpOnce");
    EXPECT_EQ(child.Wait(), 1u);
}

VORN_CHILD(SystemRefusesTheSize)
{
    VornInitialize();
    TempFolder folder;
    ImportRedirect redirect("GetProcAddress", &FindRefusingSize);
    originalGetProcAddress = redirect.Original<decltype(&GetProcAddress)>();
    VornFile* file = VornFileCreate(folder.Path(L"file").c_str(), VORN_FILE_CREATE_ALWAYS,
                                    VORN_FILE_ACCESS_READ_WRITE, VORN_TRUE, nullptr, nullptr);
    VornSetLastError(77);
    if (VornFileGetSize(file) != VORN_FILE_FAILED) return 1;
    if (VornGetLastError() != 77) return 2;
    if (VornFileMapRegion(file, 0, 0, nullptr, nullptr) != nullptr) return 3;
    if (VornGetLastError() != VORN_E_MAPPING) return 4;
    VornFileClose(file);
    return 0;
}

TEST_F(FileGetSize, AFailureLeavesTheLastErrorAloneToo)
{
    ChildProcess child("SystemRefusesTheSize");
    EXPECT_EQ(child.Wait(), 0u);
}

VORN_CHILD(SystemWithoutGetFileSizeEx)
{
    VornInitialize();
    TempFolder folder;
    ImportRedirect redirect("GetProcAddress", &HideGetFileSizeEx);
    originalGetProcAddress = redirect.Original<decltype(&GetProcAddress)>();
    VornFile* file = VornFileCreate(folder.Path(L"file").c_str(), VORN_FILE_CREATE_ALWAYS,
                                    VORN_FILE_ACCESS_READ_WRITE, VORN_TRUE, nullptr, nullptr);
    if (VornFileSetSize(file, 1000) != VORN_OK) return 1;
    VornSetLastError(77);
    if (VornFileGetSize(file) != 1000) return 2;
    if (VornGetLastError() != VORN_OK) return 3;
    // Only the low half of a size beyond 4 GiB is seen.
    if (VornFileSetSize(file, 4 * kGiB + 5) != VORN_OK) return 4;
    if (VornFileGetSize(file) != 5) return 5;
    {
        FailingCall fail({"GetFileSize", 0xFFFFFFFF, ERROR_ACCESS_DENIED});
        if (VornFileGetSize(file) != VORN_FILE_FAILED) return 6;
        if (VornGetLastError() != VORN_E_NOT_PERMITTED) return 7;
    }
    // An empty file cannot be mapped, whatever asking for its size did to the last error.
    if (VornFileSetSize(file, 0) != VORN_OK) return 8;
    if (VornFileMapRegion(file, 0, 0, nullptr, nullptr) != nullptr) return 9;
    if (VornGetLastError() != VORN_E_INVALID_ARG) return 10;
    if (VornFileClose(file) != VORN_OK) return 11;
    if (VornFileGetSize(file) != VORN_FILE_FAILED || VornGetLastError() != VORN_E_INVALID_ARG) return 12;
    return 0;
}

TEST_F(FileGetSize, WithoutGetFileSizeExTheLowHalfIsReportedAndTheLastErrorSet)
{
    ChildProcess child("SystemWithoutGetFileSizeEx");
    EXPECT_EQ(child.Wait(), 0u);
}

TEST_F(FileSetSize, ExtendsWithZeros)
{
    VornFile* file = OpenWith(L"file", "text");
    EXPECT_EQ(VornFileSetSize(file, 8), VORN_OK);
    EXPECT_EQ(VornFileGetPos(file), 0u);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
    EXPECT_EQ(LoadBytes(Path(L"file")), std::string("text\0\0\0\0", 8));
}

TEST_F(FileSetSize, CutsAndKeepsAPositionThatThenLiesPastTheEnd)
{
    VornFile* file = OpenWith(L"file", "0123456789");
    EXPECT_EQ(VornFileSeek(file, 8, VORN_FILE_SEEK_BEGIN), 8u);
    EXPECT_EQ(VornFileSetSize(file, 3), VORN_OK);
    EXPECT_EQ(VornFileGetPos(file), 8u);
    EXPECT_EQ(VornFileGetSize(file), 3u);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
    EXPECT_EQ(LoadBytes(Path(L"file")), "012");
}

TEST_F(FileSetSize, TakesSizesBeyondFourGiBAndAppendingStartsAtTheirEnd)
{
    VornFile* file = OpenWith(L"file", "text");
    EXPECT_EQ(VornFileSetSize(file, 5 * kGiB + 1), VORN_OK);
    EXPECT_EQ(VornFileGetSize(file), 5 * kGiB + 1);
    VornFile* appending = Open(L"file", VORN_FILE_APPEND_EXISTING);
    EXPECT_EQ(VornFileGetPos(appending), 5 * kGiB + 1);
    EXPECT_EQ(VornFileClose(appending), VORN_OK);
    EXPECT_EQ(VornFileSetSize(file, 0), VORN_OK);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileSetSize, RefusesASizeThatIsNoPosition)
{
    VornFile* file = OpenWith(L"file", "text");
    EXPECT_EQ(VornFileSeek(file, 2, VORN_FILE_SEEK_BEGIN), 2u);
    EXPECT_EQ(VornFileSetSize(file, uint64_t{1} << 63), VORN_E_SEEK);
    EXPECT_EQ(VornFileSetSize(file, ~uint64_t{0}), VORN_E_SEEK);
    EXPECT_EQ(VornFileGetPos(file), 2u);
    EXPECT_EQ(VornFileGetSize(file), 4u);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileSetSize, WithoutWriteAccessFailsAndKeepsThePosition)
{
    VornFile* file = OpenWith(L"file", "text", VORN_FILE_ACCESS_READ);
    EXPECT_EQ(VornFileSeek(file, 2, VORN_FILE_SEEK_BEGIN), 2u);
    EXPECT_EQ(VornFileSetSize(file, 1), VORN_E_SEEK);
    EXPECT_EQ(VornFileGetPos(file), 2u);
    EXPECT_EQ(VornFileGetSize(file), 4u);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileSetSize, EachOfItsStepsMayFailSaveTheLastMove)
{
    for (long nth = 1; nth <= 4; ++nth) {
        VornFile* file = OpenWith(L"file", "text");
        {
            FailingCall fail(kSetFilePointer, nth);
            EXPECT_EQ(VornFileSetSize(file, 2), nth <= 2 ? VORN_E_SEEK : VORN_OK) << nth;
            EXPECT_EQ(fail.Failures(), nth <= 3 ? 1 : 0);
        }
        EXPECT_EQ(VornFileGetSize(file), nth <= 2 ? 4u : 2u);
        EXPECT_EQ(VornFileClose(file), VORN_OK);
    }
}

TEST_F(FileSetSize, MovesThePositionBackAlsoWhenTheSizeCouldNotBeSet)
{
    VornFile* file = OpenWith(L"file", "text");
    EXPECT_EQ(VornFileSeek(file, 1, VORN_FILE_SEEK_BEGIN), 1u);
    {
        FailingCall fail(kSetEndOfFile);
        EXPECT_EQ(VornFileSetSize(file, 3), VORN_E_SEEK);
        EXPECT_EQ(fail.Failures(), 1);
    }
    EXPECT_EQ(VornFileGetPos(file), 1u);
    EXPECT_EQ(VornFileGetSize(file), 4u);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileSetSize, NoticesAHandleClosedOnTheWay)
{
    ImportRedirect redirect("SetFilePointer", &CloseAfterMoving);
    originalSetFilePointer = redirect.Original<decltype(&SetFilePointer)>();
    for (int move = 1; move <= 2; ++move) {
        closedOnTheWay = OpenWith(L"file", "text");
        movesUntilClose = move;
        EXPECT_EQ(VornFileSetSize(closedOnTheWay, 2), VORN_E_SEEK) << move;
        EXPECT_EQ(LoadBytes(Path(L"file")), "text");
    }
}
