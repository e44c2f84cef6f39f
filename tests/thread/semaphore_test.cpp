#include "support/failing_call.h"
#include "support/leak_watch.h"
#include "thread/sync_support.h"

#include <string>
#include <unicode/ucnv.h>

using namespace vorn_test;

namespace {

// The name under which the module imports a function of ICU.
#define NAME_OF(function) #function
#define IMPORT_NAME(function) NAME_OF(function)

std::string Narrow(const std::wstring& wide)
{
    std::string narrow;
    for (wchar_t unit : wide) narrow += static_cast<char>(unit);
    return narrow;
}

std::string FreshName(const wchar_t* stem)
{
    return Narrow(UniqueName(stem));
}

std::wstring Wide(const std::string& narrow)
{
    return std::wstring(narrow.begin(), narrow.end());
}

constexpr int32_t kCreateNew = VORN_SEMAPHORE_CREATE | VORN_SEMAPHORE_EXCLUSIVE;

class NamedSemaphore : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(VornInitialize(), VORN_OK); }
    void TearDown() override { VornTerminate(); }
};

}  // namespace

TEST(SemaphoreCreate, RefusesASharedOne)
{
    VornSemaphore* semaphore = nullptr;
    EXPECT_EQ(VornSemaphoreCreate(&semaphore, 0, 1), VORN_E_NOT_SUPPORTED);
    EXPECT_EQ(VornSemaphoreCreate(&semaphore, -1, 1), VORN_E_NOT_SUPPORTED);
    EXPECT_EQ(semaphore, nullptr);
}

TEST(SemaphoreCreate, RefusesAnyOtherSharedValueAndANullVariable)
{
    VornSemaphore* semaphore = nullptr;
    EXPECT_EQ(VornSemaphoreCreate(&semaphore, 0, 2), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornSemaphoreCreate(&semaphore, 0, 0xFFFFFFFF), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornSemaphoreCreate(nullptr, 0, 0), VORN_E_INVALID_ARG);
    EXPECT_EQ(semaphore, nullptr);
}

TEST(SemaphoreCreate, RefusesANegativeInitialCount)
{
    VornSemaphore* semaphore = nullptr;
    EXPECT_EQ(VornSemaphoreCreate(&semaphore, -1, 0), VORN_E_RANGE);
    EXPECT_EQ(VornSemaphoreCreate(&semaphore, INT32_MIN, 0), VORN_E_RANGE);
    EXPECT_EQ(semaphore, nullptr);
}

TEST(SemaphoreCreate, ReportsEachFailureAndLeavesNothingBehind)
{
    VornSemaphore* const untouched = reinterpret_cast<VornSemaphore*>(0x1234);
    VornSemaphore* semaphore = untouched;
    LeakWatch watch;
    {
        FailingCall fail(kCalloc);
        EXPECT_EQ(VornSemaphoreCreate(&semaphore, 0, 0), VORN_E_NO_MEMORY);
        EXPECT_EQ(fail.Failures(), 1);
    }
    {
        FailingCall fail(kCreateSemaphore);
        EXPECT_EQ(VornSemaphoreCreate(&semaphore, 0, 0), VORN_E_SYSTEM);
        EXPECT_EQ(fail.Failures(), 1);
    }
    EXPECT_EQ(semaphore, untouched);
    EXPECT_EQ(watch.Leaks(), "");
}

TEST(SemaphoreCount, GivesAsManyPermitsAsItWasMadeWith)
{
    VornSemaphore* semaphore = nullptr;
    ASSERT_EQ(VornSemaphoreCreate(&semaphore, 2, 0), VORN_OK);
    EXPECT_EQ(VornSemaphoreWait(&semaphore), VORN_OK);
    EXPECT_EQ(VornSemaphoreTryWait(&semaphore), VORN_OK);
    EXPECT_EQ(VornSemaphoreTryWait(&semaphore), VORN_E_BUSY);
    EXPECT_EQ(VornSemaphorePost(&semaphore), VORN_OK);
    EXPECT_EQ(VornSemaphoreTryWait(&semaphore), VORN_OK);
    EXPECT_EQ(VornSemaphoreTryWait(&semaphore), VORN_E_BUSY);
    EXPECT_EQ(VornSemaphoreDestroy(&semaphore), VORN_OK);
    EXPECT_EQ(semaphore, nullptr);
}

