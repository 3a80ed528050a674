#include "strings.h"

#include <langinfo.h>
#include <locale.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <bit>
#include <type_traits>
#include <typeinfo>
#include <utility>

#include "../ZLCString.h"
#include "../ZUTF8String.h"
#include "../memory/malloc_ptr.h"
#include "partition.h"
#include "text_order.h"

namespace zsorting {
namespace {

constexpr size_t kMaxCollationKeys = size_t{256} << 20;  // bytes of a sort

// The byte between the levels of a collation key.
constexpr char kSeparator = 1;
#ifdef __GLIBC__
constexpr bool kHasSeparator = true;
#else
constexpr bool kHasSeparator = false;
#endif

// Whether strcoll() compares bytes, as strcmp() does.
bool collatesByBytes()
{
#ifdef __GLIBC__
    // The number of collation rules of the locale of this thread: a word in place of a pointer.
    return static_cast<unsigned int>(
               reinterpret_cast<uintptr_t>(nl_langinfo(_NL_COLLATE_NRULES))) == 0;
#else
    char const* const name = setlocale(LC_COLLATE, nullptr);
    return uselocale(locale_t{}) == LC_GLOBAL_LOCALE && name != nullptr &&
           (strcmp(name, "C") == 0 || strcmp(name, "POSIX") == 0);
#endif
}

template <class String>
bool isExactly(ZObject_6_0 const* element)
{
    return &typeid(*element) == &typeid(String);  // a single typeid object, in this library
}

template <class String>
constexpr bool kIsView = std::is_base_of_v<ZAbstractConstString_6_0, String>;

template <class String>
Text textOf(ZObject_6_0 const* element)
{
    auto const string = static_cast<String const*>(element);
    char const* const bytes = string->String::getChars();
    if constexpr (kIsView<String>)
        return {bytes, strlen(bytes)};  // the length that a view has measured may be out of date
    else
        return {bytes, string->String::getLength()};
}

// The bytes of the strings themselves.
template <class String>
class OwnTexts {
public:
    explicit OwnTexts(ZObject_6_0* const* elements) : elements_(elements) {}

    /// Measures views once. Returns false if a view is not of the class, or if there is not enough
    /// memory.
    bool make(unsigned int count)
    {
        if constexpr (kIsView<String>) {
            views_.reset(static_cast<Text*>(malloc(size_t{count} * sizeof(Text))));
            for (unsigned int i = 0; views_ != nullptr && i < count; ++i) {
                if (elements_[i] == nullptr)
                    continue;
                if (!isExactly<String>(elements_[i]))
                    return false;
                views_.get()[i] = textOf<String>(elements_[i]);
            }
            return views_ != nullptr;
        }
        return true;
    }

    /// Whether the element is a string of the class.
    static bool isText(ZObject_6_0 const* element) { return isExactly<String>(element); }
    Text text(uint32_t number) const
    {
        if constexpr (kIsView<String>)
            return views_.get()[number];
        else
            return textOf<String>(elements_[number]);
    }
    /// Does nothing: the bytes decide.
    static bool correct(Record*, size_t, bool&) { return true; }

private:
    ZObject_6_0* const* const elements_;
    zmemory::MallocPtr<Text> views_;
};

// The collation keys of the strings: their bytes compare almost as strcoll() compares the
// strings: the C library orders "0 A" and "0a" by strcoll() and by keys differently, for example.
template <class String>
class CollationKeys {
public:
    explicit CollationKeys(ZObject_6_0* const* elements) : elements_(elements) {}

    /// Returns false if there is not enough memory, if the keys are too long, if a string is not of
    /// the class, or if comparing the strings is cheaper: they are few or long.
    bool make(unsigned int count)
    {
        if (!isWorthwhile(count))
            return false;
        starts_.reset(static_cast<uint32_t*>(malloc((size_t{count} + 1) * sizeof(uint32_t))));
        if (starts_ == nullptr)
            return false;
        for (unsigned int i = 0; i < count; ++i) {
            starts_.get()[i] = static_cast<uint32_t>(size_);
            if (elements_[i] != nullptr && !append(textOf<String>(elements_[i]).bytes))
                return false;
        }
        starts_.get()[count] = static_cast<uint32_t>(size_);
        return true;
    }

