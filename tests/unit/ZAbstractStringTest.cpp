#include <Z/ZAbstractString.h>
#include <Z/ZException.h>
#include <Z/ZLCString.h>
#include <Z/ZUTF8String.h>
#include <Z/zqvrutil.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <qvr.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "CountedObject.h"
#include "LinearTime.h"
#include "LocalText.h"
#include "MeasuredLength.h"
#include "PageEnd.h"
#include "Raised.h"
#include "Slots.h"

namespace {

constexpr char kSource[] = "src/Z/ZAbstractString";

int sign(int number)
{
    return number < 0 ? -1 : number > 0;
}

// A string of `length` bytes x that uses little memory: it maps the same few megabytes repeatedly.
class LongText {
public:
    explicit LongText(size_t length) : room_(length / kPiece * kPiece + kPiece)
    {
        int const fd = memfd_create("text", 0);
        std::string const piece(kPiece, 'x');
        void* const block =
            mmap(nullptr, room_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (fd < 0 || write(fd, piece.data(), kPiece) != ssize_t{kPiece} || block == MAP_FAILED)
            throw std::runtime_error("no pages");
        text_ = static_cast<char*>(block);
        for (size_t at = 0; at < length; at += kPiece)
            if (mmap(text_ + at, kPiece, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_FIXED, fd, 0) ==
                MAP_FAILED)
                throw std::runtime_error("no pages");
        close(fd);
        text_[length] = 0;
    }
    LongText(LongText const&) = delete;
    LongText& operator=(LongText const&) = delete;
    ~LongText() { munmap(text_, room_); }

    char const* text() const { return text_; }

private:
    static constexpr size_t kPiece = size_t{8} << 20;
    size_t room_;
    char* text_;
};

// The codeset that is unavailable, in a child process that tests the failure.
char const* missingCodeset = nullptr;

}  // namespace

// Overrides the function of the text services, so that a test can make it fail.
extern "C" qvr_cs_t qvr_cs_new(char const* name)
{
    if (missingCodeset != nullptr && (*missingCodeset == 0 || std::string(name) == missingCodeset))
        return nullptr;
    static auto const next =
        reinterpret_cast<qvr_cs_t (*)(char const*)>(dlsym(RTLD_NEXT, "qvr_cs_new"));
    return next(name);
}

// ---- The first string ------------------------------------------------------------------------

// Eight threads at the same time, none of which has created a string before: each sees both
// handles. In a process of its own; also intended for ThreadSanitizer.
TEST(ZAbstractStringDeathTest, EightThreadsCreateTheFirstString)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    auto const run = [] {
        std::atomic<int> ready{0};
        std::atomic<int> good{0};
        std::vector<std::thread> threads;
        for (int i = 0; i < 8; ++i) {
            threads.emplace_back([&, i] {
                ++ready;
                while (ready < 8)
                    std::this_thread::yield();
                bool handles;
                if (i % 2 == 0) {
                    ZLCString_6_0 const string("text");
                    handles = string.getCodesetHandle() == zgetLCSHandle_6_0();
                } else {
                    ZUTF8ConstString_6_0 const string("text");
                    handles = string.getCodesetHandle() == zgetUTF8Handle_6_0();
                }
                if (handles && ZAbstractString_6_0::lcs_handle_ == zgetLCSHandle_6_0() &&
                    ZAbstractString_6_0::utf8_handle_ == zgetUTF8Handle_6_0())
                    ++good;
            });
        }
        for (std::thread& thread : threads)
            thread.join();
        exit(good == 8 ? 0 : 1);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

TEST(ZAbstractStringDeathTest, TheFirstStringWithoutQvrdirEndsTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            unsetenv("QVRDIR");
            ZUTF8String_6_0 const string("text");
        },
        testing::KilledBySignal(SIGABRT),
        "Exception: ZNoQVREnvironmentException(.|\n)*The QVRDIR environment variable is not "
        "set\\.");
}

