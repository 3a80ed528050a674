// The plain function that merges the contents of files.
#include <Z/zproperties_c.h>
#include <gtest/gtest.h>

#include <string>

#include "FailingAllocator.h"
#include "MergeCase.h"
#include "PlainFunctionsFixture.h"

namespace {

struct Merged {
    int code = kUntouched;
    std::string text;
    size_t length = 0;
    int conflicts = kUntouched;
};

Merged merge(std::string const& base, std::string const& ours, std::string const& theirs,
             char const* dialect = nullptr)
{
    Merged merged;
    char* text = nullptr;
    merged.code =
        zstzPropMergeText_6_0(base.data(), base.size(), ours.data(), ours.size(), theirs.data(),
                              theirs.size(), dialect, &text, &merged.length, &merged.conflicts);
    Text const owned(text);
    merged.text = textOf(owned);
    return merged;
}

ZPROPError lastError()
{
    ZPROPError error = {};
    error.size = sizeof error;
    EXPECT_EQ(0, zstzPropGetLastError_6_0(&error));
    return error;
}

}  // namespace

TEST(ZPropertiesCMerge, MakesTheChangesOfBothSides)
{
    Merged const merged =
        merge("[a]\nk = 1\nl = 1\n", "[a]\nk=2\nl = 1\n", "[a]\nk = 1\n", "stanza");
    EXPECT_EQ(0, merged.code);
    EXPECT_EQ(0, merged.conflicts);
    EXPECT_EQ("[a]\nk=2\n", merged.text);
    EXPECT_EQ(merged.text.size(), merged.length);
}

TEST(ZPropertiesCMerge, RefusesChangedBytesThatAreNotRead)
{
    using namespace std::string_literals;
    Merged const merged = merge("[a]\n\0k=1\n"s, "[a]\n\0k=1\nl=2\n"s, "[a]\n\0k=3\n"s);
    EXPECT_EQ(51, merged.code);
    EXPECT_EQ("(null)", merged.text);
    EXPECT_STREQ("theirs", lastError().file);
}

TEST(ZPropertiesCMerge, CountsAndMarksConflicts)
{
    Merged const merged = merge("[a]\nk = 1\n", "[a]\nk = 2\n", "[a]\nk = 3\n");
    EXPECT_EQ(0, merged.code);
    EXPECT_EQ(1, merged.conflicts);
    EXPECT_EQ(std::string("[a]\n<<<<<<< ours\nk = 2\n=======\nk = 3\n>>>>>>> ") + "theirs\n",
              merged.text);
}

TEST(ZPropertiesCMerge, EmptyTextsAreFiles)
{
    char* text = nullptr;
    EXPECT_EQ(0, zstzPropMergeText_6_0(nullptr, 0, nullptr, 0, nullptr, 0, nullptr, &text, nullptr,
                                       nullptr));
    EXPECT_EQ(nullptr, text);
    EXPECT_EQ("[a]\n", merge("", "", "[a]\n").text);
}

