#include "file/stream_walk.h"

#include "file/backup_data.h"
#include "file/stream_header.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>

using vorn::detail::FindStreams;
using vorn::detail::ParseStreamHeader;
using vorn::detail::StreamHeader;
using vorn::detail::StreamList;
using vorn::detail::StreamNode;
using vorn::detail::StreamSource;
using namespace vorn_test;

using Text = vorn_test::UnitText;

namespace {

struct Found {
    Text name;
    uint64_t size;
    bool operator==(const Found& other) const { return name == other.name && size == other.size; }
};

// Backup data in memory, with a switch for each way in which the system may fail.
class Recording {
public:
    explicit Recording(Bytes data) : data_(std::move(data)) {}

    StreamSource Source()
    {
        return {this,
                [](void* context, void* buffer, uint32_t bytes, uint32_t* bytesRead) {
                    return static_cast<Recording*>(context)->Read(buffer, bytes, bytesRead);
                },
                [](void* context, uint64_t bytes, uint64_t* bytesSkipped) {
                    return static_cast<Recording*>(context)->Seek(bytes, bytesSkipped);
                }};
    }

    int failReadNumber = 0;  // counted from 1; 0 for none
    int failSeekNumber = 0;
    int shortSeekNumber = 0;
    int reads = 0;
    int seeks = 0;

private:
    bool Read(void* buffer, uint32_t bytes, uint32_t* bytesRead)
    {
        if (++reads == failReadNumber) return false;
        *bytesRead = static_cast<uint32_t>(std::min<size_t>(bytes, data_.size() - at_));
        std::copy_n(data_.begin() + static_cast<ptrdiff_t>(at_), *bytesRead, static_cast<uint8_t*>(buffer));
        at_ += *bytesRead;
        return true;
    }
    bool Seek(uint64_t bytes, uint64_t* bytesSkipped)
    {
        if (++seeks == failSeekNumber) return false;
        *bytesSkipped = std::min<uint64_t>(bytes, data_.size() - at_);
        at_ += static_cast<size_t>(*bytesSkipped);
        if (seeks == shortSeekNumber) --*bytesSkipped;
        return true;
    }

    Bytes data_;
    size_t at_ = 0;
};

std::vector<Found> Listed(const StreamList& list)
{
    std::vector<Found> found;
    for (const StreamNode* node = list.First(); node != nullptr; node = node->next) {
        found.push_back({node->name, node->size});
    }
    return found;
}

VornStatus Find(Recording* recording, const Text& pattern, std::vector<Found>* found)
{
    StreamList list;
    const VornStatus status = FindStreams(recording->Source(), pattern.data(), pattern.size(), &list);
    *found = Listed(list);
    return status;
}

class StreamWalk : public testing::Test {
protected:
    VornStatus Find(const Bytes& data, const Text& pattern)
    {
        Recording recording(data);
        return ::Find(&recording, pattern, &found);
    }

    std::vector<Found> found;
    const std::vector<Found> none;
};

}  // namespace

TEST(StreamHeader, IsDecodedFieldByField)
{
    const Bytes bytes{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20};
    StreamHeader header = {};
    ASSERT_TRUE(ParseStreamHeader(bytes.data(), bytes.size(), &header));
    EXPECT_EQ(header.kind, 0x04030201u);
    EXPECT_EQ(header.attributes, 0x08070605u);
    EXPECT_EQ(header.dataBytes, 0x100F0E0D0C0B0A09u);
    EXPECT_EQ(header.nameBytes, 0x14131211u);
}

TEST(StreamHeader, NeedsAllItsBytes)
{
    const Bytes bytes(19, 0xFF);
    StreamHeader header = {1, 2, 3, 4};
    EXPECT_FALSE(ParseStreamHeader(bytes.data(), bytes.size(), &header));
    EXPECT_FALSE(ParseStreamHeader(nullptr, 0, &header));
    EXPECT_EQ(header.nameBytes, 4u);
}

TEST_F(StreamWalk, ListsNamedStreamsWithTheirSizesInOrder)
{
    EXPECT_EQ(Find(Stream(kBackupSecurity, {}, 76) + UnnamedStream(1000) + NamedStream(L":one:$DATA", 5) +
                       NamedStream(L":two:$DATA", 70000),
                   L"*"),
              VORN_OK);
    EXPECT_EQ(found, (std::vector<Found>{{L":one:$DATA", 5}, {L":two:$DATA", 70000}}));
}

TEST_F(StreamWalk, NeverListsTheUnnamedStream)
{
    EXPECT_EQ(Find(UnnamedStream(10), L"*"), VORN_E_NOT_AVAILABLE);
    EXPECT_EQ(found, none);
}

