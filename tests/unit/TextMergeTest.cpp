// Merging files by stanza and key: lists of values, whole files, conflicts, and random files.
#include <Z/dialects/switched_dialect.h>
#include <Z/dialects/table.h>
#include <Z/lines/difference.h>
#include <Z/lines/outline.h>
#include <Z/lines/text_merge.h>
#include <Z/lines/value_merge.h>
#include <Z/stanza/stanza_dialect.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "MergeCase.h"

namespace {

using Strings = std::vector<std::string>;
using zlines::MergedText;

using Case = MergeCase;  // "@" is the end of a conflict

// Returns the merged values, a string of a character per value: "(1|2)" is a conflict.
std::string mergedValues(std::string const& base, std::string const& ours,
                         std::string const& theirs)
{
    auto const split = [](std::string const& text) {
        Strings list;
        for (char const c : text)
            list.emplace_back(1, c);
        return list;
    };
    std::string text;
    for (zlines::MergedValue const& value :
         zlines::mergeValues(split(base), split(ours), split(theirs))) {
        text += value.isConflict ? "(" : "";
        for (std::string const& v : value.ours)
            text += v;
        text += value.isConflict ? "|" : "";
        for (std::string const& v : value.theirs)
            text += v;
        text += value.isConflict ? ")" : "";
    }
    return text;
}

MergedText merge(std::string const& base, std::string const& ours, std::string const& theirs)
{
    return zlines::mergeTexts(base, ours, theirs, zstanza::stanzaDialect());
}

// Merges units of systemd. Each version is a stanza with these lines; "@" ends a conflict.
std::string mergedUnits(std::string const& base, std::string const& ours, std::string const& theirs)
{
    auto const dialect = zdialects::dialectWith(zdialects::findRow("systemd")->switches);
    std::string const start = "[S]\n";
    std::string text =
        zlines::mergeTexts(start + base, start + ours, start + theirs, *dialect).text;
    std::string const mark = ">>>>>>> " + std::string("theirs");
    for (size_t at; (at = text.find(mark)) != std::string::npos;)
        text.replace(at, mark.size(), "@");
    EXPECT_TRUE(text.starts_with(start));
    return text.substr(start.size());
}

using Contents = std::map<std::string, std::map<std::string, Strings>>;

Contents contentsOf(std::string const& text,
                    zlines::Dialect const& dialect = zstanza::stanzaDialect())
{
    zlines::Outline outline(text, dialect);
    EXPECT_TRUE(outline.isValid()) << text;
    Contents contents;
    std::string stanza;
    std::string space;
    for (uint32_t i = 0; i < outline.lines().size(); ++i) {
        zlines::Line const& line = outline.lines()[i];
        if (line.kind == zlines::headerLine)
            contents[stanza = outline.spelledName(i)];
        if (line.isKey()) {
            Strings& values = contents[stanza][std::string(outline.keyName(i, space))];
            if (line.kind == zlines::valueLine)
                values.emplace_back(outline.value(i, space));
        }
    }
    return contents;
}

Strings sortedComments(std::string const& text)
{
    Strings comments;
    zlines::Outline const outline(text, zstanza::stanzaDialect());
    for (uint32_t i = 0; i < outline.lines().size(); ++i)
        if (outline.lines()[i].kind == zlines::commentLine)
            comments.emplace_back(outline.comment(i));
    std::sort(comments.begin(), comments.end());
    return comments;
}

struct Versions {
    std::string base;
    std::string ours;
    std::string theirs;
};

// Random files with few keys, values and stanzas, and changes of them.
class RandomFiles {
public:
    enum Comments { likeComments, unlikeComments };

    explicit RandomFiles(Comments comments) : comments_(comments) {}

    Versions makeVersions()
    {
        std::string const base = make();
        std::string const ours = change(base);
        return {base, ours, change(base)};
    }

private:
    std::string make()
    {
        std::string text;
        for (char const* header : {"[a]\n", "\n[b]\n", "[c]\n"}) {
            text += header;
            for (unsigned i = below(5); i > 0; --i)
                text += line() + "\n";
        }
        return text;
    }

    std::string change(std::string const& text)
    {
        std::string changed;
        for (size_t at = 0; at < text.size();) {
            size_t const end = text.find('\n', at) + 1;
            std::string const old = text.substr(at, end - at);
            at = end;
            unsigned const what = old[0] == '[' ? 3 + below(9) : below(12);
            if (what != 0)
                changed += what == 1 ? line() + "\n" : old;
            if (what == 4)
                changed += line() + "\n";
        }
        return changed;
    }

    unsigned below(unsigned n) { return static_cast<unsigned>(random_()) % n; }

    std::string line()
    {
        std::string const key(1, static_cast<char>('j' + below(4)));
        if (below(6) == 0)
            return "# c" + std::to_string(comments_ == likeComments ? below(3) : nextComment_++);
        return below(9) == 0 ? std::string() : key + " = " + std::to_string(below(3));
    }

