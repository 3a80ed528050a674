// The check of edits finds each kind of damage, and a slow writer that passes it makes every edit
// of the sample files.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include "DialectEdits.h"
#include "DialectWriter.h"

namespace fs = std::filesystem;
using namespace dialect_model;

namespace {

// The properties that an edit violates, each once, with spaces between them.
std::string violations(char const* dialect, std::string const& before,
                       std::vector<Edit> const& edits, std::string const& after)
{
    EditCheck const check(findDialect(dialect)->rules, before, edits, after);
    std::string found;
    for (char const* property :
         {"whole", "same", "back", "local", "within", "new", "end", "removed", "inside", "owner"})
        if (!check.holds(property))
            found += (found.empty() ? "" : " ") + std::string(property);
    return found;
}

std::string bytesOf(fs::path const& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::string joined(std::vector<std::string> const& texts)
{
    std::string out;
    for (std::string const& text : texts)
        out += "\n  " + text;
    return out;
}

}  // namespace

TEST(DialectEdits, FindsEachKindOfDamage)
{
    Edit const set = {Edit::set, "a", "k", "2"};
    Edit const remove = {Edit::remove, "a", "k"};
    Edit const add = {Edit::add, "a", "n", "5"};
    struct Case {
        char const* name;
        char const* dialect;
        std::string before;
        std::vector<Edit> edits;
        std::string after;
        char const* violated;
    };
    std::string const text = "# c\n[a]\n  k = 1   # d\nj=3\n";
    Case const cases[] = {
        {"nothing", "git", text, {}, text, ""},
        {"nothing, but changed", "git", text, {}, "# c\n[a]\n  k = 1   # d\nj = 3\n", "whole"},
        {"set", "git", text, {set}, "# c\n[a]\n  k = 2   # d\nj=3\n", ""},
        {"set to the same", "git", text, {{Edit::set, "a", "k", "1"}}, text, ""},
        {"set to the same, respelled",
         "git",
         text,
         {{Edit::set, "a", "k", "1"}},
         "# c\n[a]\n  k = \"1\" # d\nj=3\n",
         "same"},
        {"a longer value takes spaces",
         "git",
         text,
         {{Edit::set, "a", "k", "222"}},
         "# c\n[a]\n  k = 222 # d\nj=3\n",
         ""},
        {"a longer value moves the comment",
         "git",
         text,
         {{Edit::set, "a", "k", "222"}},
         "# c\n[a]\n  k = 222   # d\nj=3\n",
         "within"},
        {"wrong value", "git", text, {set}, "# c\n[a]\n  k = 3   # d\nj=3\n", "back"},
        {"refused afterwards", "git", text, {set}, "# c\n[a]\n  k = \"2   # d\nj=3\n", "back"},
        {"comment dropped", "git", text, {set}, "# c\n[a]\n  k = 2\nj=3\n", "within"},
        {"indentation changed", "git", text, {set}, "# c\n[a]\n\tk = 2   # d\nj=3\n", "within"},
        {"separator changed", "git", text, {set}, "# c\n[a]\n  k=2     # d\nj=3\n", "within"},
        {"line ending changed",
         "git",
         "[a]\r\nk = 1\r\nj=3\r\n",
         {set},
         "[a]\r\nk = 2\nj=3\r\n",
         "within"},
        {"another line changed", "git", text, {set}, "# c\n[a]\n  k = 2   # d\nj = 3\n", "local"},
        {"a comment is missing", "git", text, {set}, "[a]\n  k = 2   # d\nj=3\n", "local"},
        {"a comment is new", "git", text, {set}, "# c\n#\n[a]\n  k = 2   # d\nj=3\n", "local"},
        {"lines swapped", "git", text, {set}, "# c\n[a]\nj=3\n  k = 2   # d\n", "within"},
        {"newline dropped", "git", text, {set}, "# c\n[a]\n  k = 2   # d\nj=3", "end"},
        {"removed", "git", text, {remove}, "# c\n[a]\nj=3\n", ""},
        {"removed with a comment", "git", text, {remove}, "[a]\nj=3\n", "removed"},
        {"removed, a line is left", "git", text, {remove}, "# c\n[a]\n\nj=3\n", "local"},
        {"removed, below its comment",
         "git",
         "[a]\n# e\nk = 1\nj=3\n",
         {remove},
         "[a]\n# e\nj=3\n",
         ""},
        {"removed with its header",
         "git",
         "[b]\nx=1\n[a] k = 1\nj=3\n",
         {remove},
         "[b]\nx=1\n[a]\nj=3\n",
         ""},
        {"added", "git", text, {add}, "# c\n[a]\n  k = 1   # d\nj=3\nn=5\n", ""},
        {"added below the comment of another key",
         "git",
         "[a]\nk = 1\n# e\nj = 3\n",
         {add},
         "[a]\nk = 1\n# e\nn = 5\nj = 3\n",
         "owner"},
        {"added below a comment of no key",
         "git",
         "[a]\nk = 1\n# e\n\n# f\n",
         {add},
         "[a]\nk = 1\n# e\nn = 5\n\n# f\n",
         "owner"},
        {"added below its template",
         "git",
         "[a]\nk = 1\n# n = 4\nj = 3\n",
         {add},
         "[a]\nk = 1\n# n = 4\nn = 5\nj = 3\n",
         ""},
        {"added with another separator",
         "git",
         text,
         {add},
         "# c\n[a]\n  k = 1   # d\nj=3\nn = 5\n",
         "new"},
        {"added with another indentation",
         "git",
         text,
         {add},
         "# c\n[a]\n  k = 1   # d\nj=3\n\tn=5\n",
         "new"},
        {"added in the column",
         "ini",
         "[a]\nk    = 1\nlong = 2\n",
         {add},
         "[a]\nk    = 1\nlong = 2\nn    = 5\n",
         ""},
        {"added out of the column",
         "ini",
         "[a]\nk    = 1\nlong = 2\n",
         {add},
         "[a]\nk    = 1\nlong = 2\nn = 5\n",
         "new"},
        {"added with another line ending",
         "ini",
         "[a]\r\nk=1\r\nj=2\r\n",
         {add},
         "[a]\r\nk=1\r\nn=5\nj=2\r\n",
         "new"},
        {"added to an empty stanza",
         "git",
         "[b]\nx=1\n[a]\n",
         {add},
         "[b]\nx=1\n[a]\n\tn = 5\n",
         ""},
        {"added after the last line without a newline",
         "ini",
         "[a]\nk=1",
         {add},
         "[a]\nk=1\nn=5",
         ""},
        {"added, and a newline", "ini", "[a]\nk=1", {add}, "[a]\nk=1\nn=5\n", "end"},
        {"added with its stanza", "ini", "[b]\nx=1\n", {add}, "[b]\nx=1\n\n[a]\nn = 5\n", ""},
        {"reset line dropped",
         "systemd",
         "[a]\nk=\nk=1\nj=3\n",
         {{Edit::set, "a", "k", "2", 1}},
         "[a]\nk=2\nj=3\n",
         "back"},
        {"second of equal values removed",
         "systemd",
         "[a]\nk=1\nk = 1\n",
         {remove},
         "[a]\nk=1\n",
         ""},
        {"continuation set",
         "systemd",
         "[a]\nk=1 \\\n# c\n 2\nj=3\n",
         {set},
         "[a]\n# c\nk=2\nj=3\n",
         ""},
        {"continuation removed with its comment",
         "systemd",
         "[a]\nk=1 \\\n# c\n 2\nj=3\n",
         {remove},
         "[a]\nj=3\n",
         "inside"},
        {"line of a value set",
         "python",
         "[a]\nk =\n    1\n\t2 \n# c\n  3\n",
         {{Edit::set, "a", "k", "\n1\n2\n4"}},
         "[a]\n# c\nk =\n    1\n\t2 \n  4\n",
         ""},
        {"a blank line that a backslash joined stays",
         "git",
         "[a]\n  k = \\\n \nj=3\n",
         {set},
         "[a]\n  k = 2\n \nj=3\n",
         ""},
        {"lines of a value reindented",
         "python",
         "[a]\nk =\n    1\n\t2 \n  3\n",
         {{Edit::set, "a", "k", "\n1\n2\n4"}},
         "[a]\nk =\n    1\n    2\n    4\n",
         "inside"},
        {"comment of a value dropped",
         "python",
         "[a]\nk =\n    1\n# c\n  3\n",
         {{Edit::set, "a", "k", "\n1\n2\n3"}},
         "[a]\nk =\n    1\n    2\n  3\n",
         "inside"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.violated, violations(c.dialect, c.before, c.edits, c.after))
            << joined(EditCheck(findDialect(c.dialect)->rules, c.before, c.edits, c.after).broken);
    }
}

TEST(DialectEdits, TheSlowWriterMakesEveryEditOfTheSamples)
{
    int made = 0;
    int refused = 0;
    for (fs::directory_entry const& entry : fs::directory_iterator(Z_TEST_DATA "/dialects")) {
        std::string const name = entry.path().filename();
        Dialect const* const dialect = findDialect(name.substr(0, name.find('.')));
        std::string const extension = entry.path().extension();
        if (extension == ".reading" || extension == ".refused" || extension == ".counts")
            continue;
        std::string const text = bytesOf(entry.path());
        DialectModel const model(text, dialect->rules);
        DialectWriter const writer(dialect->rules);
        auto const check = [&](std::vector<Edit> const& edits) {
            std::optional<std::string> const after = writer.write(text, edits);
            ++(after ? made : refused);
            if (!after)
                return;
            EditCheck const result(dialect->rules, text, edits, *after);
            EXPECT_TRUE(result.broken.empty())
                << name << " kind " << edits[0].kind << " [" << edits[0].stanza << "] "
                << edits[0].key << " index " << edits[0].index << " value <" << edits[0].value
                << ">" << joined(result.broken) << "\nbefore:\n"
                << text << "\nafter:\n"
                << *after;
        };
        if (model.refused() || text.find('\0') != std::string::npos)
            continue;  // no writer edits a line that is cut at a zero byte
        for (Stanza const& stanza : model.stanzas) {
            for (Key const& key : stanza.keys) {
                for (std::size_t i = 0; i < key.values.size(); ++i) {
                    check({{Edit::remove, stanza.name, key.name, "", i}});
                    for (std::string const& value : kEditValues)
                        check({{Edit::set, stanza.name, key.name, value, i}});
                }
                for (std::string const& value : kEditValues)
                    check({{Edit::add, stanza.name, key.name, value}});
                check({{Edit::add, stanza.name, "fresh", "1"}});
            }
        }
    }
    std::cout << made << " edits made, " << refused << " refused\n";
    EXPECT_LT(refused, made / 4);
}

TEST(DialectEdits, EditsOfDifferentKeysCommute)
{
    for (Dialect const& dialect : kDialects) {
        if (dialect.rules.heads == Heads::none)
            continue;
        SCOPED_TRACE(dialect.name);
        std::string const text = "[a]\nk=1\nj=2\n# c\nl=3\n";
        DialectWriter const writer(dialect.rules);
        EditCheck::Writer const write = [&](std::string const& t, std::vector<Edit> const& e) {
            return writer.write(t, e);
        };
        Edit const set = {Edit::set, "a", "j", "22"};
        EXPECT_TRUE(EditCheck::once(write, text, set, {Edit::remove, "a", "k"}));
        EXPECT_TRUE(EditCheck::once(write, text, set, {Edit::add, "a", "n", "5"}));
        EXPECT_TRUE(EditCheck::once(write, text, set, {Edit::set, "a", "l", "x"}));
        EXPECT_TRUE(
            EditCheck::once(write, text, {Edit::remove, "a", "k"}, {Edit::remove, "a", "l"}));
    }
    // A writer that appends to the end of the text does not commute.
    EditCheck::Writer const append = [](std::string const& t, std::vector<Edit> const& edits) {
        std::string out = t;
        for (Edit const& edit : edits)
            out += edit.key;
        return std::optional<std::string>(out);
    };
    EXPECT_FALSE(EditCheck::once(append, "", {Edit::set, "a", "k"}, {Edit::set, "a", "j"}));
}
