#include <vorn/vorn.hpp>

#include "file/temp_folder.h"
#include "support/failing_call.h"
#include "support/leak_watch.h"

#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <thread>

using namespace vorn_test;

namespace {

class FileMapRegion : public FileFixture {};
class FileUnmapRegion : public FileFixture {};
class FileRegionsAndClose : public FileFixture {};
class FileRegionLock : public FileFixture {};

constexpr uint64_t kGranularity = 65536;
constexpr FaultPoint kOpenFileMapping = {"OpenFileMappingW", 0, kGenericFailure};
constexpr FaultPoint kCreateFileMapping = {"CreateFileMappingW", 0, kGenericFailure};
constexpr FaultPoint kMapViewOfFile = {"MapViewOfFileEx", 0, kGenericFailure};
constexpr FaultPoint kUnmapViewOfFile = {"UnmapViewOfFile", 0, kGenericFailure};

// Three pages' worth of granularity and a bit, each byte telling where it lies.
std::string Pattern()
{
    std::string bytes(3 * kGranularity + 100, 0);
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i / kGranularity * 50 + i % 31);
    return bytes;
}

bool IsMapped(const void* address)
{
    MEMORY_BASIC_INFORMATION information = {};
    VirtualQuery(address, &information, sizeof(information));
    return information.State == MEM_COMMIT && information.Type == MEM_MAPPED;
}

// What the system was asked for last.
struct MappingRequest {
    HANDLE native;
    SECURITY_ATTRIBUTES* security;
    DWORD protection;
    uint64_t size;
    std::wstring name;
} mappingRequest;
struct ViewRequest {
    DWORD access;
    uint64_t offset;
    size_t length;
    void* address;
} viewRequest;

HANDLE WINAPI RememberMapping(HANDLE native, SECURITY_ATTRIBUTES* security, DWORD protection, DWORD high,
                              DWORD low, LPCWSTR name)
{
    mappingRequest = {native, security, protection, uint64_t{high} << 32 | low, name == nullptr ? L"" : name};
    return CreateEventW(nullptr, TRUE, FALSE, nullptr);  // something to close
}

void* WINAPI RememberView(HANDLE, DWORD access, DWORD high, DWORD low, SIZE_T length, void* address)
{
    viewRequest = {access, uint64_t{high} << 32 | low, length, address};
    return nullptr;
}

decltype(&UnmapViewOfFile) originalUnmapViewOfFile;
void* mappedMeanwhile;

// Between the unmapping and its return another mapping takes the address that has become free.
BOOL WINAPI UnmapAndMapThereAnew(LPCVOID view)
{
    const BOOL result = originalUnmapViewOfFile(view);
    mappedMeanwhile = VornFileMapRegion(nullptr, 0, kGranularity, nullptr, const_cast<void*>(view));
    return result;
}

// vorn::Mutex::Lock and Unlock, replaced by ones that throw at a chosen call and otherwise do their work
// through the C interface.
int callsUntilThrow;

VornMutex** HandleOf(void* mutex)
{
    return reinterpret_cast<VornMutex**>(static_cast<char*>(mutex) + sizeof(void*));
}

void LockOrThrow(void* self)
{
    if (--callsUntilThrow == 0) throw vorn::LockError("Mutex lock failed.");
    VornMutexLock(HandleOf(self));
}

void UnlockAndThrow(void* self)
{
    VornMutexUnlock(HandleOf(self));
    if (--callsUntilThrow == 0) throw vorn::LockError("Mutex unlock failed.");
}

constexpr char kLockSymbol[] = "_ZN4vorn5Mutex4LockEv";
constexpr char kUnlockSymbol[] = "_ZN4vorn5Mutex6UnlockEv";