// The report of a missing codeset is an exception that contains strings, which need the codeset.
TEST(ZAbstractStringDeathTest, AMissingCodesetIsReportedOnceAndEndsTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    for (char const* missing : {"", "UTF8"}) {
        SCOPED_TRACE(missing);
        EXPECT_EXIT(
            {
                missingCodeset = missing;
                ZLCString_6_0 const string("text");
            },
            testing::KilledBySignal(SIGABRT),
            "^Exception: ZCodesetException\n File: \"src/Z/zqvrutil\" 129\n Error: 47\n Thread: "
            "[-0-9]+\nNUM_MSGS = [0-9]+\nCodeset handle create failed for codeset \"[^\"]+\".  "
            // An emulator adds a line about the signal.
            "QVRDIR is \"[^\"]+\"\n?(qemu: [^\n]*\n?)?$");
    }
}

TEST(ZAbstractString, HandlesIdentifyTheCodesets)
{
    ZLCString_6_0 const local;
    ZUTF8String_6_0 const utf8;
    EXPECT_NE(nullptr, ZAbstractString_6_0::lcs_handle_);
    EXPECT_NE(nullptr, ZAbstractString_6_0::utf8_handle_);
    EXPECT_NE(ZAbstractString_6_0::lcs_handle_, ZAbstractString_6_0::utf8_handle_);
    EXPECT_EQ(ZAbstractString_6_0::lcs_handle_, local.getCodesetHandle());
    EXPECT_EQ(ZAbstractString_6_0::lcs_handle_, ZLCConstString_6_0().getCodesetHandle());
    EXPECT_EQ(ZAbstractString_6_0::utf8_handle_, utf8.getCodesetHandle());
    EXPECT_EQ(ZAbstractString_6_0::utf8_handle_, ZUTF8ConstString_6_0().getCodesetHandle());
}

TEST(ZAbstractString, VirtualFunctionsKeepTheirSlots)
{
    using S = ZAbstractString_6_0;
    EXPECT_EQ(2, slotOf(&S::hash));
    EXPECT_EQ(3, slotOf(static_cast<int (S::*)(ZObject_6_0 const&) const>(&S::compare)));
    EXPECT_EQ(4, slotOf(&S::clone));
    EXPECT_EQ(5, slotOf(static_cast<bool (S::*)(ZObject_6_0 const&) const>(&S::equals)));
    EXPECT_EQ(6, slotOf(static_cast<int (S::*)(char const*) const>(&S::compare)));
    EXPECT_EQ(7, slotOf(static_cast<int (S::*)(char const*) const>(&S::compareignorecase)));
    EXPECT_EQ(8, slotOf(&S::getChars));
    EXPECT_EQ(9, slotOf(&S::setChars));
    EXPECT_EQ(10, slotOf(&S::getLength));
    EXPECT_EQ(11, slotOf(&S::getCharCount));
    EXPECT_EQ(12, slotOf(static_cast<bool (S::*)(int) const>(&S::contains)));
    EXPECT_EQ(13, slotOf(static_cast<bool (S::*)(char const*) const>(&S::contains)));
    EXPECT_EQ(14, slotOf(static_cast<int (S::*)(int, unsigned) const>(&S::indexOf)));
    EXPECT_EQ(15, slotOf(static_cast<int (S::*)(char const*, unsigned) const>(&S::indexOf)));
    EXPECT_EQ(16, slotOf(static_cast<int (S::*)(int) const>(&S::lastIndexOf)));
    EXPECT_EQ(17, slotOf(static_cast<int (S::*)(char const*) const>(&S::lastIndexOf)));
    EXPECT_EQ(18, slotOf(static_cast<bool (S::*)(char const*) const>(&S::beginsWith)));
    EXPECT_EQ(19, slotOf(static_cast<bool (S::*)(char const*) const>(&S::endsWith)));
    EXPECT_EQ(20, slotOf(static_cast<bool (S::*)(char const*) const>(&S::equals)));
    EXPECT_EQ(21, slotOf(&S::isEmpty));
    EXPECT_EQ(22, slotOf(&S::operator char const*));
    EXPECT_EQ(23, slotOf(&S::data));
    EXPECT_EQ(24, slotOf(&S::getCodesetHandle));
}

// ---- Hash ------------------------------------------------------------------------------------

