#include "file_facts.h"

#include <algorithm>

namespace linestat {

namespace {

// Owns an open file.
class OpenFile {
public:
    explicit OpenFile(const std::wstring& name)
        : file_(VornFileCreate(name.c_str(), VORN_FILE_OPEN_EXISTING, VORN_FILE_ACCESS_READ, VORN_TRUE,
                               nullptr, nullptr))
    {}
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;
    ~OpenFile()
    {
        if (file_ != nullptr) VornFileClose(file_);
    }

    explicit operator bool() const { return file_ != nullptr; }
    VornFile* Get() const { return file_; }

private:
    VornFile* file_;
};

// The Base64 of the bytes from the position on, 57 at most.
VornStatus EncodeFirstBytes(VornFile* file, std::string* text)
{
    constexpr uint32_t kBytesOfOneLine = 57;
    uint8_t bytes[kBytesOfOneLine];
    uint32_t read = 0;
    const VornStatus status = VornFileRead(file, bytes, kBytesOfOneLine, &read);
    if (status != VORN_OK || read == 0) return status;
    uint32_t size = 0;
    VornBase64EncodeBuffer(bytes, static_cast<int32_t>(read), nullptr, &size);
    text->resize(size);
    VornBase64EncodeBuffer(bytes, static_cast<int32_t>(read), text->data(), &size);
    text->erase(text->find_last_not_of(std::string("\r\n\0", 3)) + 1);
    return VORN_OK;
}

// Whether the byte before a position is a line feed. Leaves the file at the position.
bool LineFeedBefore(VornFile* file, uint64_t position)
{
    uint8_t byte = 0;
    uint32_t read = 0;
    VornFileSeek(file, static_cast<int64_t>(position - 1), VORN_FILE_SEEK_BEGIN);
    return VornFileRead(file, &byte, 1, &read) == VORN_OK && read == 1 && byte == '\n';
}

// Counts the lines from the beginning on. A line that is longer than the buffer comes in pieces; whether a
// piece ends its line shows in how far the position has moved past the piece's text.
VornStatus CountLines(VornFile* file, FileFacts* facts)
{
    constexpr uint32_t kPiece = 512;
    uint8_t buffer[kPiece + 1] = {};  // the line reader looks at the byte behind what it was lent
    uint64_t position = 0;
    uint64_t unfinished = 0;  // bytes of the current line in the pieces before this one
    VornFileSeek(file, 0, VORN_FILE_SEEK_BEGIN);
    while (position < facts->bytes) {
        uint32_t length = 0;
        const VornStatus status = VornFileReadLine(file, buffer, kPiece, &length);
        if (status != VORN_OK) return status;
        if (length == 0) break;  // the file has become shorter
        const uint64_t textEnd = position + (length - 1);
        const uint64_t next = VornFileGetPos(file);
        // A full piece is also followed one byte further on when it ends in a carriage return that is text.
        const bool ambiguous = length == kPiece && next == textEnd + 1;
        const bool ended =
            next > textEnd && next <= facts->bytes && (!ambiguous || LineFeedBefore(file, next));
        if (ended) {
            ++facts->lines;
            facts->longest = std::max(facts->longest, unfinished + (length - 1));
            unfinished = 0;
        } else {
            unfinished += std::min(next, facts->bytes) - position;
        }
        position = next;
    }
    facts->longest = std::max(facts->longest, unfinished);
    return VORN_OK;
}

FileFacts Failure(VornStatus status)
{
    FileFacts facts;
    facts.status = status;
    return facts;
}

}  // namespace

FileFacts GatherFacts(const std::wstring& name)
{
    OpenFile file(name);
    if (!file) return Failure(VornGetLastError());
    FileFacts facts;
    facts.bytes = VornFileGetSize(file.Get());
    if (facts.bytes == VORN_FILE_FAILED) return Failure(VORN_E_READ);
    VornStatus status = EncodeFirstBytes(file.Get(), &facts.firstBytes);
    if (status == VORN_OK) status = CountLines(file.Get(), &facts);
    return status == VORN_OK ? facts : Failure(status);
}

}  // namespace linestat
