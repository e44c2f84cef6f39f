#include <vorn/vorn.hpp>

#include "file/temp_folder.h"
#include "support/failing_call.h"
#include "support/leak_watch.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <numeric>
#include <set>
#include <thread>
#include <vector>

using namespace vorn_test;
using vorn::FileFindItem;
using vorn::FileFindIterator;
using vorn::FileFindRange;
using vorn::UniStr;

namespace {

class FindIterator : public FileFixture {
protected:
    void MakeFiles(int count)
    {
        for (int i = 0; i < count; ++i)
            StoreBytes(Path(L"f" + std::to_wstring(i)), std::string(static_cast<size_t>(i), 'x'));
    }
    UniStr Pattern(const std::wstring& name = L"*") const { return UniStr(Path(name).c_str()); }
};

std::wstring NameOf(const FileFindItem& item)
{
    UniStr name;
    EXPECT_EQ(item.GetName(name), 0u);
    return name.S_Str();
}

std::wstring FullNameOf(const FileFindItem& item)
{
    UniStr name;
    EXPECT_EQ(item.GetFullName(name), 0u);
    return name.S_Str();
}

// Whether the item is empty, by all that it answers.
void ExpectEmpty(const FileFindItem& item)
{
    UniStr text(L"untouched");
    VornTime time = {1, 2, 3, 4, 5, 6, 7, 8};
    EXPECT_EQ(item.GetName(text), 130u);
    EXPECT_EQ(item.GetFullName(text), 130u);
    EXPECT_STREQ(text.S_Str(), L"untouched");
    EXPECT_EQ(item.GetTime(&time, &time), 130u);
    EXPECT_EQ(time.year, 1);
    EXPECT_EQ(item.GetSize(), ~0ull);
}

}  // namespace

static_assert(std::has_virtual_destructor_v<FileFindIterator>);
static_assert(!std::is_polymorphic_v<FileFindItem> && sizeof(FileFindItem) == sizeof(void*));
static_assert(
    std::is_same_v<std::iterator_traits<FileFindIterator>::iterator_category, std::input_iterator_tag>);
static_assert(std::is_same_v<std::iterator_traits<FileFindIterator>::value_type, FileFindItem>);
static_assert(
    std::is_same_v<decltype(std::declval<FileFindIterator&>() = std::declval<const FileFindIterator&>()),
                   const FileFindIterator&>);

TEST_F(FindIterator, ANewItemIsEmpty)
{
    ExpectEmpty(FileFindItem());
    ExpectEmpty(*FileFindIterator());
}

TEST_F(FindIterator, TheEndEqualsTheEnd)
{
    EXPECT_TRUE(FileFindIterator() == FileFindIterator());
    EXPECT_FALSE(FileFindIterator() != FileFindIterator());
}

TEST_F(FindIterator, ASearchThatFindsNothingStartsAtTheEndWithoutAnException)
{
    for (const std::wstring& pattern : {Path(L"*"), Path(L"missing\\*"), std::wstring(), Path(L"*.none")}) {
        const FileFindIterator it(UniStr(pattern.c_str()));
        EXPECT_TRUE(it == FileFindIterator());
        ExpectEmpty(*it);
    }
}

TEST_F(FindIterator, TakesAsManyStepsAsThereAreEntries)
{
    MakeFiles(7);
    int steps = 0;
    std::set<std::wstring> names;
    for (FileFindIterator it(Pattern()); it != FileFindIterator(); ++it, ++steps) names.insert(NameOf(*it));
    EXPECT_EQ(steps, 7);
    EXPECT_EQ(names, (std::set<std::wstring>{L"f0", L"f1", L"f2", L"f3", L"f4", L"f5", L"f6"}));
}

TEST_F(FindIterator, AnItemHasNameFullNameSizeAndTimes)
{
    StoreBytes(Path(L"only"), "12345");
    const VornTime access = {2021, 1, 0, 2, 3, 4, 5, 0}, modify = {2022, 2, 0, 3, 4, 5, 6, 0};
    ASSERT_EQ(VornFileSetTimeByName(Path(L"only").c_str(), &access, &modify, nullptr), VORN_OK);
    const FileFindIterator it(Pattern());
    const FileFindItem item = *it;
    EXPECT_EQ(NameOf(item), L"only");
    EXPECT_EQ(FullNameOf(item), Path(L"only"));
    EXPECT_EQ(item.GetSize(), 5u);
    VornTime gotAccess = {}, gotModify = {};
    EXPECT_EQ(item.GetTime(&gotAccess, &gotModify), 0u);
    EXPECT_EQ(VornTimeCmp(&gotAccess, &access, 0), 0);
    EXPECT_EQ(VornTimeCmp(&gotModify, &modify, 0), 0);
    EXPECT_EQ(item.GetTime(nullptr, nullptr), 0u);
    EXPECT_EQ(it->GetSize(), 5u);
}

