#include "json.h"

#include <Z/stanza/columns.h>
#include <stdio.h>

std::string toJson(std::string_view text)
{
    std::string json = "\"";
    while (!text.empty()) {
        size_t const length = zstanza::characterLength(text);
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

std::string toJson(std::vector<std::string> const& texts)
{
    std::string json = "[";
    for (std::string const& text : texts)
        json += (json.size() > 1 ? ", " : "") + toJson(text);
    return json + ']';
}
