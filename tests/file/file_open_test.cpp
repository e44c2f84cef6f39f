#include "file/temp_folder.h"
#include "support/failing_call.h"
#include "support/leak_watch.h"

#include <gtest/gtest.h>

using namespace vorn_test;

namespace {

class FileOpen : public FileFixture {};
class FileClose : public FileFixture {};
class FileDelete : public FileFixture {};

// What CreateFileW was asked for last.
struct CreateFileRequest {
    const wchar_t* name;
    DWORD rights, sharing, disposition, flags;
    SECURITY_ATTRIBUTES* security;
    HANDLE templateFile;
};
CreateFileRequest request;
DWORD createFileError = ERROR_FILE_NOT_FOUND;

HANDLE WINAPI RefuseAndRemember(LPCWSTR name, DWORD rights, DWORD sharing, SECURITY_ATTRIBUTES* security,
                                DWORD disposition, DWORD flags, HANDLE templateFile)
{
    request = {name, rights, sharing, disposition, flags, security, templateFile};
    SetLastError(createFileError);
    return INVALID_HANDLE_VALUE;
}

decltype(&CreateFileW) originalCreateFile;
HANDLE lastOpened;

HANDLE WINAPI OpenAndRemember(LPCWSTR name, DWORD rights, DWORD sharing, SECURITY_ATTRIBUTES* security,
                              DWORD disposition, DWORD flags, HANDLE templateFile)
{
    return lastOpened = originalCreateFile(name, rights, sharing, security, disposition, flags, templateFile);
}

bool IsOpenHandle(HANDLE handle)
{
    DWORD flags = 0;
    return GetHandleInformation(handle, &flags) != FALSE;
}

volatile int* volatile nowhere = nullptr;

BOOL WINAPI FaultOnClose(HANDLE)
{
    *nowhere = 1;
    return TRUE;
}

}  // namespace

TEST_F(FileOpen, CreateAlwaysMakesAMissingFile)
{
    VornFile* file = Open(L"new", VORN_FILE_CREATE_ALWAYS);
    EXPECT_EQ(VornFileGetSize(file), 0u);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
    EXPECT_TRUE(IsThere(Path(L"new")));
}

TEST_F(FileOpen, CreateAlwaysCutsAnExistingFile)
{
    VornFile* file = (StoreBytes(Path(L"old"), "text"), Open(L"old", VORN_FILE_CREATE_ALWAYS));
    EXPECT_EQ(VornGetLastError(), VORN_OK);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
    EXPECT_EQ(LoadBytes(Path(L"old")), "");
}

TEST_F(FileOpen, CreateNewMakesAMissingFile)
{
    VornFile* file = Open(L"new", VORN_FILE_CREATE_NEW);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
    EXPECT_TRUE(IsThere(Path(L"new")));
}

TEST_F(FileOpen, CreateNewRefusesAnExistingFileAndLeavesItAlone)
{
    StoreBytes(Path(L"old"), "text");
    EXPECT_EQ(VornFileCreate(Path(L"old").c_str(), VORN_FILE_CREATE_NEW, VORN_FILE_ACCESS_WRITE, VORN_TRUE,
                             nullptr, nullptr),
              nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_E_EXISTS);
    EXPECT_EQ(LoadBytes(Path(L"old")), "text");
}

