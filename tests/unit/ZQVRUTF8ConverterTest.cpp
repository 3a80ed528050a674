#include <Z/ZBuffer.h>
#include <Z/ZException.h>
#include <Z/ZQVRUTF8Converter.h>
#include <Z/zqvrutil.h>
#include <gtest/gtest.h>
#include <langinfo.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "FailingAllocator.h"

namespace {

int codesetNameError = 0;  // result of qvr_os_cs_name(), unless 0

}  // namespace

extern "C" int __real_qvr_os_cs_name(char* buffer, size_t size);

extern "C" int __wrap_qvr_os_cs_name(char* buffer, size_t size)
{
    return codesetNameError != 0 ? codesetNameError : __real_qvr_os_cs_name(buffer, size);
}

namespace {

std::string bytesOf(ZBuffer_6_0 const& buffer)
{
    return std::string(static_cast<char const*>(buffer.getBuffer()), buffer.getLength());
}

std::string toUTF8(ZAbstractUTF8Converter_6_0 const& converter, char const* text)
{
    ZBuffer_6_0 buffer;
    converter.convertToUTF8(text, buffer);
    return bytesOf(buffer);
}

std::string toLocal(ZAbstractUTF8Converter_6_0 const& converter, char const* text)
{
    ZBuffer_6_0 buffer;
    converter.convertToLocal(text, buffer);
    return bytesOf(buffer);
}

// `text` with its terminator, which is converted too.
std::string ended(char const* text)
{
    return std::string(text, strlen(text) + 1);
}

// Unsets QVRDIR for one test.
class WithoutDirectory {
public:
    WithoutDirectory() : before_(getenv("QVRDIR"))
    {
        // Creates strings first, so that they do not end the process.
        zgetLCSHandle_6_0();
        unsetenv("QVRDIR");
    }
    WithoutDirectory(WithoutDirectory const&) = delete;
    WithoutDirectory& operator=(WithoutDirectory const&) = delete;
    ~WithoutDirectory() { setenv("QVRDIR", before_.c_str(), 1); }

    char const* before() const { return before_.c_str(); }

private:
    std::string before_;
};

template <class Make>
void expectNoDirectory(int line, Make make)
{
    try {
        make();
        ADD_FAILURE() << "no exception";
    } catch (ZNoQVREnvironmentException_6_0 const& e) {
        EXPECT_EQ(45u, e.messageNumber());
        EXPECT_STREQ("src/Z/ZQVRUTF8Converter", e.who());
        EXPECT_EQ(static_cast<unsigned>(line), e.where());
    }
}

}  // namespace

TEST(ZQVRUTF8Converter, ConvertsWithTheTerminator)
{
    struct Case {
        char const* codeset;
        char const* local;
        char const* utf8;
    };
    Case const cases[] = {
        {"ISO-8859-1", "abc", "abc"},
        {"ISO-8859-1", "", ""},
        {"ISO-8859-1", "\xE9\xFF", "\xC3\xA9\xC3\xBF"},
        {"windows-1252", "\x80", "\xE2\x82\xAC"},
        {"Shift_JIS", "\x95\x5C", "\xE8\xA1\xA8"},
        {"EUC-JP", "\xA4\xA2\xA4\xA4", "\xE3\x81\x82\xE3\x81\x84"},
        {"UTF-8", "\xF0\x9F\x98\x80", "\xF0\x9F\x98\x80"},
        {"IBM-1047", "\x81\x82\x83", "abc"},
        {"GB18030", "\x81\x30\x81\x30", "\xC2\x80"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.codeset);
        ZQVRUTF8Converter_6_0 const converter(c.codeset, nullptr);
        EXPECT_STREQ(c.codeset, converter.getLocalCodeSet());
        EXPECT_EQ(ended(c.utf8), toUTF8(converter, c.local));
        EXPECT_EQ(ended(c.local), toLocal(converter, c.utf8));
    }
}

