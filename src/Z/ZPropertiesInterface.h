// ZPropertiesInterface: the interface of every configuration store, the base class of the concrete
// stores, and the factories that share one store per file among all callers.
//
// Subsystem: properties.  Stands on: ZObject, ZException, ZLock, ZHashKeyMap, ZLCString,
// ZArrayList.
//
// A value has two names: its category (in a stanza file, the stanza) and its key. A key may have
// several values; functions that return a single value return the last.
// Ownership: a factory owns the stores that it returns and deletes them in its destructor.
// Threads: the operations of a store and of a factory are safe from every thread.
#pragma once

#include "ZHashKeyMap.h"
#include "ZLock.h"
#include "ZObject.h"

class ZAbstractMutableString_6_0;
class ZArrayList_6_0;
class ZProperties_6_0;

/// The type of the strings that a function returns values in.
enum ZPropertyStringType : int {
    zPropLocalStrings = 0,  // ZLCString_6_0: the local codeset
    zPropUTF8Strings = 8,   // ZUTF8String_6_0
};

/// The reading functions of a configuration store.
class ZPropertiesInterface_6_0 {
public:
    // Virtual functions in slot order. The order is binary interface: append only.

    /// Returns 1 if `category` has the key `key`, else 0.
    /// throws  ZInvalidParameterException_6_0 if a name is null or empty.
    virtual int exists(char const* category, char const* key) const = 0;

    /// Returns 1 if `category` exists, else 0.
    /// throws  ZInvalidParameterException_6_0 if the name is null or empty.
    virtual int exists(char const* category) const = 0;

    /// Copies the last value of `key` into `out`. If there is no value, copies `defaultValue`, or
    /// clears `out` if that is null.
    /// range   `defaultValue` must be null if `required` is not 0.
    /// throws  ZInvalidParameterException_6_0 if a name is null or empty, or if `required` and a
    ///         default are both given; ZPropertiesMissingPropertyException_6_0 if a required key
    ///         has no value. `out` is unchanged then.
    virtual void getValue(char const* category, char const* key, ZAbstractMutableString_6_0& out,
                          int required, char const* defaultValue) const = 0;

    /// Returns the last value of `key` as a number. The value is decimal, hexadecimal ("0x") or
    /// octal (leading "0"). An empty value gives 0, a missing value `defaultValue`.
    /// range   `defaultValue` must be 0 if `required` is not 0.
    /// throws  as getValue(); ZPropertiesInvalidValueException_6_0 with message 40 if the value is
    ///         not a number.
    virtual unsigned int getIntegerValue(char const* category, char const* key, int required,
                                         unsigned int defaultValue) const = 0;

    /// Returns the last value of `key` as a boolean: 1 for yes, y, true, t and 1; 0 for no, n,
    /// false, f and 0, ignoring case. An empty value gives 0, a missing value `defaultValue`.
    /// range   `defaultValue` must be 0 if `required` is not 0.
    /// throws  as getValue(); ZPropertiesInvalidValueException_6_0 with message 41 if the value is
    ///         not a boolean.
    virtual int getBooleanValue(char const* category, char const* key, int required,
                                int defaultValue) const = 0;

    /// Returns the number of categories.
    virtual int count() const = 0;

    /// Returns the number of keys in `category`; 0 if it does not exist.
    /// throws  ZInvalidParameterException_6_0 if the name is null or empty.
    virtual int count(char const* category) const = 0;

    /// Returns the number of values of `key`; 0 if it does not exist.
    /// throws  ZInvalidParameterException_6_0 if a name is null or empty.
    virtual int numValues(char const* category, char const* key) const = 0;

    /// Returns the number of values in `category`; 0 if it does not exist.
    /// throws  ZInvalidParameterException_6_0 if the name is null or empty.
    virtual int numValues(char const* category) const = 0;

    /// Replaces the elements of `out` by all values of `key`, as strings of type `type`.
    /// range   `out` owns its elements.
    /// throws  ZInvalidParameterException_6_0 if a name is null or empty, if `out` does not own its
    ///         elements or if `type` is invalid. `out` is unchanged then.
    /// kept    a value that cannot be converted to UTF-8 becomes an empty UTF-8 string.
    virtual void getValues(char const* category, char const* key, ZArrayList_6_0& out,
                           ZPropertyStringType type) const = 0;

    /// Adds the contents of the file at `path` to the store.
    /// range   null or empty: the store's file name.
    virtual void load(char const* path) = 0;

    /// Replaces the contents of the store by the contents of the file at `path`.
    /// range   null or empty: the store's file name.
    virtual void reload(char const* path) = 0;

    /// Writes the store to the file at `path`.
    /// range   null or empty: the store's file name.
    virtual void store(char const* path) = 0;

