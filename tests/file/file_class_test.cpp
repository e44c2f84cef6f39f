#include <vorn/vorn.hpp>

#include "file/temp_folder.h"
#include "support/failing_call.h"
#include "support/leak_watch.h"

#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <type_traits>

using namespace vorn_test;

namespace {

class FileClass : public FileFixture {
protected:
    // A file with these bytes, opened.
    std::unique_ptr<vorn::File> Make(const std::string& bytes,
                                     VornFileAccessMode access = VORN_FILE_ACCESS_READ_WRITE)
    {
        StoreBytes(Path(L"f"), bytes);
        return std::make_unique<vorn::File>(vorn::UniStr(Path(L"f").c_str()), VORN_FILE_OPEN_EXISTING, access,
                                            VORN_TRUE, nullptr, nullptr);
    }
};

// Which function a slot of an object's table of virtual functions holds. The first two slots are the
// destructor's two forms.
const void* Slot(const vorn::File& file, int index)
{
    return (*reinterpret_cast<const void* const* const*>(&file))[index];
}

}  // namespace

static_assert(std::is_polymorphic_v<vorn::File> && std::has_virtual_destructor_v<vorn::File>);
static_assert(std::is_base_of_v<vorn::NonCopyable, vorn::File>);
static_assert(!std::is_copy_constructible_v<vorn::File> && !std::is_copy_assignable_v<vorn::File>);
static_assert(sizeof(vorn::File) == 2 * sizeof(void*));

TEST_F(FileClass, TheConstructorThrowsTheStatusAsABareUnsignedInt)
{
    const vorn::UniStr missing(Path(L"missing").c_str());
    try {
        vorn::File file(missing, VORN_FILE_OPEN_EXISTING, VORN_FILE_ACCESS_READ, VORN_TRUE, nullptr, nullptr);
        FAIL() << "it opened";
    } catch (unsigned int status) {
        EXPECT_EQ(status, 131u);
    }
    try {
        vorn::File file(missing, 7, VORN_FILE_ACCESS_READ, VORN_TRUE, nullptr, nullptr);
        FAIL() << "it opened";
    } catch (unsigned int status) {
        EXPECT_EQ(status, 102u);
    }
    EXPECT_FALSE(IsThere(Path(L"missing")));
}

TEST_F(FileClass, TheSlotsKeepTheirOrder)
{
    using vorn::File;
    const auto file = Make("x");
    File probe(vorn::UniStr(Path(L"f").c_str()), VORN_FILE_OPEN_EXISTING, VORN_FILE_ACCESS_READ, VORN_TRUE,
               nullptr, nullptr);
    // A pointer to a virtual member holds one more than the slot's offset in bytes.
    const auto slotOf = [](auto member) {
        uintptr_t words[2] = {};
        static_assert(sizeof(member) == sizeof(words));
        std::memcpy(words, &member, sizeof(words));
        return static_cast<int>((words[0] - 1) / sizeof(void*));
    };
    const int slots[] = {slotOf(&File::Close),           slotOf(&File::Flush),     slotOf(&File::Read),
                         slotOf(&File::ReadLine),        slotOf(&File::Write),     slotOf(&File::Seek),
                         slotOf(&File::GetPos),          slotOf(&File::GetSize),   slotOf(&File::SetSize),
                         slotOf(&File::GetTime),         slotOf(&File::SetTime),   slotOf(&File::IsEof),
                         slotOf(&File::GetNativeHandle), slotOf(&File::MapRegion), slotOf(&File::UnmapRegion),
                         slotOf(&File::GetName)};
    for (int i = 0; i < 16; ++i) {
        EXPECT_EQ(slots[i], i + 2) << "behind the destructor";
        EXPECT_NE(Slot(probe, i + 2), nullptr);
    }
}

TEST_F(FileClass, ReadsWritesAndSeeks)
{
    const auto file = Make("0123456789");
    char bytes[20] = {};
    unsigned int count = 0;
    EXPECT_EQ(file->GetSize(), 10u);
    EXPECT_EQ(file->Seek(4, VORN_FILE_SEEK_BEGIN), 4u);
    EXPECT_EQ(file->Read(bytes, 3, &count), 0u);
    EXPECT_EQ(count, 3u);
    EXPECT_EQ(std::string(bytes, 3), "456");
    EXPECT_EQ(file->GetPos(), 7u);
    EXPECT_EQ(file->IsEof(), VORN_FALSE);
    EXPECT_EQ(file->Read(bytes, 20, &count), 0u);
    EXPECT_EQ(count, 3u);
    EXPECT_EQ(file->IsEof(), VORN_TRUE);
    EXPECT_EQ(file->Write("ab", 2, &count), 0u);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(file->Flush(), 0u);
    EXPECT_EQ(file->SetSize(11), 0u);
    EXPECT_EQ(file->Close(), 0u);
    EXPECT_EQ(LoadBytes(Path(L"f")), "0123456789a");
}