TEST(ZQVRUTF8Converter, UsesTheLocalCodesetForNull)
{
    ZQVRUTF8Converter_6_0 const converter(nullptr, nullptr);
    EXPECT_STREQ(nl_langinfo(CODESET), converter.getLocalCodeSet());
    EXPECT_EQ(ended("abc"), toUTF8(converter, "abc"));
    if (strcmp(nl_langinfo(CODESET), "EUC-JP") == 0) {
        EXPECT_EQ(ended("\xE3\x81\x82"), toUTF8(converter, "\xA4\xA2"));
    }
    EXPECT_EQ(ended("abc"), toLocal(converter, "abc"));
}

TEST(ZQVRUTF8Converter, UsesTheTablesOfADirectory)
{
    WithoutDirectory const without;
    ZQVRUTF8Converter_6_0 const converter("UTF-8", without.before());
    EXPECT_STREQ("UTF-8", converter.getLocalCodeSet());
    EXPECT_EQ(ended("\xC3\xA9"), toUTF8(converter, "\xC3\xA9"));
}

TEST(ZQVRUTF8Converter, ReplacesTheContentsOfTheBuffer)
{
    ZQVRUTF8Converter_6_0 const converter("ISO-8859-1", nullptr);
    ZBuffer_6_0 buffer("the previous contents, which are much longer");
    converter.convertToUTF8("\xE9", buffer);
    EXPECT_EQ(ended("\xC3\xA9"), bytesOf(buffer));
    converter.convertToLocal("\xC3\xA9", buffer);
    EXPECT_EQ(ended("\xE9"), bytesOf(buffer));
    // Also with its own contents.
    converter.convertToUTF8(static_cast<char const*>(buffer.getBuffer()), buffer);
    EXPECT_EQ(ended("\xC3\xA9"), bytesOf(buffer));
}

TEST(ZQVRUTF8Converter, TreatsNullAsTheEmptyString)
{
    ZQVRUTF8Converter_6_0 const converter("ISO-8859-1", nullptr);
    EXPECT_EQ(ended(""), toUTF8(converter, nullptr));
    EXPECT_EQ(ended(""), toLocal(converter, nullptr));
}

TEST(ZQVRUTF8Converter, ConvertsNothingWithoutACodeset)
{
    ZQVRUTF8Converter_6_0 const none;
    EXPECT_STREQ("", none.getLocalCodeSet());
    ZQVRUTF8Converter_6_0 const empty("", nullptr);
    EXPECT_STREQ("", empty.getLocalCodeSet());
    ZQVRUTF8Converter_6_0 const unknown("no such codeset", nullptr);
    EXPECT_STREQ("no such codeset", unknown.getLocalCodeSet());
    zgetLCSHandle_6_0();
    codesetNameError = -1;
    ZQVRUTF8Converter_6_0 const nameless(nullptr, nullptr);
    codesetNameError = 0;
    EXPECT_STREQ("", nameless.getLocalCodeSet());
    for (ZQVRUTF8Converter_6_0 const* converter : {&none, &empty, &unknown, &nameless}) {
        ZBuffer_6_0 buffer("before");
        converter->convertToUTF8("abc", buffer);
        converter->convertToLocal("abc", buffer);
        EXPECT_EQ(ended("before"), bytesOf(buffer));
    }
}

TEST(ZQVRUTF8Converter, CannotBeCloned)
{
    ZQVRUTF8Converter_6_0 const converter;
    EXPECT_EQ(nullptr, converter.clone());
    EXPECT_TRUE(converter.equals(converter));
}

TEST(ZQVRUTF8Converter, IsDestroyedThroughEachOfItsBases)
{
    delete static_cast<ZObject_6_0*>(new ZQVRUTF8Converter_6_0("EUC-JP", nullptr));
    delete static_cast<ZUTF8ConverterInterface_6_0*>(new ZQVRUTF8Converter_6_0("EUC-JP", nullptr));
    delete static_cast<ZAbstractUTF8Converter_6_0*>(new ZQVRUTF8Converter_6_0("EUC-JP", nullptr));
}

