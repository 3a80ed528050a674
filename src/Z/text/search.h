// ZTextSearch_p: the search for a text within a text. Not installed.
#pragma once

#include <stddef.h>
#include <string.h>

// Returns the first place of `needle` in `text` as strstr() does, in time linear in both. strstr()
// of the C library compares a long needle anew at every place; memmem() does not, but wants to know
// the length of the text: the text is measured no further than it is searched.
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
