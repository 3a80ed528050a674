// partition: quicksort with a prescribed partition, and merge sort where partitions do not divide.
//
// The partition decides the order of elements that compare equal, which callers see. So every sort
// of a list gives the order that this one gives, and a faster sort of elements without equals may
// take its place.
#pragma once

#include <limits.h>
#include <stddef.h>
#include <stdint.h>

#include <algorithm>
#include <bit>
#include <utility>

namespace zsorting {

// A sequence, the template parameter of the functions below, refers to elements and has the
// interface below. It is passed by value, so that the compiler keeps it in registers.
//   Element          a pointer or a number that identifies an element; null or 0 for an empty slot
//   get(at)          the element at an index; null past the end
//   swap(one, other) exchanges two elements; does nothing unless both indices are in range
//   sortsBefore(element, pivot), sortsAfter(element, pivot)
//                    the order, of elements that are not null
//   prefetch(at)     called before a scan that is likely to reach the index
//   indices(count)   a block of `count` numbers, valid until the next call; may throw
// The comparison may change the sequence, so each function reads elements again after it.

/// An unsorted range; includes both ends.
struct Range {
    int64_t low;
    int64_t high;
    int depth;  // partitions so far
};

// A range of at most this length is never merge-sorted.
constexpr int64_t kShortRange = 16;

// A scan of a range that is longer than this prefetches elements: they are not in the cache.
constexpr int64_t kLongRange = 4096;
constexpr int64_t kPrefetchDistance = 12;

/// Returns the element nearest to the index `middle`; null if all elements from index `low` to the
/// index as far after the middle are null.
template <class Sequence>
[[gnu::noinline]] typename Sequence::Element nearestElement(Sequence sequence, int64_t middle,
                                                            int64_t low)
{
    for (int64_t away = 1; middle - away >= low; ++away) {
        for (int64_t const at : {middle - away, middle + away}) {
            if (auto const element = sequence.get(static_cast<uint32_t>(at)))
                return element;
        }
    }
    return {};
}

/// Returns the pivot of a partition: the element nearest to the middle. Null if all elements, the
/// last one excepted, are null.
template <class Sequence>
[[gnu::always_inline]] inline typename Sequence::Element choosePivot(Sequence sequence, int64_t low,
                                                                     int64_t high)
{
    int64_t const middle = low + (high - low) / 2;
    if (auto const element = sequence.get(static_cast<uint32_t>(middle)))
        return element;
    return nearestElement(sequence, middle, low);
}

/// Moves the element at slots[from[k]] to slots[k], for each k below `count`. Each cycle of the
/// permutation is a chain of swaps. Overwrites `from`.
template <class Sequence>
void permute(Sequence sequence, uint32_t const* slots, uint32_t* from, size_t count)
{
    for (size_t first = 0; first < count; ++first) {
        size_t at = first;
        while (from[at] != first) {
            sequence.swap(slots[at], slots[from[at]]);
            at = std::exchange(from[at], static_cast<uint32_t>(at));
        }
        from[at] = static_cast<uint32_t>(at);
    }
}

/// Merges the sorted runs [begin, middle) and [middle, end) of `from` into `to`. The runs consist
/// of indices into `slots`.
template <class Sequence>
void mergeRuns(Sequence sequence, uint32_t const* slots, uint32_t const* from, uint32_t* to,
               size_t begin, size_t middle, size_t end)
{
    auto const elementAt = [&](size_t at) { return sequence.get(slots[from[at]]); };
    auto const isAfter = [&](typename Sequence::Element left, typename Sequence::Element right) {
        return left && right && sequence.sortsAfter(left, right);
    };
    size_t left = begin;
    size_t right = middle;
    size_t next = begin;
    if (right < end && isAfter(elementAt(middle - 1), elementAt(middle))) {
        auto leftElement = elementAt(left);
        auto rightElement = elementAt(right);
        for (;;) {
            if (isAfter(leftElement, rightElement)) {
                to[next++] = from[right++];
                if (right == end)
                    break;
                rightElement = elementAt(right);
            } else {
                to[next++] = from[left++];
                if (left == middle)
                    break;
                leftElement = elementAt(left);
            }
        }
    }
    next = static_cast<size_t>(std::copy(from + left, from + middle, to + next) - to);
    std::copy(from + right, from + end, to + next);
}

/// Merge-sorts a range that partitions do not divide. Nulls keep their index, elements that compare
/// equal keep their order. The comparison may change the sequence, so the merge works on indices
/// and moves the elements only after the last comparison.
/// throws  any exception of `indices()` and of the comparison. No element has moved then.
template <class Sequence>
[[gnu::noinline]] void mergeSort(Sequence sequence, Range range)
{
    auto const length = static_cast<size_t>(range.high - range.low + 1);
    uint32_t* const slots = sequence.indices(3 * length);  // of the elements that are not null
    uint32_t* from = slots + length;                       // indices into slots, in sorted runs
    uint32_t* to = from + length;
    size_t count = 0;
    for (int64_t at = range.low; at <= range.high; ++at) {
        slots[count] = static_cast<uint32_t>(at);
        from[count] = static_cast<uint32_t>(count);
        if (sequence.get(slots[count]))
            ++count;
    }
    for (size_t width = 1; width < count; width *= 2) {
        for (size_t begin = 0; begin < count; begin += 2 * width) {
            size_t const middle = std::min(begin + width, count);
            mergeRuns(sequence, slots, from, to, begin, middle, std::min(middle + width, count));
        }
        std::swap(from, to);
    }
    permute(sequence, slots, from, count);
}

/// Returns the first index from `at` on, at most `high`, whose element does not sort before the
/// pivot.
template <bool kPrefetches, class Sequence>
[[gnu::always_inline]] inline int64_t scanUp(Sequence sequence, int64_t at, int64_t high,
                                             typename Sequence::Element pivot)
{
    for (; at < high; ++at) {
        if constexpr (kPrefetches)
            sequence.prefetch(static_cast<uint32_t>(at + kPrefetchDistance));
        auto const element = sequence.get(static_cast<uint32_t>(at));
        if (element && !sequence.sortsBefore(element, pivot))
            break;
    }
    return at;
}

/// Returns the last index up to `at`, at least `low`, whose element does not sort after the pivot.
template <bool kPrefetches, class Sequence>
[[gnu::always_inline]] inline int64_t scanDown(Sequence sequence, int64_t at, int64_t low,
                                               typename Sequence::Element pivot)
{
    for (; at > low; --at) {
        if constexpr (kPrefetches)
            sequence.prefetch(static_cast<uint32_t>(at - kPrefetchDistance));
        auto const element = sequence.get(static_cast<uint32_t>(at));
        if (element && !sequence.sortsAfter(element, pivot))
            break;
    }
    return at;
}

/// Divides a range by its pivot. Returns the parts. Both scans skip nulls, so nulls never move.
template <bool kPrefetches, class Sequence>
[[gnu::always_inline]] inline std::pair<Range, Range> partition(Sequence sequence, Range range,
                                                                typename Sequence::Element pivot)
{
    int64_t i = range.low;
    int64_t j = range.high;
    do {
        i = scanUp<kPrefetches>(sequence, i, range.high, pivot);
        j = scanDown<kPrefetches>(sequence, j, range.low, pivot);
        if (i <= j) {
            sequence.swap(static_cast<uint32_t>(i), static_cast<uint32_t>(j));
            ++i;
            --j;
        }
    } while (i <= j);
    return {{range.low, j, range.depth + 1}, {i, range.high, range.depth + 1}};
}

/// Does what partition() does to a range of two elements, without a branch that depends on the
/// order of the two: a branch would be mispredicted half of the time.
template <class Sequence>
[[gnu::always_inline]] inline void sortPair(Sequence sequence, int64_t low,
                                            typename Sequence::Element pivot)
{
    int64_t const i = scanUp<false>(sequence, low, low + 1, pivot);
    auto const last = sequence.get(static_cast<uint32_t>(low + 1));
    int64_t const j = low + !(!last || sequence.sortsAfter(last, pivot));
    if (i <= j)
        sequence.swap(static_cast<uint32_t>(i), static_cast<uint32_t>(j));
}

/// Sorts the elements from index `low` to index `high`, both included, by quicksort. Sorts the
/// shorter part of a partition first and keeps the longer one on a stack, which therefore never
/// holds more ranges than a size has bits. A range that is still long after twice the partitions
/// that halving would need is merge-sorted, so that every input costs O(n log n) comparisons.
template <class Sequence>
void quickSort(Sequence sequence, int64_t low, int64_t high)
{
    int const deepest = 2 * std::bit_width(static_cast<uint64_t>(std::max<int64_t>(high - low, 1)));
    Range range{low, high, 0};
    Range pending[CHAR_BIT * sizeof(uint32_t) + 1];  // indices have 32 bits
    size_t pendingCount = 0;
    for (;;) {
        while (range.low < range.high) {
            if (range.depth > deepest && range.high - range.low >= kShortRange) {
                mergeSort(sequence, range);
                break;
            }
            auto const pivot = choosePivot(sequence, range.low, range.high);
            if (!pivot)
                break;
            if (range.high - range.low == 1) {
                sortPair(sequence, range.low, pivot);
                break;
            }
            auto const [shorter, longer] = range.high - range.low > kLongRange
                                               ? partition<true>(sequence, range, pivot)
                                               : partition<false>(sequence, range, pivot);
            // Without a branch, which would be mispredicted half of the time.
            bool const isReversed = shorter.high - shorter.low > longer.high - longer.low;
            Range const parts[2] = {shorter, longer};
            pending[pendingCount] = parts[!isReversed];
            pendingCount += pending[pendingCount].low < pending[pendingCount].high;
            range = parts[isReversed];
        }
        if (pendingCount == 0)
            return;
        range = pending[--pendingCount];
    }
}

}  // namespace zsorting
