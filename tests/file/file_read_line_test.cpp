#include "file/temp_folder.h"
#include "support/failing_call.h"
#include "support/guard_buffer.h"

#include <cstring>
#include <gtest/gtest.h>
#include <random>

using namespace vorn_test;

namespace {

constexpr FaultPoint kReadFile = {"ReadFile", 0, ERROR_READ_FAULT};
constexpr FaultPoint kSetFilePointer = {"SetFilePointer", 0xFFFFFFFF, kGenericFailure};
constexpr uint8_t kSkipping = 11;  // the stale byte that moves the position on

class FileReadLine : public FileFixture {
protected:
    // One line, as text up to its zero byte; `length` and the position afterwards are checked too.
    void ExpectLine(VornFile* file, uint32_t size, const std::string& text, uint32_t length,
                    uint64_t position)
    {
        std::vector<uint8_t> buffer(size + 1, 0);
        uint32_t stored = 7777;
        EXPECT_EQ(VornFileReadLine(file, buffer.data(), size, &stored), VORN_OK);
        EXPECT_EQ(stored, length);
        EXPECT_EQ(std::string(reinterpret_cast<char*>(buffer.data())), text);
        EXPECT_EQ(VornFileIsEof(file), length == 0 ? VORN_TRUE : VORN_FALSE);
        EXPECT_EQ(VornFileGetPos(file), position);
    }
};

// What one call does to a text, told byte by byte. `memory` is the caller's memory before the call: the
// buffer of `size` bytes and the one byte behind it. Written from the rules alone.
struct LineModel {
    std::string memory;
    uint32_t length = 0;
    uint64_t position = 0;
    bool endOfFile = false;

    LineModel(const std::string& text, uint64_t start, uint32_t size, const std::string& before)
        : memory(before), position(start)
    {
        if (size == 0) return;
        uint32_t n = 0;
        while (n < size && start + n < text.size()) {
            memory[n] = text[start + n];
            ++n;
        }
        if (n == 0) {
            memory[0] = 0;
            endOfFile = true;
            return;
        }
        uint32_t L = n == size ? n - 1 : n;
        uint32_t S = 0;
        bool stopped = false;
        for (uint32_t i = 0; i < n && !stopped; ++i) {
            if (memory[i] == 10) {
                L = i;
                S = 1;
                stopped = true;
            } else if (memory[i] == 13 && i < n - 1 && memory[i + 1] == 10) {
                L = i;
                S = 2;
                stopped = true;
            }
        }
        if (!stopped && memory[n - 1] == 13) S = start + n < text.size() && text[start + n] == 10 ? 2 : 1;
        if (!stopped && memory[n - 1] != 13) S = memory[n] == kSkipping ? 1 : 0;
        memory[L] = 0;
        length = L + 1;
        position = start + L + S;
    }
};

class FileReadLineModel : public FileFixture {
protected:
    FileReadLineModel() : file(OpenWith(L"file", "")) {}
    ~FileReadLineModel() override { EXPECT_EQ(VornFileClose(file), VORN_OK); }

    void Store(const std::string& text)
    {
        uint32_t written = 0;
        ASSERT_EQ(VornFileSeek(file, 0, VORN_FILE_SEEK_BEGIN), 0u);
        if (!text.empty()) {
            ASSERT_EQ(VornFileWrite(file, text.data(), static_cast<uint32_t>(text.size()), &written),
                      VORN_OK);
        }
        ASSERT_EQ(VornFileSetSize(file, text.size()), VORN_OK);
        ASSERT_EQ(VornFileSeek(file, 0, VORN_FILE_SEEK_BEGIN), 0u);
    }

    // Reads the whole stored text and compares each call with the model; `stale` is what the memory holds.
    void Compare(const std::string& text, uint32_t size, const std::string& stale)
    {
        uint64_t position = 0;
        ASSERT_EQ(VornFileSeek(file, 0, VORN_FILE_SEEK_BEGIN), 0u);
        for (size_t call = 0; call < text.size() + 2; ++call) {
            const LineModel expected(text, position, size, stale);
            std::string memory = stale;
            uint32_t length = 7777;
            ASSERT_EQ(VornFileReadLine(file, reinterpret_cast<uint8_t*>(memory.data()), size, &length),
                      VORN_OK);
            ++calls;
            ASSERT_EQ(memory, expected.memory) << Describe(text, size, position);
            ASSERT_EQ(length, expected.length) << Describe(text, size, position);
            ASSERT_EQ(VornFileIsEof(file) != VORN_FALSE, expected.endOfFile)
                << Describe(text, size, position);
            ASSERT_EQ(VornFileGetPos(file), expected.position) << Describe(text, size, position);
            if (expected.endOfFile || expected.position == position) break;
            position = expected.position;
        }
    }

