// ZAbstractMutableString: an owned, growing, terminated text with all editing operations.
//
// Subsystem: text.  Stands on: ZAbstractString, ZException, ZLCString, ZStringIterator, zqvrutil,
// zsnprintf.
//
// Up to 95 bytes live inside the object; a longer text moves to the heap and stays there. Bytes
// are kept as they are; what is a character is for the string's codeset to say.
// Ownership: the text is the string's own; every argument is copied. Arguments may point into the
// string's own text.
// Failures: an operation that fails leaves the string as it was; readLine() keeps what it has read.
// Threads: unsynchronised; callers serialise changes to one string.
#pragma once

#include <iosfwd>

#include "ZAbstractString.h"

class ZStringIterator_6_0;

class ZAbstractMutableString_6_0 : public ZAbstractString_6_0 {
public:
    ZAbstractMutableString_6_0() { init(); }

    /// Makes a string of the text up to its terminator.
    /// range   null makes an empty string.
    ZAbstractMutableString_6_0(char const* text)
    {
        init();
        setChars(text);
    }

    /// Makes a string of `length` bytes.
    /// range   null makes an empty string.
    ZAbstractMutableString_6_0(char const* text, unsigned int length)
    {
        init();
        setChars(text, length);
    }

    explicit ZAbstractMutableString_6_0(char c)
    {
        init();
        append(c);
    }

    // Numbers are written in decimal.
    explicit ZAbstractMutableString_6_0(int number);
    explicit ZAbstractMutableString_6_0(unsigned int number);
    explicit ZAbstractMutableString_6_0(long number);
    explicit ZAbstractMutableString_6_0(unsigned long number);

    ZAbstractMutableString_6_0(ZAbstractMutableString_6_0 const& other) : ZAbstractString_6_0(other)
    {
        init();
        assign(other.text_, other.length_);
    }

    // Assignment replaces the contents; numbers are written in decimal, a null text changes
    // nothing.
    ZAbstractMutableString_6_0& operator=(ZAbstractMutableString_6_0 const& other)
    {
        return assign(other.text_, other.length_);
    }
    ZAbstractMutableString_6_0& operator=(char const* text) { return setChars(text); }
    ZAbstractMutableString_6_0& operator=(char c) { return assign(&c, 1); }
    ZAbstractMutableString_6_0& operator=(int number);
    ZAbstractMutableString_6_0& operator=(unsigned int number);
    ZAbstractMutableString_6_0& operator=(long number);
    ZAbstractMutableString_6_0& operator=(unsigned long number);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZAbstractMutableString_6_0() override
    {
        if (text_ != inline_)
            release(text_);
    }

    char const* getChars() const override { return text_; }

    /// Replaces the contents with the bytes of `other`, whatever its codeset.
    /// throws  ZOutOfMemoryException_6_0, as everything below that makes a text longer.
    ZAbstractMutableString_6_0& setChars(ZAbstractString_6_0 const& other) override;

    unsigned int getLength() const override { return length_; }

    /// Replaces every byte that is in `set` by `b`; 0 removes them.
    /// range   null changes nothing.
    /// kept    bytes are looked at, not characters.
    virtual ZAbstractMutableString_6_0& replaceAll(char const* set, char b);

    /// Replaces every character `a` by `b`; 0 removes them.
    /// range   `a` 0 changes nothing. Only whole characters match.
    virtual ZAbstractMutableString_6_0& replace(char a, char b);

    /// Replaces every `text`, counted without overlaps, by `by`.
    /// range   null, or an empty `text`, changes nothing; an empty `by` removes. Outside UTF-8 only
    ///         whole characters match.
    /// cost    O(length), and one allocation of the result's size.
    virtual ZAbstractMutableString_6_0& replace(char const* text, char const* by);

    /// Replaces every character that occurs in `set` by `replacement`.
    virtual ZAbstractMutableString_6_0& replaceAll(char const* set, char const* replacement) = 0;

    /// Replaces every character that does not occur in `set` by `replacement`.
    virtual ZAbstractMutableString_6_0& replaceOther(char const* set, char const* replacement) = 0;

    /// Removes white space at the beginning.
    virtual ZAbstractMutableString_6_0& stripLeading();

    /// Removes white space at the end.
    /// throws  ZQVRMBLenException_6_0 at a character that cannot be measured, in a local codeset
    ///         of several bytes a character.
    /// kept    in UTF-8 and in a single-byte local codeset the first byte stays, even when it is
    ///         white space.
    virtual ZAbstractMutableString_6_0& stripTrailing();

