// unistr.hpp - vorn::UniStr, a growable, zero-terminated string of UTF-16 units.
//
// Positions, lengths and counts are unsigned 32-bit numbers of units; nothing here looks at surrogates
// unless it says so. The value 0xFFFFFFFF stands for "not found" where a search answers, and for "to the
// end" where Substring and Erase take a count. A string holds at most 2^31 - 2 units; an operation that
// would need more throws LengthError and changes nothing. Memory exhaustion passes as the allocator's
// exception and changes nothing either, unless an operation's own comment says what it has done by then.
//
// A string is used by one thread at a time. C_Str and narrow output write a cache inside the string, so
// not even readers may share one string where one of them asks for those.
//
// Text arguments may lie within the string itself. A null pointer counts as an empty zero-terminated text.
#ifndef VORN_UNISTR_HPP
#define VORN_UNISTR_HPP

#include <vorn/exceptions.hpp>
#include <vorn/types.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <iterator>
#include <string_view>
#include <type_traits>

namespace vorn {

class UniStr;

namespace detail {

// Units by address and number; what the standard's views come down to.
struct UnitSpan {
    const wchar_t* data;
    size_t size;
};

// What the members for standard views take: std::wstring_view, std::u16string_view and whatever converts
// to one of them, std::wstring among it. Pointers and the strings themselves have members of their own.
template <typename T>
using IsUnitView = std::conjunction<std::negation<std::is_base_of<UniStr, T>>,
                                    std::negation<std::is_convertible<const T&, const wchar_t*>>,
                                    std::disjunction<std::is_convertible<const T&, std::wstring_view>,
                                                     std::is_convertible<const T&, std::u16string_view>>>;

template <typename T>
UnitSpan SpanOf(const T& text)
{
    if constexpr (std::is_convertible_v<const T&, std::wstring_view>) {
        const std::wstring_view view = text;
        return {view.data(), view.size()};
    } else {
        const std::u16string_view view = text;
        return {reinterpret_cast<const wchar_t*>(view.data()), view.size()};
    }
}

}  // namespace detail

class VORN_API UniStr {
public:
    template <typename Unit>
    class unistr_iterator;

    /// Random-access iterator over units that may not be written. Operations of UniStr that take iterators
    /// use only the position. An operation that reallocates the buffer invalidates all iterators.
    template <typename Unit>
    class unistr_iterator_const {
    public:
        using iterator_category = std::random_access_iterator_tag;
        using value_type = Unit;
        using difference_type = ptrdiff_t;
        using pointer = const Unit*;
        using reference = const Unit&;

        constexpr unistr_iterator_const() noexcept = default;

        constexpr reference operator*() const noexcept { return *position_; }
        constexpr pointer operator->() const noexcept { return position_; }
        constexpr reference operator[](difference_type n) const noexcept { return position_[n]; }

        constexpr unistr_iterator_const& operator++() noexcept { return *this += 1; }
        constexpr unistr_iterator_const& operator--() noexcept { return *this -= 1; }
        constexpr unistr_iterator_const operator++(int) noexcept { return Step(*this, 1); }
        constexpr unistr_iterator_const operator--(int) noexcept { return Step(*this, -1); }
        constexpr unistr_iterator_const& operator+=(difference_type n) noexcept
        {
            position_ += n;
            return *this;
        }
        constexpr unistr_iterator_const& operator-=(difference_type n) noexcept
        {
            position_ -= n;
            return *this;
        }

        friend constexpr unistr_iterator_const operator+(unistr_iterator_const it, difference_type n) noexcept
        {
            return it += n;
        }
        friend constexpr unistr_iterator_const operator+(difference_type n, unistr_iterator_const it) noexcept
        {
            return it += n;
        }
        friend constexpr unistr_iterator_const operator-(unistr_iterator_const it, difference_type n) noexcept
        {
            return it -= n;
        }
        friend constexpr difference_type operator-(const unistr_iterator_const& a,
                                                   const unistr_iterator_const& b) noexcept
        {
            return a.position_ - b.position_;
        }
        friend constexpr bool operator==(const unistr_iterator_const& a,
                                         const unistr_iterator_const& b) noexcept
        {
            return a.position_ == b.position_;
        }
        friend constexpr bool operator!=(const unistr_iterator_const& a,
                                         const unistr_iterator_const& b) noexcept
        {
            return a.position_ != b.position_;
        }
        friend constexpr bool operator<(const unistr_iterator_const& a,
                                        const unistr_iterator_const& b) noexcept
        {
            return a.position_ < b.position_;
        }
        friend constexpr bool operator<=(const unistr_iterator_const& a,
                                         const unistr_iterator_const& b) noexcept
        {
            return a.position_ <= b.position_;
        }
        friend constexpr bool operator>(const unistr_iterator_const& a,
                                        const unistr_iterator_const& b) noexcept
        {
            return a.position_ > b.position_;
        }
        friend constexpr bool operator>=(const unistr_iterator_const& a,
                                         const unistr_iterator_const& b) noexcept
        {
            return a.position_ >= b.position_;
        }

