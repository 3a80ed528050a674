#include "ZAbstractMutableString.h"

#include <ctype.h>
#include <limits.h>
#include <stdarg.h>
#include <stdlib.h>

#include <algorithm>
#include <charconv>
#include <istream>
#include <utility>

#include "qvr.h"

#include "ZException.h"
#include "ZLCString.h"
#include "ZStringIterator.h"
#include "text/character_set.h"
#include "text/search.h"
#include "zqvrutil.h"
#include "zsnprintf.h"

namespace {

constexpr char kSource[] = "src/Z/ZAbstractMutableString";

// Stable ids in reports; log scanners match them. See docs/failures.md.
enum RaiseSite { raiseInBump = 436, raiseInCharacterLength = 512 };

constexpr size_t kMaxLength = 0xFFFFFFFE;  // 32 bits, less one byte for the terminator
constexpr size_t kOutside = SIZE_MAX;
constexpr size_t kMaxCharacterSize = ztext::CharacterSet::kMaxCharacterSize;

// Below this size a growing buffer doubles. realloc() moves larger blocks without copying.
constexpr size_t kDoublingLimit = 1 << 20;

// Returns the new capacity if `required` bytes do not fit.
size_t grownCapacity(size_t required, bool exact)
{
    if (required > kMaxLength)
        ZOutOfMemoryException_6_0().throwException(kSource, raiseInBump);
    return exact ? required : std::min(required + (required + 7) / 5, kMaxLength);
}

// Allocates or grows `block` to hold `room` bytes and a terminator. On failure `block` is
// unchanged.
char* allocate(void* block, size_t room)
{
    void* const grown = realloc(block, room + 1);
    if (grown == nullptr)
        ZOutOfMemoryException_6_0().throwException(kSource, raiseInBump);
    return static_cast<char*>(grown);
}

// Returns the offset of `bytes` in the `room` + 1 bytes at `text`, kOutside if it is not in them.
size_t offsetIn(char const* text, size_t room, char const* bytes)
{
    auto const offset = reinterpret_cast<uintptr_t>(bytes) - reinterpret_cast<uintptr_t>(text);
    return offset <= room ? offset : kOutside;
}

bool isSpace(char c)
{
    return isspace(static_cast<unsigned char>(c)) != 0;
}

// Returns the length of the character at `text`, of which `left` bytes remain; 0 at the end.
size_t characterLength(qvr_cs const* cs, char const* text, size_t left)
{
    if (left == 0 || *text == 0)
        return 0;
    int const length = zmblen_6_0(cs, text, left);
    if (length < 1 || static_cast<size_t>(length) > std::min(left, kMaxCharacterSize))
        ZQVRMBLenException_6_0().throwException(kSource, raiseInCharacterLength);
    return static_cast<size_t>(length);
}

// The functions below build their result in a ZLCString_6_0, whatever the codeset: it is a buffer
// that frees itself.

void addTo(ztext::CharacterSet& set, char const* character, size_t length)
{
    if (!set.add(character, length))
        ZOutOfMemoryException_6_0().throwException(kSource, raiseInBump);
}

template <class Number>
size_t writeDecimal(char (&digits)[24], Number number)
{
    return static_cast<size_t>(std::to_chars(digits, digits + sizeof digits, number).ptr - digits);
}

}  // namespace

ZAbstractMutableString_6_0::ZAbstractMutableString_6_0(int number)
{
    init();
    *this = number;
}

ZAbstractMutableString_6_0::ZAbstractMutableString_6_0(unsigned int number)
{
    init();
    *this = number;
}

ZAbstractMutableString_6_0::ZAbstractMutableString_6_0(long number)
{
    init();
    *this = number;
}

ZAbstractMutableString_6_0::ZAbstractMutableString_6_0(unsigned long number)
{
    init();
    *this = number;
}

ZAbstractMutableString_6_0& ZAbstractMutableString_6_0::operator=(int number)
{
    char digits[24];
    return assign(digits, writeDecimal(digits, number));
}

ZAbstractMutableString_6_0& ZAbstractMutableString_6_0::operator=(unsigned int number)
{
    char digits[24];
    return assign(digits, writeDecimal(digits, number));
}

ZAbstractMutableString_6_0& ZAbstractMutableString_6_0::operator=(long number)
{
    char digits[24];
    return assign(digits, writeDecimal(digits, number));
}

ZAbstractMutableString_6_0& ZAbstractMutableString_6_0::operator=(unsigned long number)
{
    char digits[24];
    return assign(digits, writeDecimal(digits, number));
}

// ---- The buffer --------------------------------------------------------------------------------

