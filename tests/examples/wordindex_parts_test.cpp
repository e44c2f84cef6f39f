// The parts of wordindex that need no system: splitting, counting, and the table in an area of offsets.

#include "word_counter.h"
#include "word_split.h"
#include "word_table.h"

#include <cstring>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

using namespace wordindex;

namespace {

const wchar_t* Wide(const std::u16string& text)
{
    return reinterpret_cast<const wchar_t*>(text.data());
}

std::vector<std::u16string> Split(const std::u16string& text)
{
    // A copy of exactly the text, so that reading past it is seen.
    const std::unique_ptr<wchar_t[]> units(new wchar_t[text.size()]);
    std::memcpy(units.get(), text.data(), text.size() * sizeof(wchar_t));
    std::vector<std::u16string> words;
    Word word;
    for (size_t position = 0; NextWord(units.get(), text.size(), &position, &word);) {
        words.emplace_back(reinterpret_cast<const char16_t*>(word.text), word.length);
        bool ascii = true;
        for (const char16_t unit : words.back()) ascii &= unit < 0x80;
        EXPECT_EQ(word.ascii, ascii);
    }
    return words;
}

using List = std::vector<std::u16string>;

// An area as a heap would be, from which pieces are taken in order.
class TableArea {
public:
    explicit TableArea(uint64_t size, uint32_t buckets = 64) : size_(size), memory_(new uint64_t[size / 8]())
    {
        auto* header = new (Bytes() + kHeader) IndexHeader{};
        header->magic = kMagic;
        header->bucketCount = buckets;
        header->bucketsOffset = kHeader + sizeof(IndexHeader);
        header->filesOffset = header->bucketsOffset + buckets * 8;
        header->fileCount = 1;
        used_ = header->filesOffset + sizeof(FileEntry);
        arena.allocate = [](Arena* taker, uint64_t bytes) -> uint64_t {
            auto* area = static_cast<TableArea*>(taker->owner);
            if (area->size_ - area->used_ < bytes + 1) {
                taker->failure = VORN_E_NO_MEMORY;
                return 0;
            }
            const uint64_t offset = area->used_ + 1;  // as unaligned as a heap may be
            area->used_ += bytes + 1;
            return offset;
        };
        arena.owner = this;
    }

    uint8_t* Bytes() const { return reinterpret_cast<uint8_t*>(memory_.get()); }
    WordTable Table() const { return WordTable(memory_.get(), size_, kHeader); }
    IndexHeader* Header() const { return reinterpret_cast<IndexHeader*>(Bytes() + kHeader); }
    VornStatus Add(const std::u16string& word, uint32_t count = 1)
    {
        return Table().Add(Wide(word), static_cast<uint32_t>(word.size()), HashWord(Wide(word), word.size()),
                           count, &arena);
    }
    uint64_t Find(const std::u16string& word) const
    {
        return Table().Find(Wide(word), static_cast<uint32_t>(word.size()),
                            HashWord(Wide(word), word.size()));
    }

    static constexpr uint64_t kHeader = 64;
    Arena arena;

private:
    uint64_t size_;
    uint64_t used_ = 0;
    std::unique_ptr<uint64_t[]> memory_;
};

}  // namespace

TEST(WordSplit, FindsRunsOfLettersAndDigits)
{
    EXPECT_EQ(Split(u""), List{});
    EXPECT_EQ(Split(u" \r\n\t.,;"), List{});
    EXPECT_EQ(Split(u"one"), (List{u"one"}));
    EXPECT_EQ(Split(u" one, two_three; 4x4 "), (List{u"one", u"two", u"three", u"4x4"}));
    EXPECT_EQ(Split(u"don't"), (List{u"don", u"t"}));
}

TEST(WordSplit, KnowsOtherScriptsAndTheirPunctuation)
{
    EXPECT_EQ(Split(u"caf\u00E9\u00D7\u00E9t\u00E9"), (List{u"caf\u00E9", u"\u00E9t\u00E9"}));
    EXPECT_EQ(Split(u"e\u0301t\u0301"), (List{u"e\u0301t\u0301"}));
    EXPECT_EQ(Split(u"\u4E2D\u6587\u3002\u6F22\u5B57"), (List{u"\u4E2D\u6587", u"\u6F22\u5B57"}));
    EXPECT_EQ(Split(u"a\u2014b\u2026c\uFFFDd\uFEFFe"), (List{u"a", u"b", u"c", u"d", u"e"}));
}

