// ZAbstractMutableString: an owned, growing, terminated string with all editing operations.
//
// Subsystem: text.  Stands on: ZAbstractString, ZException, ZLCString, ZStringIterator, zqvrutil,
// zsnprintf.
//
// Up to 95 bytes are stored inside the object; a longer text moves to the heap and stays there.
// Bytes are kept unchanged; the string's codeset defines the characters.
// Ownership: the string owns its text and copies every argument. Arguments may point into the
// string's own text.
// Failures: an operation that fails leaves the string unchanged, except readLine(), which keeps the
// bytes read so far.
// Threads: unsynchronised; callers serialise changes to one string.
#pragma once

#include <iosfwd>

#include "ZAbstractString.h"

class ZStringIterator_6_0;

class ZAbstractMutableString_6_0 : public ZAbstractString_6_0 {
public:
    ZAbstractMutableString_6_0() { init(); }

    /// Creates a string of the text up to its terminator.
    /// range   null gives an empty string.
    ZAbstractMutableString_6_0(char const* text)
    {
        init();
        setChars(text);
    }

    /// Creates a string of `length` bytes.
    /// range   null gives an empty string.
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

    // Creates a string of a number in decimal.
    explicit ZAbstractMutableString_6_0(int number);
    explicit ZAbstractMutableString_6_0(unsigned int number);
    explicit ZAbstractMutableString_6_0(long number);
    explicit ZAbstractMutableString_6_0(unsigned long number);

    ZAbstractMutableString_6_0(ZAbstractMutableString_6_0 const& other) : ZAbstractString_6_0(other)
    {
        init();
        assign(other.text_, other.length_);
    }

    // Replaces the contents. Numbers are written in decimal; a null pointer changes nothing.
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
    /// throws  ZOutOfMemoryException_6_0, as every function below that makes a string longer.
    ZAbstractMutableString_6_0& setChars(ZAbstractString_6_0 const& other) override;

    unsigned int getLength() const override { return length_; }

    /// Replaces every byte that is in `set` with `b`; 0 removes the bytes.
    /// range   null changes nothing.
    /// kept    compares bytes, not characters.
    virtual ZAbstractMutableString_6_0& replaceAll(char const* set, char b);

    /// Replaces every character `a` with `b`; 0 removes the characters.
    /// range   `a` 0 changes nothing. Only whole characters match.
    virtual ZAbstractMutableString_6_0& replace(char a, char b);

    /// Replaces every occurrence of `text`, searching without overlaps, with `by`.
    /// range   a null argument or an empty `text` changes nothing; an empty `by` removes. Outside
    ///         UTF-8 only whole characters match.
    /// cost    O(length), and one allocation of the result's size.
    virtual ZAbstractMutableString_6_0& replace(char const* text, char const* by);

    /// Replaces every character that occurs in `set` with `replacement`.
    virtual ZAbstractMutableString_6_0& replaceAll(char const* set, char const* replacement) = 0;

    /// Replaces every character that does not occur in `set` with `replacement`.
    virtual ZAbstractMutableString_6_0& replaceOther(char const* set, char const* replacement) = 0;

    /// Removes leading whitespace.
    virtual ZAbstractMutableString_6_0& stripLeading();

    /// Removes trailing whitespace.
    /// throws  ZQVRMBLenException_6_0 at a character that cannot be measured, in a multibyte local
    ///         codeset.
    /// kept    in UTF-8 and in a single-byte local codeset the first byte stays, even if it is
    ///         whitespace.
    virtual ZAbstractMutableString_6_0& stripTrailing();

    /// Replaces the contents with the characters of `source`, which has the other codeset.
    /// range   an empty source changes nothing; a source that cannot be converted empties the
    ///         string.
    virtual ZAbstractMutableString_6_0& convertFromCodeSet(ZAbstractString_6_0 const& source);

    // Editing at a position. A null pointer changes nothing.

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

    /// Prepends `text`, and releases a heap buffer that the result does not need.
    ZAbstractMutableString_6_0& prepend(char const* text);

    /// Inserts `text` at `pos`; if the string contains a zero byte, cuts it there.
    /// range   a `pos` past the end changes nothing.
    ZAbstractMutableString_6_0& insert(unsigned int pos, char const* text);

    /// Removes `n` bytes at `pos`; 0 removes all bytes from `pos` on.
    /// range   does nothing if there are fewer than `n` bytes from `pos` on.
    ZAbstractMutableString_6_0& remove(unsigned int pos, unsigned int n);

    /// Truncates the string to `n` bytes.
    /// range   does nothing if it is shorter.
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

    /// Grows the capacity to exactly `n` bytes, never shrinks it; returns the capacity.
    unsigned int setCapacity(unsigned int n)
    {
        bump(n, true);
        return capacity_;
    }