    static bool isText(ZObject_6_0 const*) { return true; }
    /// range   the string is not null.
    Text text(uint32_t number) const
    {
        uint32_t const* const start = starts_.get() + number;
        return {keys_.get() + start[0], size_t{start[1]} - start[0] - 1};
    }

    /// Corrects the order of sorted records by strcoll(), which decides: compares each with the
    /// previous record, and moves it if it sorts before that. Sets `hasEquals` to whether strings
    /// are equal. Returns false if too many records are moved.
    bool correct(Record* records, size_t count, bool& hasEquals) const
    {
        size_t moves = 0;
        hasEquals = false;
        for (size_t i = 1; i < count; ++i) {
            int const order = compare(records[i - 1], records[i]);
            records[i].equalsPrevious = order == 0;
            hasEquals |= order == 0;
            if (order <= 0)
                continue;
            Record const record = records[i];
            size_t at = i;
            do {
                records[at] = records[at - 1];
                if (++moves > count)
                    return false;
            } while (--at > 0 && compare(records[at - 1], record) > 0);
            records[at] = record;
        }
        for (size_t i = 1; moves > 0 && i < count; ++i) {
            records[i].equalsPrevious = compare(records[i - 1], records[i]) == 0;
            hasEquals |= records[i].equalsPrevious != 0;
        }
        return true;
    }

private:
    // Returns whether all strings are of the class and so short that keys are cheaper than
    // comparisons. A key takes time for each byte of its string. The comparisons of a sort, about
    // log2(count) per string, mostly end at an early byte: each costs as much as three bytes of a
    // key if the strings differ in their first bytes.
    bool isWorthwhile(unsigned int count) const
    {
        if (count < kMinCount)
            return false;
        size_t const most = 3 * size_t{std::bit_width(count)} * count;
        size_t total = 0;
        for (unsigned int i = 0; i < count; ++i) {
            if (elements_[i] == nullptr)
                continue;
            if (!isExactly<String>(elements_[i]))
                return false;
            total += textOf<String>(elements_[i]).length;
            if (total > most)
                return false;
        }
        return true;
    }

    // Compares by strcoll(), unless the keys differ in the first level, the weights of the letters
    // and digits: then both agree. Accents, case and punctuation follow the separator.
    int compare(Record const& left, Record const& right) const
    {
        Text const leftKey = text(left.text);
        Text const rightKey = text(right.text);
        size_t const common =
            commonPrefix(leftKey, rightKey, std::min(leftKey.length, rightKey.length));
        if (kHasSeparator && memchr(leftKey.bytes, kSeparator, common) == nullptr &&
            (common < leftKey.length || common < rightKey.length))
            return static_cast<unsigned char>(leftKey.bytes[common]) -
                   static_cast<unsigned char>(rightKey.bytes[common]);
        char const* const leftText = textOf<String>(elements_[left.text]).bytes;
        char const* const rightText = textOf<String>(elements_[right.text]).bytes;
        return strcmp(leftText, rightText) == 0 ? 0 : strcoll(leftText, rightText);
    }

    bool append(char const* text)
    {
        size_t length = strxfrm(keys_.get() + size_, text, capacity_ - size_);
        if (length >= capacity_ - size_) {
            if (length >= kMaxCollationKeys - size_ || !grow(size_ + length + 1))
                return false;
            length = strxfrm(keys_.get() + size_, text, capacity_ - size_);
            if (length >= capacity_ - size_)
                return false;  // another thread has changed the text or the locale
        }
        size_ += length + 1;
        return true;
    }

