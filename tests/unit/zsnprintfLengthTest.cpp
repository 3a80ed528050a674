// Strings near INT_MAX bytes, in a codeset with the longest characters whose length does not divide
// that number.
#include <Z/zsnprintf.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <qvr.h>

#include <cstdarg>
#include <cstdint>

#include "EndlessText.h"
#include "Sanitizers.h"

constexpr int kBytes = 7;  // of every character

extern "C" int __wrap_qvr_wctomb(qvr_cs_t, char*, size_t, uint16_t)
{
    return kBytes;
}

namespace {

// The length of `format` without a codeset.
int lengthOf(char const* format, ...)
{
    ZPrintfContext_6_0 context;
    va_list args;
    va_start(args, format);
    int const rc = zvsnprintf_parse_6_0(&context, nullptr, format, args);
    va_end(args);
    EXPECT_EQ(0, rc);
    int const length = zvsnprintf_render_6_0(&context, nullptr, 0);
    zvsnprintf_done_6_0(&context);
    return length;
}

}  // namespace

TEST(zsnprintfLength, AWideStringAboveTheLargestLengthFails)
{
    if (kHasSanitizer)
        GTEST_SKIP() << "takes too long with a sanitizer";
    // One character fewer gives 2,147,483,646 bytes, with space for one more byte.
    EndlessText<uint16_t> const text('x', INT_MAX / kBytes + 1);
    EXPECT_EQ(-1, lengthOf("%S", text.get()));
    EXPECT_EQ(INT_MAX - 1, lengthOf("%S", text.get() + 1));
}

TEST(zsnprintfLength, AStringAboveTheLargestLengthFails)
{
    if (kHasSanitizer)
        GTEST_SKIP() << "takes too long with a sanitizer";
    EndlessText<char> const text('x', size_t{INT_MAX} + 1);
    EXPECT_EQ(-1, lengthOf("%s", text.get()));
    EXPECT_EQ(INT_MAX, lengthOf("%s", text.get() + 1));
    EXPECT_EQ(-1, lengthOf("%s!", text.get() + 1));
    EXPECT_EQ(-1, lengthOf("!%.2147483647s", text.get()));
    EXPECT_EQ(INT_MAX, lengthOf("%.2147483647s", text.get()));
}
