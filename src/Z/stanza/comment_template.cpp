#include "comment_template.h"

namespace zstanza {

namespace {

// Steps `text`, which is terminated, over `pattern`, skipping blanks before each character. Returns
// false when something else stands there.
bool stepOver(char const*& text, std::string_view pattern)
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

size_t takeTemplateKey(std::string_view comment, char* key)
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
    return stepOver(comment, "#") && stepOver(comment, key) && stepOver(comment, "=");
}

bool beginsWithPattern(std::string_view pattern, char const* text)
{
    return stepOver(text, pattern);
}

}  // namespace zstanza
