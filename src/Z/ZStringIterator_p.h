// ZStringIterator_p: the characters of a string that need no measuring. Not installed.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <atomic>
#include <typeinfo>

#include "ZLCString.h"
#include "ZUTF8String.h"

namespace zcharacters {

constexpr int kUtf8 = 0;      // width of a character: measured, in UTF-8
constexpr int kEachByte = 1;  // every byte is a character; otherwise measured, in the local codeset

constexpr unsigned kAscii = 0x7F;
constexpr unsigned kAllBytes = 0xFF;

enum class LocalCodeset : int { unknown, other, asciiIsWhole, utf8 };

extern constinit std::atomic<LocalCodeset> localCodeset_;
LocalCodeset findLocalCodeset();

/// Returns the kind of the local codeset: UTF-8, or whether every ASCII byte at the start of a
/// character is a whole one.
/// threads any.
inline LocalCodeset localCodeset()
{
    LocalCodeset const known = localCodeset_.load(std::memory_order_relaxed);
    return known == LocalCodeset::unknown ? findLocalCodeset() : known;
}

// Returns whether `source` has exactly the class `String` of this library. A derived class may
// override the functions that return its contents and their length.
template <class String>
bool isExactly(ZAbstractString_6_0 const& source)
{
    return &typeid(source) == &typeid(String);
}

// Returns whether `at` is a byte of `source`, whose class overrides no function of `Base`.
template <class Base>
bool isInside(ZAbstractString_6_0 const& source, char const* at)
{
    auto const& string = static_cast<Base const&>(source);
    return reinterpret_cast<uintptr_t>(at) - reinterpret_cast<uintptr_t>(string.Base::getChars()) <
           string.Base::getLength();
}

// Returns the highest byte that, like all below it but 0, is a whole character at `at` and after it
// in `source`. 0: every character must be measured.
inline unsigned highestWhole(ZAbstractString_6_0 const& source, int charWidth, char const* at)
{
    if (charWidth == kEachByte)
        return kAllBytes;
    bool inside;
    if (charWidth == kUtf8) {
        if (isExactly<ZUTF8String_6_0>(source))
            inside = isInside<ZAbstractMutableString_6_0>(source, at);
        else
            inside = isExactly<ZUTF8ConstString_6_0>(source) &&
                     isInside<ZAbstractConstString_6_0>(source, at);
        return inside ? kAscii : 0;
    }
    if (isExactly<ZLCString_6_0>(source))
        inside = isInside<ZAbstractMutableString_6_0>(source, at);
    else
        inside =
            isExactly<ZLCConstString_6_0>(source) && isInside<ZAbstractConstString_6_0>(source, at);
    return inside && localCodeset() != LocalCodeset::other ? kAscii : 0;
}

// Returns whether `byte` is not the terminator and not above `highest`.
inline bool isWhole(char byte, unsigned highest)
{
    return static_cast<unsigned char>(byte) - 1u < highest;
}

}  // namespace zcharacters
