// text_order: sorts strings by their bytes.
//
// Compares eight bytes at a time: a record holds the bytes of its string at one depth as a number.
// Strings whose bytes are equal at that depth form a group, which is sorted by the next eight
// bytes. The common prefix of all strings is skipped.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <bit>
#include <utility>

namespace zsorting {

/// A string up to its first zero byte or up to `length`. A zero byte follows the last byte.
struct Text {
    char const* bytes;
    size_t length;
};

struct Record {
    uint64_t key;             // eight bytes of the string, the first one most significant
    uint32_t text;            // number of the string
    uint32_t equalsPrevious;  // 1 if the string equals the string of the previous record
};

/// Returns the eight bytes of `text` from `depth` on as a number; past its end, bytes are 0.
/// range   the string has at least `depth` bytes.
inline uint64_t keyOf(Text text, size_t depth)
{
    auto const bigEndian = [](auto word) {
        if constexpr (std::endian::native == std::endian::little)
            return sizeof word == 8 ? __builtin_bswap64(word)
                                    : __builtin_bswap32(static_cast<uint32_t>(word));
        return uint64_t{word};
    };
    char const* const bytes = text.bytes + depth;
    size_t const length = text.length - depth;
    uint64_t key = 0;
    if (length >= 8) {
        memcpy(&key, bytes, 8);
        key = bigEndian(key);
    } else if (length >= 4) {
        uint32_t first, last;
        memcpy(&first, bytes, 4);
        memcpy(&last, bytes + length - 4, 4);
        key = bigEndian(first) << 32 | bigEndian(last) << (8 * (8 - length));
    } else {
        for (size_t i = 0; i < length; ++i)
            key |= uint64_t{static_cast<unsigned char>(bytes[i])} << (56 - 8 * i);
    }
    // The top bit of each zero byte.
    constexpr uint64_t kLow = 0x7F7F7F7F7F7F7F7F;
    uint64_t const zeros = ~(((key & kLow) + kLow) | key | kLow);
    if (zeros == 0)
        return key;
    auto const used = static_cast<unsigned>(std::countl_zero(zeros));  // bits before the zero byte
    return used == 0 ? 0 : key & ~uint64_t{0} << (64 - used);
}

/// Whether the string of a record with this key ends within the key.
inline bool endsWithin(uint64_t key)
{
    return (key & 0xFF) == 0;
}

/// Returns the length of the common prefix of the strings, at most `most`.
inline size_t commonPrefix(Text one, Text other, size_t most)
{
    most = std::min({most, one.length, other.length});
    return static_cast<size_t>(std::mismatch(one.bytes, one.bytes + most, other.bytes).first -
                               one.bytes);
}

/// Records are sorted by the bytes of their keys from this number on.
constexpr ptrdiff_t kMinDigitSort = 400;

// The number of keys with each value of each byte.
constexpr size_t kDigits = 256;
struct DigitCounts {
    uint32_t counts[8][kDigits];
};

/// Sorts records by their strings. `Texts` has a function `text(number)`.
template <class Texts>
class TextOrder {
public:
    /// range   `spare` has the capacity of all records that are sorted, and `digits` is not null,
    ///         unless there are fewer than kMinDigitSort.
    TextOrder(Texts const& texts, Record* spare, DigitCounts* digits)
        : texts_(texts), spare_(spare), digits_(digits)
    {
    }

    /// Sorts the records from `begin` to `end`, whose strings have the first `depth` bytes in
    /// common.
    void sort(Record* begin, Record* end, size_t depth)
    {
        while (end - begin > kShort) {
            loadKeys(begin, end, depth);
            sortByKey(begin, end);
            Record* next = end;
            Record* nextEnd = end;
            forEachGroup(begin, end, [&](Record* first, Record* last) {
                if (last - first > nextEnd - next) {
                    next = first;
                    nextEnd = last;
                }
            });
            // The loop sorts the largest group; the others have at most half of the records, so
            // that the recursion is never deep.
            forEachGroup(begin, end, [&](Record* first, Record* last) {
                if (first != next)
                    sort(first, last, depth + 8);
            });
            depth += 8;
            if (next == begin && nextEnd == end)
                depth = commonDepth(begin, end, depth);
            begin = next;
            end = nextEnd;
        }
        if (begin < end)
            sortShort(begin, end, depth);
    }

