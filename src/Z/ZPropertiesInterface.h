// ZPropertiesInterface: what every configuration store offers, the base of the concrete stores and
// the factories that hand out one shared store per file.
//
// Subsystem: properties.  Stands on: ZObject, ZException, ZLock, ZHashKeyMap, ZLCString,
// ZArrayList.
//
// A value is addressed by two names, its category (in a stanza file: the stanza) and its key. A key
// may hold several values; where one is asked for, the last one counts.
// Ownership: a factory owns the stores that it handed out and deletes them with itself.
// Threads: the operations of a store and of a factory are safe from every thread.
#pragma once

#include "ZHashKeyMap.h"
#include "ZLock.h"
#include "ZObject.h"

class ZAbstractMutableString_6_0;
class ZArrayList_6_0;
class ZProperties_6_0;

// The strings that values are handed out as.
enum ZPropertyStringType : int {
    zPropLocalStrings = 0,  // ZLCString_6_0: the local codeset
    zPropUTF8Strings = 8,   // ZUTF8String_6_0
};

// The read side of a store.
class ZPropertiesInterface_6_0 {
public:
    // Virtual functions in slot order. The order is binary interface: append only.

    /// Returns 1 when `key` is present in `category`, else 0.
    /// throws  ZInvalidParameterException_6_0 when a name is null or empty.
    virtual int exists(char const* category, char const* key) const = 0;

    /// Returns 1 when `category` is present, else 0.
    /// throws  ZInvalidParameterException_6_0 when the name is null or empty.
    virtual int exists(char const* category) const = 0;

    /// Copies the last value of `key` into `out`; a missing one gives `defaultValue`, or the empty
    /// text without one.
    /// range   `defaultValue` must be null when `required` is not 0.
    /// throws  ZInvalidParameterException_6_0 when a name is null or empty or both `required` and a
    ///         default are given; ZPropertiesMissingPropertyException_6_0 when it is required and
    ///         missing. `out` is unchanged then.
    virtual void getValue(char const* category, char const* key, ZAbstractMutableString_6_0& out,
                          int required, char const* defaultValue) const = 0;

    /// Returns the last value of `key` as a number: decimal, "0x" hexadecimal, leading "0" octal; 0
    /// for an empty value; `defaultValue` for a missing one.
    /// range   `defaultValue` must be 0 when `required` is not 0.
    /// throws  as getValue(); ZPropertiesInvalidValueException_6_0 with message 40 when the text is
    ///         no number.
    virtual unsigned int getIntegerValue(char const* category, char const* key, int required,
                                         unsigned int defaultValue) const = 0;

    /// Returns the last value of `key` as a truth value: 1 for yes, y, true, t, 1; 0 for no, n,
    /// false, f, 0 and for an empty value, without regard to case; `defaultValue` for a missing
    /// one.
    /// range   `defaultValue` must be 0 when `required` is not 0.
    /// throws  as getValue(); ZPropertiesInvalidValueException_6_0 with message 41 for other texts.
    virtual int getBooleanValue(char const* category, char const* key, int required,
                                int defaultValue) const = 0;

    /// Returns the number of categories.
    virtual int count() const = 0;

    /// Returns the number of keys in `category`, 0 when it is missing.
    /// throws  ZInvalidParameterException_6_0 when the name is null or empty.
    virtual int count(char const* category) const = 0;

    /// Returns the number of values of `key`, 0 when it is missing.
    /// throws  ZInvalidParameterException_6_0 when a name is null or empty.
    virtual int numValues(char const* category, char const* key) const = 0;

    /// Returns the number of values in `category`, 0 when it is missing.
    /// throws  ZInvalidParameterException_6_0 when the name is null or empty.
    virtual int numValues(char const* category) const = 0;

    /// Empties `out` and fills it with every value of `key`, as strings of the kind `type`.
    /// range   `out` owns its members.
    /// throws  ZInvalidParameterException_6_0 when a name is null or empty, `out` does not own its
    ///         members or `type` is none of the two; `out` is unchanged then.
    /// kept    a value that cannot be converted to UTF-8 becomes an empty UTF-8 string.
    virtual void getValues(char const* category, char const* key, ZArrayList_6_0& out,
                           ZPropertyStringType type) const = 0;

    /// Reads the file at `path` into the store.
    /// range   null and "" stand for the store's own file name.
    virtual void load(char const* path) = 0;

    /// Reads the file at `path` in place of what the store holds.
    /// range   null and "" stand for the store's own file name.
    virtual void reload(char const* path) = 0;

    /// Writes the store to the file at `path`.
    /// range   null and "" stand for the store's own file name.
    virtual void store(char const* path) = 0;

