// load_test.cpp - the module loaded and freed by name: this program does not link it.

#include "core/win32.h"

#include "support/child_process.h"
#include "support/leak_watch.h"

#include <cstdint>
#include <exception>
#include <gtest/gtest.h>
#include <vector>

using namespace vorn_test;

namespace {

constexpr int kRounds = 2000;

// The module's own functions, found by name.
struct Module {
    HMODULE handle = LoadLibraryW(L"vorn_1_0.dll");

    template <class Function>
    Function Find(const char* name) const
    {
        return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(handle, name)));
    }
};

// A load, the calls that a small client makes, and the free.
bool UseOnce()
{
    const Module module;
    if (module.handle == nullptr) return false;
    const auto initialize = module.Find<uint32_t (*)()>("VornInitialize");
    const auto terminate = module.Find<void (*)()>("VornTerminate");
    const auto self = module.Find<void* (*)()>("VornThreadSelf");
    const auto lock = module.Find<uint32_t (*)(void**)>("VornMutexLock");
    const auto unlock = module.Find<uint32_t (*)(void**)>("VornMutexUnlock");
    const auto destroy = module.Find<uint32_t (*)(void**)>("VornMutexDestroy");
    if (initialize == nullptr || initialize() != 0) return false;
    bool good = self() != nullptr;
    void* mutex = reinterpret_cast<void*>(~uintptr_t{1});  // the recursive static initialiser
    good = good && lock(&mutex) == 0 && unlock(&mutex) == 0 && destroy(&mutex) == 0;
    terminate();
    return FreeLibrary(module.handle) && good;
}

DWORD FreshThreadLocalIndex()
{
    const DWORD index = TlsAlloc();
    TlsFree(index);
    return index;
}

// Bytes in busy blocks of every heap of this process.
size_t BusyHeapBytes()
{
    std::vector<HANDLE> heaps(GetProcessHeaps(0, nullptr));
    heaps.resize(GetProcessHeaps(static_cast<DWORD>(heaps.size()), heaps.data()));
    size_t bytes = 0;
    for (HANDLE heap : heaps) {
        PROCESS_HEAP_ENTRY entry = {};
        HeapLock(heap);
        while (HeapWalk(heap, &entry)) {
            if ((entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0) bytes += entry.cbData;
        }
        HeapUnlock(heap);
    }
    return bytes;
}

}  // namespace

TEST(ModuleLoad, TwoThousandLoadsLeaveNoIndexNoHandleAndNoMemory)
{
    // ICU stays loaded, as in a client that uses it too: its loading is slow and not what is looked at here.
    ASSERT_NE(LoadLibraryW(L"icuio72.dll"), nullptr);
    // The first loads fill what the loader and the C library keep for the process.
    for (int round = 0; round < 50; ++round) ASSERT_TRUE(UseOnce());
    ASSERT_EQ(GetModuleHandleW(L"vorn_1_0.dll"), nullptr) << "the module stays loaded, so nothing is shown";
    const DWORD index = FreshThreadLocalIndex();
    const uintptr_t handle = FreshHandleNumber();
    const size_t bytes = BusyHeapBytes();
    for (int round = 0; round < kRounds; ++round) ASSERT_TRUE(UseOnce()) << round;
    EXPECT_EQ(FreshThreadLocalIndex(), index);
    EXPECT_EQ(FreshHandleNumber(), handle);
    // Less than one byte a round is no leak of the module's.
    EXPECT_LT(BusyHeapBytes(), bytes + kRounds);
}

namespace {

// A thread that outlives the module it has used, round after round.
struct Lodger {
    Event go;
    Event done;
    void* (*self)() = nullptr;
    bool good = true;

    static DWORD WINAPI Run(void* parameter)
    {
        auto* const lodger = static_cast<Lodger*>(parameter);
        for (;;) {
            lodger->go.Wait();
            lodger->go.Reset();
            if (lodger->self == nullptr) return 0;
            void* const record = lodger->self();
            // A slot that the unloaded module left behind must not look like a record.
            lodger->good = record != nullptr && lodger->self() == record && lodger->good;
            lodger->done.Set();
        }
    }
};

}  // namespace

