// ZStringTokenizer: splits a string into the runs of characters between delimiters.
//
// Subsystem: text tools.  Stands on: ZAbstractMutableString, ZArrayList, ZException, ZIterator,
// ZLCString, ZStringIterator, ZUTF8String, zqvrutil.
//
// Delimiters are never returned, adjacent ones give no empty tokens, and there is no quoting. The
// tokenizer writes each token into a string of the caller. Delimiters may differ from call to call.
// Ownership: source and target are two strings, borrowed, and must outlive the tokenizer;
// delimiters are copied. After a change of the source call reset() first.
// Cost: linear in the text and in the tokenizer's own delimiters, however many tokens there are.
// Delimiters passed to a call are read at each call.
// Threads: unsynchronised; one thread at a time uses a tokenizer, its source and its target.
#pragma once

#include "ZAbstractMutableString.h"
#include "ZIterator.h"

class ZArrayList_6_0;

class ZStringTokenizer_6_0 : public ZAbstractIterator_6_0 {
public:
    /// Creates a tokenizer at the start of `source` with the delimiters space, tab, carriage return
    /// and newline.
    /// throws  ZUnsupportedException_6_0 if source and target have different codesets.
    ZStringTokenizer_6_0(ZAbstractString_6_0 const& source, ZAbstractMutableString_6_0& target);

    /// Creates a tokenizer at the start of `source`.
    /// throws  ZUnsupportedException_6_0 if source and target have different codesets.
    ZStringTokenizer_6_0(ZAbstractString_6_0 const& source, ZAbstractMutableString_6_0& target,
                         ZAbstractString_6_0 const& delimiters);

    /// Creates a tokenizer at the position of `other` that shares its source and target and copies
    /// its delimiters.
    ZStringTokenizer_6_0(ZStringTokenizer_6_0 const& other);
    ZStringTokenizer_6_0& operator=(ZStringTokenizer_6_0 const& other);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZStringTokenizer_6_0() override;

    /// Returns a copy of the tokenizer, which shares source and target with it.
    /// owns    owned by the caller; released with delete.
    ZStringTokenizer_6_0* clone() const override;

    /// Skips delimiters and returns whether there is a next token.
    /// range   a character is a delimiter if its bytes occur in `delimiters`.
    /// throws  ZQVRMBLenException_6_0 at a character that cannot be measured; the position is
    ///         unchanged.
    virtual bool hasMore(ZAbstractString_6_0 const& delimiters);
    bool hasMore() override;

    /// Skips delimiters, writes the next token into the target, advances past it and returns the
    /// target.
    /// range   at the end the target is emptied.
    /// owns    the target stays the caller's.
    /// throws  ZQVRMBLenException_6_0 at a character that cannot be measured; target and position
    ///         are unchanged.
    virtual ZAbstractMutableString_6_0* getNext(ZAbstractString_6_0 const& delimiters);
    ZAbstractMutableString_6_0* getNext() override;

    /// Returns to the start of the source.
    virtual void reset();

    /// Adds the remaining tokens to `out`.
    /// owns    every token is a new string: the list's if it owns its elements, otherwise the
    ///         caller's, released with delete.
    virtual void list(ZArrayList_6_0& out);

    /// Returns the length of the run of delimiters at the current position. Does not advance.
    /// units   bytes.
    /// throws  ZQVRMBLenException_6_0 at a character that cannot be measured.
    unsigned int skipAll(ZAbstractString_6_0 const& delimiters) const;

    /// Returns the length of the run of non-delimiters at the current position. Does not advance.
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
