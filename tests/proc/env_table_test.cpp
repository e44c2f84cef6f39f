#include "proc/env_table.h"

#include "proc/start_strings.h"
#include "proc/utf16_text.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <unicode/uchar.h>
#include <unicode/ustring.h>
#include <vector>

using namespace vorn::detail;
using vorn_test::Narrowed;
using vorn_test::Wide;

namespace {

int Sign(int value)
{
    return (value > 0) - (value < 0);
}

int Compare(const std::u16string& a, const std::u16string& b)
{
    return Sign(CompareEnvNames(Wide(a), Wide(b)));
}

// The order as ICU gives it for the two names, zero-terminated.
int CompareWithIcu(const std::u16string& a, const std::u16string& b)
{
    const std::u16string nameA = a.substr(0, a.find(u'='));
    const std::u16string nameB = b.substr(0, b.find(u'='));
    UErrorCode error = U_ZERO_ERROR;
    return Sign(u_strCaseCompare(nameA.c_str(), -1, nameB.c_str(), -1, U_FOLD_CASE_DEFAULT, &error));
}

// Names that fold in every way there is: to themselves, to one other unit, to several, from and to ASCII,
// and halves of pairs.
const char16_t* const kPieces[] = {
    u"a",      u"A",      u"z",          u"Z",          u"_",         u"0",      u"s",      u"S",
    u"k",      u"i",      u"f",          u"\x01",       u"~",         u" ",      u"\x7F",   u"\u0080",
    u"\u00DF", u"\u1E9E", u"\u017F",     u"\u212A",     u"\u0130",    u"\u0131", u"\u00C4", u"\u00E4",
    u"\uFB03", u"\uFB00", u"\u03A3",     u"\u03C2",     u"\u0390",    u"\uFF21", u"\uFF41", u"\u13A0",
    u"\uAB70", u"\uE000", u"\U00010400", u"\U00010428", u"\U0001F600"};

std::u16string RandomName(std::mt19937& random, int longest)
{
    std::u16string name;
    for (int pieces = random() % (longest + 1); pieces > 0; --pieces) {
        const uint32_t draw = random() % 50;
        if (draw == 0) {
            name += static_cast<char16_t>(0xD800 + random() % 0x800);  // half of a pair
        } else if (draw == 1) {
            name += static_cast<char16_t>(1 + random() % 0xFFFF);
        } else {
            name += kPieces[random() % (sizeof(kPieces) / sizeof(kPieces[0]))];
        }
    }
    std::replace(name.begin(), name.end(), u'=', u'-');
    return name;
}

// The same table written without regard for speed: strings in a list, folded whole before each comparison.
class ModelTable {
public:
    static std::u16string Folded(const std::u16string& text)
    {
        const std::u16string name = text.substr(0, text.find(u'='));
        std::vector<char16_t> folded(name.size() * 4 + 1);
        UErrorCode error = U_ZERO_ERROR;
        const int32_t length = u_strFoldCase(folded.data(), static_cast<int32_t>(folded.size()), name.data(),
                                             static_cast<int32_t>(name.size()), U_FOLD_CASE_DEFAULT, &error);
        return std::u16string(folded.data(), static_cast<size_t>(length));
    }

    void Set(const std::u16string& name, const std::u16string* value)
    {
        const std::u16string folded = Folded(name);
        const auto at = std::find_if(entries.begin(), entries.end(),
                                     [&](const Entry& entry) { return entry.folded >= folded; });
        const bool found = at != entries.end() && at->folded == folded;
        if (value == nullptr) {
            if (found) entries.erase(at);
        } else if (found) {
            at->text = name + u"=" + *value;
        } else {
            entries.insert(at, {folded, name + u"=" + *value});
        }
    }

    const std::u16string* Find(const std::u16string& name) const
    {
        const std::u16string folded = Folded(name);
        for (const Entry& entry : entries) {
            if (entry.folded == folded) return &entry.text;
        }
        return nullptr;
    }

