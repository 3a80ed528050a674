// Sorting strings by keys, in the order of the quicksort that compares them.
#include <Z/ZArrayList.h>
#include <Z/ZException.h>
#include <Z/ZLCString.h>
#include <Z/ZUTF8String.h>
#include <gtest/gtest.h>
#include <locale.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <functional>
#include <iostream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "FailingAllocator.h"
#include "LinearTime.h"
#include "Raised.h"

namespace {

constexpr ZSortCompare_6_0::sortorder kOrders[] = {ZSortCompare_6_0::ascending,
                                                   ZSortCompare_6_0::descending};

// Sorts as the default comparator does. As it is a caller's comparator, the list calls it.
class ByCompare final : public ZSortCompare_6_0 {
public:
    int sortCompare(ZObject_6_0 const* left, ZObject_6_0 const* right) const override
    {
        ++calls;
        return left->compare(*right);
    }
    mutable long calls = 0;
};

using Elements = std::vector<ZObject_6_0*>;

Elements elementsOf(ZArrayList_6_0 const& list)
{
    Elements elements;
    for (unsigned i = 0; i < list.size(); ++i)
        elements.push_back(list.get(i));
    return elements;
}

void fill(ZArrayList_6_0& list, Elements const& elements)
{
    list.removeAll();
    for (ZObject_6_0* const element : elements)
        list.add(element);
}

Elements sorted(Elements const& elements, ZSortCompare_6_0 const& comparator,
                ZSortCompare_6_0::sortorder order)
{
    ZArrayList_6_0 list(1, 0);
    fill(list, elements);
    list.sort(comparator, order);
    return elementsOf(list);
}

// The same strings sorted by keys, and by calls of compare().
void expectSameOrder(Elements const& elements)
{
    for (ZSortCompare_6_0::sortorder const order : kOrders) {
        ByCompare const comparator;
        ASSERT_EQ(sorted(elements, comparator, order),
                  sorted(elements, ZSortCompare_6_0::defaultSortCompare(), order));
    }
}

// A recursive model of the list's quicksort, without a merge sort.
void sortByTheRule(Elements& elements, int low, int high)
{
    auto const get = [&](int at) {
        return at < static_cast<int>(elements.size()) ? elements[at] : nullptr;
    };
    while (low < high) {
        ZObject_6_0* pivot = nullptr;
        int const middle = (low + high) / 2;
        for (int away = 0; pivot == nullptr && middle - away >= low; ++away) {
            pivot = get(middle - away);
            if (pivot == nullptr)
                pivot = get(middle + away);
        }
        if (pivot == nullptr)
            return;
        int i = low;
        int j = high;
        do {
            while (i < high && (get(i) == nullptr || get(i)->compare(*pivot) < 0))
                ++i;
            while (j > low && (get(j) == nullptr || get(j)->compare(*pivot) > 0))
                --j;
            if (i <= j) {
                if (j < static_cast<int>(elements.size()))
                    std::swap(elements[i], elements[j]);
                ++i;
                --j;
            }
        } while (i <= j);
        sortByTheRule(elements, low, j);
        low = i;
    }
}

// The locale of the process during a test; found below Z_TEST_LOCALES if the system has none.
class ScopedLocale {
public:
    explicit ScopedLocale(char const* name)
    {
        ZLCString_6_0 const first;  // the first string of a process sets the locale
        setenv("LOCPATH", Z_TEST_LOCALES, 1);
        EXPECT_NE(nullptr, setlocale(LC_ALL, name)) << name;
    }
    ~ScopedLocale() { setlocale(LC_ALL, "C"); }
};

// Creates strings of one class that live as long as the object.
class Strings {
public:
    enum Class { local, utf8, localView, utf8View };

