// messages.h - what the program says: UTF-8 on the standard streams.
#ifndef WORDINDEX_MESSAGES_H
#define WORDINDEX_MESSAGES_H

#include <vorn/vorn.h>

#include <string>

namespace wordindex {

std::string Utf8(const std::wstring& text);

// One line on the error stream: what it is about, the status in plain words, its symbolic name.
void Complain(const std::wstring& about, VornStatus status);
// The same with words of our own instead of the status's.
void Complain(const std::wstring& about, const char* problem, VornStatus status);

// 1234567 as "1,234,567".
std::string Grouped(uint64_t number);

// A line that is drawn again and again at the same place, and stays there as it was drawn last.
class ProgressLine {
public:
    // Draws nothing unless `on`.
    explicit ProgressLine(bool on) : on_(on) {}
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;
    // Ends the line.
    ~ProgressLine();

    void Draw(const std::string& text);

private:
    bool on_;
    std::string drawn_;
};

}  // namespace wordindex

#endif