TEST(ZAbstractString, HashIsThirtyThreeTimesXorByte)
{
    struct Case {
        char const* text;
        uint32_t hash;
    };
    Case const cases[] = {
        {"", 5381}, {"a", 177604}, {"\xFF", (5381u * 33) ^ 0xFF}, {"ab", (177604u * 33) ^ 'b'}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(c.hash, ZLCConstString_6_0(c.text).hash());
        EXPECT_EQ(c.hash, ZUTF8String_6_0(c.text).hash());
    }
}

TEST(ZAbstractString, HashWrapsAtThirtyTwoBits)
{
    std::string text;
    uint32_t expected = 5381;
    for (int i = 0; i < 5000; ++i) {
        char const c = static_cast<char>(1 + i % 255);
        text += c;
        expected = (expected * 33) ^ static_cast<unsigned char>(c);
    }
    EXPECT_EQ(expected, ZLCString_6_0(text.c_str()).hash());
}

TEST(ZAbstractString, HashEndsAtAZeroByte)
{
    EXPECT_EQ(177604u, ZLCString_6_0("a\0b", 3).hash());
}

// ---- Comparison ------------------------------------------------------------------------------

TEST(ZAbstractString, CompareIsTheCollatingOrderOfTheLocale)
{
    std::string const wide = localCharacter().local;
    std::string const texts[] = {"",  "a", "A",  "b",       "aa",       "a b", "a-b",
                                 "z", "0", "10", wide + "", "a" + wide, "Z"};
    for (std::string const& a : texts) {
        for (std::string const& b : texts) {
            SCOPED_TRACE("\"" + a + "\" and \"" + b + "\"");
            int const expected = sign(strcoll(a.c_str(), b.c_str()));
            ZLCString_6_0 const left(a.c_str());
            EXPECT_EQ(expected, sign(left.compare(b.c_str())));
            EXPECT_EQ(expected, sign(left.compare(ZLCConstString_6_0(b.c_str()))));
            ZObject_6_0 const& object = left;
            ZLCConstString_6_0 const right(b.c_str());
            EXPECT_EQ(expected, sign(object.compare(right)));
            EXPECT_EQ(expected < 0, object < right);
        }
    }
}

TEST(ZAbstractString, NullComparesAsTheEmptyString)
{
    char const* const null = nullptr;
    EXPECT_EQ(0, ZLCString_6_0().compare(null));
    EXPECT_GT(ZLCString_6_0("a").compare(null), 0);
    EXPECT_EQ(0, ZUTF8ConstString_6_0().compareignorecase(null));
    EXPECT_GT(ZUTF8ConstString_6_0("a").compareignorecase(null), 0);
}

TEST(ZAbstractString, CompareIgnoreCaseIgnoresCase)
{
    EXPECT_EQ(0, ZLCString_6_0("AbC").compareignorecase("aBc"));
    EXPECT_LT(ZLCString_6_0("AbC").compareignorecase("abD"), 0);
    EXPECT_GT(ZUTF8String_6_0("abd").compareignorecase("ABC"), 0);
    EXPECT_EQ(0, ZUTF8String_6_0("\xC3\x84").compareignorecase("\xC3\xA4"));  // Ä and ä
    if (localCodeset() == "ISO-8859-1") {
        EXPECT_EQ(0, ZLCString_6_0("\xC4").compareignorecase("\xE4"));
    }
}

TEST(ZAbstractString, ComparingCodesetsThrows)
{
    ZLCString_6_0 const local("a");
    ZUTF8String_6_0 const utf8("a");
    ZObject_6_0 const& object = local;
    EXPECT_TRUE(raises<ZUnsupportedException_6_0>(48, kSource, 68, [&] { object.compare(utf8); }));
    EXPECT_TRUE(raises<ZUnsupportedException_6_0>(48, kSource, 68, [&] {
        utf8.compare(static_cast<ZObject_6_0 const&>(ZLCConstString_6_0("a")));
    }));
    EXPECT_STREQ("a", local);
    EXPECT_STREQ("a", utf8);
}

TEST(ZAbstractString, ComparingWithAnotherClassThrows)
{
    ZLCString_6_0 const local("a");
    CountedObject const other;
    EXPECT_TRUE(raises<ZUnsupportedException_6_0>(48, kSource, 68, [&] { local.compare(other); }));
}

