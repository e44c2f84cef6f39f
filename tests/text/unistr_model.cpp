#include "text/unistr_model.h"

#include <algorithm>
#include <utility>

namespace unistr_test {

namespace {

using vorn::UniStr;

constexpr uint32_t kNpos = 0xFFFFFFFF;
constexpr size_t kLongest = 3000;  // where a script lets texts grow no more

uint64_t RoundedUp(uint64_t n)
{
    return n <= 8 ? 8 : (n + 7) / 8 * 8;
}

uint64_t Fresh(uint64_t length)
{
    return length < 32 ? 32 : (length + 7) / 8 * 8 + 8;
}

// The capacity after n units more, added by steps for texts: once, if they do not fit.
uint64_t AfterText(uint64_t capacity, uint64_t length, uint64_t n)
{
    return capacity - length - 1 < n ? capacity + RoundedUp(n) + 32 : capacity;
}

// The capacity after n units more, added one at a time.
uint64_t AfterUnits(uint64_t capacity, uint64_t length, uint64_t n)
{
    for (; n != 0; --n, ++length) {
        if (length == capacity - 1) capacity += 32;
    }
    return capacity;
}

uint64_t AfterReplacement(uint64_t capacity, uint64_t length, uint64_t count, uint64_t n)
{
    return capacity - length + count - 1 < n ? capacity + RoundedUp(n) + 32 : capacity;
}

uint64_t AfterAssignment(uint64_t capacity, uint64_t n)
{
    return n < capacity ? capacity : Fresh(n);
}

// The text up to its first zero, as a zero-terminated reading sees it.
std::u16string UpToZero(const std::u16string& text)
{
    return text.substr(0, text.find(u'\0'));
}

std::u16string View(const UniStr& text)
{
    return std::u16string(std::u16string_view(text));
}

char16_t PickUnit(ScriptSource& source)
{
    static constexpr char16_t kUnits[] = {u'a',      u'b',      u'B',   u'c',   u'\u00df',
                                          u'\u0436', u'\u4e2d', 0xD83D, 0xDE00, 0};
    return kUnits[source.Below(sizeof kUnits / sizeof *kUnits)];
}

uint32_t PickLength(ScriptSource& source)
{
    const uint32_t kind = source.Below(8);
    if (kind < 4) return source.Below(8);
    if (kind < 7) return source.Below(48);
    return source.Below(200);
}

}  // namespace

void EditScript::Fail(const std::string& what)
{
    if (failure_.empty()) failure_ = "step " + std::to_string(steps_) + ", " + operation_ + ": " + what;
}

// A position, mostly inside; sometimes the length, one more, or far away.
uint32_t EditScript::PickPosition(ScriptSource& source, size_t length)
{
    const uint32_t kind = source.Below(16);
    const uint32_t size = static_cast<uint32_t>(length);
    if (kind == 0) return size;
    if (kind == 1) return size + 1;
    if (kind == 2) return kNpos;
    return source.Below(size + 1);
}

EditScript::Units EditScript::PickUnits(ScriptSource& source, size_t target)
{
    const uint32_t kind = source.Below(4);
    if (kind < 2) {
        scratch_.clear();
        std::u16string value;
        for (uint32_t n = PickLength(source); n != 0; --n) value.push_back(PickUnit(source));
        scratch_.assign(value.begin(), value.end());
        scratch_.push_back(0);
        return {scratch_.data(), value};
    }
    const size_t owner = kind == 2 ? 1 - target : target;
    const std::u16string& text = models_[owner].text;
    const uint32_t from = source.Below(static_cast<uint32_t>(text.size()) + 1);
    const uint32_t n = source.Below(static_cast<uint32_t>(text.size()) - from + 1);
    return {strings_[owner].S_Str() + from, text.substr(from, n)};
}

// Runs the edit on the string and, where it is to succeed, on the model. An edit that is to throw has to
// leave everything as it is.
template <typename Edit, typename Expect>
void EditScript::Apply(size_t target, bool throws, Edit edit, Expect expect)
{
    bool thrown = false;
    try {
        edit(strings_[target]);
    } catch (const vorn::OutOfRange& e) {
        thrown = true;
        if (std::string(e.What()) != "Out of range") Fail("message");
    }
    if (thrown != throws) Fail(thrown ? "threw" : "did not throw");
    if (!throws) expect(models_[target]);
    Check(target);
}

void EditScript::Check(size_t target)
{
    const UniStr& string = strings_[target];
    const Model& model = models_[target];
    if (View(string) != model.text) Fail("text");
    if (string[string.Size()] != 0) Fail("terminator");
    if (string.Capacity() + uint64_t{1} != model.capacity) {
        Fail("capacity " + std::to_string(string.Capacity() + uint64_t{1}) + " instead of " +
             std::to_string(model.capacity));
    }
    if (string.Empty() != model.text.empty() || string.Length() != model.text.size()) Fail("length");
}

bool EditScript::Step(ScriptSource& source)
{
    const size_t target = source.Below(2);
    const size_t other = 1 - target;
    UniStr& string = strings_[target];
    const std::u16string before = models_[target].text;
    const std::u16string otherText = models_[other].text;
    const uint32_t length = static_cast<uint32_t>(before.size());
    const uint32_t otherLength = static_cast<uint32_t>(otherText.size());
    const auto begin = std::as_const(string).Begin();
    const auto name = [this](const char* operation) { operation_ = operation; };
    const auto setText = [](Model& m, const std::u16string& text) {
        m.capacity = AfterAssignment(m.capacity, text.size());
        m.text = text;
    };
    const auto append = [](Model& m, const std::u16string& text) {
        m.capacity = AfterText(m.capacity, m.text.size(), text.size());
        m.text += text;
    };
    const auto insert = [](Model& m, uint32_t pos, const std::u16string& text) {
        m.capacity = AfterText(m.capacity, m.text.size(), text.size());
        m.text.insert(pos, text);
    };
    const auto insertUnits = [](Model& m, uint32_t pos, uint32_t n, char16_t c) {
        m.capacity = AfterUnits(m.capacity, m.text.size(), n);
        m.text.insert(pos, n, c);
    };
    const auto replace = [](Model& m, uint32_t pos, uint32_t count, const std::u16string& text) {
        const size_t removed = std::min<size_t>(count, m.text.size() - pos);
        m.capacity = AfterReplacement(m.capacity, m.text.size(), removed, text.size());
        m.text.replace(pos, removed, text);
    };
    // A range of the target.
    const auto pickRange = [&](uint32_t* from, uint32_t* count) {
        *from = source.Below(length + 1);
        *count = source.Below(length - *from + 1);
    };

    if (length > kLongest) {
        name("cut");
        Apply(
            target, false, [&](UniStr& s) { s.Resize(20, L'x'); }, [&](Model& m) { m.text.resize(20); });
        return failure_.empty();
    }
    switch (source.Below(52)) {
        case 0: {
            name("= string");
            Apply(
                target, false, [&](UniStr& s) { s = strings_[other]; },
                [&](Model& m) { setText(m, otherText); });
            break;
        }
        case 1: {
            name("= pointer");
            const Units units = PickUnits(source, target);
            const std::u16string measured =
                UpToZero(std::u16string(units.data == scratch_.data()
                                            ? units.value
                                            : std::u16string(reinterpret_cast<const char16_t*>(units.data))));
            Apply(
                target, false, [&](UniStr& s) { s = units.data; }, [&](Model& m) { setText(m, measured); });
            break;
        }
        case 2: {
            name("Assign(s, n)");
            const Units units = PickUnits(source, target);
            Apply(
                target, false,
                [&](UniStr& s) { s.Assign(units.data, static_cast<uint32_t>(units.value.size())); },
                [&](Model& m) { setText(m, units.value); });
            break;
        }
        case 3: {
            name("Assign(string)");
            Apply(
                target, false, [&](UniStr& s) { s.Assign(strings_[other]); },
                [&](Model& m) { setText(m, otherText); });
            break;
        }
        case 4: {
            name("Assign(string, pos, n)");
            const bool self = source.Below(4) == 0;
            const std::u16string& from = self ? before : otherText;
            const uint32_t pos = PickPosition(source, from.size());
            const uint32_t n = source.Below(8) == 0 ? kNpos : PickLength(source);
            Apply(
                target, pos >= from.size(),
                [&](UniStr& s) { s.Assign(strings_[self ? target : other], pos, n); },
                [&](Model& m) { setText(m, from.substr(pos, n)); });
            break;
        }
        case 5: {
            name("Assign(n, c)");
            const uint32_t n = PickLength(source);
            const char16_t c = PickUnit(source);
            Apply(
                target, false, [&](UniStr& s) { s.Assign(n, static_cast<wchar_t>(c)); },
                [&](Model& m) {
                    m.capacity = AfterUnits(m.capacity, 0, n);
                    m.text.assign(n, c);
                });
            break;
        }
        case 6: {
            name("Assign(first, last)");
            const bool self = source.Below(2) == 0;
            const std::u16string& from = self ? before : otherText;
            const auto start = std::as_const(strings_[self ? target : other]).Begin();
            const uint32_t pos = source.Below(static_cast<uint32_t>(from.size()) + 1);
            const uint32_t n = source.Below(static_cast<uint32_t>(from.size()) - pos + 1);
            Apply(
                target, false, [&](UniStr& s) { s.Assign(start + pos, start + pos + n); },
                [&](Model& m) {
                    m.capacity = AfterUnits(m.capacity, 0, n);
                    m.text = from.substr(pos, n);
                });
            break;
        }
        case 7:
        case 8: {
            name("+= string");
            const bool self = source.Below(4) == 0;
            Apply(
                target, false, [&](UniStr& s) { s += strings_[self ? target : other]; },
                [&](Model& m) { append(m, self ? before : otherText); });
            break;
        }
        case 9: {
            name("+= pointer");
            const uint32_t from = source.Below(length + 1);
            Apply(
                target, false, [&](UniStr& s) { s += s.S_Str() + from; },
                [&](Model& m) { append(m, UpToZero(before.substr(from))); });
            break;
        }
        case 10:
        case 11:
        case 12:
        case 13: {
            name("+= unit");
            for (uint32_t n = 1 + source.Below(12); n != 0; --n) {
                const char16_t c = PickUnit(source);
                Apply(
                    target, false, [&](UniStr& s) { s += static_cast<wchar_t>(c); },
                    [&](Model& m) { insertUnits(m, static_cast<uint32_t>(m.text.size()), 1, c); });
            }
            break;
        }
        case 14:
        case 15: {
            name("Append(s, n)");
            const Units units = PickUnits(source, target);
            if (units.value.empty()) break;  // would measure
            Apply(
                target, false,
                [&](UniStr& s) { s.Append(units.data, static_cast<uint32_t>(units.value.size())); },
                [&](Model& m) { append(m, units.value); });
            break;
        }
        case 16: {
            name("Append(s, 0)");
            const uint32_t from = source.Below(otherLength + 1);
            Apply(
                target, false, [&](UniStr& s) { s.Append(strings_[other].S_Str() + from, 0); },
                [&](Model& m) { append(m, UpToZero(otherText.substr(from))); });
            break;
        }
        case 17: {
            name("Append(first, last)");
            uint32_t from, n;
            pickRange(&from, &n);
            Apply(
                target, false, [&](UniStr& s) { s.Append(begin + from, begin + from + n); },
                [&](Model& m) {
                    m.capacity = AfterUnits(m.capacity, length, n);
                    m.text += before.substr(from, n);
                });
            break;
        }
        case 18:
        case 19: {
            name("Insert(pos, s, n)");
            const Units units = PickUnits(source, target);
            const uint32_t pos = PickPosition(source, length);
            const uint32_t n = static_cast<uint32_t>(units.value.size());
            Apply(
                target, n != 0 && pos > length, [&](UniStr& s) { s.Insert(pos, units.data, n); },
                [&](Model& m) {
                    if (n != 0) insert(m, pos, units.value);
                });
            break;
        }
        case 20: {
            name("Insert(pos, s)");
            const uint32_t from = source.Below(length + 1);
            const uint32_t pos = PickPosition(source, length);
            const std::u16string units = UpToZero(before.substr(from));
            Apply(
                target, !units.empty() && pos > length, [&](UniStr& s) { s.Insert(pos, s.S_Str() + from); },
                [&](Model& m) {
                    if (!units.empty()) insert(m, pos, units);
                });
            break;
        }
        case 21: {
            name("Insert(pos, string)");
            const bool self = source.Below(3) == 0;
            const uint32_t pos = PickPosition(source, length);
            const std::u16string& units = self ? before : otherText;
            Apply(
                target, !units.empty() && pos > length,
                [&](UniStr& s) { s.Insert(pos, strings_[self ? target : other]); },
                [&](Model& m) {
                    if (!units.empty()) insert(m, pos, units);
                });
            break;
        }
        case 22: {
            name("Insert(pos, string, opos, n)");
            const bool self = source.Below(3) == 0;
            const std::u16string& from = self ? before : otherText;
            const uint32_t pos = PickPosition(source, length);
            const uint32_t otherPos = source.Below(static_cast<uint32_t>(from.size()) + 1);
            const uint32_t n = source.Below(8) == 0 ? kNpos : PickLength(source);
            const std::u16string units = from.substr(otherPos, n);
            Apply(
                target, !units.empty() && pos > length,
                [&](UniStr& s) { s.Insert(pos, strings_[self ? target : other], otherPos, n); },
                [&](Model& m) {
                    if (!units.empty()) insert(m, pos, units);
                });
            break;
        }
        case 23: {
            name("Insert(pos, n, c)");
            const uint32_t pos = PickPosition(source, length);
            const uint32_t n = PickLength(source);
            const char16_t c = PickUnit(source);
            Apply(
                target, n != 0 && pos > length, [&](UniStr& s) { s.Insert(pos, n, static_cast<wchar_t>(c)); },
                [&](Model& m) {
                    if (n != 0) insertUnits(m, pos, n, c);
                });
            break;
        }
        case 24: {
            name("Insert(it, c)");
            const uint32_t pos = source.Below(length + 1);
            const char16_t c = PickUnit(source);
            Apply(
                target, false,
                [&](UniStr& s) {
                    const auto it = s.Insert(begin + pos, static_cast<wchar_t>(c));
                    if (it != s.Begin() + pos || *it != static_cast<wchar_t>(c)) Fail("iterator");
                },
                [&](Model& m) { insertUnits(m, pos, 1, c); });
            break;
        }
        case 25: {
            name("Insert(it, first, last)");
            const uint32_t pos = source.Below(length + 1);
            uint32_t from, n;
            pickRange(&from, &n);
            Apply(
                target, false, [&](UniStr& s) { s.Insert(begin + pos, begin + from, begin + from + n); },
                [&](Model& m) {
                    if (n != 0) insert(m, pos, before.substr(from, n));
                });
            break;
        }
        case 26: {
            name("Insert(it, n, c)");
            const uint32_t pos = source.Below(length + 1);
            const uint32_t n = PickLength(source);
            Apply(
                target, false, [&](UniStr& s) { s.Insert(begin + pos, n, L'i'); },
                [&](Model& m) { insertUnits(m, pos, n, u'i'); });
            break;
        }
        case 27: {
            name("Replace(pos, count, string)");
            const bool self = source.Below(3) == 0;
            const uint32_t pos = PickPosition(source, length);
            const uint32_t count = PickLength(source);
            Apply(
                target, pos > length,
                [&](UniStr& s) { s.Replace(pos, count, strings_[self ? target : other]); },
                [&](Model& m) { replace(m, pos, count, self ? before : otherText); });
            break;
        }
        case 28: {
            name("Replace(pos, count, s)");
            const uint32_t pos = PickPosition(source, length);
            const uint32_t count = PickLength(source);
            const uint32_t from = source.Below(length + 1);
            Apply(
                target, pos > length, [&](UniStr& s) { s.Replace(pos, count, s.S_Str() + from); },
                [&](Model& m) { replace(m, pos, count, UpToZero(before.substr(from))); });
            break;
        }
        case 29:
        case 30: {
            name("Replace(pos, count, s, n)");
            const Units units = PickUnits(source, target);
            const uint32_t pos = PickPosition(source, length);
            const uint32_t count = source.Below(8) == 0 ? kNpos : PickLength(source);
            Apply(
                target, pos > length,
                [&](UniStr& s) {
                    s.Replace(pos, count, units.data, static_cast<uint32_t>(units.value.size()));
                },
                [&](Model& m) { replace(m, pos, count, units.value); });
            break;
        }
        case 31: {
            name("Replace(pos, count, string, opos, n)");
            const bool self = source.Below(3) == 0;
            const std::u16string& from = self ? before : otherText;
            const uint32_t fromLength = static_cast<uint32_t>(from.size());
            const uint32_t pos = PickPosition(source, length);
            const uint32_t count = PickLength(source);
            const uint32_t otherPos = PickPosition(source, from.size());
            const uint32_t n = otherPos < fromLength ? source.Below(fromLength - otherPos + 1) : 0;
            Apply(
                target, pos > length || otherPos >= fromLength,
                [&](UniStr& s) { s.Replace(pos, count, strings_[self ? target : other], otherPos, n); },
                [&](Model& m) { replace(m, pos, count, from.substr(otherPos, n)); });
            break;
        }
        case 32: {
            name("Replace(pos, count, n, c)");
            const uint32_t pos = PickPosition(source, length);
            const uint32_t count = PickLength(source);
            const uint32_t n = PickLength(source);
            Apply(
                target, pos > length, [&](UniStr& s) { s.Replace(pos, count, n, L'r'); },
                [&](Model& m) { replace(m, pos, count, std::u16string(n, u'r')); });
            break;
        }
        case 33: {
            name("Replace(first, last, string)");
            uint32_t from, count;
            pickRange(&from, &count);
            Apply(
                target, false,
                [&](UniStr& s) { s.Replace(begin + from, begin + from + count, strings_[other]); },
                [&](Model& m) { replace(m, from, count, otherText); });
            break;
        }
        case 34: {
            name("Replace(first, last, s, n)");
            const Units units = PickUnits(source, target);
            uint32_t from, count;
            pickRange(&from, &count);
            Apply(
                target, false,
                [&](UniStr& s) {
                    s.Replace(begin + from, begin + from + count, units.data,
                              static_cast<uint32_t>(units.value.size()));
                },
                [&](Model& m) { replace(m, from, count, units.value); });
            break;
        }
        case 35: {
            name("Replace(first, last, n, c)");
            uint32_t from, count;
            pickRange(&from, &count);
            const uint32_t n = PickLength(source);
            Apply(
                target, false, [&](UniStr& s) { s.Replace(begin + from, begin + from + count, n, L'q'); },
                [&](Model& m) { replace(m, from, count, std::u16string(n, u'q')); });
            break;
        }
        case 36: {
            name("Replace(first, last, sfirst, slast)");
            uint32_t from, count, sourceFrom, n;
            pickRange(&from, &count);
            pickRange(&sourceFrom, &n);
            Apply(
                target, false,
                [&](UniStr& s) {
                    s.Replace(begin + from, begin + from + count, begin + sourceFrom, begin + sourceFrom + n);
                },
                [&](Model& m) { replace(m, from, count, before.substr(sourceFrom, n)); });
            break;
        }
        case 37:
        case 38: {
            name("Erase(pos, n)");
            const uint32_t pos = PickPosition(source, length);
            const uint32_t n = source.Below(8) == 0 ? kNpos - source.Below(2) : PickLength(source);
            Apply(
                target, pos >= length, [&](UniStr& s) { s.Erase(pos, n); },
                [&](Model& m) { m.text.erase(pos, n); });
            break;
        }
        case 39: {
            name("Erase(it)");
            const uint32_t pos = source.Below(length + 1);
            Apply(
                target, pos == length,
                [&](UniStr& s) {
                    if (s.Erase(begin + pos) != s.Begin() + pos) Fail("iterator");
                },
                [&](Model& m) { m.text.erase(pos, 1); });
            break;
        }
        case 40: {
            name("Erase(first, last)");
            uint32_t from, count;
            pickRange(&from, &count);
            Apply(
                target, false,
                [&](UniStr& s) {
                    if (s.Erase(begin + from, begin + from + count) != s.Begin() + from) Fail("iterator");
                },
                [&](Model& m) { m.text.erase(from, count); });
            break;
        }
        case 41: {
            name("Resize");
            const uint32_t n = source.Below(2) == 0 ? PickLength(source) : length + source.Below(40);
            Apply(
                target, false, [&](UniStr& s) { s.Resize(n, L'z'); },
                [&](Model& m) {
                    if (n > m.capacity - 1) m.capacity += RoundedUp(n - m.capacity + 1) + 32;
                    m.text.resize(n, u'z');
                });
            break;
        }
        case 42: {
            name("Reserve");
            const uint32_t n = PickLength(source);
            Apply(
                target, false, [&](UniStr& s) { s.Reserve(n); },
                [&](Model& m) {
                    if (n > m.capacity - 1) m.capacity += RoundedUp(n) + 32;
                });
            break;
        }
        case 43: {
            name("Clear");
            Apply(
                target, false, [&](UniStr& s) { s.Clear(); }, [&](Model& m) { m.text.clear(); });
            break;
        }
        case 44: {
            name("Swap");
            string.Swap(strings_[other]);
            std::swap(models_[target], models_[other]);
            break;
        }
        case 45: {
            name("Substring");
            const uint32_t pos = PickPosition(source, length);
            const uint32_t n = source.Below(8) == 0 ? kNpos : PickLength(source);
            const bool throws = pos > length || (n != kNpos && n > length - pos);
            Apply(
                target, throws, [&](UniStr& s) { s = s.Substring(pos, n); },
                [&](Model& m) {
                    m.text = n == 0 ? UpToZero(before.substr(pos)) : before.substr(pos, n);
                    m.capacity = Fresh(m.text.size());
                });
            break;
        }
        case 46: {
            name("copy and move");
            Apply(
                target, false,
                [&](UniStr& s) {
                    UniStr copy(s);
                    s = std::move(copy);
                },
                [&](Model& m) { m.capacity = Fresh(m.text.size()); });
            break;
        }
        case 47: {
            name("operator+");
            Apply(
                target, false, [&](UniStr& s) { s = s + strings_[other]; },
                [&](Model& m) {
                    m.capacity = Fresh(m.text.size());
                    append(m, otherText);
                });
            break;
        }
        case 48: {
            name("views");
            const std::u16string units = otherText.substr(source.Below(otherLength + 1));
            Apply(
                target, false, [&](UniStr& s) { s.Append(units); }, [&](Model& m) { append(m, units); });
            Apply(
                target, false, [&](UniStr& s) { s = std::u16string_view(otherText); },
                [&](Model& m) { setText(m, otherText); });
            break;
        }
        case 49: {
            name("searches for units");
            const char16_t c = PickUnit(source);
            const wchar_t set[] = {static_cast<wchar_t>(PickUnit(source)),
                                   static_cast<wchar_t>(PickUnit(source)), 0};
            const std::u16string members =
                UpToZero(std::u16string(reinterpret_cast<const char16_t*>(set), 2));
            const auto index = [](size_t position) {
                return position == std::u16string::npos ? kNpos : static_cast<uint32_t>(position);
            };
            const auto wide = static_cast<wchar_t>(c);
            if (string.Find(wide) != index((before + u'\0').find(c))) Fail("Find");
            if (string.RFind(wide) != index(before.rfind(c))) Fail("RFind");
            if (string.FindFirstOf(set) != index(before.find_first_of(members))) Fail("FindFirstOf");
            if (string.FindFirstNotOf(set) != index(before.find_first_not_of(members)))
                Fail("FindFirstNotOf");
            if (string.FindLastOf(set) != index(before.find_last_of(members))) Fail("FindLastOf");
            const size_t member = before.find_first_of(members);
            if (string.FindLastNotOf(set) !=
                static_cast<uint32_t>(member == std::u16string::npos ? before.size() : member) - 1)
            {
                Fail("FindLastNotOf");
            }
            break;
        }
        case 50: {
            name("comparison");
            const int order = before.compare(otherText);
            const UniStr& second = strings_[other];
            if ((string == second) != (order == 0) || (string < second) != (order < 0) ||
                (string > second) != (order > 0) || (string.Compare(second, true, true) < 0) != (order < 0))
            {
                Fail("order");
            }
            if (std::hash<UniStr>()(string) != std::hash<UniStr>()(UniStr(string))) Fail("hash");
            break;
        }
        default: {
            name("C_Str");
            const char* const narrow = string.C_Str();
            if (narrow == nullptr ? length != 0 : std::char_traits<char>::length(narrow) > size_t{length} * 3)
            {
                Fail("code-page text");
            }
            Check(target);
            break;
        }
    }
    Check(other);
    return failure_.empty();
}

std::string EditScript::Run(ScriptSource source)
{
    while (!source.AtEnd()) {
        ++steps_;
        if (!Step(source)) break;
    }
    return failure_;
}

}  // namespace unistr_test
