// ZPropertiesIterator: walks the keys of a category, or the values of a key.
//
// Subsystem: properties.  Stands on: ZProperties, ZPropertiesImpl, ZArrayList, ZLCString,
// ZUTF8String, ZException.
//
// Ownership: an iterator borrows its store, which must outlive it.
// Threads: an iterator locks its store for as long as it lives: no other thread can use the store
// meanwhile, its own thread can, even to change what is iterated. It belongs to the thread that
// made it.
#pragma once

#include <stdint.h>

#include "ZLCString.h"
#include "ZProperties.h"

class ZAbstractString_6_0;
class ZArrayList_6_0;
struct ZPCachedKey_6_0;

// Walks the keys of a category.
class ZPropertiesIteratorInterface_6_0 {
public:
    // Virtual functions in slot order. The order is binary interface: append only.

    /// Returns 1 when there is a further key, else 0.
    virtual int hasMore() const = 0;

    /// Steps to the next key.
    /// throws  ZPropertiesIteratorException_6_0 when there is none; the iterator stays where it is.
    virtual void nextEntry() = 0;

    /// Returns the current key's name.
    /// owns    borrowed until the iterator is destroyed.
    /// throws  ZPropertiesIteratorException_6_0 before the first step.
    virtual char const* entryName() const = 0;

    /// Returns the value at `index` of the current key; 0 is the first. Null when it has no values.
    /// owns    borrowed until the store is changed.
    /// throws  ZPropertiesIteratorException_6_0 before the first step;
    ///         ZInvalidParameterException_6_0 when `index` is at or beyond the number of values.
    /// cost    O(1) for the first value, the last one and the one behind that of the last call.
    virtual char const* entryValue(int index) const = 0;

    /// Returns the number of keys.
    virtual int keyCount() const = 0;

    /// Returns the number of values of the current key; 0 when it was removed.
    /// throws  ZPropertiesIteratorException_6_0 before anything was made current.
    virtual int valueCount() const = 0;

protected:
    ~ZPropertiesIteratorInterface_6_0() noexcept(false) = default;
};

class ZAbstractPropertiesIterator_6_0 : public ZPropertiesIteratorInterface_6_0 {
protected:
    ~ZAbstractPropertiesIterator_6_0() noexcept(false) = default;
};

class ZPropertiesIterator_6_0 : public ZAbstractPropertiesIterator_6_0 {
public:
    /// Makes an iterator over the keys that `category` has now.
    /// throws  ZInvalidParameterException_6_0 when the category is null or empty.
    ZPropertiesIterator_6_0(ZProperties_6_0& store, char const* category);

    /// Makes an iterator that walks nothing: it has no keys.
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

    /// Makes the values of `name` current: of the key of that name or, in an iterator without a
    /// category, of the category of that name.
    virtual void getValues(char const* name);

private:
    ZPropertiesIterator_6_0(ZProperties_6_0& store, char const* category, bool walks);
    void needEntry() const;
    char const* nameAt(int index) const;
    uint32_t currentPlace() const;

    ZLCString_6_0 category_;  // empty when none was given
    ZProperties_6_0& store_;
    ZProperties_6_0::Hold hold_;
    ZPCachedKey_6_0* keys_;  // the keys; null: none, or the cache does not tell places
    ZArrayList_6_0* names_;  // then their names; null: none
    int count_;              // of the keys
    int position_;           // -1 before the first step
    ZLCString_6_0 other_;    // a name that came from outside
    char const* current_;    // what getValues() was called for: a key's name, or `other_`

    // What holds as long as the cache is at these changes and this generation.
    mutable unsigned long changes_;
    mutable unsigned long generation_;
    mutable bool placesHold_;       // those in `keys_`
    mutable bool isPlaceKnown_;     // of the current key
    mutable uint32_t place_;        // it; 0 when the key is missing
    mutable uint32_t valueToCome_;  // where entryValue() found its last value, to go on from
    mutable int valuesGiven_;       // -1: nowhere yet
};

// Which values of a key a ZAbstractPropertyValuesIterator_6_0 walks.
enum ZPropIter_valtype : int {
    zPropIterAny = 0,         // those that the key holds
    zPropIterPlain = 1,       // plain values
    zPropIterObfuscated = 2,  // obfuscated values
};

// Walks the values of a key.
class ZPropertyValuesIteratorInterface_6_0 {
public:
    // Virtual functions in slot order. The order is binary interface: append only.

    /// Returns 1 when there is a further value, else 0.
    virtual int hasMore() const = 0;

    /// Steps to the next value and returns it.
    /// owns    borrowed until the next call.
    /// throws  ZPropertiesIteratorException_6_0 when there is none; the iterator stays where it is.
    /// kept    a value without a UTF-8 form gives an empty UTF-8 text.
    virtual ZAbstractString_6_0 const& nextValue() = 0;

    /// Steps to the next value and stores it in `value`.
    /// owns    borrowed until the next call.
    /// throws  as nextValue().
    virtual void nextValue(char const*& value) = 0;

    /// Replaces the current value.
    /// throws  ZPropertiesIteratorException_6_0 when there is no current value;
    ///         ZInvalidParameterException_6_0 when the text is null or could not be read back from
    ///         the file, or is an empty UTF-8 text and the value to be replaced has no UTF-8 form;
    ///         ZFromUTF8Exception_6_0 when it cannot be converted. Nothing is changed then.
    /// kept    an empty value counts as one until the file is read again: a file has none.
    virtual void changeValue(char const* value) = 0;

    /// Adds a value behind the current one and makes it current.
    /// throws  as changeValue(), without the first; an empty UTF-8 text is refused if any value of
    ///         the key has no UTF-8 form.
    /// kept    an empty value, as in changeValue(); a key without values gets none by it.
    virtual void addValue(char const* value) = 0;

    /// Removes the current value and steps back by one.
    /// throws  ZPropertiesIteratorException_6_0 when there is no current value.
    /// kept    removing the first value of an obfuscated key removes all its values.
    virtual void removeValue() = 0;

    /// Returns the number of values.
    virtual int valueCount() const = 0;

protected:
    ~ZPropertyValuesIteratorInterface_6_0() noexcept(false) = default;
};

class ZAbstractPropertyValuesIterator_6_0 : public ZPropertyValuesIteratorInterface_6_0 {
public:
    /// Makes an iterator over the values of (category, key); a missing key has none.
    /// range   `type`: the kind of the strings that are handed out and taken.
    /// throws  ZInvalidParameterException_6_0 when a name is null, or empty though `valtype` asks
    ///         for a kind, when `type` or `valtype` is none of its enumeration, or when the key
    ///         holds values of the other kind than `valtype` asks for.
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

    /// Returns 1 when there is a current value, else 0.
    int isValid() const;

private:
    ZArrayList_6_0* values() const;
    void step();
    void needValue() const;
    void toLocal(char const* value, ZLCString_6_0& out) const;

    mutable ZArrayList_6_0* values_;  // the cache's list; null when the key is missing
    int position_;                    // -1 before the first step
    ZProperties_6_0& store_;
    ZProperties_6_0::Hold hold_;
    ZLCString_6_0 category_;
    ZLCString_6_0 key_;
    ZPropertyStringType type_;
    ZAbstractString_6_0* current_;  // ZUTF8String_6_0 for UTF-8, else ZLCConstString_6_0
    ZPropIter_valtype valtype_;
    mutable unsigned long generation_;  // of the cache when `values_` was fetched
};
