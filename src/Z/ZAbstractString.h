// ZAbstractString: what every string can do without changing, and the view of constant text.
//
// Subsystem: text.  Stands on: ZObject, ZException, zqvrutil.
//
// Search, comparison, hash and prefix tests are written once over a few abstract accessors. A
// string belongs to one of two codesets, the local one or UTF-8, and says which by its codeset
// handle. Lengths and positions are bytes.
// The first string of a process starts the codeset services, which end the process when they
// cannot be had; make one string before starting threads that call setlocale() themselves.
// Ownership: a ZAbstractConstString_6_0 borrows its text; it must live as long as the view.
// Threads: strings are not locked; a string that nobody changes may be read by every thread. The
// first strings may be made by several threads at once.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "ZObject.h"

struct qvr_cs;  // a codeset of the text services

class ZAbstractString_6_0 : public ZObject_6_0 {
public:
    ZAbstractString_6_0()
    {
        // A builtin because standard types stay out of this header. Whoever sees the UTF-8 handle
        // sees the local one too: it is stored first.
        if (__atomic_load_n(&utf8_handle_, __ATOMIC_ACQUIRE) == nullptr)
            initHandles();
    }
    ZAbstractString_6_0(ZAbstractString_6_0 const&) = default;

    /// Replaces the contents as `setChars(other)` does.
    ZAbstractString_6_0& operator=(ZAbstractString_6_0 const& other) { return setChars(other); }

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZAbstractString_6_0() override = default;

    /// Returns the hash of the text: from 5381, times 33 XOR byte, for every byte.
    uint32_t hash() const override;

    /// Compares with another string as `compare(char const*)` does.
    /// throws  ZUnsupportedException_6_0 when `other` is no string or of the other codeset.
    int compare(ZObject_6_0 const& other) const override;

    /// Returns whether `other` is a string of the same bytes.
    /// kept    codesets are not compared.
    bool equals(ZObject_6_0 const& other) const override;

    /// Returns a negative number, 0 or a positive number as the text sorts before, with or after
    /// `text` in the collating order of the current locale.
    /// range   null sorts as the empty text.
    virtual int compare(char const* text) const;

    /// Compares without regard to case, by the rules of the string's codeset and the locale.
    /// range   null sorts as the empty text.
    virtual int compareignorecase(char const* text) const;

    /// Returns the text, terminated; never null.
    /// owns    borrowed until the string changes or is destroyed.
    virtual char const* getChars() const = 0;

    /// Takes the characters of `other`; how, is for the two kinds of strings to say.
    virtual ZAbstractString_6_0& setChars(ZAbstractString_6_0 const& other) = 0;

    /// Returns the length.
    /// units   bytes.
    virtual unsigned int getLength() const = 0;

    /// Returns the length of the text up to the first invalid character.
    /// units   bytes.
    /// throws  ZOutOfMemoryException_6_0 when the length does not fit.
    /// kept    the name says characters; the result is the sum of their byte lengths.
    virtual unsigned int getCharCount() const;

    /// Returns whether the byte `c` occurs; 0 does in every text.
    virtual bool contains(int c) const;

    /// Returns whether `text` occurs.
    /// range   null does not occur.
    virtual bool contains(char const* text) const;

    /// Returns the position of the first byte `c` at or after `from`, -1 when there is none.
    /// range   `from` behind the end counts as the end; 0 is found at the end.
    /// throws  ZOutOfMemoryException_6_0 when the position does not fit an int.
    virtual int indexOf(int c, unsigned int from) const;

    /// Returns the position of the first `text` at or after `from`, -1 when there is none.
    /// range   null is not found; `from` behind the end counts as the end.
    /// throws  ZOutOfMemoryException_6_0 when the position does not fit an int.
    virtual int indexOf(char const* text, unsigned int from) const;

    /// Returns the position of the last `c`, -1 when there is none.
    /// throws  ZQVRMBLenException_6_0 when a character that was found cannot be measured.
    /// kept    in a single-byte local codeset the result is the negated position, and position 0
    ///         is not examined.
    virtual int lastIndexOf(int c) const;