    ZObject_6_0* make(Class which, std::string const& text)
    {
        auto const length = static_cast<unsigned>(text.size());
        if (which == local)
            return keep(new ZLCString_6_0(text.c_str(), length));
        if (which == utf8)
            return keep(new ZUTF8String_6_0(text.c_str(), length));
        texts_.push_back(std::make_unique<std::string>(text));
        char const* const viewed = texts_.back()->c_str();
        if (which == localView)
            return keep(new ZLCConstString_6_0(viewed));
        return keep(new ZUTF8ConstString_6_0(viewed));
    }
    ZObject_6_0* keep(ZObject_6_0* object)
    {
        objects_.emplace_back(object);
        return object;
    }

private:
    std::vector<std::unique_ptr<std::string>> texts_;
    std::vector<std::unique_ptr<ZObject_6_0>> objects_;
};

// Strings that are often equal, or prefixes of each other, up to a length beyond several keys; with
// zero bytes, and with bytes that are not characters.
std::string randomText(std::mt19937& random)
{
    static char const* const pieces[] = {"a",
                                         "b",
                                         "A",
                                         "B",
                                         "-",
                                         " ",
                                         "ae",
                                         "Z",
                                         "\xC3\xA4",
                                         "\xC3\x9F",
                                         "\xE3\x81\x82",
                                         "\x01",
                                         "\xFF",
                                         "\x80",
                                         "prefix--",
                                         "0",
                                         "10",
                                         "9"};
    std::string text = random() % 3 == 0 ? "a common prefix " : "";
    for (unsigned left = random() % 4 * (random() % 5); left > 0; --left) {
        if (random() % 40 == 0)
            text += '\0';
        else
            text += pieces[random() % std::size(pieces)];
    }
    return text;
}

Elements randomElements(std::mt19937& random, Strings& strings, size_t size)
{
    auto const which = static_cast<Strings::Class>(random() % 4);
    bool const hasNulls = random() % 4 == 0;
    bool const hasPrefix = random() % 4 == 0;
    Elements elements;
    for (size_t i = 0; i < size; ++i) {
        if (hasNulls && random() % 5 == 0)
            elements.push_back(nullptr);
        else
            elements.push_back(
                strings.make(which, (hasPrefix ? "all have this" : "") + randomText(random)));
    }
    return elements;
}

constexpr char const* kLocales[] = {"C", "C.UTF-8", "en_US.UTF-8", "de_DE.UTF-8", "ja_JP.EUC-JP"};

// Runs a function in a thread. Returns the number of bytes of the stack that it has written.
[[maybe_unused]] size_t stackUsedBy(std::function<void()> const& function)
{
    constexpr size_t kSize = 256 * 1024;
    constexpr unsigned char kUnused = 0xA5;
    std::unique_ptr<void, decltype(&free)> const stack(aligned_alloc(4096, kSize), free);
    memset(stack.get(), kUnused, kSize);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    EXPECT_EQ(0, pthread_attr_setstack(&attributes, stack.get(), kSize));
    auto const call = [](void* called) -> void* {
        (*static_cast<std::function<void()> const*>(called))();
        return nullptr;
    };
    pthread_t thread;
    EXPECT_EQ(0, pthread_create(&thread, &attributes, call,
                                const_cast<std::function<void()>*>(&function)));
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    auto const* const bytes = static_cast<unsigned char const*>(stack.get());
    return static_cast<size_t>(
        bytes + kSize -
        std::find_if(bytes, bytes + kSize, [](unsigned char byte) { return byte != kUnused; }));
}

// How often strxfrm() returns a length beyond its buffer, as if the locale changed between calls.
int longerKeys = 0;

}  // namespace

extern "C" size_t __real_strxfrm(char* key, char const* text, size_t size);
extern "C" size_t __wrap_strxfrm(char* key, char const* text, size_t size)
{
    if (longerKeys == 0)
        return __real_strxfrm(key, text, size);
    --longerKeys;
    return size + 100;
}

TEST(ZArrayListSortStrings, RandomListsAreInTheOrderOfTheCallsOfCompare)
{
    constexpr unsigned kSeed = 31017;
    std::cout << "seed " << kSeed << "\n";
    std::mt19937 random(kSeed);
    for (char const* name : kLocales) {
        SCOPED_TRACE(name);
        ScopedLocale const locale(name);
        for (int round = 0; round < Z_TEST_ROUNDS; ++round) {
            Strings strings;
            // Lists of any length from 0 on, of which few are long.
            size_t const size = round % 200 == 0 ? 3000 : random() % (2 + random() % 300);
            ASSERT_NO_FATAL_FAILURE(expectSameOrder(randomElements(random, strings, size)))
                << "round " << round;
        }
    }
}

