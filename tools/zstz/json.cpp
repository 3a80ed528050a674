#include "json.h"

#include <Z/lines/columns.h>
#include <stdio.h>

namespace {

// Returns the length of the ASCII text at the start that needs no escape.
size_t plainLength(std::string_view text)
{
    size_t length = 0;
    while (length < text.size() && text[length] >= 0x20 && text[length] < 0x7F &&
           text[length] != '"' && text[length] != '\\')
        ++length;
    return length;
}

}  // namespace

std::string toJson(std::string_view text)
{
    std::string json;
    json.reserve(text.size() + 2);
    json += '"';
    while (!text.empty()) {
        size_t const plain = plainLength(text);
        json += text.substr(0, plain);
        text.remove_prefix(plain);
        if (text.empty())
            break;
        size_t const length = zlines::characterLength(text);
        auto const byte = static_cast<unsigned char>(text.front());
        char escaped[8];
        if (byte == '"' || byte == '\\') {
            json += '\\';
            json += text.front();
        } else if (byte < 0x20 || byte == 0x7F || (length == 1 && byte >= 0x80)) {
            snprintf(escaped, sizeof escaped, "\\u%s%02x", byte < 0x80 ? "00" : "dc", byte);
            json += escaped;
        } else {
            json += text.substr(0, length);
        }
        text.remove_prefix(length);
    }
    return json + '"';
}

std::string toJson(std::vector<std::string_view> const& texts)
{
    std::string json = "[";
    for (std::string_view const text : texts)
        json += (json.size() > 1 ? ", " : "") + toJson(text);
    return json + ']';
}

std::string toJson(std::vector<std::string> const& texts)
{
    return toJson(std::vector<std::string_view>(texts.begin(), texts.end()));
}
