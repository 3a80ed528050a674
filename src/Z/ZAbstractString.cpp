#include "ZAbstractString.h"

#include <limits.h>
#include <stdlib.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <typeinfo>

#include "ZException.h"
#include "text/search.h"
#include "zqvrutil.h"

namespace {

constexpr char kSource[] = "src/Z/ZAbstractString";

// Stable ids in reports; log scanners match them. See docs/failures.md.
enum RaiseSite {
    raiseInCompare = 68,
    raiseInLastIndexOf = 290,
    raiseInPosition = 301,
    raiseInLength = 412
};

constexpr size_t kMaxLength = 0xFFFFFFFE;

// Positions are signed because -1 means "not found".
int position(size_t offset)
{
    if (offset > INT_MAX)
        ZOutOfMemoryException_6_0().throwException(kSource, raiseInPosition);
    return static_cast<int>(offset);
}

// Lengths have 32 bits; the maximum is reserved for the terminator.
unsigned int lengthOf(size_t bytes)
{
    if (bytes > kMaxLength)
        ZOutOfMemoryException_6_0().throwException(kSource, raiseInLength);
    return static_cast<unsigned int>(bytes);
}

// Returns `object` as a string, null if it is not a string. Strings are mostly compared with their
// own class, and that case needs no search of the class hierarchy.
ZAbstractString_6_0 const* asString(ZAbstractString_6_0 const& self, ZObject_6_0 const& object)
{
    if (typeid(object) == typeid(self))
        return static_cast<ZAbstractString_6_0 const*>(&object);
    return dynamic_cast<ZAbstractString_6_0 const*>(&object);
}

char const* orEmpty(char const* text)
{
    return text == nullptr ? ZAbstractConstString_6_0::zemptyString : text;
}

// KEPT: the last `c` after position 0, with its position negated. A caller that negates the result
// to get the position would fail otherwise.
// Test: ZAbstractString.KeepsNegatedLast
int lastByte(char const* text, size_t length, char c)
{
    for (size_t at = length; at > 0; --at)
        if (text[at] == c)
            return -position(at);
    return -1;
}

}  // namespace

qvr_cs const* ZAbstractString_6_0::lcs_handle_ = nullptr;
qvr_cs const* ZAbstractString_6_0::utf8_handle_ = nullptr;
char const ZAbstractConstString_6_0::zemptyString[1] = "";

void ZAbstractString_6_0::initHandles()
{
    // The handles are still null while the services report that they are unavailable: the exception
    // of that report contains strings.
    qvr_cs const* const lcs = zgetLCSHandle_6_0();
    qvr_cs const* const utf8 = zgetUTF8Handle_6_0();

    // Each handle is stored once: a thread that has seen the UTF-8 handle may read both without
    // synchronisation.
    static constinit std::mutex storing;
    std::lock_guard const guard(storing);
    if (utf8_handle_ != nullptr)
        return;
    lcs_handle_ = lcs;
    std::atomic_ref(utf8_handle_).store(utf8, std::memory_order_release);
}

bool ZAbstractString_6_0::isSingleByteLocal() const
{
    return getCodesetHandle() == lcs_handle_ && MB_CUR_MAX == 1;
}

uint32_t ZAbstractString_6_0::hash() const
{
    uint32_t h = 5381;
    // Unrolled, each step has its own branch for the end, and the end of a text that is as long as
    // the last one is predicted.
#pragma GCC unroll 8
    for (char const* at = getChars(); *at != 0; ++at)
        h = (h * 33) ^ static_cast<unsigned char>(*at);
    return h;
}

int ZAbstractString_6_0::compare(ZObject_6_0 const& other) const
{
    ZAbstractString_6_0 const* const string = asString(*this, other);
    if (string == nullptr || string->getCodesetHandle() != getCodesetHandle())
        ZUnsupportedException_6_0().throwException(kSource, raiseInCompare);
    return compare(string->getChars());
}

bool ZAbstractString_6_0::equals(ZObject_6_0 const& other) const
{
    ZAbstractString_6_0 const* const string = asString(*this, other);
    if (string == nullptr)
        return false;
    // KEPT: the codesets may differ. A program that looks up a key in one codeset in a map whose
    // keys have another would not find it otherwise. Test: ZAbstractString.KeepsEqualAcrossCodesets
    size_t const length = getLength();
    return string->getLength() == length && memcmp(string->getChars(), getChars(), length) == 0;
}

int ZAbstractString_6_0::compare(char const* text) const
{
    // Equal bytes are equal in every locale, and strcmp() is cheap.
    text = orEmpty(text);
    char const* const chars = getChars();
    return strcmp(chars, text) == 0 ? 0 : strcoll(chars, text);
}

int ZAbstractString_6_0::compareignorecase(char const* text) const
{
    return zstricmp_6_0(getCodesetHandle(), getChars(), orEmpty(text));
}

unsigned int ZAbstractString_6_0::getCharCount() const
{
    // KEPT: bytes, not characters. A caller that sizes a buffer by the result would make it too
    // small otherwise.
    // Test: ZAbstractString.KeepsCountingBytes
    return lengthOf(zstrcount_6_0(getCodesetHandle(), getChars()));
}

