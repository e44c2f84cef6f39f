// file.hpp - open files and directory searches as classes.
#ifndef VORN_FILE_HPP
#define VORN_FILE_HPP

#include <vorn/exceptions.hpp>
#include <vorn/file.h>
#include <vorn/file_find.h>
#include <vorn/unistr.hpp>

#include <cstddef>
#include <iterator>

namespace vorn {

/// One open file. The members do what the C function of the same name does and return its results; once the
/// file is closed they act as that function does on an unknown handle: VORN_E_INVALID_ARG, VORN_FILE_FAILED
/// or VORN_FALSE. One thread at a time uses a file.
class VORN_API File : public NonCopyable {
public:
    /// Opens a file; see VornFileCreate for the arguments. Deliberate: throws the status as a bare unsigned
    /// int when the file cannot be opened. Memory exhaustion in the class itself passes as std::bad_alloc.
    File(const UniStr& name, VornFileOpenMode mode, VornFileAccessMode access, VBool share,
         VornSecurityDescriptor* security, const void* templateFile);
    /// Closes the file if it is still open. Whatever the close throws is swallowed.
    virtual ~File();

    /// Closes the file and its mapped regions. A second call returns VORN_E_INVALID_ARG.
    virtual unsigned int Close();
    virtual unsigned int Flush();
    virtual unsigned int Read(void* buffer, unsigned int count, unsigned int* bytesRead);
    virtual unsigned int ReadLine(unsigned char* buffer, unsigned int size, unsigned int* length);
    virtual unsigned int Write(const void* buffer, unsigned int count, unsigned int* bytesWritten);
    virtual unsigned long long Seek(long long offset, VornFileSeekMethod method);
    virtual unsigned long long GetPos();
    virtual unsigned long long GetSize();
    virtual unsigned int SetSize(unsigned long long size);
    virtual unsigned int GetTime(VornTime* accessTime, VornTime* modifyTime, VornTime* createTime);
    virtual unsigned int SetTime(const VornTime* accessTime, const VornTime* modifyTime,
                                 const VornTime* createTime);
    virtual VBool IsEof();
    virtual unsigned int GetNativeHandle(void** handle);
    /// Maps a part of this file, as VornFileMapRegion does without a name and with default security. Null,
    /// with last error VORN_E_INVALID_ARG, once the file is closed, whatever the length.
    virtual void* MapRegion(unsigned long long offset, unsigned long long length, void* address);
    virtual unsigned int UnmapRegion(void* view);
    /// Copies the name that the file was opened with. VORN_E_INVALID_ARG once the file is closed, and then
    /// `name` stays as it is; VORN_E_NO_MEMORY.
    virtual unsigned int GetName(UniStr& name);

private:
    class FileImpl;
    FileImpl* impl_;
};

/// What a search found: a value that describes one entry, or nothing when it is empty. Copies are deep.
/// Memory exhaustion passes as std::bad_alloc, out of the iterator's functions too, which is at the end then.
class VORN_API FileFindItem {
public:
    /// An empty item.
    FileFindItem();
    FileFindItem(const FileFindItem& other);
    FileFindItem& operator=(const FileFindItem& other);
    ~FileFindItem();

    /// These return VORN_OK, or VORN_E_NO_MORE with nothing copied when the item is empty.
    unsigned int GetName(UniStr& name) const;
    unsigned int GetFullName(UniStr& fullName) const;
    /// The times of the last access and the last modification, in UTC; either pointer may be null.
    unsigned int GetTime(VornTime* accessTime, VornTime* modifyTime) const;
    /// Bytes; all bits set when the item is empty or the size is not known.
    unsigned long long GetSize() const;

private:
    friend class FileFindIterator;
    struct Record;
    Record* record_;
};

class FileFindIteratorImpl;

/// Walks a search as an input iterator. Each iterator has a current item of its own; copies share one
/// search, so that a step of one is a step of all, and the last of them ends it. Copies may be destroyed on
/// different threads; a search is advanced by one thread at a time.
class VORN_API FileFindIterator {
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = FileFindItem;
    using difference_type = ptrdiff_t;
    using pointer = const FileFindItem*;
    using reference = FileFindItem;

    /// The end.
    FileFindIterator();
    /// Starts a search; see VornFileFindFirst for the pattern. A search that finds nothing, for whatever
    /// reason, starts at the end.
    FileFindIterator(const UniStr& pattern);
    FileFindIterator(const FileFindIterator& other);
    /// Deliberate: takes the other's search over and keeps the own current item until the next step.
    const FileFindIterator& operator=(const FileFindIterator& other);
    virtual ~FileFindIterator();

    /// The current item; empty at the end.
    FileFindItem operator*() const { return item_; }
    const FileFindItem* operator->() const { return &item_; }

    FileFindIterator& operator++();
    /// Returns what the iterator was before the step.
    FileFindIterator operator++(int);

    /// Iterators at the end are equal, and so are iterators that share a search.
    bool operator==(const FileFindIterator& other) const;
    bool operator!=(const FileFindIterator& other) const { return !(*this == other); }

private:
    // Describes the entry that the search stands at, which is called `name`; null at the search's end.
    void Describe(const wchar_t* name);

    FileFindItem item_;
    FileFindIteratorImpl* search_;
};

/// All entries that match a pattern, for a range-based for. Each begin() starts a search of its own.
///
///     for (const vorn::FileFindItem& item : vorn::FileFindRange(L"C:\\logs\\*.txt")) ...
class FileFindRange {
public:
    explicit FileFindRange(const UniStr& pattern) : pattern_(pattern) {}
    FileFindIterator begin() const { return FileFindIterator(pattern_); }
    FileFindIterator end() const { return FileFindIterator(); }

private:
    UniStr pattern_;
};

}  // namespace vorn

#endif
