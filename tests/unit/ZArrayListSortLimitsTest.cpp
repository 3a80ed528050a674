// Sorts a million elements, in shapes that are hard for some sort algorithm.
#include <Z/ZArrayList.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <iostream>
#include <memory>
#include <numeric>
#include <random>
#include <stdexcept>
#include <vector>

#include "Containers.h"
#include "Sanitizers.h"

namespace {

// Smaller under a sanitizer, which slows each comparison down; the limit per element is the same.
constexpr int kMembers = kHasSanitizer ? 50000 : 1000000;

// Compares by number and throws after more comparisons than a good sort needs.
class Limited final : public ZSortCompare_6_0 {
public:
    explicit Limited(double most) : most_(static_cast<long>(most)) {}
    int sortCompare(ZObject_6_0 const* left, ZObject_6_0 const* right) const override
    {
        if (++calls == most_)
            throw std::runtime_error("too many comparisons");
        int const one = static_cast<CountedObject const*>(left)->number();
        int const other = static_cast<CountedObject const*>(right)->number();
        return one < other ? -1 : one > other;
    }
    mutable long calls = 0;

private:
    long const most_;
};

Numbers ascendingTo(int members)
{
    Numbers numbers(static_cast<size_t>(members));
    std::iota(numbers.begin(), numbers.end(), 0);
    return numbers;
}

Numbers of(int members, int (*number)(int at, int members))
{
    Numbers numbers;
    for (int at = 0; at < members; ++at)
        numbers.push_back(number(at, members));
    return numbers;
}

// The middle of each range is its largest element, down to the shortest range.
Numbers middleIsLargest(int members)
{
    Numbers numbers = ascendingTo(members);
    for (int high = 1; high < members - 1; ++high)
        std::swap(numbers[high], numbers[high / 2]);
    std::swap(numbers[members - 1], numbers[members / 2]);
    return numbers;
}

Numbers shuffled(Numbers numbers)
{
    std::mt19937 random(31006);
    std::shuffle(numbers.begin(), numbers.end(), random);
    return numbers;
}

struct Shape {
    char const* name;
    Numbers numbers;  // -1 stands for a null
};

std::vector<Shape> shapesOf(int n)
{
    return {
        {"ascending", ascendingTo(n)},
        {"descending", of(n, [](int at, int all) { return all - at; })},
        {"all equal", Numbers(static_cast<size_t>(n), 7)},
        {"two alternating values", of(n, [](int at, int) { return at % 2; })},
        {"up, then down", of(n, [](int at, int all) { return std::min(at, all - at); })},
        {"down, then up", of(n, [](int at, int all) { return std::abs(all / 2 - at); })},
        {"two ascending runs", of(n, [](int at, int all) { return at % (all / 2) * 2; })},
        {"two descending runs", of(n, [](int at, int all) { return all - at % (all / 2); })},
        {"up, then down with other values",
         of(n, [](int at, int all) { return at < all / 2 ? 2 * at : 2 * (all - at) + 1; })},
        {"sawtooth", of(n, [](int at, int) { return at % 1000; })},
        {"rotated by one", of(n, [](int at, int all) { return (at + 1) % all; })},
        {"the largest in the middle", middleIsLargest(n)},
        {"random", shuffled(ascendingTo(n))},
        {"random, few values", shuffled(of(n, [](int at, int) { return at % 10; }))},
        {"up, then down, every third null",
         of(n, [](int at, int all) { return at % 3 == 0 ? -1 : std::min(at, all - at); })},
        {"the largest in the middle, nulls after them",
         [n] {
             Numbers numbers = middleIsLargest(n / 2);
             numbers.insert(numbers.end(), static_cast<size_t>(n - n / 2), -1);
             return numbers;
         }()},
    };
}

}  // namespace

TEST(ZArrayListSortLimits, AMillionElementsOfAnyShapeNeedFewComparisons)
{
    double const most = 5.0 * kMembers * std::log2(kMembers);
    for (Shape const& shape : shapesOf(kMembers)) {
        std::vector<CountedObject> members;
        members.reserve(shape.numbers.size());
        for (bool ascending : {true, false}) {
            SCOPED_TRACE(shape.name + std::string(ascending ? ", ascending" : ", descending"));
            members.clear();
            ZArrayList_6_0 list(kMembers, kBorrows);
            for (int number : shape.numbers)
                list.add(number < 0 ? nullptr : &members.emplace_back(number));

            Limited const comparator(most);
            EXPECT_NO_THROW(list.sort(comparator, ascending ? ZSortCompare_6_0::ascending
                                                            : ZSortCompare_6_0::descending));
            std::cout << shape.name << ": " << comparator.calls << " comparisons\n";

            Numbers const after = numbersOf(list);
            Numbers sorted, rest;
            for (size_t i = 0; i < after.size(); ++i) {
                if (shape.numbers[i] >= 0)
                    sorted.push_back(shape.numbers[i]);
                if (after[i] >= 0)
                    rest.push_back(after[i]);
                ASSERT_EQ(shape.numbers[i] < 0, after[i] < 0) << "element " << i;
            }
            std::sort(sorted.begin(), sorted.end());
            if (!ascending)
                std::reverse(sorted.begin(), sorted.end());
            ASSERT_TRUE(sorted == rest);
        }
    }
}

TEST(ZArrayListSortLimits, AnAdversarialComparatorCausesFewComparisons)
{
    // An adversary: fixes the order of two elements as late as possible, and always so that the
    // element that is compared most, the pivot, is among the smallest.
    class Adversary final : public ZSortCompare_6_0 {
    public:
        Adversary(int members, double most)
            : value_(static_cast<size_t>(members), members), most_(static_cast<long>(most))
        {
        }
        int sortCompare(ZObject_6_0 const* left, ZObject_6_0 const* right) const override
        {
            if (++calls == most_)
                throw std::runtime_error("too many comparisons");
            auto const open = static_cast<int>(value_.size());
            int& one = value_[static_cast<size_t>(numberOf(left))];
            int& other = value_[static_cast<size_t>(numberOf(right))];
            if (one == open && other == open)
                (left == candidate_ ? one : other) = decided_++;
            if (one == open)
                candidate_ = left;
            else if (other == open)
                candidate_ = right;
            return one - other;
        }
        mutable long calls = 0;

    private:
        mutable std::vector<int> value_;
        mutable int decided_ = 0;
        mutable ZObject_6_0 const* candidate_ = nullptr;
        long const most_;
    };
    std::vector<CountedObject> members;
    members.reserve(kMembers);
    ZArrayList_6_0 list(kMembers, kBorrows);
    for (int i = 0; i < kMembers; ++i)
        list.add(&members.emplace_back(i));
    Adversary const comparator(kMembers, 5.0 * kMembers * std::log2(kMembers));
    EXPECT_NO_THROW(list.sort(comparator, ZSortCompare_6_0::ascending));
    for (unsigned i = 1; i < list.size(); ++i)
        ASSERT_LE(comparator.sortCompare(list.get(i - 1), list.get(i)), 0);
}
