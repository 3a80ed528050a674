// ZPropertiesKVList: an ordered list of keys with one value each.
//
// Subsystem: properties.  Stands on: ZObject, ZException, ZArrayList, ZLCString, ZUTF8String,
// ZAbstractString, ZPropertiesInterface.
//
// It receives what a stanza holds. The string type given at construction fixes the kind of strings
// it hands out: local codeset or UTF-8; what is added in the other kind is converted.
// Ownership: keys and values are copied in; what is handed out is borrowed.
// Threads: unsynchronised; callers serialise access to one list.
#pragma once

#include "ZAbstractString.h"
#include "ZArrayList.h"
#include "ZObject.h"
#include "ZPropertiesInterface.h"

// A key with its value.
class ZKVEntry_6_0 : public ZObject_6_0 {
public:
    /// Makes an entry of copies.
    /// range   `type` is the kind of the copies; others than UTF-8 count as local codeset.
    /// owns    `key` and `value` are copied, and converted when they are of the other kind.
    ZKVEntry_6_0(ZAbstractString_6_0 const& key, ZAbstractString_6_0 const& value,
                 ZPropertyStringType type);
    ZKVEntry_6_0(ZKVEntry_6_0 const& other);
    ZKVEntry_6_0& operator=(ZKVEntry_6_0 const& other);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZKVEntry_6_0() override;

    /// Orders by the bytes of the key, then of the value; with anything that is no entry by
    /// address.
    int compare(ZObject_6_0 const& other) const override;
    ZObject_6_0* clone() const override;

    ZAbstractString_6_0 const& key() const { return *key_; }
    ZAbstractString_6_0 const& value() const { return *value_; }

private:
    ZAbstractString_6_0* key_;    // never null
    ZAbstractString_6_0* value_;  // never null
};

class ZPropertiesKVList_6_0 : public ZObject_6_0 {
public:
    /// Makes an empty list.
    /// range   `type` 0: strings of the local codeset; 8: UTF-8.
    /// throws  ZInvalidParameterException_6_0 for any other type.
    explicit ZPropertiesKVList_6_0(ZPropertyStringType type);
    ZPropertiesKVList_6_0(ZPropertiesKVList_6_0 const& other);

    /// Makes this list hold copies of the other's items, and its string type.
    ZPropertiesKVList_6_0& operator=(ZPropertiesKVList_6_0 const& other);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZPropertiesKVList_6_0() override;
    ZObject_6_0* clone() const override;

    /// Appends an item; a key may stand in the list several times.
    /// owns    both strings are copied, and converted when they are of the other kind.
    virtual void addItem(ZAbstractString_6_0 const& key, ZAbstractString_6_0 const& value);

    /// Returns the number of items.
    virtual int getItemCount() const;

    /// Returns the key of the item at `index`; 0 is the first. Null outside the list.
    /// owns    borrowed until the list is cleared, assigned or destroyed. A ZUTF8String_6_0 in a
    ///         UTF-8 list, else a ZLCString_6_0.
    virtual ZAbstractString_6_0 const* getItemKey(int index) const;

    /// Returns the value of the item at `index`, as `getItemKey` returns its key.
    virtual ZAbstractString_6_0 const* getItemValue(int index) const;

    /// Removes all items.
    virtual void clear();

    ZPropertyStringType stringType() const { return type_; }

private:
    ZPropertyStringType type_;
    ZArrayList_6_0 items_;  // ZKVEntry_6_0, owned
};