TEST(SemaphorePost, RefusesToPassTheLargestCount)
{
    VornSemaphore* semaphore = nullptr;
    ASSERT_EQ(VornSemaphoreCreate(&semaphore, 0x7FFFFFFF, 0), VORN_OK);
    EXPECT_EQ(VornSemaphorePost(&semaphore), VORN_E_RANGE);
    EXPECT_EQ(VornSemaphoreTryWait(&semaphore), VORN_OK);
    EXPECT_EQ(VornSemaphorePost(&semaphore), VORN_OK);
    EXPECT_EQ(VornSemaphorePost(&semaphore), VORN_E_RANGE);
    EXPECT_EQ(VornSemaphoreClose(&semaphore), VORN_OK);
}

TEST(SemaphorePost, ReportsAnyOtherFailureAsTheSystems)
{
    VornSemaphore* semaphore = nullptr;
    ASSERT_EQ(VornSemaphoreCreate(&semaphore, 0, 0), VORN_OK);
    {
        FailingCall fail(kReleaseSemaphore);
        EXPECT_EQ(VornSemaphorePost(&semaphore), VORN_E_SYSTEM);
    }
    EXPECT_EQ(VornSemaphoreTryWait(&semaphore), VORN_E_BUSY);
    EXPECT_EQ(VornSemaphoreClose(&semaphore), VORN_OK);
}

TEST(SemaphoreWait, ReportsAFailedWait)
{
    VornSemaphore* semaphore = nullptr;
    ASSERT_EQ(VornSemaphoreCreate(&semaphore, 1, 0), VORN_OK);
    {
        FailingCall fail(kWaitForMultipleObjects);
        EXPECT_EQ(VornSemaphoreWait(&semaphore), VORN_E_SYSTEM);
        EXPECT_EQ(fail.Failures(), 1);
    }
    {
        FailingCall fail(kWaitForSingleObject);
        EXPECT_EQ(VornSemaphoreTryWait(&semaphore), VORN_E_BUSY);
    }
    EXPECT_EQ(VornSemaphoreWait(&semaphore), VORN_OK);
    EXPECT_EQ(VornSemaphoreClose(&semaphore), VORN_OK);
}

TEST(SemaphoreWait, WaitsForAPost)
{
    VornSemaphore* semaphore = nullptr;
    ASSERT_EQ(VornSemaphoreCreate(&semaphore, 0, 0), VORN_OK);
    Event returned;
    LibraryThread waiter([&] {
        EXPECT_EQ(VornSemaphoreWait(&semaphore), VORN_OK);
        returned.Set();
    });
    EXPECT_FALSE(returned.Wait(50));
    EXPECT_EQ(VornSemaphorePost(&semaphore), VORN_OK);
    Await(returned, "the waiter");
    waiter.Join();
    EXPECT_EQ(VornSemaphoreClose(&semaphore), VORN_OK);
}

TEST(SemaphoreWait, IsACancellationPoint)
{
    VornSemaphore* semaphore = nullptr;
    ASSERT_EQ(VornSemaphoreCreate(&semaphore, 0, 0), VORN_OK);
    LibraryThread waiter([&] {
        VornSemaphoreWait(&semaphore);
        ADD_FAILURE() << "the wait returned";
    });
    EXPECT_EQ(VornThreadCancel(waiter.Thread()), VORN_OK);
    EXPECT_EQ(waiter.Join(), kCancelledValue);
    EXPECT_EQ(VornSemaphorePost(&semaphore), VORN_OK);
    EXPECT_EQ(VornSemaphoreTryWait(&semaphore), VORN_OK);
    EXPECT_EQ(VornSemaphoreClose(&semaphore), VORN_OK);
}