VORN_CHILD(SharesNamedMemory)
{
    VornInitialize();
    auto* view = static_cast<char*>(VornFileMapRegion(nullptr, 0, 4096, arguments[0].c_str(), nullptr));
    if (view == nullptr) return 1;
    if (std::strcmp(view, "from the parent") != 0) return 2;
    std::strcpy(view + 100, "from the child");
    if (VornFileUnmapRegion(view) != VORN_OK) return 3;
    VornTerminate();
    return 0;
}

}  // namespace

TEST_F(FileMapRegion, WithoutALengthMapsTheWholeFile)
{
    const std::string pattern = Pattern();
    VornFile* file = OpenWith(L"file", pattern);
    void* view = VornFileMapRegion(file, 0, 0, nullptr, nullptr);
    ASSERT_NE(view, nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_OK);
    EXPECT_EQ(std::memcmp(view, pattern.data(), pattern.size()), 0);
    EXPECT_EQ(VornFileUnmapRegion(view), VORN_OK);
    EXPECT_FALSE(IsMapped(view));
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileMapRegion, WithoutALengthMapsTheFileFromTheOffsetOn)
{
    const std::string pattern = Pattern();
    VornFile* file = OpenWith(L"file", pattern);
    void* view = VornFileMapRegion(file, 2 * kGranularity, 0, nullptr, nullptr);
    ASSERT_NE(view, nullptr);
    EXPECT_EQ(std::memcmp(view, pattern.data() + 2 * kGranularity, kGranularity + 100), 0);
    EXPECT_EQ(VornFileUnmapRegion(view), VORN_OK);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileMapRegion, MapsAStretchInTheMiddle)
{
    const std::string pattern = Pattern();
    VornFile* file = OpenWith(L"file", pattern, VORN_FILE_ACCESS_READ);
    void* view = VornFileMapRegion(file, kGranularity, 500, nullptr, nullptr);
    ASSERT_NE(view, nullptr);
    EXPECT_EQ(std::memcmp(view, pattern.data() + kGranularity, 500), 0);
    EXPECT_EQ(VornFileUnmapRegion(view), VORN_OK);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileMapRegion, WritesThroughAViewOfAFileOpenedForBoth)
{
    VornFile* file = OpenWith(L"file", "some text");
    auto* view = static_cast<char*>(VornFileMapRegion(file, 0, 0, nullptr, nullptr));
    ASSERT_NE(view, nullptr);
    std::memcpy(view, "SOME", 4);
    EXPECT_EQ(VornFileUnmapRegion(view), VORN_OK);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
    EXPECT_EQ(LoadBytes(Path(L"file")), "SOME text");
}

