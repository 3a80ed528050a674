// How names and values are spelled in a dialect, and how the lines of a value change.
//
// Spellings of a value are tried in this order: with its unchanged lines as they are, plain, with
// escapes, in quotes; a value in quotes is first tried in quotes again. A spelling may read as
// something else: the caller reads each in its line and takes the first that reads back. Some
// spellings would read back but are not written: programs of the format read them otherwise.

#include <algorithm>

#include "../lines/alignment.h"
#include "continued_value.h"
#include "escaped_names.h"
#include "escaped_values.h"
#include "logical_line.h"
#include "percent_names.h"
#include "plain_values.h"
#include "switched_dialect.h"

namespace zdialects {

using zlines::Line;
using zlines::Replacement;
using zlines::slice;

namespace {

enum class Form {
    unchangedLines,  // lines of the value that stay are verbatim; plain if there are no such lines
    unchangedWords,  // lines of the value whose words stay are verbatim
    plain,           // a value of several lines is indented, if the dialect has such values
    escaped,
    doubleQuoted,       // with an escape for a newline
    doubleQuotedLines,  // with newlines as they are
    singleQuoted
};

// The forms that a dialect has, in the order in which they are tried.
struct Forms {
    /// range   `old` is the form of the value that is replaced: plain or one of the quotes.
    constexpr Forms(Switches const& switches, Form old)
    {
        bool const hasQuotes = switches.quoting != Quoting::none;
        if (switches.join != 0) {
            add(Form::unchangedLines);
            add(Form::unchangedWords);
        }
        if (old == Form::plain)
            addUnquoted(switches);
        if (hasQuotes && old == Form::singleQuoted)
            add(Form::singleQuoted);
        if (hasQuotes && switches.quotes & quoteDouble) {
            add(Form::doubleQuoted);
            add(Form::doubleQuotedLines);
        }
        if (hasQuotes && switches.quotes & quoteSingle && old != Form::singleQuoted)
            add(Form::singleQuoted);
        if (old != Form::plain)
            addUnquoted(switches);
    }

    constexpr void addUnquoted(Switches const& switches)
    {
        add(Form::plain);
        if (switches.escapes != Escapes::none && switches.escapes != Escapes::php)
            add(Form::escaped);
    }

    constexpr void add(Form form) { all[count++] = form; }

