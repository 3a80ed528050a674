// ZUTF8String: text in UTF-8.
//
// Subsystem: text.  Stands on: ZAbstractMutableString, ZAbstractString, ZException,
// ZLCString, ZStringIterator, zqvrutil.
//
// A plain `char const*` is UTF-8 text and is copied unchanged. Construction and assignment from a
// string of the local codeset convert.
// Ownership: a ZUTF8String_6_0 owns its text; a ZUTF8ConstString_6_0 borrows it and copies nothing.
// Threads: unsynchronised; callers serialise changes to one string.
#pragma once

#include "ZAbstractMutableString.h"

class ZUTF8ConstString_6_0;
class ZLCString_6_0;
class ZLCConstString_6_0;

/// A string in UTF-8. It owns its text and grows as needed.
class ZUTF8String_6_0 : public ZAbstractMutableString_6_0 {
public:
    ZUTF8String_6_0() = default;

    /// Creates a string of UTF-8 text up to its terminator.
    /// range   null gives an empty string.
    ZUTF8String_6_0(char const* text) : ZAbstractMutableString_6_0(text) {}

    /// Creates a string of `length` bytes of UTF-8 text.
    /// range   null gives an empty string.
    ZUTF8String_6_0(char const* text, unsigned int length)
        : ZAbstractMutableString_6_0(text, length)
    {
    }

    // Creates a string of one byte, or of a number in decimal.
    explicit ZUTF8String_6_0(char c) : ZAbstractMutableString_6_0(c) {}
    explicit ZUTF8String_6_0(int number) : ZAbstractMutableString_6_0(number) {}
    explicit ZUTF8String_6_0(unsigned int number) : ZAbstractMutableString_6_0(number) {}
    explicit ZUTF8String_6_0(long number) : ZAbstractMutableString_6_0(number) {}
    explicit ZUTF8String_6_0(unsigned long number) : ZAbstractMutableString_6_0(number) {}

    ZUTF8String_6_0(ZUTF8String_6_0 const& other) = default;
    ZUTF8String_6_0(ZUTF8ConstString_6_0 const& other);

    // Converts a string of the other codeset. A source that cannot be converted gives an empty
    // string.
    ZUTF8String_6_0(ZLCString_6_0 const& other);
    ZUTF8String_6_0(ZLCConstString_6_0 const& other);

    // Replaces the contents. A null pointer changes nothing, numbers are written in decimal, and a
    // string of the other codeset is converted; if that fails, the string is empty.
    ZUTF8String_6_0& operator=(ZUTF8String_6_0 const& other) = default;
    ZUTF8String_6_0& operator=(ZUTF8ConstString_6_0 const& other);
    ZUTF8String_6_0& operator=(ZLCString_6_0 const& other);
    ZUTF8String_6_0& operator=(ZLCConstString_6_0 const& other);
    ZUTF8String_6_0& operator=(char const* text) { return self(setChars(text)); }
    ZUTF8String_6_0& operator=(char c) { return self(ZAbstractMutableString_6_0::operator=(c)); }
    ZUTF8String_6_0& operator=(int number)
    {
        return self(ZAbstractMutableString_6_0::operator=(number));
    }
    ZUTF8String_6_0& operator=(unsigned int number)
    {
        return self(ZAbstractMutableString_6_0::operator=(number));
    }
    ZUTF8String_6_0& operator=(long number)
    {
        return self(ZAbstractMutableString_6_0::operator=(number));
    }
    ZUTF8String_6_0& operator=(unsigned long number)
    {
        return self(ZAbstractMutableString_6_0::operator=(number));
    }

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZUTF8String_6_0() override = default;

    int compare(ZObject_6_0 const& other) const override;

    /// Returns a copy of the string.
    /// owns    owned by the caller; released with delete.
    ZUTF8String_6_0* clone() const override;

    int compare(char const* text) const override;
    int compareignorecase(char const* text) const override;

    /// Returns `utf8_handle_`.
    qvr_cs const* getCodesetHandle() const override;

    ZUTF8String_6_0& replaceAll(char const* set, char b) override;

    /// Replaces every byte `a` with `b`.
    /// range   `a` is an ASCII character; 0 changes nothing.
    /// throws  ZInvalidParameterException_6_0 if `a` is not ASCII.
    /// kept    `b` 0 is written like any other byte: the length is unchanged.
    ZUTF8String_6_0& replace(char a, char b) override;

    ZUTF8String_6_0& replace(char const* text, char const* by) override;

    /// Replaces every character that occurs in `set` with `replacement`.
    /// range   a null pointer or an empty `set` changes nothing; an empty `replacement` removes.
    /// throws  ZQVRMBLenException_6_0 at a character that cannot be measured.
    ZUTF8String_6_0& replaceAll(char const* set, char const* replacement) override;

    /// Replaces every character that does not occur in `set` with `replacement`.
    /// range   a null pointer changes nothing; an empty `set` replaces every character, an empty
    ///         `replacement` removes.
    /// throws  ZQVRMBLenException_6_0 at a character that cannot be measured.
    ZUTF8String_6_0& replaceOther(char const* set, char const* replacement) override;

