#include "percent_names.h"

#include <stdint.h>

#include "characters.h"
#include "escapes.h"

namespace zdialects {

namespace {

constexpr size_t kShortDigits = 2;
constexpr size_t kLongDigits = 4;  // after U
constexpr uint32_t kFirstSurrogate = 0xd800;
constexpr uint32_t kFirstLowSurrogate = 0xdc00;
constexpr uint32_t kAfterSurrogates = 0xe000;

// Reads the number after the percent sign at `at`. Returns the index after it, or 0.
size_t readUnit(std::string_view spelled, size_t at, uint32_t& unit)
{
    bool const isLong = spelled.substr(at + 1).starts_with('U');
    size_t const first = at + (isLong ? 2 : 1);
    size_t const end = first + (isLong ? kLongDigits : kShortDigits);
    if (end > spelled.size())
        return 0;
    unit = 0;
    for (size_t i = first; i < end; ++i) {
        unsigned const digit = digitOf(spelled[i]);
        if (digit >= 16)
            return 0;
        unit = unit * 16 + digit;
    }
    return end;
}

// Reads a character, which may be a pair of surrogates. Returns the index after it, or 0.
size_t readCharacter(std::string_view spelled, size_t at, uint32_t& code)
{
    size_t const end = readUnit(spelled, at, code);
    if (end == 0 || code < ' ' || code == 0x7f)
        return 0;
    if (code < kFirstSurrogate || code >= kAfterSurrogates)
        return end;
    uint32_t low = 0;
    size_t const lowEnd = code < kFirstLowSurrogate && spelled.substr(end).starts_with('%')
                              ? readUnit(spelled, end, low)
                              : 0;
    if (lowEnd == 0 || low < kFirstLowSurrogate || low >= kAfterSurrogates)
        return 0;
    code = 0x10000 + ((code - kFirstSurrogate) << 10) + (low - kFirstLowSurrogate);
    return lowEnd;
}

void appendUnit(uint32_t unit, std::string& out)
{
    bool const isLong = unit > 0xff;
    appendHex(unit, isLong ? 4 : 2, kUpperDigits, out += isLong ? "%U" : "%");
}

}  // namespace

std::string_view decodePercents(std::string_view spelled, std::string& space)
{
    size_t const first = spelled.find_first_of("%\\");
    if (first == spelled.npos)
        return spelled;
    std::string name(spelled.substr(0, first));
    for (size_t at = first; at < spelled.size();) {
        uint32_t code = 0;
        size_t const end = spelled[at] == '%' ? readCharacter(spelled, at, code) : 0;
        if (end != 0)
            appendUtf8(code, name);
        else
            name += spelled[at] == '\\' ? '/' : spelled[at];
        at = end != 0 ? end : at + 1;
    }
    return space = std::move(name);
}

void appendPercents(std::string_view name, std::string& out)
{
    while (!name.empty()) {
        uint32_t code = 0;
        size_t const length = readUtf8(name, code);
        char const c = name.front();
        if (c == '/')
            out += '\\';
        else if (length == 0 || isLetter(c) || isDigit(c) || c == '_' || c == '-' || c == '.')
            out += c;
        else
            forEachUtf16Unit(code, [&](uint32_t unit) { appendUnit(unit, out); });
        name.remove_prefix(length == 0 ? 1 : length);
    }
}

}  // namespace zdialects
