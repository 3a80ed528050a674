// The objects in which a cache gives callers its lines, its obfuscated items and its key lists.

#include <string.h>

#include "ZArrayList.h"
#include "ZException.h"
#include "ZPropertiesImpl.h"

namespace {

int sign(int number)
{
    return number < 0 ? -1 : number > 0 ? 1 : 0;
}

int compareBytes(ZLCString_6_0 const& a, ZLCString_6_0 const& other)
{
    return sign(strcmp(a.getChars(), other.getChars()));
}

}  // namespace

// --- ZPropLine_6_0

ZPropLine_6_0::ZPropLine_6_0(unsigned type, char const* text) : type_(type), text_(text)
{
}

ZPropLine_6_0::ZPropLine_6_0(ZPropLine_6_0 const& other) = default;

ZPropLine_6_0& ZPropLine_6_0::operator=(ZPropLine_6_0 const& other)
{
    text_ = other.text_;
    type_ = other.type_;
    return *this;
}

ZPropLine_6_0::~ZPropLine_6_0() = default;

int ZPropLine_6_0::compare(ZObject_6_0 const& object) const
{
    auto const* const other = dynamic_cast<ZPropLine_6_0 const*>(&object);
    if (other == nullptr)
        return ZObject_6_0::compare(object);
    if (type_ != other->type_)
        return type_ < other->type_ ? -1 : 1;
    return compareBytes(text_, other->text_);
}

ZObject_6_0* ZPropLine_6_0::clone() const
{
    return new ZPropLine_6_0(*this);
}

// --- ZObfuscatedItem_6_0

ZObfuscatedItem_6_0::ZObfuscatedItem_6_0(char const* category, char const* key)
    : category_(category), key_(key)
{
}

ZObfuscatedItem_6_0::ZObfuscatedItem_6_0(ZObfuscatedItem_6_0 const& other) = default;

ZObfuscatedItem_6_0& ZObfuscatedItem_6_0::operator=(ZObfuscatedItem_6_0 const& other)
{
    // The second assignment may throw after the first.
    ZLCString_6_0 const before(category_);
    category_ = other.category_;
    try {
        key_ = other.key_;
    } catch (ZOutOfMemoryException_6_0 const&) {
        category_ = before;  // does not throw: the capacity suffices
        throw;
    }
    return *this;
}

ZObfuscatedItem_6_0::~ZObfuscatedItem_6_0() = default;

int ZObfuscatedItem_6_0::compare(ZObject_6_0 const& object) const
{
    auto const* const other = dynamic_cast<ZObfuscatedItem_6_0 const*>(&object);
    if (other == nullptr)
        return ZObject_6_0::compare(object);
    int const byCategory = compareBytes(category_, other->category_);
    return byCategory != 0 ? byCategory : compareBytes(key_, other->key_);
}

ZObject_6_0* ZObfuscatedItem_6_0::clone() const
{
    return new ZObfuscatedItem_6_0(*this);
}

bool ZObfuscatedItem_6_0::equals(ZObject_6_0 const& other) const
{
    return compare(other) == 0;
}

// --- ZPKVList_6_0

ZPKVList_6_0::ZPKVList_6_0() : ZHashKeyMap_6_0(10, 1)
{
}

ZPKVList_6_0::ZPKVList_6_0(ZPKVList_6_0 const& other) = default;

ZPKVList_6_0& ZPKVList_6_0::operator=(ZPKVList_6_0 const& other) = default;

ZPKVList_6_0::~ZPKVList_6_0() = default;

ZObject_6_0* ZPKVList_6_0::clone() const
{
    return new ZPKVList_6_0(*this);
}

void ZPKVList_6_0::putEntry(ZObject_6_0 const* key, ZObject_6_0 const* value)
{
    ZHashKeyMap_6_0::putEntry(key, value);
}

void ZPKVList_6_0::removeEntry(ZObject_6_0 const* key)
{
    ZHashKeyMap_6_0::removeEntry(key);
}

void ZPKVList_6_0::removeAll()
{
    ZHashKeyMap_6_0::removeAll();
}

void ZPKVList_6_0::listKeys(ZList_6_0& target) const
{
    ZHashKeyMap_6_0::listKeys(target);
}

ZArrayList_6_0* ZPKVList_6_0::getKeys() const
{
    auto* const keys = new ZArrayList_6_0(10, 1);
    try {
        listKeys(*keys);
    } catch (ZOutOfMemoryException_6_0 const&) {
        delete keys;
        throw;
    }
    return keys;
}

ZArrayList_6_0* ZPKVList_6_0::makeEntry()
{
    ZArrayList_6_0 const none(1, 1);
    auto* const entry = new ZArrayList_6_0(2, 1);
    try {
        entry->add(&none);
        entry->add(&none);
    } catch (ZOutOfMemoryException_6_0 const&) {
        delete entry;
        throw;
    }
    return entry;
}