TEST_F(FileClass, ReadsLines)
{
    const auto file = Make("ab\r\ncd\n");
    unsigned char line[16];
    unsigned int length = 0;
    EXPECT_EQ(file->ReadLine(line, 16, &length), 0u);
    EXPECT_EQ(length, 3u);
    EXPECT_STREQ(reinterpret_cast<char*>(line), "ab");
    EXPECT_EQ(file->ReadLine(line, 16, &length), 0u);
    EXPECT_STREQ(reinterpret_cast<char*>(line), "cd");
}

TEST_F(FileClass, GetsAndSetsTimes)
{
    const auto file = Make("x");
    const VornTime time = {2020, 6, 0, 15, 10, 20, 30, 0};
    EXPECT_EQ(file->SetTime(&time, &time, nullptr), 0u);
    VornTime access = {}, modify = {}, create = {};
    EXPECT_EQ(file->GetTime(&access, &modify, &create), 0u);
    EXPECT_EQ(VornTimeCmp(&modify, &time, 0), 0);
    EXPECT_EQ(file->SetTime(nullptr, nullptr, &time), 102u);
}

TEST_F(FileClass, GivesTheNativeHandleAndTheName)
{
    const auto file = Make("abc");
    void* native = nullptr;
    EXPECT_EQ(file->GetNativeHandle(&native), 0u);
    EXPECT_EQ(GetFileSize(native, nullptr), 3u);
    EXPECT_EQ(file->GetNativeHandle(nullptr), 102u);
    vorn::UniStr name;
    EXPECT_EQ(file->GetName(name), 0u);
    EXPECT_EQ(name.S_Str(), Path(L"f"));
}

TEST_F(FileClass, TheNameIsACopyOfTheConstructorsArgument)
{
    StoreBytes(Path(L"f"), "x");
    vorn::UniStr given(Path(L"f").c_str());
    vorn::File file(given, VORN_FILE_OPEN_EXISTING, VORN_FILE_ACCESS_READ, VORN_TRUE, nullptr, nullptr);
    given = L"changed";
    vorn::UniStr name;
    EXPECT_EQ(file.GetName(name), 0u);
    EXPECT_EQ(name.S_Str(), Path(L"f"));
}

TEST_F(FileClass, MapsAndUnmapsItsRegions)
{
    const auto file = Make("mapped");
    auto* view = static_cast<char*>(file->MapRegion(0, 0, nullptr));
    ASSERT_NE(view, nullptr);
    EXPECT_EQ(std::string(view, 6), "mapped");
    EXPECT_EQ(file->UnmapRegion(view), 0u);
    EXPECT_EQ(file->UnmapRegion(view), 102u);
}

TEST_F(FileClass, CloseTwiceIsRefusedTheSecondTime)
{
    const auto file = Make("x");
    EXPECT_EQ(file->Close(), 0u);
    EXPECT_EQ(file->Close(), 102u);
}

TEST_F(FileClass, AClosedFileActsLikeAnUnknownHandle)
{
    const auto file = Make("x");
    ASSERT_EQ(file->Close(), 0u);
    char byte = 0;
    unsigned char line[4];
    unsigned int count = 0;
    const VornTime time = {2020, 6, 0, 15, 10, 20, 30, 0};
    void* native = nullptr;
    vorn::UniStr name(L"untouched");
    EXPECT_EQ(file->Flush(), 102u);
    EXPECT_EQ(file->Read(&byte, 1, &count), 102u);
    EXPECT_EQ(file->ReadLine(line, 4, &count), 102u);
    EXPECT_EQ(file->Write(&byte, 1, &count), 102u);
    EXPECT_EQ(file->Seek(0, VORN_FILE_SEEK_BEGIN), VORN_FILE_FAILED);
    EXPECT_EQ(file->GetPos(), VORN_FILE_FAILED);
    EXPECT_EQ(file->GetSize(), VORN_FILE_FAILED);
    EXPECT_EQ(VornGetLastError(), 102u);
    EXPECT_EQ(file->SetSize(1), 102u);
    EXPECT_EQ(file->GetTime(nullptr, nullptr, nullptr), 102u);
    EXPECT_EQ(file->SetTime(&time, &time, nullptr), 102u);
    EXPECT_EQ(file->IsEof(), VORN_FALSE);
    EXPECT_EQ(file->GetNativeHandle(&native), 102u);
    EXPECT_EQ(file->GetName(name), 102u);
    EXPECT_STREQ(name.S_Str(), L"untouched");
}

