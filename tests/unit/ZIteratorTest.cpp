#include <Z/ZIterator.h>
#include <gtest/gtest.h>

#include <vector>

#include "CountedObject.h"

namespace {

// Iterates over a vector.
class VectorIterator : public ZAbstractIterator_6_0 {
public:
    explicit VectorIterator(std::vector<ZObject_6_0*> const& objects) : objects_(objects) {}
    bool hasMore() override { return next_ < objects_.size(); }
    ZObject_6_0* getNext() override { return hasMore() ? objects_[next_++] : nullptr; }

private:
    std::vector<ZObject_6_0*> const objects_;
    size_t next_ = 0;
};

}  // namespace

TEST(ZIterator, FindsTheNextEqualAndStopsJustPastIt)
{
    CountedObject one(1), two(2), otherTwo(2), three(3);
    VectorIterator iterator({&one, &two, &otherTwo, &three});
    CountedObject const target(2);
    EXPECT_EQ(&two, iterator.findNext(target));
    EXPECT_EQ(&otherTwo, iterator.findNext(target));
    EXPECT_EQ(&three, iterator.getNext());
}

TEST(ZIterator, ReachesTheEndIfNothingIsFound)
{
    CountedObject one(1);
    VectorIterator iterator({&one, &one});
    EXPECT_EQ(nullptr, iterator.findNext(CountedObject(2)));
    EXPECT_FALSE(iterator.hasMore());
    EXPECT_EQ(nullptr, iterator.findNext(CountedObject(1)));
}

TEST(ZIterator, SkipsNulls)
{
    CountedObject one(1);
    VectorIterator iterator({nullptr, nullptr, &one, nullptr});
    EXPECT_EQ(&one, iterator.findNext(CountedObject(1)));
    EXPECT_EQ(nullptr, iterator.findNext(CountedObject(1)));
}

TEST(ZIterator, CallsEqualsOfTheTarget)
{
    CountedObject one(1);
    VectorIterator iterator({&one});
    EXPECT_EQ(&one, iterator.findNext(EqualToAll()));
}

TEST(ZIterator, IsUsableThroughItsInterface)
{
    CountedObject one(1);
    VectorIterator walked({&one});
    ZIterator_6_0& iterator = walked;
    EXPECT_TRUE(iterator.hasMore());
    EXPECT_EQ(&one, iterator.getNext());
    EXPECT_FALSE(iterator.hasMore());
    EXPECT_EQ(nullptr, iterator.getNext());
}
