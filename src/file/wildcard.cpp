#include "file/wildcard.h"

namespace vorn::detail {

bool WildcardMatches(const wchar_t* pattern, size_t patternUnits, const wchar_t* name,
                     size_t nameUnits) noexcept
{
    if (patternUnits == 0 || nameUnits == 0) return false;
    size_t p = 0;
    size_t n = 0;
    // After a mismatch only the last star takes one unit more. Earlier stars need no second try: whatever
    // a longer run of theirs would reach, the last star reaches as well.
    bool starSeen = false;
    size_t afterStar = 0;  // the pattern's index after the last star
    size_t starEnd = 0;    // the name's index up to which the last star has taken units
    while (n < nameUnits) {
        if (p < patternUnits && pattern[p] == L'*') {
            starSeen = true;
            afterStar = ++p;
            starEnd = n;
        } else if (p < patternUnits && (pattern[p] == L'?' || pattern[p] == name[n])) {
            ++p;
            ++n;
        } else if (starSeen) {
            p = afterStar;
            n = ++starEnd;
        } else {
            return false;
        }
    }
    while (p < patternUnits && pattern[p] == L'*') ++p;
    return p == patternUnits;
}

}  // namespace vorn::detail
