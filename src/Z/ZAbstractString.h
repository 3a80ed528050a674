// ZAbstractString: the read-only operations of every string, and a view of constant text.
//
// Subsystem: text.  Stands on: ZObject, ZException, zqvrutil.
//
// Search, comparison, hash and prefix tests are implemented here over a few abstract accessors. A
// string belongs to one of two codesets, the local one or UTF-8; its codeset handle identifies
// which. Lengths and positions are in bytes.
// The first string of a process starts the codeset services, which end the process if they are
// unavailable. Create one string before starting threads that call setlocale() themselves.
// Ownership: a ZAbstractConstString_6_0 borrows its text, which must outlive the view.
// Threads: strings are not locked. Any number of threads may read a string while no thread changes
// it. Several threads may create the first strings at the same time.
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
        // A builtin, because this header uses no standard types. A thread that sees the UTF-8
        // handle also sees the local one, which is stored first.
        if (__atomic_load_n(&utf8_handle_, __ATOMIC_ACQUIRE) == nullptr)
            initHandles();
    }
    ZAbstractString_6_0(ZAbstractString_6_0 const&) = default;

    /// Replaces the contents as `setChars(other)` does.
    ZAbstractString_6_0& operator=(ZAbstractString_6_0 const& other) { return setChars(other); }

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZAbstractString_6_0() override = default;

    /// Returns the hash of the text: 5381, then for every byte times 33 XOR the byte.
    uint32_t hash() const override;

    /// Compares with another string as `compare(char const*)` does.
    /// throws  ZUnsupportedException_6_0 if `other` is not a string or has the other codeset.
    int compare(ZObject_6_0 const& other) const override;

    /// Returns whether `other` is a string of the same bytes.
    /// kept    codesets are not compared.
    bool equals(ZObject_6_0 const& other) const override;

    /// Returns a negative number, 0 or a positive number if the string sorts before, with or after
    /// `text` in the collating order of the current locale.
    /// range   null sorts as the empty string.
    virtual int compare(char const* text) const;

    /// Compares without regard to case, by the rules of the string's codeset and the locale.
    /// range   null sorts as the empty string.
    virtual int compareignorecase(char const* text) const;

    /// Returns the text, terminated; never null.
    /// owns    borrowed until the string changes or is destroyed.
    virtual char const* getChars() const = 0;

    /// Replaces the contents with `other`: a mutable string copies them, a view refers to them.
    virtual ZAbstractString_6_0& setChars(ZAbstractString_6_0 const& other) = 0;

    /// Returns the length.
    /// units   bytes.
    virtual unsigned int getLength() const = 0;

    /// Returns the length of the text up to the first invalid character.
    /// units   bytes.
    /// throws  ZOutOfMemoryException_6_0 if the length does not fit.
    /// kept    the result is the sum of the characters' byte lengths, not their number.
    virtual unsigned int getCharCount() const;

    /// Returns whether the byte `c` occurs; 0 always does.
    virtual bool contains(int c) const;

    /// Returns whether `text` occurs.
    /// range   null: false.
    virtual bool contains(char const* text) const;

    /// Returns the position of the first byte `c` from `from` on, -1 if not found.
    /// range   a `from` past the end is treated as the end; 0 is found at the end.
    /// throws  ZOutOfMemoryException_6_0 if the position does not fit an int.
    virtual int indexOf(int c, unsigned int from) const;

    /// Returns the position of the first `text` from `from` on, -1 if not found.
    /// range   null is not found; a `from` past the end is treated as the end.
    /// throws  ZOutOfMemoryException_6_0 if the position does not fit an int.
    virtual int indexOf(char const* text, unsigned int from) const;

    /// Returns the position of the last `c`, -1 if not found.
    /// throws  ZQVRMBLenException_6_0 if a character that was found cannot be measured.
    /// kept    in a single-byte local codeset the result is the negated position, and position 0 is
    ///         not examined.
    virtual int lastIndexOf(int c) const;

    /// Returns the position of the last occurrence of `text`, searching forward without overlaps;
    /// -1 if not found.
    /// range   null gives the length.
    /// kept    in a single-byte local codeset only the first byte of `text` is searched, with the
    ///         result of `lastIndexOf(int)`.
    virtual int lastIndexOf(char const* text) const;

    /// Returns whether `text` is a prefix of the string.
    /// range   null: true. An empty string has no other prefix.
    virtual bool beginsWith(char const* text) const;

    /// Returns whether `text` is a suffix of the string.
    /// range   null: true; the empty string: false.
    virtual bool endsWith(char const* text) const;

    /// Returns whether the contents equal `text`, byte for byte.
    /// range   null: false.
    virtual bool equals(char const* text) const;

    /// Returns whether the length is 0.
    virtual bool isEmpty() const;

    /// Returns the text, as getChars() does.
    virtual operator char const*() const;

    /// Returns the text, as getChars() does.
    virtual char const* data() const;

    /// Returns the handle of the string's codeset, `lcs_handle_` or `utf8_handle_`.
    /// owns    borrowed forever.
    virtual qvr_cs const* getCodesetHandle() const = 0;

    // Prefix and suffix tests with another string's characters; codesets are not compared.
    bool beginsWith(ZAbstractString_6_0 const& other) const { return beginsWith(other.getChars()); }
    bool endsWith(ZAbstractString_6_0 const& other) const { return endsWith(other.getChars()); }

    /// Returns whether the characters of `other` are a prefix of the string, without regard to
    /// case.
    /// range   false if either is empty.
    bool beginsWithCaseIgnored(ZAbstractString_6_0 const& other) const;

    /// Returns whether the characters of `other` are a suffix of the string, without regard to
    /// case.
    /// range   false if `other` is empty.
    bool endsWithCaseIgnored(ZAbstractString_6_0 const& other) const;

    // The codeset handles, compared by identity. Both are set after the first string is created.
    static qvr_cs const* lcs_handle_;
    static qvr_cs const* utf8_handle_;