TEST(ZAbstractString, EqualsIsByteEquality)
{
    ZLCString_6_0 const a("text");
    struct Case {
        char const* name;
        std::unique_ptr<ZObject_6_0> other;
        bool equal;
    };
    Case cases[7];
    cases[0] = {"same class", std::make_unique<ZLCString_6_0>("text"), true};
    cases[1] = {"view", std::make_unique<ZLCConstString_6_0>("text"), true};
    cases[2] = {"other codeset", std::make_unique<ZUTF8String_6_0>("text"), true};
    cases[3] = {"other bytes", std::make_unique<ZLCString_6_0>("texT"), false};
    cases[4] = {"other length", std::make_unique<ZLCString_6_0>("texts"), false};
    cases[5] = {"zero byte at the end", std::make_unique<ZLCString_6_0>("text\0", 5), false};
    cases[6] = {"not a string", std::make_unique<CountedObject>(), false};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.equal, a.equals(*c.other));
    }
    EXPECT_TRUE(a.equals("text"));
    EXPECT_FALSE(a.equals("text "));
    EXPECT_FALSE(a.equals(static_cast<char const*>(nullptr)));
    EXPECT_FALSE(ZLCString_6_0().equals(static_cast<char const*>(nullptr)));
    EXPECT_TRUE(ZLCString_6_0("a\0b", 3).equals(
        static_cast<ZObject_6_0 const&>(ZUTF8String_6_0("a\0b", 3))));
}

// ---- Searching ---------------------------------------------------------------------------------

TEST(ZAbstractString, IndexOfGivesTheFirstPosition)
{
    struct Case {
        char const* text;
        char const* wanted;
        unsigned from;
        int position;
    };
    Case const cases[] = {{"abcabc", "bc", 0, 1},  {"abcabc", "bc", 2, 4}, {"abcabc", "bc", 5, -1},
                          {"abcabc", "x", 0, -1},  {"abc", "x", 1000, -1}, {"abc", "", 0, 0},
                          {"abc", "", 1000, 3},    {"", "", 0, 0},         {"", "a", 0, -1},
                          {"abc", nullptr, 0, -1}, {"abc", "abcd", 0, -1}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(c.position, ZUTF8String_6_0(c.text).indexOf(c.wanted, c.from));
        EXPECT_EQ(c.position, ZLCConstString_6_0(c.text).indexOf(c.wanted, c.from));
        if (c.wanted != nullptr && strlen(c.wanted) == 1) {
            EXPECT_EQ(c.position, ZLCConstString_6_0(c.text).indexOf(c.wanted[0], c.from));
        }
    }
    EXPECT_EQ(1, ZLCString_6_0("abcb").indexOf('b', 0));
    EXPECT_EQ(3, ZLCString_6_0("abcb").indexOf('b', 2));
    EXPECT_EQ(3, ZLCString_6_0("abc").indexOf(0, 0));
    EXPECT_EQ(3, ZLCString_6_0("abc").indexOf(0, 1000));
    EXPECT_EQ(1, ZLCString_6_0("a\xE9").indexOf(0xE9, 0));
}

TEST(ZAbstractString, ContainsReturnsWhetherItOccurs)
{
    ZLCString_6_0 const text("abc");
    EXPECT_TRUE(text.contains("bc"));
    EXPECT_TRUE(text.contains(""));
    EXPECT_FALSE(text.contains("cb"));
    EXPECT_FALSE(text.contains(static_cast<char const*>(nullptr)));
    EXPECT_TRUE(text.contains('c'));
    EXPECT_TRUE(text.contains(0));
    EXPECT_FALSE(text.contains('d'));
}

// Strings longer than a few machine words, at the start, the end and every position between.
TEST(ZAbstractString, LongStringsAreFoundAtEveryPosition)
{
    for (size_t length : {31u, 32u, 33u, 34u, 100u}) {
        std::string const needle = std::string(length - 1, 'a') + "b";
        for (size_t before = 0; before < 9 * length; ++before) {
            SCOPED_TRACE(std::to_string(before) + " before " + std::to_string(length));
            std::string text = std::string(before, 'x');
            if (before % 2 == 0 && before > 0)
                text.back() = 'a';  // the text then has a partial match one position earlier
            text += needle;
            PageEnd const end(text);
            PageEnd const wanted(needle);
            ZUTF8ConstString_6_0 const string(end.text());
            EXPECT_EQ(static_cast<int>(before), string.indexOf(wanted.text(), 0));
            EXPECT_EQ(static_cast<int>(before), string.lastIndexOf(wanted.text()));
            EXPECT_EQ(-1, string.indexOf(wanted.text(), static_cast<unsigned>(before + 1)));
            PageEnd const more(needle + "b");
            EXPECT_FALSE(string.contains(more.text()));
        }
    }
}

