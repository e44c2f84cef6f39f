// unistr_stream.cpp - UniStr on standard streams: insertion, and extraction of one line.
#include <vorn/unistr.hpp>

#include "text/codepage_units.h"

#include <exception>
#include <istream>
#include <ostream>
#include <string>

namespace vorn {

using namespace detail;

namespace {

// How reading a line ended: the state to set, and what the stream's buffer threw, if it did.
struct LineEnd {
    std::ios_base::iostate state;
    std::exception_ptr thrown;
};

// Reads through the next line feed, which the sink does not get. Exceptions of the sink pass.
template <typename Stream, typename Sink>
LineEnd ReadLine(Stream& in, Sink sink)
{
    using Traits = typename Stream::traits_type;
    const typename Stream::sentry ready(in, true);
    if (!ready) return {std::ios_base::goodbit, nullptr};
    bool nothingRead = true;
    for (;;) {
        typename Traits::int_type next;
        try {
            next = in.rdbuf()->sbumpc();
        } catch (...) {
            return {std::ios_base::badbit, std::current_exception()};
        }
        if (Traits::eq_int_type(next, Traits::eof())) {
            const auto failure = nothingRead ? std::ios_base::failbit : std::ios_base::goodbit;
            return {std::ios_base::eofbit | failure, nullptr};
        }
        nothingRead = false;
        const typename Traits::char_type c = Traits::to_char_type(next);
        if (c == typename Traits::char_type{10}) return {std::ios_base::goodbit, nullptr};
        sink(c);
    }
}

// Tells the stream, which throws where its exception mask says so; the buffer's own exception comes first.
template <typename Stream>
void Report(Stream& in, const LineEnd& end)
{
    if (end.thrown == nullptr) {
        in.setstate(end.state);
        return;
    }
    try {
        in.setstate(end.state);
    } catch (...) {  // What setstate throws; named, the type's information would be exported with ours.
        std::rethrow_exception(end.thrown);
    }
}

}  // namespace

void UniStr::StreamInsert(std::ostream& out) const
{
    const char* const text = GetAsCodepage();
    if (text != nullptr) out.write(text, narrowEnd_ - text);
}

void UniStr::StreamExtract(std::istream& in)
{
    std::string bytes;
    const LineEnd end = ReadLine(in, [&](char c) { bytes.push_back(c); });
    if (!bytes.empty()) {
        const UnitsFromCodepage units(bytes.data(), CheckedLength(bytes.size()));
        if (units && units.Length() != 0) AppendString(units.Data(), units.Length());
    }
    Report(in, end);
}

std::ostream& operator<<(std::ostream& out, const UniStr& text)
{
    text.StreamInsert(out);
    return out;
}

std::wostream& operator<<(std::wostream& out, const UniStr& text)
{
    const std::wstring_view units = text;
    return out.write(units.data(), static_cast<std::streamsize>(units.size()));
}

std::istream& operator>>(std::istream& in, UniStr& text)
{
    text.StreamExtract(in);
    return in;
}

std::wistream& operator>>(std::wistream& in, UniStr& text)
{
    const LineEnd end = ReadLine(in, [&](wchar_t c) { text += c; });
    Report(in, end);
    return in;
}

}  // namespace vorn
