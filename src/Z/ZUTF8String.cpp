#include "ZUTF8String.h"

#include <algorithm>
#include <typeinfo>

#include "ZException.h"
#include "ZLCString.h"
#include "ZStringIterator.h"
#include "text/ascii.h"
#include "zqvrutil.h"

namespace {

constexpr char kSource[] = "src/Z/ZUTF8String";

// Stable ids in reports; log scanners match them. See docs/failures.md.
enum RaiseSite { raiseInReplace = 299 };

bool isAscii(char c)
{
    return static_cast<unsigned char>(c) < 0x80;
}

}  // namespace

ZUTF8String_6_0::ZUTF8String_6_0(ZUTF8ConstString_6_0 const& other)
    : ZAbstractMutableString_6_0(other.getChars(), other.getLength())
{
}

ZUTF8String_6_0::ZUTF8String_6_0(ZLCString_6_0 const& other)
{
    convertFromCodeSet(other);
}

ZUTF8String_6_0::ZUTF8String_6_0(ZLCConstString_6_0 const& other)
{
    convertFromCodeSet(other);
}

ZUTF8String_6_0& ZUTF8String_6_0::operator=(ZUTF8ConstString_6_0 const& other)
{
    return self(assign(other.getChars(), other.getLength()));
}

ZUTF8String_6_0& ZUTF8String_6_0::operator=(ZLCString_6_0 const& other)
{
    return self(other.isEmpty() ? clear() : convertFromCodeSet(other));
}

ZUTF8String_6_0& ZUTF8String_6_0::operator=(ZLCConstString_6_0 const& other)
{
    return self(other.isEmpty() ? clear() : convertFromCodeSet(other));
}

int ZUTF8String_6_0::compare(ZObject_6_0 const& other) const
{
    return ZAbstractMutableString_6_0::compare(other);
}

ZUTF8String_6_0* ZUTF8String_6_0::clone() const
{
    return new ZUTF8String_6_0(*this);
}

bool ZUTF8String_6_0::equals(ZObject_6_0 const& other) const
{
    // Compares strings of exactly this class, such as keys of maps, without a virtual call.
    if (typeid(*this) == typeid(ZUTF8String_6_0) && typeid(other) == typeid(ZUTF8String_6_0))
        return *this == static_cast<ZUTF8String_6_0 const&>(other);
    return ZAbstractMutableString_6_0::equals(other);
}

int ZUTF8String_6_0::compare(char const* text) const
{
    return ZAbstractMutableString_6_0::compare(text);
}

int ZUTF8String_6_0::compareignorecase(char const* text) const
{
    return ZAbstractMutableString_6_0::compareignorecase(text);
}

qvr_cs const* ZUTF8String_6_0::getCodesetHandle() const
{
    return utf8_handle_;
}

ZUTF8String_6_0& ZUTF8String_6_0::replaceAll(char const* set, char b)
{
    return self(ZAbstractMutableString_6_0::replaceAll(set, b));
}

ZUTF8String_6_0& ZUTF8String_6_0::replace(char a, char b)
{
    if (!isAscii(a))
        ZInvalidParameterException_6_0().throwException(kSource, raiseInReplace);
    if (a == 0)
        return *this;
    // KEPT: `b` 0 is written into the text and the length is unchanged. A caller that splits a text
    // in place would lose the parts after the first otherwise.
    // Test: ZUTF8String.KeepsLengthWhenReplacingByZero
    for (char* found = strchr(buffer(), a); found != nullptr; found = strchr(found + 1, a))
        *found = b;
    return *this;
}

ZUTF8String_6_0& ZUTF8String_6_0::replace(char const* text, char const* by)
{
    return self(ZAbstractMutableString_6_0::replace(text, by));
}

ZUTF8String_6_0& ZUTF8String_6_0::replaceAll(char const* set, char const* replacement)
{
    ZUTF8ConstString_6_0 const source(set);
    ZUTF8String_6_0 character;
    ZStringIterator_6_0 characters(source, character);
    return self(replaceAllOf(characters, replacement));
}

ZUTF8String_6_0& ZUTF8String_6_0::replaceOther(char const* set, char const* replacement)
{
    ZUTF8String_6_0 character;
    ZStringIterator_6_0 characters(*this, character);
    return self(replaceNoneOf(characters, set, replacement));
}

ZUTF8String_6_0& ZUTF8String_6_0::operator+=(ZUTF8ConstString_6_0 const& other)
{
    return self(appendBytes(other.getChars(), other.getLength()));
}

ZUTF8String_6_0 ZUTF8String_6_0::operator+(char const* text) const
{
    ZUTF8String_6_0 sum(*this);
    sum += text;
    return sum;
}

ZUTF8String_6_0 ZUTF8String_6_0::operator+(ZUTF8String_6_0 const& other) const
{
    ZUTF8String_6_0 sum(*this);
    sum += other;
    return sum;
}

ZUTF8String_6_0 ZUTF8String_6_0::operator+(ZUTF8ConstString_6_0 const& other) const
{
    ZUTF8String_6_0 sum(*this);
    sum += other;
    return sum;
}

int ZUTF8String_6_0::compare(ZUTF8ConstString_6_0 const& other) const
{
    return compare(other.getChars());
}

int ZUTF8String_6_0::compareignorecase(ZUTF8ConstString_6_0 const& other) const
{
    return compareignorecase(other.getChars());
}

bool ZUTF8String_6_0::operator==(ZUTF8ConstString_6_0 const& other) const
{
    return hasBytes(other.getChars(), other.getLength());
}

ZUTF8String_6_0 ZUTF8String_6_0::subString(unsigned int from) const
{
    return subString(from, getLength());
}

ZUTF8String_6_0 ZUTF8String_6_0::subString(unsigned int from, unsigned int count) const
{
    unsigned int const start = std::min(from, getLength());
    return ZUTF8String_6_0(getChars() + start, std::min(count, getLength() - start));
}

ZUTF8String_6_0& ZUTF8String_6_0::lower()
{
    char* const rest =
        buffer() + ztext::lowerAscii(buffer(), ZAbstractMutableString_6_0::getLength());
    if (*rest != 0)
        zstrlower_6_0(getCodesetHandle(), rest);
    return *this;
}

ZUTF8String_6_0& ZUTF8String_6_0::upper()
{
    char* const rest =
        buffer() + ztext::upperAscii(buffer(), ZAbstractMutableString_6_0::getLength());
    if (*rest != 0)
        zstrupper_6_0(getCodesetHandle(), rest);
    return *this;
}

// ---- Views -----------------------------------------------------------------------------------

int ZUTF8ConstString_6_0::compare(ZObject_6_0 const& other) const
{
    return ZAbstractConstString_6_0::compare(other);
}

ZUTF8ConstString_6_0* ZUTF8ConstString_6_0::clone() const
{
    return new ZUTF8ConstString_6_0(*this);
}

int ZUTF8ConstString_6_0::compare(char const* text) const
{
    return ZAbstractConstString_6_0::compare(text);
}

int ZUTF8ConstString_6_0::compareignorecase(char const* text) const
{
    return ZAbstractConstString_6_0::compareignorecase(text);
}

qvr_cs const* ZUTF8ConstString_6_0::getCodesetHandle() const
{
    return utf8_handle_;
}
