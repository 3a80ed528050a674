// ZStringIterator: iterates over the characters of a string.
//
// Subsystem: text.  Stands on: ZAbstractMutableString, ZException, ZIterator, ZLCString,
// ZUTF8String, zqvrutil.
//
// A character is a whole multibyte sequence of the string's codeset. The iterator writes each into
// a string of the caller, so a step allocates nothing.
// Ownership: source and target are two strings, borrowed, and must outlive the iterator. After a
// change of the source call reset() first.
// Threads: unsynchronised; one thread at a time uses an iterator, its source and its target.
#pragma once

#include "ZAbstractMutableString.h"
#include "ZIterator.h"

class ZLCConstString_6_0;
class ZLCString_6_0;
class ZUTF8ConstString_6_0;
class ZUTF8String_6_0;

class ZStringIterator_6_0 : public ZAbstractIterator_6_0 {
public:
    // Creates an iterator at the first character of `source` that writes into `target`.
    ZStringIterator_6_0(ZUTF8String_6_0 const& source, ZUTF8String_6_0& target);
    ZStringIterator_6_0(ZUTF8ConstString_6_0 const& source, ZUTF8String_6_0& target);
    ZStringIterator_6_0(ZLCString_6_0 const& source, ZLCString_6_0& target);
    ZStringIterator_6_0(ZLCConstString_6_0 const& source, ZLCString_6_0& target);

    // A copy has the position of the original and shares its source and target.
    ZStringIterator_6_0(ZStringIterator_6_0 const& other) = default;
    ZStringIterator_6_0& operator=(ZStringIterator_6_0 const& other) = default;

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZStringIterator_6_0() override;

    /// Returns a copy of the iterator, which shares source and target with it.
    /// owns    owned by the caller; released with delete.
    ZStringIterator_6_0* clone() const override;

    /// Returns whether there is a next character.
    bool hasMore() override;

    /// Writes the next character into the target, advances and returns the target.
    /// range   at the end the target is emptied.
    /// owns    the target stays the caller's.
    /// throws  ZQVRMBLenException_6_0 at a character that cannot be measured; target and position
    ///         are unchanged.
    ZAbstractMutableString_6_0* getNext() override;

    /// Returns to the first character.
    virtual void reset();

private:
    char const* cursor_;  // the next character, in the source's text
    ZAbstractString_6_0 const* source_;
    ZAbstractMutableString_6_0* target_;
    int charWidth_;  // 1: every character is one byte; otherwise each is measured
};