TEST(SemaphoreTryWait, IsNoCancellationPoint)
{
    VornSemaphore* semaphore = nullptr;
    ASSERT_EQ(VornSemaphoreCreate(&semaphore, 0, 0), VORN_OK);
    Event cancelled;
    bool went = false;
    LibraryThread thread([&] {
        Await(cancelled, "the cancel");
        EXPECT_EQ(VornSemaphoreTryWait(&semaphore), VORN_E_BUSY);
        EXPECT_EQ(VornSemaphorePost(&semaphore), VORN_OK);
        // A wait that needs no waiting takes its result rather than the request.
        EXPECT_EQ(VornSemaphoreWait(&semaphore), VORN_OK);
        went = true;
        VornSemaphoreWait(&semaphore);
        ADD_FAILURE() << "the wait returned";
    });
    EXPECT_EQ(VornThreadCancel(thread.Thread()), VORN_OK);
    cancelled.Set();
    EXPECT_EQ(thread.Join(), kCancelledValue);
    EXPECT_TRUE(went);
    EXPECT_EQ(VornSemaphoreClose(&semaphore), VORN_OK);
}

TEST(SemaphoreArguments, NullIsRefusedEverywhere)
{
    VornSemaphore* semaphore = nullptr;
    EXPECT_EQ(VornSemaphoreClose(nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornSemaphoreClose(&semaphore), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornSemaphoreDestroy(nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornSemaphoreDestroy(&semaphore), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornSemaphoreWait(nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornSemaphoreWait(&semaphore), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornSemaphoreTryWait(nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornSemaphoreTryWait(&semaphore), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornSemaphorePost(nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornSemaphorePost(&semaphore), VORN_E_INVALID_ARG);
}

TEST(SemaphoreClose, ReportsAHandleThatCannotBeClosedAndFreesTheRecord)
{
    VornSemaphore* semaphore = nullptr;
    AllocationWatch watch;
    ASSERT_EQ(VornSemaphoreCreate(&semaphore, 0, 0), VORN_OK);
    HANDLE const native = *reinterpret_cast<HANDLE*>(semaphore);
    {
        FailingCall fail(kCloseHandle);
        EXPECT_EQ(VornSemaphoreClose(&semaphore), VORN_E_SYSTEM);
        EXPECT_EQ(fail.Failures(), 1);
    }
    EXPECT_EQ(semaphore, nullptr);
    EXPECT_EQ(watch.Live(), 0u);
    EXPECT_TRUE(CloseHandle(native));
}

TEST(SemaphoreUnlink, SucceedsForEveryNameAndRemovesNothing)
{
    EXPECT_EQ(VornSemaphoreUnlink(nullptr), VORN_OK);
    EXPECT_EQ(VornSemaphoreUnlink(""), VORN_OK);
    EXPECT_EQ(VornSemaphoreUnlink("a/b"), VORN_OK);
    const std::string name = FreshName(L"unlink");
    VornSemaphore* first = nullptr;
    ASSERT_EQ(VornSemaphoreOpen(&first, name.c_str(), kCreateNew, 1, nullptr), VORN_OK);
    EXPECT_EQ(VornSemaphoreUnlink(name.c_str()), VORN_OK);
    VornSemaphore* second = nullptr;
    EXPECT_EQ(VornSemaphoreOpen(&second, name.c_str(), 0, 0, nullptr), VORN_OK);
    EXPECT_EQ(VornSemaphoreTryWait(&second), VORN_OK);
    EXPECT_EQ(VornSemaphoreClose(&second), VORN_OK);
    EXPECT_EQ(VornSemaphoreClose(&first), VORN_OK);
}

TEST_F(NamedSemaphore, RefusesFlagsThatMeanNothing)
{
    VornSemaphore* semaphore = nullptr;
    EXPECT_EQ(VornSemaphoreOpen(&semaphore, "x", VORN_SEMAPHORE_EXCLUSIVE, 0, nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornSemaphoreOpen(&semaphore, "x", 4, 0, nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornSemaphoreOpen(&semaphore, "x", -1, 0, nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornSemaphoreOpen(nullptr, "x", VORN_SEMAPHORE_CREATE, 0, nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(semaphore, nullptr);
}

TEST_F(NamedSemaphore, ChecksFlagsBeforeTheCountAndTheCountBeforeTheName)
{
    VornSemaphore* semaphore = nullptr;
    EXPECT_EQ(VornSemaphoreOpen(&semaphore, "a/b", VORN_SEMAPHORE_EXCLUSIVE, -1, nullptr),
              VORN_E_INVALID_ARG);
    EXPECT_EQ(VornSemaphoreOpen(&semaphore, "a/b", VORN_SEMAPHORE_CREATE, -1, nullptr), VORN_E_RANGE);
    EXPECT_EQ(VornSemaphoreOpen(&semaphore, "a/b", 0, INT32_MIN, nullptr), VORN_E_RANGE);
}

TEST_F(NamedSemaphore, RefusesMalformedNames)
{
    VornSemaphore* semaphore = nullptr;
    for (const char* name :
         {static_cast<const char*>(nullptr), "", "a/b", "/", "a\\b", "Global\\a", "a b", " "}) {
        EXPECT_EQ(VornSemaphoreOpen(&semaphore, name, VORN_SEMAPHORE_CREATE, 0, nullptr), VORN_E_INVALID_NAME)
            << (name == nullptr ? "null" : name);
    }
    EXPECT_EQ(semaphore, nullptr);
}

TEST_F(NamedSemaphore, OpenWithoutCreateOfAMissingOneFailsAndLeavesNoObject)
{
    const std::string name = FreshName(L"missing");
    VornSemaphore* semaphore = nullptr;
    LeakWatch watch;
    EXPECT_EQ(VornSemaphoreOpen(&semaphore, name.c_str(), 0, 1, nullptr), VORN_E_SYSTEM);
    EXPECT_EQ(semaphore, nullptr);
    EXPECT_EQ(watch.Leaks(), "");
    EXPECT_EQ(OpenSemaphoreW(SYNCHRONIZE, FALSE, (L"Global\\" + Wide(name)).c_str()), nullptr);
}

TEST_F(NamedSemaphore, LivesInTheGlobalNamespace)
{
    const std::string name = FreshName(L"global");
    VornSemaphore* semaphore = nullptr;
    ASSERT_EQ(VornSemaphoreOpen(&semaphore, name.c_str(), VORN_SEMAPHORE_CREATE, 1, nullptr), VORN_OK);
    HANDLE const again = OpenSemaphoreW(SYNCHRONIZE, FALSE, (L"Global\\" + Wide(name)).c_str());
    EXPECT_NE(again, nullptr);
    EXPECT_TRUE(WaitBounded(again, 0));
    EXPECT_EQ(VornSemaphoreTryWait(&semaphore), VORN_E_BUSY);
    CloseHandle(again);
    EXPECT_EQ(VornSemaphoreClose(&semaphore), VORN_OK);
}

TEST_F(NamedSemaphore, ExclusiveOpenOfAnExistingOneFails)
{
    const std::string name = FreshName(L"exclusive");
    VornSemaphore* first = nullptr;
    ASSERT_EQ(VornSemaphoreOpen(&first, name.c_str(), kCreateNew, 3, nullptr), VORN_OK);
    VornSemaphore* second = nullptr;
    {
        LeakWatch watch;
        EXPECT_EQ(VornSemaphoreOpen(&second, name.c_str(), kCreateNew, 0, nullptr), VORN_E_EXISTS);
        EXPECT_EQ(watch.Leaks(), "");
    }
    EXPECT_EQ(second, nullptr);
    EXPECT_EQ(VornSemaphoreClose(&first), VORN_OK);
    // The last handle is closed: the name is free again.
    EXPECT_EQ(VornSemaphoreOpen(&second, name.c_str(), kCreateNew, 0, nullptr), VORN_OK);
    EXPECT_EQ(VornSemaphoreClose(&second), VORN_OK);
}

TEST_F(NamedSemaphore, OpenOfAnExistingOneSharesItsPermitsAndIgnoresTheInitialCount)
{
    const std::string name = FreshName(L"shared");
    VornSemaphore* first = nullptr;
    VornSemaphore* second = nullptr;
    VornSemaphore* third = nullptr;
    ASSERT_EQ(VornSemaphoreOpen(&first, name.c_str(), VORN_SEMAPHORE_CREATE, 1, nullptr), VORN_OK);
    ASSERT_EQ(VornSemaphoreOpen(&second, name.c_str(), 0, 7, nullptr), VORN_OK);
    ASSERT_EQ(VornSemaphoreOpen(&third, name.c_str(), VORN_SEMAPHORE_CREATE, 7, nullptr), VORN_OK);
    EXPECT_EQ(VornSemaphoreTryWait(&second), VORN_OK);
    EXPECT_EQ(VornSemaphoreTryWait(&third), VORN_E_BUSY);
    EXPECT_EQ(VornSemaphorePost(&third), VORN_OK);
    EXPECT_EQ(VornSemaphoreTryWait(&first), VORN_OK);
    EXPECT_EQ(VornSemaphoreClose(&first), VORN_OK);
    EXPECT_EQ(VornSemaphoreClose(&second), VORN_OK);
    EXPECT_EQ(VornSemaphoreClose(&third), VORN_OK);
}

TEST_F(NamedSemaphore, PassesTheSecurityAttributesOn)
{
    static LPSECURITY_ATTRIBUTES seen;
    static long seenInitial, seenMaximum;
    const auto capture =
        +[](LPSECURITY_ATTRIBUTES attributes, LONG initial, LONG maximum, LPCWSTR name) -> HANDLE {
        seen = attributes;
        seenInitial = initial;
        seenMaximum = maximum;
        return CreateSemaphoreW(nullptr, initial, maximum, name);
    };
    SECURITY_ATTRIBUTES attributes = {sizeof(SECURITY_ATTRIBUTES), nullptr, FALSE};
    const VornSecurityDescriptor security = {&attributes};
    VornSemaphore* semaphore = nullptr;
    const std::string name = FreshName(L"security");
    {
        ImportRedirect redirect("CreateSemaphoreW", capture);
        ASSERT_EQ(VornSemaphoreOpen(&semaphore, name.c_str(), VORN_SEMAPHORE_CREATE, 5, &security), VORN_OK);
    }
    EXPECT_EQ(seen, &attributes);
    EXPECT_EQ(seenInitial, 5);
    EXPECT_EQ(seenMaximum, 0x7FFFFFFF);
    EXPECT_EQ(VornSemaphoreClose(&semaphore), VORN_OK);
}

TEST_F(NamedSemaphore, ANameOfAnotherKindOfObjectIsRefusedByTheSystem)
{
    const std::string name = FreshName(L"event");
    HANDLE const event = CreateEventW(nullptr, TRUE, FALSE, (L"Global\\" + Wide(name)).c_str());
    VornSemaphore* semaphore = nullptr;
    EXPECT_EQ(VornSemaphoreOpen(&semaphore, name.c_str(), VORN_SEMAPHORE_CREATE, 0, nullptr), VORN_E_SYSTEM);
    CloseHandle(event);
}

TEST_F(NamedSemaphore, ReportsEachFailedAllocationAndLeavesNothingBehind)
{
    const std::string name = FreshName(L"memory");
    VornSemaphore* semaphore = nullptr;
    ASSERT_EQ(VornSemaphoreOpen(&semaphore, name.c_str(), VORN_SEMAPHORE_CREATE, 0, nullptr), VORN_OK);
    ASSERT_EQ(VornSemaphoreClose(&semaphore), VORN_OK);
    LeakWatch watch;
    const long delivered = FailEachCallInTurn(kAllocations, [&] {
        const VornStatus status =
            VornSemaphoreOpen(&semaphore, name.c_str(), VORN_SEMAPHORE_CREATE, 0, nullptr);
        EXPECT_TRUE(status == VORN_OK || status == VORN_E_NO_MEMORY) << status;
        EXPECT_EQ(semaphore != nullptr, status == VORN_OK);
        if (semaphore != nullptr) VornSemaphoreClose(&semaphore);
    });
    EXPECT_EQ(delivered, 3);  // the converted name, the record, the system's name
    EXPECT_EQ(FailEachCallInTurn(kCreateSemaphore,
                                 [&] {
                                     VornSemaphoreOpen(&semaphore, name.c_str(), VORN_SEMAPHORE_CREATE, 0,
                                                       nullptr);
                                     if (semaphore != nullptr) VornSemaphoreClose(&semaphore);
                                 }),
              1);
    EXPECT_EQ(watch.Leaks(), "");
}

TEST_F(NamedSemaphore, WithoutAConverterForItsNameIsNotOpened)
{
    VornSemaphore* const untouched = reinterpret_cast<VornSemaphore*>(0x1234);
    VornSemaphore* semaphore = untouched;
    // The end of the library's use closes the converters that it keeps.
    VornTerminate();
    ASSERT_EQ(VornInitialize(), VORN_OK);
    const LeakWatch watch;
    {
        const ImportRedirect redirect(
            IMPORT_NAME(ucnv_open), +[](const char*, UErrorCode* status) -> UConverter* {
                *status = U_FILE_ACCESS_ERROR;
                return nullptr;
            });
        ASSERT_TRUE(redirect.Found());
        EXPECT_EQ(VornSemaphoreOpen(&semaphore, "name", VORN_SEMAPHORE_CREATE, 0, nullptr),
                  VORN_E_CONVERSION);
        // The arguments come first.
        EXPECT_EQ(VornSemaphoreOpen(&semaphore, "a/b", VORN_SEMAPHORE_CREATE, 0, nullptr),
                  VORN_E_INVALID_NAME);
    }
    EXPECT_EQ(semaphore, untouched);
    EXPECT_EQ(watch.Leaks(), "");
}

TEST_F(NamedSemaphore, WhoseNameCannotBeConvertedIsNotOpened)
{
    static int callsLeft;
    static const ImportRedirect* redirect;
    VornSemaphore* semaphore = nullptr;
    ASSERT_EQ(VornSemaphoreOpen(&semaphore, FreshName(L"warm").c_str(), VORN_SEMAPHORE_CREATE, 0, nullptr),
              VORN_OK);
    ASSERT_EQ(VornSemaphoreClose(&semaphore), VORN_OK);
    const LeakWatch watch;
    // Once for the length, once for the text.
    for (const int nth : {1, 2}) {
        callsLeft = nth;
        const ImportRedirect converts(
            IMPORT_NAME(ucnv_toUChars),
            +[](UConverter* converter, UChar* out, int32_t capacity, const char* name, int32_t length,
                UErrorCode* status) -> int32_t {
                if (--callsLeft == 0) {
                    *status = U_ILLEGAL_CHAR_FOUND;
                    return 0;
                }
                return redirect->Original<decltype(&ucnv_toUChars)>()(converter, out, capacity, name, length,
                                                                      status);
            });
        ASSERT_TRUE(converts.Found());
        redirect = &converts;
        EXPECT_EQ(VornSemaphoreOpen(&semaphore, "name", VORN_SEMAPHORE_CREATE, 0, nullptr),
                  VORN_E_CONVERSION);
        EXPECT_EQ(callsLeft, 0);
        EXPECT_EQ(semaphore, nullptr);
    }
    EXPECT_EQ(watch.Leaks(), "");
}

TEST_F(NamedSemaphore, HasItsNameInTheDefaultCodePage)
{
    const std::string before = ucnv_getDefaultName();
    const std::string stem = FreshName(L"codepage");
    for (const char* codePage : {"ISO-8859-1", "UTF-8"}) {
        ucnv_setDefaultName(codePage);
        const std::string name = stem + (*codePage == 'U' ? "\xC3\xA9" : "\xE9");
        VornSemaphore* semaphore = nullptr;
        EXPECT_EQ(VornSemaphoreOpen(&semaphore, name.c_str(), kCreateNew, 0, nullptr), VORN_OK);
        HANDLE const again = OpenSemaphoreW(SYNCHRONIZE, FALSE, (L"Global\\" + Wide(stem) + L"\xE9").c_str());
        EXPECT_NE(again, nullptr);
        CloseHandle(again);
        EXPECT_EQ(VornSemaphoreClose(&semaphore), VORN_OK);
    }
    ucnv_setDefaultName(before.c_str());
}

// Receives the token on one semaphore and hands it back on another, as often as told.
VORN_CHILD(HandsTheTokenBack)
{
    VornInitialize();
    VornSemaphore* there = nullptr;
    VornSemaphore* back = nullptr;
    if (VornSemaphoreOpen(&there, Narrow(arguments[0]).c_str(), 0, 0, nullptr) != VORN_OK) return 1;
    if (VornSemaphoreOpen(&back, Narrow(arguments[1]).c_str(), 0, 0, nullptr) != VORN_OK) return 2;
    for (int i = std::stoi(arguments[2]); i > 0; --i) {
        if (VornSemaphoreWait(&there) != VORN_OK) return 3;
        if (VornSemaphorePost(&back) != VORN_OK) return 4;
    }
    // Created by the parent, so it exists here too.
    VornSemaphore* again = nullptr;
    if (VornSemaphoreOpen(&again, Narrow(arguments[0]).c_str(), kCreateNew, 0, nullptr) != VORN_E_EXISTS)
        return 5;
    VornSemaphoreClose(&there);
    VornSemaphoreClose(&back);
    VornTerminate();
    return 42;
}

TEST_F(NamedSemaphore, TwoProcessesHandATokenBackAndForth)
{
    const std::string there = FreshName(L"there");
    const std::string back = FreshName(L"back");
    VornSemaphore* thereSemaphore = nullptr;
    VornSemaphore* backSemaphore = nullptr;
    ASSERT_EQ(VornSemaphoreOpen(&thereSemaphore, there.c_str(), kCreateNew, 0, nullptr), VORN_OK);
    ASSERT_EQ(VornSemaphoreOpen(&backSemaphore, back.c_str(), kCreateNew, 0, nullptr), VORN_OK);
    constexpr int kRounds = 300;
    ChildProcess child("HandsTheTokenBack", {Wide(there), Wide(back), std::to_wstring(kRounds)});
    ASSERT_TRUE(child.Started());
    for (int i = 0; i < kRounds; ++i) {
        ASSERT_EQ(VornSemaphorePost(&thereSemaphore), VORN_OK);
        ASSERT_TRUE(WaitBounded(*reinterpret_cast<HANDLE*>(backSemaphore))) << "round " << i;
        ASSERT_EQ(VornSemaphoreTryWait(&backSemaphore), VORN_E_BUSY);
    }
    EXPECT_EQ(child.Wait(), 42u);
    EXPECT_EQ(VornSemaphoreClose(&thereSemaphore), VORN_OK);
    EXPECT_EQ(VornSemaphoreClose(&backSemaphore), VORN_OK);
}
