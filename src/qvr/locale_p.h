// locale_p: what a locale handle stands for.
//
// Subsystem: text services.  Stands on: qvr.h, utf8_p.
#pragma once

#include <stdint.h>
#include <unicode/uchar.h>

#include <array>
#include <string>

#include "qvr.h"
#include "utf8_p.h"

namespace qvr {

// The words and forms of dates and times in one language. Words are folded (see fold).
struct TimeWords {
    std::array<std::u32string, 14> days;    // Sunday first: long names, then short ones
    std::array<std::u32string, 24> months;  // January first: long names, then short ones
    std::array<std::u32string, 2> halves;   // of the day
    bool halvesUnnamed = false;             // the language leaves them out
    std::u32string dateAndTime;             // %c
    std::u32string date;                    // %x
    std::u32string time;                    // %X
    std::u32string time12;                  // %r
};

}  // namespace qvr

struct qvr_loc {
    bool turkic = false;  // i pairs with dotted I and I with dotless i
    qvr::TimeWords words;
};

namespace qvr {

constexpr uint32_t kDottedCapitalI = 0x130;
constexpr uint32_t kDotlessSmallI = 0x131;

inline bool isTurkic(qvr_loc_t loc)
{
    return loc != nullptr && loc->turkic;
}

// Folds a code point so that two that differ only in case become the same.
inline uint32_t fold(uint32_t value, bool turkic)
{
    if (value < 0x80) {
        if (turkic && value == 'I')
            return kDotlessSmallI;
        return value >= 'A' && value <= 'Z' ? value + 0x20 : value;
    }
    return static_cast<uint32_t>(u_foldCase(
        static_cast<UChar32>(value), turkic ? U_FOLD_CASE_EXCLUDE_SPECIAL_I : U_FOLD_CASE_DEFAULT));
}

// The words of the C locale, for a null handle. Throws std::bad_alloc.
TimeWords englishWords();

}  // namespace qvr
