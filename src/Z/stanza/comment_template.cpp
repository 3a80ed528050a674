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

// Advances `text` past one of `characters`. Returns false if it has another.
bool skipOne(char const*& text, std::string_view characters)
{
    while (*text == ' ')
        ++text;
    return *text != '\0' && characters.find(*text++) != characters.npos;
}

}  // namespace

size_t extractTemplateKey(std::string_view comment, CommentForm const& form, char* key,
                          size_t capacity)
{
    char const* at = comment.data();
    char const* const end = at + comment.size();
    while (at != end && *at == ' ')
        ++at;
    if (at == end || !form.isMark(*at))
        return 0;
    size_t length = 0;
    for (++at; at != end; ++at) {
        if (form.isSeparator(*at))
            return length;
        if (*at == ' ')
            continue;
        if (length == capacity)
            return 0;
        key[length++] = *at;
    }
    return 0;
}

bool isTemplateFor(std::string_view key, CommentForm const& form, char const* comment)
{
    return skipOne(comment, form.marks) && skipPattern(comment, key) &&
           skipOne(comment, form.separators);
}

bool startsWithPattern(std::string_view pattern, char const* text)
{
    return skipPattern(text, pattern);
}

}  // namespace zstanza
