// ZPropertiesKVList: an ordered list of keys with one value each.
//
// Subsystem: properties.  Stands on: ZObject, ZException, ZArrayList, ZLCString, ZUTF8String,
// ZAbstractString, ZPropertiesInterface.
//
// ZStanzaFileProperties_6_0::getStanza() returns the contents of a stanza in such a list. The
// string type of the constructor, local codeset or UTF-8, is the type of all strings in the list:
// added strings of the other type are converted.
// Ownership: keys and values are copied in; returned strings are borrowed.
// Threads: unsynchronised; callers serialise access to one list.
#pragma once

#include "ZAbstractString.h"
#include "ZArrayList.h"
#include "ZObject.h"
#include "ZPropertiesInterface.h"

/// A key and its value: an element of a ZPropertiesKVList_6_0.
class ZKVEntry_6_0 : public ZObject_6_0 {
public:
    /// Creates an entry with copies of `key` and `value`.
    /// range   `type` is the type of the copies: UTF-8, or for any other number the local codeset.
    /// owns    `key` and `value` are copied, and converted if they are of the other type.
    ZKVEntry_6_0(ZAbstractString_6_0 const& key, ZAbstractString_6_0 const& value,
                 ZPropertyStringType type);
    ZKVEntry_6_0(ZKVEntry_6_0 const& other);
    ZKVEntry_6_0& operator=(ZKVEntry_6_0 const& other);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZKVEntry_6_0() override;

    /// Compares the bytes of the keys, then of the values. Compares the addresses if `other` is not
    /// a ZKVEntry_6_0.
    int compare(ZObject_6_0 const& other) const override;
    ZObject_6_0* clone() const override;

    ZAbstractString_6_0 const& key() const { return *key_; }
    ZAbstractString_6_0 const& value() const { return *value_; }

private:
    ZAbstractString_6_0* key_;    // never null
    ZAbstractString_6_0* value_;  // never null
};

/// An ordered list of keys with one value each. A key may occur more than once.
class ZPropertiesKVList_6_0 : public ZObject_6_0 {
public:
    /// Creates an empty list.
    /// range   `type` 0: strings of the local codeset; 8: UTF-8.
    /// throws  ZInvalidParameterException_6_0 for any other type.
    explicit ZPropertiesKVList_6_0(ZPropertyStringType type);
    ZPropertiesKVList_6_0(ZPropertiesKVList_6_0 const& other);

    /// Replaces the items by copies of the other list's items, and takes over its string type.
    ZPropertiesKVList_6_0& operator=(ZPropertiesKVList_6_0 const& other);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZPropertiesKVList_6_0() override;
    ZObject_6_0* clone() const override;

    /// Appends an item, even if the list already contains the key.
    /// owns    both strings are copied, and converted if they are of the other type.
    virtual void addItem(ZAbstractString_6_0 const& key, ZAbstractString_6_0 const& value);

    /// Returns the number of items.
    virtual int getItemCount() const;

    /// Returns the key of the item at `index`, where 0 is the first; null outside the list.
    /// owns    borrowed until the list is cleared, assigned or destroyed. A ZUTF8String_6_0 in a
    ///         UTF-8 list, else a ZLCString_6_0.
    virtual ZAbstractString_6_0 const* getItemKey(int index) const;

    /// Returns the value of the item at `index`; the same rules as for getItemKey() apply.
    virtual ZAbstractString_6_0 const* getItemValue(int index) const;

    /// Removes all items.
    virtual void clear();

    ZPropertyStringType stringType() const { return type_; }

private:
    ZPropertyStringType type_;
    ZArrayList_6_0 items_;  // ZKVEntry_6_0, owned
};
