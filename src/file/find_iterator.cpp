#include <vorn/file.hpp>

#include <utility>

namespace vorn {

// One entry. The state says whether the rest means anything.
struct FileFindItem::Record {
    static constexpr uint32_t kEntry = 0;
    static constexpr uint32_t kEmpty = 1;

    uint32_t state = kEmpty;
    UniStr name;
    UniStr fullName;
    VornTime modifyTime = {};
    VornTime accessTime = {};
    uint64_t size = UINT64_MAX;
};

FileFindItem::FileFindItem() : record_(new Record) {}

FileFindItem::FileFindItem(const FileFindItem& other) : record_(new Record(*other.record_)) {}

FileFindItem& FileFindItem::operator=(const FileFindItem& other)
{
    FileFindItem copy(other);
    std::swap(record_, copy.record_);
    return *this;
}

FileFindItem::~FileFindItem()
{
    delete record_;
}

unsigned int FileFindItem::GetName(UniStr& name) const
{
    if (record_->state != Record::kEntry) return VORN_E_NO_MORE;
    name = record_->name;
    return VORN_OK;
}

unsigned int FileFindItem::GetFullName(UniStr& fullName) const
{
    if (record_->state != Record::kEntry) return VORN_E_NO_MORE;
    fullName = record_->fullName;
    return VORN_OK;
}

unsigned int FileFindItem::GetTime(VornTime* accessTime, VornTime* modifyTime) const
{
    if (record_->state != Record::kEntry) return VORN_E_NO_MORE;
    if (accessTime != nullptr) *accessTime = record_->accessTime;
    if (modifyTime != nullptr) *modifyTime = record_->modifyTime;
    return VORN_OK;
}

unsigned long long FileFindItem::GetSize() const
{
    return record_->state == Record::kEntry ? record_->size : UINT64_MAX;
}

// The search that copies of an iterator share.
class FileFindIteratorImpl : public Countable, public NonCopyable {
public:
    FileFindIteratorImpl() = default;
    ~FileFindIteratorImpl() override
    {
        if (find != nullptr) VornFileFindClose(find);
    }

    VornFileFind* find = nullptr;
    bool ended = true;
};

FileFindIterator::FileFindIterator() : search_(new FileFindIteratorImpl) {}

FileFindIterator::FileFindIterator(const UniStr& pattern) : FileFindIterator()
{
    const wchar_t* name = nullptr;
    search_->find = VornFileFindFirst(pattern.S_Str(), &name);
    Describe(search_->find != nullptr ? name : nullptr);
}

FileFindIterator::FileFindIterator(const FileFindIterator& other) : item_(other.item_), search_(other.search_)
{
    search_->AddRef();
}

const FileFindIterator& FileFindIterator::operator=(const FileFindIterator& other)
{
    other.search_->AddRef();
    std::exchange(search_, other.search_)->Release();
    return *this;
}

FileFindIterator::~FileFindIterator()
{
    search_->Release();
}

FileFindIterator& FileFindIterator::operator++()
{
    const wchar_t* name = nullptr;
    const VornStatus status = VornFileFindNext(search_->find, &name);
    Describe(status == VORN_OK ? name : nullptr);
    return *this;
}

FileFindIterator FileFindIterator::operator++(int)
{
    FileFindIterator before(*this);
    ++*this;
    return before;
}

bool FileFindIterator::operator==(const FileFindIterator& other) const
{
    return search_ == other.search_ || (search_->ended && other.search_->ended);
}

void FileFindIterator::Describe(const wchar_t* name)
{
    FileFindItem::Record& item = *item_.record_;
    // Until the description is whole there is none, should memory run out on the way.
    item.state = FileFindItem::Record::kEmpty;
    search_->ended = true;
    if (name == nullptr) return;
    item.name = name;
    item.size = VornFileFindGetSize(search_->find);
    VornFileFindGetTime(search_->find, &item.accessTime, &item.modifyTime);
    const wchar_t* fullName = nullptr;
    if (VornFileFindGetFullName(search_->find, &fullName) != VORN_OK) return;
    item.fullName = fullName;
    item.state = FileFindItem::Record::kEntry;
    search_->ended = false;
}

}  // namespace vorn
