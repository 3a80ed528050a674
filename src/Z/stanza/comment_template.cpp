#include "comment_template.h"

namespace zstanza {

namespace {

// Advances `text`, which is zero-terminated, past `pattern`. Returns false if the text differs.
bool skipPattern(char const*& text, std::string_view pattern)
{
    for (size_t i = 0; i < pattern.size(); ++i, ++text) {
        while (*text == ' ')
            ++text;
        if (*text != pattern[i])
            return false;
    }
    return true;
}

}  // namespace

size_t extractTemplateKey(std::string_view comment, char* key)
{
    char const* at = comment.data();
    char const* const end = at + comment.size();
    while (at != end && *at == ' ')
        ++at;
    if (at == end || *at != '#')
        return 0;
    size_t length = 0;
    for (++at; at != end; ++at) {
        if (*at == '=')
            return length;
        if (*at != ' ')
            key[length++] = *at;
    }
    return 0;
}

bool isTemplateFor(std::string_view key, char const* comment)
{
    return skipPattern(comment, "#") && skipPattern(comment, key) && skipPattern(comment, "=");
}

bool startsWithPattern(std::string_view pattern, char const* text)
{
    return skipPattern(text, pattern);
}

}  // namespace zstanza
