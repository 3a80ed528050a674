// text_diff: the range of bytes in which old and new text differ, and checksums of ranges.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string_view>

namespace zstore {

/// Returns the CRC-32 of `bytes`. To continue a CRC-32, pass the CRC-32 of the preceding bytes.
uint32_t checksum(std::string_view bytes, uint32_t crc = 0);

/// Returns the Adler-32 of `bytes`. It runs at memory speed, for long unchanged ranges.
uint32_t quickChecksum(std::string_view bytes);

size_t commonPrefix(std::string_view a, std::string_view b);
size_t commonSuffix(std::string_view a, std::string_view b);

inline std::string_view dropPrefix(std::string_view bytes, size_t length)
{
    return {bytes.data() + length, bytes.size() - length};
}

inline std::string_view dropSuffix(std::string_view bytes, size_t length)
{
    return {bytes.data(), bytes.size() - length};
}

// The change from an old text to a new text. The common prefix stays. The common suffix stays if
// the lengths are equal, and moves otherwise.
//
//     old   prefix  old middle  moved  suffix
//     new   prefix  new middle  moved  suffix
struct TextDiff {
    size_t prefix = 0;
    size_t suffix = 0;
    std::string_view oldMiddle;
    std::string_view newMiddle;
    std::string_view moved;

    TextDiff() = default;
    TextDiff(std::string_view oldText, std::string_view newText);

    bool isEmpty() const { return oldMiddle.empty() && newMiddle.empty(); }

    /// Returns the bytes of the old or the new text that are written in place.
    std::string_view rewritten(std::string_view text) const
    {
        return dropSuffix(dropPrefix(text, prefix), suffix);
    }
};

}  // namespace zstore
