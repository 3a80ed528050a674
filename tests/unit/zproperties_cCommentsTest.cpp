#include <Z/zproperties_c.h>
#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "FailingCalls.h"
#include "PlainFunctionsFixture.h"

namespace {

constexpr char kCommented[] =
    "# license\n"
    "# of two lines\n"
    "\n"
    "# about a\n"
    "[a]\n"
    "# about k\n"
    "#  in detail\n"
    "k = 1\n"
    "k = 2\n"
    "\n"
    "# apart\n"
    "\n"
    "# m = 5\n"
    "n = 3\n"
    "e =\n"
    "\n"
    "[b]\n"
    "k = 4\n";

class ZPropertiesCComments : public PlainFunctionsTest {
protected:
    void SetUp() override
    {
        PlainFunctionsTest::SetUp();
        reopened(kCommented);
    }

    std::string text()
    {
        int code = kUntouched;
        Text const text(zstzPropStoreText_6_0(file_, nullptr, &code));
        EXPECT_EQ(0, code);
        return text == nullptr ? "" : text.get();
    }
    // Returns the comment of the file, a stanza or a key.
    std::string comment(char const* stanza = nullptr, char const* key = nullptr)
    {
        int code = kUntouched;
        Text const text(stanza == nullptr ? zstzPropGetFileComment_6_0(file_, &code)
                        : key == nullptr  ? zstzPropGetStanzaComment_6_0(file_, stanza, &code)
                                          : zstzPropGetLineComment_6_0(file_, stanza, key, &code));
        return code == 0 ? textOf(text) : "code " + std::to_string(code);
    }
    std::string raw(char const* stanza, char const* key, int index)
    {
        int code = kUntouched;
        Text const spelling(zstzPropGetRawValue_6_0(file_, stanza, key, index, &code));
        return code == 0 ? textOf(spelling) : "code " + std::to_string(code);
    }
    int set(char const* stanza, char const* key, char const* comment)
    {
        return stanza == nullptr ? zstzPropSetFileComment_6_0(file_, comment)
               : key == nullptr  ? zstzPropSetStanzaComment_6_0(file_, stanza, comment)
                                 : zstzPropSetLineComment_6_0(file_, stanza, key, comment);
    }
    unsigned long line(char const* stanza, char const* key, int index)
    {
        int code = kUntouched;
        unsigned long const result = zstzPropGetLine_6_0(file_, stanza, key, index, &code);
        EXPECT_EQ(0, code);
        return result;
    }
};

std::string replaced(std::string text, std::string const& old, std::string const& with)
{
    size_t const at = text.find(old);
    EXPECT_NE(std::string::npos, at) << old;
    return text.replace(at, old.size(), with);
}

}  // namespace

// ---- Comments -----------------------------------------------------------------------------------

TEST_F(ZPropertiesCComments, ACommentIsTheLinesRightAbove)
{
    EXPECT_EQ("# license\n# of two lines", comment());
    EXPECT_EQ("# about a", comment("a"));
    EXPECT_EQ("(null)", comment("b"));
    EXPECT_EQ("# about k\n#  in detail", comment("a", "k"));
    EXPECT_EQ("# m = 5", comment("a", "n"));
    EXPECT_EQ("(null)", comment("a", "e"));
    EXPECT_EQ("(null)", comment("b", "k"));
    // The comment right above the first stanza belongs to the stanza.
    reopened("# about a\n[a]\nk = 1\n");
    EXPECT_EQ("(null)", comment());
    EXPECT_EQ("# about a", comment("a"));
    reopened("# only\n");
    EXPECT_EQ("# only", comment());
    reopened("");
    EXPECT_EQ("(null)", comment());
}