    /// Returns the capacity in bytes, without the terminator. Contents that fit change neither the
    /// capacity nor the buffer's address; prepend() may change both.
    unsigned int getCapacity() const { return capacity_; }
    static unsigned int getDefaultLength() { return kDefaultLength; }  // capacity inside the object

    // Case changes in place, by the rules of the string's codeset and the locale.
    ZAbstractMutableString_6_0& lower();
    ZAbstractMutableString_6_0& upper();

    /// Removes whitespace at both ends: stripLeading(), then stripTrailing().
    ZAbstractMutableString_6_0& stripWhiteSpace();

    /// Sets the string to the text that `characters` iterates over, from its start, with every
    /// character that does not occur in `set` replaced with `replacement`.
    /// range   a null pointer changes nothing. `characters` iterates over this string or one of the
    ///         same codeset; its target is neither of the two. Compares whole characters, byte for
    ///         byte. An empty `set` replaces all, an empty `replacement` removes.
    /// throws  ZQVRMBLenException_6_0 at a character that cannot be measured.
    /// cost    O(length of text, set and result).
    ZAbstractMutableString_6_0& replaceNoneOf(ZStringIterator_6_0& characters, char const* set,
                                              char const* replacement);

    /// Replaces every character that the iterator `set` returns, from its start, with
    /// `replacement`. Inserted text is not replaced again.
    /// range   a null pointer changes nothing. Compares whole characters, byte for byte. An empty
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
    /// range   a newline, a carriage return or a zero byte ends a line; it is consumed and not
    ///         stored. A carriage return and a newline therefore give an empty line next.
    /// throws  ZOutOfMemoryException_6_0, and exceptions of the stream; the bytes read so far stay.
    /// kept    a non-zero `skipWhite` sets the stream's skipws flag, and it stays set.
    std::istream& readLine(std::istream& stream, int skipWhite);

    /// Replaces the contents with formatted output; see `zvsnprintf_6_0` for the conversions.
    /// range   null changes nothing, nor does a -1 of `zvsnprintf_6_0`: an invalid format, a result
    ///         longer than 2,147,483,647 bytes, or too little memory.
    ZAbstractMutableString_6_0& format(char const* format, ...);

    bool operator==(char const* text) const { return text != nullptr && strcmp(text_, text) == 0; }
    bool operator!=(char const* text) const { return !(*this == text); }

protected:
    /// Sets the initial state, without releasing anything.
    void init()
    {
        text_ = inline_;
        length_ = 0;
        capacity_ = kDefaultLength;
        room_ = kDefaultLength;
        inline_[0] = 0;
    }

    /// Ensures that the buffer has space for `required` bytes of text. The capacity becomes exactly
    /// `required` or a fifth more, or is unchanged if it suffices. The buffer is never smaller than
    /// the capacity; it moves only if the capacity grows.
    /// throws  ZOutOfMemoryException_6_0 if there is no memory, or a length does not fit.
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

    /// Returns whether the contents are these `n` bytes.
    bool hasBytes(char const* bytes, size_t n) const
    {
        return length_ == n && areSame(text_, bytes, n);
    }

    // The text, for changes in place that keep its length.
    char* buffer() { return text_; }

private:
    friend class ZStringIterator_6_0;

    static constexpr unsigned int kDefaultLength = 95;

    // Returns whether two blocks of `n` bytes are equal. Most keys and names are one to two words
    // long: two words that may overlap are compared without a call. The branch favours longer
    // blocks, for which a jump would cost more.
    static bool areSame(char const* a, char const* b, size_t n)
    {
        constexpr size_t kWord = sizeof(uint64_t);
        size_t const last = n - kWord;  // start of the second word
        if (__builtin_expect(last <= kWord, 0))
            return ((word(a) ^ word(b)) | (word(a + last) ^ word(b + last))) == 0;
        return memcmp(a, b, n) == 0;
    }
    static uint64_t word(char const* at)
    {
        uint64_t bytes;
        memcpy(&bytes, at, sizeof bytes);
        return bytes;
    }

    // Returns whether `length` bytes change neither the capacity nor the buffer.
    bool fits(size_t length) const { return length <= capacity_; }

    // Replaces the contents with one byte. Every capacity is larger.
    void setByte(char c)
    {
        char const bytes[2] = {c, 0};
        memcpy(text_, bytes, sizeof bytes);
        length_ = 1;
    }

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
    uint32_t capacity_;  // bytes of text, as getCapacity() returns it
    char inline_[kDefaultLength + 1];
    uint32_t room_;  // bytes of text that fit into the buffer, which has one more byte: the
                     // capacity, or more while the text grows
};