    std::mt19937 random_{20260113};
    Comments const comments_;
    unsigned nextComment_ = 0;
};

std::optional<Strings> valuesIn(Contents const& contents, char const* stanza, char const* key)
{
    auto const parent = contents.find(stanza);
    if (parent == contents.end() || !parent->second.contains(key))
        return {};
    return parent->second.at(key);
}

// Expects that each key whose values one version did not change has the values of the other
// version.
void expectChangesOfBoth(Versions const& versions, std::string const& merged)
{
    Contents const contents = contentsOf(merged);
    Contents const sides[] = {contentsOf(versions.base), contentsOf(versions.ours),
                              contentsOf(versions.theirs)};
    for (char const* stanza : {"a", "b", "c"})
        for (char const* key : {"j", "k", "l", "m"}) {
            auto const of = [&](int side) { return valuesIn(sides[side], stanza, key); };
            for (int const unchanged : {1, 2}) {
                if (of(unchanged) == of(0)) {
                    ASSERT_EQ(of(3 - unchanged), valuesIn(contents, stanza, key));
                }
            }
        }
}

// Merges versions of random files. Calls `check` with the versions and the result of each merge,
// until a check fails.
template <class Check>
void mergeAtRandom(RandomFiles::Comments comments, int rounds, Check check)
{
    RandomFiles files(comments);
    for (int round = 0; round < rounds && !testing::Test::HasFatalFailure(); ++round) {
        Versions const versions = files.makeVersions();
        SCOPED_TRACE("base:\n" + versions.base + "ours:\n" + versions.ours + "theirs:\n" +
                     versions.theirs);
        check(versions, merge(versions.base, versions.ours, versions.theirs));
    }
}

}  // namespace

TEST(ValueMerge, MakesBothChangesInOneList)
{
    Case const cases[] = {
        {"no change", "ab", "ab", "ab", "ab"},
        {"one side changes", "ab", "ab", "ac", "ac"},
        {"both make the same change", "a", "b", "b", "b"},
        {"different values change", "ab", "cb", "ad", "cd"},
        {"one value changes twice", "a", "b", "c", "(b|c)"},
        {"one of several changes twice", "abc", "xbc", "ybc", "(x|y)bc"},
        {"both add", "a", "ab", "ac", "abc"},
        {"both add, order swapped", "a", "ac", "ab", "abc"},
        {"both add the same", "a", "ab", "ab", "ab"},
        {"both add the same and others", "a", "abc", "abd", "abcd"},
        {"both add the same at different places", "a", "ba", "ab", "ab"},
        {"one removes, the other changes", "ab", "b", "cb", "(|c)b"},
        {"one removes, the other adds", "ab", "b", "abc", "bc"},
        {"one removes all, the other nothing", "ab", "", "a", ""},
        {"one removes all, the other changes", "ab", "", "ac", "(|c)"},
        {"both remove all", "ab", "", "", ""},
        {"a new key with different values", "", "a", "b", "(a|b)"},
        {"a new key with the same value", "", "a", "a", "a"},
        {"a new key, one side with more values", "", "a", "ab", "ab"},
        {"one side reorders, the other adds", "ab", "ba", "abc", "bca"},
        {"one side reorders, the other changes", "abc", "cab", "axc", "cax"},
        {"both reorder", "abc", "cab", "bca", "bca"},
        {"a replacement here is an addition there", "ab", "cb", "abc", "cb"},
        {"the same value twice in the base", "aa", "a", "aab", "ab"},
        {"both add a value above the removed one", "c", "xy", "xyc", "xy"},
        {"both replace, one adds above", "c", "64", "4", "64"},
        {"one replaces and has the added value", "c", "64", "6c", "64"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.merged, mergedValues(c.base, c.ours, c.theirs));
    }
}

TEST(ValueMerge, GivesTheSameInBothDirections)
{
    std::mt19937 random(20261123);
    auto const makeList = [&](unsigned letters) {
        std::string list;
        for (unsigned i = static_cast<unsigned>(random()) % 5; i > 0; --i)
            list += static_cast<char>('a' + random() % letters);
        return list;
    };
    for (unsigned const letters : {2u, 4u, 6u})
        for (int round = 0; round < 3000; ++round) {
            std::string const base = makeList(letters);
            std::string const ours = makeList(letters);
            std::string const theirs = makeList(letters);
            std::string const one = mergedValues(base, ours, theirs);
            std::string const other = mergedValues(base, theirs, ours);
            SCOPED_TRACE(base + ", " + ours + ", " + theirs);
            bool const isConflict = one.find('|') != one.npos;
            ASSERT_EQ(isConflict, other.find('|') != other.npos) << one << ' ' << other;
            if (!isConflict) {
                ASSERT_EQ(one, other);
            }
        }
}

