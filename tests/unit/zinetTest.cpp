#include <Z/zinet.h>
#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>

TEST(zinet, ConvertsAddressesBothWays)
{
    struct Case {
        char const* text;
        int family;
    };
    Case const cases[] = {{"127.0.0.1", AF_INET},
                          {"255.255.255.255", AF_INET},
                          {"::1", AF_INET6},
                          {"2001:db8::8:800:200c:417a", AF_INET6}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.text);
        unsigned char address[16] = {};
        ASSERT_EQ(1, zinet_pton_6_0(c.family, c.text, address));
        unsigned char expected[16] = {};
        inet_pton(c.family, c.text, expected);
        EXPECT_EQ(0, memcmp(expected, address, sizeof address));
        char text[64];
        EXPECT_EQ(text, zinet_ntop_6_0(c.family, address, text, sizeof text));
        EXPECT_STREQ(c.text, text);
    }
}

TEST(zinet, RefusesWhatIsNoAddress)
{
    unsigned char address[16];
    EXPECT_EQ(0, zinet_pton_6_0(AF_INET, "1.2.3", address));
    EXPECT_EQ(0, zinet_pton_6_0(AF_INET, "", address));
    EXPECT_EQ(-1, zinet_pton_6_0(-1, "1.2.3.4", address));
    EXPECT_EQ(EAFNOSUPPORT, errno);
    unsigned char const home[4] = {127, 0, 0, 1};
    char small[4];
    EXPECT_EQ(nullptr, zinet_ntop_6_0(AF_INET, home, small, sizeof small));
    EXPECT_EQ(ENOSPC, errno);
    EXPECT_EQ(nullptr, zinet_ntop_6_0(-1, home, small, sizeof small));
}

TEST(zinet, SwitchesCloseOnExec)
{
    int const fd = open("/dev/null", O_RDONLY);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(1, zsetfileinheritance_6_0(fd, 0));
    EXPECT_EQ(FD_CLOEXEC, fcntl(fd, F_GETFD));
    EXPECT_EQ(1, zsetfileinheritance_6_0(fd, 1));
    EXPECT_EQ(0, fcntl(fd, F_GETFD));
    EXPECT_EQ(1, zsetfileinheritance_6_0(fd, -1));
    EXPECT_EQ(0, fcntl(fd, F_GETFD));
    close(fd);
    EXPECT_EQ(0, zsetfileinheritance_6_0(fd, 1));
    EXPECT_EQ(0, zsetfileinheritance_6_0(-1, 0));
}