TEST_F(FileOpen, OpenAlwaysMakesAMissingFileAndKeepsAnExistingOne)
{
    EXPECT_EQ(VornFileClose(Open(L"new", VORN_FILE_OPEN_ALWAYS)), VORN_OK);
    EXPECT_EQ(VornGetLastError(), VORN_OK);
    EXPECT_TRUE(IsThere(Path(L"new")));
    StoreBytes(Path(L"old"), "text");
    VornFile* file = Open(L"old", VORN_FILE_OPEN_ALWAYS);
    EXPECT_EQ(VornGetLastError(), VORN_OK);
    EXPECT_EQ(VornFileGetPos(file), 0u);
    EXPECT_EQ(VornFileGetSize(file), 4u);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileOpen, OpenExistingKeepsTheContentsAndStartsAtTheirBeginning)
{
    VornFile* file = OpenWith(L"old", "text");
    EXPECT_EQ(VornFileGetPos(file), 0u);
    EXPECT_EQ(VornFileGetSize(file), 4u);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileOpen, ModesForExistingFilesRefuseAMissingOne)
{
    for (VornFileOpenMode mode :
         {VORN_FILE_OPEN_EXISTING, VORN_FILE_APPEND_EXISTING, VORN_FILE_TRUNCATE_EXISTING})
    {
        EXPECT_EQ(VornFileCreate(Path(L"missing").c_str(), mode, VORN_FILE_ACCESS_WRITE, VORN_TRUE, nullptr,
                                 nullptr),
                  nullptr);
        EXPECT_EQ(VornGetLastError(), VORN_E_NOT_FOUND) << mode;
        EXPECT_FALSE(IsThere(Path(L"missing")));
    }
}

TEST_F(FileOpen, EveryModeRefusesAMissingDirectoryOnThePath)
{
    for (VornFileOpenMode mode = 0; mode <= VORN_FILE_TRUNCATE_EXISTING; ++mode) {
        EXPECT_EQ(VornFileCreate(Path(L"no\\file").c_str(), mode, VORN_FILE_ACCESS_WRITE, VORN_TRUE, nullptr,
                                 nullptr),
                  nullptr);
        EXPECT_EQ(VornGetLastError(), VORN_E_PATH_NOT_FOUND) << mode;
    }
}

TEST_F(FileOpen, BothAppendingModesWriteBehindTheOldContents)
{
    for (VornFileOpenMode mode : {VORN_FILE_APPEND_ALWAYS, VORN_FILE_APPEND_EXISTING}) {
        StoreBytes(Path(L"log"), "old ");
        VornFile* file = Open(L"log", mode, VORN_FILE_ACCESS_WRITE);
        EXPECT_EQ(VornGetLastError(), VORN_OK);
        uint32_t written = 0;
        EXPECT_EQ(VornFileWrite(file, "new", 3, &written), VORN_OK);
        EXPECT_EQ(VornFileGetPos(file), 7u);
        EXPECT_EQ(VornFileClose(file), VORN_OK);
        EXPECT_EQ(LoadBytes(Path(L"log")), "old new");
    }
}

TEST_F(FileOpen, AppendAlwaysMakesAMissingFile)
{
    VornFile* file = Open(L"new", VORN_FILE_APPEND_ALWAYS);
    EXPECT_EQ(VornFileGetPos(file), 0u);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
    EXPECT_TRUE(IsThere(Path(L"new")));
}

TEST_F(FileOpen, TruncateExistingCutsTheFile)
{
    StoreBytes(Path(L"old"), "text");
    VornFile* file = Open(L"old", VORN_FILE_TRUNCATE_EXISTING, VORN_FILE_ACCESS_READ_WRITE);
    EXPECT_EQ(VornFileGetSize(file), 0u);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileOpen, RefusesAModeOutOfRangeWithoutTouchingTheDisk)
{
    for (VornFileOpenMode mode : {7u, 8u, 0xFFFFFFFFu}) {
        VornSetLastError(kUntouched);
        EXPECT_EQ(
            VornFileCreate(Path(L"new").c_str(), mode, VORN_FILE_ACCESS_WRITE, VORN_TRUE, nullptr, nullptr),
            nullptr);
        EXPECT_EQ(VornGetLastError(), VORN_E_INVALID_ARG);
    }
    EXPECT_FALSE(IsThere(Path(L"new")));
}

TEST_F(FileOpen, RefusesAnAccessModeOutOfRangeWithoutTouchingTheDisk)
{
    for (VornFileAccessMode access : {4u, 5u, 0xFFFFFFFFu}) {
        VornSetLastError(kUntouched);
        EXPECT_EQ(VornFileCreate(Path(L"new").c_str(), VORN_FILE_CREATE_ALWAYS, access, VORN_TRUE, nullptr,
                                 nullptr),
                  nullptr);
        EXPECT_EQ(VornGetLastError(), VORN_E_INVALID_ARG);
    }
    EXPECT_FALSE(IsThere(Path(L"new")));
}