TEST(TextMerge, MakesTheChangesOfBothSides)
{
    Case const cases[] = {
        {"different keys", "[a]\nk = 1\nl = 2\n", "[a]\nk  =  3\nl = 2\n", "[a]\nk = 1\nl = 4\n",
         "[a]\nk  =  3\nl = 4\n"},
        {"neighbours", "[a]\nk = 1\nl = 2\n", "[a]\nk = 3\nl = 2\n", "[a]\nk = 1\n",
         "[a]\nk = 3\n"},
        {"the same value added twice", "[a]\n", "[a]\nk=1\n", "[a]\n\nk = 1\n", "[a]\nk=1\n"},
        {"keys added at one place", "[a]\nk = 1\n", "[a]\nk = 1\n# l\nl = 2\n",
         "[a]\nk = 1\nm = 3\n", "[a]\nk = 1\n# l\nl = 2\nm = 3\n"},
        {"stanzas added at one place", "[a]\nk = 1\n\n[z]\n",
         "[a]\nk = 1\n\n# b\n[b]\nl = 2\n\n[z]\n", "[a]\nk = 1\n\n[c]\nm = 3\n\n[z]\n",
         "[a]\nk = 1\n\n# b\n[b]\nl = 2\n\n[c]\nm = 3\n\n[z]\n"},
        {"values added at one place", "[a]\nk = 1\n", "[a]\nk = 1\nk = 2\n", "[a]\nk = 1\nk = 3\n",
         "[a]\nk = 1\nk = 2\nk = 3\n"},
        {"reordered keys", "[a]\nk = 1\nl = 2\n", "[a]\nl = 2\nk = 1\n", "[a]\nk = 3\nl = 2\n",
         "[a]\nl = 2\nk = 3\n"},
        {"reordered stanzas", "[a]\nk = 1\n\n[b]\nl = 2\n", "[b]\nl = 2\n\n[a]\nk = 1\n",
         "[a]\nk = 1\n\n[b]\nl = 3\n", "[b]\nl = 3\n\n[a]\nk = 1\n"},
        {"blank lines and spacing", "[a]\nk = 1\nl = 2\n", "[a]\n\n k=1\n\nl = 3\n",
         "[a]\nk = 1\n\n\nl = 2\nm = 4\n", "[a]\n\n k=1\n\nl = 3\nm = 4\n"},
        {"a new key takes its comment along", "[a]\nk = 1\n", "[a]\nk = 2\n",
         "[a]\nk = 1\n# the l\nl = 2\n", "[a]\nk = 2\n# the l\nl = 2\n"},
        {"a removed key takes its comment along", "[a]\n# the k\nk = 1\nl = 2\n",
         "[a]\n# the k\nk = 1\nl = 3\n", "[a]\nl = 2\n", "[a]\nl = 3\n"},
        {"a comment changes on one side", "[a]\n# x\nk = 1\n", "[a]\n# x\nk = 2\n",
         "[a]\n# y\nk = 1\n", "[a]\n# y\nk = 2\n"},
        {"a comment changes on both sides", "[a]\n# x\nk = 1\n", "[a]\n# z\nk = 1\n",
         "[a]\n# y\nk = 1\n", "[a]\n# y\n# z\nk = 1\n"},
        {"a comment of a stanza", "# x\n[a]\nk = 1\n# b\n[b]\n", "# x\n[a]\nk = 2\n# b\n[b]\n",
         "# x\n[a]\nk = 1\n# c\n[b]\n", "# x\n[a]\nk = 2\n# c\n[b]\n"},
        {"a new stanza with its comment", "[a]\nk = 1\n\n# end\n", "[a]\nk = 2\n\n# end\n",
         "[a]\nk = 1\n\n# new\n[b]\nl = 2\n# m\nm = 3\n\n# end\n",
         "[a]\nk = 2\n\n# new\n[b]\nl = 2\n# m\nm = 3\n# end\n"},
        {"a new stanza between others", "[a]\nk = 1\n\n[c]\nl = 1\n", "[a]\nk = 2\n\n[c]\nl = 1\n",
         "[a]\nk = 1\n\n[b]\nm = 2\n\n[c]\nl = 1\n", "[a]\nk = 2\n\n[b]\nm = 2\n\n[c]\nl = 1\n"},
        {"a removed stanza", "[a]\nk = 1\n\n[b]\nl = 2\n\n[c]\n",
         "[a]\nk = 2\n\n[b]\nl = 2\n\n[c]\n", "[a]\nk = 1\n\n[c]\n", "[a]\nk = 2\n\n[c]\n"},
        {"a removed stanza leaves the comment of the next", "[a]\nk = 1\n[b]\nl = 2\n# c\n[c]\n",
         "[a]\nk = 2\n[b]\nl = 2\n# c\n[c]\n", "[a]\nk = 1\n# c\n[c]\n", "[a]\nk = 2\n# c\n[c]\n"},
        {"a stanza that both remove", "[a]\n[b]\nl = 2\n", "[a]\nk = 1\n", "[a]\n", "[a]\nk = 1\n"},
        {"line endings stay", "[a]\r\nk = 1\r\n", "[a]\r\nk = 2\r\n", "[a]\nk = 1\nl = 2\n",
         "[a]\r\nk = 2\r\nl = 2\r\n"},
        {"a comment at the start of the file", "[a]\nk = 1\n", "[a]\nk = 2\n",
         "# file\n\n[a]\nk = 1\n", "# file\n\n[a]\nk = 2\n"},
        {"a key without a value", "[a]\nk = 1\nl = 1\n", "[a]\nk = 2\nl = 1\n", "[a]\nk = 1\nl =\n",
         "[a]\nk = 2\nl = \n"},
        {"a comment after the second line of a key", "[z]\n[a]\nk = 1\n\nk = 2\n",
         "[z]\nl = 1\n[a]\nk = 1\n\nk = 2\n", "[z]\n[a]\nk = 2\n# end\n",
         "[z]\nl = 1\n[a]\n\nk = 2\n# end\n"},
        {"an empty base", "", "[a]\nk = 1\n", "[b]\nl = 2\n", "[a]\nk = 1\n\n[b]\nl = 2\n"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        MergedText const merged = merge(c.base, c.ours, c.theirs);
        EXPECT_EQ(0u, merged.conflicts);
        EXPECT_EQ(c.merged, merged.text);
        EXPECT_EQ(contentsOf(merged.text), contentsOf(merge(c.base, c.theirs, c.ours).text));
        EXPECT_EQ(c.ours, merge(c.base, c.ours, c.ours).text);
        EXPECT_EQ(c.ours, merge(c.base, c.ours, c.base).text);
        EXPECT_EQ(c.theirs, merge(c.base, c.base, c.theirs).text);
    }
}

TEST(TextMerge, MarksTwoDifferentChangesOfAValue)
{
    Case const cases[] = {
        {"a value", "[a]\nk = 1\nl = 2\nm = 3\n", "[a]\nk = 1\nl  = 4\nm = 3\n",
         "[a]\nk = 1\nl=5\nm = 6\n", "[a]\nk = 1\n<<<<<<< ours\nl  = 4\n=======\nl=5\n@m = 6\n"},
        {"one of several values", "[a]\nk = 1\nk = 2\n", "[a]\nk = 3\nk = 2\n",
         "[a]\nk = 4\nk = 2\n", "[a]\n<<<<<<< ours\nk = 3\n=======\nk = 4\n@k = 2\n"},
        {"a new key", "[a]\n", "[a]\nk = 1\n", "[a]\nk = 2\n",
         "[a]\n<<<<<<< ours\nk = 1\n=======\nk = 2\n@"},
        {"removed by this side", "[a]\nk = 1\nl = 2\n", "[a]\nl = 2\n", "[a]\nk = 3\nl = 2\n",
         "[a]\n<<<<<<< ours\n=======\nk = 3\n@l = 2\n"},
        {"removed by the other side", "[a]\nk = 1\nl = 2\n", "[a]\nk = 3\nl = 2\n", "[a]\nl = 2\n",
         "[a]\n<<<<<<< ours\nk = 3\n=======\n@l = 2\n"},
        {"emptied by the other side", "[a]\nk = 1\n", "[a]\nk = 3\n", "[a]\nk =\n",
         "[a]\n<<<<<<< ours\nk = 3\n=======\nk =\n@"},
        {"emptied by this side", "[a]\nk = 1\n", "[a]\nk =\n", "[a]\nk = 3\n",
         "[a]\n<<<<<<< ours\nk =\n=======\nk = 3\n@"},
        {"a key without a value, removed and set", "[a]\nk =\nl = 1\n", "[a]\nl = 1\n",
         "[a]\nk = 1\nl = 1\n", "[a]\n<<<<<<< ours\n=======\nk = 1\n@l = 1\n"},
        {"a key without a value, set in a removed stanza", "[a]\n[b]\nk =\n", "[a]\n[b]\nk = 1\n",
         "[a]\n", "[a]\n<<<<<<< ours\n[b]\nk = 1\n=======\n@"},
        {"neighbours, the later name first", "[a]\nl = 1\nk = 1\n", "[a]\nl = 2\nk = 2\n",
         "[a]\nl = 3\nk = 3\n",
         "[a]\n<<<<<<< ours\nl = 2\n=======\nl = 3\n@"
         "<<<<<<< ours\nk = 2\n=======\nk = 3\n@"},
        {"a stanza that this side removed", "[a]\n\n[b]\nk = 1\nl = 2\n", "[a]\n",
         "[a]\n\n[b]\nk = 3\nl = 2\n", "[a]\n\n<<<<<<< ours\n=======\n[b]\nk = 3\nl = 2\n@"},
        {"a stanza that the other side removed", "[a]\n\n[b]\nk = 1\nl = 2\n",
         "[a]\n\n[b]\nk = 3\nl = 2\n", "[a]\n",
         "[a]\n\n<<<<<<< ours\n[b]\nk = 3\nl = 2\n=======\n@"},
        {"a key added to a stanza that the other side removed", "[a]\n[b]\nk = 1\n",
         "[a]\n[b]\nk = 1\nl = 2\n", "[a]\n", "[a]\n<<<<<<< ours\n[b]\nk = 1\nl = 2\n=======\n@"},
        {"a file that this side emptied", "[s]\nk=1\n", "", "[s]\nk=1\nj=2\n",
         "<<<<<<< ours\n=======\n[s]\nk=1\nj=2\n@"},
        {"two changes in a removed stanza", "[a]\n[t]\nx = 1\n[z]\n", "[a]\n[z]\n",
         "[a]\n\n# of t\n[t]\n# a\n  a=2\n\nb=3\nx = 1\n\n# of z\n[z]\n",
         "[a]\n\n<<<<<<< ours\n=======\n# of t\n[t]\n# a\n  a=2\n\nb=3\nx = 1\n@\n# of z\n[z]\n"},
        {"a changed stanza with comments, removed there",
         "[a]\n\n# of t\n[t]\n# a\nx = 1\n\n# of z\n[z]\n",
         "[a]\n\n# of t\n[t]\n# a\nx = 2\n\n# of z\n[z]\n", "[a]\n\n# of z\n[z]\n",
         "[a]\n\n<<<<<<< ours\n# of t\n[t]\n# a\nx = 2\n=======\n@\n# of z\n[z]\n"},
        {"a key without a value, added to a removed stanza", "[a]\n[b]\nk = 1\n",
         "[a]\n[b]\nk = 1\nl =\n", "[a]\n", "[a]\n<<<<<<< ours\n[b]\nk = 1\nl =\n=======\n@"},
        {"the spelling of the other side", "[a]\nk = 1\nl = 1\n", "[a]\nl = 1\n",
         "[a]\n\tk=2\nl = 1\n", "[a]\n<<<<<<< ours\n=======\n\tk=2\n@l = 1\n"},
        {"line endings and a missing one at the end", "[a]\r\nk = 1", "[a]\r\nk = 2",
         "[a]\nk = 3\n", "[a]\r\n<<<<<<< ours\r\nk = 2\r\n=======\r\nk = 3\r\n@"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        MergedText const merged = merge(c.base, c.ours, c.theirs);
        EXPECT_EQ(static_cast<size_t>(std::count(c.merged.begin(), c.merged.end(), '@')),
                  merged.conflicts);
        std::string const ending = c.base.find('\r') != std::string::npos ? "\r\n" : "\n";
        std::string const mark = ">>>>>>> " + std::string("theirs") + ending;
        std::string expected = c.merged;
        for (size_t at; (at = expected.find('@')) != std::string::npos;)
            expected.replace(at, 1, mark);
        EXPECT_EQ(expected, merged.text);
        EXPECT_EQ(merged.conflicts, merge(c.base, c.theirs, c.ours).conflicts);
    }
}

TEST(TextMerge, AListWithAResetConflictsAsAWhole)
{
    Case const cases[] = {
        {"one changes, the other removes", "E=\nE=/a\n", "E=\nE=/b\n", "",
         "<<<<<<< ours\nE=\nE=/b\n=======\n@\n"},
        {"one removes, the other changes", "E=\nE=/a\n", "", "E=\nE=/b\n",
         "<<<<<<< ours\n=======\nE=\nE=/b\n@\n"},
        {"one adds, the other removes", "E=\nE=/a\n", "E=\nE=/a\nE=/b\n", "",
         "<<<<<<< ours\nE=\nE=/a\nE=/b\n=======\n@\n"},
        {"two changes", "E=\nE=/a\nk=1\n", "E=\nE=/b\nk=1\n", "E=\nE=/c\nk=2\n",
         "<<<<<<< ours\nE=\nE=/b\n=======\nE=\nE=/c\n@\nk=2\n"},
        {"one adds a value, the other a reset", "E=/a\n", "E=/a\nE=/b\n", "E=/a\nE=\n",
         "<<<<<<< ours\nE=/a\nE=/b\n=======\nE=/a\nE=\n@\n"},
        {"one adds a value, the other removes the reset", "E=\nE=/a\n", "E=\nE=/a\nE=/b\n",
         "E=/a\n", "<<<<<<< ours\nE=\nE=/a\nE=/b\n=======\nE=/a\n@\n"},
        {"one removes, the other changes another key", "E=\nE=/a\nk=1\n", "k=1\n",
         "E=\nE=/a\nk=2\n", "k=2\n"},
        {"both add the same", "E=/a\n", "E=/a\nE=\nE=/b\n", "E=/a\nE=\nE=/b\n", "E=/a\nE=\nE=/b\n"},
        {"both add values below the reset", "E=\nE=/a\n", "E=\nE=/a\nE=/b\n", "E=\nE=/a\nE=/c\n",
         "E=\nE=/a\nE=/b\nE=/c\n"},
        {"one adds a reset", "E=/a\nk=1\n", "E=/a\nk=2\n", "E=/a\nE=\nk=1\n", "E=/a\nE=\nk=2\n"},
        {"without a reset", "E=/a\nE=/b\n", "E=/a\nE=/c\n", "E=/a\nE=/d\n",
         "E=/a\n<<<<<<< ours\nE=/c\n=======\nE=/d\n@\n"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.merged, mergedUnits(c.base, c.ours, c.theirs));
    }
}

TEST(TextMerge, TheCommentAboveALineThatIsPassedOverStaysThere)
{
    EXPECT_EQ("# d\njunk\nk=2\n",
              mergedUnits("# c\njunk\nk=1\nl=1\n", "# d\njunk\nk=1\nl=1\n", "# c\njunk\nk=2\n"));
    EXPECT_EQ("# c\njunk\nl=2\n",
              mergedUnits("# c\njunk\nk=1\nl=1\n", "# c\njunk\nk=1\nl=2\n", "# c\njunk\nl=1\n"));
    EXPECT_EQ("# c\njunk\n# e\nk=1\nl=2\n",
              mergedUnits("# c\njunk\n# d\nk=1\n", "# c\njunk\n# d\nk=1\nl=2\n",
                          "# x\njunk\n# e\nk=1\n"));
}

TEST(TextMerge, ChangesCommentsAtTheLinesThatTheyAreAbove)
{
    Case const cases[] = {
        {"one more header here", "[s]\n# c\n[s]\nb=1\n", "[s]\n# c\n[s]\nb=1\n[s]\na=1\n",
         "[s]\n# d\n[s]\nb=1\n", "[s]\n# d\n[s]\nb=1\n[s]\na=1\n"},
        {"one header less here", "[s]\na=1\n[s]\nb=1\n# c\n[s]\nc=1\n",
         "[s]\na=1\nb=1\n# c\n[s]\nc=1\n", "[s]\na=1\n[s]\nb=1\n# c\n# d\n[s]\nc=1\n",
         "[s]\na=1\nb=1\n# c\n# d\n[s]\nc=1\n"},
        {"a new comment of the header with the same key", "[s]\na=1\n[s]\nb=1\n",
         "[s]\nz=1\n[s]\na=1\n[s]\nb=1\n", "[s]\na=1\n# d\n[s]\nb=1\n",
         "[s]\nz=1\n[s]\na=1\n# d\n[s]\nb=1\n"},
        {"above another line of the key", "[s]\nk=1\n# c\nk=2\n", "[s]\nk=1\nl=1\n# c\nk=2\n",
         "[s]\nk=1\n# c\n# d\nk=2\n", "[s]\nk=1\nl=1\n# c\n# d\nk=2\n"},
        {"below a key of several lines", "[s]\nk=1\nk=2\n# c\nl=1\n",
         "[s]\nk=3\nk=1\nk=2\n# c\nl=1\n", "[s]\nk=1\nk=2\n# d\n# c\nl=1\n",
         "[s]\nk=3\nk=1\nk=2\n# d\n# c\nl=1\n"},
        {"a new comment of the last of multiple headers", "", "[u]\n[u]\n[t]\n",
         "b=1\n# d\n\n[t]\n", "b=1\n[u]\n[u]\n# d\n[t]\n"},
        {"a new comment next to another, above a further header", "", "[t]\n[t]\n# c\n[s]\n",
         "# d\n# c\n[s]\n", "[t]\n[t]\n# d\n# c\n[s]\n"},
        {"a removed stanza with a comment above a further header", "[t]\n[u]\n",
         "[t]\n# c\n[t]\n[u]\n", "[u]\n", "[u]\n"},
        {"a new comment and key below a key of two lines", "", "[s]\na=8\n# c\na=3\n[u]\n",
         "[s]\nb=1\n# d\n\n[u]\n", "[s]\na=8\n# c\na=3\nb=1\n# d\n\n[u]\n"},
        {"a new comment above a further line of the other version", "[t]\na=7\n", "[t]\n[t]\na=7\n",
         "[t]\n\na=3\n# d\na=6\n", "[t]\n[t]\n# d\na=3\na=6\n"},
        {"a new comment above a removed line of the key", "c=1\n", "c=0\n# d\nc=1\n", "c=0\n[t]\n",
         "# d\nc=0\n\n[t]\n"},
        {"a comment of another key between lines of a key", "# c\nb=5\n", "c=3\n# c\nb=5\nc=6\n",
         "# d\n# c\nc=6\nb=9\n", "# d\n# c\nc=3\nb=9\nc=6\n"},
        {"a comment that both versions move", "# c\n[s]\n", "# c\na=2\n", "a=2\n# c\n",
         "# c\na=2\n"},
        {"a comment that one version adds to a key that the other moves", "c=6\n", "# d\nc=6\n",
         "# d\n", "# d\n"},
        {"a comment with a mark that is not our own", "[s]\nb=6\n", "# d\n[s]\nb=5\nb=6\n",
         "[u]\n[s]\nb=5\n", "[u]\n\n# d\n[s]\nb=5\n"},
        {"removed comments of both headers", "[t]\n# c\n[s]\na=1\n# d\n[s]\nb=1\n",
         "[t]\n# c\n[s]\na=1\n# d\n[s]\nb=2\n", "[t]\n[s]\na=1\n[s]\nb=1\n",
         "[t]\n[s]\na=1\n[s]\nb=2\n"},
        {"below an empty first line", "\n# c\n[s]\nk=1\n", "\n# c\n[s]\nk=2\n",
         "\n# d\n# c\n[s]\nk=1\n", "\n# d\n# c\n[s]\nk=2\n"},
        {"a file without keys", "# c\n[s]\nk=1\n", "# c\n", "# d\n\n# c\n[s]\nk=1\n",
         "# d\n\n# c\n"},
        {"at the end, below a repeated header", "[s]\n[s]\nk=1\n", "[s]\n[s]\nk=2\n",
         "[s]\n[s]\nk=1\n# d\n", "[s]\n[s]\nk=2\n# d\n"},
        {"at the end, with a comment of the header between", "[s]\na=1\n# c\n[t]\n[s]\nb=1\n",
         "[s]\na=1\n# c\n[t]\nk=1\n[s]\nb=1\n", "[s]\na=1\n# c\n[t]\n[s]\nb=2\n# d\n",
         "[s]\na=1\n# c\n[t]\nk=1\n[s]\nb=2\n# d\n"},
        {"of a new stanza below a repeated header", "[s]\n[t]\n[s]\nk=1\n", "[s]\n[t]\n[s]\nk=2\n",
         "[s]\n[t]\n[s]\nk=1\n# d\n\n[u]\nl=1\n", "[s]\n[t]\n[s]\nk=2\n\n# d\n[u]\nl=1\n"},
        {"at the end, below a removed stanza with the contents of a new one", "[t]\n",
         "[t]\n[s]\n[t]\n", "[u]\n[s]\n# d\n", "[u]\n\n[s]\n# d\n"},
        {"a line passed over, which is parted from the comment", "# c\njunk\n[s]\nk=1\n",
         "# c\njunk\n[s]\nk=2\n", "# c\n\njunk\n[s]\nk=1\n", "# c\njunk\n[s]\nk=2\n"},
        {"a line passed over, which the comment is moved to", "# c\n\njunk\n[s]\nk=1\n",
         "# c\n\njunk\n[s]\nk=2\n", "# c\njunk\n[s]\nk=1\n", "# c\n\njunk\n[s]\nk=2\n"},
    };
    auto const dialect = zdialects::dialectWith(zdialects::findRow("ini")->switches);
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        MergedText const merged = zlines::mergeTexts(c.base, c.ours, c.theirs, *dialect);
        EXPECT_EQ(0u, merged.conflicts);
        EXPECT_EQ(c.merged, merged.text);
        // The result has all changes, so a further merge makes none.
        EXPECT_EQ(c.merged, zlines::mergeTexts(c.base, merged.text, c.theirs, *dialect).text);
        EXPECT_EQ(c.merged, zlines::mergeTexts(c.base, merged.text, c.ours, *dialect).text);
    }
}

TEST(TextMerge, AddsACommentOnceThatBothVersionsHaveAboveDifferentLines)
{
    auto const dialect = zdialects::dialectWith(zdialects::findRow("ini")->switches);
    auto const merged = [&](char const* base, char const* ours, char const* theirs) {
        return zlines::mergeTexts(base, ours, theirs, *dialect).text;
    };
    EXPECT_EQ("# c\n[t]\nk=2\n", merged("[t]\nk=1\n", "# c\n[t]\nk=2\n", "# c\n\n[t]\nk=1\n"));
    EXPECT_EQ("# c\n\n[t]\nk=2\n", merged("[t]\nk=1\n", "# c\n\n[t]\nk=2\n", "# c\n[t]\nk=1\n"));
    EXPECT_EQ("[t]\nk=2\nl=1\n# c\n",
              merged("[t]\nk=1\n", "[t]\nk=2\n# c\n", "[t]\nk=1\n# c\nl=1\n"));
    // Comments of two keys can have the same words.
    EXPECT_EQ("[t]\n# c\nk=1\n# c\nl=1\n",
              merged("[t]\nk=1\nl=1\n", "[t]\n# c\nk=1\nl=1\n", "[t]\nk=1\n# c\nl=1\n"));
}

TEST(TextMerge, AKeyWithAndWithoutAValueConflictsOnlyIfBothVersionsChangeIt)
{
    struct Case {
        char const* name;
        char const* base;
        char const* changed;
    };
    Case const cases[] = {
        {"a value changes", "[s]\nk\nk=1\nl=1\n", "[s]\nk\nk=2\nl=1\n"},
        {"a value is added", "[s]\nk\nl=1\n", "[s]\nk\nk=2\nl=1\n"},
        {"a value is added first", "[s]\nk\nl=1\n", "[s]\nk=2\nk\nl=1\n"},
        {"a line without a value is added", "[s]\nk=1\nl=1\n", "[s]\nk=1\nk\nl=1\n"},
        {"the value is removed", "[s]\nk\nk=1\nl=1\n", "[s]\nk\nl=1\n"},
        {"the line without a value is removed", "[s]\nk\nk=1\nl=1\n", "[s]\nk=1\nl=1\n"},
        {"the lines change their order", "[s]\nk\nk=1\nl=1\n", "[s]\nk=1\nk\nl=1\n"},
        {"a new key", "[s]\nl=1\n", "[s]\nk\nk=1\nk\nl=1\n"},
        {"a new stanza", "[s]\nl=1\n", "[s]\nl=1\n\n[t]\nk\nk=1\n"},
        {"a removed key", "[s]\nk\nk=1\nl=1\n", "[s]\nl=1\n"},
        {"a removed stanza", "[s]\nl=1\n[t]\nk\nk=1\n", "[s]\nl=1\n"},
        {"the last line has no line ending", "[s]\nl=1\nk=1", "[s]\nl=1\nk=1\nk"},
        {"a key in the line of a header", "[s] k=1\nl=1\n", "[s] k\nk=1\nl=1\n"},
    };
    for (char const* const name : {"git", "mysql"}) {
        auto const dialect = zdialects::dialectWith(zdialects::findRow(name)->switches);
        for (Case const& c : cases) {
            SCOPED_TRACE(std::string(name) + ": " + c.name);
            if (name == std::string("mysql") && std::string(c.base).starts_with("[s] k"))
                continue;
            auto const withOther = [](std::string text) {
                return text.replace(text.find("l=1"), 3, "l=2");
            };
            std::string const other = withOther(c.base);
            std::string const both = withOther(c.changed);
            for (bool const isSwapped : {false, true}) {
                MergedText const merged = zlines::mergeTexts(
                    c.base, isSwapped ? c.changed : other, isSwapped ? other : c.changed, *dialect);
                EXPECT_EQ(0u, merged.conflicts);
                EXPECT_EQ(both, merged.text);
            }
        }
        std::string const base = "[s]\nk\nk=1\n";
        for (auto const& [ours, theirs] :
             {std::pair("[s]\nk\nk=2\n", "[s]\nk\nk\nk=1\n"), {"[s]\nk\n", "[s]\nk=1\n"}}) {
            EXPECT_EQ(1u, zlines::mergeTexts(base, ours, theirs, *dialect).conflicts);
            EXPECT_EQ(1u, zlines::mergeTexts(base, theirs, ours, *dialect).conflicts);
            EXPECT_EQ(ours, zlines::mergeTexts(base, ours, ours, *dialect).text);
        }
    }
}

TEST(TextMerge, ABackslashAtTheEndOfOneVersionJoinsNoLineOfTheOther)
{
    struct Row {
        char const* dialect;
        Strings lastLines;
    };
    Row const rows[] = {
        {"git", {"n=x\\", "n=x # c\\", "# c\\"}},
        {"systemd", {"n=x\\", "n=\"x\\", "# c\\", "[b]\\"}},
        {"networkd", {"n=x\\", "n=\"x\\", "# c\\", "[b]\\"}},
        {"samba", {"n=x\\", "n=\"x\\", "# c\\", "[b]\\"}},
        {"qt", {"n=x\\", "# c\\", "[b]\\"}},
    };
    std::string const base = "[a]\nn=1\nm=1\n";
    auto const expectBoth = [&](zlines::Dialect const& dialect, std::string const& theirs,
                                std::string const& lastLine) {
        auto const expectMerged = [&](std::string const& ours, Contents const& expected) {
            for (auto const& [one, other] : {std::pair(ours, theirs), {theirs, ours}}) {
                std::string const merged = zlines::mergeTexts(base, one, other, dialect).text;
                EXPECT_EQ(expected, contentsOf(merged, dialect)) << merged;
                if (lastLine[0] == '#') {
                    EXPECT_NE(merged.npos, merged.find(lastLine)) << merged;
                }
            }
        };
        Contents expected = contentsOf(theirs, dialect);
        expected["a"]["m"] = {"2"};
        expectMerged("[a]\nn=1\nm=2\n", expected);
        expected["z"]["q"] = {"1"};
        expectMerged("[a]\nn=1\nm=2\n\n[z]\nq=1\n", expected);
        expected = contentsOf(theirs, dialect);
        expected["a"]["z"] = {"3"};
        expectMerged("[a]\nn=1\nm=1\nz=3\n", expected);
    };
    for (Row const& row : rows) {
        auto const dialect = zdialects::dialectWith(zdialects::findRow(row.dialect)->switches);
        for (std::string const& lastLine : row.lastLines)
            for (char const* const ending : {"", "\n"}) {
                SCOPED_TRACE(row.dialect + (": " + lastLine) + ending);
                std::string const theirs = "[a]\nm=1\n" + lastLine + ending;
                // Without a line ending, Samba has the backslash in the value.
                if (row.dialect == std::string("samba") && lastLine[0] == 'n' && *ending == 0)
                    EXPECT_THROW(zlines::mergeTexts(base, "[a]\nn=1\nm=2\n", theirs, *dialect),
                                 zlines::Refusal);
                else
                    expectBoth(*dialect, theirs, lastLine);
            }
    }
}

TEST(TextMerge, LinesWithAndWithoutAValueGetANewSpellingIfACopyWouldNotReadBack)
{
    Case const cases[] = {
        {"a backslash at the end", "[a]\nn=1\nm=1\n", "[a]\nn=1\nm=2\n", "[a]\nm=1\nn\nn=x\\\n",
         "[a]\nn\nn=x\nm=2\n"},
        {"a backslash without a line ending", "[a]\nn=1\nm=1\n", "[a]\nn=1\nm=2\n",
         "[a]\nm=1\nn\nn=x\\", "[a]\nn\nn=x\nm=2\n"},
        {"above another key that is copied", "[a]\nn=1\nm=1\nk=1\n", "[a]\nn=1\nm=1\nk=2\n",
         "[a]\nk=1\nm\nm=2\nn\nn= x\\\n", "[a]\nn\nn=x\nm\nm=2\nk=2\n"},
        {"in the line of a header", "[a] n=1\nm=1\n", "[a] n=1\nm=2\n", "[a]\nm=1\nn\nn=x\\\n",
         "[a] n\n\tn = x\nm=2\n"},
        {"at the end of this version", "[a]\nn\nm=1\nn=x\\\n", "[a]\nn\nm=2\nn=x\\\n",
         "[a]\nn\nm=1\nn\nn=x\\\n", "[a]\nn\nn\nn=x\nm=2\n"},
        {"in the style of the text", "[a]\n  n = 1\n  m = 1\n", "[a]\n  n = 1\n  m = 2\n",
         "[a]\nm=1\nn\nn=\"x;\"\\\n", "[a]\n  n\n  n = \"x;\"\n  m = 2\n"},
        {"a comment after the value", "[a]\nn=1\nm=1\n", "[a]\nn=1\nm=2\n",
         "[a]\nm=1\nn\n  n = x # c\\\n", "[a]\nn\n  n = x # c\\\nm=2\n"},
    };
    auto const git = zdialects::dialectWith(zdialects::findRow("git")->switches);
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        MergedText const merged = zlines::mergeTexts(c.base, c.ours, c.theirs, *git);
        EXPECT_EQ(0u, merged.conflicts);
        EXPECT_EQ(c.merged, merged.text);
        EXPECT_EQ(contentsOf(c.merged, *git),
                  contentsOf(zlines::mergeTexts(c.base, c.theirs, c.ours, *git).text, *git));
    }
    // The marks of a conflict of another key are below the new lines.
    EXPECT_EQ(
        "[a]\nn\nn=x\nm=1\n<<<<<<< ours\nk=2\n=======\nk=3\n>>>>>>> " + std::string("theirs\n"),
        zlines::mergeTexts("[a]\nn=1\nm=1\nk=1\n", "[a]\nn=1\nm=1\nk=2\n",
                           "[a]\nm=1\nk=3\nn\nn=x\\\n", *git)
            .text);
    // A copy of an indented line would continue the value above.
    zdialects::Switches switches = zdialects::findRow("python")->switches;
    switches.keyAlone = zdialects::KeyAlone::option;
    EXPECT_EQ("[a]\nm=2\nn\nn=2\n",
              zlines::mergeTexts("[a]\nn=1\nm=1\n", "[a]\nm=2\nn=1\n", "[a]\n  n\n  n=2\nm=1\n",
                                 *zdialects::dialectWith(switches))
                  .text);
}

