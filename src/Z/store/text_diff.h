// text_diff: the byte range in which two texts differ, and checksums of ranges.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string_view>

namespace zstore {

/// Returns the CRC-32 of `bytes`, or that of all bytes so far if `crc` is the CRC-32 of the bytes
/// before them.
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

// Turns an old text into a new one. A prefix stays. A suffix stays if the texts have the same
// length; otherwise the common suffix moves.
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
