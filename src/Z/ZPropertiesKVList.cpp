#include "ZPropertiesKVList.h"

#include <string.h>

#include <utility>

#include "ZException.h"
#include "ZLCString.h"
#include "ZUTF8String.h"

namespace {

constexpr char kSource[] = "src/Z/ZPropertiesKVList";

// Stable ids in reports; log scanners match them. See docs/failures.md.
enum RaiseSite { raiseInMake = 41 };

// Returns a copy of `text` as a string of type `type`.
ZAbstractString_6_0* copyAs(ZPropertyStringType type, ZAbstractString_6_0 const& text)
{
    if (type == zPropUTF8Strings) {
        ZUTF8String_6_0 const sample;
        if (text.getCodesetHandle() == sample.getCodesetHandle())
            return new ZUTF8String_6_0(text.getChars(), text.getLength());
        return new ZUTF8String_6_0(ZLCConstString_6_0(text.getChars()));
    }
    ZLCString_6_0 const sample;
    if (text.getCodesetHandle() == sample.getCodesetHandle())
        return new ZLCString_6_0(text.getChars(), text.getLength());
    return new ZLCString_6_0(ZUTF8ConstString_6_0(text.getChars()));
}

}  // namespace

ZKVEntry_6_0::ZKVEntry_6_0(ZAbstractString_6_0 const& key, ZAbstractString_6_0 const& value,
                           ZPropertyStringType type)
    : key_(copyAs(type, key)), value_(nullptr)
{
    try {
        value_ = copyAs(type, value);
    } catch (ZOutOfMemoryException_6_0 const&) {
        delete key_;
        throw;
    }
}

ZKVEntry_6_0::ZKVEntry_6_0(ZKVEntry_6_0 const& other) : ZObject_6_0(other)
{
    key_ = static_cast<ZAbstractString_6_0*>(other.key_->clone());
    try {
        value_ = static_cast<ZAbstractString_6_0*>(other.value_->clone());
    } catch (ZOutOfMemoryException_6_0 const&) {
        delete key_;
        throw;
    }
}

ZKVEntry_6_0& ZKVEntry_6_0::operator=(ZKVEntry_6_0 const& other)
{
    ZKVEntry_6_0 copy(other);
    std::swap(key_, copy.key_);
    std::swap(value_, copy.value_);
    return *this;
}

ZKVEntry_6_0::~ZKVEntry_6_0()
{
    delete key_;
    delete value_;
}

int ZKVEntry_6_0::compare(ZObject_6_0 const& object) const
{
    auto const* const other = dynamic_cast<ZKVEntry_6_0 const*>(&object);
    if (other == nullptr)
        return ZObject_6_0::compare(object);
    int const byKey = strcmp(key_->getChars(), other->key_->getChars());
    int const order = byKey != 0 ? byKey : strcmp(value_->getChars(), other->value_->getChars());
    return order < 0 ? -1 : order > 0 ? 1 : 0;
}

ZObject_6_0* ZKVEntry_6_0::clone() const
{
    return new ZKVEntry_6_0(*this);
}

ZPropertiesKVList_6_0::ZPropertiesKVList_6_0(ZPropertyStringType type) : type_(type), items_(10, 1)
{
    if (type != zPropLocalStrings && type != zPropUTF8Strings)
        ZInvalidParameterException_6_0().throwException(kSource, raiseInMake);
}

ZPropertiesKVList_6_0::ZPropertiesKVList_6_0(ZPropertiesKVList_6_0 const& other) = default;

ZPropertiesKVList_6_0& ZPropertiesKVList_6_0::operator=(ZPropertiesKVList_6_0 const& other)
{
    // Appends the new items before it removes the old ones: if appending throws, no item is lost.
    if (this == &other)
        return *this;
    unsigned const before = items_.size();
    items_.addList(other.items_);
    unsigned const count = items_.size() - before;
    for (unsigned i = 0; before != 0 && i < count; ++i)
        items_.swap(i, before + i);
    while (items_.size() > count)
        items_.remove(items_.size() - 1);
    type_ = other.type_;
    return *this;
}

ZPropertiesKVList_6_0::~ZPropertiesKVList_6_0() = default;

ZObject_6_0* ZPropertiesKVList_6_0::clone() const
{
    return new ZPropertiesKVList_6_0(*this);
}

void ZPropertiesKVList_6_0::addItem(ZAbstractString_6_0 const& key,
                                    ZAbstractString_6_0 const& value)
{
    auto* const entry = new ZKVEntry_6_0(key, value, type_);
    try {
        items_.addNoCopy(entry);
    } catch (ZOutOfMemoryException_6_0 const&) {
        delete entry;
        throw;
    }
}

int ZPropertiesKVList_6_0::getItemCount() const
{
    return static_cast<int>(items_.size());
}

ZAbstractString_6_0 const* ZPropertiesKVList_6_0::getItemKey(int index) const
{
    auto const* const entry =
        index < 0 ? nullptr
                  : static_cast<ZKVEntry_6_0 const*>(items_.get(static_cast<unsigned>(index)));
    return entry == nullptr ? nullptr : &entry->key();
}

ZAbstractString_6_0 const* ZPropertiesKVList_6_0::getItemValue(int index) const
{
    auto const* const entry =
        index < 0 ? nullptr
                  : static_cast<ZKVEntry_6_0 const*>(items_.get(static_cast<unsigned>(index)));
    return entry == nullptr ? nullptr : &entry->value();
}

void ZPropertiesKVList_6_0::clear()
{
    items_.removeAll();
}