TEST(ZAbstractString, ALongStringIsFoundInLinearTime)
{
    auto const prepare = [](size_t size) {
        std::string text, wanted;
        for (size_t i = 0; i < size; ++i) {
            text += "ab";
            if (i % 2 == 0)
                wanted += "ab";
        }
        wanted += "aa";
        return [text, wanted] {
            ZUTF8String_6_0 string(text.c_str());
            EXPECT_EQ(-1, string.indexOf(wanted.c_str(), 0));
            EXPECT_EQ(-1, string.lastIndexOf(wanted.c_str()));
            EXPECT_FALSE(string.contains(wanted.c_str()));
            string.replace(wanted.c_str(), "");
            EXPECT_EQ(text.size(), string.getLength());
        };
    };
    EXPECT_TRUE(takesLinearTime(4000, prepare));
}

TEST(ZAbstractString, LastIndexOfGivesTheLastPosition)
{
    struct Case {
        char const* text;
        char const* wanted;
        int ofText;
        int ofByte;  // result for the first byte of `wanted`
    };
    Case const cases[] = {
        {"abc", "b", 1, 1},     {"abcb", "b", 3, 3},    {"abc", "a", 0, 0},
        {"abc", "x", -1, -1},   {"aaaa", "aa", 2, 3},   {"aaaaa", "aa", 2, 4},
        {"abc", "", 3, 3},      {"", "", 0, 0},         {"", "a", -1, -1},
        {"abcabc", "bc", 4, 4}, {"abc", nullptr, 3, 0}, {"\xE3\x81\x82z\xE3\x81\x82z", "z", 7, 7}};
    for (Case const& c : cases) {
        SCOPED_TRACE(std::string(c.text) + " " + (c.wanted == nullptr ? "null" : c.wanted));
        ZUTF8String_6_0 const string(c.text);
        EXPECT_EQ(c.ofText, string.lastIndexOf(c.wanted));
        if (c.wanted != nullptr) {
            EXPECT_EQ(c.ofByte, string.lastIndexOf(static_cast<unsigned char>(c.wanted[0])));
        }
    }
}

TEST(ZAbstractString, LastIndexOfInAMultibyteLocaleIsThePosition)
{
    if (isSingleByteLocale())
        GTEST_SKIP() << "the locale has one byte per character";
    std::string const wide = localCharacter().local;
    ZLCString_6_0 const text((wide + "b" + wide + "bc").c_str());
    int const width = static_cast<int>(wide.size());
    EXPECT_EQ(2 * width + 1, text.lastIndexOf('b'));
    EXPECT_EQ(2 * width + 3, text.lastIndexOf(0));
    EXPECT_EQ(2 * width + 1, text.lastIndexOf("bc"));
    EXPECT_EQ(width + 1, text.lastIndexOf(wide.c_str()));
    EXPECT_EQ(0, ZLCString_6_0("abc").lastIndexOf('a'));
}

TEST(ZAbstractString, LastIndexOfACharacterLongerThanTheTextThrows)
{
    ZUTF8ConstString_6_0 const text("abc");
    MeasuredLength const wrong(3);
    EXPECT_EQ(0, text.lastIndexOf('a'));
    EXPECT_TRUE(raises<ZQVRMBLenException_6_0>(46, kSource, 290, [&] { text.lastIndexOf('b'); }));
}

TEST(ZAbstractString, LastIndexOfEndsAtAZeroInTheText)
{
    ZUTF8String_6_0 const text("ab\0ab", 5);
    ASSERT_EQ(5u, text.getLength());
    EXPECT_EQ(0, text.lastIndexOf('a'));
    EXPECT_EQ(2, text.lastIndexOf(0));
}