TEST_F(StreamWalk, MatchesTheNameWithoutItsLeadingColon)
{
    const Bytes data = NamedStream(L":one:$DATA", 1) + NamedStream(L":two:$DATA", 2);
    EXPECT_EQ(Find(data, L"two:$DATA"), VORN_OK);
    EXPECT_EQ(found, (std::vector<Found>{{L":two:$DATA", 2}}));
    EXPECT_EQ(Find(data, L":two:$DATA"), VORN_E_NOT_AVAILABLE);
    EXPECT_EQ(Find(data, L"TWO:$DATA"), VORN_E_NOT_AVAILABLE);
    EXPECT_EQ(Find(data, L""), VORN_E_NOT_AVAILABLE);
}

TEST_F(StreamWalk, AStreamOfSizeZeroInTheMiddleIsListedAndDoesNotEndTheWalk)
{
    Recording recording(NamedStream(L":a:$DATA", 0) + UnnamedStream(0) + NamedStream(L":b:$DATA", 3));
    EXPECT_EQ(::Find(&recording, L"*", &found), VORN_OK);
    EXPECT_EQ(found, (std::vector<Found>{{L":a:$DATA", 0}, {L":b:$DATA", 3}}));
    EXPECT_EQ(recording.seeks, 1);
}

TEST_F(StreamWalk, FailsWhenTheFirstHeaderCannotBeRead)
{
    Recording recording(NamedStream(L":a:$DATA", 1));
    recording.failReadNumber = 1;
    EXPECT_EQ(::Find(&recording, L"*", &found), VORN_E_READ);
    EXPECT_EQ(recording.reads, 1);
}

TEST_F(StreamWalk, FailsWhenTheFirstHeaderIsShort)
{
    EXPECT_EQ(Find({}, L"*"), VORN_E_READ);
    EXPECT_EQ(Find(Bytes(19, 0), L"*"), VORN_E_READ);
}

TEST_F(StreamWalk, EndsAtALaterHeaderThatDoesNotComeWhole)
{
    EXPECT_EQ(Find(NamedStream(L":a:$DATA", 1) + Bytes(19, 0), L"*"), VORN_OK);
    EXPECT_EQ(found, (std::vector<Found>{{L":a:$DATA", 1}}));
}

TEST_F(StreamWalk, EndsAtAnUnreadableNameAndKeepsWhatItFound)
{
    Recording recording(NamedStream(L":a:$DATA", 0) + NamedStream(L":b:$DATA", 0) +
                        NamedStream(L":c:$DATA", 0));
    recording.failReadNumber = 4;  // two headers and a name before
    EXPECT_EQ(::Find(&recording, L"*", &found), VORN_OK);
    EXPECT_EQ(found, (std::vector<Found>{{L":a:$DATA", 0}}));
    EXPECT_EQ(recording.reads, 4);
}

TEST_F(StreamWalk, ANameThatBreaksOffIsUnreadable)
{
    EXPECT_EQ(
        Find(NamedStream(L":a:$DATA", 0) + Header(kBackupAlternateData, 0, 20) + NameBytes(L":half"), L"*"),
        VORN_OK);
    EXPECT_EQ(found, (std::vector<Found>{{L":a:$DATA", 0}}));
    EXPECT_EQ(Find(Header(kBackupAlternateData, 0, 20) + NameBytes(L":half"), L"*"), VORN_E_NOT_AVAILABLE);
}

TEST_F(StreamWalk, ANameLengthThatNoNameCanHaveIsNeitherAllocatedNorRead)
{
    for (const uint32_t nameBytes : {0xFFFFFFFFu, 0x80000000u, 0x10000u, 0xFFFFu, 7u, 1u}) {
        Recording recording(NamedStream(L":a:$DATA", 0) + Header(kBackupAlternateData, 0, nameBytes) +
                            Bytes(200000, 'x'));
        EXPECT_EQ(::Find(&recording, L"*", &found), VORN_OK) << nameBytes;
        EXPECT_EQ(found, (std::vector<Found>{{L":a:$DATA", 0}})) << nameBytes;
        EXPECT_EQ(recording.reads, 3) << nameBytes;
    }
}

TEST_F(StreamWalk, TheLongestNameIsListed)
{
    const Text name = L":" + Text(0xFFFE / 2 - 7, L'n') + L":$DATA";
    EXPECT_EQ(Find(NamedStream(name, 4), L"n*"), VORN_OK);
    EXPECT_EQ(found, (std::vector<Found>{{name, 4}}));
}

TEST_F(StreamWalk, AZeroInsideANameEndsTheName)
{
    EXPECT_EQ(Find(NamedStream(Text(L":ab\0cd:$DATA", 12), 4), L"ab"), VORN_OK);
    EXPECT_EQ(found, (std::vector<Found>{{L":ab", 4}}));
}

TEST_F(StreamWalk, ANameOfAColonAloneMatchesNothing)
{
    EXPECT_EQ(Find(NamedStream(L":", 4), L"*"), VORN_E_NOT_AVAILABLE);
}

TEST_F(StreamWalk, EndsWhenTheSeekFails)
{
    Recording recording(NamedStream(L":a:$DATA", 1) + NamedStream(L":b:$DATA", 1));
    recording.failSeekNumber = 1;
    EXPECT_EQ(::Find(&recording, L"*", &found), VORN_OK);
    EXPECT_EQ(found, (std::vector<Found>{{L":a:$DATA", 1}}));
    EXPECT_EQ(recording.reads, 2);
}

