#include "report.h"

#include "text.h"

#include <algorithm>

namespace linestat {

namespace {

// One row as it is printed: three numbers, the first bytes and the name.
struct Row {
    std::string lines, bytes, longest, firstBytes, name;
};

const Row kHeading = {"lines", "bytes", "longest", "first 57 bytes", "file"};

Row RowOf(const FileFacts& facts, const std::string& name)
{
    return {std::to_string(facts.lines), std::to_string(facts.bytes), std::to_string(facts.longest),
            facts.firstBytes.empty() ? "-" : facts.firstBytes, name};
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

size_t PrintReport(std::FILE* out, const std::vector<std::wstring>& names,
                   const std::vector<FileFacts>& facts)
{
    FileFacts total;
    size_t unread = 0;
    for (const FileFacts& file : facts) {
        unread += file.status != VORN_OK;
        total.lines += file.lines;
        total.bytes += file.bytes;
        total.longest = std::max(total.longest, file.longest);
    }
    std::vector<Row> rows = {kHeading};
    for (size_t i = 0; i < facts.size(); ++i) rows.push_back(RowOf(facts[i], Utf8(names[i])));
    std::string counts = Counted(facts.size() - unread, " file", " files");
    if (unread != 0) counts += ", " + std::to_string(unread) + " not read";
    rows.push_back(RowOf(total, "total of " + counts));

    int width[4] = {};
    for (const Row& row : rows) {
        const std::string* cells[4] = {&row.lines, &row.bytes, &row.longest, &row.firstBytes};
        for (int i = 0; i < 4; ++i) width[i] = std::max(width[i], static_cast<int>(Columns(*cells[i])));
    }
    const int reasonWidth = width[0] + width[1] + width[2] + width[3] + 6;
    for (size_t i = 0; i < rows.size(); ++i) {
        const Row& row = rows[i];
        const bool isFile = i != 0 && i <= facts.size();
        if (isFile && facts[i - 1].status != VORN_OK) {
            std::fprintf(out, "%-*s  %s\n", reasonWidth, Reason(facts[i - 1].status).c_str(),
                         row.name.c_str());
        } else {
            std::fprintf(out, "%*s  %*s  %*s  %-*s  %s\n", width[0], row.lines.c_str(), width[1],
                         row.bytes.c_str(), width[2], row.longest.c_str(), width[3], row.firstBytes.c_str(),
                         row.name.c_str());
        }
    }
    return unread;
}

}  // namespace linestat
