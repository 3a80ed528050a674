#include "validation.h"

#include <string.h>

#include "limits.h"
#include "whitespace.h"

namespace zstanza {

namespace {

bool isNullOrEmpty(char const* text)
{
    return text == nullptr || *text == '\0';
}

}  // namespace

bool isValidCategory(char const* category)
{
    // Its line is "[category]".
    return !isNullOrEmpty(category) && strpbrk(category, "]\n") == nullptr &&
           strlen(category) + 2 <= kMaxLineLength;
}

bool isValidKey(char const* key)
{
    if (isNullOrEmpty(key))
        return false;
    // The shortest line of a key is "key =".
    size_t const length = strlen(key);
    return strpbrk(key, "=\n") == nullptr && *key != '#' && *key != '[' && !isSpace(*key) &&
           !isSpace(key[length - 1]) && length + 2 <= kMaxLineLength;
}

bool isValidValue(char const* key, char const* value)
{
    // Its line is "key = value".
    size_t const before = key == nullptr ? 0 : strlen(key) + 3;
    return value == nullptr ||
           (strchr(value, '\n') == nullptr && before + strlen(value) <= kMaxLineLength);
}

}  // namespace zstanza