TEST_F(FindIterator, ItemsAreDeepCopies)
{
    MakeFiles(2);
    FileFindIterator it(Pattern());
    const FileFindItem first = *it;
    const std::wstring name = NameOf(first);
    FileFindItem assigned;
    assigned = first;
    const FileFindItem& alias = assigned;
    assigned = alias;
    ++it;
    EXPECT_NE(NameOf(*it), name);
    EXPECT_EQ(NameOf(first), name);
    EXPECT_EQ(NameOf(assigned), name);
    ++it;
    ExpectEmpty(*it);
    assigned = *it;
    ExpectEmpty(assigned);
    EXPECT_EQ(NameOf(first), name);
}

TEST_F(FindIterator, CopiesShareOneSearch)
{
    MakeFiles(3);
    auto original = std::make_unique<FileFindIterator>(Pattern());
    FileFindIterator copy(*original);
    EXPECT_TRUE(copy == *original);
    const std::wstring first = NameOf(*copy);
    ++*original;
    EXPECT_EQ(NameOf(*copy), first) << "its own item";
    EXPECT_TRUE(copy == *original);
    original.reset();
    ++copy;
    EXPECT_NE(NameOf(*copy), first);
    ++copy;
    EXPECT_TRUE(copy == FileFindIterator()) << "three entries, three steps, whoever made them";
}

TEST_F(FindIterator, AnIteratorIsAtTheEndWhenACopyGotThere)
{
    MakeFiles(1);
    FileFindIterator it(Pattern());
    FileFindIterator copy(it);
    ++copy;
    EXPECT_TRUE(it == FileFindIterator());
    EXPECT_EQ(NameOf(*it), L"f0") << "its own item";
}

TEST_F(FindIterator, DifferentSearchesAreUnequalUntilBothEnd)
{
    MakeFiles(1);
    FileFindIterator a(Pattern()), b(Pattern());
    EXPECT_TRUE(a != b);
    ++a;
    EXPECT_TRUE(a != b);
    ++b;
    EXPECT_TRUE(a == b);
}

TEST_F(FindIterator, PostIncrementGivesWhatWasBefore)
{
    MakeFiles(2);
    FileFindIterator it(Pattern());
    const std::wstring first = NameOf(*it);
    const FileFindIterator before = it++;
    EXPECT_EQ(NameOf(*before), first);
    EXPECT_NE(NameOf(*it), first);
    EXPECT_TRUE(before == it);
    EXPECT_NE(NameOf(*it++), first);
    EXPECT_TRUE(it == FileFindIterator());
}

TEST_F(FindIterator, SteppingPastTheEndStaysThere)
{
    MakeFiles(1);
    FileFindIterator it(Pattern());
    for (int i = 0; i < 3; ++i) {
        ++it;
        EXPECT_TRUE(it == FileFindIterator());
        ExpectEmpty(*it);
    }
    FileFindIterator end;
    ++end;
    EXPECT_TRUE(end == FileFindIterator());
}

TEST_F(FindIterator, AssignmentTakesTheSearchAndKeepsTheItem)
{
    MakeFiles(3);
    StoreBytes(Path(L"other"), "12");
    FileFindIterator target(Pattern(L"other"));
    const FileFindIterator source(Pattern(L"f?"));
    const FileFindIterator& result = (target = source);
    EXPECT_EQ(&result, &target);
    EXPECT_TRUE(target == source);
    EXPECT_EQ(NameOf(*target), L"other");
    ++target;
    EXPECT_EQ(NameOf(*target)[0], L'f');
    EXPECT_NE(NameOf(*target), NameOf(*source));
}

TEST_F(FindIterator, AssignmentEndsASearchThatNobodyElseHas)
{
    MakeFiles(1);
    FailingCall closes({"FindClose", 0, 0}, 0);
    FileFindIterator target(Pattern());
    FileFindIterator copy(target);
    const FileFindIterator end;
    target = end;
    EXPECT_EQ(closes.Calls(), 0);
    copy = end;
    EXPECT_EQ(closes.Calls(), 1);
    EXPECT_TRUE(copy == end);
    EXPECT_EQ(NameOf(*copy), L"f0");
}