bool ZAbstractString_6_0::contains(int c) const
{
    return strchr(getChars(), c) != nullptr;
}

bool ZAbstractString_6_0::contains(char const* text) const
{
    return text != nullptr && ztext::findText(getChars(), text) != nullptr;
}

int ZAbstractString_6_0::indexOf(int c, unsigned int from) const
{
    char const* const chars = getChars();
    char const* const found = strchr(chars + std::min(from, getLength()), c);
    return found == nullptr ? -1 : position(static_cast<size_t>(found - chars));
}

int ZAbstractString_6_0::indexOf(char const* text, unsigned int from) const
{
    if (text == nullptr)
        return -1;
    char const* const chars = getChars();
    char const* const found = ztext::findText(chars + std::min(from, getLength()), text);
    return found == nullptr ? -1 : position(static_cast<size_t>(found - chars));
}

int ZAbstractString_6_0::lastIndexOf(int c) const
{
    char const* const chars = getChars();
    size_t const length = getLength();
    if (isSingleByteLocal())
        return lastByte(chars, length, static_cast<char>(c));

    char const* last = nullptr;
    char const* found = strchr(chars, c);
    while (found != nullptr) {
        last = found;
        size_t const left = length - std::min(length, static_cast<size_t>(found - chars));
        if (left == 0 || *found == 0)
            break;
        int const step = zmblen_6_0(getCodesetHandle(), found, left);
        if (step < 1 || static_cast<size_t>(step) > left)
            ZQVRMBLenException_6_0().throwException(kSource, raiseInLastIndexOf);
        found = strchr(found + step, c);
    }
    return last == nullptr ? -1 : position(static_cast<size_t>(last - chars));
}

int ZAbstractString_6_0::lastIndexOf(char const* text) const
{
    char const* const chars = getChars();
    size_t const length = getLength();
    if (text == nullptr)
        return position(length);
    if (isSingleByteLocal())
        return lastByte(chars, length, *text);
    if (*text == 0)
        return position(length);

    size_t const step = strlen(text);
    char const* last = nullptr;
    for (char const* found = ztext::findText(chars, text); found != nullptr;
         found = ztext::findText(found + step, text))
        last = found;
    return last == nullptr ? -1 : position(static_cast<size_t>(last - chars));
}

bool ZAbstractString_6_0::beginsWith(char const* text) const
{
    if (text == nullptr)
        return true;
    return !isEmpty() && strncmp(getChars(), text, strlen(text)) == 0;
}

bool ZAbstractString_6_0::endsWith(char const* text) const
{
    if (text == nullptr)
        return true;
    size_t const tail = strlen(text);
    size_t const length = getLength();
    return tail != 0 && tail <= length && strcmp(getChars() + (length - tail), text) == 0;
}

bool ZAbstractString_6_0::equals(char const* text) const
{
    return text != nullptr && strcmp(getChars(), text) == 0;
}

bool ZAbstractString_6_0::isEmpty() const
{
    return getLength() == 0;
}

ZAbstractString_6_0::operator char const*() const
{
    return getChars();
}

char const* ZAbstractString_6_0::data() const
{
    return getChars();
}

bool ZAbstractString_6_0::beginsWithCaseIgnored(ZAbstractString_6_0 const& other) const
{
    if (isEmpty() || other.isEmpty())
        return false;
    return zstrnicmp_6_0(getCodesetHandle(), getChars(), other.getChars(), other.getLength()) == 0;
}

bool ZAbstractString_6_0::endsWithCaseIgnored(ZAbstractString_6_0 const& other) const
{
    size_t const tail = other.getLength();
    size_t const length = getLength();
    return tail != 0 && tail <= length &&
           zstrnicmp_6_0(getCodesetHandle(), getChars() + (length - tail), other.getChars(),
                         tail) == 0;
}

// ---- Views -----------------------------------------------------------------------------------

ZAbstractConstString_6_0::ZAbstractConstString_6_0(ZAbstractConstString_6_0 const& other)
    : ZAbstractString_6_0(other),
      text_(other.text_),
      length_(std::atomic_ref(other.length_).load(std::memory_order_relaxed))
{
}

ZAbstractConstString_6_0& ZAbstractConstString_6_0::operator=(ZAbstractConstString_6_0 const& other)
{
    return setChars(other);
}

ZAbstractConstString_6_0& ZAbstractConstString_6_0::operator=(char const* text)
{
    text_ = orEmpty(text);
    std::atomic_ref(length_).store(0, std::memory_order_relaxed);
    return *this;
}

char const* ZAbstractConstString_6_0::getChars() const
{
    return text_;
}

ZAbstractConstString_6_0& ZAbstractConstString_6_0::setChars(ZAbstractString_6_0 const& other)
{
    if (&other == this || other.getCodesetHandle() != getCodesetHandle())
        return *this;
    return *this = other.getChars();
}

unsigned int ZAbstractConstString_6_0::getLength() const
{
    uint32_t const known = std::atomic_ref(length_).load(std::memory_order_relaxed);
    if (known != 0)
        return known;
    unsigned int const length = lengthOf(strlen(text_));
    std::atomic_ref(length_).store(length, std::memory_order_relaxed);
    return length;
}
