// JavaEntries: the contents of a ZJavaProperties_6_0 as a map of bytes.
#pragma once

#include <Z/ZArrayList.h>
#include <Z/ZJavaProperties.h>
#include <Z/ZUTF8String.h>

#include <map>
#include <string>
#include <string_view>

using Entries = std::map<std::string, std::string>;

inline std::string bytesOf(ZAbstractString_6_0 const& string)
{
    return {string.getChars(), string.getLength()};
}

inline Entries entriesOf(ZJavaProperties_6_0 const& store)
{
    ZArrayList_6_0 keys(4, 1);
    store.listKeys(keys);
    Entries entries;
    for (unsigned i = 0; i < keys.size(); ++i) {
        auto const& key = static_cast<ZAbstractString_6_0 const&>(*keys.get(i));
        ZUTF8String_6_0 value;
        store.getValue(key, value);
        entries[bytesOf(key)] = bytesOf(value);
    }
    return entries;
}

inline void setBytes(ZJavaProperties_6_0& store, std::string const& key, std::string const& value)
{
    store.setValue(ZUTF8String_6_0(key.data(), static_cast<unsigned>(key.size())),
                   ZUTF8String_6_0(value.data(), static_cast<unsigned>(value.size())));
}

inline bool keyArrives(std::string_view key)
{
    for (char const c : key)
        if (static_cast<unsigned char>(c) > 0x7F ||
            std::string_view(" \t\v\f\r\n:=\\").find(c) != std::string_view::npos)
            return false;
    return !key.empty() && key[0] != '#' && key[0] != '!';
}

inline bool valueArrives(std::string_view value)
{
    if (!value.empty() && std::string_view(" \t\v\f").find(value[0]) != std::string_view::npos)
        return false;
    for (size_t i = 0; i < value.size();) {
        auto const byte = [&](size_t at) {
            return at < value.size() ? static_cast<unsigned char>(value[at]) : 0u;
        };
        auto const follows = [&](size_t at) { return (byte(at) & 0xC0) == 0x80; };
        unsigned const lead = byte(i);
        bool const two = lead >= 0xC2 && lead <= 0xDF && follows(i + 1);
        bool const three = lead >= 0xE0 && lead <= 0xEF && follows(i + 1) && follows(i + 2) &&
                           (lead > 0xE0 || byte(i + 1) >= 0xA0);
        if (lead == '\n' || lead == '\r' || (lead >= 0x7F && !two && !three))
            return false;
        i += two ? 2 : three ? 3 : 1;
    }
    return true;
}

// Returns whether these entries can be stored so that the library and the Java platform read them
// back.
inline bool canBeStored(Entries const& entries)
{
    for (auto const& [key, value] : entries)
        if (!keyArrives(key) || !valueArrives(value))
            return false;
    return true;
}
