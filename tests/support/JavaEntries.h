// JavaEntries: what a ZJavaProperties_6_0 holds, as a map of bytes.
#pragma once

#include <Z/ZArrayList.h>
#include <Z/ZJavaProperties.h>
#include <Z/ZUTF8String.h>

#include <map>
#include <string>

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
