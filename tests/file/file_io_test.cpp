#include "file/temp_folder.h"
#include "support/failing_call.h"
#include "support/guard_buffer.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

using namespace vorn_test;

namespace {

class FileRead : public FileFixture {};
class FileWrite : public FileFixture {};
class FileFlush : public FileFixture {};
class FileEof : public FileFixture {};

constexpr FaultPoint kReadFile = {"ReadFile", 0, ERROR_READ_FAULT};
constexpr FaultPoint kWriteFile = {"WriteFile", 0, ERROR_WRITE_FAULT};
constexpr FaultPoint kFlushFileBuffers = {"FlushFileBuffers", 0, kGenericFailure};

volatile int* volatile nowhere = nullptr;

BOOL WINAPI FaultOnRead(HANDLE, LPVOID, DWORD, LPDWORD, LPOVERLAPPED)
{
    *nowhere = 1;
    return TRUE;
}
BOOL WINAPI FaultOnWrite(HANDLE, LPCVOID, DWORD, LPDWORD, LPOVERLAPPED)
{
    *nowhere = 1;
    return TRUE;
}
BOOL WINAPI EndThreadOnRead(HANDLE, LPVOID, DWORD, LPDWORD, LPOVERLAPPED)
{
    VornThreadExit(reinterpret_cast<void*>(55));
    return TRUE;
}
BOOL WINAPI ThrowOnRead(HANDLE, LPVOID, DWORD, LPDWORD, LPOVERLAPPED)
{
    throw 42;
}

}  // namespace