TEST_F(FileOpen, ANullOrEmptyNameIsAPathThatIsNotFound)
{
    EXPECT_EQ(
        VornFileCreate(nullptr, VORN_FILE_CREATE_ALWAYS, VORN_FILE_ACCESS_WRITE, VORN_TRUE, nullptr, nullptr),
        nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_E_PATH_NOT_FOUND);
    EXPECT_EQ(
        VornFileCreate(L"", VORN_FILE_CREATE_ALWAYS, VORN_FILE_ACCESS_WRITE, VORN_TRUE, nullptr, nullptr),
        nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_E_PATH_NOT_FOUND);
}

TEST_F(FileOpen, AMalformedNameIsInvalid)
{
    EXPECT_EQ(VornFileCreate(Path(L"a<b>c").c_str(), VORN_FILE_CREATE_ALWAYS, VORN_FILE_ACCESS_WRITE,
                             VORN_TRUE, nullptr, nullptr),
              nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_E_INVALID_NAME);
}

TEST_F(FileOpen, ADirectoryIsNotPermitted)
{
    EXPECT_EQ(VornFileCreate(folder.Path().c_str(), VORN_FILE_OPEN_EXISTING, VORN_FILE_ACCESS_READ, VORN_TRUE,
                             nullptr, nullptr),
              nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_E_NOT_PERMITTED);
}

TEST_F(FileOpen, WithoutSharingASecondOpenerIsKeptOut)
{
    StoreBytes(Path(L"one"), "text");
    VornFile* file = VornFileCreate(Path(L"one").c_str(), VORN_FILE_OPEN_EXISTING, VORN_FILE_ACCESS_READ,
                                    VORN_FALSE, nullptr, nullptr);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(VornFileCreate(Path(L"one").c_str(), VORN_FILE_OPEN_EXISTING, VORN_FILE_ACCESS_READ, VORN_TRUE,
                             nullptr, nullptr),
              nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_E_SHARING);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileOpen, WithSharingASecondOpenerReadsAndWritesToo)
{
    VornFile* first = OpenWith(L"both", "text");
    VornFile* second = Open(L"both");
    uint32_t count = 0;
    EXPECT_EQ(VornFileWrite(first, "TE", 2, &count), VORN_OK);
    char text[5] = {};
    EXPECT_EQ(VornFileRead(second, text, 4, &count), VORN_OK);
    EXPECT_STREQ(text, "TExt");
    EXPECT_EQ(VornFileClose(first), VORN_OK);
    EXPECT_EQ(VornFileClose(second), VORN_OK);
}

TEST_F(FileOpen, AccessNoneCanAskButNeitherReadNorWrite)
{
    VornFile* file = OpenWith(L"asked", "text", VORN_FILE_ACCESS_NONE);
    uint32_t count = 0;
    char byte = 0;
    EXPECT_EQ(VornFileGetSize(file), 4u);
    EXPECT_EQ(VornFileRead(file, &byte, 1, &count), VORN_E_READ);
    EXPECT_EQ(VornFileWrite(file, &byte, 1, &count), VORN_E_WRITE);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileOpen, ReadAccessCannotWriteAndWriteAccessCannotRead)
{
    StoreBytes(Path(L"file"), "text");
    uint32_t count = 0;
    char byte = 0;
    VornFile* reader = Open(L"file", VORN_FILE_OPEN_EXISTING, VORN_FILE_ACCESS_READ);
    EXPECT_EQ(VornFileRead(reader, &byte, 1, &count), VORN_OK);
    EXPECT_EQ(VornFileWrite(reader, &byte, 1, &count), VORN_E_WRITE);
    EXPECT_EQ(VornFileClose(reader), VORN_OK);
    VornFile* writer = Open(L"file", VORN_FILE_OPEN_EXISTING, VORN_FILE_ACCESS_WRITE);
    EXPECT_EQ(VornFileWrite(writer, &byte, 1, &count), VORN_OK);
    EXPECT_EQ(VornFileRead(writer, &byte, 1, &count), VORN_E_READ);
    EXPECT_EQ(VornFileClose(writer), VORN_OK);
}