TEST(ZAbstractString, LastIndexOfACharacterThatCannotBeMeasuredThrows)
{
    PageEnd const cut("a\xE3\x81");
    ZUTF8ConstString_6_0 const text(cut.text());
    EXPECT_TRUE(raises<ZQVRMBLenException_6_0>(46, kSource, 290, [&] { text.lastIndexOf(0xE3); }));
    EXPECT_TRUE(raises<ZQVRMBLenException_6_0>(46, kSource, 290, [&] { text.lastIndexOf(0x81); }));
    EXPECT_EQ(0, text.lastIndexOf('a'));
    std::string const localCut = localCharacter().cut;
    if (!localCut.empty()) {
        PageEnd const end("a" + localCut);
        ZLCConstString_6_0 const local(end.text());
        EXPECT_TRUE(raises<ZQVRMBLenException_6_0>(
            46, kSource, 290, [&] { local.lastIndexOf(static_cast<unsigned char>(localCut[0])); }));
    }
}

TEST(ZAbstractString, BeginsWithAndEndsWith)
{
    struct Case {
        char const* text;
        char const* other;
        bool begins;
        bool ends;
    };
    Case const cases[] = {
        {"abc", "ab", true, false},    {"abc", "bc", false, true},   {"abc", "abc", true, true},
        {"abc", "abcd", false, false}, {"abc", "", true, false},     {"", "", false, false},
        {"", "a", false, false},       {"abc", nullptr, true, true}, {"", nullptr, true, true},
        {"abab", "ab", true, true},    {"abc", "AB", false, false},  {"xab", "ab", false, true}};
    for (Case const& c : cases) {
        SCOPED_TRACE(std::string(c.text) + " " + (c.other == nullptr ? "null" : c.other));
        ZLCString_6_0 const string(c.text);
        EXPECT_EQ(c.begins, string.beginsWith(c.other));
        EXPECT_EQ(c.ends, string.endsWith(c.other));
        if (c.other != nullptr) {
            EXPECT_EQ(c.begins, string.beginsWith(ZUTF8ConstString_6_0(c.other)));
            EXPECT_EQ(c.ends, string.endsWith(ZLCString_6_0(c.other)));
        }
    }
}

TEST(ZAbstractString, BeginsWithAndEndsWithIgnoringCase)
{
    struct Case {
        char const* text;
        char const* other;
        bool begins;
        bool ends;
    };
    Case const cases[] = {{"AbC", "aB", true, false},
                          {"AbC", "Bc", false, true},
                          {"AbC", "aBc", true, true},
                          {"AbC", "", false, false},
                          {"", "", false, false},
                          {"", "a", false, false},
                          {"ab", "abc", false, false},
                          {"\xC3\x84z", "\xC3\xA4", true, false},
                          {"z\xC3\x84", "\xC3\xA4", false, true}};
    for (Case const& c : cases) {
        SCOPED_TRACE(std::string(c.text) + " " + c.other);
        ZUTF8String_6_0 const string(c.text);
        EXPECT_EQ(c.begins, string.beginsWithCaseIgnored(ZUTF8String_6_0(c.other)));
        EXPECT_EQ(c.ends, string.endsWithCaseIgnored(ZUTF8ConstString_6_0(c.other)));
    }
}

TEST(ZAbstractString, TheTextHasThreeAccessors)
{
    ZLCString_6_0 const string("text");
    char const* const converted = string;
    EXPECT_EQ(string.getChars(), converted);
    EXPECT_EQ(string.getChars(), string.data());
    EXPECT_FALSE(string.isEmpty());
    EXPECT_TRUE(ZLCString_6_0().isEmpty());
    EXPECT_TRUE(ZUTF8ConstString_6_0().isEmpty());
}

// ---- Views -----------------------------------------------------------------------------------

TEST(ZAbstractString, AViewOfNothingSharesTheEmptyString)
{
    EXPECT_EQ(ZAbstractConstString_6_0::zemptyString, ZLCConstString_6_0().getChars());
    char const* const null = nullptr;
    EXPECT_EQ(ZAbstractConstString_6_0::zemptyString, ZUTF8ConstString_6_0(null).getChars());
    EXPECT_EQ(0u, ZUTF8ConstString_6_0(null).getLength());
    ZLCConstString_6_0 view("text");
    EXPECT_EQ(4u, view.getLength());
    view = null;
    EXPECT_EQ(ZAbstractConstString_6_0::zemptyString, view.getChars());
    EXPECT_EQ(0u, view.getLength());
}

