// DialectPercents: the names of the model that are spelled with percent signs.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace dialect_model {

namespace percents {

inline std::string utf8(unsigned code)
{
    auto const byte = [](unsigned value) { return std::string(1, static_cast<char>(value)); };
    if (code < 0x80)
        return byte(code);
    if (code < 0x800)
        return byte(0xc0 + code / 64) + byte(0x80 + code % 64);
    if (code < 0x10000)
        return byte(0xe0 + code / 4096) + byte(0x80 + code / 64 % 64) + byte(0x80 + code % 64);
    return byte(0xf0 + code / 262144) + byte(0x80 + code / 4096 % 64) +
           byte(0x80 + code / 64 % 64) + byte(0x80 + code % 64);
}

// The number in "%20" or "%U20AC" at the start of a string, and its length; otherwise -1.
inline int number(std::string const& text, std::size_t& length)
{
    bool const isLong = text.substr(0, 2) == "%U";
    length = isLong ? 6 : 3;
    if (text.size() < length || text[0] != '%')
        return -1;
    std::string const digits = text.substr(isLong ? 2 : 1, isLong ? 4 : 2);
    if (digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
        return -1;
    return static_cast<int>(std::strtol(digits.c_str(), nullptr, 16));
}

}  // namespace percents

inline std::string percentDecoded(std::string text)
{
    std::string name;
    while (!text.empty()) {
        std::size_t length = 0;
        std::size_t more = 0;
        int code = percents::number(text, length);
        if (code >= 0xd800 && code < 0xe000) {
            int const low = percents::number(text.substr(length), more);
            bool const isPair = code < 0xdc00 && low >= 0xdc00 && low < 0xe000;
            code = isPair ? 0x10000 + (code - 0xd800) * 1024 + low - 0xdc00 : -1;
        }
        if (code < 0x20 || code == 0x7f) {
            name += text[0] == '\\' ? '/' : text[0];
            text.erase(0, 1);
        } else {
            name += percents::utf8(static_cast<unsigned>(code));
            text.erase(0, length + more);
        }
    }
    return name;
}

// For names of ASCII.
inline std::string percentEncoded(std::string const& name)
{
    std::string text;
    for (char const c : name) {
        bool const isPlain = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') ||
                             (c >= 'A' && c <= 'Z') || c == '_' || c == '-' || c == '.' || c < 0;
        char spelled[8];
        snprintf(spelled, sizeof spelled, "%%%02X", static_cast<unsigned>(c) & 0xffu);
        text += isPlain ? std::string(1, c) : c == '/' ? "\\" : spelled;
    }
    return text;
}

}  // namespace dialect_model