    private:
        friend class UniStr;
        friend class unistr_iterator<Unit>;

        constexpr unistr_iterator_const(Unit* buffer, Unit* position) noexcept
            : buffer_(buffer), position_(position)
        {}

        template <typename Iterator>
        static constexpr Iterator Step(Iterator& it, difference_type n) noexcept
        {
            const Iterator before = it;
            it += n;
            return before;
        }

        void* reserved_ = nullptr;  // always null
        Unit* buffer_ = nullptr;    // the string's buffer when the iterator was made
        Unit* position_ = nullptr;
    };

    /// Random-access iterator over units that may be written; converts to unistr_iterator_const.
    template <typename Unit>
    class unistr_iterator : public unistr_iterator_const<Unit> {
        using Base = unistr_iterator_const<Unit>;

    public:
        using iterator_category = std::random_access_iterator_tag;
        using value_type = Unit;
        using difference_type = ptrdiff_t;
        using pointer = Unit*;
        using reference = Unit&;

        constexpr unistr_iterator() noexcept = default;

        constexpr reference operator*() const noexcept { return *this->position_; }
        constexpr pointer operator->() const noexcept { return this->position_; }
        constexpr reference operator[](difference_type n) const noexcept { return this->position_[n]; }

        constexpr unistr_iterator& operator++() noexcept { return *this += 1; }
        constexpr unistr_iterator& operator--() noexcept { return *this -= 1; }
        constexpr unistr_iterator operator++(int) noexcept { return Base::Step(*this, 1); }
        constexpr unistr_iterator operator--(int) noexcept { return Base::Step(*this, -1); }
        constexpr unistr_iterator& operator+=(difference_type n) noexcept
        {
            this->position_ += n;
            return *this;
        }
        constexpr unistr_iterator& operator-=(difference_type n) noexcept
        {
            this->position_ -= n;
            return *this;
        }

        friend constexpr unistr_iterator operator+(unistr_iterator it, difference_type n) noexcept
        {
            return it += n;
        }
        friend constexpr unistr_iterator operator+(difference_type n, unistr_iterator it) noexcept
        {
            return it += n;
        }
        friend constexpr unistr_iterator operator-(unistr_iterator it, difference_type n) noexcept
        {
            return it -= n;
        }

    private:
        friend class UniStr;

        constexpr unistr_iterator(Unit* buffer, Unit* position) noexcept : Base(buffer, position) {}
    };

    // ---- Construction. A text of n units gets a buffer of 32 units if n < 32, otherwise of n rounded up
    // ---- to a multiple of 8, plus 8.

    /// An empty string with a buffer of 32 units.
    UniStr();
    /// Copies the zero-terminated text `s`.
    UniStr(const wchar_t* s);
    /// Copies n units. Deliberate: n = 0 means that `s` is zero-terminated and its length is measured.
    UniStr(const wchar_t* s, uint32_t n);
    /// Converts the zero-terminated text `s` from the default code page. Throws RuntimeError "Error
    /// converting to UTF-16". Deliberate: a text that is not empty and converts to nothing leaves the string
    /// without a buffer: empty, with capacity 0, and S_Str returns null until something is put into it.
    UniStr(const char* s);
    /// As above with n bytes; n = 0 means zero-terminated.
    UniStr(const char* s, uint32_t n);
    /// Copies the text; neither the other's capacity nor its code-page copy.
    UniStr(const UniStr& other);
    /// Takes over the other's buffer and code-page copy. The other is left empty, with capacity 0, and
    /// may be used like any other string.
    UniStr(UniStr&& other) noexcept;
    /// Copies a standard view or string; nothing is measured, not even for an empty one.
    template <typename View, typename = std::enable_if_t<detail::IsUnitView<View>::value>>
    explicit UniStr(const View& view) : UniStr(SpanTag(), detail::SpanOf(view))
    {}
    ~UniStr();