TEST_F(FileOpen, AsksTheSystemForWhatModeAccessAndSharingSay)
{
    const DWORD dispositions[] = {CREATE_ALWAYS, CREATE_NEW,    OPEN_ALWAYS,      OPEN_EXISTING,
                                  OPEN_ALWAYS,   OPEN_EXISTING, TRUNCATE_EXISTING};
    const DWORD rights[] = {0, GENERIC_READ, GENERIC_WRITE, GENERIC_READ | GENERIC_WRITE};
    ImportRedirect redirect("CreateFileW", &RefuseAndRemember);
    for (uint32_t mode = 0; mode < 7; ++mode) {
        for (uint32_t access = 0; access < 4; ++access) {
            for (uint32_t share = 0; share < 2; ++share) {
                EXPECT_EQ(VornFileCreate(L"as given/..\\x", mode, access, static_cast<VBool>(share), nullptr,
                                         nullptr),
                          nullptr);
                EXPECT_STREQ(request.name, L"as given/..\\x");
                EXPECT_EQ(request.disposition, dispositions[mode]);
                EXPECT_EQ(request.rights, rights[access]);
                EXPECT_EQ(request.sharing, share == 0 ? 0u : DWORD{FILE_SHARE_READ | FILE_SHARE_WRITE});
                EXPECT_EQ(request.flags, DWORD{FILE_ATTRIBUTE_NORMAL});
                EXPECT_EQ(request.security, nullptr);
                EXPECT_EQ(request.templateFile, nullptr);
            }
        }
    }
}

TEST_F(FileOpen, HandsTheSecurityAttributesAndTheTemplateFileOn)
{
    SECURITY_ATTRIBUTES attributes = {sizeof(attributes), nullptr, FALSE};
    const VornSecurityDescriptor security = {&attributes};
    int templateFile = 0;
    ImportRedirect redirect("CreateFileW", &RefuseAndRemember);
    VornFileCreate(L"x", VORN_FILE_CREATE_ALWAYS, VORN_FILE_ACCESS_READ, VORN_FALSE, &security,
                   &templateFile);
    EXPECT_EQ(request.security, &attributes);
    EXPECT_EQ(request.templateFile, &templateFile);
    const VornSecurityDescriptor empty = {nullptr};
    VornFileCreate(L"x", VORN_FILE_CREATE_ALWAYS, VORN_FILE_ACCESS_READ, VORN_FALSE, &empty, nullptr);
    EXPECT_EQ(request.security, nullptr);
}

TEST_F(FileOpen, TranslatesEverySystemError)
{
    const struct {
        DWORD error;
        VornStatus status;
    } expected[] = {{2, 131},  {3, 132},   {5, 118},   {32, 134}, {80, 125},
                    {87, 102}, {123, 128}, {145, 135}, {183, 99}, {1117, 99}};
    ImportRedirect redirect("CreateFileW", &RefuseAndRemember);
    for (const auto& pair : expected) {
        createFileError = pair.error;
        EXPECT_EQ(VornFileCreate(L"x", VORN_FILE_OPEN_EXISTING, VORN_FILE_ACCESS_READ, VORN_FALSE, nullptr,
                                 nullptr),
                  nullptr);
        EXPECT_EQ(VornGetLastError(), pair.status) << pair.error;
    }
}

TEST_F(FileOpen, WithoutMemoryForTheRecordTheSystemHandleStaysOpen)
{
    StoreBytes(Path(L"file"), "text");
    ImportRedirect redirect("CreateFileW", &OpenAndRemember);
    originalCreateFile = redirect.Original<decltype(&CreateFileW)>();
    int refusals = 0;
    for (const FaultPoint& allocation : kAllocations) {
        FailingCall fail(allocation);
        lastOpened = nullptr;
        VornFile* file = VornFileCreate(Path(L"file").c_str(), VORN_FILE_OPEN_EXISTING, VORN_FILE_ACCESS_READ,
                                        VORN_TRUE, nullptr, nullptr);
        if (fail.Failures() == 0) {
            EXPECT_EQ(VornFileClose(file), VORN_OK);
            continue;
        }
        ++refusals;
        EXPECT_EQ(file, nullptr);
        EXPECT_EQ(VornGetLastError(), VORN_E_NO_MEMORY);
        EXPECT_TRUE(IsOpenHandle(lastOpened));
        CloseHandle(lastOpened);
    }
    EXPECT_EQ(refusals, 1);
}

