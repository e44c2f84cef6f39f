// The program vorn-heap, run as its users run it.

#include <vorn/vorn.h>

#include "core/win32.h"

#include "heap/layout_checker.h"
#include "support/child_process.h"
#include "support/guard_buffer.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

using namespace heap_test;
using namespace vorn_test;

namespace {

struct ToolResult {
    DWORD exitCode;
    std::string output;  // standard output and standard error
};

std::string ReadWholeFile(const std::wstring& name)
{
    std::string text;
    HANDLE file =
        CreateFileW(name.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE) return text;
    text.resize(GetFileSize(file, nullptr));
    DWORD read = 0;
    ReadFile(file, &text[0], static_cast<DWORD>(text.size()), &read, nullptr);
    CloseHandle(file);
    return text;
}

std::wstring ProgramBesideThisOne(const wchar_t* name)
{
    wchar_t path[MAX_PATH];
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::wstring program = path;
    return program.substr(0, program.find_last_of(L"\\/") + 1) + name;
}

ToolResult RunTool(const std::wstring& arguments)
{
    const std::wstring outputName = UniqueName(L"tool") + L".txt";
    SECURITY_ATTRIBUTES inherit = {sizeof inherit, nullptr, TRUE};
    HANDLE output =
        CreateFileW(outputName.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherit, CREATE_ALWAYS, 0, nullptr);
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = output;
    startup.hStdError = output;
    PROCESS_INFORMATION process = {};
    std::wstring commandLine = L"\"" + ProgramBesideThisOne(L"vorn-heap.exe") + L"\" " + arguments;
    ToolResult result = {kChildNotStarted, ""};
    if (CreateProcessW(nullptr, &commandLine[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                       &process)) {
        if (WaitBounded(process.hProcess)) {
            GetExitCodeProcess(process.hProcess, &result.exitCode);
        } else {
            TerminateProcess(process.hProcess, kChildTimedOut);
            result.exitCode = kChildTimedOut;
        }
        CloseHandle(process.hProcess);
        CloseHandle(process.hThread);
    }
    CloseHandle(output);
    result.output = ReadWholeFile(outputName);
    DeleteFileW(outputName.c_str());
    return result;
}

bool Has(const std::string& text, const char* part)
{
    return text.find(part) != std::string::npos;
}

class HeapTool : public testing::Test {
protected:
    HeapTool() : area(8192), image(UniqueName(L"tool") + L".image"), picture(UniqueName(L"tool") + L".svg")
    {
        VornInitialize();
        heap = VornHeapCreateLocal(area.Data(), area.Size(), 0);
        first = VornHeapAlloc(heap, 100);
        std::memcpy(area.Data() + first, "the first block", 15);
        middle = VornHeapAlloc(heap, 1000);
        last = VornHeapAlloc(heap, 200);
        std::memset(area.Data() + last, 0, 200);
        VornHeapFree(heap, middle);
    }
    ~HeapTool() override
    {
        VornHeapDestroy(heap);
        DeleteFileW(image.c_str());
        DeleteFileW(picture.c_str());
        VornTerminate();
    }

    void Save() { ASSERT_EQ(VornHeapSave(heap, image.c_str()), VORN_OK); }

    GuardBuffer area;
    std::wstring image;
    std::wstring picture;
    VornHeap* heap;
    uint64_t first, middle, last;
};

}  // namespace

TEST_F(HeapTool, ASoundImageGivesExitCode0AndTheWholeReport)
{
    Save();
    const ToolResult result = RunTool(image);
    EXPECT_EQ(result.exitCode, 0u) << result.output;
    EXPECT_TRUE(Has(result.output, "total size                8192 bytes")) << result.output;
    EXPECT_TRUE(Has(result.output, "allocated blocks             2")) << result.output;
    EXPECT_TRUE(
        Has(result.output, "allocated              2 blocks,          372 bytes, 300 of them asked for"))
        << result.output;
    EXPECT_TRUE(Has(result.output, "free                   2 blocks,")) << result.output;
    EXPECT_TRUE(Has(result.output, "fragmentation      13.6 %")) << result.output;
    EXPECT_TRUE(Has(result.output, "sound: The structure is sound.")) << result.output;
    EXPECT_TRUE(Has(result.output, "used  the first block")) << result.output;
    EXPECT_TRUE(Has(result.output, "Map, 4 bytes to a character")) << result.output;
}

TEST_F(HeapTool, ADamagedImageGivesExitCode1WithOffsetAndReason)
{
    area.Data()[first + 100] ^= 0xFF;
    Save();
    const ToolResult result = RunTool(image + L" --svg " + picture);
    EXPECT_EQ(result.exitCode, 1u) << result.output;
    const std::string expected = "DAMAGED at offset " + std::to_string(first - 32) +
                                 ": The marker after the requested bytes is overwritten.";
    EXPECT_TRUE(Has(result.output, expected.c_str())) << result.output;
    EXPECT_TRUE(Has(result.output, "!")) << result.output;
    EXPECT_TRUE(Has(ReadWholeFile(picture), "#d62728"));
    EXPECT_TRUE(Has(ReadWholeFile(picture), "Damaged at offset"));
    area.Data()[first + 100] ^= 0xFF;
}

TEST_F(HeapTool, CountersThatDifferFromTheBlocksAreNotedButAreNoDamage)
{
    Save();
    EXPECT_FALSE(Has(RunTool(image).output, "note:"));
    Write64(area.Data(), 24, Read64(area.Data(), 24) + 4);
    Save();
    const ToolResult result = RunTool(image);
    EXPECT_EQ(result.exitCode, 0u);
    EXPECT_TRUE(Has(result.output, "note: the header's counters differ")) << result.output;
}

TEST_F(HeapTool, APictureShowsTheBlocks)
{
    Save();
    const ToolResult result = RunTool(image + L" --no-blocks --no-map --svg " + picture);
    EXPECT_EQ(result.exitCode, 0u) << result.output;
    EXPECT_FALSE(Has(result.output, "Blocks"));
    EXPECT_FALSE(Has(result.output, "Map"));
    const std::string svg = ReadWholeFile(picture);
    EXPECT_EQ(svg.compare(0, 4, "<svg"), 0);
    EXPECT_TRUE(Has(svg, "fill=\"#3b74b9\""));  // allocated
    EXPECT_TRUE(Has(svg, "fill=\"#6fbf73\""));  // the largest free block
    EXPECT_TRUE(Has(svg, "</svg>"));
}

TEST_F(HeapTool, EveryTruncationStepOfAnImageIsToldFromASoundOne)
{
    Save();
    const std::string bytes = ReadWholeFile(image);
    for (size_t size : {size_t{0}, size_t{7}, size_t{135}, size_t{136}, size_t{200}, bytes.size() - 1}) {
        HANDLE file = CreateFileW(image.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
        DWORD written = 0;
        WriteFile(file, bytes.data(), static_cast<DWORD>(size), &written, nullptr);
        CloseHandle(file);
        EXPECT_EQ(RunTool(image).exitCode, size < 136 ? 2u : 1u) << size;
    }
}

TEST_F(HeapTool, WrongUsageAndUnreadableFilesGiveExitCode2)
{
    EXPECT_EQ(RunTool(L"").exitCode, 2u);
    EXPECT_EQ(RunTool(L"--no-such-option x").exitCode, 2u);
    EXPECT_EQ(RunTool(L"--width 3 x").exitCode, 2u);
    EXPECT_EQ(RunTool(L"a b").exitCode, 2u);
    EXPECT_EQ(RunTool(L"a --shared b").exitCode, 2u);
    const ToolResult missing = RunTool(L"no-such-file.image");
    EXPECT_EQ(missing.exitCode, 2u);
    EXPECT_TRUE(Has(missing.output, "cannot be opened")) << missing.output;
    Save();
    EXPECT_EQ(RunTool(image + L" --svg no-such-folder\\x.svg").exitCode, 2u);
    const ToolResult help = RunTool(L"--help");
    EXPECT_EQ(help.exitCode, 0u);
    EXPECT_TRUE(Has(help.output, "usage: vorn-heap"));
}

TEST_F(HeapTool, ALiveSharedHeapIsReadUnderItsLockAndLeftAsItWas)
{
    const std::wstring name = UniqueName(L"live");
    VornHeap* shared = VornHeapCreateShared(65536, name.c_str(), 40, nullptr);
    ASSERT_EQ(VornGetLastError(), VORN_OK);
    const uint8_t* base = static_cast<const uint8_t*>(VornHeapGetBasePtr(shared));
    const std::vector<uint8_t> before(base, base + 65536);
    const ToolResult result = RunTool(L"--shared " + name);
    EXPECT_EQ(result.exitCode, 0u) << result.output;
    EXPECT_TRUE(Has(result.output, "total size               65536 bytes")) << result.output;
    EXPECT_TRUE(Has(result.output, "attach count                 1")) << result.output;
    EXPECT_EQ(std::vector<uint8_t>(base, base + 65536), before);

    HANDLE lock =
        OpenSemaphoreW(SYNCHRONIZE | SEMAPHORE_MODIFY_STATE, FALSE, (L"Global\\" + name + L"_SEM").c_str());
    ASSERT_TRUE(WaitBounded(lock));
    const ToolResult locked = RunTool(L"--shared " + name + L" --timeout 100");
    EXPECT_EQ(locked.exitCode, 2u);
    EXPECT_TRUE(Has(locked.output, "not free within 100 ms")) << locked.output;
    ReleaseSemaphore(lock, 1, nullptr);
    CloseHandle(lock);
    EXPECT_EQ(VornHeapDestroy(shared), VORN_OK);
    EXPECT_EQ(RunTool(L"--shared " + name).exitCode, 2u);
}