TEST(WordSplit, TakesPairsWholeAndHalvesAsSeparators)
{
    EXPECT_EQ(Split(u"\U00010400\U00020000x"), (List{u"\U00010400\U00020000x"}));
    EXPECT_EQ(Split(u"a\U0001F600b"), (List{u"a", u"b"}));
    EXPECT_EQ(Split(u"a\xD801"
                    u"b"),
              (List{u"a", u"b"}));
    EXPECT_EQ(Split(u"a\xDC00"
                    u"b"),
              (List{u"a", u"b"}));
    EXPECT_EQ(Split(u"a\xD801"), (List{u"a"}));
}

TEST(WordSplit, LeavesNothingOutAndTakesNothingTwice)
{
    std::mt19937 random(11);
    for (int step = 0; step < 20000; ++step) {
        std::u16string text;
        for (int i = random() % 12; i > 0; --i)
            text += static_cast<char16_t>(random() % 3 == 0 ? random() : 0x40 + random() % 0x60);
        // A word never ends where another begins, and is a word by itself.
        std::u16string rest = text;
        for (const std::u16string& word : Split(text)) {
            EXPECT_EQ(Split(word), (List{word}));
            const size_t at = rest.find(word);
            ASSERT_NE(at, std::u16string::npos);
            EXPECT_EQ(Split(rest.substr(0, at)), List{});
            rest = rest.substr(at + word.size());
        }
        EXPECT_EQ(Split(rest), List{});
    }
}

TEST(WordCounter, CountsLikeAMap)
{
    std::mt19937 random(12);
    WordCounter counter;
    for (int round = 0; round < 3; ++round) {
        std::map<std::u16string, uint32_t> model;
        for (int i = 0; i < 60000; ++i) {
            std::u16string word;
            for (int length = 1 + random() % 4; length > 0; --length)
                word += static_cast<char16_t>(u'a' + random() % 12);
            counter.Add(Wide(word), word.size());
            ++model[word];
        }
        EXPECT_EQ(counter.Distinct(), model.size());
        size_t seen = 0;
        for (const WordCounter::Entry& entry : counter.Slots()) {
            if (entry.length == 0) continue;
            const std::u16string word(reinterpret_cast<const char16_t*>(counter.Text(entry)), entry.length);
            EXPECT_EQ(entry.count, model[word]);
            ++seen;
        }
        EXPECT_EQ(seen, model.size());
        counter.Clear();
        EXPECT_EQ(counter.Distinct(), 0u);
    }
}

TEST(WordTable, FindsWhatWasAdded)
{
    TableArea area(1 << 20);
    EXPECT_EQ(area.Find(u"one"), 0u);
    EXPECT_EQ(area.Add(u"one"), VORN_OK);
    EXPECT_EQ(area.Add(u"two", 5), VORN_OK);
    EXPECT_EQ(area.Add(u"one", 2), VORN_OK);
    EXPECT_EQ(area.Find(u"one"), 3u);
    EXPECT_EQ(area.Find(u"two"), 5u);
    EXPECT_EQ(area.Find(u"on"), 0u);
    uint64_t distinct = 0;
    uint64_t all = 0;
    for (const StripeState& stripe : area.Header()->stripes) {
        distinct += stripe.distinctWords;
        all += stripe.allWords;
    }
    EXPECT_EQ(distinct, 2u);
    EXPECT_EQ(all, 8u);
}

TEST(WordTable, MeansTheSameAtAnotherAddress)
{
    TableArea area(1 << 20);
    for (int i = 0; i < 500; ++i)
        area.Add({u'w', static_cast<char16_t>(u'0' + i % 10), static_cast<char16_t>(u'a' + i % 26)}, 3);
    std::vector<uint64_t> copy(reinterpret_cast<uint64_t*>(area.Bytes()),
                               reinterpret_cast<uint64_t*>(area.Bytes()) + (1 << 17));
    const WordTable moved(copy.data(), 1 << 20, TableArea::kHeader);
    ASSERT_TRUE(moved.Valid());
    uint64_t all = 0;
    EXPECT_TRUE(moved.ForEach([&](const wchar_t*, uint32_t, uint64_t count) { all += count; }));
    EXPECT_EQ(all, 1500u);
}