TEST(ZPropertiesCMerge, RefusesMissingArgumentsAndUnknownDialects)
{
    char* text = nullptr;
    EXPECT_EQ(zpropBadHandle,
              zstzPropMergeText_6_0("", 0, "", 0, "", 0, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(zpropBadHandle,
              zstzPropMergeText_6_0(nullptr, 1, "", 0, "", 0, nullptr, &text, nullptr, nullptr));
    EXPECT_EQ(nullptr, text);
    Merged const merged = merge("", "", "", "no such dialect");
    EXPECT_EQ(zpropUnsupported, merged.code);
    EXPECT_EQ(0, merged.conflicts);
}

TEST(ZPropertiesCMerge, RefusesAnInvalidTextAndNamesIt)
{
    std::string const good = "[a]\nk = 1\n";
    std::string const bad = "[a]\nword\n";
    char const* const names[] = {"base", "ours", "theirs"};
    for (int i = 0; i < 3; ++i) {
        SCOPED_TRACE(names[i]);
        EXPECT_EQ(zpropOpenStoreFailed,
                  merge(i == 0 ? bad : good, i == 1 ? bad : good, i == 2 ? bad : good).code);
        EXPECT_STREQ(names[i], lastError().file);
        EXPECT_EQ(2u, lastError().line);
    }
}

TEST(ZPropertiesCMerge, SeparateStanzasAreMatchedByTheirContents)
{
    std::string const a = "[Peer]\nKey=a\nPort=1\n\n";
    std::string const b = "[Peer]\nKey=b\nPort=2\n\n";
    std::string const c = "[Peer]\nKey=c\n\n";
    std::string const d = "[Peer]\nName=d\n\n";
    std::string const newA = "[Peer]\nKey=a\nPort=9\n\n";
    std::string const newB = "[Peer]\nKey=b\nPort=8\n\n";
    MergeCase const cases[] = {
        {"a new one above and a new one below", a, c + a, a + d, c + a + d},
        {"a new one above and a change below", a + b, c + a + b, a + newB, c + a + newB},
        {"a removed one above and a change below", a + b, b, a + newB, newB},
        {"a change above and a removed one below", a + b, newA + b, a, newA},
        {"the same new one", a, a + c, a + c + d, a + c + d},
        {"two new ones", a, a + c, a + d, a + c + d},
        {"both removed", a + b + c, b + c, a + c, c},
    };
    for (MergeCase const& t : cases) {
        SCOPED_TRACE(t.name);
        // A removed stanza leaves the blank line above it.
        auto const cut = [](std::string const& text) {
            return text.substr(0, text.find_last_not_of('\n') + 2);
        };
        Merged const merged = merge(cut(t.base), cut(t.ours), cut(t.theirs), "networkd");
        EXPECT_EQ(0, merged.code);
        EXPECT_EQ(0, merged.conflicts);
        EXPECT_EQ(cut(t.merged), cut(merged.text));
        Merged const swapped = merge(cut(t.base), cut(t.theirs), cut(t.ours), "networkd");
        EXPECT_EQ(0, swapped.conflicts);
        EXPECT_EQ(cut(merged.text).size(), cut(swapped.text).size());
    }
    Merged const conflict = merge(a + b, c + newA + b, b, "networkd");
    EXPECT_EQ(1, conflict.conflicts);
    EXPECT_EQ(c + "<<<<<<< ours\n[Peer]\nKey=a\nPort=9\n=======\n>>>>>>> " + "theirs\n\n" + b,
              conflict.text);
}

TEST(ZPropertiesCMerge, TheReservedStanzaOfOursStays)
{
    std::string const base = "[s]\nk=1\n";
    std::string const reserved = "\n[configuration-database]\nfile=/a/x.obf\n";
    std::string const other = "\n[configuration-database]\nfile=/b/y.obf\n";
    std::string const theirs = "[s]\nk=2\n";
    EXPECT_EQ(theirs + reserved, merge(base + reserved, base + reserved, theirs).text);
    EXPECT_EQ(theirs + reserved, merge(base + reserved, base + reserved, theirs + other).text);
    EXPECT_EQ(theirs + reserved, merge(base, base + reserved, theirs + other).text);
    EXPECT_EQ(theirs, merge(base, base, theirs + other).text);
    EXPECT_EQ("[s]\nk=2\nl=1\n", merge(base, base + "l=1\n", theirs + other).text);
    EXPECT_EQ(theirs + reserved, merge(base, theirs + reserved, theirs + other).text);
    Merged const merged = merge(base + reserved, base + reserved, theirs + other);
    EXPECT_EQ(0, merged.conflicts);
    // A stanza of this name is nothing special in another dialect.
    EXPECT_EQ(theirs + other, merge(base, base, theirs + other, "ini").text);
}

TEST(ZPropertiesCMerge, OpensNoCompanion)
{
    std::string const base = "[a]\nk = 1\n[configuration-database]\nfile = /none/x.obf\n";
    std::string const ours = "[a]\nk = 2\n[configuration-database]\nfile = /none/x.obf\n";
    std::string const theirs = base + "[b]\n";
    EXPECT_EQ(ours + "\n[b]\n", merge(base, ours, theirs).text);
}

TEST(ZPropertiesCMerge, FailsWithoutLeaksAtEachAllocation)
{
    std::string const base = "# c\n[a]\nk = 1\n";
    std::string const ours = "# c\n[a]\nk = 2\n";
    std::string const theirs = "# d\n[a]\nk = 3\n[b]\n";
    char* text = nullptr;
    for (unsigned long n = 1;; ++n) {
        SCOPED_TRACE(n);
        long const blocks = FailingAllocator::blocks();
        FailingAllocator::failAt(n);
        int const code =
            zstzPropMergeText_6_0(base.data(), base.size(), ours.data(), ours.size(), theirs.data(),
                                  theirs.size(), nullptr, &text, nullptr, nullptr);
        if (!FailingAllocator::stop()) {
            ASSERT_EQ(0, code);
            break;
        }
        if (code == 0) {  // memory for something that can be done without
            zstzPropFree_6_0(text);
            continue;
        }
        ASSERT_EQ(zpropOpenStoreFailed, code);
        ASSERT_EQ(nullptr, text);
        ASSERT_EQ(blocks, FailingAllocator::blocks());
    }
    ASSERT_NE(nullptr, text);
    zstzPropFree_6_0(text);
}
