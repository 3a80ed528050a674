// ZUTF8String: text in UTF-8.
//
// Subsystem: text.  Stands on: ZAbstractMutableString, ZAbstractString, ZException,
// ZLCString, ZStringIterator, zqvrutil.
//
// Plain texts are taken as they are, as UTF-8. Text is converted only when a string is made or
// assigned from a string of the local codeset.
// Ownership: a ZUTF8String_6_0 owns its text; a ZUTF8ConstString_6_0 borrows it and copies nothing.
// Threads: unsynchronised; callers serialise changes to one string.
#pragma once

#include "ZAbstractMutableString.h"

class ZUTF8ConstString_6_0;
class ZLCString_6_0;
class ZLCConstString_6_0;

class ZUTF8String_6_0 : public ZAbstractMutableString_6_0 {
public:
    ZUTF8String_6_0() = default;

    /// Makes a string of the text up to its terminator, taken as UTF-8.
    /// range   null makes an empty string.
    ZUTF8String_6_0(char const* text) : ZAbstractMutableString_6_0(text) {}

    /// Makes a string of `length` bytes, taken as UTF-8.
    /// range   null makes an empty string.
    ZUTF8String_6_0(char const* text, unsigned int length)
        : ZAbstractMutableString_6_0(text, length)
    {
    }

    // Of one byte, or of a number written in decimal.
    explicit ZUTF8String_6_0(char c) : ZAbstractMutableString_6_0(c) {}
    explicit ZUTF8String_6_0(int number) : ZAbstractMutableString_6_0(number) {}
    explicit ZUTF8String_6_0(unsigned int number) : ZAbstractMutableString_6_0(number) {}
    explicit ZUTF8String_6_0(long number) : ZAbstractMutableString_6_0(number) {}
    explicit ZUTF8String_6_0(unsigned long number) : ZAbstractMutableString_6_0(number) {}

    ZUTF8String_6_0(ZUTF8String_6_0 const& other) = default;
    ZUTF8String_6_0(ZUTF8ConstString_6_0 const& other);

    // Converts. A source that cannot be converted makes an empty string.
    ZUTF8String_6_0(ZLCString_6_0 const& other);
    ZUTF8String_6_0(ZLCConstString_6_0 const& other);

    // Assignment replaces the contents; a null text changes nothing, numbers are written in
    // decimal, a string of the other codeset is converted or, when that fails, leaves the string
    // empty.
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

    /// Replaces every byte `a` by `b`.
    /// range   `a` is an ASCII character; 0 changes nothing.
    /// throws  ZInvalidParameterException_6_0 when `a` is not ASCII.
    /// kept    `b` 0 is written like any other byte: the length stays.
    ZUTF8String_6_0& replace(char a, char b) override;

    ZUTF8String_6_0& replace(char const* text, char const* by) override;

    /// Replaces every character that occurs in `set` by `replacement`.
    /// range   a null text changes nothing, nor does an empty `set`; an empty `replacement`
    ///         removes.
    /// throws  ZQVRMBLenException_6_0 at a character that cannot be measured.
    ZUTF8String_6_0& replaceAll(char const* set, char const* replacement) override;

    /// Replaces every character that does not occur in `set` by `replacement`.
    /// range   a null text changes nothing; an empty `set` replaces every character, an empty
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

    // A new string: a copy of this one, with the argument behind it.
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

    // Byte equality.
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

    /// Returns the text from `from` to the end; empty when `from` is behind the end.
    /// units   bytes.
    ZUTF8String_6_0 subString(unsigned int from) const;

    /// Returns `count` bytes from `from`, or as many as there are.
    /// units   bytes.
    ZUTF8String_6_0 subString(unsigned int from, unsigned int count) const;

    // Case changes in place: ASCII at the beginning directly, the rest from the first other
    // character on through the codeset services.
    ZUTF8String_6_0& lower();
    ZUTF8String_6_0& upper();

private:
    // What an operation of the base returned is this very string.
    static ZUTF8String_6_0& self(ZAbstractMutableString_6_0& string)
    {
        return static_cast<ZUTF8String_6_0&>(string);
    }
};

class ZUTF8ConstString_6_0 : public ZAbstractConstString_6_0 {
public:
    ZUTF8ConstString_6_0() = default;

    // Views. The text is borrowed; a view of a string holds while that keeps its buffer.
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

    // Byte equality.
    bool operator==(char const* text) const { return equals(text); }
    bool operator!=(char const* text) const { return !equals(text); }
    bool operator==(ZUTF8ConstString_6_0 const& other) const { return equals(other); }
    bool operator!=(ZUTF8ConstString_6_0 const& other) const { return !equals(other); }
    bool operator==(ZUTF8String_6_0 const& other) const { return other == *this; }
    bool operator!=(ZUTF8String_6_0 const& other) const { return !(other == *this); }
};
