#include <Z/@NAME@.h>
#include <gtest/gtest.h>

TEST(@NAME@, EqualsOnlyItself)
{
    @NAME@_6_0 const object;
    @NAME@_6_0 const another;
    EXPECT_TRUE(object.equals(object));
    EXPECT_FALSE(object.equals(another));
}
