#include <vorn/vorn.hpp>

#include "core/win32.h"

#include "support/failing_call.h"
#include "support/leak_watch.h"

#include <gtest/gtest.h>
#include <string>

using namespace vorn_test;

namespace {

// Nothing in the test programs has this module loaded already.
constexpr wchar_t kModule[] = L"mpr.dll";

class LibraryTest : public testing::Test {
protected:
    LibraryTest() { VornInitialize(); }
    ~LibraryTest() override { VornTerminate(); }
};

}  // namespace

TEST_F(LibraryTest, LoadsFindsAndUnloads)
{
    EXPECT_EQ(GetModuleHandleW(kModule), nullptr);
    VornLibrary* library = nullptr;
    ASSERT_EQ(VornLibraryLoad(kModule, 12345, &library), VORN_OK);
    const HMODULE module = GetModuleHandleW(kModule);
    ASSERT_NE(module, nullptr);
    VornSetLastError(VORN_E_BUSY);
    void* symbol = VornLibraryGetProcAddress(library, "WNetCloseEnum");
    EXPECT_EQ(VornGetLastError(), VORN_OK);
    EXPECT_EQ(symbol, reinterpret_cast<void*>(GetProcAddress(module, "WNetCloseEnum")));
    EXPECT_NE(symbol, nullptr);
    VornLibraryFree(library);
    EXPECT_EQ(GetModuleHandleW(kModule), nullptr);
}

TEST_F(LibraryTest, ReportsAModuleThatIsNotThere)
{
    auto* const untouched = reinterpret_cast<VornLibrary*>(0x1234);
    VornLibrary* library = untouched;
    EXPECT_EQ(VornLibraryLoad(L"there-is-no-such-module.dll", 0, &library), VORN_E_SYSTEM);
    EXPECT_EQ(library, untouched);
    EXPECT_EQ(VornLibraryLoad(nullptr, 0, &library), VORN_E_SYSTEM);
    EXPECT_EQ(library, untouched);
    EXPECT_EQ(VornLibraryLoad(kModule, 0, nullptr), VORN_E_INVALID_ARG);
    EXPECT_EQ(GetModuleHandleW(kModule), nullptr);
}

TEST_F(LibraryTest, FindsNoMissingSymbol)
{
    VornLibrary* library = nullptr;
    ASSERT_EQ(VornLibraryLoad(kModule, 0, &library), VORN_OK);
    EXPECT_EQ(VornLibraryGetProcAddress(library, "NoSuchSymbol"), nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_E_SYSTEM);
    EXPECT_EQ(VornLibraryGetProcAddress(library, nullptr), nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_E_INVALID_ARG);
    EXPECT_EQ(VornLibraryGetProcAddress(nullptr, "WNetCloseEnum"), nullptr);
    EXPECT_EQ(VornGetLastError(), VORN_E_INVALID_ARG);
    VornLibraryFree(library);
    VornLibraryFree(nullptr);
}

TEST_F(LibraryTest, CountsTheUsesOfAModule)
{
    VornLibrary* first = nullptr;
    VornLibrary* second = nullptr;
    ASSERT_EQ(VornLibraryLoad(kModule, 0, &first), VORN_OK);
    ASSERT_EQ(VornLibraryLoad(kModule, 0, &second), VORN_OK);
    EXPECT_NE(first, second);
    VornLibraryFree(first);
    EXPECT_NE(GetModuleHandleW(kModule), nullptr);
    VornLibraryFree(second);
    EXPECT_EQ(GetModuleHandleW(kModule), nullptr);
}

TEST_F(LibraryTest, KeepsTheModuleLoadedWhenThereIsNoMemoryForItsRecord)
{
    VornLibrary* library = nullptr;
    const long failures = FailEachCallInTurn(kAllocations, [&] {
        const VornStatus status = VornLibraryLoad(kModule, 0, &library);
        if (status != VORN_OK) {
            EXPECT_EQ(status, VORN_E_NO_MEMORY);
            EXPECT_EQ(library, nullptr);
            EXPECT_NE(GetModuleHandleW(kModule), nullptr);
            FreeLibrary(GetModuleHandleW(kModule));
            return;
        }
        VornLibraryFree(library);
        library = nullptr;
    });
    EXPECT_EQ(failures, 1);
    EXPECT_EQ(GetModuleHandleW(kModule), nullptr);
}

TEST_F(LibraryTest, LivesAsLongAsTheObject)
{
    {
        const vorn::Library library(vorn::UniStr(kModule), 7);
        ASSERT_NE(GetModuleHandleW(kModule), nullptr);
        EXPECT_EQ(library.GetProcAddress("WNetCloseEnum"),
                  reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(kModule), "WNetCloseEnum")));
        EXPECT_EQ(library.GetProcAddress("NoSuchSymbol"), nullptr);
    }
    EXPECT_EQ(GetModuleHandleW(kModule), nullptr);
}

TEST_F(LibraryTest, HasNoFileName)
{
    vorn::Library library{vorn::UniStr(kModule)};
    EXPECT_STREQ(library.GetFileName().U_Str(), L"");
}

TEST_F(LibraryTest, ThrowsWhenTheModuleIsNotThere)
{
    std::string message;
    try {
        const vorn::Library library(vorn::UniStr(L"there-is-no-such-module.dll"), 0);
    } catch (const vorn::RuntimeError& error) {
        message = error.What();
    }
    EXPECT_EQ(message, "Error loading library.");
}

TEST_F(LibraryTest, ThrowsWhenThereIsNoMemory)
{
    const vorn::UniStr name(kModule);
    std::string message;
    try {
        const FailingCall fail(kCalloc);
        const vorn::Library library(name, 0);
    } catch (const vorn::BadAlloc& error) {
        message = error.What();
    }
    EXPECT_EQ(message, "Bad allocation");
    FreeLibrary(GetModuleHandleW(kModule));  // it stayed loaded
}

TEST_F(LibraryTest, IsAsSmallAsAPointerAndNotCopyable)
{
    EXPECT_EQ(sizeof(vorn::Library), sizeof(void*));
    EXPECT_FALSE(std::is_copy_constructible_v<vorn::Library>);
    EXPECT_FALSE(std::is_copy_assignable_v<vorn::Library>);
}
