// transcode_sizes.h - the sizes of UTF-16 and UTF-32 in the other forms with SSE4.1 and AVX2. Without
// linkage: each file that is compiled for a vector unit gets its own copy.
//
// Four vectors at a time add to a sum of their own in each element; the elements are added up at the end of a
// stretch that is short enough for none to overflow.
#ifndef VORN_TEXT_TRANSCODE_SIZES_H
#define VORN_TEXT_TRANSCODE_SIZES_H

#include "text/transcode.h"

namespace vorn::detail {

namespace {

// Each group adds no more than eight to an element.
constexpr size_t kStretchGroups = 4096;

template <class Unit>
class Sums {
public:
    using V = typename Unit::V;

    // One for each element that is all ones.
    void Add16(V found) { sums_ = Unit::Subtract16(sums_, found); }
    void Add32(V found) { sums_ = Unit::Subtract32(sums_, found); }

    // No element of 32 bits is beyond 16 bits either.
    size_t Total() const
    {
        return Unit::Sum8(Unit::And(sums_, Unit::Set16(0x00FF))) +
               256 * Unit::Sum8(Unit::ShiftRight16(sums_, 8));
    }

private:
    V sums_ = Unit::Zero();
};

// A pair is counted where its high surrogate stands, so that any part of a text can be counted by itself.
template <class Unit>
typename Unit::V HighsOfPairs(const wchar_t* text)
{
    const auto mask = Unit::Set16(0xFC00);
    const auto isHigh = Unit::Equal16(Unit::And(Unit::Load(text), mask), Unit::Set16(0xD800));
    const auto isLow = Unit::Equal16(Unit::And(Unit::Load(text + 1), mask), Unit::Set16(0xDC00));
    return Unit::And(isHigh, isLow);
}

bool BeginsPair(const wchar_t* text, size_t left)
{
    return text[0] >> 10 == 0xD800 >> 10 && left > 1 && text[1] >> 10 == 0xDC00 >> 10;
}

template <class Unit, bool kAsUtf8>
size_t CountUtf16(const wchar_t* src, size_t length)
{
    using V = typename Unit::V;
    constexpr size_t kUnits = Unit::kBytes / 2;
    size_t count = length;
    size_t read = 0;
    while (length - read > 4 * kUnits) {
        Sums<Unit> longer;
        Sums<Unit> pairs;
        for (size_t group = 0; group < kStretchGroups && length - read > 4 * kUnits; ++group) {
            const wchar_t* const text = src + read;
            const V units[4] = {Unit::Load(text), Unit::Load(text + kUnits), Unit::Load(text + 2 * kUnits),
                                Unit::Load(text + 3 * kUnits)};
            read += 4 * kUnits;
            const V any = Unit::Or(Unit::Or(units[0], units[1]), Unit::Or(units[2], units[3]));
            if (kAsUtf8) {
                if (Unit::HaveNone(any, Unit::Set16(0xFF80))) continue;
                for (V each : units) {
                    longer.Add16(Unit::AtLeast16(each, 0x80));
                    longer.Add16(Unit::AtLeast16(each, 0x800));
                }
            }
            V surrogates = Unit::Zero();
            for (V each : units) {
                surrogates = Unit::Or(
                    surrogates, Unit::Equal16(Unit::And(each, Unit::Set16(0xF800)), Unit::Set16(0xD800)));
            }
            if (Unit::IsZero(surrogates)) continue;
            for (size_t i = 0; i < 4; ++i) pairs.Add16(HighsOfPairs<Unit>(text + i * kUnits));
        }
        // Each half of a pair is counted as three bytes and stands for two.
        count += longer.Total() - (kAsUtf8 ? 2 : 1) * pairs.Total();
    }
    for (; read < length; ++read) {
        if (kAsUtf8) count += static_cast<size_t>((src[read] >= 0x80) + (src[read] >= 0x800));
        if (BeginsPair(src + read, length - read)) count -= kAsUtf8 ? 2 : 1;
    }
    return count;
}

template <class Unit, bool kAsUtf8>
size_t CountUtf32(const uint32_t* src, size_t length)
{
    using V = typename Unit::V;
    constexpr size_t kUnits = Unit::kBytes / 4;
    size_t count = length;
    size_t read = 0;
    while (length - read >= 4 * kUnits) {
        Sums<Unit> longer;
        Sums<Unit> longest;
        Sums<Unit> beyond;
        for (size_t group = 0; group < kStretchGroups && length - read >= 4 * kUnits; ++group) {
            const uint32_t* const text = src + read;
            const V units[4] = {Unit::Load(text), Unit::Load(text + kUnits), Unit::Load(text + 2 * kUnits),
                                Unit::Load(text + 3 * kUnits)};
            read += 4 * kUnits;
            const V any = Unit::Or(Unit::Or(units[0], units[1]), Unit::Or(units[2], units[3]));
            if (Unit::HaveNone(any, Unit::Set32(kAsUtf8 ? 0xFFFFFF80 : 0xFFFF0000))) continue;
            if (kAsUtf8) {
                // What does not fit into 16 bits becomes their greatest value.
                for (size_t i = 0; i < 4; i += 2) {
                    const V narrow =
                        Unit::Pack32(Unit::AtMost32(units[i], 0xFFFF), Unit::AtMost32(units[i + 1], 0xFFFF));
                    longer.Add16(Unit::AtLeast16(narrow, 0x80));
                    longer.Add16(Unit::AtLeast16(narrow, 0x800));
                }
                if (Unit::HaveNone(any, Unit::Set32(0xFFFF0000))) continue;
            }
            for (V each : units) {
                longest.Add32(Unit::AtLeast32(each, 0x10000));
                beyond.Add32(Unit::AtLeast32(each, kLastCodePoint + 1));
            }
        }
        count += longer.Total() + longest.Total() - beyond.Total();
    }
    for (; read < length; ++read) {
        const uint32_t unit = src[read];
        count += static_cast<size_t>(unit >= 0x10000) - static_cast<size_t>(unit > kLastCodePoint);
        if (kAsUtf8) count += static_cast<size_t>((unit >= 0x80) + (unit >= 0x800));
    }
    return count;
}

}  // namespace

}  // namespace vorn::detail

#endif
