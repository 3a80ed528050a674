#include "escapes.h"

#include <algorithm>

#include "characters.h"

namespace zdialects {

namespace {

constexpr uint32_t kMaxCodePoint = 0x10ffff;

// The numbers that the switch allows after a backslash.
struct NumberForm {
    unsigned base;
    size_t leastDigits;
    size_t mostDigits;
};

NumberForm numberForm(Escapes escapes, char first)
{
    if (escapes == Escapes::kconfig && first == 'x')
        return {16, 2, 2};
    if (escapes == Escapes::c && first == 'x')
        return {16, 1, 8};
    if (escapes == Escapes::c && first >= '0' && first <= '7')
        return {8, 1, 3};
    return {};
}

constexpr uint32_t kReplacement = 0xfffd;

bool isHighSurrogate(uint32_t code)
{
    return code >= 0xd800 && code < 0xdc00;
}

bool isLowSurrogate(uint32_t code)
{
    return code >= 0xdc00 && code < 0xe000;
}

// Appends the character of a number, or of two that are a surrogate pair. Half of a pair is no
// character. Returns the index after it.
size_t appendCodePoint(Escape const& escape, std::string_view chars, std::string& out)
{
    if (!isHighSurrogate(escape.code)) {
        appendUtf8(isLowSurrogate(escape.code) ? kReplacement : escape.code, out);
        return escape.end;
    }
    if (escape.end < chars.size() && chars[escape.end] == '\\') {
        Escape const next = readEscape(Escapes::c, chars, escape.end);
        if (next.kind == Escape::number && isLowSurrogate(next.code)) {
            appendUtf8(0x10000 + ((escape.code - 0xd800) << 10) + (next.code - 0xdc00), out);
            return next.end;
        }
    }
    appendUtf8(kReplacement, out);
    return escape.end;
}

}  // namespace

unsigned digitOf(char c)
{
    if (c >= '0' && c <= '9')
        return static_cast<unsigned>(c - '0');
    char const letter = foldedCase(c);
    return letter >= 'a' && letter <= 'f' ? static_cast<unsigned>(letter - 'a' + 10) : 16;
}

void appendHex(uint32_t number, int count, char const* digits, std::string& out)
{
    while (count-- > 0)
        out += digits[number >> 4 * count & 0xf];
}

void appendUtf8(uint32_t code, std::string& out)
{
    auto const append = [&out](uint32_t byte) { out += static_cast<char>(byte); };
    if (code < 0x80)
        return append(code);
    if (code < 0x800) {
        append(0xc0 | code >> 6);
    } else {
        if (code < 0x10000) {
            append(0xe0 | code >> 12);
        } else {
            append(0xf0 | code >> 18);
            append(0x80 | (code >> 12 & 0x3f));
        }
        append(0x80 | (code >> 6 & 0x3f));
    }
    append(0x80 | (code & 0x3f));
}

size_t readUtf8(std::string_view text, uint32_t& code)
{
    auto const byteAt = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    unsigned char const first = byteAt(0);
    size_t const length = first < 0x80   ? 1
                          : first < 0xc2 ? 0
                          : first < 0xe0 ? 2
                          : first < 0xf0 ? 3
                          : first < 0xf5 ? 4
                                         : 0;
    if (length == 0 || length > text.size())
        return 0;
    code = length == 1 ? first : first & (0xffu >> (length + 1));
    for (size_t i = 1; i < length; ++i) {
        if ((byteAt(i) & 0xc0) != 0x80)
            return 0;
        code = code << 6 | (byteAt(i) & 0x3f);
    }
    bool const isShorter = (length == 3 && code < 0x800) || (length == 4 && code < 0x10000);
    return isShorter || isHighSurrogate(code) || isLowSurrogate(code) || code > kMaxCodePoint
               ? 0
               : length;
}

bool isUtf8(std::string_view text)
{
    uint32_t code = 0;
    while (!text.empty()) {
        size_t const length = readUtf8(text, code);
        if (length == 0)
            return false;
        text.remove_prefix(length);
    }
    return true;
}

bool isNumbered(Switches const& switches, std::string_view value)
{
    return switches.nonAscii == NonAscii::escaped && switches.escapes == Escapes::c &&
           std::any_of(value.begin(), value.end(), [](char c) { return (c & 0x80) != 0; }) &&
           isUtf8(value);
}

bool isBeforeClosingQuote(Escapes escapes, std::string_view chars, size_t at)
{
    if (escapes != Escapes::php || chars.substr(at + 1, 1) != "\"")
        return false;
    return at + 2 == chars.size() || chars[at + 2] == '\n' || chars[at + 2] == '\r';
}

Escape readEscape(Escapes escapes, std::string_view chars, size_t at)
{
    Escape const unknown{Escape::unknown, 0, std::min(at + 2, chars.size())};
    if (at + 1 >= chars.size())
        return unknown;
    EscapeSet const set = escapeSet(escapes);
    char const c = chars[at + 1];
    size_t const index = set.letters.find(c);
    if (index != set.letters.npos)
        return {Escape::letter, static_cast<unsigned char>(set.meanings[index]), at + 2};
    NumberForm const form = numberForm(escapes, c);
    if (form.base == 0)
        return unknown;
    size_t const first = at + (form.base == 16 ? 2 : 1);
    size_t end = first;
    uint32_t code = 0;
    for (; end < chars.size() && end - first < form.mostDigits; ++end) {
        unsigned const digit = digitOf(chars[end]);
        if (digit >= form.base)
            break;
        code = code * form.base + digit;
    }
    if (code == 0 || code > kMaxCodePoint || end - first < form.leastDigits)
        return unknown;
    return {Escape::number, code, end};
}

size_t appendUnescaped(Switches const& switches, std::string_view chars, size_t at, bool isQuoted,
                       std::string& out)
{
    Escape const escape = readEscape(switches.escapes, chars, at);
    if (escape.kind == Escape::number && switches.escapes == Escapes::c) {
        return appendCodePoint(escape, chars, out);
    } else if (escape.kind != Escape::unknown) {
        out += static_cast<char>(escape.code);
    } else {
        switch (switches.unknownEscape) {
            case UnknownEscape::keptInQuotes:
                out += isQuoted ? chars.substr(at, escape.end - at)
                                : chars.substr(at + 1, escape.end - at - 1);
                break;
            case UnknownEscape::kept:
            case UnknownEscape::refused:
                out += chars.substr(at, escape.end - at);
                break;
            case UnknownEscape::dropped:
                break;
        }
    }
    return escape.end;
}

}  // namespace zdialects
