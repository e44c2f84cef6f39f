// Saving heaps to files and loading them, through the C interface.

#include <vorn/vorn.h>

#include "core/win32.h"

#include "heap/layout_checker.h"
#include "support/child_process.h"
#include "support/failing_call.h"
#include "support/guard_buffer.h"
#include "support/leak_watch.h"

#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

using namespace heap_test;
using namespace vorn_test;

namespace {

class HeapFile : public testing::Test {
protected:
    HeapFile() : area(4096), fileName(UniqueName(L"heap") + L".image")
    {
        VornInitialize();
        heap = VornHeapCreateLocal(area.Data(), area.Size(), 1);
    }
    ~HeapFile() override
    {
        VornHeapDestroy(heap);
        DeleteFileW(fileName.c_str());
        VornTerminate();
    }

    std::vector<uint8_t> Bytes() { return std::vector<uint8_t>(area.Data(), area.Data() + area.Size()); }
    std::vector<uint8_t> FileBytes()
    {
        std::vector<uint8_t> bytes;
        HANDLE file = CreateFileW(fileName.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
        bytes.resize(GetFileSize(file, nullptr));
        DWORD read = 0;
        ReadFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &read, nullptr);
        CloseHandle(file);
        return bytes;
    }
    void WriteFileBytes(const std::vector<uint8_t>& bytes)
    {
        HANDLE file = CreateFileW(fileName.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
        DWORD written = 0;
        WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
        CloseHandle(file);
    }

    GuardBuffer area;
    std::wstring fileName;
    VornHeap* heap;
};

}  // namespace

TEST_F(HeapFile, TheFileIsTheHeapByteForByte)
{
    const uint64_t block = VornHeapAlloc(heap, 100);
    std::memset(area.Data() + block, 0x42, 100);
    ASSERT_EQ(VornHeapSave(heap, fileName.c_str()), VORN_OK);
    EXPECT_EQ(VornGetLastError(), VORN_OK);
    std::vector<uint8_t> expected = Bytes();
    Write32(expected.data(), 36, 1);  // the saving call itself was inside
    EXPECT_EQ(FileBytes(), expected);
}

TEST_F(HeapFile, AnOddLastByteIsNotPartOfTheFile)
{
    GuardBuffer bytes(1025);
    VornHeap* odd = VornHeapCreateLocal(bytes.Data(), 1025, 0);
    ASSERT_EQ(VornHeapSave(odd, fileName.c_str()), VORN_OK);
    EXPECT_EQ(FileBytes().size(), 1024u);
    EXPECT_EQ(VornHeapDestroy(odd), VORN_OK);
}

TEST_F(HeapFile, SavingReplacesAnExistingFile)
{
    WriteFileBytes(std::vector<uint8_t>(10000, 1));
    ASSERT_EQ(VornHeapSave(heap, fileName.c_str()), VORN_OK);
    EXPECT_EQ(FileBytes().size(), 4096u);
}

TEST_F(HeapFile, AHeapLoadsItsOwnImageExactly)
{
    const uint64_t a = VornHeapAlloc(heap, 100);
    const uint64_t b = VornHeapAlloc(heap, 50);
    std::memset(area.Data() + b, 0x42, 50);
    ASSERT_EQ(VornHeapFree(heap, a), VORN_OK);
    const std::vector<uint8_t> before = Bytes();
    ASSERT_EQ(VornHeapSave(heap, fileName.c_str()), VORN_OK);
    std::memset(area.Data() + b, 0, 50);
    ASSERT_EQ(VornHeapFree(heap, b), VORN_OK);
    EXPECT_EQ(VornHeapLoad(heap, fileName.c_str()), VORN_OK);
    EXPECT_EQ(VornGetLastError(), VORN_OK);
    EXPECT_EQ(Bytes(), before);
    EXPECT_EQ(VornHeapCheck(heap), VORN_OK);
}

TEST_F(HeapFile, ALargerHeapGainsTheExtraSpace)
{
    VornHeapAlloc(heap, 100);
    ASSERT_EQ(VornHeapSave(heap, fileName.c_str()), VORN_OK);
    for (uint64_t size : {4098u, 4100u, 4158u, 4160u, 5000u, 65536u}) {
        GuardBuffer bytes(size);
        VornHeap* larger = VornHeapCreateLocal(bytes.Data(), size, 0);
        EXPECT_EQ(VornHeapLoad(larger, fileName.c_str()), VORN_OK) << size;
        EXPECT_EQ(VornHeapCheck(larger), VORN_OK) << size;
        EXPECT_EQ(LookAtHeap(bytes.Data(), size).problem, "") << size;
        EXPECT_EQ(VornHeapSize(larger), size);
        EXPECT_EQ(VornHeapDestroy(larger), VORN_OK);
    }
}

TEST_F(HeapFile, ASmallerHeapRefusesTheImage)
{
    ASSERT_EQ(VornHeapSave(heap, fileName.c_str()), VORN_OK);
    GuardBuffer bytes(4095);
    VornHeap* smaller = VornHeapCreateLocal(bytes.Data(), 4095, 0);
    EXPECT_EQ(VornHeapLoad(smaller, fileName.c_str()), VORN_E_NO_MEMORY);
    EXPECT_EQ(VornHeapCheck(smaller), VORN_OK);
    EXPECT_EQ(VornHeapDestroy(smaller), VORN_OK);
}

TEST_F(HeapFile, FilesThatAreNoImagesAreTold)
{
    EXPECT_EQ(VornHeapLoad(heap, fileName.c_str()), VORN_E_NOT_FOUND);
    EXPECT_EQ(VornGetLastError(), VORN_E_NOT_FOUND);
    EXPECT_EQ(VornHeapLoad(heap, L"no-such-folder\\x.image"), VORN_E_PATH_NOT_FOUND);
    EXPECT_EQ(VornHeapLoad(heap, nullptr), VORN_E_PATH_NOT_FOUND);
    WriteFileBytes({});
    EXPECT_EQ(VornHeapLoad(heap, fileName.c_str()), VORN_E_READ);
    WriteFileBytes(std::vector<uint8_t>(135, 'x'));
    EXPECT_EQ(VornHeapLoad(heap, fileName.c_str()), VORN_E_READ);
    WriteFileBytes(std::vector<uint8_t>(136, 'x'));
    EXPECT_EQ(VornHeapLoad(heap, fileName.c_str()), VORN_E_BAD_IMAGE);
    EXPECT_EQ(VornGetLastError(), VORN_E_BAD_IMAGE);
    EXPECT_EQ(VornHeapCheck(heap), VORN_OK);
}

TEST_F(HeapFile, ImagesOfAnotherVersionAreRefused)
{
    std::vector<uint8_t> image = Bytes();
    image[4] = 2;
    WriteFileBytes(image);
    EXPECT_EQ(VornHeapLoad(heap, fileName.c_str()), VORN_E_BAD_IMAGE);
}

TEST_F(HeapFile, AFileThatSomeoneHasOpenIsNeitherReadNorReplaced)
{
    ASSERT_EQ(VornHeapSave(heap, fileName.c_str()), VORN_OK);
    HANDLE open = CreateFileW(fileName.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_EQ(VornHeapSave(heap, fileName.c_str()), VORN_E_SHARING);
    EXPECT_EQ(VornHeapLoad(heap, fileName.c_str()), VORN_E_SHARING);
    CloseHandle(open);
    EXPECT_EQ(VornHeapLoad(heap, fileName.c_str()), VORN_OK);
}

TEST_F(HeapFile, AFileThatCannotBeCreatedGivesTheTranslatedError)
{
    EXPECT_EQ(VornHeapSave(heap, L"no-such-folder\\x.image"), VORN_E_PATH_NOT_FOUND);
    EXPECT_EQ(VornGetLastError(), VORN_E_PATH_NOT_FOUND);
    EXPECT_EQ(VornHeapSave(heap, nullptr), VORN_E_PATH_NOT_FOUND);
    EXPECT_EQ(VornHeapCheck(heap), VORN_OK);
}

TEST_F(HeapFile, AHeapWhoseSizeDoesNotFitIn32BitsIsNotSaved)
{
    Write64(area.Data(), 8, 0x100000000);
    EXPECT_EQ(VornHeapSave(heap, fileName.c_str()), VORN_E_NOT_APPLIED);
    EXPECT_EQ(VornGetLastError(), VORN_E_NOT_APPLIED);
    EXPECT_EQ(GetFileAttributesW(fileName.c_str()), INVALID_FILE_ATTRIBUTES);
    Write64(area.Data(), 8, 4096);
}

namespace {

BOOL WINAPI WriteHalf(HANDLE file, const void* bytes, DWORD count, DWORD* written, OVERLAPPED* overlapped)
{
    return WriteFile(file, bytes, count / 2, written, overlapped);
}

DWORD bytesUntilShort = 0;
BOOL WINAPI ReadShort(HANDLE file, void* bytes, DWORD count, DWORD* read, OVERLAPPED* overlapped)
{
    const DWORD take = count < bytesUntilShort ? count : bytesUntilShort;
    bytesUntilShort -= take;
    return ReadFile(file, bytes, take, read, overlapped);
}

}  // namespace

TEST_F(HeapFile, AWriteThatIsCutShortIsReported)
{
    ImportRedirect redirect("WriteFile", WriteHalf);
    ASSERT_TRUE(redirect.Found());
    EXPECT_EQ(VornHeapSave(heap, fileName.c_str()), VORN_E_WRITE);
    EXPECT_EQ(VornGetLastError(), VORN_E_WRITE);
}

TEST_F(HeapFile, AReadThatIsCutShortIsReported)
{
    ASSERT_EQ(VornHeapSave(heap, fileName.c_str()), VORN_OK);
    ImportRedirect redirect("ReadFile", ReadShort);
    ASSERT_TRUE(redirect.Found());
    for (DWORD bytes : {0u, 135u, 136u, 4095u}) {
        bytesUntilShort = bytes;
        EXPECT_EQ(VornHeapLoad(heap, fileName.c_str()), VORN_E_READ) << bytes;
        EXPECT_EQ(Read32(area.Data(), 36), 0u);
    }
}

namespace {

BOOL WINAPI SizeWithOneMoreInTheHighHalf(HANDLE file, LARGE_INTEGER* size)
{
    size->QuadPart = (LONGLONG{1} << 32) + GetFileSize(file, nullptr);
    return TRUE;
}

}  // namespace

TEST_F(HeapFile, OfAFileOf4GiBAndMoreOnlyTheLowHalfOfTheSizeCounts)
{
    const uint64_t block = VornHeapAlloc(heap, 100);
    const std::vector<uint8_t> before = Bytes();
    ASSERT_EQ(VornHeapSave(heap, fileName.c_str()), VORN_OK);
    ASSERT_EQ(VornHeapFree(heap, block), VORN_OK);
    PatchedFunction size(L"kernel32.dll", "GetFileSizeEx", &SizeWithOneMoreInTheHighHalf);
    ASSERT_TRUE(size.Found());
    EXPECT_EQ(VornHeapLoad(heap, fileName.c_str()), VORN_OK);
    EXPECT_EQ(Bytes(), before);
}

TEST_F(HeapFile, EveryFailureIsReportedAndLeavesNoHandleOrLockBehind)
{
    VornHeapAlloc(heap, 100);
    ASSERT_EQ(VornHeapSave(heap, fileName.c_str()), VORN_OK);
    ASSERT_EQ(VornHeapLoad(heap, fileName.c_str()), VORN_OK);
    LeakWatch watch;
    long failures = 0;
    const auto saveAndLoad = [&] {
        const VornStatus saved = VornHeapSave(heap, fileName.c_str());
        const VornStatus loaded = VornHeapLoad(heap, fileName.c_str());
        if (saved != VORN_OK || loaded != VORN_OK) ++failures;
        for (VornStatus status : {saved, loaded}) {
            EXPECT_TRUE(status == VORN_OK || status == VORN_E_NO_MEMORY || status == VORN_E_WRITE ||
                        status == VORN_E_READ || status == VORN_E_NOT_PERMITTED || status == VORN_E_BAD_IMAGE)
                << status;
        }
    };
    FailEachCallInTurn(kAllocations, saveAndLoad);
    FailEachCallInTurn({"CreateFileW", kInvalidHandle, ERROR_ACCESS_DENIED}, saveAndLoad);
    FailEachCallInTurn({"WriteFile", 0, kGenericFailure}, saveAndLoad);
    ASSERT_EQ(VornHeapSave(heap, fileName.c_str()), VORN_OK);
    FailEachCallInTurn({"ReadFile", 0, kGenericFailure}, saveAndLoad);
    EXPECT_GE(failures, 6);
    EXPECT_EQ(watch.Leaks(), "");
    EXPECT_EQ(Read32(area.Data(), 36), 0u);
    EXPECT_EQ(VornHeapSave(heap, fileName.c_str()), VORN_OK);
    EXPECT_EQ(VornHeapLoad(heap, fileName.c_str()), VORN_OK);
}