    std::vector<std::u16string> Strings() const
    {
        std::vector<std::u16string> strings;
        for (const Entry& entry : entries) strings.push_back(entry.text);
        return strings;
    }

private:
    struct Entry {
        std::u16string folded;
        std::u16string text;
    };
    std::vector<Entry> entries;
};

class EnvTable : public testing::Test {
protected:
    EnvTable() { Fill(nullptr); }
    ~EnvTable() override { EnvTableClear(&env); }

    void Fill(const char16_t* strings)
    {
        if (env.entries != nullptr) EnvTableClear(&env);
        ASSERT_TRUE(EnvTableInit(&env, Wide(strings)));
    }
    VornStatus Set(const char16_t* name, const char16_t* value)
    {
        return EnvTableSet(&env, Wide(name), Wide(value));
    }
    VornStatus Get(const char16_t* name)
    {
        wchar_t buffer[64];
        uint32_t size = 64;
        const VornStatus status = EnvTableGet(env, Wide(name), buffer, &size);
        value = status == VORN_OK ? Narrowed(buffer) : std::u16string(u"<none>");
        return status;
    }
    std::vector<std::u16string> Strings() const
    {
        std::vector<std::u16string> strings;
        for (uint32_t i = 0; i + 1 < env.count; ++i) strings.push_back(Narrowed(env.entries[i]));
        EXPECT_EQ(env.entries[env.count - 1], nullptr);
        EXPECT_LE(env.count, env.capacity);
        return strings;
    }

    using List = std::vector<std::u16string>;
    VornProcEnv env{};
    std::u16string value;
};

}  // namespace

TEST(EnvNames, EndAtTheFirstEqualsSign)
{
    EXPECT_EQ(Compare(u"PATH=a", u"path=b"), 0);
    EXPECT_EQ(Compare(u"PATH", u"Path=b=c"), 0);
    EXPECT_EQ(Compare(u"PATHS=a", u"PATH=b"), 1);
    EXPECT_EQ(Compare(u"=C:=C:\\x", u"=D:=D:\\"), 0);
    EXPECT_EQ(Compare(u"=C:=C:\\x", u""), 0);
    EXPECT_EQ(Compare(u"=C:=C:\\x", u"\x01"), -1);
}

TEST(EnvNames, AShorterNameComesBeforeOneThatItBegins)
{
    EXPECT_EQ(Compare(u"TEMP", u"TEMPO"), -1);
    // The system's own order, by which '=' counts as a character, would have it the other way round.
    EXPECT_EQ(Compare(u"A=2", u"A-B=1"), -1);
}

TEST(EnvNames, AreOrderedByTheirFoldingsAndNotByTheirCapitals)
{
    // '_' is behind the capitals and before the small letters.
    EXPECT_EQ(Compare(u"_", u"A"), -1);
    EXPECT_EQ(Compare(u"_", u"a"), -1);
    EXPECT_EQ(Compare(u"[", u"Z"), -1);
}

TEST(EnvNames, FoldFully)
{
    EXPECT_EQ(Compare(u"stra\u00DFe", u"STRASSE"), 0);
    EXPECT_EQ(Compare(u"\u212Aelvin", u"KELVIN"), 0);
    EXPECT_EQ(Compare(u"o\uFB03ce", u"OFFICE"), 0);
    EXPECT_EQ(Compare(u"\U00010400", u"\U00010428"), 0);
    EXPECT_EQ(Compare(u"\u0130", u"i"), 1);
    EXPECT_EQ(Compare(u"\u0130", u"i\u0307"), 0);
}

TEST(EnvNames, AreOrderedByCodeUnitsAndNotByCodePoints)
{
    EXPECT_EQ(Compare(u"\U0001F600", u"\uE000"), -1);
}

TEST(EnvNames, AgreeWithIcuForEveryPairOfSingleUnits)
{
    // Every unit against every ASCII unit, and against its neighbours.
    for (uint32_t a = 1; a <= 0xFFFF; ++a) {
        const std::u16string nameA = {u'x', static_cast<char16_t>(a), u'y'};
        for (uint32_t b = 1; b < 0x80; ++b) {
            const std::u16string nameB = {u'X', static_cast<char16_t>(b), u'Y'};
            ASSERT_EQ(Compare(nameA, nameB), CompareWithIcu(nameA, nameB)) << std::hex << a << ' ' << b;
        }
    }
}