TEST_F(ZPropertiesCComments, AMissingNameHasNoComment)
{
    EXPECT_EQ("code 54", comment("none"));
    EXPECT_EQ("code 54", comment("none", "k"));
    EXPECT_EQ("code 54", comment("a", "none"));
    EXPECT_EQ("code 55", comment(""));
    EXPECT_EQ("code 55", comment("a", ""));
    EXPECT_EQ(54, set("none", nullptr, "c"));
    EXPECT_EQ(54, set("a", "none", "c"));
    EXPECT_EQ(54, set("none", nullptr, nullptr));
    EXPECT_EQ(52, set("", nullptr, "c"));
    int code = kUntouched;
    EXPECT_EQ(nullptr, zstzPropGetFileComment_6_0(file_, nullptr));
    EXPECT_EQ(nullptr, zstzPropGetStanzaComment_6_0(file_, nullptr, &code));
    EXPECT_EQ(nullptr, zstzPropGetLineComment_6_0(file_, "a", nullptr, &code));
    EXPECT_EQ(55, zstzPropSetStanzaComment_6_0(file_, nullptr, "c"));
    EXPECT_EQ(55, zstzPropSetLineComment_6_0(file_, "a", nullptr, "c"));
    EXPECT_EQ(kUntouched, code);
    EXPECT_EQ(52, set("a", "k", std::string(8192, 'c').c_str()));
    EXPECT_EQ(kCommented, text());
}

TEST_F(ZPropertiesCComments, SettingACommentReplacesItsLinesAlone)
{
    std::string expected = kCommented;
    EXPECT_EQ(0, set(nullptr, nullptr, "one line"));
    expected = replaced(expected, "# license\n# of two lines\n", "#one line\n");
    EXPECT_EQ(expected, text());
    EXPECT_EQ(0, set("a", nullptr, "# x\ny"));
    expected = replaced(expected, "# about a\n", "# x\n#y\n");
    EXPECT_EQ(expected, text());
    EXPECT_EQ("# x\n#y", comment("a"));
    EXPECT_EQ(0, set("a", "k", "# k"));
    expected = replaced(expected, "# about k\n#  in detail\n", "# k\n");
    EXPECT_EQ(expected, text());
    EXPECT_EQ(0, set("a", "n", "# n"));
    expected = replaced(expected, "# m = 5\n", "# n\n");
    EXPECT_EQ(expected, text());
    EXPECT_EQ("1 2 ", values("a", "k"));
}

TEST_F(ZPropertiesCComments, WithKeptLinesACommentReplacesOnlyCommentsAndBlankLines)
{
    auto const otherLines = [](std::string const& text) {
        std::string lines;
        for (size_t at = 0; at < text.size();) {
            size_t const end = text.find('\n', at) + 1;
            if (text[at] != '#' && text[at] != '\n')
                lines += text.substr(at, end - at);
            at = end;
        }
        return lines;
    };
    std::string const spaced = replaced(kCommented, "k = 1\nk = 2", "k=1\n  k =  2");
    reopened(spaced);
    ASSERT_EQ(0, zstzPropSetOption_6_0(file_, zpropKeepLines, 1));
    ASSERT_EQ(0, zstzPropReload_6_0(file_));
    EXPECT_EQ(0, set(nullptr, nullptr, "# one line"));
    EXPECT_EQ(0, set("a", nullptr, "# x\n# y"));
    EXPECT_EQ(0, set("a", "n", "# n"));
    EXPECT_EQ(otherLines(spaced), otherLines(text()));
    EXPECT_EQ(0, zstzPropStore_6_0(file_, nullptr));
    ASSERT_EQ(0, zstzPropReload_6_0(file_));
    EXPECT_EQ("# x\n# y", comment("a"));
    EXPECT_EQ("# n", comment("a", "n"));
    EXPECT_EQ("# about k\n#  in detail", comment("a", "k"));
}

TEST_F(ZPropertiesCComments, SettingTheSameCommentChangesNothing)
{
    struct Case {
        char const* stanza;
        char const* key;
    };
    Case const cases[] = {{nullptr, nullptr}, {"a", nullptr}, {"a", "k"}, {"a", "n"}};
    for (Case const& c : cases) {
        std::string const same = comment(c.stanza, c.key);
        EXPECT_EQ(0, set(c.stanza, c.key, same.c_str()));
        EXPECT_EQ(kCommented, text());
    }
}

