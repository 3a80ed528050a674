// ZPropertiesIterator: iterates over the keys of a category, or over the values of a key.
//
// Subsystem: properties.  Stands on: ZProperties, ZPropertiesImpl, ZArrayList, ZLCString,
// ZUTF8String, ZException.
//
// Ownership: an iterator borrows its store, which must outlive it.
// Threads: an iterator belongs to the thread that created it and locks its store until it is
// destroyed. Other threads cannot use the store in that time. The creating thread can, and may even
// change the keys and values under iteration.
#pragma once

#include <stdint.h>

#include "ZLCString.h"
#include "ZProperties.h"

class ZAbstractString_6_0;
class ZArrayList_6_0;
struct ZPCachedKey_6_0;

/// The interface of an iterator over the keys of a category. It starts before the first key.
class ZPropertiesIteratorInterface_6_0 {
public:
    // Virtual functions in slot order. The order is binary interface: append only.

    /// Returns 1 if there is a next key, else 0.
    virtual int hasMore() const = 0;

    /// Steps to the next key.
    /// throws  ZPropertiesIteratorException_6_0 if there is no next key; the iterator does not move
    ///         then.
    virtual void nextEntry() = 0;

    /// Returns the current key's name.
    /// owns    borrowed until the iterator is destroyed.
    /// throws  ZPropertiesIteratorException_6_0 before the first step.
    virtual char const* entryName() const = 0;

    /// Returns the value of the current key at `index`, where 0 is the first; null if the key has
    /// no values.
    /// owns    borrowed until the store is changed.
    /// throws  ZPropertiesIteratorException_6_0 before the first step;
    ///         ZInvalidParameterException_6_0 if `index` is negative or at least valueCount().
    /// cost    O(1) for the first value, the last value and the value after the previous result.
    virtual char const* entryValue(int index) const = 0;

    /// Returns the number of keys.
    virtual int keyCount() const = 0;

    /// Returns the number of values of the current key; 0 if it was removed.
    /// throws  ZPropertiesIteratorException_6_0 if there is no current key.
    virtual int valueCount() const = 0;

protected:
    ~ZPropertiesIteratorInterface_6_0() noexcept(false) = default;
};

/// The base class of iterators over keys.
class ZAbstractPropertiesIterator_6_0 : public ZPropertiesIteratorInterface_6_0 {
protected:
    ~ZAbstractPropertiesIterator_6_0() noexcept(false) = default;
};

/// Iterates over the keys that a category had when the iterator was created.
class ZPropertiesIterator_6_0 : public ZAbstractPropertiesIterator_6_0 {
public:
    /// Creates an iterator over the current keys of `category`.
    /// throws  ZInvalidParameterException_6_0 if the category is null or empty.
    ZPropertiesIterator_6_0(ZProperties_6_0& store, char const* category);

    /// Creates an iterator without keys. Use getValues() to select a category.
    explicit ZPropertiesIterator_6_0(ZProperties_6_0& store);
    ZPropertiesIterator_6_0(ZPropertiesIterator_6_0 const&) = delete;
    ZPropertiesIterator_6_0& operator=(ZPropertiesIterator_6_0 const&) = delete;

    // Virtual functions in slot order. The order is binary interface: append only.
    int hasMore() const override;
    void nextEntry() override;
    char const* entryName() const override;
    char const* entryValue(int index) const override;
    int keyCount() const override;
    int valueCount() const override;

    virtual ~ZPropertiesIterator_6_0() noexcept(false);

    /// Selects the values of the key `name` or, in an iterator without a category, of the category
    /// `name`.
    virtual void getValues(char const* name);

private:
    ZPropertiesIterator_6_0(ZProperties_6_0& store, char const* category, bool walks);
    void needEntry() const;
    char const* nameAt(int index) const;
    uint32_t currentPlace() const;

    ZLCString_6_0 category_;  // empty in an iterator without a category
    ZProperties_6_0& store_;
    ZProperties_6_0::Hold hold_;
    ZPCachedKey_6_0* keys_;  // null: no keys, or the cache gives no direct access
    ZArrayList_6_0* names_;  // the names of the keys without direct access; null: no keys
    int count_;              // number of keys
    int position_;           // -1 before the first step
    ZLCString_6_0 other_;    // a name that a caller passed to getValues()
    char const* current_;    // the selected name: the name of a key, or `other_`

    // Valid as long as the cache has these counts of changes and generations.
    mutable unsigned long changes_;
    mutable unsigned long generation_;
    mutable bool placesHold_;       // the slots in `keys_` are valid
    mutable bool isPlaceKnown_;     // `place_` is valid
    mutable uint32_t place_;        // slot of the current key; 0 if it does not exist
    mutable uint32_t valueToCome_;  // slot where the next search of entryValue() starts
    mutable int valuesGiven_;       // number of values before that slot; -1: no such slot
};