TEST(EnvNames, AgreeWithIcuForRandomNames)
{
    std::mt19937 random(71);
    for (int step = 0; step < 300000; ++step) {
        std::u16string a = RandomName(random, 6);
        std::u16string b = random() % 2 == 0 ? a : RandomName(random, 6);
        if (random() % 4 == 0) a += u"=value";
        if (!b.empty() && random() % 3 == 0) b[random() % b.size()] = u's';
        ASSERT_EQ(Compare(a, b), CompareWithIcu(a, b)) << "step " << step;
    }
}

TEST_F(EnvTable, BeginsEmptyWithOneSlotInUseAndNine)
{
    EXPECT_EQ(env.count, 1u);
    EXPECT_EQ(env.capacity, 9u);
    EXPECT_EQ(env.entries[0], nullptr);
}

TEST_F(EnvTable, SortsWhatItIsFilledWith)
{
    Fill(u"b=2\0A=1\0_x=3\0C=\0\0");
    EXPECT_EQ(Strings(), (List{u"_x=3", u"A=1", u"b=2", u"C="}));
    EXPECT_EQ(env.count, 5u);
    EXPECT_EQ(env.capacity, 13u);
}

TEST_F(EnvTable, PutsDriveEntriesFirstInTheOrderTheyCameIn)
{
    Fill(u"A=1\0=D:=D:\\y\0=C:=C:\\x\0\0");
    EXPECT_EQ(Strings(), (List{u"=D:=D:\\y", u"=C:=C:\\x", u"A=1"}));
    EXPECT_EQ(Get(u""), VORN_OK);
    EXPECT_EQ(value, u"D:=D:\\y");
}

TEST_F(EnvTable, KeepsEqualNamesInTheOrderTheyCameIn)
{
    Fill(u"b=1\0a=2\0B=3\0A=4\0\0");
    EXPECT_EQ(Strings(), (List{u"a=2", u"A=4", u"b=1", u"B=3"}));
    EXPECT_EQ(Get(u"B"), VORN_OK);
    EXPECT_EQ(value, u"1");
}

TEST_F(EnvTable, FindsANameInAnySpelling)
{
    EXPECT_EQ(Set(u"Path", u"x"), VORN_OK);
    EXPECT_EQ(Get(u"PATH"), VORN_OK);
    EXPECT_EQ(value, u"x");
    EXPECT_EQ(Get(u"path=ignored"), VORN_OK);
    EXPECT_EQ(Get(u"pat"), VORN_ENV_NOT_FOUND);
    EXPECT_EQ(Get(u"paths"), VORN_ENV_NOT_FOUND);
}

TEST_F(EnvTable, RewritesTheSpellingOfANameThatIsSetAgain)
{
    Set(u"Path", u"some value");
    EXPECT_EQ(Set(u"PATH", u"v"), VORN_OK);
    EXPECT_EQ(Strings(), (List{u"PATH=v"}));
    EXPECT_EQ(Set(u"path", u"a value longer than before"), VORN_OK);
    EXPECT_EQ(Strings(), (List{u"path=a value longer than before"}));
    // Full folding: one spelling is longer than the other.
    Set(u"stra\u00DFe", u"1");
    EXPECT_EQ(Set(u"STRASSE", u"2"), VORN_OK);
    EXPECT_EQ(Strings(), (List{u"path=a value longer than before", u"STRASSE=2"}));
}

TEST_F(EnvTable, KeepsAnEntrysMemoryWhileTheNewTextIsNoLonger)
{
    Set(u"NAME", u"12345");
    const wchar_t* before = env.entries[0];
    Set(u"NAME", u"54321");
    EXPECT_EQ(env.entries[0], before);
    Set(u"NAME", u"");
    EXPECT_EQ(env.entries[0], before);
    EXPECT_EQ(Strings(), (List{u"NAME="}));
}

