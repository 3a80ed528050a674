// Strings near the limits of an int and of 32 bits.
#include <Z/ZException.h>
#include <Z/ZUTF8String.h>
#include <gtest/gtest.h>
#include <limits.h>

#include "EndlessText.h"
#include "Raised.h"
#include "Sanitizers.h"

namespace {

constexpr char kSource[] = "src/Z/ZAbstractString";
constexpr unsigned kMaxLength = 0xFFFFFFFE;

// A view of `length` bytes x.
class LongView {
public:
    explicit LongView(size_t length) : text_('x', length), view(text_.get()) {}

    // Stores `c` at `at`.
    void put(size_t at, char c) { text_.get()[at] = c; }

private:
    EndlessText<char> text_;

public:
    ZUTF8ConstString_6_0 const view;
};

class ZAbstractStringLength : public testing::Test {
protected:
    void SetUp() override
    {
        if (kHasSanitizer)
            GTEST_SKIP() << "takes too long with a sanitizer";
    }
};

}  // namespace

TEST_F(ZAbstractStringLength, APositionAboveTheLargestIntThrows)
{
    LongView text(size_t{INT_MAX} + 2);
    text.put(INT_MAX, 'y');
    EXPECT_EQ(INT_MAX, text.view.indexOf('y', 7));
    EXPECT_EQ(INT_MAX, text.view.indexOf("y", 7));
    EXPECT_EQ(INT_MAX, text.view.lastIndexOf('y'));
    EXPECT_EQ(INT_MAX, text.view.lastIndexOf("y"));
    text.put(INT_MAX, 'x');
    text.put(size_t{INT_MAX} + 1, 'y');
    auto const expectNone = [](auto call) {
        EXPECT_TRUE(raises<ZOutOfMemoryException_6_0>(1, kSource, 301, call));
    };
    expectNone([&] { text.view.indexOf('y', 7); });
    expectNone([&] { text.view.indexOf("y", 7); });
    expectNone([&] { text.view.lastIndexOf('y'); });
    expectNone([&] { text.view.lastIndexOf("y"); });
    expectNone([&] { text.view.lastIndexOf(nullptr); });
    EXPECT_TRUE(text.view.contains("y"));
}

TEST_F(ZAbstractStringLength, ALengthOfMoreThan32BitsThrows)
{
    LongView longest(kMaxLength);
    EXPECT_EQ(kMaxLength, longest.view.getLength());
    longest.put(10, '\xFF');
    EXPECT_EQ(10u, longest.view.getCharCount());

    LongView const longer(size_t{kMaxLength} + 1);
    EXPECT_TRUE(
        raises<ZOutOfMemoryException_6_0>(1, kSource, 412, [&] { longer.view.getLength(); }));
}

TEST_F(ZAbstractStringLength, ATextThatDoesNotFitLeavesTheStringUnchanged)
{
    LongView const text(size_t{kMaxLength} + 1);
    ZUTF8String_6_0 string("before");
    auto const expectNone = [&](auto call) {
        EXPECT_TRUE(
            raises<ZOutOfMemoryException_6_0>(1, "src/Z/ZAbstractMutableString", 436, call));
        EXPECT_STREQ("before", string);
        EXPECT_EQ(95u, string.getCapacity());
    };
    expectNone([&] { string = text.view.getChars(); });
    expectNone([&] { string += text.view.getChars(); });
    expectNone([&] { string.prepend(text.view.getChars()); });
    expectNone([&] { string.insert(3, text.view.getChars()); });
    expectNone([&] { string.replace("o", text.view.getChars()); });
}

TEST_F(ZAbstractStringLength, TheLargestCapacityLeavesSpaceForTheTerminator)
{
    ZUTF8String_6_0 string("before");
    EXPECT_TRUE(raises<ZOutOfMemoryException_6_0>(1, "src/Z/ZAbstractMutableString", 436,
                                                  [&] { string.setCapacity(kMaxLength + 1); }));
    try {
        EXPECT_EQ(kMaxLength, string.setCapacity(kMaxLength));
        EXPECT_STREQ("before", string);
    } catch (ZOutOfMemoryException_6_0 const&) {
        GTEST_SKIP() << "there is no such block";
    }
}
