// The difference writer with a dialect that the library does not have: it knows no format itself.
#include <Z/lines/alignment.h>
#include <Z/lines/difference.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace {

using zlines::Line;

// Comments start with ";", also after a value; keys above the first header belong to the stanza
// "."; headers may be repeated; names ignore case; values with ";" or spaces at their ends are in
// quotes; "key" is a key without a value, "key:" has an empty value.
class Colons final : public zlines::Dialect {
public:
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
            while (to > from && (text[to - 1] == ' ' || text[to - 1] == '\t'))
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
            return {begin, zlines::headerLine, (indent + 1) & 0xFFFF, last - 1, last, last};
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

    void split(std::string_view text, std::vector<Line>& lines) const override
    {
        for (size_t at = 0; at < text.size();) {
            size_t const feed = std::min(text.find('\n', at), text.size());
            lines.push_back(classify(text, static_cast<uint32_t>(at), static_cast<uint32_t>(feed)));
            at = feed + 1;
        }
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
    std::string_view value(std::string_view text, Line const& line, std::string&) const override
    {
        std::string_view const spelled = zlines::slice(text, line.valueBegin, line.valueEnd);
        bool const isQuoted = spelled.size() > 1 && spelled.front() == '"' && spelled.back() == '"';
        return isQuoted ? spelled.substr(1, spelled.size() - 2) : spelled;
    }
    std::string_view commentText(std::string_view comment) const override
    {
        comment.remove_prefix(comment.starts_with(';') ? 1 : 0);
        comment.remove_prefix(std::min(comment.find_first_not_of(' '), comment.size()));
        return comment;
    }
    std::string_view topStanza() const override { return "."; }
    std::string_view ownSeparator() const override { return ": "; }
    std::string_view ownComment() const override { return ";"; }
    std::string_view separatorBytes() const override { return ":"; }
    size_t maxLineLength() const override { return 1000; }
    void appendHeader(std::string_view name, std::string& out) const override
    {
        ((out += '[') += name) += ']';
    }
    unsigned spellingCount() const override { return 2; }
    void appendValue(std::string_view value, unsigned spelling, std::string& out) const override
    {
        out += spelling == 0 ? "" : "\"";
        out += value;
        out += spelling == 0 ? "" : "\"";
    }
    std::string keyOnlyEnd(std::string_view) const override { return ""; }
    zlines::Replacement replaceValue(std::string_view text, Line const& line,
                                     std::string_view value, unsigned spelling) const override
    {
        zlines::Replacement change = Dialect::replaceValue(text, line, value, spelling);
        if (line.kind == zlines::keyOnlyLine)
            change.text.insert(0, ": ");
        return change;
    }
    zlines::Replacement removeValue(std::string_view, Line const& line) const override
    {
        return {line.nameEnd, line.valueEnd, {}};
    }
};

// Returns the text with the contents of `lines`: "[stanza]", "; comment", "key=value", "key".
std::string rewritten(std::string const& text, std::vector<char const*> const& lines)
{
    Colons const dialect;
    zlines::Document document;
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
    std::string out;
    return zlines::rewrite(text, dialect, document, out) ? out : text;
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
         {"[s]", "; one", "; two", "a=1"},
         "[s]\n  ;  one\n  ;  two\na: 1\n"},
        {"a new stanza",
         "[s]\na   : 1\nbcd : 2\n",
         {"[s]", "a=1", "bcd=2", "[t]", "e=3"},
         "[s]\na   : 1\nbcd : 2\n\n[t]\ne : 3\n"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.after, rewritten(c.before, c.contents));
    }
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