TEST_F(EnvTable, InsertsInOrder)
{
    Set(u"b", u"2");
    Set(u"A", u"1");
    Set(u"C", u"3");
    EXPECT_EQ(Strings(), (List{u"A=1", u"b=2", u"C=3"}));
}

TEST_F(EnvTable, WritesANameWithAnEqualsSignAsItIsSpelled)
{
    EXPECT_EQ(Set(u"a=b", u"c"), VORN_OK);
    EXPECT_EQ(Strings(), (List{u"a=b=c"}));
    EXPECT_EQ(Get(u"A"), VORN_OK);
    EXPECT_EQ(value, u"b=c");
    EXPECT_EQ(Set(u"=C:", u"C:\\x"), VORN_OK);
    EXPECT_EQ(Set(u"=D:", u"D:\\y"), VORN_OK);
    EXPECT_EQ(Strings(), (List{u"=D:=D:\\y", u"a=b=c"}));
}

TEST_F(EnvTable, RemovesAndLeavesTheOthers)
{
    Fill(u"a=1\0b=2\0c=3\0\0");
    EXPECT_EQ(Set(u"B", nullptr), VORN_OK);
    EXPECT_EQ(Strings(), (List{u"a=1", u"c=3"}));
    EXPECT_EQ(Set(u"B", nullptr), VORN_OK);
    EXPECT_EQ(Set(u"a", nullptr), VORN_OK);
    EXPECT_EQ(Set(u"c", nullptr), VORN_OK);
    EXPECT_EQ(Strings(), List{});
    EXPECT_EQ(Set(u"c", nullptr), VORN_OK);
    EXPECT_EQ(env.count, 1u);
}

TEST_F(EnvTable, GrowsByEightSlotsWhenTheSpareOnesAreUsedUp)
{
    Fill(u"x=1\0y=2\0\0");
    EXPECT_EQ(env.capacity, 11u);
    char16_t name[] = u"a";
    for (; name[0] < u'a' + 8; ++name[0]) Set(name, u"");
    EXPECT_EQ(env.count, 11u);
    EXPECT_EQ(env.capacity, 11u);
    Set(name, u"");
    EXPECT_EQ(env.count, 12u);
    EXPECT_EQ(env.capacity, 19u);
}

TEST_F(EnvTable, GivesTheSizeWithTheTerminatingZero)
{
    Set(u"name", u"12345");
    wchar_t buffer[6];
    uint32_t size = 6;
    EXPECT_EQ(EnvTableGet(env, Wide(u"name"), buffer, &size), VORN_OK);
    EXPECT_EQ(size, 6u);
    EXPECT_EQ(Narrowed(buffer), u"12345");
    size = 5;
    buffer[0] = L'?';
    EXPECT_EQ(EnvTableGet(env, Wide(u"name"), buffer, &size), VORN_E_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, 6u);
    EXPECT_EQ(buffer[0], L'?');
    size = 0;
    EXPECT_EQ(EnvTableGet(env, Wide(u"name"), nullptr, &size), VORN_E_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, 6u);
    size = 100;
    EXPECT_EQ(EnvTableGet(env, Wide(u"name"), nullptr, &size), VORN_OK);
    EXPECT_EQ(size, 6u);
}

TEST_F(EnvTable, GivesAnEmptyValueAsOneUnit)
{
    Set(u"empty", u"");
    uint32_t size = 1;
    wchar_t buffer[1] = {L'?'};
    EXPECT_EQ(EnvTableGet(env, Wide(u"EMPTY"), buffer, &size), VORN_OK);
    EXPECT_EQ(size, 1u);
    EXPECT_EQ(buffer[0], 0);
}

TEST_F(EnvTable, ZeroesTheSizeOfAMissingVariable)
{
    uint32_t size = 77;
    EXPECT_EQ(EnvTableGet(env, Wide(u"none"), nullptr, &size), VORN_ENV_NOT_FOUND);
    EXPECT_EQ(size, 0u);
}