TEST(ZArrayListSortStrings, ShortListsAreInTheOrderOfTheModel)
{
    std::mt19937 random(31018);
    for (char const* name : kLocales) {
        SCOPED_TRACE(name);
        ScopedLocale const locale(name);
        for (int round = 0; round < 1000; ++round) {
            Strings strings;
            Elements elements = randomElements(random, strings, random() % 17);
            Elements const result = sorted(elements, ZSortCompare_6_0::defaultSortCompare(),
                                           ZSortCompare_6_0::ascending);
            sortByTheRule(elements, 0, static_cast<int>(elements.size()));
            ASSERT_EQ(elements, result) << "round " << round;
        }
    }
}

// The lengths at which other blocks, or another sort, are used.
TEST(ZArrayListSortStrings, ListsOfEveryKindOfLengthAreInTheOrderOfTheCallsOfCompare)
{
    std::mt19937 random(31021);
    for (char const* name : kLocales) {
        SCOPED_TRACE(name);
        ScopedLocale const locale(name);
        for (size_t const size : {103u, 104u, 105u, 399u, 400u, 401u, 402u}) {
            SCOPED_TRACE(size);
            Strings strings;
            Elements distinct;
            for (size_t i = 0; i < size; ++i)
                distinct.push_back(strings.make(Strings::local, "k" + std::to_string(random())));
            ASSERT_NO_FATAL_FAILURE(expectSameOrder(distinct));
            ASSERT_NO_FATAL_FAILURE(expectSameOrder(randomElements(random, strings, size)));
        }
    }
}

// Sanitizers enlarge the frames of functions.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST(ZArrayListSortStrings, SortingNeedsLittleStack)
{
    constexpr size_t kMost = 4096;
    size_t const unused = stackUsedBy([] {});
    std::mt19937 random(31022);
    for (unsigned const kinds : {5u, 1000000000u}) {  // with equal strings, and without
        for (unsigned const size : {16u, 104u, 105u, 1000u, 100000u}) {
            SCOPED_TRACE(size);
            Strings strings;
            Elements elements;
            for (unsigned i = 0; i < size; ++i)
                elements.push_back(
                    strings.make(Strings::local, "text " + std::to_string(random() % kinds)));
            ZArrayList_6_0 list(1, 0);
            fill(list, elements);
            EXPECT_GT(kMost, stackUsedBy([&] {
                                 list.sort(ZSortCompare_6_0::defaultSortCompare(),
                                           ZSortCompare_6_0::ascending);
                             }) - unused);
        }
    }
}
#endif

TEST(ZArrayListSortStrings, KeysThatDoNotFitTwiceAreNotUsed)
{
    ScopedLocale const locale("en_US.UTF-8");
    Strings strings;
    Elements elements;
    for (int i = 0; i < 50; ++i)
        elements.push_back(strings.make(Strings::local, std::to_string(7919 * i % 50)));
    Elements const expected = sorted(elements, ByCompare(), ZSortCompare_6_0::ascending);
    longerKeys = 2;
    EXPECT_EQ(expected, sorted(elements, ZSortCompare_6_0::defaultSortCompare(),
                               ZSortCompare_6_0::ascending));
    EXPECT_EQ(0, longerKeys);
}

TEST(ZArrayListSortStrings, StringsThatDifferLateAreSorted)
{
    std::string const prefix(20000, 'x');
    for (char const* name : {"C", "en_US.UTF-8"}) {
        SCOPED_TRACE(name);
        ScopedLocale const locale(name);
        std::mt19937 random(31019);
        Strings strings;
        Elements elements;
        for (int i = 0; i < 60; ++i)
            elements.push_back(strings.make(
                Strings::local, (i % 3 == 0 ? "y" : "") + prefix + std::to_string(random() % 40)));
        // Each is a prefix of the next.
        for (size_t length = 0; length < 300; ++length)
            elements.push_back(strings.make(Strings::local, std::string(length, 'x')));
        std::shuffle(elements.begin(), elements.end(), random);
        expectSameOrder(elements);
    }
}

