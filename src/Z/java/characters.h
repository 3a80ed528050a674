// characters: the kinds of characters in a Java property file.
#pragma once

namespace zjava {

inline bool isSpace(char c)
{
    return c == '\t' || c == '\v' || c == '\f' || c == ' ';
}

inline bool isLineEnd(char c)
{
    return c == '\n' || c == '\r';
}

inline bool isSeparator(char c)
{
    return c == ':' || c == '=';
}

inline bool isComment(char c)
{
    return c == '!' || c == '#';
}

}  // namespace zjava