TEST_F(ZPropertiesCComments, NullRemovesACommentAndNothingElse)
{
    for (int keepLines : {0, 1}) {
        SCOPED_TRACE(keepLines);
        ASSERT_EQ(0, zstzPropSetOption_6_0(file_, zpropKeepLines, keepLines));
        ASSERT_EQ(0, zstzPropReload_6_0(file_));
        std::string expected = kCommented;
        EXPECT_EQ(0, set("a", "n", nullptr));
        expected = replaced(expected, "# m = 5\n", "");
        EXPECT_EQ(expected, text());
        EXPECT_EQ(0, set("a", "k", nullptr));
        expected = replaced(expected, "# about k\n#  in detail\n", "");
        EXPECT_EQ(expected, text());
        EXPECT_EQ(0, set("a", nullptr, nullptr));
        expected = replaced(expected, "# about a\n", "");
        EXPECT_EQ(expected, text());
        EXPECT_EQ(0, set(nullptr, nullptr, nullptr));
        expected = replaced(expected, "# license\n# of two lines\n", "");
        EXPECT_EQ(expected, text());
        EXPECT_EQ("(null)", comment());
        EXPECT_EQ("(null)", comment("a", "k"));
    }
    ASSERT_EQ(0, zstzPropReload_6_0(file_));
    EXPECT_EQ(0, set("b", nullptr, nullptr));
    int code = kUntouched;
    EXPECT_EQ(0, zstzPropIsModified_6_0(file_, &code));
}

TEST_F(ZPropertiesCComments, AMissingCommentIsAdded)
{
    EXPECT_EQ(0, set("b", nullptr, "# b"));
    EXPECT_EQ("# b", comment("b"));
    EXPECT_EQ(0, set("b", "k", "# k"));
    EXPECT_EQ("# k", comment("b", "k"));
    EXPECT_EQ("# license\n# of two lines", comment());
    EXPECT_EQ("# about k\n#  in detail", comment("a", "k"));
    reopened("# about a\n[a]\nk = 1\n");
    EXPECT_EQ(0, set(nullptr, nullptr, "# file"));
    EXPECT_EQ("# file\n\n# about a\n[a]\nk = 1\n", text());
    EXPECT_EQ("# file", comment());
    EXPECT_EQ("# about a", comment("a"));
    reopened("");
    EXPECT_EQ(0, set(nullptr, nullptr, "# file"));
    EXPECT_EQ("# file\n", text());
}

TEST_F(ZPropertiesCComments, ATemplateStaysAPlaceForItsKeyUntilItIsRemoved)
{
    constexpr char kTemplates[] =
        "[a]\n# port = 1\n\nj = 1\n\n# host = x\nk = 1\n\n# user = me\n\nl = 2\n";
    for (char const* removed : {"k", static_cast<char const*>(nullptr)}) {
        reopened(kTemplates);
        // The first new key builds the index of templates.
        EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "a", "port", "2"));
        if (removed != nullptr) {
            EXPECT_EQ(0, set("a", removed, "# no template"));
        }
        EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "a", "user", "you"));
        EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "a", "host", "y"));
        std::string expected =
            "[a]\n# port = 1\nport = 2\n\nj = 1\n\n# host = x\nk = 1\nhost = y\n\n# user = me\n"
            "user = you\n\nl = 2\n";
        if (removed != nullptr)
            expected =
                "[a]\n# port = 1\nport = 2\n\nj = 1\n\n# no template\nk = 1\n\n# user = me\n"
                "user = you\n\nl = 2\nhost = y\n";
        EXPECT_EQ(expected, text());
    }
}

