// Sorting: strings in the C locale and in en_US.UTF-8, objects of a caller's class, and sequences
// that are hard for some sort algorithm.
#include <Z/ZArrayList.h>
#include <Z/ZLCString.h>
#include <benchmark/benchmark.h>
#include <locale.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#ifdef Z_PEER_BOOST
#include <boost/sort/pdqsort/pdqsort.hpp>
#endif

namespace {

using Numbers = std::vector<int>;

Numbers ascendingTo(int count)
{
    Numbers numbers(static_cast<size_t>(count));
    std::iota(numbers.begin(), numbers.end(), 0);
    return numbers;
}

Numbers shuffled(Numbers numbers, unsigned seed)
{
    std::mt19937 random(seed);
    std::shuffle(numbers.begin(), numbers.end(), random);
    return numbers;
}

// ---- Elements, made of a number.

// An object of a caller's class. The peers sort pointers to the same objects.
class Number : public ZObject_6_0 {
public:
    explicit Number(int number) : number_(number) {}
    int compare(ZObject_6_0 const& other) const override
    {
        int const theirs = static_cast<Number const&>(other).number_;
        return number_ < theirs ? -1 : number_ > theirs;
    }

private:
    int number_;
};

// The strings of the peers: short enough to need no block, with a virtual comparison.
class PeerString {
public:
    explicit PeerString(char const* text) : text_(text) {}
    virtual ~PeerString() = default;
    virtual int compare(PeerString const& other) const
    {
        return strcmp(text_.c_str(), other.text_.c_str());
    }

protected:
    std::string text_;
};

class CollatedPeerString final : public PeerString {
public:
    using PeerString::PeerString;
    int compare(PeerString const& other) const override
    {
        return strcoll(text_.c_str(), static_cast<CollatedPeerString const&>(other).text_.c_str());
    }
};

std::string textOf(int number)
{
    char text[16];
    std::snprintf(text, sizeof text, "member%07d", number);
    return text;
}

template <class Element>
std::unique_ptr<Element> makeElement(int number)
{
    if constexpr (std::is_same_v<Element, Number>)
        return std::make_unique<Number>(number);
    else
        return std::make_unique<Element>(textOf(number).c_str());
}

// ---- Contenders: each gets the elements in their unsorted order before each sort.

template <class Element>
using Pointers = std::vector<Element*>;

struct ZSort {
    template <class Element>
    struct Sorter {
        ZArrayList_6_0 list{1, 0};
        void sort(Pointers<Element> const& elements)
        {
            list.removeAll();
            for (Element* const element : elements)
                list.add(element);
            list.sort(ZSortCompare_6_0::defaultSortCompare(), ZSortCompare_6_0::ascending);
        }
        void const* first() { return list.get(0); }
    };
};

template <class Sort>
struct PeerSort {
    template <class Element>
    struct Sorter {
        Pointers<Element> list;
        void sort(Pointers<Element> const& elements)
        {
            list = elements;
            Sort::run(list);
        }
        void const* first() { return list[0]; }
    };
};

template <class Element>
bool isBefore(Element const* left, Element const* right)
{
    return left->compare(*right) < 0;
}

struct StdSort {
    template <class Element>
    static void run(Pointers<Element>& list)
    {
        std::sort(list.begin(), list.end(), isBefore<Element>);
    }
};

struct CSort {
    template <class Element>
    static void run(Pointers<Element>& list)
    {
        qsort(list.data(), list.size(), sizeof(Element*), [](void const* left, void const* right) {
            return (*static_cast<Element* const*>(left))
                ->compare(**static_cast<Element* const*>(right));
        });
    }
};

#ifdef Z_PEER_BOOST
struct Pdqsort {
    template <class Element>
    static void run(Pointers<Element>& list)
    {
        boost::sort::pdqsort(list.begin(), list.end(), isBefore<Element>);
    }
};
#endif

// Sets the locale of the process. Tests have their locales compiled; they are found below
// Z_LOCALES if the system has none.
bool setCollation(char const* name)
{
    if (setlocale(LC_ALL, name) != nullptr)
        return true;
    setenv("LOCPATH", Z_LOCALES, 0);
    return setlocale(LC_ALL, name) != nullptr;
}

// Sorts the elements of these numbers. A short list has several orders, which take turns: a
// processor would learn the branches of a single one.
template <class Contender, class Element>
void sortRow(benchmark::State& state, char const* locale, std::vector<Numbers> const& orders)
{
    if (!setCollation(locale)) {
        state.SkipWithError("the locale is missing");
        return;
    }
    std::vector<std::unique_ptr<Element>> elements;
    std::vector<Pointers<Element>> unsorted(orders.size());
    for (size_t i = 0; i < orders.size(); ++i) {
        for (int number : orders[i]) {
            elements.push_back(makeElement<Element>(number));
            unsorted[i].push_back(elements.back().get());
        }
    }
    typename Contender::template Sorter<Element> sorter;
    size_t turn = 0;
    for (auto _ : state) {
        sorter.sort(unsorted[turn++ % unsorted.size()]);
        benchmark::DoNotOptimize(sorter.first());
    }
    setlocale(LC_ALL, "C");
}

Numbers randomNumbers(int count, unsigned seed)
{
    return shuffled(ascendingTo(count), seed);
}

template <class Contender, class Element>
void registerRow(std::string const& row, std::string const& contender, char const* locale,
                 int count, Numbers (*numbers)(int count, unsigned seed))
{
    std::string const name = row + "/" + contender + "/" + std::to_string(count);
    benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) {
        std::vector<Numbers> orders;
        for (int left = 200000; left > 0; left -= count)
            orders.push_back(numbers(count, static_cast<unsigned>(left)));
        sortRow<Contender, Element>(state, locale, orders);
    })->Unit(benchmark::kMicrosecond);
}

