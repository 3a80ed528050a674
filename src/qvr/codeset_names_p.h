// codeset_names_p: which names of codesets are equal.
//
// Subsystem: text services.  Stands on: nothing.
//
// Names are equal for which ICU's ucnv_compareNames() returns 0: only ASCII letters and digits are
// significant, without regard to case and to leading zeros of numbers. A program in UTF-8 need not
// load ICU to compare names.
#pragma once

#include <string>
#include <string_view>

namespace qvr {

// Calls `append(char)` for each significant character of a name, in lower case.
template <class Append>
constexpr void normaliseName(std::string_view name, Append append)
{
    auto const isDigit = [](char c) { return c >= '0' && c <= '9'; };
    bool isInNumber = false;
    for (size_t i = 0; i < name.size(); ++i) {
        char const c = name[i];
        if (isDigit(c)) {
            if (c == '0' && !isInNumber && i + 1 < name.size() && isDigit(name[i + 1]))
                continue;  // a leading zero
            isInNumber = isInNumber || c != '0';
            append(c);
            continue;
        }
        isInNumber = false;
        if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'))
            append(static_cast<char>(c | 0x20));
    }
}

// Returns the same key for all equal names.
inline std::string codesetKey(std::string_view name)
{
    std::string key;
    normaliseName(name, [&key](char c) { key += c; });
    return key;
}

inline bool isSameCodesetName(std::string_view a, std::string_view b)
{
    return codesetKey(a) == codesetKey(b);
}

}  // namespace qvr
