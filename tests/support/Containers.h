// Containers: helpers of the container tests.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "CountedObject.h"

constexpr int kBorrows = 0;
constexpr int kOwns = 1;

using Numbers = std::vector<int>;

// The numbers of the elements of a list or an array; -1 stands for a null.
template <class Container>
Numbers numbersOf(Container const& container)
{
    Numbers numbers;
    for (unsigned i = 0; i < container.size(); ++i)
        numbers.push_back(numberOf(container.get(i)));
    return numbers;
}

// Checks that no CountedObject outlives the test.
class CountingTest : public testing::Test {
protected:
    void SetUp() override { CountedObject::alive = 0; }
    void TearDown() override
    {
        CountedObject::clonesUntilThrow = 0;
        EXPECT_EQ(0, CountedObject::alive);
    }
};

// An object whose first clone() calls a function before it clones, usually one that changes the
// container that clones the object.
class CloneHook : public CountedObject {
public:
    CloneHook(int number, std::function<void()> change)
        : CountedObject(number), change_(std::move(change))
    {
    }
    ZObject_6_0* clone() const override
    {
        if (auto const change = std::exchange(change_, nullptr))
            change();
        return new CountedObject(*this);
    }

private:
    mutable std::function<void()> change_;
};