TEST(ZArrayListSortStrings, EqualStringsAndHardSequencesAreInTheOrderOfTheCallsOfCompare)
{
    for (char const* name : {"C", "en_US.UTF-8"}) {
        SCOPED_TRACE(name);
        ScopedLocale const locale(name);
        for (int count : {2, 3, 100, 2000}) {
            Strings strings;
            Elements equal, organPipe, sawtooth;
            for (int i = 0; i < count; ++i) {
                equal.push_back(strings.make(Strings::utf8, "equal"));
                // Partitions do not divide these; the rest is merge-sorted.
                organPipe.push_back(strings.make(
                    Strings::utf8, "text" + std::to_string(10000 + std::min(i, count - i))));
                sawtooth.push_back(strings.make(Strings::utf8, std::to_string(i % 17)));
            }
            expectSameOrder(equal);
            expectSameOrder(organPipe);
            expectSameOrder(sawtooth);
        }
    }
}

// A collation key takes time for each byte of its string; a comparison ends at a difference.
TEST(ZArrayListSortStrings, LongStringsTakeNoLongerThanByComparisons)
{
    ScopedLocale const locale("en_US.UTF-8");
    for (int const count : {10, 100, 2000})
        for (size_t const length : {size_t{32}, size_t{300}}) {
            SCOPED_TRACE(std::to_string(count) + " of " + std::to_string(length) + " bytes");
            std::mt19937 random(31021);
            Strings strings;
            Elements elements;
            for (int i = 0; i < count; ++i) {
                std::string text;
                while (text.size() < length)
                    text += static_cast<char>('a' + random() % 26);
                elements.push_back(strings.make(Strings::local, text));
            }
            auto const sortBy = [&](ZSortCompare_6_0 const& comparator) {
                return [&] {
                    for (int round = 0; round < 20000 / count; ++round)
                        sorted(elements, comparator, ZSortCompare_6_0::ascending);
                };
            };
            ByCompare const calls;
            EXPECT_TRUE(
                takesAtMost(3, sortBy(calls), sortBy(ZSortCompare_6_0::defaultSortCompare())));
        }
}

// Each view is measured once.
TEST(ZArrayListSortStrings, ALongViewIsReadOnce)
{
    std::string const first(1 << 20, 'a');
    Strings strings;
    auto const prepare = [&](size_t count) {
        auto const elements = std::make_shared<Elements>();
        elements->push_back(strings.make(Strings::localView, first));
        for (size_t i = 0; i < count; ++i)
            elements->push_back(strings.make(Strings::localView, "a" + std::to_string(i)));
        return [elements] {
            sorted(*elements, ZSortCompare_6_0::defaultSortCompare(), ZSortCompare_6_0::ascending);
        };
    };
    EXPECT_TRUE(takesAtMost(30, prepare(1), prepare(2000)));
}

TEST(ZArrayListSortStrings, AViewIsSortedByItsPresentText)
{
    char first[] = "z, a long text";
    char second[] = "m";
    ZLCConstString_6_0 one(first);
    ZLCConstString_6_0 other(second);
    EXPECT_EQ(14u, one.getLength());  // is kept
    first[1] = 0;
    Elements const elements{&one, &other};
    expectSameOrder(elements);
    first[0] = 'a';
    EXPECT_EQ((Elements{&one, &other}), sorted(elements, ZSortCompare_6_0::defaultSortCompare(),
                                               ZSortCompare_6_0::ascending));
}

TEST(ZArrayListSortStrings, DerivedStringsSeeEveryComparison)
{
    class Reversed final : public ZLCString_6_0 {
    public:
        using ZLCString_6_0::compare;
        using ZLCString_6_0::ZLCString_6_0;
        int compare(ZObject_6_0 const& other) const override
        {
            return -ZLCString_6_0::compare(other);
        }
    };
    Reversed const a("a"), b("b"), c("c");
    ZArrayList_6_0 list(1, 0);
    for (Reversed const* string : {&b, &a, &c})
        list.add(string);
    list.sort(ZSortCompare_6_0::defaultSortCompare(), ZSortCompare_6_0::ascending);
    EXPECT_EQ(&c, list.get(0));
    EXPECT_EQ(&a, list.get(2));

    // A single one among the library's own strings.
    class Counting final : public ZLCString_6_0 {
    public:
        using ZLCString_6_0::compare;
        using ZLCString_6_0::ZLCString_6_0;
        int compare(char const* text) const override
        {
            ++calls;
            return ZLCString_6_0::compare(text);
        }
        mutable long calls = 0;
    };
    Strings strings;
    Elements elements;
    for (int i = 0; i < 300; ++i)
        elements.push_back(strings.make(Strings::local, std::to_string(i * 7919 % 300)));
    auto* const counting = new Counting("150");
    elements[211] = strings.keep(counting);
    expectSameOrder(elements);
    long const calls = counting->calls;
    sorted(elements, ZSortCompare_6_0::defaultSortCompare(), ZSortCompare_6_0::ascending);
    EXPECT_LT(calls, counting->calls);
}

