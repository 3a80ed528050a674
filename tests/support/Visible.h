// Visible: bytes as a string for messages, with an escape for every byte that would not show.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

inline std::string visible(std::string_view bytes)
{
    std::string text;
    for (char const c : bytes) {
        char code[5];
        snprintf(code, sizeof code, "\\x%02X", static_cast<unsigned char>(c));
        text += c > ' ' && c < 0x7F && c != '\\' ? std::string(1, c) : code;
    }
    return text;
}
