#include <Z/ZException.h>
#include <Z/ZLCString.h>
#include <Z/ZWinRegistry.h>
#include <gtest/gtest.h>

#include "Raised.h"

TEST(ZWinRegistry, RefusesEverything)
{
    ZLCString_6_0 out("as it was");
    EXPECT_TRUE(raises<ZInvalidPlatformException_6_0>(
        11, "src/Z/ZWinRegistry", 34, [] { ZWinRegistry_6_0::exists("key", "value"); }));
    EXPECT_TRUE(raises<ZInvalidPlatformException_6_0>(
        11, "src/Z/ZWinRegistry", 47, [&] { ZWinRegistry_6_0::getValue(nullptr, nullptr, out); }));
    EXPECT_STREQ("as it was", out.getChars());
}
