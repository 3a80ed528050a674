// LocalText: properties of the locale in which a text test runs.
#pragma once

#include <Z/ZLCString.h>
#include <langinfo.h>

#include <cstdlib>
#include <string>

// Returns the name of the local codeset. The first string sets the locale.
inline std::string localCodeset()
{
    ZLCString_6_0 const first;
    return nl_langinfo(CODESET);
}

// Returns whether every byte of a local text is a character.
inline bool isSingleByteLocale()
{
    ZLCString_6_0 const first;
    return MB_CUR_MAX == 1;
}

// A character outside ASCII in the local codeset and in UTF-8, and an invalid prefix of it. Empty
// if the locale has none.
struct LocalCharacter {
    std::string local;
    std::string utf8;
    std::string cut;
};

inline LocalCharacter localCharacter()
{
    std::string const codeset = localCodeset();
    if (codeset == "UTF-8")
        return {"\xE3\x81\x82", "\xE3\x81\x82", "\xE3\x81"};
    if (codeset == "EUC-JP")
        return {"\xA4\xA2", "\xE3\x81\x82", "\xA4"};
    if (codeset == "ISO-8859-1")
        return {"\xE9", "\xC3\xA9", ""};
    return {"", "", ""};
}