// Callers see the capacity, and it grows by a fifth. The buffer is at least that large, so it moves
// only if the capacity grows; the buffer of a growing text doubles.
void ZAbstractMutableString_6_0::grow(size_t required, bool exact)
{
    size_t const capacity = grownCapacity(required, exact);
    if (capacity > room_) {
        bool const inside = text_ == inline_;
        bool const doubles = !exact && (!inside || length_ > 0) && room_ < kDoublingLimit;
        size_t const room = doubles ? std::max<size_t>(capacity, size_t{2} * room_) : capacity;
        char* const text = allocate(inside ? nullptr : text_, room);
        if (inside)
            memcpy(text, inline_, length_ + size_t{1});
        text_ = text;
        room_ = static_cast<uint32_t>(room);
    }
    capacity_ = static_cast<uint32_t>(capacity);
}

ZAbstractMutableString_6_0& ZAbstractMutableString_6_0::assignLong(char const* bytes, size_t n)
{
    size_t const capacity = grownCapacity(n, false);
    if (capacity <= room_) {
        memmove(text_, bytes, n);
    } else {
        // The old text is not needed, except if `bytes` are part of it: it is released last.
        char* const text = allocate(nullptr, capacity);
        memcpy(text, bytes, n);
        if (text_ != inline_)
            release(text_);
        text_ = text;
        room_ = static_cast<uint32_t>(capacity);
    }
    capacity_ = static_cast<uint32_t>(capacity);
    end(n);
    return *this;
}

ZAbstractMutableString_6_0& ZAbstractMutableString_6_0::appendLong(char const* bytes, size_t n)
{
    size_t const own = offsetIn(text_, room_, bytes);
    bump(length_ + n, false);
    memmove(text_ + length_, own == kOutside ? bytes : text_ + own, n);
    end(length_ + n);
    return *this;
}

// Replaces the contents with the contents of `result`. Takes over its buffer if `required` bytes
// do not fit into the own one.
ZAbstractMutableString_6_0& ZAbstractMutableString_6_0::take(ZAbstractMutableString_6_0& result,
                                                             size_t required)
{
    if (required <= capacity_)
        return assign(result.text_, result.length_);
    if (text_ != inline_)
        release(text_);
    text_ = result.text_;
    length_ = result.length_;
    capacity_ = result.capacity_;
    room_ = result.room_;
    result.init();
    return *this;
}

void ZAbstractMutableString_6_0::release(char* text)
{
    free(text);
}

// Returns whether whitespace can be searched byte by byte.
bool ZAbstractMutableString_6_0::hasOneByteSpaces() const
{
    return getCodesetHandle() == utf8_handle_ || isSingleByteLocal();
}

// ---- Overrides and slots ------------------------------------------------------------------------

ZAbstractMutableString_6_0& ZAbstractMutableString_6_0::setChars(ZAbstractString_6_0 const& other)
{
    return assign(other.getChars(), other.getLength());
}

ZAbstractMutableString_6_0& ZAbstractMutableString_6_0::replaceAll(char const* set, char b)
{
    if (set == nullptr)
        return *this;
    bool inSet[UCHAR_MAX + 1] = {};
    for (; *set != 0; ++set)
        inSet[static_cast<unsigned char>(*set)] = true;

    // KEPT: replaces bytes, also inside longer characters. A caller that cleans text of an unknown
    // codeset would see bytes left over otherwise.
    // Test: ZAbstractMutableString.KeepsReplacingBytes
    size_t kept = 0;
    for (size_t at = 0; at < length_; ++at) {
        if (!inSet[static_cast<unsigned char>(text_[at])])
            text_[kept++] = text_[at];
        else if (b != 0)
            text_[kept++] = b;
    }
    end(kept);
    return *this;
}

ZAbstractMutableString_6_0& ZAbstractMutableString_6_0::replace(char a, char b)
{
    if (a == 0)
        return *this;
    qvr_cs const* const cs = getCodesetHandle();
    int const wanted = static_cast<unsigned char>(a);
    char* found = zstrchr_6_0(cs, text_, wanted);
    if (b != 0) {
        for (; found != nullptr; found = zstrchr_6_0(cs, found + 1, wanted))
            *found = b;
        return *this;
    }

    // The text between two matches moves down over the matches before it.
    char* kept = found;
    while (found != nullptr) {
        char* const rest = found + 1;
        found = zstrchr_6_0(cs, rest, wanted);
        char const* const restEnd = found == nullptr ? text_ + length_ : found;
        auto const n = static_cast<size_t>(restEnd - rest);
        memmove(kept, rest, n);
        kept += n;
        if (found == nullptr)
            end(static_cast<size_t>(kept - text_));
    }
    return *this;
}