/// The kind of values that a ZAbstractPropertyValuesIterator_6_0 iterates over.
enum ZPropIter_valtype : int {
    zPropIterAny = 0,         // the kind that the key has
    zPropIterPlain = 1,       // plain values
    zPropIterObfuscated = 2,  // obfuscated values
};

/// The interface of an iterator over the values of a key. It starts before the first value.
class ZPropertyValuesIteratorInterface_6_0 {
public:
    // Virtual functions in slot order. The order is binary interface: append only.

    /// Returns 1 if there is a next value, else 0.
    virtual int hasMore() const = 0;

    /// Steps to the next value and returns it.
    /// owns    borrowed until the next call.
    /// throws  ZPropertiesIteratorException_6_0 if there is no next value; the iterator does not
    ///         move then.
    /// kept    a value without a UTF-8 form gives an empty UTF-8 string.
    virtual ZAbstractString_6_0 const& nextValue() = 0;

    /// Steps to the next value and stores it in `value`.
    /// owns    borrowed until the next call.
    /// throws  as nextValue().
    virtual void nextValue(char const*& value) = 0;

    /// Replaces the current value.
    /// throws  ZPropertiesIteratorException_6_0 if there is no current value;
    ///         ZInvalidParameterException_6_0 if `value` is null or could not be read back from the
    ///         file, or if it is an empty UTF-8 string and the current value has no UTF-8 form;
    ///         ZFromUTF8Exception_6_0 if it cannot be converted. Nothing is changed then.
    /// kept    an empty value remains in the list until the file is read again: a file does not
    ///         store empty values.
    virtual void changeValue(char const* value) = 0;

    /// Inserts a value after the current value and makes it current.
    /// throws  as changeValue(), but needs no current value; an empty UTF-8 string is invalid if
    ///         any value of the key has no UTF-8 form.
    /// kept    an empty value, as in changeValue(); a key without values still has none afterwards.
    virtual void addValue(char const* value) = 0;

    /// Removes the current value and steps back to the previous value.
    /// throws  ZPropertiesIteratorException_6_0 if there is no current value.
    /// kept    removing the first value of an obfuscated key removes all its values.
    virtual void removeValue() = 0;

    /// Returns the number of values.
    virtual int valueCount() const = 0;

protected:
    ~ZPropertyValuesIteratorInterface_6_0() noexcept(false) = default;
};

/// Iterates over the values of a key, and can change, insert and remove values.
class ZAbstractPropertyValuesIterator_6_0 : public ZPropertyValuesIteratorInterface_6_0 {
public:
    /// Creates an iterator over the values of (category, key); a missing key has no values.
    /// range   `type`: the type of the strings that the iterator accepts and returns.
    /// throws  ZInvalidParameterException_6_0 if a name is null, if `type` or `valtype` is not in
    ///         its enumeration or, unless `valtype` is zPropIterAny, if a name is empty or the key
    ///         has values of the other kind.
    ZAbstractPropertyValuesIterator_6_0(ZProperties_6_0& store, char const* category,
                                        char const* key, ZPropertyStringType type,
                                        ZPropIter_valtype valtype);
    ZAbstractPropertyValuesIterator_6_0(ZAbstractPropertyValuesIterator_6_0 const&) = delete;
    ZAbstractPropertyValuesIterator_6_0& operator=(ZAbstractPropertyValuesIterator_6_0 const&) =
        delete;

    // Virtual functions in slot order. The order is binary interface: append only.
    int hasMore() const override;
    ZAbstractString_6_0 const& nextValue() override;
    void nextValue(char const*& value) override;
    void changeValue(char const* value) override;
    void addValue(char const* value) override;
    void removeValue() override;
    int valueCount() const override;

    virtual ~ZAbstractPropertyValuesIterator_6_0() noexcept(false);

    /// Returns 1 if there is a current value, else 0.
    int isValid() const;

private:
    ZArrayList_6_0* values() const;
    void step();
    void needValue() const;
    void toLocal(char const* value, ZLCString_6_0& out) const;

    mutable ZArrayList_6_0* values_;  // the cache's list; null if the key does not exist
    int position_;                    // -1 before the first step
    ZProperties_6_0& store_;
    ZProperties_6_0::Hold hold_;
    ZLCString_6_0 category_;
    ZLCString_6_0 key_;
    ZPropertyStringType type_;
    ZAbstractString_6_0* current_;  // ZUTF8String_6_0 for UTF-8, else ZLCConstString_6_0
    ZPropIter_valtype valtype_;
    mutable unsigned long generation_;  // the cache's generation when `values_` was fetched
};
