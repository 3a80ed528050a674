// locale_p: the data of a locale handle.
//
// Subsystem: text services.  Stands on: qvr.h, utf8_p.
#pragma once

#include <stdint.h>
#include <unicode/uchar.h>

#include <array>
#include <atomic>
#include <string>
#include <string_view>

#include "qvr.h"
#include "utf8_p.h"

namespace qvr {

// The words and formats of dates and times in one language. Words are folded (see fold).
struct TimeWords {
    std::array<std::u32string_view, 14> days;    // Sunday first: long names, then short ones
    std::array<std::u32string_view, 24> months;  // January first: long names, then short ones
    std::array<std::u32string_view, 2> amPm;     // of the day
    bool amPmUnnamed;                            // the language has no words for them
    std::u32string_view dateAndTime;             // %c
    std::u32string_view date;                    // %x
    std::u32string_view time;                    // %X
    std::u32string_view time12;                  // %r
};

// The words of the C locale.
inline constexpr TimeWords kEnglishWords = {
    {U"sunday", U"monday", U"tuesday", U"wednesday", U"thursday", U"friday", U"saturday", U"sun",
     U"mon", U"tue", U"wed", U"thu", U"fri", U"sat"},
    {U"january",   U"february", U"march",    U"april",    U"may", U"june", U"july", U"august",
     U"september", U"october",  U"november", U"december", U"jan", U"feb",  U"mar",  U"apr",
     U"may",       U"jun",      U"jul",      U"aug",      U"sep", U"oct",  U"nov",  U"dec"},
    {U"am", U"pm"},
    false,
    U"%a %b %e %H:%M:%S %Y",
    U"%m/%d/%y",
    U"%H:%M:%S",
    U"%I:%M:%S %p",
};

}  // namespace qvr

namespace qvr {

struct SystemWords;  // locale.cpp

}  // namespace qvr

struct qvr_loc {
    qvr_loc() = default;
    qvr_loc(qvr_loc const&) = delete;
    qvr_loc& operator=(qvr_loc const&) = delete;
    ~qvr_loc();

    bool turkic = false;     // i pairs with dotted I and I with dotless i
    std::string name;        // canonical
    std::string systemName;  // of the operating system, if it is the current locale; else empty
    mutable std::atomic<qvr::SystemWords*> words{nullptr};  // null until they are read; owned
};

namespace qvr {

// Returns the operating system's words for the locale, or English ones. The first call for a locale
// reads them: few programs need them, and the operating system reads a dozen files.
// Throws std::bad_alloc.
TimeWords const& wordsOf(qvr_loc const& loc);

}  // namespace qvr

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

}  // namespace qvr