TEST_F(StreamWalk, EndsWhenTheSeekSkipsADifferentAmount)
{
    Recording recording(NamedStream(L":a:$DATA", 9) + NamedStream(L":b:$DATA", 9));
    recording.shortSeekNumber = 1;
    EXPECT_EQ(::Find(&recording, L"*", &found), VORN_OK);
    EXPECT_EQ(found, (std::vector<Found>{{L":a:$DATA", 9}}));
}

TEST_F(StreamWalk, EndsAtDataShorterThanItsHeaderClaims)
{
    EXPECT_EQ(Find(Header(kBackupAlternateData, 1000, 16) + NameBytes(L":a:$DATA") + Bytes(999, 0), L"*"),
              VORN_OK);
    EXPECT_EQ(found, (std::vector<Found>{{L":a:$DATA", 1000}}));
}

TEST_F(StreamWalk, ASizeAboveWhatTheSystemCanCountIsNotSkipped)
{
    Recording recording(Header(kBackupAlternateData, 0x8000000000000000u, 16) + NameBytes(L":a:$DATA") +
                        NamedStream(L":b:$DATA", 0));
    EXPECT_EQ(::Find(&recording, L"*", &found), VORN_OK);
    EXPECT_EQ(found.size(), 1u);
    EXPECT_EQ(recording.seeks, 0);
}

TEST_F(StreamWalk, ListsTwoStreamsOfOneNameTwice)
{
    EXPECT_EQ(Find(NamedStream(L":a:$DATA", 1) + NamedStream(L":a:$DATA", 2), L"*"), VORN_OK);
    EXPECT_EQ(found, (std::vector<Found>{{L":a:$DATA", 1}, {L":a:$DATA", 2}}));
}

TEST_F(StreamWalk, ListsRandomStreamsAsTheyWereBuiltAndBreaksOffCleanlyAtEveryByte)
{
    std::mt19937 random(20261122);
    for (int round = 0; round < 200; ++round) {
        Bytes data;
        std::vector<Found> expected;
        std::vector<size_t> namesEnd;
        for (int i = 0, count = static_cast<int>(random() % 6); i < count; ++i) {
            const size_t size = random() % 3 == 0 ? 0 : random() % 50;
            if (random() % 3 == 0) {
                data = data + UnnamedStream(size);
                continue;
            }
            const Text name =
                L":" + Text(1 + random() % 10, static_cast<wchar_t>(L'a' + random() % 3)) + L":$DATA";
            namesEnd.push_back(data.size() + 20 + 2 * name.size());
            data = data + NamedStream(name, size);
            if (name[1] == L'a') expected.push_back({name, size});
            if (name[1] != L'a') namesEnd.pop_back();
        }
        for (size_t cut = 0; cut <= data.size(); ++cut) {
            Bytes part(data.begin(), data.begin() + static_cast<ptrdiff_t>(cut));
            std::vector<Found> whole;
            for (size_t i = 0; i < expected.size(); ++i) {
                if (namesEnd[i] <= cut) whole.push_back(expected[i]);
            }
            const VornStatus status = Find(part, L"a*:$DATA");
            ASSERT_EQ(found, whole) << round << " cut at " << cut;
            ASSERT_EQ(status, cut < 20 ? VORN_E_READ : whole.empty() ? VORN_E_NOT_AVAILABLE : VORN_OK);
        }
    }
}

TEST(StreamList, KeepsOrderAndGivesNodesAway)
{
    StreamList list;
    const StreamNode* nodes[3];
    for (const StreamNode*& node : nodes) {
        auto* made = static_cast<StreamNode*>(std::calloc(1, sizeof(StreamNode)));
        made->name = static_cast<wchar_t*>(std::calloc(3, sizeof(wchar_t)));
        made->name[0] = L':';
        made->name[1] = static_cast<wchar_t>(L'a' + (&node - nodes));
        list.Append(made);
        node = made;
    }
    EXPECT_TRUE(list.Contains(L":b"));
    EXPECT_FALSE(list.Contains(L":"));
    EXPECT_FALSE(list.Contains(L":bb"));
    StreamNode* second = StreamList::TakeAfter(list.First());
    EXPECT_EQ(second, nodes[1]);
    EXPECT_EQ(second->next, nullptr);
    vorn::detail::FreeStream(second);
    EXPECT_FALSE(list.Contains(L":b"));
    EXPECT_EQ(list.First()->next, nodes[2]);
    EXPECT_EQ(StreamList::TakeAfter(list.First()->next), nullptr);
    StreamNode* first = list.TakeFirst();
    EXPECT_EQ(first, nodes[0]);
    vorn::detail::FreeStream(first);
    vorn::detail::FreeStream(list.TakeFirst());
    EXPECT_EQ(list.TakeFirst(), nullptr);
    vorn::detail::FreeStream(nullptr);
}