TEST_F(ZPropertiesCComments, RandomCommentsReadBackAfterAStore)
{
    unsigned seed = 4711;
    auto const next = [&](unsigned range) {
        seed = seed * 1103515245u + 12345u;
        return (seed >> 16) % range;
    };
    char const* const names[] = {"k", "n", "e", "m"};
    for (int step = 0; step < 1500; ++step) {
        SCOPED_TRACE("step " + std::to_string(step));
        unsigned const kind = next(8);
        char const* const stanza = kind == 0 ? nullptr : next(2) == 0 ? "a" : "b";
        char const* const key = kind < 3 ? nullptr : names[next(4)];
        if (kind == 7) {
            EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, stanza, key, "9"));
            continue;
        }
        if (kind == 6) {
            EXPECT_EQ(0, zstzPropRemoveKey_6_0(file_, stanza, key));
            continue;
        }
        std::string comment;
        for (unsigned lines = next(4) + 1; lines > 0; --lines)
            comment += "#" + std::string(next(5), 'c') + (lines > 1 ? "\n" : "");
        bool const removes = next(4) == 0;
        int const code = set(stanza, key, removes ? nullptr : comment.c_str());
        if (code == 54)
            continue;
        EXPECT_EQ(0, code);
        std::string const expected = removes ? "(null)" : comment;
        if (!removes) {
            EXPECT_EQ(expected, this->comment(stanza, key));
        }
        std::string const before = text();
        EXPECT_EQ(0, zstzPropLoadText_6_0(file_, before.data(), before.size()));
        EXPECT_EQ(before, text());
        if (!removes) {
            EXPECT_EQ(expected, this->comment(stanza, key));
        }
        if (HasFailure())
            break;
    }
}

// ---- Lines --------------------------------------------------------------------------------------

TEST_F(ZPropertiesCComments, ALineIsCountedInTheTextThatAStoreWrites)
{
    EXPECT_EQ(8ul, line("a", "k", 0));
    EXPECT_EQ(9ul, line("a", "k", 1));
    EXPECT_EQ(14ul, line("a", "n", 0));
    EXPECT_EQ(15ul, line("a", "e", 0));
    EXPECT_EQ(18ul, line("b", "k", 0));
    EXPECT_EQ(0, set("a", "k", nullptr));
    EXPECT_EQ(6ul, line("a", "k", 0));
    EXPECT_EQ(16ul, line("b", "k", 0));
    EXPECT_EQ(0, zstzPropSetObfuscatedValue_6_0(file_, "b", "secret", "s3"));
    EXPECT_EQ(0ul, line("b", "secret", 0));
    int code = kUntouched;
    for (int index : {2, 1000}) {
        EXPECT_EQ(0ul, zstzPropGetLine_6_0(file_, "a", "k", index, &code));
        EXPECT_EQ(54, code);
    }
    EXPECT_EQ(0ul, zstzPropGetLine_6_0(file_, "a", "e", 1, &code));
    EXPECT_EQ(54, code);
    EXPECT_EQ(0ul, zstzPropGetLine_6_0(file_, "a", "none", 0, &code));
    EXPECT_EQ(54, code);
    EXPECT_EQ(0ul, zstzPropGetLine_6_0(file_, "a", "k", -1, &code));
    EXPECT_EQ(55, code);
    EXPECT_EQ(0ul, zstzPropGetLine_6_0(file_, "", "k", 0, &code));
    EXPECT_EQ(55, code);
    code = kUntouched;
    EXPECT_EQ(0ul, zstzPropGetLine_6_0(file_, nullptr, "k", 0, &code));
    EXPECT_EQ(0ul, zstzPropGetLine_6_0(file_, "a", nullptr, 0, &code));
    EXPECT_EQ(0ul, zstzPropGetLine_6_0(file_, "a", "k", 0, nullptr));
    EXPECT_EQ(kUntouched, code);
}

