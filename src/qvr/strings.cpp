#include <sys/random.h>

#include <bit>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

#include "codeset_p.h"

// Text is walked in units: whole characters, and single invalid bytes between them. Two units are
// the same when their bytes are.

namespace qvr {
namespace {

constinit thread_local char* rest_ = nullptr;  // where qvr_strtok goes on

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

// Whether libc's function, which takes each byte for a character, gives the same answer: in UTF-8
// no byte below 0x80 is a part of a longer character.
bool isForLibc(qvr_cs const& cs, char const* set)
{
    return cs.kind == Kind::singleByte || (cs.kind == Kind::utf8 && isAscii(set));
}

bool isForLibc(qvr_cs const& cs, char c)
{
    return cs.kind == Kind::singleByte || c == 0 ||
           (cs.kind == Kind::utf8 && static_cast<unsigned char>(c) < 0x80);
}

bool isIn(qvr_cs const& cs, Unit unit, char const* set)
{
    for (Unit each = unitAt(cs, set); !each.empty(); each = nextUnit(cs, each))
        if (each == unit)
            return true;
    return false;
}

// The units of a text as a set. A unit has few bytes and none of them is zero, so filled up with
// zeros its bytes are a number of its own: a hash table with open addressing finds the units of
// more than one byte, a table of flags the others. The process draws the factor of the hash, so
// that nobody can choose characters that crowd together in the table. Most sets fit into the
// object. Without memory for a larger one the text itself is searched: these functions cannot fail.
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
        size_t slots = kOwnSlots;
        while (slots < 2 * longer)
            slots *= 2;
        mask_ = slots - 1;
        if (slots > kOwnSlots) {
            more_.reset(static_cast<uint64_t*>(std::calloc(slots, sizeof(uint64_t))));
            numbers_ = more_.get();
        }
        if (longer == 0 || numbers_ == nullptr)
            return;
        for (Unit unit = unitAt(cs, set); !unit.empty(); unit = nextUnit(cs, unit))
            if (unit.size() > 1)
                numbers_[slotOf(numberOf(unit))] = numberOf(unit);
    }

    bool has(Unit unit) const
    {
        if (unit.size() == 1)
            return single_[byteOf(unit)];
        if (numbers_ == nullptr)
            return isIn(cs_, unit, set_);
        return numbers_[slotOf(numberOf(unit))] != 0;
    }

private:
    static constexpr size_t kOwnSlots = 64;
    static_assert(qvrMbLenMax <= sizeof(uint64_t));

    // A random odd number. Without one at hand the place of this library in memory will do.
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
    // Where the number is, or the free slot where it would be.
    size_t slotOf(uint64_t number) const
    {
        size_t slot = number * factor() >> (64 - std::popcount(mask_));
        while (numbers_[slot] != 0 && numbers_[slot] != number)
            slot = (slot + 1) & mask_;
        return slot;
    }

    qvr_cs const& cs_;
    char const* const set_;
    bool single_[256] = {};
    uint64_t own_[kOwnSlots] = {};
    std::unique_ptr<uint64_t, decltype(&std::free)> more_{nullptr, std::free};
    uint64_t* numbers_ = own_;  // 0: a free slot
    size_t mask_ = 0;           // slots - 1, of which at least half are free
};

// The first unit of `s` for which being in `set` is `wanted`; its terminator when there is none.
// The first units are looked for in the text of the set: a walk that ends soon needs no table.
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
    while (!unit.empty() && units.has(unit) != wanted)
        unit = nextUnit(cs, unit);
    return unit.data();
}

char const* skip(qvr_cs const& cs, char const* s, char const* set)
{
    return isForLibc(cs, set) ? s + std::strspn(s, set) : findInSet(cs, s, set, false);
}

char const* skipOther(qvr_cs const& cs, char const* s, char const* set)
{
    return isForLibc(cs, set) ? s + std::strcspn(s, set) : findInSet(cs, s, set, true);
}

// The first place in `s` of the `length` bytes of `needle`; null when there is none. The C
// library's strstr() compares a long needle anew at every place, its memmem() does not, but wants
// to know the length of the text: the text is measured no further than it is searched.
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

// Walks a text to see where its units begin. Each byte is measured once, so places come in order.
class Boundaries {
public:
    Boundaries(qvr_cs const& cs, char const* s) : cs_(cs), at_(s) {}

    bool has(char const* place)
    {
        while (at_ < place)
            at_ += unitLength(cs_, bytes(at_));
        return at_ == place;
    }

private:
    qvr_cs const& cs_;
    char const* at_;
};

// The first place at or behind `from`, a boundary in the text, where the bytes of `needle` begin
// and end at boundaries; null when there is none. Bytes that do have the same units.
//
// After a partial match, `border` is the length of its longest suffix that is also a prefix:
// the match goes on from there and looks at no byte of the text twice.
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
        if (matched == length && begins.has(at + 1 - length) && ends.has(at + 1))
            return at + 1 - length;
    }
    return nullptr;
}

// For each length of a beginning of `needle`, the length of its longest end, other than itself,
// that is a beginning, too. Null without memory.
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

// The first place in `s` where the units of `needle` are. Where its bytes keep on occurring other
// than between boundaries, a table of the needle takes over. Without memory for it each occurrence
// is looked at: this cannot fail.
char const* findUnits(qvr_cs const& cs, char const* s, char const* needle)
{
    constexpr int kFewPlaces = 4;
    constexpr size_t kShortNeedle = 16;
    size_t const length = std::strlen(needle);
    Boundaries begins(cs, s);
    Boundaries ends(cs, s);
    char const* from = s;
    for (int i = 0;; ++i) {
        char const* const found = findText(from, needle, length);
        if (found == nullptr || (begins.has(found) && ends.has(found + length)))
            return found;
        from = found + 1;
        if (i == kFewPlaces && length > kShortNeedle) {
            while (!begins.has(from))
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

// The length of as many whole units of `s` as `n` bytes hold, of which none behind is read.
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
    // In UTF-8 no whole character lies inside another one, nor across two.
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
    char const* const found = skipOther(*cs, s, set);
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
    char* const token = writable(skip(*cs, s, delimiters));
    if (*token == 0)
        return nullptr;
    char* const end = writable(skipOther(*cs, token, delimiters));
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
    return static_cast<size_t>(skip(*cs, s, set) - s);
}

size_t qvr_strcspn(qvr_cs_t cs, char const* s, char const* set)
{
    if (cs == nullptr || s == nullptr || set == nullptr)
        return 0;
    return static_cast<size_t>(skipOther(*cs, s, set) - s);
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
    if (isForLibc(*cs, wanted))
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
    if (isForLibc(*cs, wanted))
        return writable(std::strchr(s, wanted));
    for (Unit unit = unitAt(*cs, s); !unit.empty(); unit = nextUnit(*cs, unit))
        if (unit.size() == 1 && unit[0] == wanted)
            return writable(unit.data());
    return nullptr;
}
