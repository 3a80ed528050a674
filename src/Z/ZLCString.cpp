#include "ZLCString.h"

#include <algorithm>
#include <typeinfo>

#include "ZStringIterator.h"
#include "ZUTF8String.h"

ZLCString_6_0::ZLCString_6_0(ZLCConstString_6_0 const& other)
    : ZAbstractMutableString_6_0(other.getChars(), other.getLength())
{
}

ZLCString_6_0::ZLCString_6_0(ZUTF8String_6_0 const& other)
{
    convertFromCodeSet(other);
}

ZLCString_6_0::ZLCString_6_0(ZUTF8ConstString_6_0 const& other)
{
    convertFromCodeSet(other);
}

ZLCString_6_0& ZLCString_6_0::operator=(ZLCConstString_6_0 const& other)
{
    return self(assign(other.getChars(), other.getLength()));
}

ZLCString_6_0& ZLCString_6_0::operator=(ZUTF8String_6_0 const& other)
{
    return self(other.isEmpty() ? clear() : convertFromCodeSet(other));
}

ZLCString_6_0& ZLCString_6_0::operator=(ZUTF8ConstString_6_0 const& other)
{
    return self(other.isEmpty() ? clear() : convertFromCodeSet(other));
}

int ZLCString_6_0::compare(ZObject_6_0 const& other) const
{
    return ZAbstractMutableString_6_0::compare(other);
}

ZLCString_6_0* ZLCString_6_0::clone() const
{
    return new ZLCString_6_0(*this);
}

bool ZLCString_6_0::equals(ZObject_6_0 const& other) const
{
    // Compares strings of exactly this class, such as keys of maps, without a virtual call.
    if (typeid(*this) == typeid(ZLCString_6_0) && typeid(other) == typeid(ZLCString_6_0))
        return *this == static_cast<ZLCString_6_0 const&>(other);
    return ZAbstractMutableString_6_0::equals(other);
}

int ZLCString_6_0::compare(char const* text) const
{
    return ZAbstractMutableString_6_0::compare(text);
}

int ZLCString_6_0::compareignorecase(char const* text) const
{
    return ZAbstractMutableString_6_0::compareignorecase(text);
}

qvr_cs const* ZLCString_6_0::getCodesetHandle() const
{
    return lcs_handle_;
}

ZLCString_6_0& ZLCString_6_0::replaceAll(char const* set, char b)
{
    return self(ZAbstractMutableString_6_0::replaceAll(set, b));
}

ZLCString_6_0& ZLCString_6_0::replaceAll(char const* set, char const* replacement)
{
    ZLCConstString_6_0 const source(set);
    ZLCString_6_0 character;
    ZStringIterator_6_0 characters(source, character);
    return self(replaceAllOf(characters, replacement));
}

ZLCString_6_0& ZLCString_6_0::replaceOther(char const* set, char const* replacement)
{
    ZLCString_6_0 character;
    ZStringIterator_6_0 characters(*this, character);
    return self(replaceNoneOf(characters, set, replacement));
}

ZLCString_6_0& ZLCString_6_0::operator+=(ZLCConstString_6_0 const& other)
{
    return self(appendBytes(other.getChars(), other.getLength()));
}

ZLCString_6_0 ZLCString_6_0::operator+(char const* text) const
{
    ZLCString_6_0 sum(*this);
    sum += text;
    return sum;
}

ZLCString_6_0 ZLCString_6_0::operator+(ZLCString_6_0 const& other) const
{
    ZLCString_6_0 sum(*this);
    sum += other;
    return sum;
}

ZLCString_6_0 ZLCString_6_0::operator+(ZLCConstString_6_0 const& other) const
{
    ZLCString_6_0 sum(*this);
    sum += other;
    return sum;
}

int ZLCString_6_0::compare(ZLCConstString_6_0 const& other) const
{
    return compare(other.getChars());
}

int ZLCString_6_0::compareignorecase(ZLCConstString_6_0 const& other) const
{
    return compareignorecase(other.getChars());
}

bool ZLCString_6_0::operator==(ZLCConstString_6_0 const& other) const
{
    return hasBytes(other.getChars(), other.getLength());
}

ZLCString_6_0 ZLCString_6_0::subString(unsigned int from) const
{
    return subString(from, getLength());
}

ZLCString_6_0 ZLCString_6_0::subString(unsigned int from, unsigned int count) const
{
    unsigned int const start = std::min(from, getLength());
    return ZLCString_6_0(getChars() + start, std::min(count, getLength() - start));
}

// ---- Views -----------------------------------------------------------------------------------

int ZLCConstString_6_0::compare(ZObject_6_0 const& other) const
{
    return ZAbstractConstString_6_0::compare(other);
}

ZLCConstString_6_0* ZLCConstString_6_0::clone() const
{
    return new ZLCConstString_6_0(*this);
}

int ZLCConstString_6_0::compare(char const* text) const
{
    return ZAbstractConstString_6_0::compare(text);
}

int ZLCConstString_6_0::compareignorecase(char const* text) const
{
    return ZAbstractConstString_6_0::compareignorecase(text);
}

qvr_cs const* ZLCConstString_6_0::getCodesetHandle() const
{
    return lcs_handle_;
}
