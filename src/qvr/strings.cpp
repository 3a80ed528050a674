#include <sys/random.h>

#include <bit>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

#include "codeset_p.h"

// Strings are scanned in units: whole characters, and single invalid bytes between them. Two units
// are equal if their bytes are.

namespace qvr {
namespace {

constinit thread_local char* rest_ = nullptr;  // where qvr_strtok continues

using Unit = std::string_view;

Unit unitAt(qvr_cs const& cs, char const* s)
{
    return {s, *s == 0 ? 0 : unitLength(cs, bytes(s))};  // empty at the terminator
}

Unit nextUnit(qvr_cs const& cs, Unit unit)
{
    return unitAt(cs, unit.data() + unit.size());
}

bool isAscii(char const* s)
{
    for (; *s != 0; ++s)
        if (static_cast<unsigned char>(*s) >= 0x80)
            return false;
    return true;
}

// Returns whether the bytewise function of libc gives the same result. In UTF-8 it does for ASCII:
// no byte below 0x80 is part of a longer character.
bool isBytewise(qvr_cs const& cs, char const* set)
{
    return cs.kind == Kind::singleByte || (cs.kind == Kind::utf8 && isAscii(set));
}

bool isBytewise(qvr_cs const& cs, char c)
{
    return cs.kind == Kind::singleByte || c == 0 ||
           (cs.kind == Kind::utf8 && static_cast<unsigned char>(c) < 0x80);
}

bool isIn(qvr_cs const& cs, Unit unit, char const* set)
{
    for (Unit member = unitAt(cs, set); !member.empty(); member = nextUnit(cs, member))
        if (member == unit)
            return true;
    return false;
}

// The set of the units of a string. A unit of more than one byte is stored as an integer: at most
// eight bytes, none of them zero, padded with zeros, so the integer is unique. Integers are in a
// hash table with open addressing, single bytes in a table of flags. The hash is multiplicative
// with a random factor per process: no input can be crafted to collide. Most sets fit into the
// object. Without memory for a larger table the string itself is searched, because the callers
// cannot fail.
class UnitSet {
public:
    UnitSet(qvr_cs const& cs, char const* set) : cs_(cs), set_(set)
    {
        size_t longer = 0;
        for (Unit unit = unitAt(cs, set); !unit.empty(); unit = nextUnit(cs, unit)) {
            if (unit.size() == 1)
                single_[byteOf(unit)] = true;
            else
                ++longer;
        }
        size_t slots = kInlineSlots;
        while (slots < 2 * longer)
            slots *= 2;
        mask_ = slots - 1;
        if (slots > kInlineSlots) {
            heapSlots_.reset(static_cast<uint64_t*>(std::calloc(slots, sizeof(uint64_t))));
            slots_ = heapSlots_.get();
        }
        if (longer == 0 || slots_ == nullptr)
            return;
        for (Unit unit = unitAt(cs, set); !unit.empty(); unit = nextUnit(cs, unit))
            if (unit.size() > 1)
                slots_[slotOf(numberOf(unit))] = numberOf(unit);
    }

    bool contains(Unit unit) const
    {
        if (unit.size() == 1)
            return single_[byteOf(unit)];
        if (slots_ == nullptr)
            return isIn(cs_, unit, set_);
        return slots_[slotOf(numberOf(unit))] != 0;
    }

private:
    static constexpr size_t kInlineSlots = 64;
    static_assert(qvrMbLenMax <= sizeof(uint64_t));

    // A random odd number; without entropy, one from the load address of the library. The library
    // above has the same function in text/character_set.h, which these services may not include.
    static uint64_t factor()
    {
        static uint64_t const drawn = [] {
            uint64_t number = 0;
            if (getrandom(&number, sizeof number, GRND_NONBLOCK) != sizeof number)
                number = 0x9E3779B97F4A7C15u ^ reinterpret_cast<uintptr_t>(&numberOf);
            return number | 1;
        }();
        return drawn;
    }

    static unsigned char byteOf(Unit unit) { return static_cast<unsigned char>(unit[0]); }
    static uint64_t numberOf(Unit unit)
    {
        uint64_t number = 0;
        std::memcpy(&number, unit.data(), unit.size());
        return number;
    }
    // The slot of the number, or the free slot where it would be inserted.
    size_t slotOf(uint64_t number) const
    {
        size_t slot = number * factor() >> (64 - std::popcount(mask_));
        while (slots_[slot] != 0 && slots_[slot] != number)
            slot = (slot + 1) & mask_;
        return slot;
    }