    /// Replaces the contents with the characters of `source`, which is in the other codeset.
    /// range   an empty source changes nothing; one that cannot be converted leaves the string
    ///         empty.
    virtual ZAbstractMutableString_6_0& convertFromCodeSet(ZAbstractString_6_0 const& source);

    // Ends of the text. A null text changes nothing.

    /// Appends `text` up to its terminator.
    ZAbstractMutableString_6_0& append(char const* text)
    {
        return text == nullptr ? *this : appendBytes(text, strlen(text));
    }

    /// Appends exactly `n` bytes.
    ZAbstractMutableString_6_0& append(char const* text, unsigned int n)
    {
        return text == nullptr ? *this : appendBytes(text, n);
    }

    /// Appends one byte.
    ZAbstractMutableString_6_0& append(char c) { return appendBytes(&c, 1); }

    ZAbstractMutableString_6_0& operator+=(char const* text) { return append(text); }
    ZAbstractMutableString_6_0& operator+=(char c) { return append(c); }
    ZAbstractMutableString_6_0& operator+=(ZAbstractString_6_0 const& other)
    {
        return appendBytes(other.getChars(), other.getLength());
    }

    /// Puts `text` in front, and gives back a buffer that the result does not need.
    ZAbstractMutableString_6_0& prepend(char const* text);

    /// Inserts `text` at `pos`; what follows a zero byte is cut off.
    /// range   `pos` behind the end changes nothing.
    ZAbstractMutableString_6_0& insert(unsigned int pos, char const* text);

    /// Removes `n` bytes at `pos`; 0 removes all that follow.
    /// range   nothing happens when the text has not that many.
    ZAbstractMutableString_6_0& remove(unsigned int pos, unsigned int n);

    /// Cuts the text to `n` bytes.
    /// range   nothing happens when it is shorter.
    ZAbstractMutableString_6_0& trunc(unsigned int n)
    {
        if (n <= length_)
            end(n);
        return *this;
    }

    /// Empties the string; it keeps its buffer.
    ZAbstractMutableString_6_0& clear()
    {
        end(0);
        return *this;
    }

    /// Grows the buffer to exactly `n` bytes of text, never shrinks it; returns its size.
    unsigned int setCapacity(unsigned int n)
    {
        bump(n, true);
        return capacity_;
    }

    /// Returns how many bytes of text the buffer has room for, besides the terminator. A text that
    /// fits changes neither the capacity nor the place of the buffer; prepend() may change both.
    unsigned int getCapacity() const { return capacity_; }
    static unsigned int getDefaultLength() { return kDefaultLength; }  // room in the object

    // Case changes in place, by the rules of the string's codeset and the locale.
    ZAbstractMutableString_6_0& lower();
    ZAbstractMutableString_6_0& upper();

    /// Removes white space at both ends: stripLeading(), then stripTrailing().
    ZAbstractMutableString_6_0& stripWhiteSpace();

    /// Sets the string to the text that `characters` walks, from its start, with every character
    /// that does not occur in `set` replaced by `replacement`.
    /// range   a null text changes nothing. `characters` walks this string, or one that belongs to
    ///         the same codeset; its target is neither of the two. Characters are compared whole,
    ///         byte for byte; an empty `set` replaces all, an empty `replacement` removes.
    /// throws  ZQVRMBLenException_6_0 at a character that cannot be measured.
    /// cost    O(length of text, set and result).
    ZAbstractMutableString_6_0& replaceNoneOf(ZStringIterator_6_0& characters, char const* set,
                                              char const* replacement);

    /// Replaces every character that `set` gives, from its start, by `replacement`; what is put in
    /// is not looked at again.
    /// range   a null text changes nothing. Characters are compared whole, byte for byte; an empty
    ///         set changes nothing, an empty `replacement` removes.
    /// throws  ZQVRMBLenException_6_0 at a character that cannot be measured.
    /// cost    O(length of text, set and result).
    ZAbstractMutableString_6_0& replaceAllOf(ZStringIterator_6_0& set, char const* replacement);

    /// Replaces the contents with `text` up to its terminator.
    /// range   null changes nothing.
    ZAbstractMutableString_6_0& setChars(char const* text)
    {
        return text == nullptr ? *this : assign(text, strlen(text));
    }

