// ZFleetConflict: a key of a configuration that two programs have changed, and the exception of a
// store that is refused for it.
//
// Subsystem: fleet.  Stands on: the foundation's ZObject, ZException.
//
// Ownership: objects own copies of the names.
// Threads: immutable.
#pragma once

#include <Z/ZException.h>
#include <Z/ZLCString.h>
#include <Z/ZObject.h>

/// A key, or a whole stanza, that two programs have changed in different ways.
class ZFleetConflict_6_0 : public ZObject_6_0 {
public:
    /// owns    both names are copied. An empty `key` is the stanza as a whole: one program has
    ///         removed the stanza, and the other program has changed it.
    ZFleetConflict_6_0(char const* stanza, char const* key);
    ZFleetConflict_6_0(ZFleetConflict_6_0 const& other);
    ZFleetConflict_6_0& operator=(ZFleetConflict_6_0 const&) = delete;

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZFleetConflict_6_0() override;
    ZObject_6_0* clone() const override;

    ZLCString_6_0 const& stanza() const { return stanza_; }
    ZLCString_6_0 const& key() const { return key_; }

private:
    ZLCString_6_0 stanza_;
    ZLCString_6_0 key_;
};

/// A store was refused because another program has changed the same keys. Message 43; inserts:
/// path, "merge()", ESTALE.
class ZFleetConflictException_6_0 : public ZPropertiesIOException_6_0 {
public:
    struct List;  // of the library

    /// owns    a reference to `list` is taken over.
    ZFleetConflictException_6_0(char const* path, List* list);
    ZFleetConflictException_6_0(ZFleetConflictException_6_0 const& other);
    ZFleetConflictException_6_0& operator=(ZFleetConflictException_6_0 const&) = delete;

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZFleetConflictException_6_0() override;
    ZObject_6_0* clone() const override;
    [[noreturn]] void throwException(char const* file, int line) override;

    /// Returns the number of conflicts.
    unsigned count() const;

    /// Returns a conflict; they are ordered by stanza and key.
    /// owns    borrowed from the exception.
    /// throws  ZInvalidParameterException_6_0 if `index` is not less than count().
    ZFleetConflict_6_0 const& at(unsigned index) const;

private:
    List* const list_;  // counted
};