TEST_F(FileMapRegion, OfAFileOpenedForReadingIsReadOnly)
{
    VornFile* file = OpenWith(L"file", "some text", VORN_FILE_ACCESS_READ);
    void* view = VornFileMapRegion(file, 0, 0, nullptr, nullptr);
    ASSERT_NE(view, nullptr);
    MEMORY_BASIC_INFORMATION information = {};
    VirtualQuery(view, &information, sizeof(information));
    EXPECT_EQ(information.Protect, DWORD{PAGE_READONLY});
    EXPECT_EQ(VornFileUnmapRegion(view), VORN_OK);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileMapRegion, AsksTheSystemForWhatFileAndLengthSay)
{
    VornFile* reading = OpenWith(L"file", std::string(1000, 'x'), VORN_FILE_ACCESS_READ);
    VornFile* both = Open(L"file");
    void* native = nullptr;
    ImportRedirect open(
        "OpenFileMappingW", +[](DWORD, BOOL, LPCWSTR) -> HANDLE { return nullptr; });
    ImportRedirect create("CreateFileMappingW", &RememberMapping);
    ImportRedirect map("MapViewOfFileEx", &RememberView);
    LeakWatch watch;

    EXPECT_EQ(VornFileMapRegion(reading, 3 * kGranularity, 0, nullptr, nullptr), nullptr);
    EXPECT_EQ(VornFileGetNativeHandle(reading, &native), VORN_OK);
    EXPECT_EQ(mappingRequest.native, native);
    EXPECT_EQ(mappingRequest.security, nullptr);
    EXPECT_EQ(mappingRequest.protection, DWORD{PAGE_READONLY});
    EXPECT_EQ(mappingRequest.size, 1000u);
    EXPECT_EQ(viewRequest.access, DWORD{FILE_MAP_READ});
    EXPECT_EQ(viewRequest.offset, 3 * kGranularity);
    EXPECT_EQ(viewRequest.length, 1000 - 3 * kGranularity);  // below zero, as the subtraction gives it

    EXPECT_EQ(VornFileMapRegion(both, 7, 50, nullptr, native), nullptr);
    EXPECT_EQ(mappingRequest.protection, DWORD{PAGE_READWRITE});
    EXPECT_EQ(mappingRequest.size, 1000u);
    EXPECT_EQ(viewRequest.access, DWORD{FILE_MAP_WRITE});
    EXPECT_EQ(viewRequest.offset, 7u);
    EXPECT_EQ(viewRequest.length, 50u);
    EXPECT_EQ(viewRequest.address, native);

    EXPECT_EQ(VornFileMapRegion(nullptr, 0x123456789ABC, 0x500000007, L"a name", nullptr), nullptr);
    EXPECT_EQ(mappingRequest.native, INVALID_HANDLE_VALUE);
    EXPECT_EQ(mappingRequest.protection, DWORD{PAGE_READWRITE});
    EXPECT_EQ(mappingRequest.size, 0x500000007u);
    EXPECT_EQ(mappingRequest.name, L"a name");
    EXPECT_EQ(viewRequest.access, DWORD{FILE_MAP_WRITE});
    EXPECT_EQ(viewRequest.offset, 0x123456789ABCu);
    EXPECT_EQ(viewRequest.length, 0x500000007u);
    EXPECT_EQ(VornGetLastError(), VORN_E_MAPPING);
    EXPECT_EQ(watch.Leaks(), "");

    EXPECT_EQ(VornFileClose(reading), VORN_OK);
    EXPECT_EQ(VornFileClose(both), VORN_OK);
}

