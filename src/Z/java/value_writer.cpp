#include "value_writer.h"

#include <algorithm>

namespace zjava {

void appendValue(std::string& text, char const* value, size_t length)
{
    char const* const end = value + length;
    // Missing bytes of a truncated character are 0.
    auto const bits = [end](char const* at, int i) {
        return end - at > i ? static_cast<unsigned char>(at[i]) & 0x3Fu : 0u;
    };
    while (value < end) {
        auto const lead = static_cast<unsigned char>(*value);
        if (lead <= 0x7E) {
            if (lead == '\\' || lead == ':')
                text += '\\';
            text += *value++;
            continue;
        }
        // KEPT: a byte that does not start a character of two or three bytes is written as "\u"
        // only, and reading skips such a line. A program that loads the file uses its default for
        // the key; with a readable escape it would get a value that never was text.
        // Test: ZJavaProperties.KeepsWritingUAlone
        text += "\\u";
        unsigned unit;
        int bytes;
        if (lead >= 0xC0 && lead <= 0xDF) {
            unit = (lead & 0x1Fu) << 6 | bits(value, 1);
            bytes = 2;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            unit = (lead & 0x0Fu) << 12 | bits(value, 1) << 6 | bits(value, 2);
            bytes = 3;
        } else {
            ++value;
            continue;
        }
        constexpr char kDigits[] = "0123456789abcdef";
        for (int shift = 12; shift >= 0; shift -= 4)
            text += kDigits[unit >> shift & 0xF];
        value += std::min<ptrdiff_t>(bytes, end - value);
    }
}

}  // namespace zjava