TEST(ZQVRUTF8Converter, ServesConcurrentThreads)
{
    ZQVRUTF8Converter_6_0 const converter("Shift_JIS", nullptr);
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 200; ++round) {
                EXPECT_EQ(ended("\xE8\xA1\xA8"), toUTF8(converter, "\x95\x5C"));
                EXPECT_EQ(ended("\x95\x5C"), toLocal(converter, "\xE8\xA1\xA8"));
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}

// Failures.

TEST(ZQVRUTF8Converter, ThrowsWithoutADirectory)
{
    WithoutDirectory const without;
    expectNoDirectory(39, [] { ZQVRUTF8Converter_6_0(); });
    expectNoDirectory(59, [] { ZQVRUTF8Converter_6_0("UTF-8", nullptr); });
    expectNoDirectory(59, [] { ZQVRUTF8Converter_6_0(nullptr, nullptr); });
}

TEST(ZQVRUTF8Converter, ThrowsBeforeTheFirstStringEndsTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            unsetenv("QVRDIR");
            expectNoDirectory(39, [] { ZQVRUTF8Converter_6_0(); });
            expectNoDirectory(59, [] { ZQVRUTF8Converter_6_0("UTF-8", nullptr); });
            _exit(testing::Test::HasFailure() ? 1 : 0);
        },
        testing::ExitedWithCode(0), "");
}

TEST(ZQVRUTF8Converter, LeavesTheBufferIfMemoryIsShort)
{
    ZQVRUTF8Converter_6_0 const converter("ISO-8859-1", nullptr);
    std::string const text(200, 'x');
    ZBuffer_6_0 buffer("before");
    unsigned long const failed =
        failEachAllocation([&] { converter.convertToUTF8(text.c_str(), buffer); },
                           [&] { EXPECT_EQ(ended("before"), bytesOf(buffer)); });
    EXPECT_EQ(2u, failed);
    EXPECT_EQ(ended(text.c_str()), bytesOf(buffer));
}

// The first conversion of a thread to three bytes creates a converter.
TEST(ZQVRUTF8Converter, ThrowsIfTheTextServicesAreShortOfMemory)
{
    ZQVRUTF8Converter_6_0 const converter("EUC-JP", nullptr);
    unsigned raisedByTheServices = 0;
    bool failed = true;
    for (unsigned long n = 1; failed; ++n) {
        SCOPED_TRACE("allocation " + std::to_string(n));
        ZBuffer_6_0 buffer("before");
        bool raised = false;
        std::thread([&] {
            FailingAllocator::failAt(n);
            try {
                converter.convertToLocal("\xE4\xB8\x82", buffer);
            } catch (ZOutOfMemoryException_6_0 const& e) {
                raised = true;
                if (strcmp("src/Z/ZQVRUTF8Converter", e.who()) == 0 && e.where() == 102)
                    ++raisedByTheServices;
            }
            failed = FailingAllocator::stop();
        }).join();
        EXPECT_TRUE(failed || !raised);
        EXPECT_EQ(raised ? ended("before") : ended("\x8F\xB0\xA1"), bytesOf(buffer));
    }
    EXPECT_LT(0u, raisedByTheServices);
}

// Kept behaviours.

TEST(ZQVRUTF8Converter, KeepsSilentAboutTextThatDoesNotConvert)
{
    ZQVRUTF8Converter_6_0 const latin("ISO-8859-1", nullptr);
    ZQVRUTF8Converter_6_0 const japanese("EUC-JP", nullptr);
    ZBuffer_6_0 buffer("before");
    latin.convertToLocal("\xE3\x81\x82", buffer);  // not in the codeset
    EXPECT_EQ(ended("before"), bytesOf(buffer));
    latin.convertToLocal("\xFF", buffer);  // not UTF-8
    EXPECT_EQ(ended("before"), bytesOf(buffer));
    japanese.convertToUTF8("\xA4", buffer);  // truncated
    EXPECT_EQ(ended("before"), bytesOf(buffer));
}