protected:
    /// Returns whether every byte of the string is a character: its codeset is the local one, and
    /// the locale has one byte per character.
    bool isSingleByteLocal() const;

private:
    static void initHandles();
};

/// A view of constant text that another object owns. ZLCConstString_6_0 and
/// ZUTF8ConstString_6_0 add the codeset.
class ZAbstractConstString_6_0 : public ZAbstractString_6_0 {
public:
    /// Views the shared empty string.
    ZAbstractConstString_6_0() : text_(zemptyString), length_(0) {}

    /// Views `text`.
    /// range   null views the shared empty string.
    /// owns    `text` is borrowed until the view is destroyed or refers to another text.
    ZAbstractConstString_6_0(char const* text)
        : text_(text == nullptr ? zemptyString : text), length_(0)
    {
    }
    ZAbstractConstString_6_0(ZAbstractConstString_6_0 const& other);

    /// Views the text of `other`, as `setChars(other)` does.
    ZAbstractConstString_6_0& operator=(ZAbstractConstString_6_0 const& other);

    /// Views `text`.
    /// range   null: the shared empty string.
    /// owns    `text` is borrowed.
    ZAbstractConstString_6_0& operator=(char const* text);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZAbstractConstString_6_0() override = default;

    /// Returns the viewed text; never null.
    char const* getChars() const override;

    /// Views the characters of `other`, without a copy.
    /// range   does nothing if `other` is this view or has the other codeset.
    /// owns    the text of `other` is borrowed: the view follows its changes only while `other`
    ///         keeps the same buffer, and a length that was already measured does not change.
    ZAbstractConstString_6_0& setChars(ZAbstractString_6_0 const& other) override;

    /// Returns the length of the viewed text.
    /// units   bytes.
    /// throws  ZOutOfMemoryException_6_0 if the length does not fit.
    /// cost    O(length) the first time, then O(1).
    unsigned int getLength() const override;

    bool operator==(char const* text) const { return equals(text); }  // byte equality
    bool operator!=(char const* text) const { return !equals(text); }

    static char const zemptyString[1];  // the shared empty string

private:
    char const* text_;         // never null
    mutable uint32_t length_;  // 0: not measured yet; atomic, as threads may share the view
};