    bool grow(size_t needed)
    {
        size_t const capacity = std::clamp(2 * needed, size_t{4096}, kMaxCollationKeys);
        void* const block = realloc(keys_.get(), capacity);
        if (block == nullptr)
            return false;
        static_cast<void>(keys_.release());
        keys_.reset(static_cast<char*>(block));
        capacity_ = capacity;
        return true;
    }

    static constexpr unsigned int kMinCount = 32;  // fewer keys take longer than comparisons

    ZObject_6_0* const* const elements_;
    zmemory::MallocPtr<char> keys_;
    zmemory::MallocPtr<uint32_t> starts_;
    size_t size_ = 0;
    size_t capacity_ = 0;
};

// The ranks of the elements, for quickSort().
class Ranks {
public:
    struct Entry {
        uint32_t rank;  // 0 for a null
        uint32_t text;
    };
    using Element = uint32_t;

    Ranks(Entry* entries, uint32_t count, uint32_t* indices)
        : entries_(entries), count_(count), indices_(indices)
    {
    }

    uint32_t get(uint32_t at) const { return at < count_ ? entries_[at].rank : 0; }
    void swap(uint32_t one, uint32_t other)
    {
        if (one < count_ && other < count_)
            std::swap(entries_[one], entries_[other]);
    }
    static bool sortsBefore(uint32_t element, uint32_t pivot) { return element < pivot; }
    static bool sortsAfter(uint32_t element, uint32_t pivot) { return element > pivot; }
    static void prefetch(uint32_t) {}
    uint32_t* indices(size_t) const { return indices_; }

private:
    Entry* const entries_;
    uint32_t const count_;
    uint32_t* const indices_;  // three per element
};

// Two blocks, on the stack for a short list. The first holds a record per element. The second holds
// a pointer per element or, in a list that may be sorted by digits, a record per element. Such a
// list has a third block, with the counts of the digits.
class Blocks {
public:
    /// Returns false if there is not enough memory.
    bool allocate(unsigned int count)
    {
        size_t const size = size_t{count} * sizeof(Record);
        bool const hasDigits = count >= static_cast<size_t>(kMinDigitSort);
        first_ = short_;
        if (count > kShort) {
            size_t const secondSize = hasDigits ? size : size_t{count} * sizeof(void*);
            size_t const countsSize = hasDigits ? sizeof(DigitCounts) : 0;
            heap_.reset(static_cast<unsigned char*>(malloc(size + secondSize + countsSize)));
            if (heap_ == nullptr)
                return false;
            first_ = heap_.get();
            if (hasDigits)
                counts_ = reinterpret_cast<DigitCounts*>(first_ + size + secondSize);
        }
        second_ = first_ + size;
        return true;
    }
    template <class T>
    T* first()
    {
        static_assert(sizeof(T) <= sizeof(Record) && std::is_trivially_copyable_v<T>);
        return reinterpret_cast<T*>(first_);
    }
    template <class T>
    T* second()
    {
        static_assert(sizeof(T) <= sizeof(void*) && std::is_trivially_copyable_v<T>);
        return reinterpret_cast<T*>(second_);
    }

    /// Null, or counts with as many records in the second block as elements in the list.
    DigitCounts* digitCounts() { return counts_; }
    Record* spareRecords() { return reinterpret_cast<Record*>(second_); }

private:
    static constexpr unsigned int kShort = 104;  // elements
    static_assert(kShort < kMinDigitSort, "lists that are sorted by digits have counts");

