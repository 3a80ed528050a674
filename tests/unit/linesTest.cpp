// The difference writer with a dialect that the library does not have: it knows no format itself.
#include <Z/lines/alignment.h>
#include <Z/lines/difference.h>
#include <Z/lines/overlap.h>
#include <Z/lines/text_merge.h>
#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace {

using zlines::Line;

// Comments start with ";", also after a value; keys above the first header belong to the stanza
// "."; headers may be repeated, and a key can follow on their line; names ignore case; values with
// ";" or spaces at their ends are in quotes; "key" is a key without a value, "key:" has an empty
// value. A value that ends with "," continues in the next line; comments between are skipped.
class Colons final : public zlines::Dialect {
public:
    explicit Colons(bool joinsHeaders = true) : joinsHeaders_(joinsHeaders) {}

    static std::string lower(std::string_view name)
    {
        std::string folded(name);
        for (char& c : folded)
            c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
        return folded;
    }

    static Line classify(std::string_view text, uint32_t begin, uint32_t end)
    {
        auto const skip = [&](uint32_t at) {
            while (at < end && (text[at] == ' ' || text[at] == '\t'))
                ++at;
            return at;
        };
        auto const trim = [&](uint32_t from, uint32_t to) {
            while (to > from && strchr(" \t\r", text[to - 1]) != nullptr)
                --to;
            return to;
        };
        uint32_t const first = skip(begin);
        uint32_t const last = trim(first, end);
        uint32_t const indent = (first - begin) & 0xFFFF;
        if (first == last)
            return {begin, zlines::blankLine, 0, first, first, first};
        if (text[first] == ';')
            return {begin, zlines::commentLine, indent, first + 1, skip(first + 1), last};
        if (text[first] == '[')
            return {begin,
                    zlines::headerLine,
                    (indent + 1) & 0xFFFF,
                    static_cast<uint32_t>(text.find(']', first)),
                    last,
                    last};
        auto colon = first;
        while (colon < end && text[colon] != ':' && text[colon] != ';')
            ++colon;
        uint32_t const nameEnd = trim(first, colon);
        if (colon == end || text[colon] == ';')
            return {begin, zlines::keyOnlyLine, indent, nameEnd, nameEnd, nameEnd};
        uint32_t const value = skip(colon + 1);
        uint32_t stop = value;
        if (value < end && text[value] == '"')
            for (++stop; stop < end && text[stop] != '"'; ++stop) {
            }
        while (stop < end && text[stop] != ';')
            ++stop;
        return {begin, zlines::valueLine, indent, nameEnd, value, trim(value, stop)};
    }

    bool split(std::string_view text, std::vector<Line>& lines) const override
    {
        for (uint32_t at = 0; at < text.size();) {
            auto const feed = static_cast<uint32_t>(std::min(text.find('\n', at), text.size()));
            lines.push_back(classify(text, at, feed));
            Line& line = lines.back();
            at = feed + 1;
            if (line.kind == zlines::headerLine) {
                uint32_t key = line.nameEnd + 1;
                while (key < feed && text[key] == ' ')
                    ++key;
                at = key < feed && text[key] != ';' ? key : at;
            }
            while (line.kind == zlines::valueLine && text[line.valueEnd - 1] == ',' &&
                   at < text.size()) {
                auto const end = static_cast<uint32_t>(std::min(text.find('\n', at), text.size()));
                if (text[text.find_first_not_of(' ', at)] != ';')
                    line.valueEnd = end;
                at = end + 1;
            }
        }
        return true;
    }