    /// Returns the position of the last `text`, counted without overlaps; -1 when there is none.
    /// range   null gives the length.
    /// kept    in a single-byte local codeset only the first byte of `text` is searched, and the
    ///         result is as `lastIndexOf(int)` gives it.
    virtual int lastIndexOf(char const* text) const;

    /// Returns whether the string begins with `text`.
    /// range   null: true; an empty string begins with nothing else.
    virtual bool beginsWith(char const* text) const;

    /// Returns whether the string ends with `text`.
    /// range   null: true; the empty text: false.
    virtual bool endsWith(char const* text) const;

    /// Returns whether the text is `text`, byte for byte.
    /// range   null: false.
    virtual bool equals(char const* text) const;

    /// Returns whether the length is 0.
    virtual bool isEmpty() const;

    /// Returns the text, as getChars() does.
    virtual operator char const*() const;

    /// Returns the text, as getChars() does.
    virtual char const* data() const;

    /// Returns `lcs_handle_` or `utf8_handle_`, as the string is in the one or the other codeset.
    /// owns    borrowed for ever.
    virtual qvr_cs const* getCodesetHandle() const = 0;

    // Prefix and suffix tests with another string's characters; codesets are not compared.
    bool beginsWith(ZAbstractString_6_0 const& other) const { return beginsWith(other.getChars()); }
    bool endsWith(ZAbstractString_6_0 const& other) const { return endsWith(other.getChars()); }

    /// Returns whether the string begins with the characters of `other`, upper or lower case.
    /// range   false when either is empty.
    bool beginsWithCaseIgnored(ZAbstractString_6_0 const& other) const;

    /// Returns whether the string ends with the characters of `other`, upper or lower case.
    /// range   false when `other` is empty.
    bool endsWithCaseIgnored(ZAbstractString_6_0 const& other) const;

    // The codeset handles, compared by identity. Both are set once the first string is made.
    static qvr_cs const* lcs_handle_;
    static qvr_cs const* utf8_handle_;

protected:
    /// Returns whether every byte of the string is a character: local codeset, and the locale's
    /// characters are one byte long.
    bool isSingleByteLocal() const;

private:
    static void initHandles();
};

class ZAbstractConstString_6_0 : public ZAbstractString_6_0 {
public:
    /// Views the shared empty text.
    ZAbstractConstString_6_0() : text_(zemptyString), length_(0) {}

    /// Views `text`.
    /// range   null views the shared empty text.
    /// owns    `text` is borrowed until the view is destroyed or points elsewhere.
    ZAbstractConstString_6_0(char const* text)
        : text_(text == nullptr ? zemptyString : text), length_(0)
    {
    }
    ZAbstractConstString_6_0(ZAbstractConstString_6_0 const& other);

    /// Points at the text of `other`, as `setChars(other)` does.
    ZAbstractConstString_6_0& operator=(ZAbstractConstString_6_0 const& other);

    /// Points at `text`.
    /// range   null: the shared empty text.
    /// owns    `text` is borrowed.
    ZAbstractConstString_6_0& operator=(char const* text);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZAbstractConstString_6_0() override = default;

    /// Returns the viewed text; never null.
    char const* getChars() const override;

    /// Points at the characters of `other`, without a copy.
    /// range   nothing happens when `other` is this view or of the other codeset.
    /// owns    the text of `other` is borrowed: the view follows its changes only while `other`
    ///         keeps the same buffer, and a length that was asked for before stays what it was.
    ZAbstractConstString_6_0& setChars(ZAbstractString_6_0 const& other) override;

    /// Returns the length of the viewed text.
    /// units   bytes.
    /// throws  ZOutOfMemoryException_6_0 when the length does not fit.
    /// cost    O(length) the first time, then O(1).
    unsigned int getLength() const override;

    bool operator==(char const* text) const { return equals(text); }  // byte equality
    bool operator!=(char const* text) const { return !equals(text); }

    static char const zemptyString[1];  // the shared empty text

private:
    char const* text_;         // never null
    mutable uint32_t length_;  // 0: not measured yet; accessed atomically, readers may be many
};