TEST_F(ZPropertiesCComments, AnEmptyValueDoesNotMoveTheLinesOfOthers)
{
    for (int keepLines : {0, 1}) {
        SCOPED_TRACE(keepLines);
        reopened("[a]\nk = a\nk = b\nk = c\n");
        ASSERT_EQ(0, zstzPropSetOption_6_0(file_, zpropKeepLines, keepLines));
        ASSERT_EQ(0, zstzPropReload_6_0(file_));
        ZPROP_iter_handle* iterator = nullptr;
        ASSERT_EQ(0, zstzPropIter_init_6_0(file_, "a", "k", &iterator));
        int code = kUntouched;
        zstzPropIter_next_6_0(iterator, &code);
        zstzPropIter_next_6_0(iterator, &code);
        ASSERT_EQ(0, zstzPropIter_chgValue_6_0(iterator, ""));
        ASSERT_EQ(0, zstzPropIter_close_6_0(iterator));
        std::string const stored = text();
        size_t const third = stored.find("k = c");
        ASSERT_NE(std::string::npos, third);
        auto const lines =
            std::count(stored.begin(), stored.begin() + static_cast<long>(third), '\n');
        EXPECT_EQ(2ul, line("a", "k", 0));
        EXPECT_EQ(static_cast<unsigned long>(lines) + 1, line("a", "k", 2));
        // The empty value has a line of its own, or none.
        EXPECT_EQ(lines == 3 ? 3ul : 0ul, line("a", "k", 1));
        EXPECT_EQ("c", raw("a", "k", 2));
        EXPECT_EQ("code 54", raw("a", "k", 1));
        EXPECT_EQ(0, zstzPropSetRawValue_6_0(file_, "a", "k", 2, "d"));
        EXPECT_EQ(replaced(stored, "k = c", "k = d"), text());
    }
}

// ---- Spellings ----------------------------------------------------------------------------------

TEST_F(ZPropertiesCComments, ASpellingIsTheBytesOfTheValueInItsLine)
{
    reopened("[a]  \n\tk=1\n\n\n  j   =  two words  \r\nj = \"3\"\ne =\n");
    ASSERT_EQ(0, zstzPropSetOption_6_0(file_, zpropKeepLines, 1));
    ASSERT_EQ(0, zstzPropReload_6_0(file_));
    EXPECT_EQ("1", raw("a", "k", 0));
    EXPECT_EQ("two words", raw("a", "j", 0));
    EXPECT_EQ("\"3\"", raw("a", "j", 1));
    EXPECT_EQ("code 54", raw("a", "j", 2));
    EXPECT_EQ("code 54", raw("a", "e", 0));
    EXPECT_EQ("code 54", raw("a", "none", 0));
    EXPECT_EQ("code 55", raw("", "k", 0));
    EXPECT_EQ("code 55", raw("a", "k", -1));
    EXPECT_EQ(0, zstzPropSetRawValue_6_0(file_, "a", "j", 0, "x = [y] # z"));
    EXPECT_EQ("[a]  \n\tk=1\n\n\n  j   =  x = [y] # z  \r\nj = \"3\"\ne =\n", text());
    EXPECT_EQ("x = [y] # z \"3\" ", values("a", "j"));
    EXPECT_EQ(0, zstzPropSetObfuscatedValue_6_0(file_, "a", "secret", "s3"));
    EXPECT_EQ("code 54", raw("a", "secret", 0));
    EXPECT_EQ(54, zstzPropSetRawValue_6_0(file_, "a", "secret", 0, "x"));
    EXPECT_EQ(0, zstzPropStore_6_0(file_, nullptr));
    EXPECT_EQ("x = [y] # z", raw("a", "j", 0));
}