    // ---- Assignment. A text that fits keeps the buffer and the code-page copy's memory; one that does
    // ---- not replaces the buffer by a fresh one and discards the code-page copy.

    UniStr& operator=(const UniStr& other);
    UniStr& operator=(const wchar_t* s);
    /// As move construction; moving a string onto itself changes nothing.
    UniStr& operator=(UniStr&& other) noexcept;
    template <typename View, typename = std::enable_if_t<detail::IsUnitView<View>::value>>
    UniStr& operator=(const View& view)
    {
        return Assign(view);
    }
    /// Deliberate: n = 0 empties the string; `s` is not measured.
    UniStr& Assign(const wchar_t* s, uint32_t n);
    UniStr& Assign(const UniStr& other);
    /// Assigns at most n units from `pos` on; n = 0 empties. Throws OutOfRange unless pos < other.Size().
    UniStr& Assign(const UniStr& other, uint32_t pos, uint32_t n);
    /// Assigns n times c; the capacity grows in steps of 32.
    UniStr& Assign(uint32_t n, wchar_t c);
    /// Assigns the units of a range; the capacity grows in steps of 32.
    UniStr& Assign(unistr_iterator_const<wchar_t> first, unistr_iterator_const<wchar_t> last);
    template <typename View, typename = std::enable_if_t<detail::IsUnitView<View>::value>>
    UniStr& Assign(const View& view)
    {
        return AssignSpan(detail::SpanOf(view));
    }

    // ---- Appending. A text of n units that does not fit adds n rounded up to a multiple of 8 (at least 8)
    // ---- and 32 to the capacity; single units and ranges add 32 whenever the buffer is full.

    UniStr& operator+=(const UniStr& other);
    UniStr& operator+=(const wchar_t* s);
    UniStr& operator+=(wchar_t c)
    {
        AppendChar(c);
        return *this;
    }
    template <typename View, typename = std::enable_if_t<detail::IsUnitView<View>::value>>
    UniStr& operator+=(const View& view)
    {
        return AppendSpan(detail::SpanOf(view));
    }
    /// Deliberate: n = 0 appends the whole zero-terminated `s`.
    UniStr& Append(const wchar_t* s, uint32_t n);
    UniStr& Append(unistr_iterator_const<wchar_t> first, unistr_iterator_const<wchar_t> last);
    template <typename View, typename = std::enable_if_t<detail::IsUnitView<View>::value>>
    UniStr& Append(const View& view)
    {
        return AppendSpan(detail::SpanOf(view));
    }

    // ---- Insertion. Throws OutOfRange for a position above the length, except that inserting a text of no
    // ---- units does nothing at all and checks nothing. The capacity grows as in appending.

    UniStr& Insert(uint32_t pos, const wchar_t* s);
    UniStr& Insert(uint32_t pos, const wchar_t* s, uint32_t n);
    UniStr& Insert(uint32_t pos, const UniStr& other);
    /// Inserts at most n units of `other` from `otherPos` on; none if otherPos is not below its length.
    UniStr& Insert(uint32_t pos, const UniStr& other, uint32_t otherPos, uint32_t n);
    UniStr& Insert(uint32_t pos, uint32_t n, wchar_t c);
    /// Returns an iterator at the same index, in the new buffer if there is one.
    unistr_iterator<wchar_t> Insert(unistr_iterator_const<wchar_t> it, wchar_t c);
    void Insert(unistr_iterator_const<wchar_t> it, unistr_iterator_const<wchar_t> first,
                unistr_iterator_const<wchar_t> last);
    void Insert(unistr_iterator_const<wchar_t> it, uint32_t n, wchar_t c);

    // ---- Replacement of `count` units (fewer where the text ends before) from `pos` on, or of a range of
    // ---- the string. Throws OutOfRange for a position above the length. n = 0 erases.