    qvr_cs const& cs_;
    char const* const set_;
    bool single_[256] = {};
    uint64_t inlineSlots_[kInlineSlots] = {};
    std::unique_ptr<uint64_t, decltype(&std::free)> heapSlots_{nullptr, std::free};
    uint64_t* slots_ = inlineSlots_;  // 0: a free slot
    size_t mask_ = 0;                 // number of slots - 1; at least half of them are free
};

// Returns the first unit of `s` whose membership in `set` is `wanted`, or the terminator. The first
// few units are searched in the string of the set: a scan that ends soon needs no table.
char const* findInSet(qvr_cs const& cs, char const* s, char const* set, bool wanted)
{
    constexpr int kFewUnits = 4;
    Unit unit = unitAt(cs, s);
    for (int i = 0; i < kFewUnits; ++i) {
        if (unit.empty() || isIn(cs, unit, set) == wanted)
            return unit.data();
        unit = nextUnit(cs, unit);
    }
    UnitSet const units(cs, set);
    while (!unit.empty() && units.contains(unit) != wanted)
        unit = nextUnit(cs, unit);
    return unit.data();
}

char const* skipMembers(qvr_cs const& cs, char const* s, char const* set)
{
    return isBytewise(cs, set) ? s + std::strspn(s, set) : findInSet(cs, s, set, false);
}

char const* skipNonMembers(qvr_cs const& cs, char const* s, char const* set)
{
    return isBytewise(cs, set) ? s + std::strcspn(s, set) : findInSet(cs, s, set, true);
}

// Returns the first occurrence in `s` of the `length` bytes of `needle`; null if not found.
// strstr() of the C library restarts the comparison of a long needle at each position. memmem()
// does not, but needs the length of the haystack: only the part that is searched is measured.
char const* findText(char const* s, char const* needle, size_t length)
{
    constexpr size_t kShortNeedle = 32;
    if (length <= kShortNeedle)
        return std::strstr(s, needle);
    for (size_t window = 4 * length;; window *= 2) {
        size_t const measured = strnlen(s, window);
        if (void const* const found = memmem(s, measured, needle, length))
            return static_cast<char const*>(found);
        if (measured < window)
            return nullptr;
        s += measured - (length - 1);
    }
}

// Finds the unit boundaries of a string. Measures each byte once, so positions must ascend.
class Boundaries {
public:
    Boundaries(qvr_cs const& cs, char const* s) : cs_(cs), at_(s) {}

    bool contains(char const* position)
    {
        while (at_ < position)
            at_ += unitLength(cs_, bytes(at_));
        return at_ == position;
    }

private:
    qvr_cs const& cs_;
    char const* at_;
};

// Returns the first position, from the unit boundary `from` on, at which the bytes of `needle`
// start and end at unit boundaries; null if not found. The needle then occurs there unit by unit.
//
// `border` is the failure function of the needle: after a partial match, the length of its longest
// proper suffix that is also a prefix. The match resumes from there, so no byte of the string is
// compared twice.
char const* findBytes(qvr_cs const& cs, char const* from, char const* needle, size_t const* border)
{
    size_t const length = std::strlen(needle);
    Boundaries begins(cs, from);
    Boundaries ends(cs, from);
    size_t matched = 0;
    for (char const* at = from; *at != 0; ++at) {
        while (matched > 0 && (matched == length || *at != needle[matched]))
            matched = border[matched];
        matched += *at == needle[matched];
        if (matched == length && begins.contains(at + 1 - length) && ends.contains(at + 1))
            return at + 1 - length;
    }
    return nullptr;
}

// For each prefix of `needle`, the length of its longest proper suffix that is also a prefix. Null
// if memory is short.
std::unique_ptr<size_t, decltype(&std::free)> bordersOf(char const* needle)
{
    size_t const length = std::strlen(needle);
    std::unique_ptr<size_t, decltype(&std::free)> borders(
        static_cast<size_t*>(std::calloc(length + 1, sizeof(size_t))), std::free);
    size_t* const border = borders.get();
    size_t matched = 0;
    for (size_t i = 1; border != nullptr && i < length; ++i) {
        while (matched > 0 && needle[i] != needle[matched])
            matched = border[matched];
        matched += needle[i] == needle[matched];
        border[i + 1] = matched;
    }
    return borders;
}

// Returns the first occurrence in `s` of the units of `needle`. If its bytes occur repeatedly off
// boundaries, a search with a table of the needle takes over. Without memory for the table every
// occurrence is checked, because this function cannot fail.
char const* findUnits(qvr_cs const& cs, char const* s, char const* needle)
{
    constexpr int kFewMatches = 4;
    constexpr size_t kShortNeedle = 16;
    size_t const length = std::strlen(needle);
    Boundaries begins(cs, s);
    Boundaries ends(cs, s);
    char const* from = s;
    for (int i = 0;; ++i) {
        char const* const found = findText(from, needle, length);
        if (found == nullptr || (begins.contains(found) && ends.contains(found + length)))
            return found;
        from = found + 1;
        if (i == kFewMatches && length > kShortNeedle) {
            while (!begins.contains(from))
                ++from;
            if (auto const borders = bordersOf(needle))
                return findBytes(cs, from, needle, borders.get());
        }
    }
}

bool isValidUtf8(char const* s)
{
    while (*s != 0) {
        int const length = decodeUtf8(bytes(s), SIZE_MAX).length;
        if (length < 0)
            return false;
        s += length;
    }
    return true;
}

// Returns the length of the whole units in the first `n` bytes of `s`. Reads no byte past them.
size_t wholeUnits(qvr_cs const& cs, char const* s, size_t n)
{
    size_t length = 0;
    while (length < n && s[length] != 0) {
        int const step = decode(cs, bytes(s) + length, n - length).length;
        if (step == kTruncated)
            break;
        length += step > 0 ? static_cast<size_t>(step) : 1;
    }
    return length;
}

char* writable(char const* s)
{
    return const_cast<char*>(s);  // as the functions of <string.h> do
}

}  // namespace
}  // namespace qvr