ZAbstractMutableString_6_0& ZAbstractMutableString_6_0::replace(char const* text, char const* by)
{
    if (text == nullptr || by == nullptr || *text == 0)
        return *this;
    qvr_cs const* const cs = getCodesetHandle();
    // In UTF-8 valid text occurs only at character boundaries.
    auto const find = [&](char const* from) -> char const* {
        return cs == utf8_handle_ ? ztext::findText(from, text) : zstrstr_6_0(cs, from, text);
    };

    size_t const textLength = strlen(text);
    size_t const byLength = strlen(by);
    size_t total = length_;
    char const* found = find(text_);
    if (found == nullptr)
        return *this;
    for (char const* at = found; at != nullptr && total <= kMaxLength; at = find(at + textLength))
        total = total - textLength + byLength;

    ZLCString_6_0 result;
    result.bump(total, false);
    char const* from = text_;
    for (; found != nullptr; found = find(from)) {
        result.appendBytes(from, static_cast<size_t>(found - from));
        result.appendBytes(by, byLength);
        from = found + textLength;
    }
    result.appendBytes(from, static_cast<size_t>(text_ + length_ - from));
    return take(result, total);
}

ZAbstractMutableString_6_0& ZAbstractMutableString_6_0::stripLeading()
{
    size_t first = 0;
    if (hasOneByteSpaces()) {
        while (isSpace(text_[first]))
            ++first;
    } else {
        qvr_cs const* const cs = getCodesetHandle();
        while (first < length_ && isSpace(text_[first]) &&
               zmblen_6_0(cs, text_ + first, length_ - first) == 1)
            ++first;
    }
    return first == 0 ? *this : assign(text_ + first, length_ - first);
}

ZAbstractMutableString_6_0& ZAbstractMutableString_6_0::stripTrailing()
{
    if (hasOneByteSpaces()) {
        // KEPT: the first byte is not examined, so one whitespace byte of an all-whitespace string
        // stays. A caller that strips only the end would see an empty string otherwise;
        // stripWhiteSpace() strips the start first.
        // Test: ZAbstractMutableString.KeepsFirstSpace
        size_t length = length_;
        while (length > 1 && isSpace(text_[length - 1]))
            --length;
        return trunc(static_cast<unsigned int>(length));
    }

    qvr_cs const* const cs = getCodesetHandle();
    size_t run = length_;  // start of the whitespace that ends at `at`
    size_t at = 0;
    while (size_t const step = characterLength(cs, text_ + at, length_ - at)) {
        if (step != 1 || !isSpace(text_[at]))
            run = length_;
        else if (run == length_)
            run = at;
        at += step;
    }
    return trunc(static_cast<unsigned int>(run));
}

ZAbstractMutableString_6_0& ZAbstractMutableString_6_0::convertFromCodeSet(
    ZAbstractString_6_0 const& source)
{
    size_t const length = source.getLength();
    if (length == 0)
        return *this;
    bool const toUTF8 = getCodesetHandle() == utf8_handle_;
    size_t const required = length * (toUTF8 ? 3 : 2) + 1;
    ZLCString_6_0 result;  // not in place: the source may view this text
    result.bump(required, true);
    ptrdiff_t const written =
        toUTF8 ? zlcs_to_utf8_6_0(source.getChars(), length, result.text_, result.capacity_)
               : zlcs_from_utf8_6_0(source.getChars(), length, result.text_, result.capacity_);
    if (written == qvrNoMemory)
        ZOutOfMemoryException_6_0().throwException(kSource, raiseInBump);
    result.end(static_cast<size_t>(std::clamp<ptrdiff_t>(written, 0, result.capacity_)));
    return take(result, required);
}

// ---- Editing ------------------------------------------------------------------------------------

ZAbstractMutableString_6_0& ZAbstractMutableString_6_0::prepend(char const* text)
{
    if (text == nullptr)
        return *this;
    size_t const n = strlen(text);
    size_t const total = n + length_;

    // The capacity of a new string after two appends: `text`, then the old contents.
    size_t capacity = kDefaultLength;
    if (n > capacity)
        capacity = grownCapacity(n, false);
    if (total > capacity)
        capacity = grownCapacity(total, false);

    char* const target = capacity > kDefaultLength ? allocate(nullptr, capacity) : inline_;
    char* const old = text_;
    size_t const own = offsetIn(old, room_, text);
    if (target == old) {
        memmove(old + n, old, length_);
        memmove(old, own == kOutside ? text : text + n, n);
    } else {
        memmove(target, text, n);
        memcpy(target + n, old, length_);
        if (old != inline_)
            release(old);
    }
    text_ = target;
    capacity_ = static_cast<uint32_t>(capacity);
    room_ = capacity_;
    end(total);
    return *this;
}