    /// Replaces the contents with exactly `n` bytes.
    /// range   null changes nothing.
    ZAbstractMutableString_6_0& setChars(char const* text, unsigned int n)
    {
        return text == nullptr ? *this : assign(text, n);
    }

    /// Reads up to the end of the line or of the stream; returns the stream.
    /// range   a line ends with a line feed, a carriage return or a zero byte, which is taken and
    ///         not stored: a carriage return with a line feed behind it gives an empty line next.
    /// throws  ZOutOfMemoryException_6_0, and what the stream throws; what has been read stays.
    /// kept    a non-zero `skipWhite` turns the stream's skipws flag on, and it stays on.
    std::istream& readLine(std::istream& stream, int skipWhite);

    /// Replaces the contents with formatted output; `zvsnprintf_6_0` has the conversions.
    /// range   null, and all that `zvsnprintf_6_0` answers with -1, change nothing: a format that
    ///         is none, a text longer than 2,147,483,647 bytes, and too little memory for it.
    ZAbstractMutableString_6_0& format(char const* format, ...);

    bool operator==(char const* text) const { return text != nullptr && strcmp(text_, text) == 0; }
    bool operator!=(char const* text) const { return !(*this == text); }

protected:
    /// Puts the string into its first state, without releasing anything.
    void init()
    {
        text_ = inline_;
        length_ = 0;
        capacity_ = kDefaultLength;
        room_ = kDefaultLength;
        inline_[0] = 0;
    }

    /// Sees to it that the buffer has room for `required` bytes of text, and that the capacity is
    /// exactly as much, a fifth more, or what it was when that suffices. The buffer has room for as
    /// many bytes as the capacity says; it moves only if the capacity grows.
    /// throws  ZOutOfMemoryException_6_0 when there is no memory, or a length does not fit.
    void bump(size_t required, bool exact)
    {
        if (!fits(required))
            grow(required, exact);
    }

    /// Replaces the contents with `n` bytes, which may be the string's own.
    ZAbstractMutableString_6_0& assign(char const* bytes, size_t n)
    {
        if (!fits(n))
            return assignLong(bytes, n);
        memmove(text_, bytes, n);
        end(n);
        return *this;
    }

    /// Appends `n` bytes, which may be the string's own.
    ZAbstractMutableString_6_0& appendBytes(char const* bytes, size_t n)
    {
        if (!fits(length_ + n))
            return appendLong(bytes, n);
        memmove(text_ + length_, bytes, n);
        end(length_ + n);
        return *this;
    }

    /// Returns whether `n` bytes are the contents.
    bool hasBytes(char const* bytes, size_t n) const
    {
        return length_ == n && areSame(text_, bytes, n);
    }

    // The text, to be changed in place; its length stays.
    char* buffer() { return text_; }

private:
    static constexpr unsigned int kDefaultLength = 95;

    // Whether two texts of `n` bytes are the same. Most keys and names are at least one word long
    // and at most two: two words that may overlap are compared without a call. The code is laid out
    // for longer texts, which would pay more for a jump.
    static bool areSame(char const* one, char const* other, size_t n)
    {
        constexpr size_t kWord = sizeof(uint64_t);
        size_t const last = n - kWord;  // where the second word begins
        if (__builtin_expect(last <= kWord, 0))
            return ((word(one) ^ word(other)) | (word(one + last) ^ word(other + last))) == 0;
        return memcmp(one, other, n) == 0;
    }
    static uint64_t word(char const* at)
    {
        uint64_t bytes;
        memcpy(&bytes, at, sizeof bytes);
        return bytes;
    }

    // Whether a text of `length` bytes changes neither the capacity nor the buffer.
    bool fits(size_t length) const { return length <= capacity_; }

    void end(size_t length)
    {
        length_ = static_cast<uint32_t>(length);
        text_[length] = 0;
    }
    void grow(size_t required, bool exact);
    ZAbstractMutableString_6_0& assignLong(char const* bytes, size_t n);
    ZAbstractMutableString_6_0& appendLong(char const* bytes, size_t n);
    ZAbstractMutableString_6_0& take(ZAbstractMutableString_6_0& result, size_t required);
    static void release(char* text);
    bool hasOneByteSpaces() const;

    char* text_;         // the inline buffer, or an owned one
    uint32_t length_;    // bytes of text, at most the capacity
    uint32_t capacity_;  // bytes of text that the string says it has room for
    char inline_[kDefaultLength + 1];
    uint32_t room_;  // bytes of text that fit into the buffer, which holds one more: the capacity,
                     // or more while the text grows
};