    std::string_view stanzaName(std::string_view text, Line const& header,
                                std::string& space) const override
    {
        return space = lower(zlines::slice(text, header.nameBegin(), header.nameEnd));
    }
    std::string_view keyName(std::string_view text, Line const& line,
                             std::string& space) const override
    {
        return space = lower(zlines::slice(text, line.nameBegin(), line.nameEnd));
    }
    std::string_view comparableStanza(std::string_view name, std::string& space) const override
    {
        return space = lower(name);
    }
    std::string_view comparableKey(std::string_view name, std::string& space) const override
    {
        return space = lower(name);
    }
    std::string_view value(std::string_view text, Line const& line,
                           std::string& space) const override
    {
        std::string_view const spelled = zlines::slice(text, line.valueBegin, line.valueEnd);
        if (spelled.find('\n') != spelled.npos)
            return space = parts(spelled, false);
        bool const isQuoted = spelled.size() > 1 && spelled.front() == '"' && spelled.back() == '"';
        return isQuoted ? spelled.substr(1, spelled.size() - 2) : spelled;
    }
    bool isAmbiguous(std::string_view text, Line const& line) const override
    {
        std::string_view const spelled = zlines::slice(text, line.valueBegin, line.valueEnd);
        return !spelled.starts_with('"') && spelled.find('"') != spelled.npos;
    }
    std::string_view commentText(std::string_view comment) const override
    {
        comment.remove_prefix(comment.starts_with(';') ? 1 : 0);
        comment.remove_prefix(std::min(comment.find_first_not_of(' '), comment.size()));
        return comment;
    }
    // Returns the lines of a value without their spaces, or the comments between them.
    static std::string parts(std::string_view spelled, bool comments)
    {
        std::string out;
        for (size_t at = 0; at < spelled.size();) {
            size_t const end = std::min(spelled.find('\n', at), spelled.size());
            std::string_view const line = spelled.substr(at, end - at);
            size_t const first = std::min(line.find_first_not_of(' '), line.size());
            if (comments == (at > 0 && line.substr(first).starts_with(';')))
                (out += line.substr(comments ? 0 : first)) += comments ? "\n" : "";
            at = end + 1;
        }
        return out;
    }

    std::string_view topStanza() const override { return "."; }
    bool joinsHeaders() const override { return joinsHeaders_; }
    bool needsContext() const override { return true; }
    std::string_view ownIndent() const override { return "\t"; }
    std::string_view ownSeparator() const override { return ": "; }
    std::string_view ownComment() const override { return ";"; }
    std::string_view separatorBytes() const override { return ":"; }
    size_t maxLineLength() const override { return 1000; }
    void appendHeader(std::string_view name, std::string& out) const override
    {
        bool const isNumbered = name.size() > 2 && name[name.size() - 2] == ']';
        ((out += '[') += name.substr(0, name.size() - (isNumbered ? 2 : 0))) += ']';
    }
    unsigned spellingCount() const override { return 2; }
    bool appendValue(std::string_view value, unsigned spelling, zlines::LineForm const&,
                     std::string& out) const override
    {
        out += spelling == 0 ? "" : "\"";
        out += value;
        out += spelling == 0 ? "" : "\"";
        return true;
    }
    std::string keyOnlyEnd(std::string_view) const override { return ""; }
    std::optional<zlines::Replacement> replaceValue(std::string_view text, Line const& line,
                                                    uint32_t end, std::string_view value,
                                                    unsigned spelling) const override
    {
        std::string_view const spelled = zlines::slice(text, line.valueBegin, line.valueEnd);
        if (spelled.find('\n') != spelled.npos) {
            std::string const comments = parts(spelled, true);
            std::string changed = comments;
            (changed += zlines::slice(text, line.begin, line.valueBegin)) += value;
            return zlines::Replacement{line.begin, line.valueEnd, changed, comments.size()};
        }
        std::optional<zlines::Replacement> change =
            Dialect::replaceValue(text, line, end, value, spelling);
        if (line.kind == zlines::keyOnlyLine)
            change->text.insert(0, ": ");
        return change;
    }
    zlines::Replacement removeValue(std::string_view, Line const& line) const override
    {
        return {line.nameEnd, line.valueEnd, {}};
    }
    zlines::Replacement removeLine(std::string_view text, Line const& line,
                                   uint32_t end) const override
    {
        if (line.begin > 0 && text[line.begin - 1] != '\n')
            return {line.begin - (text[line.begin - 1] == ' ' ? 1 : 0), line.valueEnd, {}};
        std::string const comments =
            parts(zlines::slice(text, line.valueBegin, line.valueEnd), true);
        return {line.begin, end, comments, comments.size()};
    }

private:
    bool const joinsHeaders_;
};

// Adds `lines` to a document: "[stanza]", "; comment", "key=value", "key".
void fill(zlines::Document& document, std::vector<char const*> const& lines)
{
    std::string_view last;
    for (char const* line : lines) {
        std::string_view const entry = line;
        size_t const sign = entry.find('=');
        if (entry.front() == '[') {
            document.addStanza(entry.substr(1, entry.size() - 2), false);
            last = {};
        } else if (entry.front() == ';') {
            document.addComment(entry, false);
        } else {
            if (entry.substr(0, sign) != last)
                document.addKey(last = entry.substr(0, sign), false);
            if (sign != entry.npos)
                document.addValue(entry.substr(sign + 1));
        }
    }
}

