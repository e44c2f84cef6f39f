#include "text/codepage_converter.h"

#include <atomic>
#include <cstring>

namespace vorn::detail {

// A place for a converter that stays open between calls. Whoever turns `taken` from false to true owns the
// other fields until he sets it back.
struct ConverterSlot {
    std::atomic<bool> taken{false};
    UConverter* converter = nullptr;
    char defaultName[UCNV_MAX_CONVERTER_NAME_LENGTH] = "";  // the default's name when it was opened
};

namespace {

// As many threads can convert at the same time without opening converters of their own.
constexpr size_t kSlots = 4;
ConverterSlot slots[kSlots];

ConverterSlot* TakeSlot() noexcept
{
    for (ConverterSlot& slot : slots) {
        if (slot.taken.load(std::memory_order_relaxed)) continue;
        if (!slot.taken.exchange(true, std::memory_order_acquire)) return &slot;
    }
    return nullptr;
}

void GiveBack(ConverterSlot& slot) noexcept
{
    slot.taken.store(false, std::memory_order_release);
}

void CloseConverter(ConverterSlot& slot) noexcept
{
    ucnv_close(slot.converter);  // which takes null too
    slot.converter = nullptr;
}

UConverter* OpenDefault(UErrorCode* status) noexcept
{
    UConverter* const converter = ucnv_open(nullptr, status);
    if (U_SUCCESS(*status)) return converter;
    ucnv_close(converter);
    return nullptr;
}

}  // namespace

CodepageConverter::CodepageConverter() noexcept
    : converter_(nullptr), slot_(TakeSlot()), status_(U_ZERO_ERROR)
{
    const char* const name = ucnv_getDefaultName();
    const size_t nameSize = name != nullptr ? std::strlen(name) + 1 : 0;
    if (slot_ != nullptr && (nameSize == 0 || nameSize > sizeof slot_->defaultName)) {
        GiveBack(*slot_);
        slot_ = nullptr;
    }
    if (slot_ == nullptr) {
        converter_ = OpenDefault(&status_);
        return;
    }
    if (slot_->converter == nullptr || std::memcmp(slot_->defaultName, name, nameSize) != 0) {
        CloseConverter(*slot_);
        slot_->converter = OpenDefault(&status_);
        std::memcpy(slot_->defaultName, name, nameSize);
    }
    converter_ = slot_->converter;
}

CodepageConverter::~CodepageConverter()
{
    if (slot_ != nullptr) {
        GiveBack(*slot_);
    } else {
        ucnv_close(converter_);
    }
}

void CloseKeptConverters() noexcept
{
    for (ConverterSlot& slot : slots) {
        if (slot.taken.exchange(true, std::memory_order_acquire)) continue;
        CloseConverter(slot);
        GiveBack(slot);
    }
}

}  // namespace vorn::detail
