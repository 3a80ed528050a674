// ZStringTokenizer: splits a string into the runs of characters between delimiters.
//
// Subsystem: text tools.  Stands on: ZAbstractMutableString, ZArrayList, ZException, ZIterator,
// ZLCString, ZUTF8String, zqvrutil.
//
// Delimiters are never handed out, several in a row give no empty tokens, and there is no quoting.
// Each token is written into a string that the caller supplies. Delimiters may differ from call to
// call.
// Ownership: source and target, two strings, are borrowed and must outlive the tokenizer, the
// delimiters are copied. When the source has changed, reset() comes before everything else.
// Cost: linear in the text and in the tokenizer's own delimiters, however many tokens there are.
// Delimiters that come with a call are read at each call.
// Threads: unsynchronised; a tokenizer belongs to one thread at a time, as do source and target.
#pragma once

#include "ZAbstractMutableString.h"
#include "ZIterator.h"

class ZArrayList_6_0;

class ZStringTokenizer_6_0 : public ZAbstractIterator_6_0 {
public:
    /// Makes a tokenizer at the start of `source` with the delimiters blank, tab, carriage return
    /// and line feed.
    /// throws  ZUnsupportedException_6_0 when source and target are of different codesets.
    ZStringTokenizer_6_0(ZAbstractString_6_0 const& source, ZAbstractMutableString_6_0& target);

    /// Makes a tokenizer at the start of `source`.
    /// throws  ZUnsupportedException_6_0 when source and target are of different codesets.
    ZStringTokenizer_6_0(ZAbstractString_6_0 const& source, ZAbstractMutableString_6_0& target,
                         ZAbstractString_6_0 const& delimiters);

    /// Makes a tokenizer that stands where `other` does, shares source and target with it and has
    /// delimiters of its own.
    ZStringTokenizer_6_0(ZStringTokenizer_6_0 const& other);
    ZStringTokenizer_6_0& operator=(ZStringTokenizer_6_0 const& other);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZStringTokenizer_6_0() override;

    /// Returns a copy of the tokenizer, which shares source and target with it.
    /// owns    owned by the caller; released with delete.
    ZStringTokenizer_6_0* clone() const override;

    /// Steps over delimiters and returns whether a token follows.
    /// range   a character is a delimiter when its bytes occur in `delimiters`.
    /// throws  ZQVRMBLenException_6_0 at a character that cannot be measured; the place stays.
    virtual bool hasMore(ZAbstractString_6_0 const& delimiters);
    bool hasMore() override;

    /// Steps over delimiters, writes the next token into the target, steps past it and returns the
    /// target.
    /// range   at the end the target is emptied.
    /// owns    the target stays the caller's.
    /// throws  ZQVRMBLenException_6_0 at a character that cannot be measured; target and
    ///         place stay.
    virtual ZAbstractMutableString_6_0* getNext(ZAbstractString_6_0 const& delimiters);
    ZAbstractMutableString_6_0* getNext() override;

    /// Goes back to the start of the source.
    virtual void reset();

    /// Adds the remaining tokens to `out`.
    /// owns    every token is a string of its own: the list's when it owns its members, otherwise
    ///         the caller's, released with delete.
    virtual void list(ZArrayList_6_0& out);

    /// Returns the length of the delimiters at the current place, which stays.
    /// units   bytes.
    /// throws  ZQVRMBLenException_6_0 at a character that cannot be measured.
    unsigned int skipAll(ZAbstractString_6_0 const& delimiters) const;

    /// Returns the length of what is no delimiter at the current place, which stays.
    /// units   bytes.
    /// throws  ZQVRMBLenException_6_0 at a character that cannot be measured.
    unsigned int skipOther(ZAbstractString_6_0 const& delimiters) const;

private:
    size_t span(char const* from, ZAbstractString_6_0 const& delimiters, bool ofDelimiters) const;

    char const* cursor_;  // the next byte, in the source's text
    ZAbstractString_6_0 const* source_;
    ZAbstractMutableString_6_0* target_;
    ZAbstractMutableString_6_0* delimiters_;  // owned
    int charWidth_;  // 1: every character is one byte; otherwise each is measured
};