ZAbstractMutableString_6_0& ZAbstractMutableString_6_0::insert(unsigned int pos, char const* text)
{
    if (text == nullptr || pos > length_)
        return *this;
    size_t const n = strlen(text);
    size_t const own = offsetIn(text_, room_, text);
    bump(length_ + n, false);
    memmove(text_ + pos + n, text_ + pos, length_ - pos);
    if (own == kOutside) {
        memcpy(text_ + pos, text, n);
    } else {
        // `text` is part of this string: its bytes from `pos` on have just moved by n.
        size_t const before = own < pos ? std::min(n, pos - own) : 0;
        memcpy(text_ + pos, text_ + own, before);
        memcpy(text_ + pos + before, text_ + own + before + n, n - before);
    }
    end(length_ + n);
    length_ = static_cast<uint32_t>(strlen(text_));
    return *this;
}

ZAbstractMutableString_6_0& ZAbstractMutableString_6_0::remove(unsigned int pos, unsigned int n)
{
    if (n == 0)
        return trunc(pos);
    if (n <= length_ && pos <= length_ - n) {
        memmove(text_ + pos, text_ + pos + n, length_ - pos - n);
        end(length_ - n);
    }
    return *this;
}

ZAbstractMutableString_6_0& ZAbstractMutableString_6_0::lower()
{
    zstrlower_6_0(getCodesetHandle(), text_);
    return *this;
}

ZAbstractMutableString_6_0& ZAbstractMutableString_6_0::upper()
{
    zstrupper_6_0(getCodesetHandle(), text_);
    return *this;
}

ZAbstractMutableString_6_0& ZAbstractMutableString_6_0::stripWhiteSpace()
{
    stripLeading();
    return stripTrailing();
}

ZAbstractMutableString_6_0& ZAbstractMutableString_6_0::replaceNoneOf(
    ZStringIterator_6_0& characters, char const* set, char const* replacement)
{
    if (set == nullptr || replacement == nullptr)
        return *this;
    qvr_cs const* const cs = getCodesetHandle();
    ztext::CharacterSet kept;
    size_t left = strlen(set);
    while (size_t const step = characterLength(cs, set, left)) {
        addTo(kept, set, step);
        set += step;
        left -= step;
    }

    ZLCString_6_0 result;
    characters.reset();
    while (characters.hasMore()) {
        ZAbstractMutableString_6_0 const& character = *characters.getNext();
        if (kept.contains(character.text_, character.length_))
            result.append(character.text_, character.length_);
        else
            result.append(replacement);
    }
    assign(result.text_, result.length_);
    characters.reset();  // it may point into the replaced text
    return *this;
}

ZAbstractMutableString_6_0& ZAbstractMutableString_6_0::replaceAllOf(ZStringIterator_6_0& set,
                                                                     char const* replacement)
{
    if (replacement == nullptr)
        return *this;
    ztext::CharacterSet replaced;
    set.reset();
    if (!set.hasMore())
        return *this;
    while (set.hasMore()) {
        ZAbstractMutableString_6_0 const& character = *set.getNext();
        addTo(replaced, character.text_, character.length_);
    }

    qvr_cs const* const cs = getCodesetHandle();
    ZLCString_6_0 result;
    size_t at = 0;
    while (size_t const step = characterLength(cs, text_ + at, length_ - at)) {
        if (replaced.contains(text_ + at, step))
            result.append(replacement);
        else
            result.append(text_ + at, static_cast<unsigned int>(step));
        at += step;
    }
    return assign(result.text_, result.length_);
}

std::istream& ZAbstractMutableString_6_0::readLine(std::istream& stream, int skipWhite)
{
    // KEPT: the flag is not cleared again. A caller that continues with >> would get the whitespace
    // otherwise.
    // Test: ZAbstractMutableString.KeepsSkipFlagOn
    if (skipWhite != 0)
        stream.setf(std::ios_base::skipws);
    clear();
    constexpr auto kEnd = std::istream::traits_type::eof();
    while (stream.peek() != kEnd) {
        char const c = static_cast<char>(stream.get());
        if (c == '\n' || c == '\r' || c == 0)
            break;
        append(c);
    }
    return stream;
}

ZAbstractMutableString_6_0& ZAbstractMutableString_6_0::format(char const* format, ...)
{
    if (format == nullptr)
        return *this;
    // Not formatted in place: arguments may point into the string's own text.
    char shortResult[512];
    va_list args;
    va_start(args, format);
    int const length = zvsnprintf_6_0(shortResult, sizeof shortResult, format, args);
    va_end(args);
    if (length < 0)
        return *this;
    auto const n = static_cast<size_t>(length);
    if (n < sizeof shortResult)
        return assign(shortResult, n);
    if (length == INT_MAX)
        ZOutOfMemoryException_6_0().throwException(kSource, raiseInBump);

    ZLCString_6_0 result;
    result.bump(n, false);
    va_start(args, format);
    int const again = zvsnprintf_6_0(result.text_, length + 1, format, args);
    va_end(args);
    if (again != length)
        return *this;
    result.end(n);
    return take(result, n);
}