    Form all[7] = {};
    unsigned count = 0;
};

// Indentation and line ending of the lines of a value after the first.
struct FurtherLines {
    std::string indent;
    std::string_view ending;
};

constexpr std::string_view kDeeper = "    ";

bool isBlank(char c)
{
    return c == ' ' || c == '\t';
}

std::string_view indentOf(std::string_view line)
{
    size_t const end = line.find_first_not_of(" \t");
    return line.substr(0, std::min(end, line.size()));
}

std::vector<std::string_view> splitLines(std::string_view text)
{
    std::vector<std::string_view> lines;
    for (size_t at = 0;;) {
        size_t const newline = text.find('\n', at);
        lines.push_back(text.substr(at, newline - at));
        if (newline == std::string_view::npos)
            return lines;
        at = newline + 1;
    }
}

void appendLines(std::string_view text, FurtherLines const& further, std::string_view indent,
                 std::string& out)
{
    for (char const c : text) {
        if (c == '\n')
            (out += further.ending) += indent;
        else
            out += c;
    }
}

// Appends a value in a form other than unchangedLines. Returns false if programs of the format
// read the value otherwise. `before` is the value that it replaces, if that had no quotes.
bool appendSpelled(Switches const& switches, std::string_view value, Form form,
                   FurtherLines const& further, std::string_view before, std::string& out)
{
    std::string spelled;
    switch (form) {
        case Form::unchangedLines:
        case Form::unchangedWords:
            return false;
        case Form::plain:
            if ((switches.notPlain & notPlainBackslashes) && value.find('\\') != value.npos)
                return false;
            appendLines(value, further,
                        switches.join & joinIndented ? further.indent : std::string(), out);
            return isPlainSafe(switches, value, before);
        case Form::escaped:
            appendEscaped(switches, value, true, spelled);
            appendLines(spelled, further, {}, out);
            return isPlainSafe(switches, spelled, before);
        case Form::doubleQuoted:
        case Form::doubleQuotedLines:
            spelled += '"';
            appendEscaped(switches, value, form == Form::doubleQuoted, spelled);
            spelled += '"';
            break;
        case Form::singleQuoted:
            ((spelled += '\'') += value) += '\'';
            break;
    }
    appendLines(spelled, further, {}, out);
    return form == Form::singleQuoted || isQuotedSafe(switches, value);
}

// Returns the end of the spaces that end a line, or `at` if something follows them.
uint32_t afterBlanksAtEnd(std::string_view text, uint32_t at)
{
    size_t const end = std::min(text.find_first_not_of(" \t", at), text.size());
    std::string_view const rest = text.substr(end, 2);
    return rest.empty() || rest[0] == '\n' || rest == "\r\n" ? static_cast<uint32_t>(end) : at;
}

// Returns the form of a value as spelled: plain or one of the quotes.
Form formOf(Characters const& characters, std::string_view spelled)
{
    if (spelled.empty() || !characters.isQuote(spelled.front()))
        return Form::plain;
    return spelled.front() == '"' ? Form::doubleQuoted : Form::singleQuoted;
}

// A line between the lines of a value that does not belong to it.
struct Aside {
    std::string_view chars;
    std::string ending;
    bool isComment;
};

// The lines of the file that a key line has.
class ValueLines {
public:
    /// `begin` is the end of the bytes before the value, which stay.
    ValueLines(SwitchedDialect const& dialect, std::string_view text, Line const& line,
               uint32_t begin, uint32_t end)
        : joining_(dialect.switches(), dialect.characters()), text_(text), line_(line)
    {
        PhysicalLine at = physicalLineAt(text, line.begin);
        first_ = at;
        asides_.emplace_back();
        lines_.push_back(slice(text, line.begin, static_cast<uint32_t>(at.end)));
        indentation_ = indentOf(lines_[0]).size();
        end_ = static_cast<uint32_t>(at.end);
        while (at.next < end) {
            at = physicalLineAt(text, at.next);
            std::string_view const chars = text.substr(at.begin, at.end - at.begin);
            if (isAside(chars, at.begin)) {
                if (at.begin < begin)
                    continue;
                asides_.back().push_back(
                    {chars,
                     std::string(at.end == at.next ? ending()
                                                   : text.substr(at.end, at.next - at.end)),
                     joining_.isComment(chars) || !(joining_.switches().join & joinIndented)});
            } else {
                lines_.push_back(chars);
                asides_.emplace_back();
                end_ = static_cast<uint32_t>(at.end);
            }
        }
        last_ = static_cast<uint32_t>(at.end);
    }

    /// Returns the lines of the value, the first with its key; blank lines are among them.
    std::vector<std::string_view> const& lines() const { return lines_; }

    /// Returns the indentation of the line of the value below another; of `further` without it.
    std::string_view indentBelow(size_t line, FurtherLines const& further) const
    {
        std::string_view const below =
            line < lines_.size() - 1 ? lines_[line + 1] : std::string_view();
        std::string_view const indent = indentOf(below);
        return indent.size() < below.size() ? indent : further.indent;
    }

    /// Returns whether only comments follow a line of the value and do not belong to it.
    bool hasComments(size_t line) const
    {
        return std::all_of(asides_[line].begin(), asides_[line].end(),
                           [](Aside const& aside) { return aside.isComment; });
    }

    /// Appends the lines that follow a line of the value and do not belong to it, and forgets them.
    void takeAsides(size_t line, std::string& out)
    {
        for (Aside const& aside : asides_[line])
            (out += aside.chars) += aside.ending;
        asides_[line].clear();
    }

    /// Returns the comments among all these lines, which can be above the key.
    std::string comments() const { return asidesThat(true); }

    /// Returns the others. They end a value of indented lines, so they can only be below it.
    std::string passedOver() const { return asidesThat(false); }

    uint32_t end() const { return end_; }    // of the last line of the value
    uint32_t last() const { return last_; }  // of the last line

    std::string_view ending() const
    {
        if (first_.end != first_.next)
            return text_.substr(first_.end, first_.next - first_.end);
        PhysicalLine const start = physicalLineAt(text_, 0);
        return start.end != start.next ? text_.substr(start.end, start.next - start.end) : "\n";
    }