TEST_F(FileMapRegion, RefusesAFileAndANameTogether)
{
    VornFile* file = OpenWith(L"file", "some text");
    EXPECT_EQ(VornFileMapRegion(file, 0, 0, UniqueName(L"both").c_str(), nullptr), nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileMapRegion, RefusesNeitherFileNorLengthAndUnknownHandles)
{
    EXPECT_EQ(VornFileMapRegion(nullptr, 0, 0, nullptr, nullptr), nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_E_INVALID_ARG);
    VornSetLastError(kUntouched);
    EXPECT_EQ(VornFileMapRegion(nullptr, 0, 0, UniqueName(L"empty").c_str(), nullptr), nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_E_INVALID_ARG);
    VornFile* file = OpenWith(L"file", "some text");
    EXPECT_EQ(VornFileClose(file), VORN_OK);
    for (uint64_t length : {0, 5}) {
        VornSetLastError(kUntouched);
        EXPECT_EQ(VornFileMapRegion(file, 0, length, nullptr, nullptr), nullptr);
        EXPECT_EQ(VornGetLastError(), VORN_E_INVALID_ARG);
    }
}

TEST_F(FileMapRegion, RefusesAnEmptyFile)
{
    VornFile* file = OpenWith(L"file", "");
    EXPECT_EQ(VornFileMapRegion(file, 0, 0, nullptr, nullptr), nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_E_INVALID_ARG);
    VornSetLastError(kUntouched);
    EXPECT_EQ(VornFileMapRegion(file, 0, 10, nullptr, nullptr), nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileMapRegion, RefusesAFileThatCannotBeRead)
{
    for (VornFileAccessMode access : {VORN_FILE_ACCESS_NONE, VORN_FILE_ACCESS_WRITE}) {
        VornFile* file = OpenWith(L"file", "some text", access);
        VornSetLastError(kUntouched);
        EXPECT_EQ(VornFileMapRegion(file, 0, 0, nullptr, nullptr), nullptr);
        EXPECT_EQ(VornGetLastError(), VORN_E_INVALID_ARG);
        EXPECT_EQ(VornFileClose(file), VORN_OK);
    }
}

TEST_F(FileMapRegion, RefusesAnOffsetOffTheGranularityAndAStretchBehindTheFile)
{
    VornFile* file = OpenWith(L"file", Pattern());
    LeakWatch watch;
    EXPECT_EQ(VornFileMapRegion(file, 100, 0, nullptr, nullptr), nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_E_MAPPING);
    VornSetLastError(kUntouched);
    EXPECT_EQ(VornFileMapRegion(file, 0, 10 * kGranularity, nullptr, nullptr), nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_E_MAPPING);
    VornSetLastError(kUntouched);
    EXPECT_EQ(VornFileMapRegion(file, 20 * kGranularity, 0, nullptr, nullptr), nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_E_MAPPING);
    EXPECT_EQ(watch.Leaks(), "");
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileMapRegion, MapsAtAFreeAddressAndRefusesOneThatIsTaken)
{
    VornFile* file = OpenWith(L"file", Pattern());
    void* first = VornFileMapRegion(file, 0, 0, nullptr, nullptr);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(VornFileMapRegion(file, 0, 0, nullptr, first), nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_E_MAPPING);
    EXPECT_EQ(VornFileUnmapRegion(first), VORN_OK);
    EXPECT_EQ(VornFileMapRegion(file, kGranularity, 0, nullptr, first), first);
    EXPECT_EQ(VornGetLastError(), VORN_OK);
    EXPECT_EQ(VornFileUnmapRegion(first), VORN_OK);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileMapRegion, OfPagingMemoryIsZeroedAndWritable)
{
    auto* view = static_cast<char*>(VornFileMapRegion(nullptr, 0, 5000, nullptr, nullptr));
    ASSERT_NE(view, nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_OK);
    EXPECT_EQ(view[0], 0);
    EXPECT_EQ(view[4999], 0);
    view[4999] = 'x';
    EXPECT_EQ(VornFileUnmapRegion(view), VORN_OK);
}

TEST_F(FileMapRegion, OfOneNameTwiceSharesTheMemory)
{
    const std::wstring name = UniqueName(L"shared \u00E9\u4E2D");
    auto* first = static_cast<char*>(VornFileMapRegion(nullptr, 0, 4096, name.c_str(), nullptr));
    auto* second = static_cast<char*>(VornFileMapRegion(nullptr, 0, 4096, name.c_str(), nullptr));
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(first, second);
    std::strcpy(first, "seen through both");
    EXPECT_STREQ(second, "seen through both");
    EXPECT_EQ(VornFileUnmapRegion(first), VORN_OK);
    EXPECT_STREQ(second, "seen through both");
    EXPECT_EQ(VornFileUnmapRegion(second), VORN_OK);
    auto* anew = static_cast<char*>(VornFileMapRegion(nullptr, 0, 4096, name.c_str(), nullptr));
    ASSERT_NE(anew, nullptr);
    EXPECT_STREQ(anew, "");
    EXPECT_EQ(VornFileUnmapRegion(anew), VORN_OK);
}

TEST_F(FileMapRegion, OfOneNameInTwoProcessesSharesTheMemory)
{
    const std::wstring name = UniqueName(L"shared");
    auto* view = static_cast<char*>(VornFileMapRegion(nullptr, 0, 4096, name.c_str(), nullptr));
    ASSERT_NE(view, nullptr);
    std::strcpy(view, "from the parent");
    ChildProcess child("SharesNamedMemory", {name});
    EXPECT_EQ(child.Wait(), 0u);
    EXPECT_STREQ(view + 100, "from the child");
    EXPECT_EQ(VornFileUnmapRegion(view), VORN_OK);
}

TEST_F(FileMapRegion, OfANameRefusesMoreThanTheExistingMemoryHas)
{
    const std::wstring name = UniqueName(L"small");
    void* view = VornFileMapRegion(nullptr, 0, 4096, name.c_str(), nullptr);
    ASSERT_NE(view, nullptr);
    EXPECT_EQ(VornFileMapRegion(nullptr, 0, 1 << 20, name.c_str(), nullptr), nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_E_MAPPING);
    EXPECT_EQ(VornFileUnmapRegion(view), VORN_OK);
}

TEST_F(FileMapRegion, ANameThatBelongsToAnotherKindOfObjectIsAMappingError)
{
    const std::wstring name = UniqueName(L"event");
    Event event(name.c_str());
    EXPECT_EQ(VornFileMapRegion(nullptr, 0, 4096, name.c_str(), nullptr), nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_E_MAPPING);
}

TEST_F(FileMapRegion, UndoesEverythingWhenAnyStepFails)
{
    VornFile* file = OpenWith(L"file", Pattern());
    const std::wstring name = UniqueName(L"faults");
    VornFileUnmapRegion(VornFileMapRegion(file, 0, 0, nullptr, nullptr));
    LeakWatch watch;
    long delivered = 0;
    for (const FaultPoint& point : {kCreateFileMapping, kMapViewOfFile}) {
        delivered += FailEachCallInTurn(point, [&] {
            VornSetLastError(kUntouched);
            void* view = VornFileMapRegion(file, 0, 0, nullptr, nullptr);
            EXPECT_EQ(VornGetLastError(), view == nullptr ? VORN_E_MAPPING : VORN_OK);
            if (view != nullptr) {
                EXPECT_EQ(VornFileUnmapRegion(view), VORN_OK);
            }
            view = VornFileMapRegion(nullptr, 0, 4096, name.c_str(), nullptr);
            EXPECT_EQ(VornGetLastError(), view == nullptr ? VORN_E_MAPPING : VORN_OK);
            if (view != nullptr) {
                EXPECT_EQ(VornFileUnmapRegion(view), VORN_OK);
            }
        });
        EXPECT_EQ(watch.Leaks(), "");
    }
    EXPECT_EQ(delivered, 4);
    EXPECT_EQ(FailEachCallInTurn(kAllocations,
                                 [&] {
                                     VornSetLastError(kUntouched);
                                     void* view = VornFileMapRegion(file, 0, 0, nullptr, nullptr);
                                     EXPECT_EQ(VornGetLastError(),
                                               view == nullptr ? VORN_E_NO_MEMORY : VORN_OK);
                                     if (view != nullptr) {
                                         EXPECT_EQ(VornFileUnmapRegion(view), VORN_OK);
                                     }
                                 }),
              1);
    EXPECT_EQ(watch.Leaks(), "");
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileMapRegion, JoinsAnExistingNameOnlyWhereItCanBeOpened)
{
    const std::wstring name = UniqueName(L"joined");
    FailingCall fail(kOpenFileMapping);
    void* view = VornFileMapRegion(nullptr, 0, 4096, name.c_str(), nullptr);
    EXPECT_NE(view, nullptr);
    EXPECT_EQ(fail.Failures(), 1);
    EXPECT_EQ(VornFileUnmapRegion(view), VORN_OK);
}

TEST_F(FileUnmapRegion, RefusesWhatIsNotTheStartOfAView)
{
    VornFile* file = OpenWith(L"file", Pattern());
    auto* view = static_cast<char*>(VornFileMapRegion(file, 0, 0, nullptr, nullptr));
    ASSERT_NE(view, nullptr);
    EXPECT_EQ(VornFileUnmapRegion(view + 1), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornFileUnmapRegion(view + kGranularity), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornFileUnmapRegion(nullptr), VORN_E_INVALID_ARG);
    int local = 0;
    EXPECT_EQ(VornFileUnmapRegion(&local), VORN_E_INVALID_ARG);
    EXPECT_TRUE(IsMapped(view));
    EXPECT_EQ(VornFileUnmapRegion(view), VORN_OK);
    EXPECT_EQ(VornFileUnmapRegion(view), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileUnmapRegion, DoesNotMindWhatTheSystemSays)
{
    void* view = VornFileMapRegion(nullptr, 0, 4096, nullptr, nullptr);
    {
        FailingCall fail(kUnmapViewOfFile);
        EXPECT_EQ(VornFileUnmapRegion(view), VORN_OK);
        EXPECT_EQ(fail.Failures(), 1);
    }
    EXPECT_EQ(VornFileUnmapRegion(view), VORN_E_INVALID_ARG);
    UnmapViewOfFile(view);
}

TEST_F(FileUnmapRegion, DoesNotLoseAMappingThatGetsTheSameAddressMeanwhile)
{
    void* view = VornFileMapRegion(nullptr, 0, kGranularity, nullptr, nullptr);
    ASSERT_NE(view, nullptr);
    {
        ImportRedirect redirect("UnmapViewOfFile", &UnmapAndMapThereAnew);
        originalUnmapViewOfFile = redirect.Original<decltype(&UnmapViewOfFile)>();
        EXPECT_EQ(VornFileUnmapRegion(view), VORN_OK);
    }
    ASSERT_EQ(mappedMeanwhile, view);
    EXPECT_TRUE(IsMapped(view));
    EXPECT_EQ(VornFileUnmapRegion(view), VORN_OK);
    EXPECT_EQ(VornFileUnmapRegion(view), VORN_E_INVALID_ARG);
}

TEST_F(FileRegionsAndClose, ClosingReleasesEveryRegion)
{
    VornFile* file = OpenWith(L"file", Pattern());
    EXPECT_EQ(VornFileClose(file), VORN_OK);
    LeakWatch watch;
    file = Open(L"file");
    void* first = VornFileMapRegion(file, 0, 0, nullptr, nullptr);
    void* second = VornFileMapRegion(file, kGranularity, 0, nullptr, nullptr);
    ASSERT_TRUE(IsMapped(first));
    ASSERT_TRUE(IsMapped(second));
    EXPECT_EQ(VornFileClose(file), VORN_OK);
    EXPECT_FALSE(IsMapped(first));
    EXPECT_FALSE(IsMapped(second));
    EXPECT_EQ(VornFileUnmapRegion(first), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornFileUnmapRegion(second), VORN_E_INVALID_ARG);
    EXPECT_EQ(watch.Leaks(), "");
}

TEST_F(FileRegionsAndClose, ClosingLeavesOtherFilesAndPagingMemoryAlone)
{
    VornFile* file = OpenWith(L"file", Pattern());
    VornFile* other = Open(L"file");
    void* mine = VornFileMapRegion(file, 0, 0, nullptr, nullptr);
    void* others = VornFileMapRegion(other, 0, 0, nullptr, nullptr);
    void* paging = VornFileMapRegion(nullptr, 0, 4096, nullptr, nullptr);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
    EXPECT_FALSE(IsMapped(mine));
    EXPECT_TRUE(IsMapped(others));
    EXPECT_TRUE(IsMapped(paging));
    EXPECT_EQ(VornFileUnmapRegion(others), VORN_OK);
    EXPECT_EQ(VornFileClose(other), VORN_OK);
    EXPECT_TRUE(IsMapped(paging));
    EXPECT_EQ(VornFileUnmapRegion(paging), VORN_OK);
}

TEST_F(FileRegionsAndClose, RandomSequencesReleaseExactlyWhatTheyShould)
{
    const unsigned seed = 815;
    std::mt19937 random(seed);
    StoreBytes(Path(L"file"), std::string(4 * kGranularity, 'x'));
    {  // The registry's table grows and stays.
        std::vector<VornFile*> many;
        for (int i = 0; i < 200; ++i) many.push_back(Open(L"file"));
        for (VornFile* file : many) VornFileClose(file);
    }
    LeakWatch watch;
    struct OpenFile {
        VornFile* file;
        std::vector<void*> views;
    };
    std::vector<OpenFile> files;
    std::vector<void*> paging;
    for (int step = 0; step < 1500; ++step) {
        const unsigned dice = random() % 100;
        if (files.empty() || dice < 8) {
            files.push_back({Open(L"file"), {}});
        } else if (dice < 50) {
            OpenFile& file = files[random() % files.size()];
            void* view = VornFileMapRegion(file.file, random() % 4 * kGranularity, 0, nullptr, nullptr);
            ASSERT_NE(view, nullptr) << "seed " << seed << ", step " << step;
            file.views.push_back(view);
        } else if (dice < 55) {
            paging.push_back(VornFileMapRegion(nullptr, 0, 100, nullptr, nullptr));
            ASSERT_NE(paging.back(), nullptr);
        } else if (dice < 93) {
            OpenFile& file = files[random() % files.size()];
            std::vector<void*>& views = !paging.empty() && dice < 60 ? paging : file.views;
            if (views.empty()) continue;
            const size_t which = random() % views.size();
            ASSERT_EQ(VornFileUnmapRegion(views[which]), VORN_OK) << "seed " << seed << ", step " << step;
            ASSERT_FALSE(IsMapped(views[which]));
            views.erase(views.begin() + which);
        } else {
            const size_t which = random() % files.size();
            ASSERT_EQ(VornFileClose(files[which].file), VORN_OK);
            for (void* view : files[which].views) {
                ASSERT_FALSE(IsMapped(view));
                ASSERT_EQ(VornFileUnmapRegion(view), VORN_E_INVALID_ARG);
            }
            files.erase(files.begin() + which);
        }
    }
    for (OpenFile& file : files) EXPECT_EQ(VornFileClose(file.file), VORN_OK);
    for (void* view : paging) EXPECT_EQ(VornFileUnmapRegion(view), VORN_OK);
    EXPECT_EQ(watch.Leaks(), "");
}

// The locks taken on the way: mapping validates the file, asks for its size (which validates again), then
// takes the region lock. Unmapping takes it first; closing validates before.
TEST_F(FileRegionLock, AFailureToLockPassesOutOfMappingAndUndoesIt)
{
    VornFile* file = OpenWith(L"file", Pattern());
    VornFileUnmapRegion(VornFileMapRegion(file, 0, 0, nullptr, nullptr));
    LeakWatch watch;
    {
        PatchedFunction lock(L"vorn_1_0.dll", kLockSymbol, &LockOrThrow);
        ASSERT_TRUE(lock.Found());
        callsUntilThrow = 3;
        EXPECT_THROW(VornFileMapRegion(file, 0, 0, nullptr, nullptr), vorn::LockError);
    }
    EXPECT_EQ(watch.Leaks(), "");
    void* view = VornFileMapRegion(file, 0, 0, nullptr, nullptr);
    EXPECT_NE(view, nullptr);
    EXPECT_EQ(VornFileUnmapRegion(view), VORN_OK);
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileRegionLock, AFailureToLockPassesOutOfUnmappingAndKeepsTheRegion)
{
    void* view = VornFileMapRegion(nullptr, 0, 4096, nullptr, nullptr);
    {
        PatchedFunction lock(L"vorn_1_0.dll", kLockSymbol, &LockOrThrow);
        callsUntilThrow = 1;
        try {
            VornFileUnmapRegion(view);
            ADD_FAILURE() << "nothing was thrown";
        } catch (const vorn::LockError& error) {
            EXPECT_STREQ(error.What(), "Mutex lock failed.");
        }
    }
    EXPECT_TRUE(IsMapped(view));
    EXPECT_EQ(VornFileUnmapRegion(view), VORN_OK);
}

TEST_F(FileRegionLock, AFailureToLockPassesOutOfClosingWhichMayBeRepeated)
{
    VornFile* file = OpenWith(L"file", Pattern());
    void* first = VornFileMapRegion(file, 0, 0, nullptr, nullptr);
    void* second = VornFileMapRegion(file, 0, 0, nullptr, nullptr);
    {
        PatchedFunction lock(L"vorn_1_0.dll", kLockSymbol, &LockOrThrow);
        callsUntilThrow = 3;
        EXPECT_THROW(VornFileClose(file), vorn::LockError);
    }
    EXPECT_FALSE(IsMapped(second));
    EXPECT_TRUE(IsMapped(first));
    EXPECT_EQ(VornFileGetSize(file), Pattern().size());
    EXPECT_EQ(VornFileClose(file), VORN_OK);
    EXPECT_FALSE(IsMapped(first));
    EXPECT_EQ(VornFileClose(file), VORN_E_INVALID_ARG);
}

TEST_F(FileRegionLock, AClosingWithoutRegionsDoesNotTakeIt)
{
    VornFile* file = OpenWith(L"file", "text");
    PatchedFunction lock(L"vorn_1_0.dll", kLockSymbol, &LockOrThrow);
    callsUntilThrow = 1000;
    EXPECT_EQ(VornFileClose(file), VORN_OK);
    EXPECT_EQ(callsUntilThrow, 998);  // the registry's, twice
}

TEST_F(FileRegionLock, AFailureToUnlockPassesOutButTheRegionIsReleased)
{
    void* view = VornFileMapRegion(nullptr, 0, 4096, nullptr, nullptr);
    {
        PatchedFunction unlock(L"vorn_1_0.dll", kUnlockSymbol, &UnlockAndThrow);
        ASSERT_TRUE(unlock.Found());
        callsUntilThrow = 1;
        try {
            VornFileUnmapRegion(view);
            ADD_FAILURE() << "nothing was thrown";
        } catch (const vorn::LockError& error) {
            EXPECT_STREQ(error.What(), "Mutex unlock failed.");
        }
    }
    EXPECT_FALSE(IsMapped(view));
    EXPECT_EQ(VornFileUnmapRegion(view), VORN_E_INVALID_ARG);
}

TEST_F(FileRegionLock, AFailureToUnlockAfterMappingLeavesTheRegionToItsFile)
{
    VornFile* file = OpenWith(L"file", Pattern());
    {
        PatchedFunction unlock(L"vorn_1_0.dll", kUnlockSymbol, &UnlockAndThrow);
        callsUntilThrow = 3;
        EXPECT_THROW(VornFileMapRegion(file, 0, 0, nullptr, nullptr), vorn::LockError);
    }
    EXPECT_EQ(VornFileClose(file), VORN_OK);
}

TEST_F(FileRegionLock, ThreadsMapUnmapAndCloseSideBySide)
{
    StoreBytes(Path(L"file"), std::string(2 * kGranularity, 'x'));
    struct Work {
        std::wstring path;
        std::atomic<int> failures{0};
    } work = {Path(L"file")};
    const auto body = [](Work& shared) {
        for (int round = 0; round < 60; ++round) {
            VornFile* file = VornFileCreate(shared.path.c_str(), VORN_FILE_OPEN_EXISTING,
                                            VORN_FILE_ACCESS_READ_WRITE, VORN_TRUE, nullptr, nullptr);
            void* a = VornFileMapRegion(file, 0, 0, nullptr, nullptr);
            void* b = VornFileMapRegion(nullptr, 0, 4096, nullptr, nullptr);
            void* c = VornFileMapRegion(file, kGranularity, 0, nullptr, nullptr);
            if (a == nullptr || b == nullptr || c == nullptr) ++shared.failures;
            if (VornFileUnmapRegion(b) != VORN_OK) ++shared.failures;
            if (round % 2 == 0 && VornFileUnmapRegion(a) != VORN_OK) ++shared.failures;
            if (VornFileClose(file) != VORN_OK) ++shared.failures;
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) threads.emplace_back(body, std::ref(work));
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(work.failures.load(), 0);
}
