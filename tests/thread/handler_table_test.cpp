#include "thread/handler_table.h"

#include <gtest/gtest.h>
#include <vector>

using vorn::detail::FrameAction;
using vorn::detail::LookUpFrameAction;

namespace {

// The tables are written out as a compiler would write them: no landing-pad base, types as 4-byte references
// that end at the type base, call sites as variable-length numbers.
struct Site {
    uint8_t start;
    uint8_t length;
    uint8_t landingPad;
    uint8_t action;
};

std::vector<uint8_t> Table(const std::vector<Site>& sites, const std::vector<uint8_t>& actions = {},
                           const std::vector<uint32_t>& types = {})
{
    std::vector<uint8_t> bytes = {0xFF};
    const auto sitesSize = static_cast<uint8_t>(sites.size() * 4);
    if (types.empty()) {
        bytes.push_back(0xFF);
    } else {
        bytes.push_back(0x9B);
        bytes.push_back(static_cast<uint8_t>(2 + sitesSize + actions.size() + types.size() * 4));
    }
    bytes.push_back(0x01);
    bytes.push_back(sitesSize);
    for (const Site& s : sites) bytes.insert(bytes.end(), {s.start, s.length, s.landingPad, s.action});
    bytes.insert(bytes.end(), actions.begin(), actions.end());
    for (uint32_t t : types) {
        for (int i = 0; i < 4; ++i) bytes.push_back(static_cast<uint8_t>(t >> (8 * i)));
    }
    return bytes;
}

}  // namespace

TEST(HandlerTable, APlaceThatNoSiteCoversEndsTheProcess)
{
    const auto table = Table({{10, 5, 0, 0}, {30, 5, 40, 0}});
    for (uint64_t place : {0, 9, 15, 29, 35, 1000}) {
        EXPECT_EQ(LookUpFrameAction(table.data(), place), FrameAction::kTerminate) << place;
    }
    EXPECT_EQ(LookUpFrameAction(Table({}).data(), 0), FrameAction::kTerminate);
}

TEST(HandlerTable, ASiteWithoutALandingPadHasNothingToRun)
{
    const auto table = Table({{10, 5, 0, 0}});
    EXPECT_EQ(LookUpFrameAction(table.data(), 10), FrameAction::kNone);
    EXPECT_EQ(LookUpFrameAction(table.data(), 14), FrameAction::kNone);
}

TEST(HandlerTable, ALandingPadWithoutAnActionIsACleanup)
{
    EXPECT_EQ(LookUpFrameAction(Table({{10, 5, 40, 0}}).data(), 12), FrameAction::kCleanup);
}

TEST(HandlerTable, TheNullTypeCatchesEverything)
{
    // One action: filter 1, end of the chain.
    EXPECT_EQ(LookUpFrameAction(Table({{0, 5, 40, 1}}, {1, 0}, {0}).data(), 2), FrameAction::kCleanup);
}

TEST(HandlerTable, AHandlerForSomeTypeIsNotMetByACancellation)
{
    EXPECT_EQ(LookUpFrameAction(Table({{0, 5, 40, 1}}, {1, 0}, {0x1234}).data(), 2), FrameAction::kNone);
}

TEST(HandlerTable, FollowsTheChainOfActions)
{
    // First action: filter 0 (cleanup), end. Second, at byte 3: filter 1 (a type), then back by 3 to the
    // first.
    const std::vector<uint8_t> actions = {0, 0, 1, 0x7D};
    EXPECT_EQ(LookUpFrameAction(Table({{0, 5, 40, 3}}, actions, {0x1234}).data(), 2), FrameAction::kCleanup);
}

TEST(HandlerTable, AListOfAllowedExceptionsEndsTheProcess)
{
    EXPECT_EQ(LookUpFrameAction(Table({{0, 5, 40, 1}}, {0x7F, 0}, {0}).data(), 2), FrameAction::kTerminate);
}

TEST(HandlerTable, ReadsNumbersOfSeveralBytes)
{
    // Start 300, length 200, landing pad 600: two bytes each.
    const std::vector<uint8_t> table = {0xFF, 0xFF, 0x01, 7, 0xAC, 0x02, 0xC8, 0x01, 0xD8, 0x04, 0};
    EXPECT_EQ(LookUpFrameAction(table.data(), 299), FrameAction::kTerminate);
    EXPECT_EQ(LookUpFrameAction(table.data(), 300), FrameAction::kCleanup);
    EXPECT_EQ(LookUpFrameAction(table.data(), 499), FrameAction::kCleanup);
    EXPECT_EQ(LookUpFrameAction(table.data(), 500), FrameAction::kTerminate);
}

TEST(HandlerTable, RecognisesTablesOfAnotherKind)
{
    const uint8_t withBase[] = {0x00, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(LookUpFrameAction(withBase, 0), FrameAction::kForeign);
    const uint8_t otherSites[] = {0xFF, 0xFF, 0x03, 0};
    EXPECT_EQ(LookUpFrameAction(otherSites, 0), FrameAction::kForeign);
}