using namespace qvr;

char* qvr_strstr(qvr_cs_t cs, char const* s, char const* needle)
{
    if (cs == nullptr || s == nullptr || needle == nullptr)
        return nullptr;
    // In UTF-8 a whole character never occurs inside another one or across two.
    if (cs->kind == Kind::singleByte || (cs->kind == Kind::utf8 && isValidUtf8(needle)))
        return writable(findText(s, needle, std::strlen(needle)));
    if (*needle == 0)
        return writable(s);
    return writable(findUnits(*cs, s, needle));
}

char* qvr_strpbrk(qvr_cs_t cs, char const* s, char const* set)
{
    if (cs == nullptr || s == nullptr || set == nullptr)
        return nullptr;
    char const* const found = skipNonMembers(*cs, s, set);
    return *found == 0 ? nullptr : writable(found);
}

char* qvr_strtok(qvr_cs_t cs, char* s, char const* delimiters)
{
    if (cs == nullptr || delimiters == nullptr)
        return nullptr;
    if (s == nullptr)
        s = rest_;
    rest_ = nullptr;
    if (s == nullptr)
        return nullptr;
    char* const token = writable(skipMembers(*cs, s, delimiters));
    if (*token == 0)
        return nullptr;
    char* const end = writable(skipNonMembers(*cs, token, delimiters));
    if (*end != 0) {
        rest_ = end + unitLength(*cs, bytes(end));
        *end = 0;
    }
    return token;
}

size_t qvr_strspn(qvr_cs_t cs, char const* s, char const* set)
{
    if (cs == nullptr || s == nullptr || set == nullptr)
        return 0;
    return static_cast<size_t>(skipMembers(*cs, s, set) - s);
}

size_t qvr_strcspn(qvr_cs_t cs, char const* s, char const* set)
{
    if (cs == nullptr || s == nullptr || set == nullptr)
        return 0;
    return static_cast<size_t>(skipNonMembers(*cs, s, set) - s);
}

char* qvr_strncat(qvr_cs_t cs, char* dst, char const* src, size_t n)
{
    if (cs == nullptr || dst == nullptr || src == nullptr)
        return nullptr;
    size_t const length = wholeUnits(*cs, src, n);
    char* const end = dst + std::strlen(dst);
    std::memcpy(end, src, length);
    end[length] = 0;
    return dst;
}

char* qvr_strncpy(qvr_cs_t cs, char* dst, char const* src, size_t n)
{
    if (cs == nullptr || dst == nullptr || src == nullptr)
        return nullptr;
    size_t const length = wholeUnits(*cs, src, n);
    std::memcpy(dst, src, length);
    std::memset(dst + length, 0, n - length);
    return dst;
}

char* qvr_strrchr(qvr_cs_t cs, char const* s, int c)
{
    if (cs == nullptr || s == nullptr)
        return nullptr;
    char const wanted = static_cast<char>(c);
    if (isBytewise(*cs, wanted))
        return writable(std::strrchr(s, wanted));
    char const* found = nullptr;
    for (Unit unit = unitAt(*cs, s); !unit.empty(); unit = nextUnit(*cs, unit))
        if (unit.size() == 1 && unit[0] == wanted)
            found = unit.data();
    return writable(found);
}

char* qvr_strchr(qvr_cs_t cs, char const* s, int c)
{
    if (cs == nullptr || s == nullptr)
        return nullptr;
    char const wanted = static_cast<char>(c);
    if (isBytewise(*cs, wanted))
        return writable(std::strchr(s, wanted));
    for (Unit unit = unitAt(*cs, s); !unit.empty(); unit = nextUnit(*cs, unit))
        if (unit.size() == 1 && unit[0] == wanted)
            return writable(unit.data());
    return nullptr;
}