TEST(ModuleLoad, RecordsOfThreadsThatLiveOnAreFreedWithTheModule)
{
    constexpr int kLodgerRounds = 60;
    Lodger lodger;
    const HANDLE thread = CreateThread(nullptr, 0, &Lodger::Run, &lodger, 0, nullptr);
    const auto visit = [&] {
        const Module module;
        lodger.self = module.Find<void* (*)()>("VornThreadSelf");
        lodger.done.Reset();
        lodger.go.Set();
        EXPECT_TRUE(lodger.done.Wait());
        EXPECT_TRUE(FreeLibrary(module.handle));
    };
    for (int round = 0; round < 10; ++round) visit();
    const uintptr_t handle = FreshHandleNumber();
    const size_t bytes = BusyHeapBytes();
    for (int round = 0; round < kLodgerRounds; ++round) visit();
    EXPECT_EQ(FreshHandleNumber(), handle);
    EXPECT_LT(BusyHeapBytes(), bytes + kLodgerRounds);
    EXPECT_TRUE(lodger.good);
    lodger.self = nullptr;
    lodger.go.Set();
    EXPECT_TRUE(WaitBounded(thread));
    CloseHandle(thread);
}

TEST(ModuleLoad, WorksWithThreadLocalIndexesBeyondTheFirst64)
{
    std::vector<DWORD> taken;
    while (taken.empty() || taken.back() < 64) taken.push_back(TlsAlloc());
    {
        const Module module;
        const auto self = module.Find<void* (*)()>("VornThreadSelf");
        const auto create =
            module.Find<uint32_t (*)(void**, const void*, void* (*)(void*), void*)>("VornThreadCreate");
        const auto join = module.Find<uint32_t (*)(void*, void**)>("VornThreadJoin");
        ASSERT_NE(self, nullptr);
        void* const record = self();
        EXPECT_NE(record, nullptr);
        SetLastError(4711);
        EXPECT_EQ(self(), record);
        EXPECT_EQ(GetLastError(), 4711u);
        static void* (*inside)();
        inside = self;
        void* thread = nullptr;
        void* seen = nullptr;
        ASSERT_EQ(
            create(
                &thread, nullptr, [](void*) { return inside() == inside() ? inside() : nullptr; }, nullptr),
            0u);
        void* const created = thread;
        EXPECT_EQ(join(thread, &seen), 0u);
        EXPECT_EQ(seen, created);
        EXPECT_TRUE(FreeLibrary(module.handle));
    }
    EXPECT_TRUE(UseOnce());
    for (DWORD index : taken) TlsFree(index);
}

TEST(ModuleLoad, TheTerminateHandlerGoesWithTheModuleAlsoWhenAThreadHasNotPutTheOldOneBack)
{
    const auto before = std::get_terminate();
    {
        const Module module;
        const auto create =
            module.Find<uint32_t (*)(void**, const void*, void* (*)(void*), void*)>("VornThreadCreate");
        const auto join = module.Find<uint32_t (*)(void*, void**)>("VornThreadJoin");
        ASSERT_NE(create, nullptr);
        void* thread = nullptr;
        ASSERT_EQ(create(
                      &thread, nullptr,
                      [](void*) -> void* {
                          ExitThread(0);  // past the library
                      },
                      nullptr),
                  0u);
        EXPECT_EQ(join(thread, nullptr), 0u);
        EXPECT_TRUE(FreeLibrary(module.handle));
        EXPECT_EQ(GetModuleHandleW(L"vorn_1_0.dll"), nullptr);
    }
    EXPECT_EQ(std::get_terminate(), before);
}

namespace {

LONG faults = 0;

LONG WINAPI CountFault(EXCEPTION_POINTERS* raised)
{
    if (raised->ExceptionRecord->ExceptionCode == EXCEPTION_ACCESS_VIOLATION) ++faults;
    return EXCEPTION_CONTINUE_SEARCH;
}

}  // namespace

TEST(ModuleLoad, FailsWhenNoThreadLocalIndexIsLeftAndLeavesNothing)
{
    ASSERT_NE(LoadLibraryW(L"icuio72.dll"), nullptr);
    const auto loadFails = [] {
        std::vector<DWORD> taken;
        for (DWORD index = TlsAlloc(); index != TLS_OUT_OF_INDEXES; index = TlsAlloc())
            taken.push_back(index);
        EXPECT_EQ(LoadLibraryW(L"vorn_1_0.dll"), nullptr);
        for (DWORD index : taken) TlsFree(index);
    };
    // The loader would take a fault of the module for a load that failed.
    void* const handler = AddVectoredExceptionHandler(1, &CountFault);
    for (int round = 0; round < 10; ++round) loadFails();
    const uintptr_t handle = FreshHandleNumber();
    const size_t bytes = BusyHeapBytes();
    for (int round = 0; round < 100; ++round) loadFails();
    EXPECT_EQ(FreshHandleNumber(), handle);
    EXPECT_LT(BusyHeapBytes(), bytes + 100);
    RemoveVectoredExceptionHandler(handler);
    EXPECT_EQ(faults, 0);
    EXPECT_TRUE(UseOnce());
}