    UniStr& Replace(uint32_t pos, uint32_t count, const UniStr& other);
    UniStr& Replace(uint32_t pos, uint32_t count, const wchar_t* s);
    UniStr& Replace(uint32_t pos, uint32_t count, const wchar_t* s, uint32_t n);
    /// Replaces by n units of `other` from `otherPos` on. Throws OutOfRange unless otherPos < other.Size().
    /// Deliberate: n is not cut down to the length of `other`. Units past its end have whatever value its
    /// buffer holds there; OutOfRange is thrown where n reaches past the buffer.
    UniStr& Replace(uint32_t pos, uint32_t count, const UniStr& other, uint32_t otherPos, uint32_t n);
    UniStr& Replace(uint32_t pos, uint32_t count, uint32_t n, wchar_t c);
    UniStr& Replace(unistr_iterator_const<wchar_t> first, unistr_iterator_const<wchar_t> last,
                    const UniStr& other);
    UniStr& Replace(unistr_iterator_const<wchar_t> first, unistr_iterator_const<wchar_t> last,
                    const wchar_t* s, uint32_t n);
    UniStr& Replace(unistr_iterator_const<wchar_t> first, unistr_iterator_const<wchar_t> last, uint32_t n,
                    wchar_t c);
    UniStr& Replace(unistr_iterator_const<wchar_t> first, unistr_iterator_const<wchar_t> last,
                    unistr_iterator_const<wchar_t> sourceFirst, unistr_iterator_const<wchar_t> sourceLast);

    // ---- Erasing and resizing.

    /// Erases n units from `pos` on, or all of them when n is 0xFFFFFFFF or reaches past the end. Throws
    /// OutOfRange unless pos < Size().
    UniStr& Erase(uint32_t pos, uint32_t n);
    /// Erases one unit and returns an iterator at the same index. Throws OutOfRange unless that is < Size().
    unistr_iterator<wchar_t> Erase(unistr_iterator_const<wchar_t> it);
    /// Erases a range, which may be empty, and returns an iterator at the index of `first`.
    unistr_iterator<wchar_t> Erase(unistr_iterator_const<wchar_t> first, unistr_iterator_const<wchar_t> last);
    /// Cuts the text to n units, or appends c until it has n.
    UniStr& Resize(uint32_t n, wchar_t c);
    /// Makes room for at least n units. Deliberate: where n exceeds the capacity, n rounded up to a multiple
    /// of 8 (at least 8) and 32 are added to the capacity, as in appending n units.
    UniStr& Reserve(uint32_t n);
    /// Empties the string; the capacity stays. A code-page text that C_Str returned before becomes empty.
    UniStr& Clear();
    UniStr& Swap(UniStr& other) noexcept;

    /// Copies n units from `pos` on. n = 0xFFFFFFFF means the rest. Deliberate: n = 0 means the rest as well,
    /// up to the first zero unit. Throws OutOfRange for a position above the length or when n units are
    /// more than there are.
    UniStr Substring(uint32_t pos, uint32_t n) const;

    // ---- Access.

    /// Unit i, unchecked; i may be the length, where the terminator stands.
    wchar_t& operator[](uint32_t i) noexcept { return buffer_[i]; }
    const wchar_t& operator[](uint32_t i) const noexcept { return buffer_[i]; }
    /// Unit i; throws OutOfRange unless i < Size().
    wchar_t& At(uint32_t i);
    const wchar_t& At(uint32_t i) const;

    uint32_t Size() const noexcept { return static_cast<uint32_t>(end_ - buffer_); }
    uint32_t Length() const noexcept { return Size(); }
    /// Units that fit without reallocation.
    uint32_t Capacity() const noexcept { return capacity_ == 0 ? 0 : capacity_ - 1; }
    bool Empty() const noexcept { return end_ == buffer_; }

    /// The text, zero-terminated, owned by the string; valid until an operation reallocates the buffer.
    const wchar_t* S_Str() const noexcept { return GetAsSystem(); }
    const wchar_t* U_Str() const noexcept { return GetAsSystem(); }
    /// The text in the default code page, zero-terminated; null for an empty string that never had a
    /// code-page copy. Owned by the string and valid until the next C_Str, an assignment that reallocates,
    /// or the string's end; other edits leave it as it is. Throws RuntimeError "Error converting to
    /// codepage".
    const char* C_Str() const { return GetAsCodepage(); }

    unistr_iterator<wchar_t> Begin() noexcept { return {buffer_, buffer_}; }
    unistr_iterator<wchar_t> End() noexcept { return {buffer_, end_}; }
    unistr_iterator_const<wchar_t> Begin() const noexcept { return {buffer_, buffer_}; }
    unistr_iterator_const<wchar_t> End() const noexcept { return {buffer_, end_}; }
    // For range-based for.
    unistr_iterator<wchar_t> begin() noexcept { return Begin(); }
    unistr_iterator<wchar_t> end() noexcept { return End(); }
    unistr_iterator_const<wchar_t> begin() const noexcept { return Begin(); }
    unistr_iterator_const<wchar_t> end() const noexcept { return End(); }