    /// Prints the whole store to standard output.
    virtual void list() const = 0;

    virtual ~ZPropertiesInterface_6_0() noexcept(false);
};

/// The changing functions of a configuration store.
class ZPropertiesMutableInterface_6_0 {
public:
    // Virtual functions in slot order. The order is binary interface: append only.

    /// Sets `key` to the single value `value`. An empty value leaves the key without values.
    /// range   a file does not preserve leading and trailing whitespace of `value`.
    /// throws  ZInvalidParameterException_6_0 if a name is null or empty, or if a string could not
    ///         be read back from the file. Nothing is changed then.
    virtual void setValue(char const* category, char const* key, char const* value) = 0;

    /// Sets `key` to `value` in decimal.
    /// throws  as setValue().
    virtual void setIntegerValue(char const* category, char const* key, unsigned int value) = 0;

    /// Sets `key` to "yes" if `value` is not 0, else to "no".
    /// throws  as setValue().
    virtual void setBooleanValue(char const* category, char const* key, int value) = 0;

    /// Removes `key` and its values, if it exists.
    /// throws  ZInvalidParameterException_6_0 if a name is null or empty.
    virtual void deleteKey(char const* category, char const* key) = 0;

    /// Adds a comment to the comment block at the start of the file.
    virtual void addFileComment(char const* comment) = 0;

    /// Adds a comment above `key`, which is created if it does not exist.
    virtual void addEntryComment(char const* category, char const* key, char const* comment) = 0;

protected:
    ~ZPropertiesMutableInterface_6_0() noexcept(false) = default;
};

/// The common base class of concrete stores.
class ZAbstractProperties_6_0 : public ZObject_6_0, public ZPropertiesInterface_6_0 {
public:
    ZAbstractProperties_6_0();
    ZAbstractProperties_6_0(ZAbstractProperties_6_0 const& other);
    ZAbstractProperties_6_0& operator=(ZAbstractProperties_6_0 const&) = delete;

    ~ZAbstractProperties_6_0() override;

    /// Locks in this scope: acquires a lock in the constructor and releases it in the destructor.
    class ZPropResourceLock {
    public:
        /// Locks `lock`.
        /// owns    borrowed until the guard is destroyed.
        [[nodiscard]] explicit ZPropResourceLock(ZLockInterface_6_0& lock);
        ZPropResourceLock(ZPropResourceLock const&) = delete;
        ZPropResourceLock& operator=(ZPropResourceLock const&) = delete;

        /// Unlocks.
        /// throws  as unlock(). During stack unwinding a failure is reported through the message
        ///         service instead.
        virtual ~ZPropResourceLock() noexcept(false);

    private:
        ZLockInterface_6_0& lock_;
    };
};

/// Creates stores.
class ZPropertiesFactoryInterface_6_0 {
public:
    // Virtual functions in slot order. The order is binary interface: append only.

    /// Creates an empty store.
    /// owns    owned by the caller; released with delete.
    virtual ZProperties_6_0* makePropertiesInstance() = 0;

protected:
    ~ZPropertiesFactoryInterface_6_0() noexcept(false) = default;
};

/// Creates stores and shares one per path among all callers; see
/// ZProperties_6_0::getPropertiesFor().
class ZAbstractPropertiesFactory_6_0 : public ZPropertiesFactoryInterface_6_0, public ZObject_6_0 {
public:
    ZAbstractPropertiesFactory_6_0();
    ZAbstractPropertiesFactory_6_0(ZAbstractPropertiesFactory_6_0 const&) = delete;
    ZAbstractPropertiesFactory_6_0& operator=(ZAbstractPropertiesFactory_6_0 const&) = delete;

    /// Deletes the stores that getPropertiesFor() has returned.
    ~ZAbstractPropertiesFactory_6_0() override;

private:
    friend class ZProperties_6_0;

    ZLock_6_0 lock_;       // held while getPropertiesFor() calls makePropertiesInstance()
    ZHashKeyMap_6_0 map_;  // path to store, both owned here; guarded by the registry
};

/// Locks the registry in this scope: the process-wide lock that guards the maps of all factories.
class ZPropRegistry_6_0 {
public:
    ZPropRegistry_6_0();
    ZPropRegistry_6_0(ZPropRegistry_6_0 const&) = delete;
    ZPropRegistry_6_0& operator=(ZPropRegistry_6_0 const&) = delete;

    /// Unlocks.
    /// throws  as ZLock_6_0::unlock(). During stack unwinding a failure is reported through the
    ///         message service instead.
    virtual ~ZPropRegistry_6_0() noexcept(false);

    /// Creates the process-wide lock unless it exists.
    /// threads any.
    static void init();

private:
    static ZLock_6_0* res_;  // created once, exists until the process ends
};