// Returns the text with the contents of `lines`. A further rewrite of the result changes nothing.
std::string rewritten(std::string const& text, std::vector<char const*> const& lines,
                      Colons const& dialect = Colons())
{
    zlines::Document document;
    fill(document, lines);
    zlines::TextHistory history;
    std::string out;
    if (!zlines::rewrite(text, dialect, document, history, out))
        return text;
    std::string ignored;
    EXPECT_FALSE(zlines::rewrite(out, dialect, document, history, ignored)) << ignored;
    return out;
}

}  // namespace

TEST(lines, ADialectDecidesHowLinesAreRecognisedAndValuesSpelled)
{
    struct Case {
        char const* name;
        std::string before;
        std::vector<char const*> contents;
        std::string after;
    };
    Case const cases[] = {
        {"no change",
         "k: \"v\"  ; c\n[S]\nA\nb:\n",
         {"[.]", "k=v", "[s]", "a", "b="},
         "k: \"v\"  ; c\n[S]\nA\nb:\n"},
        {"quotes only where they are needed",
         "[s]\na: 1 ; c\nb: 2\nc: 3\n",
         {"[s]", "a=it's", "b=x;y", "c= z"},
         "[s]\na: it's ; c\nb: \"x;y\"\nc: \" z\"\n"},
        {"no ambiguous spelling", "[s]\na: 1\n", {"[s]", "a=x\"y"}, "[s]\na: \"x\"y\"\n"},
        {"a comment keeps its column",
         "[s]\na: 1     ; c\n",
         {"[s]", "a=1234"},
         "[s]\na: 1234  ; c\n"},
        {"a comment gives way",
         "[s]\na: 1   ; c\n",
         {"[s]", "a=123456789"},
         "[s]\na: 123456789 ; c\n"},
        {"a shorter value", "[s]\na: 12345  ; c\n", {"[s]", "a=1"}, "[s]\na: 1      ; c\n"},
        {"a key gets a value", "[s]\na ; c\n", {"[s]", "a=1"}, "[s]\na: 1 ; c\n"},
        {"a key loses its value", "[s]\na : 1 ; c\n", {"[s]", "a"}, "[s]\na ; c\n"},
        {"an empty value", "[s]\na: 1\nb\n", {"[s]", "a=", "b="}, "[s]\na: \nb: \n"},
        {"a comment moves below a key that loses its first value",
         "[s]\n; x\na: 1\na: 2\n",
         {"[s]", "a=2", "; x"},
         "[s]\na: 2\n; x\n"},
        {"a key above the first header",
         "; top\n[s]\na: 1\n",
         {"; top", "[s]", "a=1", "[.]", "k=v"},
         "; top\nk: v\n[s]\na: 1\n"},
        {"the last key above the first header", "k: v\n[s]\n", {"[s]"}, "[s]\n"},
        {"a stanza with two headers",
         "[s]\na: 1\n[t]\nb: 2\n[S]\nc: 3\n",
         {"[s]", "a=1", "c=4", "d=5", "[t]", "b=2"},
         "[s]\na: 1\n[t]\nb: 2\n[S]\nc: 4\nd: 5\n"},
        {"a removed stanza with two headers",
         "[s]\na: 1\n[t]\nb: 2\n[S]\nc: 3\n",
         {"[t]", "b=2"},
         "[t]\nb: 2\n"},
        {"comments in the dialect's style",
         "[s]\n  ;  one\na: 1\n",
         {"[s]", ";  one", ";two", "a=1"},
         "[s]\n  ;  one\n  ;  two\na: 1\n"},
        {"a new stanza",
         "[s]\na   : 1\nbcd : 2\n",
         {"[s]", "a=1", "bcd=2", "[t]", "e=3"},
         "[s]\na   : 1\nbcd : 2\n\n[t]\ne : 3\n"},
        {"a key on its header's line",
         "[s] A: 1 ; c\nb: 2\n",
         {"[s]", "a=22", "b=2"},
         "[s] A: 22 ; c\nb: 2\n"},
        {"a key after a key on its header's line",
         "[s] a:1; c\n[t]\n",
         {"[s]", "a=1", "c=3", "[t]"},
         "[s] a:1; c\n\tc: 3\n[t]\n"},
        {"a value after a value on its header's line",
         "x: 0\r\n[s]a:1\r\n",
         {"[.]", "x=0", "[s]", "a=1", "a=2"},
         "x: 0\r\n[s]a:1\r\n\ta: 2\r\n"},
        {"a removed key on its header's line",
         "[s] a: 1 ; c\nb: 2\n",
         {"[s]", "b=2"},
         "[s] ; c\nb: 2\n"},
        {"comments of a value move above its key",
         "[s]\n; 0\n  a: 1,\n; c\n 2\nb: 3\n",
         {"[s]", "; 0", "a=4", "b=3"},
         "[s]\n; 0\n; c\n  a: 4\nb: 3\n"},
        {"comments of a removed value stay",
         "[s]\nx: 1\na: 1,\n; c\n ; d\n 2\nb: 3\n",
         {"[s]", "x=5", "b=3"},
         "[s]\nx: 5\n; c\n ; d\nb: 3\n"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.after, rewritten(c.before, c.contents));
    }
}