    using ZAbstractMutableString_6_0::operator+=;
    ZUTF8String_6_0& operator+=(char c) { return self(append(c)); }
    ZUTF8String_6_0& operator+=(char const* text) { return self(append(text)); }
    ZUTF8String_6_0& operator+=(ZUTF8String_6_0 const& other)
    {
        return self(appendBytes(other.getChars(), other.getLength()));
    }
    ZUTF8String_6_0& operator+=(ZUTF8ConstString_6_0 const& other);

    // Returns a new string: this one with the argument appended.
    ZUTF8String_6_0 operator+(char const* text) const;
    ZUTF8String_6_0 operator+(ZUTF8String_6_0 const& other) const;
    ZUTF8String_6_0 operator+(ZUTF8ConstString_6_0 const& other) const;

    int compare(ZUTF8String_6_0 const& other) const
    {
        return *this == other ? 0 : compare(other.getChars());
    }
    int compare(ZUTF8ConstString_6_0 const& other) const;
    int compareignorecase(ZUTF8String_6_0 const& other) const
    {
        return compareignorecase(other.getChars());
    }
    int compareignorecase(ZUTF8ConstString_6_0 const& other) const;

    // Equality means the same bytes.
    using ZAbstractMutableString_6_0::equals;
    bool equals(ZObject_6_0 const& other) const override;
    bool equals(ZUTF8String_6_0 const& other) const { return *this == other; }
    bool operator==(char const* text) const { return ZAbstractMutableString_6_0::operator==(text); }
    bool operator!=(char const* text) const { return !(*this == text); }
    bool operator==(ZUTF8String_6_0 const& other) const
    {
        return hasBytes(other.ZUTF8String_6_0::getChars(), other.ZUTF8String_6_0::getLength());
    }
    bool operator!=(ZUTF8String_6_0 const& other) const { return !(*this == other); }
    bool operator==(ZUTF8ConstString_6_0 const& other) const;
    bool operator!=(ZUTF8ConstString_6_0 const& other) const { return !(*this == other); }

    /// Returns the text from `from` to the end; empty if `from` is past the end.
    /// units   bytes.
    ZUTF8String_6_0 subString(unsigned int from) const;

    /// Returns `count` bytes from `from` on, or up to the end.
    /// units   bytes.
    ZUTF8String_6_0 subString(unsigned int from, unsigned int count) const;

    // Case changes in place: directly for the ASCII prefix, through the codeset services for the
    // rest.
    ZUTF8String_6_0& lower();
    ZUTF8String_6_0& upper();

private:
    // Narrows the result of a base class operation, which is this string.
    static ZUTF8String_6_0& self(ZAbstractMutableString_6_0& string)
    {
        return static_cast<ZUTF8String_6_0&>(string);
    }
};

/// A view of constant text in UTF-8.
class ZUTF8ConstString_6_0 : public ZAbstractConstString_6_0 {
public:
    ZUTF8ConstString_6_0() = default;

    // Views the text of the argument. The text is borrowed; a view of a string is valid while the
    // string keeps its buffer.
    ZUTF8ConstString_6_0(char const* text) : ZAbstractConstString_6_0(text) {}
    ZUTF8ConstString_6_0(ZUTF8ConstString_6_0 const& other) = default;
    ZUTF8ConstString_6_0(ZUTF8String_6_0 const& other) : ZAbstractConstString_6_0(other.getChars())
    {
    }
    ZUTF8ConstString_6_0& operator=(ZUTF8ConstString_6_0 const& other) = default;
    ZUTF8ConstString_6_0& operator=(char const* text)
    {
        ZAbstractConstString_6_0::operator=(text);
        return *this;
    }
    ZUTF8ConstString_6_0& operator=(ZUTF8String_6_0 const& other)
    {
        setChars(other);
        return *this;
    }

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZUTF8ConstString_6_0() override = default;

    int compare(ZObject_6_0 const& other) const override;

    /// Returns another view of the same text.
    /// owns    owned by the caller; released with delete. The text stays borrowed.
    ZUTF8ConstString_6_0* clone() const override;

    int compare(char const* text) const override;
    int compareignorecase(char const* text) const override;

    /// Returns `utf8_handle_`.
    qvr_cs const* getCodesetHandle() const override;

    int compare(ZUTF8ConstString_6_0 const& other) const { return compare(other.getChars()); }
    int compare(ZUTF8String_6_0 const& other) const { return compare(other.getChars()); }
    int compareignorecase(ZUTF8ConstString_6_0 const& other) const
    {
        return compareignorecase(other.getChars());
    }
    int compareignorecase(ZUTF8String_6_0 const& other) const
    {
        return compareignorecase(other.getChars());
    }

    // Equality means the same bytes.
    bool operator==(char const* text) const { return equals(text); }
    bool operator!=(char const* text) const { return !equals(text); }
    bool operator==(ZUTF8ConstString_6_0 const& other) const { return equals(other); }
    bool operator!=(ZUTF8ConstString_6_0 const& other) const { return !equals(other); }
    bool operator==(ZUTF8String_6_0 const& other) const { return other == *this; }
    bool operator!=(ZUTF8String_6_0 const& other) const { return !(other == *this); }
};