    alignas(Record) unsigned char short_[kShort * (sizeof(Record) + sizeof(void*))];
    zmemory::MallocPtr<unsigned char> heap_;
    DigitCounts* counts_ = nullptr;
    unsigned char* first_ = nullptr;
    unsigned char* second_ = nullptr;
};

// Moves the elements to the order of quickSort(). The records in the first block are sorted; some
// of the strings are equal.
void placeByRank(ZObject_6_0** elements, unsigned int count, Blocks& blocks, size_t used,
                 bool ascending)
{
    auto* const entries = blocks.second<Ranks::Entry>();
    for (uint32_t i = 0; i < count; ++i)
        entries[i] = {0, i};
    Record const* const records = blocks.first<Record>();
    uint32_t rank = 0;
    for (size_t i = 0; i < used; ++i) {
        rank += 1 - records[i].equalsPrevious;
        entries[records[i].text].rank = rank;
    }
    if (!ascending) {
        for (uint32_t i = 0; i < count; ++i) {
            if (entries[i].rank != 0)
                entries[i].rank = rank + 1 - entries[i].rank;
        }
    }
    // As for any list, the upper end is one past the last element.
    quickSort(Ranks(entries, count, blocks.first<uint32_t>()), 0, count);
    auto* const sorted = blocks.first<ZObject_6_0*>();
    for (uint32_t i = 0; i < count; ++i)
        sorted[i] = elements[entries[i].text];
    memcpy(elements, sorted, count * sizeof(ZObject_6_0*));
}

// Moves the elements to the order of the records in the first block, whose strings all differ.
// Nulls stay.
void place(ZObject_6_0** elements, unsigned int count, Blocks& blocks, size_t used, bool ascending)
{
    Record const* const records = blocks.first<Record>();
    auto* const sorted = blocks.second<ZObject_6_0*>();
    for (size_t i = 0; i < used; ++i)
        sorted[i] = elements[records[ascending ? i : used - 1 - i].text];
    size_t next = 0;
    for (uint32_t i = 0; i < count; ++i) {
        if (elements[i] != nullptr)
            elements[i] = sorted[next++];
    }
}

template <class Texts>
bool sortTexts(Texts const& texts, ZObject_6_0** elements, unsigned int count, bool ascending)
{
    Blocks blocks;
    if (!blocks.allocate(count))
        return false;
    auto* const records = blocks.first<Record>();
    uint32_t used = 0;
    size_t depth = 0;
    for (uint32_t i = 0; i < count; ++i) {
        if (elements[i] == nullptr)
            continue;
        if (!texts.isText(elements[i]))
            return false;
        Text const text = texts.text(i);
        if (used == 0)
            depth = strnlen(text.bytes, text.length);
        else if (depth > 0)
            depth = commonPrefix(texts.text(records[0].text), text, depth);
        records[used++] = {0, i, 0};
    }
    TextOrder order(texts, blocks.spareRecords(), blocks.digitCounts());
    order.sort(records, records + used, depth);
    bool hasEquals = order.hasEquals();
    if (!texts.correct(records, used, hasEquals))
        return false;
    if (hasEquals)
        placeByRank(elements, count, blocks, used, ascending);
    else
        place(elements, count, blocks, used, ascending);
    return true;
}

template <class String>
bool sortStringsOf(ZObject_6_0** elements, unsigned int count, bool ascending)
{
    if (collatesByBytes()) {
        OwnTexts<String> texts(elements);
        return texts.make(count) && sortTexts(texts, elements, count, ascending);
    }
    CollationKeys<String> keys(elements);
    return keys.make(count) && sortTexts(keys, elements, count, ascending);
}

}  // namespace

bool sortStrings(ZObject_6_0** elements, unsigned int count, bool ascending)
{
    ZObject_6_0** const end = elements + count;
    ZObject_6_0** const first =
        std::find_if(elements, end, [](auto element) { return element != nullptr; });
    if (end - first < 2)
        return false;
    if (isExactly<ZLCString_6_0>(*first))
        return sortStringsOf<ZLCString_6_0>(elements, count, ascending);
    if (isExactly<ZUTF8String_6_0>(*first))
        return sortStringsOf<ZUTF8String_6_0>(elements, count, ascending);
    if (isExactly<ZLCConstString_6_0>(*first))
        return sortStringsOf<ZLCConstString_6_0>(elements, count, ascending);
    if (isExactly<ZUTF8ConstString_6_0>(*first))
        return sortStringsOf<ZUTF8ConstString_6_0>(elements, count, ascending);
    return false;
}

}  // namespace zsorting
