// ZStringIterator: walks a string one character at a time.
//
// Subsystem: text.  Stands on: ZAbstractMutableString, ZException, ZIterator, ZLCString,
// ZUTF8String, zqvrutil.
//
// A character is a whole multibyte sequence of the string's codeset. Each is written into a string
// that the caller supplies, so that a step allocates nothing.
// Ownership: source and target, two strings, are borrowed and must outlive the iterator. When the
// source has changed, reset() comes before everything else.
// Threads: unsynchronised; an iterator belongs to one thread at a time, as do source and target.
#pragma once

#include "ZAbstractMutableString.h"
#include "ZIterator.h"

class ZLCConstString_6_0;
class ZLCString_6_0;
class ZUTF8ConstString_6_0;
class ZUTF8String_6_0;

class ZStringIterator_6_0 : public ZAbstractIterator_6_0 {
public:
    // Iterators that stand at the first character of `source` and write into `target`.
    ZStringIterator_6_0(ZUTF8String_6_0 const& source, ZUTF8String_6_0& target);
    ZStringIterator_6_0(ZUTF8ConstString_6_0 const& source, ZUTF8String_6_0& target);
    ZStringIterator_6_0(ZLCString_6_0 const& source, ZLCString_6_0& target);
    ZStringIterator_6_0(ZLCConstString_6_0 const& source, ZLCString_6_0& target);

    // The copy stands where the original does and shares source and target with it.
    ZStringIterator_6_0(ZStringIterator_6_0 const& other) = default;
    ZStringIterator_6_0& operator=(ZStringIterator_6_0 const& other) = default;

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZStringIterator_6_0() override;

    /// Returns a copy of the iterator, which shares source and target with it.
    /// owns    owned by the caller; released with delete.
    ZStringIterator_6_0* clone() const override;

    /// Returns whether a character follows.
    bool hasMore() override;

    /// Writes the next character into the target, steps past it and returns the target.
    /// range   at the end the target is emptied.
    /// owns    the target stays the caller's.
    /// throws  ZQVRMBLenException_6_0 at a character that cannot be measured; target and
    ///         place stay.
    ZAbstractMutableString_6_0* getNext() override;

    /// Goes back to the first character.
    virtual void reset();

private:
    char const* cursor_;  // the next character, in the source's text
    ZAbstractString_6_0 const* source_;
    ZAbstractMutableString_6_0* target_;
    int charWidth_;  // 1: every character is one byte; otherwise each is measured
};
