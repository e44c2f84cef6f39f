#include "text/codepage_converter.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

namespace vorn::detail {

struct CodepageConverter::Entry {
    UConverter* converter;
    char defaultName[UCNV_MAX_CONVERTER_NAME_LENGTH];  // empty: too long to be kept
};

namespace {

using Entry = CodepageConverter::Entry;

// Converters that nobody uses. A slot is emptied and filled by atomic exchange, so that an entry always has
// one owner. More slots than threads that convert at the same moment would never be filled.
constexpr size_t kSlots = 4;
std::atomic<Entry*> kept[kSlots];

void Close(Entry* entry) noexcept
{
    ucnv_close(entry->converter);
    std::free(entry);
}

bool IsDefault(const Entry& entry, const char* defaultName) noexcept
{
    return defaultName != nullptr && std::strcmp(entry.defaultName, defaultName) == 0;
}

Entry* TakeKept(const char* defaultName) noexcept
{
    for (std::atomic<Entry*>& slot : kept) {
        if (slot.load(std::memory_order_relaxed) == nullptr) continue;
        Entry* const entry = slot.exchange(nullptr, std::memory_order_acquire);
        if (entry == nullptr) continue;
        if (IsDefault(*entry, defaultName)) return entry;
        Close(entry);
    }
    return nullptr;
}

Entry* Open(const char* defaultName, UErrorCode* status) noexcept
{
    Entry* const entry = static_cast<Entry*>(std::malloc(sizeof(Entry)));
    if (entry == nullptr) {
        *status = U_MEMORY_ALLOCATION_ERROR;
        return nullptr;
    }
    entry->converter = ucnv_open(nullptr, status);
    if (U_FAILURE(*status) || entry->converter == nullptr) {
        if (U_SUCCESS(*status)) *status = U_INTERNAL_PROGRAM_ERROR;
        std::free(entry);
        return nullptr;
    }
    entry->defaultName[0] = '\0';
    const size_t size = defaultName == nullptr ? 0 : std::strlen(defaultName) + 1;
    if (size <= sizeof entry->defaultName) std::memcpy(entry->defaultName, defaultName, size);
    return entry;
}

}  // namespace

CodepageConverter::CodepageConverter() noexcept : entry_(nullptr), status_(U_ZERO_ERROR)
{
    const char* const defaultName = ucnv_getDefaultName();
    entry_ = TakeKept(defaultName);
    if (entry_ == nullptr) entry_ = Open(defaultName, &status_);
}

CodepageConverter::~CodepageConverter()
{
    if (entry_ == nullptr) return;
    if (entry_->defaultName[0] != '\0') {
        for (std::atomic<Entry*>& slot : kept) {
            Entry* empty = nullptr;
            if (slot.compare_exchange_strong(empty, entry_, std::memory_order_release,
                                             std::memory_order_relaxed)) {
                return;
            }
        }
    }
    Close(entry_);
}

UConverter* CodepageConverter::Get() const noexcept
{
    return entry_ == nullptr ? nullptr : entry_->converter;
}

void CloseKeptConverters() noexcept
{
    for (std::atomic<Entry*>& slot : kept) {
        Entry* const entry = slot.exchange(nullptr, std::memory_order_acquire);
        if (entry != nullptr) Close(entry);
    }
}

}  // namespace vorn::detail