    /// Whether two of the sorted strings are equal.
    bool hasEquals() const { return hasEquals_; }

private:
    static constexpr ptrdiff_t kShort = 8;  // sorted by comparing whole strings

    void loadKeys(Record* begin, Record* end, size_t depth) const
    {
        for (Record* record = begin; record < end; ++record)
            record->key = keyOf(texts_.text(record->text), depth);
    }

    // The length of the common prefix of all strings, which is at least `depth`.
    size_t commonDepth(Record const* begin, Record const* end, size_t depth) const
    {
        Text const first = texts_.text(begin->text);
        size_t common = depth + strnlen(first.bytes + depth, first.length - depth);
        for (Record const* record = begin + 1; record < end && common > depth; ++record) {
            Text const text = texts_.text(record->text);
            common =
                depth + commonPrefix({first.bytes + depth, first.length - depth},
                                     {text.bytes + depth, text.length - depth}, common - depth);
        }
        return common;
    }

    // Calls `visit` for each group of two or more records with equal keys whose strings continue
    // after the key. Marks the records whose strings end within equal keys.
    template <class Visit>
    void forEachGroup(Record* begin, Record* end, Visit visit)
    {
        for (Record* first = begin; first < end;) {
            Record* last = first + 1;
            while (last < end && last->key == first->key)
                ++last;
            if (last - first > 1) {
                if (endsWithin(first->key))
                    markEquals(first, last);
                else
                    visit(first, last);
            }
            first = last;
        }
    }

    void markEquals(Record* first, Record* last)
    {
        hasEquals_ = true;
        for (Record* record = first + 1; record < last; ++record)
            record->equalsPrevious = 1;
    }

    void sortShort(Record* begin, Record* end, size_t depth)
    {
        auto const compare = [&](Record const& left, Record const& right) {
            return strcmp(texts_.text(left.text).bytes + depth,
                          texts_.text(right.text).bytes + depth);
        };
        for (Record* sorted = begin + 1; sorted < end; ++sorted) {
            Record const record = *sorted;
            Record* at = sorted;
            for (; at > begin && compare(at[-1], record) > 0; --at)
                *at = at[-1];
            *at = record;
        }
        for (Record* record = begin + 1; record < end; ++record) {
            if (compare(record[-1], *record) == 0)
                markEquals(record - 1, record + 1);
        }
    }

    void sortByKey(Record* begin, Record* end)
    {
        if (end - begin < kMinDigitSort)
            std::sort(begin, end,
                      [](Record const& left, Record const& right) { return left.key < right.key; });
        else
            sortByDigits(begin, end);
    }

    // Radix sort by the bytes of the keys, the least significant one first.
    void sortByDigits(Record* begin, Record* end)
    {
        auto const count = static_cast<size_t>(end - begin);
        auto& counts = digits_->counts;
        memset(counts, 0, sizeof counts);
        for (Record const* record = begin; record < end; ++record) {
            for (unsigned byte = 0; byte < 8; ++byte)
                ++counts[byte][digit(*record, byte)];
        }
        Record* from = begin;
        Record* to = spare_;
        for (unsigned byte = 0; byte < 8; ++byte) {
            uint32_t* const starts = counts[byte];
            if (starts[digit(*from, byte)] == count)
                continue;  // all keys have the same byte
            uint32_t start = 0;
            for (size_t i = 0; i < kDigits; ++i)
                start += std::exchange(starts[i], start);
            for (size_t i = 0; i < count; ++i)
                to[starts[digit(from[i], byte)]++] = from[i];
            std::swap(from, to);
        }
        if (from != begin)
            std::copy(from, from + count, begin);
    }

    static unsigned digit(Record const& record, unsigned byte)
    {
        return static_cast<unsigned>(record.key >> (8 * byte)) & (kDigits - 1);
    }

    Texts const& texts_;
    Record* const spare_;
    DigitCounts* const digits_;
    bool hasEquals_ = false;
};

}  // namespace zsorting
