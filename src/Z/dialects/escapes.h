// escapes: the sequences after a backslash, by the switch `escapes`.
#pragma once

#include <string>
#include <string_view>

#include "switches.h"

namespace zdialects {

/// Returns the value of a hexadecimal digit; 16 for any other character.
unsigned digitOf(char c);

constexpr char kLowerDigits[] = "0123456789abcdef";
constexpr char kUpperDigits[] = "0123456789ABCDEF";

/// Appends the last hexadecimal digits of a number.
void appendHex(uint32_t number, int count, char const* digits, std::string& out);

/// Appends a code point as UTF-8.
void appendUtf8(uint32_t code, std::string& out);

/// Returns the length of the valid sequence of UTF-8 at the start of `text`, or 0.
/// range   `text` is not empty.
size_t readUtf8(std::string_view text, uint32_t& code);

bool isUtf8(std::string_view text);

/// Calls `take` with the UTF-16 unit of a code point, or with the two of a surrogate pair.
template <typename Take>
void forEachUtf16Unit(uint32_t code, Take const& take)
{
    if (code < 0x10000)
        return take(code);
    take(0xd800 + ((code - 0x10000) >> 10));
    take(0xdc00 + ((code - 0x10000) & 0x3ff));
}

/// Returns whether escapes replace the characters of a value that are not ASCII.
bool isNumbered(Switches const& switches, std::string_view value);

// Letters after a backslash, and their meanings in the same order.
struct EscapeSet {
    std::string_view letters;
    std::string_view meanings;
};

/// Returns the letters of a switch. Numbers are not among them.
constexpr EscapeSet escapeSet(Escapes escapes)
{
    switch (escapes) {
        case Escapes::none:
            break;
        case Escapes::desktop:
        case Escapes::kconfig:
            return {"sntr\\", " \n\t\r\\"};
        case Escapes::git:
            return {"ntb\"\\", "\n\t\b\"\\"};
        case Escapes::php:
            return {"\"\\$", "\"\\$"};
        case Escapes::mysql:
            return {"ntrbs\\\"'", "\n\t\r\b \\\"'"};
        case Escapes::c:
            return {"abfnrtv\"?'\\", "\a\b\f\n\r\t\v\"?'\\"};
        case Escapes::environment:
            return {"\"\\$`", "\"\\$`"};
    }
    return {};
}

// A sequence as read. The meaning of a letter is a byte; a number is a code point or a byte.
struct Escape {
    enum Kind { letter, number, unknown };
    Kind kind;
    uint32_t code;
    size_t end;  // index after the sequence
};

/// Reads the sequence at `at`, the index of a backslash.
Escape readEscape(Escapes escapes, std::string_view chars, size_t at);

/// Returns whether the backslash at `at`, in double quotes, is before a closing quote. In PHP, a
/// quote at the end of its line closes.
bool isBeforeClosingQuote(Escapes escapes, std::string_view chars, size_t at);

/// Appends the meaning of the sequence at `at`; returns the index after it.
/// range   an unknown sequence is kept if `unknownEscape` is refused: readers report it.
size_t appendUnescaped(Switches const& switches, std::string_view chars, size_t at, bool isQuoted,
                       std::string& out);

}  // namespace zdialects