TEST_F(FileRead, DeliversTheBytesAtThePositionAndMovesIt)
{
    VornFile* file = OpenWith(L"file", "abcdef");
    char text[4] = {};
    uint32_t read = 0;
    EXPECT_EQ(VornFileRead(file, text, 3, &read), VORN_OK);
    EXPECT_EQ(read, 3u);
    EXPECT_STREQ(text, "abc");
    EXPECT_EQ(VornFileGetPos(file), 3u);
    EXPECT_EQ(VornFileRead(file, text, 3, &read), VORN_OK);
    EXPECT_STREQ(text, "def");
    EXPECT_EQ(VornFileIsEof(file), VORN_FALSE);
    EXPECT_EQ(VornFileRead(file, text, 3, &read), VORN_OK);
    EXPECT_EQ(read, 0u);
    EXPECT_EQ(VornFileIsEof(file), VORN_TRUE);
    EXPECT_EQ(VornGetLastError(), VORN_OK);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileRead, RefusesNullPointers)
{
    VornFile* file = OpenWith(L"file", "text");
    char byte = 0;
    uint32_t read = 55;
    EXPECT_EQ(VornFileRead(file, nullptr, 1, &read), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornFileRead(file, nullptr, 0, &read), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornFileRead(file, &byte, 1, nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(read, 55u);
    EXPECT_EQ(VornFileGetPos(file), 0u);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileRead, OfNoBytesAsksNothingOfTheSystem)
{
    VornFile* file = OpenWith(L"file", "text");
    FailingCall never(kReadFile, 0);
    char byte = 'x';
    uint32_t read = 55;
    EXPECT_EQ(VornFileRead(file, &byte, 0, &read), VORN_OK);
    EXPECT_EQ(read, 0u);
    EXPECT_EQ(byte, 'x');
    EXPECT_EQ(never.Calls(), 0);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileRead, TouchesNothingBehindTheBytesItWasGiven)
{
    VornFile* file = OpenWith(L"file", std::string(5000, 'x'));
    GuardBuffer buffer(4096);
    uint32_t read = 0;
    EXPECT_EQ(VornFileRead(file, buffer.Data(), 4096, &read), VORN_OK);
    EXPECT_EQ(read, 4096u);
    EXPECT_EQ(buffer.Data()[4095], 'x');
    std::memset(buffer.Data(), 'y', 4096);
    EXPECT_EQ(VornFileRead(file, buffer.Data(), 4096, &read), VORN_OK);
    EXPECT_EQ(read, 904u);
    EXPECT_EQ(buffer.Data()[903], 'x');
    EXPECT_EQ(buffer.Data()[904], 'y');
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileRead, ReportsAFailureOfTheSystem)
{
    VornFile* file = OpenWith(L"file", "text");
    char byte = 0;
    uint32_t read = 0;
    {
        FailingCall fail(kReadFile);
        EXPECT_EQ(VornFileRead(file, &byte, 1, &read), VORN_E_READ);
    }
    EXPECT_EQ(VornFileIsEof(file), VORN_FALSE);
    EXPECT_EQ(VornFileRead(file, &byte, 1, &read), VORN_OK);
    EXPECT_EQ(byte, 't');
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileRead, ReportsAMachineFaultInsideTheSystemCall)
{
    VornFile* file = OpenWith(L"file", "text");
    char byte = 0;
    uint32_t read = 0;
    {
        ImportRedirect redirect("ReadFile", &FaultOnRead);
        for (int i = 0; i < 100; ++i) EXPECT_EQ(VornFileRead(file, &byte, 1, &read), VORN_E_READ);
    }
    EXPECT_EQ(VornFileRead(file, &byte, 1, &read), VORN_OK);
    EXPECT_EQ(byte, 't');
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileRead, ReportsABufferThatCannotBeWritten)
{
    VornFile* file = OpenWith(L"file", "text");
    GuardBuffer buffer(16);
    uint32_t read = 0;
    EXPECT_EQ(VornFileRead(file, buffer.Data() + 16, 4, &read), VORN_E_READ);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileRead, ReportsACounterThatCannotBeWritten)
{
    VornFile* file = OpenWith(L"file", "text");
    GuardBuffer guard(16);
    char text[4];
    EXPECT_EQ(VornFileRead(file, text, 4, reinterpret_cast<uint32_t*>(guard.Data() + 16)), VORN_E_READ);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileRead, LetsAnExceptionOfTheProgramPass)
{
    VornFile* file = OpenWith(L"file", "text");
    char byte = 0;
    uint32_t read = 0;
    {
        ImportRedirect redirect("ReadFile", &ThrowOnRead);
        EXPECT_THROW(VornFileRead(file, &byte, 1, &read), int);
    }
    EXPECT_EQ(VornFileRead(file, &byte, 1, &read), VORN_OK);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileRead, LetsTheEndOfAThreadPass)
{
    VornFile* file = OpenWith(L"file", "text");
    const auto body = [](void* argument) -> void* {
        char byte = 0;
        uint32_t read = 0;
        VornFileRead(static_cast<VornFile*>(argument), &byte, 1, &read);
        return nullptr;
    };
    void* result = nullptr;
    {
        ImportRedirect redirect("ReadFile", &EndThreadOnRead);
        VornThread* thread = nullptr;
        ASSERT_EQ(VornThreadCreate(&thread, nullptr, body, file), VORN_OK);
        EXPECT_EQ(VornThreadJoin(thread, &result), VORN_OK);
    }
    EXPECT_EQ(result, reinterpret_cast<void*>(55));
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileWrite, StoresTheBytesAtThePositionAndMovesIt)
{
    VornFile* file = OpenWith(L"file", "abcdef");
    uint32_t written = 0;
    EXPECT_EQ(VornFileSeek(file, 2, VORN_FILE_SEEK_BEGIN), 2u);
    EXPECT_EQ(VornFileWrite(file, "XY", 2, &written), VORN_OK);
    EXPECT_EQ(written, 2u);
    EXPECT_EQ(VornFileGetPos(file), 4u);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
    EXPECT_EQ(LoadBytes(Path(L"file")), "abXYef");
}

TEST_F(FileWrite, RefusesNullPointersAndLeavesTheFlag)
{
    VornFile* file = OpenWith(L"file", "text");
    char text[10];
    uint32_t count = 0;
    EXPECT_EQ(VornFileRead(file, text, 10, &count), VORN_OK);
    EXPECT_EQ(VornFileWrite(file, nullptr, 1, &count), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornFileWrite(file, text, 1, nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornFileIsEof(file), VORN_TRUE);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileWrite, OfNoBytesOnlyClearsTheEndOfFileFlag)
{
    VornFile* file = OpenWith(L"file", "text");
    char text[10];
    uint32_t count = 0;
    EXPECT_EQ(VornFileRead(file, text, 10, &count), VORN_OK);
    FailingCall never(kWriteFile, 0);
    count = 55;
    EXPECT_EQ(VornFileWrite(file, text, 0, &count), VORN_OK);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(VornFileIsEof(file), VORN_FALSE);
    EXPECT_EQ(never.Calls(), 0);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileWrite, ReportsAFailureOfTheSystemAndStillClearsTheFlag)
{
    VornFile* file = OpenWith(L"file", "text");
    char text[10];
    uint32_t count = 0;
    EXPECT_EQ(VornFileRead(file, text, 10, &count), VORN_OK);
    FailingCall fail(kWriteFile);
    EXPECT_EQ(VornFileWrite(file, text, 1, &count), VORN_E_WRITE);
    EXPECT_EQ(VornFileIsEof(file), VORN_FALSE);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileWrite, ReportsAMachineFaultInsideTheSystemCall)
{
    VornFile* file = OpenWith(L"file", "text");
    uint32_t written = 0;
    {
        ImportRedirect redirect("WriteFile", &FaultOnWrite);
        EXPECT_EQ(VornFileWrite(file, "X", 1, &written), VORN_E_WRITE);
    }
    EXPECT_EQ(VornFileWrite(file, "X", 1, &written), VORN_OK);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
    EXPECT_EQ(LoadBytes(Path(L"file")), "Xext");
}

TEST_F(FileWrite, ReportsABufferThatCannotBeReadAndACounterThatCannotBeWritten)
{
    VornFile* file = OpenWith(L"file", "text");
    GuardBuffer buffer(16);
    uint32_t written = 0;
    EXPECT_EQ(VornFileWrite(file, buffer.Data() + 16, 4, &written), VORN_E_WRITE);
    EXPECT_EQ(VornFileWrite(file, "X", 1, reinterpret_cast<uint32_t*>(buffer.Data() + 16)), VORN_E_WRITE);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileFlush, SucceedsOnAFileOpenedForWriting)
{
    VornFile* file = OpenWith(L"file", "text");
    uint32_t written = 0;
    EXPECT_EQ(VornFileWrite(file, "X", 1, &written), VORN_OK);
    EXPECT_EQ(VornFileFlush(file), VORN_OK);
    EXPECT_EQ(LoadBytes(Path(L"file")), "Xext");
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileFlush, ReportsAFailureOfTheSystemAsAWriteError)
{
    VornFile* file = OpenWith(L"file", "text");
    FailingCall fail(kFlushFileBuffers);
    EXPECT_EQ(VornFileFlush(file), VORN_E_WRITE);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

class FileEofAfterShortRead : public FileFixture {
protected:
    FileEofAfterShortRead() : file(OpenWith(L"file", "text"))
    {
        EXPECT_EQ(VornFileIsEof(file), VORN_FALSE);
        EXPECT_EQ(VornFileRead(file, text, 10, &count), VORN_OK);
        EXPECT_EQ(count, 4u);
        EXPECT_EQ(VornFileIsEof(file), VORN_TRUE);
    }
    ~FileEofAfterShortRead() override { EXPECT_EQ(VornFileClose(file), VORN_OK); }

    char text[10] = {};
    uint32_t count = 0;
    VornFile* file;
};

TEST_F(FileEofAfterShortRead, IsKeptByAReadOfNoBytes)
{
    EXPECT_EQ(VornFileRead(file, text, 0, &count), VORN_OK);
    EXPECT_EQ(VornFileIsEof(file), VORN_TRUE);
}

TEST_F(FileEofAfterShortRead, IsKeptByAReadThatDeliversAll)
{
    StoreBytes(Path(L"file"), "text that has grown");
    EXPECT_EQ(VornFileRead(file, text, 3, &count), VORN_OK);
    EXPECT_EQ(count, 3u);
    EXPECT_EQ(VornFileIsEof(file), VORN_TRUE);
}

TEST_F(FileEofAfterShortRead, IsKeptByAFailedRead)
{
    FailingCall fail(kReadFile);
    EXPECT_EQ(VornFileRead(file, text, 1, &count), VORN_E_READ);
    EXPECT_EQ(VornFileIsEof(file), VORN_TRUE);
}

TEST_F(FileEofAfterShortRead, IsKeptByFlushSizeAndMetadata)
{
    EXPECT_EQ(VornFileFlush(file), VORN_OK);
    EXPECT_EQ(VornFileGetSize(file), 4u);
    VornTime time;
    EXPECT_EQ(VornFileGetTime(file, &time, &time, nullptr), VORN_OK);
    EXPECT_EQ(VornFileSetTime(file, &time, &time, nullptr), VORN_OK);
    void* native = nullptr;
    EXPECT_EQ(VornFileGetNativeHandle(file, &native), VORN_OK);
    EXPECT_EQ(VornFileIsEof(file), VORN_TRUE);
}

TEST_F(FileEofAfterShortRead, IsClearedByAskingForThePosition)
{
    EXPECT_EQ(VornFileGetPos(file), 4u);
    EXPECT_EQ(VornFileIsEof(file), VORN_FALSE);
}

TEST_F(FileEofAfterShortRead, IsClearedByASeekAlsoByOneThatFails)
{
    EXPECT_EQ(VornFileSeek(file, -1, VORN_FILE_SEEK_BEGIN), VORN_FILE_FAILED);
    EXPECT_EQ(VornFileIsEof(file), VORN_FALSE);
}

TEST_F(FileEofAfterShortRead, IsKeptByASeekWithAMethodOutOfRange)
{
    EXPECT_EQ(VornFileSeek(file, 0, 3), VORN_FILE_FAILED);
    EXPECT_EQ(VornFileIsEof(file), VORN_TRUE);
}

TEST_F(FileEofAfterShortRead, IsClearedByAWrite)
{
    EXPECT_EQ(VornFileWrite(file, "X", 1, &count), VORN_OK);
    EXPECT_EQ(VornFileIsEof(file), VORN_FALSE);
}

TEST_F(FileEofAfterShortRead, IsClearedByAChangeOfSize)
{
    EXPECT_EQ(VornFileSetSize(file, 4), VORN_OK);
    EXPECT_EQ(VornFileIsEof(file), VORN_FALSE);
}

TEST_F(FileEofAfterShortRead, IsClearedByTheReadingOfALine)
{
    EXPECT_EQ(VornFileSeek(file, 0, VORN_FILE_SEEK_BEGIN), 0u);
    EXPECT_EQ(VornFileReadLine(file, reinterpret_cast<uint8_t*>(text), 10, &count), VORN_OK);
    EXPECT_EQ(count, 5u);
    EXPECT_EQ(VornFileIsEof(file), VORN_FALSE);
}

TEST_F(FileEofAfterShortRead, BelongsToOneHandleAlone)
{
    VornFile* other = Open(L"file");
    EXPECT_EQ(VornFileIsEof(other), VORN_FALSE);
    EXPECT_EQ(VornFileGetPos(other), 0u);
    EXPECT_EQ(VornFileIsEof(file), VORN_TRUE);
    EXPECT_EQ(VornFileClose(other), VORN_OK);
}

TEST_F(FileRead, ThreadsUseHandlesOfTheirOwnSideBySide)
{
    std::atomic<int> failures{0};
    const auto work = [&](int number) {
        const std::wstring path = Path(L"file" + std::to_wstring(number));
        for (int round = 0; round < 40; ++round) {
            VornFile* file = VornFileCreate(path.c_str(), VORN_FILE_CREATE_ALWAYS,
                                            VORN_FILE_ACCESS_READ_WRITE, VORN_TRUE, nullptr, nullptr);
            const std::string text = std::to_string(number) + " in round " + std::to_string(round) + "\n";
            const auto size = static_cast<uint32_t>(text.size());
            uint32_t count = 0;
            uint8_t line[64] = {};
            if (VornFileWrite(file, text.data(), size, &count) != VORN_OK || count != size) ++failures;
            if (VornFileSeek(file, 0, VORN_FILE_SEEK_BEGIN) != 0) ++failures;
            if (VornFileReadLine(file, line, sizeof(line), &count) != VORN_OK || count != size) ++failures;
            if (text.compare(0, size - 1, reinterpret_cast<char*>(line)) != 0) ++failures;
            if (VornFileGetSize(file) != size) ++failures;
            if (VornFileClose(file) != VORN_OK) ++failures;
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) threads.emplace_back(work, i);
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(failures.load(), 0);
}