TEST(TextMerge, DetectsAChangeOfBytesThatAreNotRead)
{
    using namespace std::string_literals;
    std::string const base = "[a]\n\0k=1\nl=1\0x\n"s;
    std::string const other = "[a]\n\0k=2\nl=1\0x\n"s;
    EXPECT_TRUE(zlines::changesUnreadBytes(base, base, other));
    EXPECT_TRUE(zlines::changesUnreadBytes(base, "[a]\n\0k=3\nl=1\0x\n"s, other));
    EXPECT_TRUE(zlines::changesUnreadBytes(base, base, "[a]\n\0k=1\nl=1\0y"s));
    EXPECT_TRUE(zlines::changesUnreadBytes(base, base, "[a]\nl=1\n"));
    EXPECT_FALSE(zlines::changesUnreadBytes(base, other, other));
    EXPECT_FALSE(zlines::changesUnreadBytes(base, other, base));
    EXPECT_FALSE(zlines::changesUnreadBytes(base, base, "[a]\n\0k=1\nm=2\nl=2\0x\n"s));
    EXPECT_FALSE(zlines::changesUnreadBytes("[a]\n", "[b]\n", "[c]\n"));
}

TEST(TextMerge, CommutesInRandomFilesUnlessThereIsAConflict)
{
    unsigned conflicts = 0;
    mergeAtRandom(RandomFiles::likeComments, 3000, [&](Versions const& of, MergedText const& one) {
        MergedText const other = merge(of.base, of.theirs, of.ours);
        ASSERT_EQ(one.conflicts > 0, other.conflicts > 0);
        ASSERT_EQ(of.theirs, merge(of.base, of.base, of.theirs).text);
        if (one.conflicts > 0) {
            ++conflicts;
            return;
        }
        ASSERT_EQ(contentsOf(one.text), contentsOf(other.text)) << one.text << other.text;
        expectChangesOfBoth(of, one.text);
    });
    EXPECT_LT(conflicts, 3000u);
    EXPECT_LT(0u, conflicts);
}

TEST(TextMerge, ChangesFewCommentsIfRandomMergesAreMadeAgain)
{
    unsigned merges = 0;
    unsigned changed = 0;
    mergeAtRandom(RandomFiles::unlikeComments, 6000,
                  [&](Versions const& of, MergedText const& one) {
                      if (one.conflicts > 0)
                          return;
                      ++merges;
                      Strings const comments = sortedComments(one.text);
                      for (auto const& [ours, theirs] : {std::pair(one.text, of.theirs),
                                                         {one.text, of.ours},
                                                         {of.ours, one.text},
                                                         {of.theirs, one.text}}) {
                          if (sortedComments(merge(of.base, ours, theirs).text) == comments)
                              continue;
                          ++changed;
                          break;
                      }
                  });
    EXPECT_LT(3000u, merges);
    // A new comment of a key belongs to a key below it if the first line of the key is removed and
    // another key is above the second.
    EXPECT_LE(1000 * changed, merges);
}