TEST(ZArrayListSortStrings, AListOfACallersClassSeesItsCalls)
{
    struct Watched final : ZArrayList_6_0 {
        Watched() : ZArrayList_6_0(1, 0) {}
        ZObject_6_0* get(unsigned index) const override
        {
            ++gets;
            return ZArrayList_6_0::get(index);
        }
        void swap(unsigned one, unsigned other) override
        {
            ++swaps;
            ZArrayList_6_0::swap(one, other);
        }
        mutable long gets = 0;
        long swaps = 0;
    };
    Strings strings;
    Watched list;
    for (char const* text : {"c", "a", "b", "d"})
        list.add(strings.make(Strings::local, text));
    list.sort(ZSortCompare_6_0::defaultSortCompare(), ZSortCompare_6_0::ascending);
    EXPECT_LT(4, list.gets);
    EXPECT_LT(1, list.swaps);
}

TEST(ZArrayListSortStrings, ACallersComparatorSeesEveryComparison)
{
    Strings strings;
    Elements const elements{strings.make(Strings::local, "b"), strings.make(Strings::local, "a")};
    ByCompare const comparator;
    sorted(elements, comparator, ZSortCompare_6_0::ascending);
    EXPECT_LT(0, comparator.calls);
}

TEST(ZArrayListSortStrings, StringsOfDifferentCodesetsRaiseAndStayInTheList)
{
    Strings strings;
    Elements elements;
    for (int i = 0; i < 200; ++i)
        elements.push_back(strings.make(Strings::local, std::to_string(i)));
    elements[150] = strings.make(Strings::utf8, "150");
    ZArrayList_6_0 list(1, 0);
    fill(list, elements);
    EXPECT_THROW(list.sort(ZSortCompare_6_0::defaultSortCompare(), ZSortCompare_6_0::ascending),
                 ZUnsupportedException_6_0);
    Elements left = elementsOf(list);
    std::sort(left.begin(), left.end());
    std::sort(elements.begin(), elements.end());
    EXPECT_EQ(elements, left);
}

TEST(ZArrayListSortStrings, WithoutMemoryTheOrderIsTheSame)
{
    for (char const* name : {"C", "en_US.UTF-8"}) {
        SCOPED_TRACE(name);
        ScopedLocale const locale(name);
        std::mt19937 random(31020);
        Strings strings;
        Elements elements;
        for (int i = 0; i < 500; ++i)
            elements.push_back(
                strings.make(Strings::local, "text " + std::to_string(random() % 400)));
        ZArrayList_6_0 list(1, 0);
        for (ZSortCompare_6_0::sortorder const order : kOrders) {
            ByCompare const comparator;
            Elements const expected = sorted(elements, comparator, order);
            for (FailingAllocator::Mode const mode :
                 {FailingAllocator::once, FailingAllocator::forEver}) {
                bool failed = true;
                unsigned long failures = 0;
                for (unsigned long n = 1; failed; ++n) {
                    fill(list, elements);
                    long const before = FailingAllocator::blocks();
                    FailingAllocator::failAt(n, mode);
                    EXPECT_NO_THROW(list.sort(ZSortCompare_6_0::defaultSortCompare(), order));
                    failed = FailingAllocator::stop();
                    failures += failed;
                    EXPECT_EQ(before, FailingAllocator::blocks());
                    ASSERT_EQ(expected, elementsOf(list)) << "allocation " << n;
                }
                EXPECT_LT(0u, failures);
            }
        }
    }
}