TEST_F(ZPropertiesCComments, ASpellingThatDoesNotReadBackIsRefused)
{
    std::string const before = text();
    std::string const tooLong(8190, 'v');
    for (std::string const& spelling :
         {std::string(""), std::string(" x"), std::string("x "), std::string("x\ny"),
          std::string("\t"), std::string("x\r"), tooLong}) {
        SCOPED_TRACE(spelling.substr(0, 10));
        EXPECT_EQ(52, zstzPropSetRawValue_6_0(file_, "a", "k", 1, spelling.c_str()));
    }
    EXPECT_EQ(54, zstzPropSetRawValue_6_0(file_, "a", "k", 2, "x"));
    EXPECT_EQ(54, zstzPropSetRawValue_6_0(file_, "a", "e", 0, "x"));
    EXPECT_EQ(54, zstzPropSetRawValue_6_0(file_, "a", "none", 0, "x"));
    EXPECT_EQ(54, zstzPropSetRawValue_6_0(file_, "none", "k", 0, "x"));
    EXPECT_EQ(55, zstzPropSetRawValue_6_0(file_, "a", "k", -1, "x"));
    EXPECT_EQ(55, zstzPropSetRawValue_6_0(file_, "a", "k", 0, nullptr));
    EXPECT_EQ(55, zstzPropSetRawValue_6_0(file_, nullptr, "k", 0, "x"));
    EXPECT_EQ(55, zstzPropSetRawValue_6_0(file_, "a", nullptr, 0, "x"));
    EXPECT_EQ(52, zstzPropSetRawValue_6_0(file_, "", "k", 0, "x"));
    int code = kUntouched;
    EXPECT_EQ(nullptr, zstzPropGetRawValue_6_0(file_, nullptr, "k", 0, &code));
    EXPECT_EQ(nullptr, zstzPropGetRawValue_6_0(file_, "a", nullptr, 0, &code));
    EXPECT_EQ(nullptr, zstzPropGetRawValue_6_0(file_, "a", "k", 0, nullptr));
    EXPECT_EQ(kUntouched, code);
    EXPECT_EQ(before, text());
    EXPECT_EQ(0, zstzPropIsModified_6_0(file_, &code));
}

TEST_F(ZPropertiesCComments, AnObfuscatedKeyHasNoComment)
{
    EXPECT_EQ(0, zstzPropSetObfuscatedValue_6_0(file_, "b", "secret", "s3"));
    std::string const before = text();
    EXPECT_EQ(52, set("b", "secret", "c"));
    EXPECT_EQ(0, set("b", "secret", nullptr));
    EXPECT_EQ(before, text());
}

TEST_F(ZPropertiesCComments, WithKeptLinesALineIsTheLineOfTheFile)
{
    reopened("\n\n  [a]  \n\n\n  k=1\r\nj = 2\nk   = 3\n");
    ASSERT_EQ(0, zstzPropSetOption_6_0(file_, zpropKeepLines, 1));
    ASSERT_EQ(0, zstzPropReload_6_0(file_));
    EXPECT_EQ(6ul, line("a", "k", 0));
    EXPECT_EQ(8ul, line("a", "k", 1));
    EXPECT_EQ(7ul, line("a", "j", 0));
}

// ---- Without memory -----------------------------------------------------------------------------

TEST_F(ZPropertiesCComments, EachFunctionFailsWithoutAChangeIfAnAllocationFails)
{
    std::string const longValue(300, 'v');
    std::string const longComment = "# " + std::string(3000, 'c') + "\n# d";
    reopened("# c\n\n# " + std::string(3000, 'x') + "\n[a]\n# y\nk = 1\n\n[b]\nk = 2\n");
    std::string const before = text();
    int code = 0;
    std::vector<PlainCall> const calls = {
        {"get",
         [&] {
             Text const text(zstzPropGetStanzaComment_6_0(file_, "a", &code));
             return code;
         }},
        {"the file", [&] { return set(nullptr, nullptr, longComment.c_str()); }},
        {"a stanza", [&] { return set("a", nullptr, longComment.c_str()); }},
        {"a key", [&] { return set("a", "k", longComment.c_str()); }},
        {"a new comment", [&] { return set("b", "k", longComment.c_str()); }},
        {"a removed comment", [&] { return set("a", nullptr, nullptr); }},
        {"a spelling",
         [&] {
             Text const spelling(zstzPropGetRawValue_6_0(file_, "b", "k", 0, &code));
             return code;
         }},
        {"a set spelling",
         [&] { return zstzPropSetRawValue_6_0(file_, "b", "k", 0, longValue.c_str()); }},
        {"a line",
         [&] {
             zstzPropGetLine_6_0(file_, "b", "k", 0, &code);
             return code;
         }},
    };
    failEachAllocationOf(
        calls, [&] { ASSERT_EQ(0, zstzPropReload_6_0(file_)); },
        [&](int failure) {
            EXPECT_EQ(52, failure);
            EXPECT_EQ(before, text());
        });
}