    FurtherLines further() const
    {
        std::string_view const own = indentOf(lines_[0]);
        for (size_t i = 1; i < lines_.size(); ++i)
            if (lines_[i].find_first_not_of(" \t") != std::string_view::npos &&
                indentOf(lines_[i]).size() > own.size())
                return {std::string(indentOf(lines_[i])), ending()};
        return {std::string(own) += kDeeper, ending()};
    }

private:
    // Returns whether a line between the lines of a value does not belong to it. As in the reader,
    // a line that continues nothing decides how deep the next line must be.
    bool isAside(std::string_view chars, size_t begin)
    {
        Switches const& switches = joining_.switches();
        size_t const indent = indentOf(chars).size();
        if (switches.join & joinIndented) {
            if (joining_.isComment(chars))
                return true;
            if (indent == chars.size() || indent > indentation_)
                return false;
            indentation_ = indent;
            return true;
        }
        if (switches.joinSkipsComments)
            return joining_.isComment(chars);
        return (switches.join & joinInsideValue) && begin >= line_.valueEnd &&
               indent < chars.size() && joining_.characters().isTrailingMark(chars[indent]);
    }

    std::string asidesThat(bool areComments) const
    {
        std::string found;
        for (std::vector<Aside> const& asides : asides_)
            for (Aside const& aside : asides)
                if (aside.isComment == areComments)
                    (found += aside.chars) += aside.ending;
        return found;
    }