TEST(lines, EachHeaderCanStartAStanzaOfItsOwn)
{
    Colons const dialect(false);
    std::string const text = "[P]\na: 1\n[q]\nb: 2\n[p]\na: 3\n";
    EXPECT_EQ("[P]\na: 1\n[q]\nb: 2\n[p]\na: 4\n",
              rewritten(text, {"[P]", "a=1", "[q]", "b=2", "[P]2]", "a=4"}, dialect));
    EXPECT_EQ(
        "[P]\na: 1\n[q]\nb: 2\n[p]\na: 3\n\n[p]\na: 5\n",
        rewritten(text, {"[p]", "a=1", "[q]", "b=2", "[p]2]", "a=3", "[p]3]", "a=5"}, dialect));
    EXPECT_EQ("[P]\na: 1\n[q]\nb: 2\n", rewritten(text, {"[P]", "a=1", "[q]", "b=2"}, dialect));
}

TEST(lines, ARemovedStanzaOfSeveralLeavesTheLinesOfTheOthers)
{
    Colons const dialect(false);
    std::string const text =
        "[p]\na: 1\n\n; two\n[p]\na: 2 ; second\nb: 5\n[q]\n[p]\na: 3 ; third\nb: 6\n";
    struct Case {
        char const* name;
        std::vector<char const*> contents;
        std::string after;
    };
    Case const cases[] = {
        {"the first",
         {"; two", "[p]", "a=2", "b=5", "[q]", "[p]2]", "a=3", "b=6"},
         "; two\n[p]\na: 2 ; second\nb: 5\n[q]\n[p]\na: 3 ; third\nb: 6\n"},
        {"the second",
         {"[p]", "a=1", "; two", "[q]", "[p]2]", "a=3", "b=6"},
         "[p]\na: 1\n\n; two\n\n[q]\n[p]\na: 3 ; third\nb: 6\n"},
        {"the second, and a value of the third",
         {"[p]", "a=1", "; two", "[q]", "[p]2]", "a=4", "b=6"},
         "[p]\na: 1\n\n; two\n\n[q]\n[p]\na: 4 ; third\nb: 6\n"},
        {"none, and a value of the second",
         {"[p]", "a=1", "; two", "[p]2]", "a=7", "b=5", "[q]", "[p]3]", "a=3", "b=6"},
         "[p]\na: 1\n\n; two\n[p]\na: 7 ; second\nb: 5\n[q]\n[p]\na: 3 ; third\nb: 6\n"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.after, rewritten(text, c.contents, dialect));
    }
}

// A comment that was moved above its key is not in the wanted contents. It stays where it is.
TEST(lines, MovedCommentsAreKeptByLaterChanges)
{
    Colons const dialect;
    std::string text = "[s]\na: 1,\n; c\n 2\nb: 3,\n; d\n 4\n; e\n";
    zlines::TextHistory history;
    auto const step = [&](std::vector<char const*> const& lines) {
        zlines::Document document;
        fill(document, lines);
        std::string out;
        EXPECT_TRUE(zlines::rewrite(text, dialect, document, history, out));
        text = out;
    };
    step({"[s]", "a=1,2", "b=5", "; e"});
    EXPECT_EQ("[s]\na: 1,\n; c\n 2\n; d\nb: 5\n; e\n", text);
    step({"[s]", "a=6", "b=5", "; e"});
    EXPECT_EQ("[s]\n; c\na: 6\n; d\nb: 5\n; e\n", text);
    EXPECT_EQ((std::vector<uint32_t>{4, 13}), history.movedComments);
    step({"[s]", "a=6", "; e"});
    EXPECT_EQ("[s]\n; c\na: 6\n; d\n; e\n", text);
    step({"[s]", "a=6"});
    EXPECT_EQ("[s]\n; c\na: 6\n; d\n", text);
}