TEST(WordTable, StaysUsableWhenTheMemoryIsUsedUp)
{
    TableArea area(200 * 1024);
    uint32_t added = 0;
    VornStatus status = VORN_OK;
    for (char16_t a = 0x4E00; status == VORN_OK; ++a) {
        status = area.Add(std::u16string(100, a));
        if (status == VORN_OK) ++added;
    }
    EXPECT_EQ(status, VORN_E_NO_MEMORY);
    EXPECT_GT(added, 500u);
    EXPECT_EQ(area.Add(std::u16string(100, 0x4E00)), VORN_OK);  // a word that is there needs no room
    uint32_t seen = 0;
    EXPECT_TRUE(area.Table().ForEach([&](const wchar_t*, uint32_t length, uint64_t) {
        EXPECT_EQ(length, 100u);
        ++seen;
    }));
    EXPECT_EQ(seen, added);
}

TEST(WordTable, RefusesAHeaderThatCannotBeOne)
{
    TableArea area(1 << 16);
    EXPECT_TRUE(area.Table().Valid());
    const auto invalid = [&](auto&& damage) {
        TableArea damaged(1 << 16);
        damage(damaged.Header());
        return !damaged.Table().Valid();
    };
    EXPECT_TRUE(invalid([](IndexHeader* h) { h->magic = 0; }));
    EXPECT_TRUE(invalid([](IndexHeader* h) { h->bucketCount = 8; }));
    EXPECT_TRUE(invalid([](IndexHeader* h) { h->bucketCount = 65; }));
    EXPECT_TRUE(invalid([](IndexHeader* h) { h->bucketCount = 0x80000000; }));
    EXPECT_TRUE(invalid([](IndexHeader* h) { h->bucketsOffset = 0xFFFFFFFFFFFFFFF8; }));
    EXPECT_TRUE(invalid([](IndexHeader* h) { h->bucketsOffset += 4; }));
    EXPECT_TRUE(invalid([](IndexHeader* h) { h->filesOffset = 1 << 16; }));
    EXPECT_TRUE(invalid([](IndexHeader* h) { h->fileCount = 0xFFFFFFFF; }));
    EXPECT_FALSE(WordTable(area.Bytes(), 1 << 16, 0).Valid());
    EXPECT_FALSE(WordTable(area.Bytes(), 1 << 16, (1 << 16) - 8).Valid());
    EXPECT_FALSE(WordTable(area.Bytes(), 1 << 16, TableArea::kHeader + 1).Valid());
}

TEST(WordTable, SeesAListThatGoesRound)
{
    TableArea area(1 << 18, kStripes);
    ASSERT_EQ(area.Add(u"word"), VORN_OK);
    auto* buckets = reinterpret_cast<uint64_t*>(area.Bytes() + area.Header()->bucketsOffset);
    for (uint32_t i = 0; i < kStripes; ++i) {
        if (buckets[i] == 0) continue;
        reinterpret_cast<WordEntry*>(area.Bytes() + buckets[i])->next = buckets[i];
    }
    EXPECT_FALSE(area.Table().ForEach([](const wchar_t*, uint32_t, uint64_t) {}));
}

TEST(WordTable, TouchesNothingOutsideWhateverStandsInIt)
{
    // The address sanitizer watches the ends of the area.
    std::mt19937_64 random(13);
    int sound = 0;
    for (int round = 0; round < 20000; ++round) {
        TableArea area(80 * 1024, kStripes);
        for (char16_t a = u'a'; a <= u'z'; ++a) ASSERT_EQ(area.Add({a, u'x', a}), VORN_OK);
        for (int hits = 1 + random() % 3; hits > 0; --hits) {
            const uint64_t at = 8 * (random() % 600);
            const uint64_t values[] = {
                0, ~uint64_t{0}, random(), random() % (80 * 1024), 80 * 1024 - 8, 80 * 1024 - 24};
            const uint64_t value = values[random() % 6];
            std::memcpy(area.Bytes() + at, &value, 8);
        }
        const WordTable table = area.Table();
        if (!table.Valid()) continue;
        uint64_t units = 0;
        sound += table.ForEach([&](const wchar_t* text, uint32_t length, uint64_t) {
            for (uint32_t i = 0; i < length; ++i) units += text[i];
        });
        area.Find(u"axa");
        area.Add(u"new word");
        for (uint32_t i = 0; const FileEntry* file = table.FileAt(i); ++i) {
            if (const wchar_t* name = table.NameOf(*file)) units += name[0];
            if (i > 100000) break;
        }
        EXPECT_NE(units, 1u);
    }
    EXPECT_GT(sound, 100);
}