TEST(ZAbstractString, AViewMeasuresOnceUnlessItIsEmpty)
{
    char text[] = "text";
    ZLCConstString_6_0 const view(text);
    EXPECT_EQ(4u, view.getLength());
    text[2] = 0;
    EXPECT_EQ(4u, view.getLength());
    ZLCConstString_6_0 const copy(view);
    EXPECT_EQ(4u, copy.getLength());
    EXPECT_EQ(text, copy.getChars());

    char empty[] = "\0ext";
    ZLCConstString_6_0 const late(empty);
    EXPECT_EQ(0u, late.getLength());
    empty[0] = 't';
    EXPECT_EQ(4u, late.getLength());
}

TEST(ZAbstractString, AnAssignedViewForgetsItsLength)
{
    ZLCString_6_0 const longer("longer text");
    ZLCConstString_6_0 view("text");
    EXPECT_EQ(4u, view.getLength());
    EXPECT_EQ(&view, &view.setChars(longer));
    EXPECT_EQ(longer.getChars(), view.getChars());
    EXPECT_EQ(11u, view.getLength());
    view.setChars(view);
    EXPECT_EQ(11u, view.getLength());
    view = "abc";
    EXPECT_EQ(3u, view.getLength());
    ZLCConstString_6_0 const other("other");
    view = other;
    EXPECT_EQ(other.getChars(), view.getChars());
    EXPECT_EQ(5u, view.getLength());
}

TEST(ZAbstractString, AViewIgnoresAStringOfTheOtherCodeset)
{
    ZUTF8String_6_0 const utf8("utf8");
    ZLCConstString_6_0 view("local");
    view.setChars(utf8);
    EXPECT_STREQ("local", view);
    EXPECT_EQ(5u, view.getLength());
}

TEST(ZAbstractString, AssigningAbstractStringsSetsTheirCharacters)
{
    ZLCString_6_0 a("a");
    ZUTF8ConstString_6_0 const b("b");
    ZAbstractString_6_0& abstract = a;
    abstract = b;
    EXPECT_STREQ("b", a);
}

TEST(ZAbstractString, ViewsCompareWithText)
{
    ZAbstractConstString_6_0 const& view = ZLCConstString_6_0("text");
    EXPECT_TRUE(view == "text");
    EXPECT_TRUE(view != "texts");
    EXPECT_FALSE(view == nullptr);
}

#ifndef __SANITIZE_THREAD__  // which remembers every byte that is read

TEST(ZAbstractString, PositionsThatDoNotFitThrow)
{
    if (getenv("LC_ALL") != nullptr)
        GTEST_SKIP() << "takes a second and is the same in every locale";
    LongText const text(size_t{INT_MAX} + 10);
    ZUTF8ConstString_6_0 const view(text.text());
    EXPECT_EQ(unsigned{INT_MAX} + 10, view.getLength());
    EXPECT_EQ(INT_MAX, view.indexOf('x', INT_MAX));
    EXPECT_TRUE(
        raises<ZOutOfMemoryException_6_0>(1, kSource, 301, [&] { view.indexOf(0, INT_MAX); }));
    EXPECT_TRUE(raises<ZOutOfMemoryException_6_0>(1, kSource, 301,
                                                  [&] { view.indexOf("x", INT_MAX + 1u); }));
}

TEST(ZAbstractString, ALengthThatDoesNotFitThrows)
{
    if (getenv("LC_ALL") != nullptr)
        GTEST_SKIP() << "takes a second and is the same in every locale";
    LongText const text(size_t{UINT_MAX});
    ZLCConstString_6_0 const view(text.text());
    EXPECT_TRUE(raises<ZOutOfMemoryException_6_0>(1, kSource, 412, [&] { view.getLength(); }));
    EXPECT_EQ(text.text(), view.getChars());
}

#endif