TEST_F(EnvTable, HasNoValueForAStringWithoutAnEqualsSign)
{
    Fill(u"NAME=1\0bare\0\0");
    uint32_t size = 77;
    EXPECT_EQ(EnvTableGet(env, Wide(u"BARE"), nullptr, &size), VORN_E_SYSTEM);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(Set(u"Bare", u"2"), VORN_OK);
    EXPECT_EQ(Strings(), (List{u"Bare=2", u"NAME=1"}));
}

TEST_F(EnvTable, AgreesWithAPlainModelOverRandomChanges)
{
    const uint32_t seed = 5201;
    std::mt19937 random(seed);
    ModelTable model;
    for (int step = 0; step < 30000; ++step) {
        std::u16string name = RandomName(random, 3);
        if (random() % 40 == 0) name = u"=" + name;
        if (random() % 40 == 0) name += u"=tail";
        const std::u16string newValue = RandomName(random, 8);
        const bool remove = random() % (step / 1000 % 2 == 0 ? 4 : 2) == 0;
        ASSERT_EQ(EnvTableSet(&env, Wide(name), remove ? nullptr : Wide(newValue)), VORN_OK);
        model.Set(name, remove ? nullptr : &newValue);
        if (step % 64 == 0) {
            ASSERT_EQ(Strings(), model.Strings()) << "seed " << seed << " step " << step;
        }

        const std::u16string probe = RandomName(random, 3);
        const std::u16string* expected = model.Find(probe);
        wchar_t buffer[128];
        uint32_t size = 128;
        const VornStatus status = EnvTableGet(env, Wide(probe), buffer, &size);
        ASSERT_EQ(status, expected == nullptr ? VORN_ENV_NOT_FOUND : VORN_OK) << step;
        if (expected != nullptr) {
            const std::u16string expectedValue = expected->substr(expected->find(u'=') + 1);
            ASSERT_EQ(Narrowed(buffer), expectedValue);
            ASSERT_EQ(size, expectedValue.size() + 1);
        }
    }
    ASSERT_EQ(Strings(), model.Strings());
}

TEST(CommandLine, QuotesTheProgramUnlessItIsQuoted)
{
    const auto build = [](const char16_t* program, const char16_t* args) {
        return Narrowed(BuildCommandLine(Wide(program), Wide(args)).Get());
    };
    EXPECT_EQ(build(u"C:\\a b\\x.exe", u"-v"), u"\"C:\\a b\\x.exe\" -v");
    EXPECT_EQ(build(u"\"C:\\a b\\x.exe\"", u"-v"), u"\"C:\\a b\\x.exe\" -v");
    EXPECT_EQ(build(u"\"C:\\a b\\x.exe\" --already", u"-v"), u"\"C:\\a b\\x.exe\" --already -v");
    EXPECT_EQ(build(u"x", nullptr), u"\"x\"");
    EXPECT_EQ(build(u"\"x", nullptr), u"\"x");
    EXPECT_EQ(build(u"", nullptr), u"\"\"");
    EXPECT_EQ(build(u"x", u""), u"\"x\" ");
    EXPECT_EQ(build(nullptr, u"x \"y z\"  \U0001F600"), u"x \"y z\"  \U0001F600");
    EXPECT_EQ(build(nullptr, u""), u"");
    EXPECT_EQ(build(u"a\"b", u"\"c\\\""), u"\"a\"b\" \"c\\\"");
}

TEST_F(EnvTable, BecomesABlockThatEndsWithTwoZeros)
{
    const auto units = [](const Buffer<wchar_t>& block, size_t count) {
        return std::u16string(reinterpret_cast<const char16_t*>(block.Get()), count);
    };
    EXPECT_EQ(units(BuildEnvironmentBlock(env), 2), std::u16string(2, u'\0'));
    Set(u"b", u"");
    Set(u"A", u"\U0001F600 x");
    const std::u16string expected(u"A=\U0001F600 x\0b=\0\0\0", 12);
    EXPECT_EQ(units(BuildEnvironmentBlock(env), 12), expected);
}
