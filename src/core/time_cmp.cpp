#include <vorn/runtime.h>

extern "C" int32_t VornTimeCmp(const VornTime* a, const VornTime* b, int32_t ignoreMilliseconds)
{
    constexpr uint16_t VornTime::*kFields[] = {
        &VornTime::year,   &VornTime::month,  &VornTime::day,          &VornTime::hour,
        &VornTime::minute, &VornTime::second, &VornTime::milliseconds,
    };
    constexpr int kAllFields = 7;
    const int count = ignoreMilliseconds != 0 ? kAllFields - 1 : kAllFields;
    for (int i = 0; i < count; ++i) {
        if (a->*kFields[i] != b->*kFields[i]) return a->*kFields[i] < b->*kFields[i] ? -1 : 1;
    }
    return 0;
}