// The registry asks for memory only when it grows: files are opened until it does.
TEST_F(FileOpen, WithoutMemoryForTheRegistryEverythingIsUndone)
{
    StoreBytes(Path(L"file"), "text");
    ImportRedirect redirect("CreateFileW", &OpenAndRemember);
    originalCreateFile = redirect.Original<decltype(&CreateFileW)>();
    std::vector<VornFile*> files;
    int refusals = 0;
    while (refusals == 0 && files.size() < 200) {
        LeakWatch watch;
        FailingCall fail(kCalloc, 2);
        VornFile* file = VornFileCreate(Path(L"file").c_str(), VORN_FILE_OPEN_EXISTING, VORN_FILE_ACCESS_READ,
                                        VORN_TRUE, nullptr, nullptr);
        if (fail.Failures() == 0) {
            files.push_back(file);
            continue;
        }
        ++refusals;
        EXPECT_EQ(file, nullptr);
        EXPECT_EQ(VornGetLastError(), VORN_E_NO_MEMORY);
        EXPECT_FALSE(IsOpenHandle(lastOpened));
        EXPECT_EQ(watch.Leaks(), "");
    }
    EXPECT_EQ(refusals, 1);
    for (VornFile* file : files) EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileOpen, GivesTheSystemHandle)
{
    ImportRedirect redirect("CreateFileW", &OpenAndRemember);
    originalCreateFile = redirect.Original<decltype(&CreateFileW)>();
    VornFile* file = OpenWith(L"file", "text");
    void* native = nullptr;
    EXPECT_EQ(VornFileGetNativeHandle(file, &native), VORN_OK);
    EXPECT_EQ(native, lastOpened);
    EXPECT_EQ(VornFileGetNativeHandle(file, nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
    native = nullptr;
    EXPECT_EQ(VornFileGetNativeHandle(file, &native), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornFileGetNativeHandle(nullptr, &native), VORN_E_INVALID_ARG);
    EXPECT_EQ(native, nullptr);
}

TEST_F(FileClose, ClosesTheSystemHandleAndLeavesNothing)
{
    VornFileClose(OpenWith(L"file", "text"));
    LeakWatch watch;
    for (int i = 0; i < 20; ++i) {
        VornFile* file = Open(L"file");
        void* native = nullptr;
        EXPECT_EQ(VornFileGetNativeHandle(file, &native), VORN_OK);
        EXPECT_EQ(VornFileClose(file), VORN_OK);
        EXPECT_FALSE(IsOpenHandle(native));
    }
    EXPECT_EQ(watch.Leaks(), "");
}

TEST_F(FileClose, RefusesTheSecondClose)
{
    VornFile* file = OpenWith(L"file", "text");
    EXPECT_EQ(VornFileClose(file), VORN_OK);
    EXPECT_EQ(VornFileClose(file), VORN_E_INVALID_ARG);
}

TEST_F(FileClose, EveryFunctionRefusesAClosedAndAForeignHandle)
{
    VornFile* closed = OpenWith(L"file", "text");
    EXPECT_EQ(VornFileClose(closed), VORN_OK);
    uint64_t memory[8] = {};
    uint8_t byte = 0;
    uint32_t count = 55;
    for (VornFile* file : {closed, reinterpret_cast<VornFile*>(memory), static_cast<VornFile*>(nullptr)}) {
        EXPECT_EQ(VornFileClose(file), VORN_E_INVALID_ARG);
        EXPECT_EQ(VornFileFlush(file), VORN_E_INVALID_ARG);
        EXPECT_EQ(VornFileRead(file, &byte, 1, &count), VORN_E_INVALID_ARG);
        EXPECT_EQ(VornFileRead(file, &byte, 0, &count), VORN_E_INVALID_ARG);
        EXPECT_EQ(VornFileWrite(file, &byte, 1, &count), VORN_E_INVALID_ARG);
        EXPECT_EQ(VornFileWrite(file, &byte, 0, &count), VORN_E_INVALID_ARG);
        EXPECT_EQ(VornFileReadLine(file, &byte, 1, &count), VORN_E_INVALID_ARG);
        EXPECT_EQ(VornFileSetSize(file, 0), VORN_E_INVALID_ARG);
        EXPECT_EQ(VornFileIsEof(file), VORN_FALSE);
        VornSetLastError(kUntouched);
        EXPECT_EQ(VornFileSeek(file, 0, VORN_FILE_SEEK_BEGIN), VORN_FILE_FAILED);
        EXPECT_EQ(VornFileGetPos(file), VORN_FILE_FAILED);
        EXPECT_EQ(VornGetLastError(), kUntouched);
        EXPECT_EQ(VornFileGetSize(file), VORN_FILE_FAILED);
        EXPECT_EQ(VornGetLastError(), VORN_E_INVALID_ARG);
    }
    EXPECT_EQ(count, 55u);
    EXPECT_EQ(byte, 0);
}

TEST_F(FileClose, AFileIsNoHeapAndAHeapIsNoFile)
{
    alignas(16) static uint8_t area[4096];
    VornHeap* heap = VornHeapCreateLocal(area, sizeof(area), 0);
    ASSERT_NE(heap, nullptr);
    VornFile* file = OpenWith(L"file", "text");
    EXPECT_EQ(VornHeapDestroy(reinterpret_cast<VornHeap*>(file)), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornHeapAlloc(reinterpret_cast<VornHeap*>(file), 1), 0u);
    EXPECT_EQ(VornGetLastError(), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornFileClose(reinterpret_cast<VornFile*>(heap)), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornFileSetSize(reinterpret_cast<VornFile*>(heap), 0), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
    EXPECT_EQ(VornHeapDestroy(heap), VORN_OK);
}

TEST_F(FileClose, DoesNotMindWhatTheSystemSaysToTheClosing)
{
    VornFile* file = OpenWith(L"file", "text");
    void* native = nullptr;
    EXPECT_EQ(VornFileGetNativeHandle(file, &native), VORN_OK);
    {
        FailingCall fail(kCloseHandle);
        EXPECT_EQ(VornFileClose(file), VORN_OK);
        EXPECT_EQ(fail.Failures(), 1);
    }
    EXPECT_EQ(VornFileClose(file), VORN_E_INVALID_ARG);
    CloseHandle(native);
}

TEST_F(FileClose, AMachineFaultRaisedByTheClosingLeavesTheHandleOpen)
{
    VornFile* file = OpenWith(L"file", "text");
    {
        ImportRedirect redirect("CloseHandle", &FaultOnClose);
        EXPECT_EQ(VornFileClose(file), VORN_E_INVALID_ARG);
    }
    EXPECT_EQ(VornFileGetSize(file), 4u);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileDelete, RemovesTheFile)
{
    StoreBytes(Path(L"file"), "text");
    EXPECT_EQ(VornFileDelete(Path(L"file").c_str()), VORN_OK);
    EXPECT_FALSE(IsThere(Path(L"file")));
    EXPECT_EQ(VornGetLastError(), kUntouched);
}

TEST_F(FileDelete, ReportsWhyItCannot)
{
    EXPECT_EQ(VornFileDelete(Path(L"missing").c_str()), VORN_E_NOT_FOUND);
    EXPECT_EQ(VornFileDelete(Path(L"no\\file").c_str()), VORN_E_PATH_NOT_FOUND);
    EXPECT_EQ(VornFileDelete(nullptr), VORN_E_PATH_NOT_FOUND);
    EXPECT_EQ(VornFileDelete(folder.Path().c_str()), VORN_E_NOT_PERMITTED);
    VornFile* open = OpenWith(L"open", "text");
    EXPECT_EQ(VornFileDelete(Path(L"open").c_str()), VORN_E_SHARING);
    EXPECT_EQ(VornFileClose(open), VORN_OK);
    EXPECT_EQ(VornFileDelete(Path(L"open").c_str()), VORN_OK);
}