    static std::string Describe(const std::string& text, uint32_t size, uint64_t position)
    {
        return testing::PrintToString(text) + " in pieces of " + std::to_string(size) + " from " +
               std::to_string(position);
    }

    VornFile* file;
    size_t calls = 0;
};

decltype(&ReadFile) originalReadFile;
int readsUntilShort;

// Delivers nothing from the chosen read on, as a file does that another opener has cut meanwhile.
BOOL WINAPI ReadNothingLater(HANDLE native, LPVOID buffer, DWORD count, LPDWORD read, LPOVERLAPPED overlapped)
{
    if (--readsUntilShort > 0) return originalReadFile(native, buffer, count, read, overlapped);
    *read = 0;
    return TRUE;
}

}  // namespace

TEST_F(FileReadLine, EndsLinesAtLineFeedsWithAndWithoutCarriageReturn)
{
    VornFile* file = OpenWith(L"file", "ab\r\ncd\n");
    ExpectLine(file, 16, "ab", 3, 4);
    ExpectLine(file, 16, "cd", 3, 7);
    ExpectLine(file, 16, "", 0, 7);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileReadLine, ReturnsALineThatDoesNotFitInPieces)
{
    VornFile* file = OpenWith(L"file", "abcdef\n");
    ExpectLine(file, 4, "abc", 4, 3);
    ExpectLine(file, 4, "def", 4, 7);
    ExpectLine(file, 4, "", 0, 7);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileReadLine, GivesEmptyLinesALengthOfOne)
{
    VornFile* file = OpenWith(L"file", "\n\r\n\n");
    ExpectLine(file, 8, "", 1, 1);
    ExpectLine(file, 8, "", 1, 3);
    ExpectLine(file, 8, "", 1, 4);
    ExpectLine(file, 8, "", 0, 4);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileReadLine, ReturnsALastLineWithoutALineEnd)
{
    VornFile* file = OpenWith(L"file", "ab\ncd");
    ExpectLine(file, 8, "ab", 3, 3);
    ExpectLine(file, 8, "cd", 3, 5);
    ExpectLine(file, 8, "", 0, 5);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileReadLine, KeepsALoneCarriageReturnAtTheEndAndGoesOneByteTooFar)
{
    VornFile* file = OpenWith(L"file", "ab\r");
    ExpectLine(file, 16, "ab\r", 4, 4);
    ExpectLine(file, 16, "", 0, 4);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileReadLine, TakesACarriageReturnInTheMiddleAsText)
{
    VornFile* file = OpenWith(L"file", "a\rb\r\n");
    ExpectLine(file, 16, "a\rb", 4, 5);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileReadLine, LooksBehindACarriageReturnThatFillsTheBuffer)
{
    VornFile* file = OpenWith(L"file", "abc\r\nde\n");
    ExpectLine(file, 4, "abc", 4, 5);
    ExpectLine(file, 4, "de", 3, 8);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileReadLine, LosesACarriageReturnThatFillsTheBufferWithoutALineFeedBehindIt)
{
    VornFile* file = OpenWith(L"file", "abc\rde\n");
    ExpectLine(file, 4, "abc", 4, 4);
    ExpectLine(file, 4, "de", 3, 7);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileReadLine, ClearsAnEarlierEndOfFileFlag)
{
    VornFile* file = OpenWith(L"file", "ab\n");
    char text[8];
    uint32_t count = 0;
    EXPECT_EQ(VornFileRead(file, text, 8, &count), VORN_OK);
    EXPECT_EQ(VornFileIsEof(file), VORN_TRUE);
    EXPECT_EQ(VornFileReadLine(file, nullptr, 8, &count), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornFileIsEof(file), VORN_FALSE);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileReadLine, RefusesNullPointersAndReadsNothing)
{
    VornFile* file = OpenWith(L"file", "ab\n");
    uint8_t buffer[8];
    uint32_t length = 55;
    EXPECT_EQ(VornFileReadLine(file, nullptr, 8, &length), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornFileReadLine(file, buffer, 8, nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(length, 55u);
    EXPECT_EQ(VornFileGetPos(file), 0u);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileReadLine, IntoNoRoomReadsAndStoresNothing)
{
    VornFile* file = OpenWith(L"file", "ab\n");
    GuardBuffer nothing(0);
    uint32_t length = 55;
    EXPECT_EQ(VornFileReadLine(file, nothing.Data() + 4096, 0, &length), VORN_OK);
    EXPECT_EQ(length, 0u);
    uint8_t byte = 'x';
    EXPECT_EQ(VornFileReadLine(file, &byte, 0, &length), VORN_OK);
    EXPECT_EQ(byte, 'x');
    EXPECT_EQ(VornFileGetPos(file), 0u);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileReadLine, IntoRoomForTheZeroAloneGetsPastLineEndsOnly)
{
    VornFile* file = OpenWith(L"file", "\n\r\nab\n");
    ExpectLine(file, 1, "", 1, 1);
    ExpectLine(file, 1, "", 1, 3);
    ExpectLine(file, 1, "", 1, 3);
    ExpectLine(file, 1, "", 1, 3);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileReadLine, SkipsOneByteWhenTheStaleByteBehindTheDataIsEleven)
{
    VornFile* file = OpenWith(L"file", "ab");
    uint8_t buffer[8] = {0, 0, kSkipping, 0, 0, 0, 0, 0};
    uint32_t length = 0;
    EXPECT_EQ(VornFileReadLine(file, buffer, 8, &length), VORN_OK);
    EXPECT_EQ(length, 3u);
    EXPECT_STREQ(reinterpret_cast<char*>(buffer), "ab");
    EXPECT_EQ(VornFileGetPos(file), 3u);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileReadLine, SkipsOneByteWhenTheByteBehindAFullBufferIsElevenAndLeavesThatByteAlone)
{
    VornFile* file = OpenWith(L"file", "abcdef");
    uint8_t memory[5] = {0, 0, 0, 0, kSkipping};
    uint32_t length = 0;
    EXPECT_EQ(VornFileReadLine(file, memory, 4, &length), VORN_OK);
    EXPECT_EQ(length, 4u);
    EXPECT_STREQ(reinterpret_cast<char*>(memory), "abc");
    EXPECT_EQ(memory[4], kSkipping);
    EXPECT_EQ(VornFileGetPos(file), 4u);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileReadLine, WorksInABufferThatEndsAtAnInaccessiblePage)
{
    const std::string text = "one line that is longer than most buffers\nand\r\nsome\rmore\r";
    VornFile* file = OpenWith(L"file", text);
    for (uint32_t size = 1; size <= text.size() + 2; ++size) {
        EXPECT_EQ(VornFileSeek(file, 0, VORN_FILE_SEEK_BEGIN), 0u);
        GuardBuffer buffer(size);
        uint64_t position = 0;
        while (true) {
            std::memset(buffer.Data(), 'z', size);
            const LineModel expected(text, position, size, std::string(size, 'z') + 'z');
            uint32_t length = 0;
            ASSERT_EQ(VornFileReadLine(file, buffer.Data(), size, &length), VORN_OK);
            ASSERT_EQ(length, expected.length) << size;
            ASSERT_EQ(std::memcmp(buffer.Data(), expected.memory.data(), size), 0) << size;
            ASSERT_EQ(VornFileGetPos(file), expected.position) << size;
            if (expected.endOfFile || expected.position == position) break;
            position = expected.position;
        }
    }
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileReadLine, LooksAtAGuardPageBehindTheBufferWithoutFaulting)
{
    VornFile* file = OpenWith(L"file", "abcdef");
    auto* pages =
        static_cast<uint8_t*>(VirtualAlloc(nullptr, 8192, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
    ASSERT_NE(pages, nullptr);
    DWORD before = 0;
    ASSERT_TRUE(VirtualProtect(pages + 4096, 4096, PAGE_READWRITE | PAGE_GUARD, &before));
    uint32_t length = 0;
    EXPECT_EQ(VornFileReadLine(file, pages + 4092, 4, &length), VORN_OK);
    EXPECT_EQ(length, 4u);
    EXPECT_EQ(VornFileGetPos(file), 3u);
    VirtualFree(pages, 0, MEM_RELEASE);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileReadLine, ReadsLinesBeyondFourGiB)
{
    constexpr uint64_t kFar = (uint64_t{5} << 30) + 7;
    VornFile* file = OpenWith(L"file", "");
    uint32_t written = 0;
    EXPECT_EQ(VornFileSeek(file, kFar, VORN_FILE_SEEK_BEGIN), kFar);
    EXPECT_EQ(VornFileWrite(file, "ab\ncd\r\n", 7, &written), VORN_OK);
    EXPECT_EQ(VornFileSeek(file, kFar, VORN_FILE_SEEK_BEGIN), kFar);
    ExpectLine(file, 16, "ab", 3, kFar + 3);
    ExpectLine(file, 16, "cd", 3, kFar + 7);
    ExpectLine(file, 16, "", 0, kFar + 7);
    EXPECT_EQ(VornFileSetSize(file, 0), VORN_OK);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileReadLine, ReportsAFailedReadUnchangedAndDoesNotMove)
{
    VornFile* file = OpenWith(L"file", "ab\n");
    uint8_t buffer[8] = {};
    uint32_t length = 0;
    {
        FailingCall fail(kReadFile);
        EXPECT_EQ(VornFileReadLine(file, buffer, 8, &length), VORN_E_READ);
    }
    EXPECT_EQ(VornFileGetPos(file), 0u);
    ExpectLine(file, 8, "ab", 3, 3);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileReadLine, TakesAFailedLookBehindACarriageReturnAsNoLineFeed)
{
    VornFile* file = OpenWith(L"file", "abc\r\nde\n");
    uint8_t buffer[4] = {};
    uint32_t length = 0;
    {
        FailingCall fail(kReadFile, 2);
        EXPECT_EQ(VornFileReadLine(file, buffer, 4, &length), VORN_OK);
        EXPECT_EQ(fail.Failures(), 1);
    }
    EXPECT_EQ(length, 4u);
    EXPECT_EQ(VornFileGetPos(file), 4u);
    EXPECT_EQ(VornFileSeek(file, 0, VORN_FILE_SEEK_BEGIN), 0u);
    {
        ImportRedirect redirect("ReadFile", &ReadNothingLater);
        originalReadFile = redirect.Original<decltype(&ReadFile)>();
        readsUntilShort = 2;
        EXPECT_EQ(VornFileReadLine(file, buffer, 4, &length), VORN_OK);
    }
    EXPECT_EQ(length, 4u);
    EXPECT_EQ(VornFileGetPos(file), 4u);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileReadLine, StillReturnsTheLineWhenThePositionCannotBeMoved)
{
    for (long nth = 1; nth <= 2; ++nth) {
        VornFile* file = OpenWith(L"file", "ab\ncd\n");
        uint8_t buffer[8] = {};
        uint32_t length = 0;
        {
            FailingCall fail(kSetFilePointer, nth);
            EXPECT_EQ(VornFileReadLine(file, buffer, 8, &length), VORN_OK);
            EXPECT_EQ(fail.Failures(), 1);
        }
        EXPECT_STREQ(reinterpret_cast<char*>(buffer), "ab");
        EXPECT_EQ(length, 3u);
        EXPECT_EQ(VornFileIsEof(file), VORN_FALSE);
        EXPECT_EQ(VornFileClose(file), VORN_OK);
    }
}

TEST_F(FileReadLineModel, AgreesOnEveryTextOfUpToFiveBytesAndEveryBufferSize)
{
    const char alphabet[] = {'a', '\r', '\n', kSkipping};
    for (size_t length = 0; length <= 5; ++length) {
        std::vector<int> digits(length, 0);
        std::string text(length, 'a');
        while (true) {
            for (size_t i = 0; i < length; ++i) text[i] = alphabet[digits[i]];
            Store(text);
            for (uint32_t size = 0; size <= length + 2; ++size) {
                Compare(text, size, std::string(size + 1, 'z'));
                if (HasFatalFailure()) return;
            }
            size_t place = 0;
            while (place < length && ++digits[place] == 4) digits[place++] = 0;
            if (place == length) break;
        }
    }
    RecordProperty("calls", std::to_string(calls));
}

TEST_F(FileReadLineModel, AgreesOnRandomTextsWithRandomStaleBytes)
{
    const unsigned seed = 20261121;
    std::mt19937 random(seed);
    const char alphabet[] = {'a', 'b', '\r', '\r', '\n', kSkipping, '\0', '\x80'};
    for (int round = 0; round < 150; ++round) {
        std::string text(random() % 60, 'a');
        for (char& c : text) c = alphabet[random() % 8];
        Store(text);
        for (uint32_t size = 0; size <= text.size() + 2; ++size) {
            std::string stale(size + 1, 'z');
            for (char& c : stale) c = random() % 3 == 0 ? static_cast<char>(kSkipping) : 'z';
            Compare(text, size, stale);
            if (HasFatalFailure()) FAIL() << "seed " << seed << ", round " << round;
        }
    }
    RecordProperty("calls", std::to_string(calls));
}