    /// Views of the text, valid until it is changed.
    operator std::wstring_view() const noexcept { return {buffer_, Size()}; }
    operator std::u16string_view() const noexcept;

    // ---- Comparison: negative, zero or positive. Code-unit order and code-point order differ only for
    // ---- supplementary characters against the units 0xE000 to 0xFFFF.

    /// Compares the whole texts, embedded zeros included. Case-insensitive comparison is by default case
    /// folding.
    int Compare(const UniStr& other, bool caseSensitive, bool codeUnitOrder) const noexcept;
    int Compare(const wchar_t* s, bool caseSensitive, bool codeUnitOrder) const noexcept;

    // ---- Search: an index, or 0xFFFFFFFF when there is none. Searches for a text match only whole
    // ---- characters: a match neither begins nor ends inside a surrogate pair.

    /// An empty text is found at 0.
    uint32_t Find(const UniStr& other) const noexcept;
    /// n = 0 means zero-terminated.
    uint32_t Find(const wchar_t* s, uint32_t n) const noexcept;
    /// Deliberate: the terminator takes part, so Find(0) returns the length where no zero is embedded.
    uint32_t Find(wchar_t c) const noexcept;
    /// Deliberate: an empty text is found at 0 from behind too.
    uint32_t RFind(const UniStr& other) const noexcept;
    uint32_t RFind(const wchar_t* s, uint32_t n) const noexcept;
    /// Deliberate: unlike in Find, the terminator does not take part.
    uint32_t RFind(wchar_t c) const noexcept;
    uint32_t FindFirstOf(const wchar_t* set) const noexcept;
    uint32_t FindFirstNotOf(const wchar_t* set) const noexcept;
    uint32_t FindLastOf(const wchar_t* set) const noexcept;
    /// Deliberate: the index before the first unit that occurs in the set (0xFFFFFFFF where that is the
    /// first of all), and the last index where none does.
    uint32_t FindLastNotOf(const wchar_t* set) const noexcept;
    /// The number of code points; a lone surrogate counts as one.
    uint32_t CountCodePoints() const noexcept;

    // ---- Case mapping by the default locale's rules, of the text up to its first zero unit. Where ICU
    // ---- reports an error the string keeps its text.

    void ToUpper();
    void ToLower();

private:
    friend VORN_API std::ostream& operator<<(std::ostream& out, const UniStr& text);
    friend VORN_API std::istream& operator>>(std::istream& in, UniStr& text);

    struct SpanTag {};
    UniStr(SpanTag, detail::UnitSpan span);
    UniStr& AssignSpan(detail::UnitSpan span);
    UniStr& AppendSpan(detail::UnitSpan span);

    void ConstructFromCodepage(const char* s, uint32_t n);
    void AssignString(const wchar_t* s, uint32_t n);
    UniStr& AppendString(const wchar_t* s, uint32_t n);
    void AppendChar(wchar_t c)
    {
        if (Size() + 1 >= capacity_) IncreaseCapacity(32);
        *end_++ = c;
        *end_ = 0;
    }
    void InsertStringAtPosition(uint32_t pos, const wchar_t* s, uint32_t n);
    void InsertCharAtPosition(uint32_t pos, wchar_t c);
    void ReplaceAtPosition(uint32_t pos, uint32_t count, const wchar_t* s, uint32_t n);
    void ShiftRight(uint32_t at, uint32_t n) noexcept;
    void ShiftLeft(uint32_t at, uint32_t n) noexcept;
    void IncreaseCapacity(uint32_t n);
    static uint64_t Align(uint64_t value, uint32_t alignment) noexcept;
    const wchar_t* GetAsSystem() const noexcept { return capacity_ != 0 ? buffer_ : UnownedText(); }
    const char* GetAsCodepage() const;
    int CompareToString(const wchar_t* s, uint32_t n, bool caseSensitive, bool codeUnitOrder) const noexcept;
    void StreamInsert(std::ostream& out) const;
    void StreamExtract(std::istream& in);