// Returns the text `there` with the changes of the wanted contents, or "overlap".
static std::string merged(std::string const& base, std::vector<char const*> const& wanted,
                          std::string const& there)
{
    Colons const dialect;
    zlines::Document document;
    fill(document, wanted);
    zlines::TextHistory history;
    std::string here;
    if (!zlines::rewrite(base, dialect, document, history, here))
        here = base;
    if (zlines::overlap(base, there, here, dialect, ""))
        return "overlap";
    zlines::MergedText const result = zlines::mergeTexts(base, there, here, dialect);
    EXPECT_EQ(0u, result.conflicts);
    return result.text;
}

TEST(lines, KeysAboveTheFirstHeaderAreMerged)
{
    std::string const base = "; c\nk: 1\nl: 2\n[s]\na: 1\n";
    std::string const there = "; c\nk: 1\nl: 2\n[s]\na: 2\n";
    EXPECT_EQ(there, merged(base, {"; c", "[.]", "k=1", "l=2", "[s]", "a=1"}, there));
    EXPECT_EQ("; c\nk: 3\n[s]\na: 2\n", merged(base, {"; c", "[.]", "k=3", "[s]", "a=1"}, there));
    EXPECT_EQ("; c\nk: 1\nl: 2\n; d\nm: 3\n[s]\na: 2\n",
              merged(base, {"; c", "[.]", "k=1", "l=2", "; d", "m=3", "[s]", "a=1"}, there));
    EXPECT_EQ("k: 3\n[s]\n", merged("[s]\na: 1\n", {"[.]", "k=3", "[s]", "a=1"}, "[s]\n"));
    EXPECT_EQ("overlap", merged(base, {"; c", "[.]", "k=3", "l=2", "[s]", "a=1"}, "k: 2\n"));
}

TEST(lines, AValueWithoutASpellingIsRefused)
{
    try {
        rewritten("[s]\na: 1\n", {"[s]", "a=\n"});
        ADD_FAILURE();
    } catch (zlines::Refusal const& refusal) {
        EXPECT_EQ("s", refusal.stanza);
        EXPECT_EQ("a", refusal.key);
        EXPECT_EQ("\n", refusal.value);
    }
}

TEST(lines, AlignedPairsAreALongestCommonSubsequence)
{
    // The length by the textbook's table.
    auto const longest = [](auto const& a, auto const& b) {
        std::vector<std::vector<size_t>> table(a.size() + 1, std::vector<size_t>(b.size() + 1));
        for (size_t i = 1; i <= a.size(); ++i)
            for (size_t j = 1; j <= b.size(); ++j)
                table[i][j] = a[i - 1] == b[j - 1] ? table[i - 1][j - 1] + 1
                                                   : std::max(table[i - 1][j], table[i][j - 1]);
        return table[a.size()][b.size()];
    };
    std::mt19937 random(7);
    for (int round = 0; round < 2000; ++round) {
        std::vector<std::string_view> lists[2];
        for (auto& list : lists)
            for (size_t count = random() % 12; count > 0; --count)
                list.push_back(std::string_view("abcdef").substr(random() % 6, 1));
        auto const pairs = zlines::align(lists[0], lists[1]);
        EXPECT_EQ(longest(lists[0], lists[1]), pairs.size());
        for (size_t i = 0; i < pairs.size(); ++i) {
            EXPECT_EQ(lists[0][pairs[i].first], lists[1][pairs[i].second]);
            if (i > 0) {
                EXPECT_LT(pairs[i - 1].first, pairs[i].first);
                EXPECT_LT(pairs[i - 1].second, pairs[i].second);
            }
        }
    }
}

TEST(lines, ManyEqualValuesAreAlignedWithinABound)
{
    std::vector<std::string_view> before(20000, "a");
    std::vector<std::string_view> after(20000, "a");
    before.front() = before.back() = "b";
    after.front() = after.back() = "c";
    auto const pairs = zlines::align(before, after);
    EXPECT_GE(pairs.size(), 50u);
    for (size_t i = 1; i < pairs.size(); ++i)
        ASSERT_LT(pairs[i - 1].second, pairs[i].second);
}
