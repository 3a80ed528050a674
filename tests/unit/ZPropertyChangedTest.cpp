#include <Z/ZPropertyChanged.h>
#include <gtest/gtest.h>

using Changed = ZPropertyChanged_6_0;

TEST(ZPropertyChanged, HasTheValuesOfItsConstructor)
{
    Changed const change(Changed::storeChanged, Changed::set, "server", "port");
    EXPECT_EQ(0, change.style());
    EXPECT_EQ(2, change.type());
    EXPECT_STREQ("server", change.category().getChars());
    EXPECT_STREQ("port", change.key().getChars());
}

TEST(ZPropertyChanged, CopiesItsNames)
{
    char category[] = "server";
    char key[] = "port";
    Changed const change(Changed::storeChanged, Changed::removed, category, key);
    category[0] = key[0] = 'x';
    EXPECT_STREQ("server", change.category().getChars());
    EXPECT_STREQ("port", change.key().getChars());
}

TEST(ZPropertyChanged, NullNameIsEmpty)
{
    Changed const change(Changed::storeChanged, Changed::added, nullptr, nullptr);
    EXPECT_TRUE(change.category().isEmpty());
    EXPECT_TRUE(change.key().isEmpty());
}

TEST(ZPropertyChanged, NumbersTheTypesOfChanges)
{
    EXPECT_EQ(0, Changed::storeChanged);
    EXPECT_EQ(0, Changed::added);
    EXPECT_EQ(1, Changed::removed);
    EXPECT_EQ(2, Changed::set);
}

TEST(ZPropertyChanged, IsCopiedByItsCopyConstructorAndHasNoClone)
{
    Changed const change(Changed::storeChanged, Changed::set, "server", "port");
    Changed const copy(change);
    EXPECT_STREQ("port", copy.key().getChars());
    EXPECT_EQ(nullptr, change.clone());
    EXPECT_FALSE(change.equals(copy));
    EXPECT_TRUE(change.equals(change));
}