TEST_F(FindIterator, AssignmentToItselfAndAmongCopiesChangesNothing)
{
    MakeFiles(2);
    FileFindIterator it(Pattern());
    const FileFindIterator& alias = it;
    it = alias;
    FileFindIterator copy(it);
    copy = it;
    EXPECT_TRUE(copy == it);
    ++copy;
    EXPECT_TRUE(copy != FileFindIterator());
}

TEST_F(FindIterator, AFullNameThatCannotBeMadeEndsTheSearch)
{
    MakeFiles(2);
    const UniStr pattern = Pattern();
    {
        FileFindIterator warmUp(pattern);
    }
    // The prefix, then the full name.
    FailingCall fail(kMalloc, 2);
    const FileFindIterator it(pattern);
    ASSERT_EQ(fail.Failures(), 1);
    EXPECT_TRUE(it == FileFindIterator());
    ExpectEmpty(*it);
}

TEST_F(FindIterator, WorksWithTheStandardsAlgorithms)
{
    MakeFiles(6);
    const UniStr pattern = Pattern();
    EXPECT_EQ(std::distance(FileFindIterator(pattern), FileFindIterator()), 6);
    EXPECT_EQ(std::accumulate(
                  FileFindIterator(pattern), FileFindIterator(), 0ull,
                  [](unsigned long long sum, const FileFindItem& item) { return sum + item.GetSize(); }),
              15u);
    const auto found = std::find_if(FileFindIterator(pattern), FileFindIterator(),
                                    [](const FileFindItem& item) { return item.GetSize() == 4; });
    ASSERT_TRUE(found != FileFindIterator());
    EXPECT_EQ(NameOf(*found), L"f4");
    EXPECT_EQ(std::count_if(FileFindIterator(pattern), FileFindIterator(),
                            [](const FileFindItem& item) { return item.GetSize() % 2 == 0; }),
              3);
    std::vector<FileFindItem> items;
    std::copy(FileFindIterator(pattern), FileFindIterator(), std::back_inserter(items));
    EXPECT_EQ(items.size(), 6u);
    const std::vector<FileFindItem> constructed{FileFindIterator(pattern), FileFindIterator()};
    EXPECT_EQ(constructed.size(), 6u);
}

TEST_F(FindIterator, ARangeServesALoopMoreThanOnce)
{
    MakeFiles(4);
    const FileFindRange range(Pattern());
    for (int round = 0; round < 2; ++round) {
        std::set<std::wstring> names;
        for (const FileFindItem& item : range) names.insert(NameOf(item));
        EXPECT_EQ(names.size(), 4u);
    }
    for ([[maybe_unused]] const FileFindItem& item : FileFindRange(Pattern(L"none*"))) FAIL();
}

TEST_F(FindIterator, CopiesMayBeDestroyedOnDifferentThreads)
{
    MakeFiles(2);
    FailingCall closes({"FindClose", 0, 0}, 0);
    for (int round = 0; round < 50; ++round) {
        auto it = std::make_unique<FileFindIterator>(Pattern());
        std::vector<std::thread> threads;
        Event start;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([&start, copy = std::make_unique<FileFindIterator>(*it)]() mutable {
                start.Wait();
                copy.reset();
            });
        }
        start.Set();
        it.reset();
        for (std::thread& thread : threads) thread.join();
        ASSERT_EQ(closes.Calls(), round + 1);
    }
}

TEST_F(FindIterator, EachAllocationThatFailsLeaksNothing)
{
    MakeFiles(2);
    const UniStr pattern = Pattern();
    const auto walk = [&] {
        try {
            FileFindIterator it(pattern);
            const FileFindIterator copy(it);
            const FileFindItem item = *copy;
            while (it != FileFindIterator()) ++it;
            ExpectEmpty(*it);
        } catch (const std::bad_alloc&) {
        }
    };
    // The first exception of a process leaves what the language's runtime keeps.
    FailEachCallInTurn(kNew, walk);
    LeakWatch watch;
    const long failures = FailEachCallInTurn(kAllocations, walk);
    EXPECT_GE(failures, 10);
    EXPECT_EQ(watch.Leaks(), "");
}