    const wchar_t* UnownedText() const noexcept;
    void ConstructFromUnits(const wchar_t* s, size_t n);
    uint32_t IndexOf(unistr_iterator_const<wchar_t> it) const noexcept;
    void FillAtPosition(uint32_t pos, uint32_t n, wchar_t c);
    void Splice(uint32_t pos, uint32_t count, const wchar_t* s, uint32_t n, uint64_t grownCapacity);
    uint64_t GrowthStep(uint32_t n) const noexcept;
    uint64_t SingleUnitGrowth(uint64_t length) const noexcept;
    void SetEnd(wchar_t* end) noexcept
    {
        end_ = end;
        *end = 0;
    }
    void GrowTo(uint64_t capacity);
    uint64_t AllocationFor(uint64_t capacity) const noexcept;
    void AdoptBuffer(wchar_t* buffer, uint32_t length, uint32_t capacity) noexcept;
    void ReplaceBuffer(wchar_t* buffer, uint32_t length, uint32_t capacity) noexcept;
    void TakeOver(UniStr& other) noexcept;
    void DiscardCodepageCopy() const noexcept;
    template <typename MapCase>
    void ChangeCase(MapCase mapCase);

    // Text and terminator. A string without a buffer of its own has capacity_ 0, and buffer_ points at a
    // shared terminator that is never written.
    wchar_t* buffer_;
    wchar_t* end_;
    uint32_t capacity_;  // units that may be used, the terminator's included
    // The copy that C_Str made last; not kept in step with edits.
    mutable char* narrow_;
    mutable char* narrowEnd_;
    mutable uint32_t narrowCapacity_;  // bytes allocated
    // Units that the buffer has, capacity_ or more: the capacity grows in small steps, and not each of them
    // is worth a new buffer.
    uint32_t allocated_;
};

/// Concatenation: the left text with fresh capacity, then the right one appended.
VORN_API UniStr operator+(const UniStr& a, const UniStr& b);
VORN_API UniStr operator+(const UniStr& a, const wchar_t* b);
VORN_API UniStr operator+(const wchar_t* a, const UniStr& b);

// Comparison of the whole texts: case-sensitive, in code-unit order.
VORN_API bool operator==(const UniStr& a, const UniStr& b) noexcept;
VORN_API bool operator==(const UniStr& a, const wchar_t* b) noexcept;
VORN_API bool operator==(const wchar_t* a, const UniStr& b) noexcept;
VORN_API bool operator!=(const UniStr& a, const UniStr& b) noexcept;
VORN_API bool operator!=(const UniStr& a, const wchar_t* b) noexcept;
VORN_API bool operator!=(const wchar_t* a, const UniStr& b) noexcept;
VORN_API bool operator<(const UniStr& a, const UniStr& b) noexcept;
VORN_API bool operator<(const UniStr& a, const wchar_t* b) noexcept;
VORN_API bool operator<(const wchar_t* a, const UniStr& b) noexcept;
VORN_API bool operator<=(const UniStr& a, const UniStr& b) noexcept;
VORN_API bool operator<=(const UniStr& a, const wchar_t* b) noexcept;
VORN_API bool operator<=(const wchar_t* a, const UniStr& b) noexcept;
VORN_API bool operator>(const UniStr& a, const UniStr& b) noexcept;
VORN_API bool operator>(const UniStr& a, const wchar_t* b) noexcept;
VORN_API bool operator>(const wchar_t* a, const UniStr& b) noexcept;
VORN_API bool operator>=(const UniStr& a, const UniStr& b) noexcept;
VORN_API bool operator>=(const UniStr& a, const wchar_t* b) noexcept;
VORN_API bool operator>=(const wchar_t* a, const UniStr& b) noexcept;

/// Writes the text in the default code page. Throws RuntimeError "Error converting to codepage".
VORN_API std::ostream& operator<<(std::ostream& out, const UniStr& text);
/// Writes the units.
VORN_API std::wostream& operator<<(std::wostream& out, const UniStr& text);
/// Reads one line and appends it: everything up to the next line feed, which is consumed and not kept, or
/// to the end of the input. Leading blanks and a carriage return before the line feed are kept. The stream's
/// state is set as by std::getline. A line that cannot be converted from the default code page is dropped.
VORN_API std::istream& operator>>(std::istream& in, UniStr& text);
/// As above; each character is appended as it is read.
VORN_API std::wistream& operator>>(std::wistream& in, UniStr& text);

}  // namespace vorn

/// Equal to the hash of a std::wstring_view of the text.
template <>
struct std::hash<vorn::UniStr> {
    size_t operator()(const vorn::UniStr& text) const noexcept
    {
        return std::hash<std::wstring_view>()(text);
    }
};

#endif