template <class Ours, class Theirs>
void registerContenders(std::string const& row, char const* locale, int count,
                        Numbers (*numbers)(int count, unsigned seed))
{
    registerRow<ZSort, Ours>(row, "Z", locale, count, numbers);
    registerRow<PeerSort<StdSort>, Theirs>(row, "std.sort", locale, count, numbers);
    registerRow<PeerSort<CSort>, Theirs>(row, "qsort", locale, count, numbers);
#ifdef Z_PEER_BOOST
    registerRow<PeerSort<Pdqsort>, Theirs>(row, "pdqsort", locale, count, numbers);
#endif
}

// ---- Sequences that are hard for some sort algorithm.

Numbers numbersBy(int count, int (*number)(int at, int count))
{
    Numbers numbers;
    for (int at = 0; at < count; ++at)
        numbers.push_back(number(at, count));
    return numbers;
}

// The middle of each range is its largest element, down to the shortest range.
Numbers middleIsLargest(int count)
{
    Numbers numbers = ascendingTo(count);
    for (int high = 1; high < count - 1; ++high)
        std::swap(numbers[high], numbers[high / 2]);
    std::swap(numbers[count - 1], numbers[count / 2]);
    return numbers;
}

// The median of the first, the middle and the last element of a range is nearly its smallest.
Numbers medianIsSmall(int count)
{
    int const half = count / 2;
    Numbers numbers(static_cast<size_t>(count));
    for (int i = 1; i <= half; ++i) {
        numbers[i - 1] = i % 2 == 1 ? i : half + i - 1;
        numbers[half + i - 1] = 2 * i;
    }
    return numbers;
}

struct Shape {
    char const* name;
    Numbers (*numbers)(int count, unsigned seed);
};

// bench_main has a limit for each.
constexpr Shape kShapes[] = {
    {"sorted", [](int n, unsigned) { return ascendingTo(n); }},
    {"reversed",
     [](int n, unsigned) { return numbersBy(n, [](int at, int all) { return all - at; }); }},
    {"organPipe",
     [](int n, unsigned) {
         return numbersBy(n, [](int at, int all) { return std::min(at, all - at); });
     }},
    {"valley",
     [](int n, unsigned) {
         return numbersBy(n, [](int at, int all) { return std::abs(at - all / 2); });
     }},
    {"sawtooth",
     [](int n, unsigned) { return numbersBy(n, [](int at, int) { return at % 1000; }); }},
    {"twoRuns",
     [](int n, unsigned) { return numbersBy(n, [](int at, int all) { return at % (all / 2); }); }},
    {"equal", [](int n, unsigned) { return Numbers(static_cast<size_t>(n), 7); }},
    {"alternating",
     [](int n, unsigned) { return numbersBy(n, [](int at, int) { return at % 2; }); }},
    {"fewValues",
     [](int n, unsigned seed) {
         return shuffled(numbersBy(n, [](int at, int) { return at % 10; }), seed);
     }},
    {"rotated",
     [](int n, unsigned) { return numbersBy(n, [](int at, int all) { return (at + 1) % all; }); }},
    {"nearlySorted",
     [](int n, unsigned seed) {
         Numbers numbers = ascendingTo(n);
         std::mt19937 random(seed);
         for (int swaps = n / 100; swaps > 0; --swaps)
             std::swap(numbers[random() % numbers.size()], numbers[random() % numbers.size()]);
         return numbers;
     }},
    {"middleKiller", [](int n, unsigned) { return middleIsLargest(n); }},
    {"medianKiller", [](int n, unsigned) { return medianIsSmall(n); }},
};

Numbers tenOfEach(int count, unsigned seed)
{
    return shuffled(numbersBy(count, [](int at, int) { return at / 10; }), seed);
}

bool const areRowsRegistered = [] {
    constexpr int kMillion = 1000000;
    for (int count : {100, 10000, kMillion})
        registerContenders<ZLCString_6_0, PeerString>("SortStrings", "C", count, randomNumbers);
    registerContenders<ZLCString_6_0, PeerString>("SortStrings.equal", "C", kMillion, tenOfEach);
    for (int count : {100, 10000, kMillion})
        registerContenders<ZLCString_6_0, CollatedPeerString>("SortCollated", "en_US.UTF-8", count,
                                                              randomNumbers);
    for (int count : {100, 10000, kMillion})
        registerContenders<Number, Number>("SortObjects", "C", count, randomNumbers);
    for (Shape const& shape : kShapes)
        registerContenders<Number, Number>(std::string("SortObjects.") + shape.name, "C", kMillion,
                                           shape.numbers);
    return true;
}();

}  // namespace
