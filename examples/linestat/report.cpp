#include "report.h"

#include "text.h"

#include <algorithm>

namespace linestat {

namespace {

// One row as it is printed: numbers to the right, then a text to the left, then the name.
struct Row {
    std::vector<std::string> numbers;
    std::string text;  // empty where the form has none
    std::string name;
};

std::string TimeText(const VornTime& time)
{
    char text[32];
    std::snprintf(text, sizeof(text), "%04u-%02u-%02u %02u:%02u:%02u", unsigned{time.year},
                  unsigned{time.month}, unsigned{time.day}, unsigned{time.hour}, unsigned{time.minute},
                  unsigned{time.second});
    return text;
}

Row Heading(Form form)
{
    if (form == Form::kEntries) return {{"lines", "bytes", "longest", "size"}, "modified (UTC)", "file"};
    return {{"lines", "bytes", "longest"}, form == Form::kContents ? "first 57 bytes" : "", "file"};
}

Row RowOf(Form form, const FileFacts& facts, const Name& entry, const std::string& name)
{
    Row row = {
        {std::to_string(facts.lines), std::to_string(facts.bytes), std::to_string(facts.longest)}, "", name};
    if (form == Form::kContents) row.text = facts.firstBytes.empty() ? "-" : facts.firstBytes;
    if (form == Form::kEntries) {
        row.numbers.push_back(entry.examined ? std::to_string(entry.size) : "-");
        row.text = entry.modified.year != 0 ? TimeText(entry.modified) : "-";
    }
    return row;
}

std::string Reason(VornStatus status)
{
    return "not read: " + std::to_string(status) + " " + VornStatusName(status);
}

std::string Counted(size_t count, const char* one, const char* many)
{
    return std::to_string(count) + (count == 1 ? one : many);
}

}  // namespace

size_t PrintReport(std::FILE* out, Form form, const std::vector<Name>& names,
                   const std::vector<FileFacts>& facts)
{
    FileFacts total;
    Name all;
    all.examined = true;
    size_t unread = 0;
    std::vector<Row> rows = {Heading(form)};
    for (size_t i = 0; i < facts.size(); ++i) {
        const FileFacts& file = facts[i];
        unread += file.status != VORN_OK;
        total.lines += file.lines;
        total.bytes += file.bytes;
        total.longest = std::max(total.longest, file.longest);
        all.size += names[i].size;
        if (form == Form::kTotal && file.status == VORN_OK) continue;
        rows.push_back(RowOf(form, file, names[i], Utf8(names[i].path)));
        if (file.status != VORN_OK) rows.back().numbers = {};
        if (file.status != VORN_OK) rows.back().text = Reason(file.status);
    }
    std::string counts = Counted(facts.size() - unread, " file", " files");
    if (unread != 0) counts += ", " + std::to_string(unread) + " not read";
    rows.push_back(RowOf(form, total, all, "total of " + counts));

    std::vector<int> width(rows[0].numbers.size());
    int textWidth = 0;
    for (const Row& row : rows) {
        for (size_t i = 0; i < row.numbers.size(); ++i)
            width[i] = std::max(width[i], static_cast<int>(row.numbers[i].size()));
        if (!row.numbers.empty()) textWidth = std::max(textWidth, static_cast<int>(Columns(row.text)));
    }
    // Where no file can have numbers, a reason takes their place too.
    int reasonWidth = textWidth;
    for (const int each : width) reasonWidth += each + 2;
    for (const Row& row : rows) {
        for (size_t i = 0; i < row.numbers.size(); ++i)
            std::fprintf(out, "%*s  ", width[i], row.numbers[i].c_str());
        const int left = row.numbers.empty() ? reasonWidth : textWidth;
        if (left != 0) std::fprintf(out, "%-*s  ", left, row.text.c_str());
        std::fprintf(out, "%s\n", row.name.c_str());
    }
    return unread;
}

}  // namespace linestat