    LineJoining const joining_;
    std::string_view const text_;
    Line const& line_;
    PhysicalLine first_;
    std::vector<std::string_view> lines_;
    std::vector<std::vector<Aside>> asides_;  // after each line of the value
    size_t indentation_ = 0;                  // of the last line that continues nothing
    uint32_t end_;
    uint32_t last_;
};

// Appends lines to a change, after a line that has no line ending yet. The last gets the line
// ending that follows the change, apart from its carriage return: each line keeps its own.
void appendBelow(std::string_view text, std::string_view lines, std::string_view ending,
                 zlines::Replacement& change)
{
    if (lines.empty())
        return;
    std::string_view const rest = text.substr(change.end);
    bool const hasReturn = lines.ends_with("\r\n");
    if (!hasReturn && rest.starts_with("\r\n"))
        ++change.end;
    lines.remove_suffix(hasReturn && !rest.starts_with('\n') ? 2 : 1);
    (change.text += ending) += lines;
}

// Returns for each wanted line the old line that it keeps, or npos.
std::vector<size_t> keptLines(std::vector<std::string_view> const& from,
                              std::vector<std::string_view> const& to)
{
    std::vector<size_t> kept(to.size(), std::string_view::npos);
    for (auto const& [before, after] : zlines::align(from, to))
        kept[after] = before;
    return kept;
}

// Returns for each wanted line the old line whose asides are above it, or npos. `kept` has the old
// line of each, counted without the first.
std::vector<size_t> linesAbove(std::vector<size_t> const& kept, size_t oldCount)
{
    constexpr size_t kNone = std::string_view::npos;
    std::vector<size_t> above(kept.size(), kNone);
    size_t old = 0;  // is in the place of the wanted line above `first`
    for (size_t first = 1; first <= kept.size();) {
        size_t end = first;
        while (end < kept.size() && kept[end] == kNone)
            ++end;
        size_t const oldEnd = end < kept.size() ? kept[end] + 1 : oldCount;
        // Lines that are replaced one by one keep the asides between them.
        if (oldEnd - old == end - first + 1)
            for (size_t i = first; i < end; ++i)
                above[i] = old + (i - first);
        else if (first < end)
            above[first] = old;
        if (end < kept.size())
            above[end] = kept[end];
        old = oldEnd;
        first = end + 1;
    }
    return above;
}

// Stores the change of a value of indented lines. Returns false if the file has other lines than
// the value.
bool replaceIndented(std::string_view text, Line const& line, ValueLines& lines,
                     std::string_view before, std::string_view value, Replacement& change)
{
    std::vector<std::string_view> const from = splitLines(before);
    std::vector<std::string_view> const to = splitLines(value);
    if (lines.lines().size() == 1 || from.size() != lines.lines().size())
        return false;
    FurtherLines const further = lines.further();
    std::string out;
    if (to[0] == from[0])
        out = lines.lines()[0];
    else
        (out = slice(text, line.begin, line.valueBegin)) += to[0];
    constexpr size_t kNone = std::string_view::npos;
    std::vector<size_t> kept =
        keptLines({from.begin() + 1, from.end()}, {to.begin() + 1, to.end()});
    kept.insert(kept.begin(), kNone);
    std::vector<size_t> const above = linesAbove(kept, from.size());
    for (size_t i = 1; i < to.size(); ++i) {
        out += further.ending;
        if (above[i] != kNone && (kept[i] != kNone || lines.hasComments(above[i])))
            lines.takeAsides(above[i], out);
        if (kept[i] != kNone)
            out += lines.lines()[kept[i] + 1];
        else if (!to[i].empty())
            (out += lines.indentBelow(above[i], further)) += to[i];
    }
    std::string const comments = lines.comments();
    change = {line.begin, lines.end(), comments + out, comments.size()};
    appendBelow(text, lines.passedOver(), further.ending, change);
    return true;
}

// Stores the change of a quoted value that has newlines. Returns false if there is no such value.
bool replaceQuoted(Switches const& switches, std::string_view text, Line const& line,
                   std::string_view ending, std::string_view before, std::string_view value,
                   Replacement& change)
{
    std::string_view spelled = slice(text, line.valueBegin, line.valueEnd);
    if (spelled.size() < 2 || spelled.find('\n') == std::string_view::npos)
        return false;
    char const quote = spelled.front();
    if ((quote != '"' && quote != '\'') || spelled.back() != quote)
        return false;
    spelled = spelled.substr(1, spelled.size() - 2);
    std::vector<std::string_view> old = splitLines(spelled);
    for (size_t i = 0; i + 1 < old.size(); ++i)
        if (old[i].ends_with('\r'))
            old[i].remove_suffix(1);
    std::vector<std::string_view> const from = splitLines(before);
    std::vector<std::string_view> const to = splitLines(value);
    if (old.size() != from.size() || to.size() == 1 ||
        (quote == '"' && !isQuotedSafe(switches, value)))
        return false;
    std::vector<size_t> const kept = keptLines(from, to);
    std::string out(1, quote);
    for (size_t i = 0; i < to.size(); ++i) {
        out += i == 0 ? std::string_view() : ending;
        if (kept[i] != std::string_view::npos)
            out += old[kept[i]];
        else if (quote == '"')
            appendEscaped(switches, to[i], false, out);
        else
            out += to[i];
    }
    change = {line.valueBegin, line.valueEnd, out += quote};
    return true;
}

// Stores the change of a value in other lines. Returns false if all lines change.
bool replaceContinued(SwitchedDialect const& dialect, std::string_view text, Line const& line,
                      std::string_view before, std::string_view value,
                      ContinuedValue::Comparison comparison, Replacement& change)
{
    LineJoining const joining(dialect.switches(), dialect.characters());
    std::string comments;
    std::optional<std::string> const spelled =
        ContinuedValue(joining, text, line, before).replaced(value, comparison, comments);
    if (!spelled)
        return false;
    change = {line.valueBegin, line.valueEnd, {}};
    if (!comments.empty()) {
        change.begin = line.begin;
        change.commentBytes = comments.size();
        change.text = comments;
        change.text += slice(text, line.begin, line.valueBegin);
    }
    change.text += *spelled;
    return true;
}

// Stores the change of a value of multiple lines that keeps its unchanged lines or words. Returns
// false if the value has a single line, or keeps none.
bool replaceInLines(SwitchedDialect const& dialect, std::string_view text, Line const& line,
                    ValueLines& lines, std::string_view value,
                    ContinuedValue::Comparison comparison, Replacement& change)
{
    std::string_view const spelled = slice(text, line.valueBegin, line.valueEnd);
    if (line.kind != zlines::valueLine || spelled.find('\n') == spelled.npos)
        return false;
    Switches const& switches = dialect.switches();
    std::string space;
    std::string_view const before = dialect.value(text, line, space);
    if (switches.join & joinIndented)
        return isPlainSafe(switches, value, {}) &&
               replaceIndented(text, line, lines, before, value, change);
    return replaceQuoted(switches, text, line, lines.ending(), before, value, change) ||
           replaceContinued(dialect, text, line, before, value, comparison, change);
}

// Returns the change that removes the name of a header or key. The comments inside a name that
// continues are above its line then.
Replacement withoutName(SwitchedDialect const& dialect, std::string_view text, Line const& line)
{
    Replacement change{line.nameBegin(), line.nameEnd, {}};
    if (slice(text, change.begin, change.end).find('\n') == std::string_view::npos)
        return change;
    std::string comments = ValueLines(dialect, text, line, change.begin, line.nameEnd).comments();
    change.commentBytes = comments.size();
    if (!comments.empty()) {
        comments += slice(text, line.begin, change.begin);
        change.begin = line.begin;
    }
    change.text = std::move(comments);
    return change;
}

// Returns the end of the bytes of a line that stay before a new value. An empty value is no reason
// to continue the line of the separator.
uint32_t endBeforeValue(std::string_view text, Line const& line, std::string_view value)
{
    std::string_view const separator = slice(text, line.nameEnd, line.valueBegin);
    size_t const newline = separator.rfind('\n');
    size_t const first = separator.find_first_of("=:");
    if (!value.empty() || newline == separator.npos || first == separator.npos || first > newline)
        return line.valueBegin;
    return line.nameEnd + static_cast<uint32_t>(first) + 1;
}

}  // namespace

bool SwitchedDialect::acceptsWithoutKeys(std::string_view text) const
{
    struct Errors final : FindingSink {
        void found(Finding const& finding) override { any = any || finding.isError; }
        bool any = false;
    };
    Errors errors;
    std::vector<Line> lines;
    read(text, lines, errors);
    return !errors.any;
}

std::string_view SwitchedDialect::ownSeparator() const
{
    bool const isTight = switches_.separatorStyle == SeparatorStyle::tightEquals ||
                         (switches_.separators & separatorTight) != 0;
    if (switches_.separators & separatorEquals)
        return isTight ? "=" : " = ";
    return isTight ? ":" : ": ";
}

std::string_view SwitchedDialect::ownComment() const
{
    unsigned const first =
        switches_.commentStyle == CommentStyle::semicolon ? markSemicolon : markHash;
    unsigned marks = switches_.marks & (markHash | markSemicolon);
    // Marks of comments after values can start a line, too.
    if (marks == 0 && switches_.trailingNeeds == TrailingNeeds::nothing)
        marks = switches_.trailing;
    unsigned const mark = marks & first ? first : marks;
    return mark & markHash ? "#" : mark & markSemicolon ? ";" : "#";
}

std::string_view SwitchedDialect::ownIndent() const
{
    return switches_.indentStyle == IndentStyle::tab ? "\t" : "";
}

std::string_view SwitchedDialect::separatorBytes() const
{
    std::string_view const both = "=:";
    bool const hasEquals = (switches_.separators & separatorEquals) != 0;
    bool const hasColon = (switches_.separators & separatorColon) != 0;
    return both.substr(hasEquals ? 0 : 1, hasEquals && hasColon ? 2 : 1);
}

size_t SwitchedDialect::maxLineLength() const
{
    constexpr size_t kShort = 4094;
    return switches_.lineLimit == LineLimit::bytes4094 ? kShort : kMaxLineLength;
}

void SwitchedDialect::appendHeader(std::string_view name, std::string& out) const
{
    if (name == ".]1")
        name = ".";
    if (!joinsHeaders()) {
        size_t const digits = name.find_last_not_of("0123456789");
        if (digits != std::string_view::npos && name[digits] == ']' && digits + 1 < name.size())
            name = name.substr(0, digits);
    }
    size_t const dot = switches_.heads == Heads::subsection && name != "."
                           ? std::min(name.find('.'), name.size())
                           : name.size();
    out += '[';
    switch (switches_.heads == Heads::subsection ? Names::plain : switches_.names) {
        case Names::plain:
            out += name.substr(0, dot);
            break;
        case Names::percent:
            appendPercents(name, out);
            break;
        case Names::escaped:
            appendEscapedStanza(name, out);
            break;
    }
    if (dot < name.size()) {
        out += " \"";
        for (char const c : name.substr(dot + 1)) {
            if (c == '"' || c == '\\')
                out += '\\';
            out += c;
        }
        out += '"';
    }
    out += ']';
}

void SwitchedDialect::appendKey(std::string_view name, std::string& out) const
{
    switch (switches_.names) {
        case Names::plain:
            out += name;
            break;
        case Names::percent:
            appendPercents(name, out);
            break;
        case Names::escaped:
            appendEscapedKey(name, out);
            break;
    }
}

unsigned SwitchedDialect::spellingCount() const
{
    return Forms(switches_, Form::plain).count;
}

bool SwitchedDialect::appendValue(std::string_view value, unsigned spelling,
                                  zlines::LineForm const& form, std::string& out) const
{
    FurtherLines const further{std::string(form.indent) += kDeeper, form.lineEnding};
    return appendSpelled(switches_, value, Forms(switches_, Form::plain).all[spelling], further, {},
                         out);
}

std::string SwitchedDialect::keyOnlyEnd(std::string_view separator) const
{
    return switches_.keyAlone == KeyAlone::option ? std::string() : std::string(separator);
}

std::optional<Replacement> SwitchedDialect::replaceValue(std::string_view text, Line const& line,
                                                         uint32_t end, std::string_view value,
                                                         unsigned spelling) const
{
    // Comments after the last line of the value stay where they are, unless the value was the only
    // reason to read them with it.
    size_t const lineEnd = std::min(text.find('\n', line.valueEnd), text.size() - 1) + 1;
    if (!(switches_.join & joinInsideValue))
        end = std::min(end, static_cast<uint32_t>(lineEnd));
    uint32_t const begin = endBeforeValue(text, line, value);
    ValueLines lines(*this, text, line, begin, end);
    std::string_view const spelled = slice(text, line.valueBegin, line.valueEnd);
    Form const old = formOf(characters_, spelled);
    Form const form = Forms(switches_, old).all[spelling];
    Replacement change{begin, line.valueEnd, {}};
    if (form == Form::unchangedLines || form == Form::unchangedWords) {
        auto const comparison =
            form == Form::unchangedLines ? ContinuedValue::byLines : ContinuedValue::byWords;
        if (!replaceInLines(*this, text, line, lines, value, comparison, change))
            return {};
        return change;
    }
    std::string const comments = lines.comments();
    std::string const below = lines.passedOver();
    if (!comments.empty()) {
        bool const isCommentLast = lines.last() > lines.end();
        change = {line.begin, isCommentLast ? lines.last() : line.valueEnd, comments,
                  comments.size()};
        change.text += slice(text, line.begin, begin);
    }
    std::string_view const separator = slice(text, line.nameEnd, line.valueBegin);
    bool const isEmpty = line.valueBegin == line.valueEnd;
    if (isEmpty && switches_.blanksAtEnd)
        change.end = afterBlanksAtEnd(text, change.end);
    if (line.kind == zlines::keyOnlyLine)
        change.text += ownSeparator();
    else if (isEmpty && separator.size() > 1 && isBlank(separator.front()) &&
             characters_.isSeparator(separator.back()) &&
             (value.empty() || !characters_.isTrailingMark(value.front())))
        change.text += ' ';  // as before the separator
    if (!appendSpelled(switches_, value, form, lines.further(),
                       old == Form::plain ? spelled : std::string_view(), change.text))
        return {};
    char const next = change.end < text.size() ? text[change.end] : '\n';
    if (isEmpty && !isBlank(next) && next != '\n' && next != '\r')
        change.text += ' ';
    if (!below.empty()) {
        change.text += slice(text, change.end, lines.end());
        change.end = lines.end();
        appendBelow(text, below, lines.ending(), change);
    }
    return change;
}

Replacement SwitchedDialect::removeValue(std::string_view, Line const& line) const
{
    return {line.nameEnd, line.valueEnd, {}};
}

Replacement SwitchedDialect::renameHeader(std::string_view text, Line const& header,
                                          std::string_view name) const
{
    Replacement change = withoutName(*this, text, header);
    std::string spelled;
    appendHeader(name, spelled);
    change.text += std::string_view(spelled).substr(1, spelled.size() - 2);
    return change;
}

Replacement SwitchedDialect::removeLine(std::string_view text, Line const& line, uint32_t end) const
{
    uint32_t begin = line.begin;
    while (begin > 0 && isBlank(text[begin - 1]))
        --begin;
    // A header before the key stays, with the comment after the value.
    if (begin > 0 && text[begin - 1] == ']')
        return {begin, line.valueEnd, {}};
    ValueLines const lines(*this, text, line, line.begin, end);
    std::string const comments = lines.comments();
    return {line.begin, end, comments + lines.passedOver(), comments.size()};
}

Replacement SwitchedDialect::renameKey(std::string_view text, Line const& line,
                                       std::string_view name) const
{
    Replacement change = withoutName(*this, text, line);
    appendKey(name, change.text);
    return change;
}

}  // namespace zdialects
