#include "messages.h"

#include <cstdio>

namespace wordindex {

std::string Utf8(const std::wstring& text)
{
    std::string utf8(text.size() * 3 + 1, '\0');
    uint32_t size = static_cast<uint32_t>(utf8.size());
    if (text.empty() ||
        VornUtf16ToUtf8(text.data(), static_cast<uint32_t>(text.size()), utf8.data(), &size) != VORN_OK)
    {
        return {};
    }
    utf8.resize(size);
    return utf8;
}

void Complain(const std::wstring& about, VornStatus status)
{
    Complain(about, VornStatusText(status), status);
}

void Complain(const std::wstring& about, const char* problem, VornStatus status)
{
    std::string text = problem;
    if (!text.empty() && text.back() == '.') text.pop_back();
    std::fprintf(stderr, "wordindex: %s: %s (%s)\n", Utf8(about).c_str(), text.c_str(),
                 VornStatusName(status));
    std::fflush(stderr);
}

std::string Grouped(uint64_t number)
{
    std::string digits = std::to_string(number);
    for (size_t at = digits.size(); at > 3;) digits.insert(at -= 3, ",");
    return digits;
}

void ProgressLine::Draw(const std::string& text)
{
    if (!on_ || text == drawn_) return;
    std::string line = "\r" + text;
    if (text.size() < drawn_.size()) line.append(drawn_.size() - text.size(), ' ');
    drawn_ = text;
    std::fputs(line.c_str(), stderr);
    std::fflush(stderr);
}

ProgressLine::~ProgressLine()
{
    if (drawn_.empty()) return;
    std::fputs("\n", stderr);
    std::fflush(stderr);
}

}  // namespace wordindex