TEST(ZAbstractString, ConcurrentThreadsMayReadAView)
{
    ZLCConstString_6_0 const view("text");
    std::atomic<unsigned> total{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([&] { total += view.getLength(); });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(32u, total);
}

// ---- Kept behaviours ---------------------------------------------------------------------------

TEST(ZAbstractString, KeepsCountingBytes)
{
    EXPECT_EQ(5u, ZUTF8String_6_0("a\xE3\x81\x82"
                                  "b")
                      .getCharCount());
    EXPECT_EQ(0u, ZUTF8String_6_0().getCharCount());
    std::string const wide = localCharacter().local;
    EXPECT_EQ(wide.size() + 1, ZLCString_6_0(("a" + wide).c_str()).getCharCount());
    PageEnd const cut("ab\xE3\x81");
    EXPECT_EQ(2u, ZUTF8ConstString_6_0(cut.text()).getCharCount());
    std::string const localCut = localCharacter().cut;
    PageEnd const localEnd("ab" + localCut);
    EXPECT_EQ(2u, ZLCConstString_6_0(localEnd.text()).getCharCount());
}

TEST(ZAbstractString, KeepsNegatedLast)
{
    if (!isSingleByteLocale())
        GTEST_SKIP() << "the locale has several bytes per character";
    struct Case {
        char const* text;
        char const* wanted;  // its first byte is searched
        int result;
    };
    Case const cases[] = {{"abc", "b", -1}, {"abcb", "b", -3},  {"abc", "a", -1},
                          {"abc", "x", -1}, {"", "a", -1},      {"", "", -1},
                          {"abc", "", -3},  {"abcb", "bx", -3}, {"a\xE9z\xE9", "\xE9", -3},
                          {"aa", "a", -1}};
    for (Case const& c : cases) {
        SCOPED_TRACE(std::string(c.text) + " " + c.wanted);
        EXPECT_EQ(c.result, ZLCString_6_0(c.text).lastIndexOf(c.wanted));
        EXPECT_EQ(c.result, ZLCString_6_0(c.text).lastIndexOf(c.wanted[0]));
        EXPECT_EQ(c.result, ZLCConstString_6_0(c.text).lastIndexOf(c.wanted));
    }
    EXPECT_EQ(3, ZLCString_6_0("abc").lastIndexOf(static_cast<char const*>(nullptr)));
}

namespace {

// A string whose accessors return other text than its buffer has.
template <class String>
class Masked : public String {
public:
    Masked() : String("buffer") {}
    char const* getChars() const override { return "mask"; }
    unsigned int getLength() const override { return 4; }
};

// Strings of the same class are compared on a fast path; all others through their accessors.
template <class String>
void expectEqualObjects()
{
    String const text("mask"), same("mask"), other("math"), longer("masks"), buffer("buffer");
    Masked<String> const masked, alsoMasked;
    auto const equal = [](ZObject_6_0 const& one, ZObject_6_0 const& two) {
        EXPECT_EQ(one.equals(two), two.equals(one));
        return one.equals(two);
    };
    EXPECT_TRUE(equal(text, text));
    EXPECT_TRUE(equal(text, same));
    EXPECT_FALSE(equal(text, other));
    EXPECT_FALSE(equal(text, longer));
    EXPECT_TRUE(equal(String("a\0b", 3), String("a\0b", 3)));
    EXPECT_FALSE(equal(String("a\0b", 3), String("a\0c", 3)));
    EXPECT_TRUE(equal(text, masked));
    EXPECT_FALSE(equal(buffer, masked));
    EXPECT_TRUE(equal(masked, alsoMasked));
    EXPECT_FALSE(text.equals(static_cast<ZObject_6_0 const&>(ZObject_6_0())));
}

}  // namespace

TEST(ZAbstractString, ObjectsAreEqualIfTheirAccessorsReturnTheSameBytes)
{
    expectEqualObjects<ZLCString_6_0>();
    expectEqualObjects<ZUTF8String_6_0>();
}

TEST(ZAbstractString, KeepsEqualAcrossCodesets)
{
    EXPECT_TRUE(
        ZLCString_6_0("\xE9").equals(static_cast<ZObject_6_0 const&>(ZUTF8String_6_0("\xE9"))));
}
