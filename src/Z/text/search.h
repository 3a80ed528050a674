// search: linear-time substring search. Not installed.
#pragma once

#include <stddef.h>
#include <string.h>

namespace ztext {

// Returns the first occurrence of `needle` in `text` as strstr() does, in time linear in both.
// strstr() of the C library restarts the comparison of a long needle at each position. memmem()
// does not, but needs the length of the haystack: only the part that is searched is measured.
inline char const* findText(char const* text, char const* needle)
{
    constexpr size_t kShortNeedle = 32;
    if (strnlen(needle, kShortNeedle + 1) <= kShortNeedle)
        return strstr(text, needle);
    size_t const length = strlen(needle);
    for (size_t window = 4 * length;; window *= 2) {
        size_t const measured = strnlen(text, window);
        if (void const* const found = memmem(text, measured, needle, length))
            return static_cast<char const*>(found);
        if (measured < window)
            return nullptr;
        text += measured - (length - 1);
    }
}

}  // namespace ztext
