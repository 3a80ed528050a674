// ZStringIterator: iterates over the characters of a string, as copies or as views.
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
    bool hasMore() override { return cursor_ != nullptr && *cursor_ != 0; }

    /// Writes the next character into the target, advances and returns the target.
    /// range   at the end the target is emptied.
    /// owns    the target stays the caller's.
    /// throws  ZQVRMBLenException_6_0 at a character that cannot be measured; target and position
    ///         are unchanged.
    ZAbstractMutableString_6_0* getNext() override
    {
        // ASCII in an owned string needs no call; inline, it needs none of this function either.
        char const* const at = cursor_;
        if (at == nullptr || static_cast<signed char>(*at) <= 0 ||
            (charWidth_ & kAsciiIsWhole) == 0)
            return getNextLonger();
        target_->setByte(*at);
        cursor_ = at + 1;
        return target_;
    }

    /// Returns to the first character.
    virtual void reset();

private:
    // Flags that are added to the width of a character, about the contents of an owned source. A
    // derived class is measured, because it may override the functions that return its contents.
    static constexpr int kAsciiIsWhole = 0x100;
    static constexpr int kIsUtf8 = 0x200;

    static int flagsOf(ZUTF8String_6_0 const& source);
    static int flagsOf(ZLCString_6_0 const& source);
    ZAbstractMutableString_6_0* step(unsigned int length);
    ZAbstractMutableString_6_0* getNextLonger();
    ZAbstractMutableString_6_0* getNextMeasured();

    char const* cursor_;  // the next character, in the source's text
    ZAbstractString_6_0 const* source_;
    ZAbstractMutableString_6_0* target_;
    int charWidth_;  // 1: every character is one byte; otherwise each is measured. Plus flags
                     // for characters that need no measuring
};

/// Iterates over the characters of a string as views of its text: nothing is copied, and a step in
/// ASCII or UTF-8 makes no call.
///
///     ZCharacterViews_6_0 characters(string);
///     while (char const* character = characters.next())
///         use(character, characters.length());
class ZCharacterViews_6_0 {
public:
    /// Starts before the first character of `source`, which ends at its first zero byte.
    /// owns    the text of `source` is borrowed: it must not change during the iteration.
    explicit ZCharacterViews_6_0(ZAbstractString_6_0 const& source)
        : at_(source.getChars()),
          end_(at_ == nullptr ? nullptr : at_ + source.getLength()),
          codeset_(source.getCodesetHandle()),
          highestWhole_(highestWhole(codeset_)),
          isUtf8_(isUtf8(codeset_)),
          length_(0)
    {
    }

    /// Advances to the next character and returns it; null at the end.
    /// owns    borrowed from the source; not terminated after the character.
    /// throws  ZQVRMBLenException_6_0 at a character that cannot be measured; the next call is at
    ///         the same character.
    char const* next()
    {
        at_ += length_;
        length_ = 0;
        if (at_ == nullptr)
            return nullptr;
        auto const lead = static_cast<unsigned char>(*at_);
        if (lead - 1u < highestWhole_)
            length_ = 1;
        else if (lead == 0)
            return nullptr;
        else if (isUtf8_ && isTwoBytes(at_))
            length_ = 2;
        else if (isUtf8_ && isThreeBytes(at_))
            length_ = 3;
        else
            length_ = measure(codeset_, at_, end_);
        return at_;
    }

    /// Returns the length of the character that next() returned; 0 before the first and at the end.
    /// units   bytes.
    unsigned int length() const { return length_; }

private:
    friend class ZStringIterator_6_0;

    // Returns the highest byte that, like all below it but 0, is always a whole character; 0 if
    // none.
    static unsigned int highestWhole(qvr_cs const* codeset);
    static bool isUtf8(qvr_cs const* codeset);
    static unsigned int measure(qvr_cs const* codeset, char const* at, char const* end);

    // The usual valid characters of UTF-8. A terminator is never a trailing byte.
    static bool isTwoBytes(char const* at)
    {
        return byteAt(at) >= 0xC2 && byteAt(at) < 0xE0 && isTrailing(at + 1);
    }
    static bool isThreeBytes(char const* at)
    {
        unsigned int const lead = byteAt(at);
        if (lead < 0xE0 || lead >= 0xF0 || !isTrailing(at + 1) || !isTrailing(at + 2))
            return false;
        if (lead == 0xE0)
            return byteAt(at + 1) >= 0xA0;             // not the form of a shorter character
        return lead != 0xED || byteAt(at + 1) < 0xA0;  // not a surrogate
    }
    static bool isTrailing(char const* at) { return (byteAt(at) & 0xC0) == 0x80; }
    static unsigned int byteAt(char const* at) { return static_cast<unsigned char>(*at); }

    // All are values: a copy in registers serves as well as the object.
    char const* at_;  // the character that next() returned, or the first; null without contents
    char const* end_;
    qvr_cs const* codeset_;
    unsigned int highestWhole_;
    bool isUtf8_;
    unsigned int length_;
};