    /// Prints the whole store to standard output.
    virtual void list() const = 0;

    virtual ~ZPropertiesInterface_6_0() noexcept(false);
};

// The write side of a store.
class ZPropertiesMutableInterface_6_0 {
public:
    // Virtual functions in slot order. The order is binary interface: append only.

    /// Sets `key` to the one value `value`; an empty value leaves a key without values.
    /// range   white space at the ends of `value` is gone when a file is read again.
    /// throws  ZInvalidParameterException_6_0 when a name is null or empty or a text could not be
    ///         read back from the file; nothing is changed then.
    virtual void setValue(char const* category, char const* key, char const* value) = 0;

    /// Sets `key` to the decimal text of `value`.
    /// throws  as setValue().
    virtual void setIntegerValue(char const* category, char const* key, unsigned int value) = 0;

    /// Sets `key` to "yes" for a `value` that is not 0, else to "no".
    /// throws  as setValue().
    virtual void setBooleanValue(char const* category, char const* key, int value) = 0;

    /// Removes `key` with its values; a missing one is ignored.
    /// throws  ZInvalidParameterException_6_0 when a name is null or empty.
    virtual void deleteKey(char const* category, char const* key) = 0;

    /// Adds a comment to the comments at the head of the file.
    virtual void addFileComment(char const* comment) = 0;

    /// Adds a comment above `key`, which is made when it is missing.
    virtual void addEntryComment(char const* category, char const* key, char const* comment) = 0;

protected:
    ~ZPropertiesMutableInterface_6_0() noexcept(false) = default;
};

// The common base of concrete stores.
class ZAbstractProperties_6_0 : public ZObject_6_0, public ZPropertiesInterface_6_0 {
public:
    ZAbstractProperties_6_0();
    ZAbstractProperties_6_0(ZAbstractProperties_6_0 const& other);
    ZAbstractProperties_6_0& operator=(ZAbstractProperties_6_0 const&) = delete;

    ~ZAbstractProperties_6_0() override;

    // Holds a lock from construction to destruction.
    class ZPropResourceLock {
    public:
        /// Locks `lock`.
        /// owns    borrowed until the guard is destroyed.
        [[nodiscard]] explicit ZPropResourceLock(ZLockInterface_6_0& lock);
        ZPropResourceLock(ZPropResourceLock const&) = delete;
        ZPropResourceLock& operator=(ZPropResourceLock const&) = delete;

        /// Unlocks. An unlock that fails raises, unless an exception is on its way already: then it
        /// is reported through the message service.
        virtual ~ZPropResourceLock() noexcept(false);

    private:
        ZLockInterface_6_0& lock_;
    };
};

// Makes stores on demand.
class ZPropertiesFactoryInterface_6_0 {
public:
    // Virtual functions in slot order. The order is binary interface: append only.

    /// Makes an empty store.
    /// owns    owned by the caller; released with delete.
    virtual ZProperties_6_0* makePropertiesInstance() = 0;

protected:
    ~ZPropertiesFactoryInterface_6_0() noexcept(false) = default;
};

// Makes stores and keeps one per path, see ZProperties_6_0::getPropertiesFor().
class ZAbstractPropertiesFactory_6_0 : public ZPropertiesFactoryInterface_6_0, public ZObject_6_0 {
public:
    ZAbstractPropertiesFactory_6_0();
    ZAbstractPropertiesFactory_6_0(ZAbstractPropertiesFactory_6_0 const&) = delete;
    ZAbstractPropertiesFactory_6_0& operator=(ZAbstractPropertiesFactory_6_0 const&) = delete;

    /// Deletes the stores that were handed out.
    ~ZAbstractPropertiesFactory_6_0() override;

private:
    friend class ZProperties_6_0;

    ZLock_6_0 lock_;       // held while makePropertiesInstance() runs for getPropertiesFor()
    ZHashKeyMap_6_0 map_;  // path to store, both owned here; guarded by the registry
};

// Holds the one process-wide lock under which the maps of all factories are read and changed.
class ZPropRegistry_6_0 {
public:
    ZPropRegistry_6_0();
    ZPropRegistry_6_0(ZPropRegistry_6_0 const&) = delete;
    ZPropRegistry_6_0& operator=(ZPropRegistry_6_0 const&) = delete;

    /// Unlocks. A failure raises, unless an exception is on its way already: then it is reported
    /// through the message service.
    virtual ~ZPropRegistry_6_0() noexcept(false);

    /// Makes the process-wide lock unless it is there.
    /// threads any.
    static void init();

private:
    static ZLock_6_0* res_;  // made once, lives until the process ends
};