TEST_F(FileClass, AClosedFileMapsNothingWhateverTheLength)
{
    const auto file = Make("x");
    ASSERT_EQ(file->Close(), 0u);
    for (const unsigned long long length : {0ull, 1ull, 4096ull}) {
        VornSetLastError(VORN_OK);
        EXPECT_EQ(file->MapRegion(0, length, nullptr), nullptr);
        EXPECT_EQ(VornGetLastError(), 102u);
    }
}

TEST_F(FileClass, TheDestructorClosesTheFileAndItsRegions)
{
    LeakWatch watch;
    void* view = nullptr;
    {
        const auto file = Make("mapped");
        view = file->MapRegion(0, 0, nullptr);
        ASSERT_NE(view, nullptr);
    }
    EXPECT_EQ(VornFileUnmapRegion(view), VORN_E_INVALID_ARG);
    EXPECT_EQ(watch.Leaks(), "");
}

TEST_F(FileClass, AFileClosedBehindItsBackIsNotClosedTwice)
{
    auto file = Make("x");
    void* native = nullptr;
    ASSERT_EQ(file->GetNativeHandle(&native), 0u);
    EXPECT_EQ(file->Close(), 0u);
    file.reset();
    StoreBytes(Path(L"f"), "again");
    EXPECT_EQ(LoadBytes(Path(L"f")), "again");
}

namespace {

// The lock over all mapped regions is the third that closing a file with a region takes, and mapping too:
// both look the file up in its registry before.
int locksUntilThrow;

void LockOrThrow(void* mutex)
{
    if (--locksUntilThrow == 0) throw vorn::LockError("Mutex lock failed.");
    VornMutexLock(reinterpret_cast<VornMutex**>(static_cast<char*>(mutex) + sizeof(void*)));
}

}  // namespace

TEST_F(FileClass, AFailingLockPassesOutOfMappingAndUnmapping)
{
    const auto file = Make("mapped");
    void* view = file->MapRegion(0, 0, nullptr);
    ASSERT_NE(view, nullptr);
    {
        PatchedFunction lock(L"vorn_1_0.dll", "_ZN4vorn5Mutex4LockEv", &LockOrThrow);
        ASSERT_TRUE(lock.Found());
        locksUntilThrow = 3;
        EXPECT_THROW(file->MapRegion(0, 0, nullptr), vorn::LockError);
        locksUntilThrow = 1;
        EXPECT_THROW(file->UnmapRegion(view), vorn::LockError);
    }
    EXPECT_EQ(file->UnmapRegion(view), 0u);
}

TEST_F(FileClass, TheDestructorSwallowsAFailingLock)
{
    auto file = Make("mapped");
    void* native = nullptr;
    ASSERT_EQ(file->GetNativeHandle(&native), 0u);
    void* view = file->MapRegion(0, 0, nullptr);
    ASSERT_NE(view, nullptr);
    {
        PatchedFunction lock(L"vorn_1_0.dll", "_ZN4vorn5Mutex4LockEv", &LockOrThrow);
        locksUntilThrow = 2;
        EXPECT_NO_THROW(file.reset());
        EXPECT_LE(locksUntilThrow, 0) << "the lock did fail";
    }
    EXPECT_EQ(VornFileUnmapRegion(view), VORN_OK);
    CloseHandle(native);  // the library's handle on it is out of reach
}

TEST_F(FileClass, EachAllocationThatFailsLeaksNothing)
{
    StoreBytes(Path(L"f"), "x");
    const vorn::UniStr name(Path(L"f").c_str());
    {
        vorn::File warmUp(name, 3, 1, VORN_TRUE, nullptr, nullptr);
    }
    LeakWatch watch;
    long failures = 0;
    // The record behind the C handle is left out: its failure leaves the system's handle open by design.
    for (const FaultPoint& point : {kNew, kNewArray, kNewNothrow, kNewArrayNothrow}) {
        failures += FailEachCallInTurn(point, [&] {
            try {
                vorn::File file(name, 3, 1, VORN_TRUE, nullptr, nullptr);
                EXPECT_EQ(file.GetSize(), 1u);
            } catch (const std::bad_alloc&) {
            }
        });
    }
    EXPECT_GE(failures, 1);
    EXPECT_EQ(watch.Leaks(), "");
}
