#include "style.h"

#include <algorithm>

#include "columns.h"

namespace zlines {

namespace {

constexpr uint32_t kFarthest = 1000;  // lines between a new comment and its model

bool isBlank(char c)
{
    return c == ' ' || c == '\t';
}

std::string_view indentOf(Outline const& outline, uint32_t line)
{
    Line const& record = outline.lines()[line];
    std::string_view const indent = slice(outline.text(), record.begin, record.nameBegin());
    // A word or mark before the key, such as "export", is no indentation.
    return indent.substr(
        0, static_cast<size_t>(
               std::find_if(indent.begin(), indent.end(),
                            [](char c) { return static_cast<unsigned char>(c) > ' '; }) -
               indent.begin()));
}

// Returns the bytes between key and value; empty if there is no separator byte among them. A marker
// that follows the key, such as "[$e]", is not returned.
std::string_view separatorOf(Outline const& outline, uint32_t line)
{
    Line const& record = outline.lines()[line];
    std::string_view const separator = slice(outline.text(), record.nameEnd, record.valueBegin);
    size_t start = separator.find_first_of(outline.dialect().separatorBytes());
    if (start == std::string_view::npos || separator.find('\n') != std::string_view::npos)
        return {};
    if (static_cast<unsigned char>(separator.front()) <= ' ')
        return separator;
    while (start > 0 && isBlank(separator[start - 1]))
        --start;
    return separator.substr(start);
}

// Returns whether a separator has spaces before its sign, and none after it. "key =" does not show
// the spaces after it.
bool isOneSided(std::string_view separator)
{
    return separator.size() > 1 && isBlank(separator.front()) && !isBlank(separator.back());
}

std::string_view spacedSeparator(char sign)
{
    return sign == ':' ? " : " : " = ";
}

// Returns the column of the separator of a key line; 0 if it has none, or a header before it.
size_t columnOf(Outline const& outline, uint32_t line)
{
    std::string_view const separator = separatorOf(outline, line);
    if (separator.empty() || outline.sharesLine(line))
        return 0;
    size_t const blanks = separator.find_first_of(outline.dialect().separatorBytes());
    Line const& record = outline.lines()[line];
    auto const begin = static_cast<uint32_t>(record.valueBegin - separator.size());
    return countCharacters(slice(outline.text(), record.begin, begin)) + blanks;
}

// Returns the characters of a line up to the end of its key, with the markers of the key.
size_t widthOfKey(Outline const& outline, uint32_t line)
{
    std::string_view const separator = separatorOf(outline, line);
    return columnOf(outline, line) - separator.find_first_of(outline.dialect().separatorBytes());
}

// Whether two key lines have their separators in one column. Keys of the same length with a single
// space, or none, before the separator are no sign of columns.
enum class Alignment { none, unknown, aligned };

Alignment alignmentOf(Outline const& outline, uint32_t a, uint32_t b)
{
    size_t const column = columnOf(outline, a);
    if (column == 0 || column != columnOf(outline, b))
        return Alignment::none;
    std::string_view const separator = separatorOf(outline, a);
    bool const isPadded =
        separator.size() > 1 && isBlank(separator.front()) && isBlank(separator[1]);
    bool const haveOneWidth = widthOfKey(outline, a) == widthOfKey(outline, b);
    return isPadded || !haveOneWidth ? Alignment::aligned : Alignment::unknown;
}

// Returns the nearest key line above or below `line` within a section; kNone if not found.
uint32_t keyAbove(Outline const& outline, Section const& section, uint32_t line)
{
    std::vector<uint32_t> const& keys = outline.keyLines();
    auto at = std::lower_bound(keys.begin(), keys.end(), line);
    while (line != kNone && at != keys.begin() && *--at >= section.first)
        if (!separatorOf(outline, *at).empty())
            return *at;
    return kNone;
}

uint32_t keyBelow(Outline const& outline, Section const& section, uint32_t line)
{
    std::vector<uint32_t> const& keys = outline.keyLines();
    uint32_t const first = line == kNone ? section.first : line + 1;
    for (auto at = std::lower_bound(keys.begin(), keys.end(), first);
         at != keys.end() && *at < section.end; ++at)
        if (!separatorOf(outline, *at).empty())
            return *at;
    return kNone;
}

// Returns the key line at `line`, or the nearest above it or else below it in a section, also if it
// has no separator; kNone if not found.
uint32_t nearestKey(Outline const& outline, Section const& section, uint32_t line)
{
    std::vector<uint32_t> const& keys = outline.keyLines();
    uint32_t const next = line == kNone ? section.first : line + 1;
    auto const below = std::lower_bound(keys.begin(), keys.end(), next);
    if (below != keys.begin() && below[-1] >= section.first)
        return below[-1];
    return below != keys.end() && *below < section.end ? *below : kNone;
}

// Returns whether the separator of a key line is in a column with its neighbours.
bool isAligned(Outline const& outline, Section const& section, uint32_t model)
{
    for (auto const next : {keyAbove, keyBelow}) {
        uint32_t line = model;
        for (int i = 0; i < kMaxNeighbours; ++i) {
            line = next(outline, section, line);
            Alignment const found =
                line == kNone ? Alignment::none : alignmentOf(outline, model, line);
            if (found == Alignment::aligned)
                return true;
            if (found == Alignment::none)
                break;
        }
    }
    return false;
}

// Returns a key line elsewhere, preferably with a value: the nearest above the section, or the
// first below.
uint32_t keyElsewhere(Outline const& outline, Section const& section)
{
    Section const all{kNone, 0, static_cast<uint32_t>(outline.lines().size()), kNone};
    auto const isModel = [&](uint32_t line) { return outline.lines()[line].kind == valueLine; };
    uint32_t above = keyAbove(outline, all, section.first);
    uint32_t const nearest = above;
    while (above != kNone && !isModel(above))
        above = keyAbove(outline, all, above);
    if (above != kNone)
        return above;
    uint32_t below = section.end == 0 ? kNone : section.end - 1;
    below = keyBelow(outline, all, below);
    return nearest != kNone ? nearest : below;
}

// Returns the length of the name at the start of a comment such as "# key = default", if it is the
// name of a key; otherwise 0.
size_t lengthOfName(Outline const& outline, std::string_view comment, std::string_view key)
{
    Dialect const& dialect = outline.dialect();
    if (comment.starts_with(key))
        return key.size();
    std::string_view name = comment.substr(0, comment.find_first_of(dialect.separatorBytes()));
    name = name.substr(0, name.find_last_not_of(" \t") + 1);
    std::string nameSpace;
    std::string keySpace;
    return dialect.comparableKey(name, nameSpace) == dialect.comparableKey(key, keySpace)
               ? name.size()
               : 0;
}

// Returns the separator in a comment such as "# key = default"; empty for any other comment.
std::string_view separatorInTemplate(Outline const& outline, uint32_t line, std::string_view key)
{
    std::string_view const comment = outline.comment(line);
    if (outline.lines()[line].kind != commentLine)
        return {};
    size_t const length = lengthOfName(outline, comment, key);
    if (length == 0)
        return {};
    std::string_view const bytes = outline.dialect().separatorBytes();
    size_t at = length;
    while (at < comment.size() && isBlank(comment[at]))
        ++at;
    if (at == comment.size() || bytes.find(comment[at]) == std::string_view::npos)
        return {};
    ++at;
    size_t const sign = at;
    while (at < comment.size() && isBlank(comment[at]))
        ++at;
    // "# key =" has no value to show the spaces before it.
    size_t const end = at == comment.size() && at == sign ? length : at;
    return comment.substr(length, end - length);
}

// Returns whether a comment is a key that is commented out.
bool isTemplate(Outline const& outline, uint32_t line)
{
    std::string_view const comment = outline.comment(line);
    size_t const sign = comment.find_first_of(outline.dialect().separatorBytes());
    size_t const word = comment.substr(0, sign).find_last_not_of(" \t");
    return sign != comment.npos && word != comment.npos &&
           comment.substr(0, word).find_first_of(" \t") == comment.npos;
}

// Returns the first of the comment lines right above a comment line.
uint32_t firstOfComment(Outline const& outline, uint32_t line)
{
    for (uint32_t i = 0; i < kFarthest && line > 0; ++i, --line)
        if (outline.lines()[line - 1].kind != commentLine)
            break;
    return line;
}

// Returns the line that is nearest to the position after the line `after` and for which `isModel`
// is true, the line above if two are equally near; otherwise kNone.
template <class IsModel>
uint32_t findNear(Outline const& outline, uint32_t after, IsModel isModel)
{
    auto const count = static_cast<uint32_t>(outline.lines().size());
    uint32_t const position = after == kNone ? 0 : after + 1;
    for (uint32_t i = 0; i < kFarthest && (i < position || position + i < count); ++i) {
        if (i < position && isModel(position - 1 - i))
            return position - 1 - i;
        if (position + i < count && isModel(position + i))
            return position + i;
    }
    return kNone;
}

}  // namespace

bool isTemplateOf(Outline const& outline, uint32_t line, std::string_view key)
{
    return !separatorInTemplate(outline, line, key).empty();
}

Style styleOf(Outline const& outline, uint32_t model)
{
    Line const& line = outline.lines()[model];
    Dialect const& dialect = outline.dialect();
    if (outline.sharesLine(model))
        return {dialect.ownIndent(), dialect.ownSeparator(), outline.lineEndingOf(model)};
    std::string_view const separator = separatorOf(outline, model);
    Style style{indentOf(outline, model), separator.empty() ? dialect.ownSeparator() : separator,
                outline.lineEndingOf(model)};
    // As in that line if it gets a value.
    if (line.valueBegin == line.valueEnd && isOneSided(separator))
        style.separator = spacedSeparator(separator.back());
    return style;
}

Style styleOfValue(Outline const& outline, uint32_t model, std::string_view key)
{
    Style style = styleOf(outline, model);
    size_t const column = columnOf(outline, model);
    size_t const indent = style.indent.size();
    if (column > indent && widthOfKey(outline, model) != indent + countCharacters(key) &&
        isAligned(outline, outline.sectionOf(model), model))
        style.column = column - indent;
    return style;
}

Style styleAfter(Outline const& outline, Section const& section, uint32_t after,
                 std::string_view key)
{
    std::vector<Line> const& lines = outline.lines();
    std::string_view const ending = outline.lineEndingAfter(after);
    bool const isInSection = after != kNone && after >= section.first && after < section.end;
    if (isInSection && lines[after].kind == commentLine && !key.empty()) {
        std::string_view const separator = separatorInTemplate(outline, after, key);
        if (!separator.empty())
            return {indentOf(outline, after), separator, ending};
    }
    bool const isAfterKey =
        isInSection && lines[after].isKey() && !separatorOf(outline, after).empty();
    uint32_t const position = isInSection ? after : kNone;
    uint32_t const above = isInSection ? keyAbove(outline, section, after) : kNone;
    uint32_t const below = keyBelow(outline, section, position);
    uint32_t model = isAfterKey ? after : above != kNone ? above : below;
    if (model == kNone)
        model = keyElsewhere(outline, section);
    Style style{outline.dialect().ownIndent(), outline.dialect().ownSeparator(), {}};
    if (model != kNone)
        style = styleOf(outline, model);
    style.lineEnding = ending;
    uint32_t const nearest = nearestKey(outline, section, position);
    if (nearest != kNone && separatorOf(outline, nearest).empty())
        style.indent = styleOf(outline, nearest).indent;
    if (model >= section.first && model < section.end && isAligned(outline, section, model))
        style.column =
            columnOf(outline, model) - std::min(columnOf(outline, model) - 1, style.indent.size());
    return style;
}

bool isRepeated(Outline const& outline, Section const& section, uint32_t after, Style const& style)
{
    bool const isPadded =
        style.separator.size() > 1 && isBlank(style.separator[0]) && isBlank(style.separator[1]);
    return style.column == 0 && !isPadded && keyBelow(outline, section, after) == kNone;
}

Neighbours::Neighbours(Outline const& outline, Section const& section, uint32_t after,
                       std::span<std::string const> newLines)
    : lineEnding_(outline.lineEndingAfter(after))
{
    if (newLines.empty())
        return;
    auto const append = [&](uint32_t line) {
        text_ += slice(outline.text(), outline.lines()[line].begin, outline.endOf(line));
        if (!text_.ends_with('\n'))
            text_ += lineEnding_;
    };
    if (section.header != kNone)
        append(section.header);
    std::vector<uint32_t> const& keys = outline.keyLines();
    auto const next = std::lower_bound(keys.begin(), keys.end(), after == kNone ? 0 : after + 1);
    auto const isHere = [&section](uint32_t key) {
        return key >= section.first && key < section.end;
    };
    auto first = next;
    for (int i = 0; i < kMaxNeighbours && first != keys.begin() && isHere(first[-1]); ++i)
        --first;
    std::for_each(first, next, append);
    for (std::string const& lines : newLines)
        text_ += lines;
    size_t const end = text_.size();
    for (auto key = next; key != keys.end() && key < next + kMaxNeighbours && isHere(*key); ++key)
        append(*key);
    outline_.emplace(text_, outline.dialect());
    for (uint32_t i = 0; i < outline_->lines().size(); ++i)
        if (outline_->lines()[i].begin < end)
            last_ = i;
}

Style Neighbours::style(std::string_view key) const
{
    Style style = styleAfter(*outline_, outline_->sectionOf(last_), last_, key);
    style.lineEnding = lineEnding_;
    return style;
}

std::string separatorFor(Style const& style, std::string_view key)
{
    if (style.column == 0)
        return std::string(style.separator);
    size_t const length = countCharacters(key);
    size_t blanks = 0;
    while (blanks < style.separator.size() && isBlank(style.separator[blanks]))
        ++blanks;
    size_t const least = blanks == 0 ? 0 : 1;
    size_t const wanted = style.column > length ? style.column - length : 0;
    return std::string(std::max(least, wanted), ' ') + std::string(style.separator.substr(blanks));
}

std::string_view spacesOf(Dialect const& dialect, std::string_view comment)
{
    std::string_view const text = dialect.commentText(comment);
    if (text.empty() || text.data() < comment.data() ||
        text.data() > comment.data() + comment.size())
        return {};
    std::string_view const prefix =
        comment.substr(0, static_cast<size_t>(text.data() - comment.data()));
    size_t const mark = prefix.find_last_not_of(" \t");
    return mark == prefix.npos ? std::string_view() : prefix.substr(mark + 1);
}

bool haveBlankAbove(Outline const& outline, uint32_t after, LineKind below,
                    std::span<InsertedComment const> inserted)
{
    auto const isOfKind = [&](uint32_t line) {
        LineKind const kind = static_cast<LineKind>(outline.lines()[line].kind);
        return below == valueLine ? outline.lines()[line].isKey() : kind == below;
    };
    // The last line of a comment above such a line, unless the comment is right below a header.
    uint32_t first = kNone;
    auto const isModel = [&](uint32_t line) {
        if (outline.lines()[line].kind != commentLine || line + 1 >= outline.lines().size() ||
            !isOfKind(line + 1))
            return false;
        first = firstOfComment(outline, line);
        // A blank line at the start of the file parts the comment from nothing.
        bool const isAtStart = first == 0 || (first == 1 && outline.lines()[0].kind == blankLine);
        return !isAtStart && outline.lines()[first - 1].kind != headerLine;
    };
    uint32_t const position = after == kNone ? 0 : after + 1;
    uint32_t const found = findNear(outline, after, isModel);
    uint32_t const distance = found == kNone      ? kFarthest
                              : found >= position ? found - position
                                                  : position - 1 - found;
    for (size_t i = inserted.size(); i-- > 0;) {
        InsertedComment const& comment = inserted[i];
        if (comment.line > position || position - comment.line > distance)
            break;
        if (comment.below == below)
            return comment.hasBlankAbove;
    }
    return found != kNone && outline.lines()[first - 1].kind == blankLine;
}

void appendComment(Outline const& outline, uint32_t after, std::string_view comment,
                   std::string& out)
{
    // The nearest comment with words shows the style, preferably no key that is commented out.
    auto const hasWords = [&](uint32_t line) {
        if (outline.lines()[line].kind != commentLine || outline.comment(line).empty())
            return false;
        auto const first = static_cast<unsigned char>(outline.comment(line).front());
        return first >= 0x80 || (first >= '0' && first <= '9') || (first >= 'A' && first <= 'Z') ||
               (first >= 'a' && first <= 'z');
    };
    uint32_t model = findNear(outline, after, [&](uint32_t line) {
        return hasWords(line) && !isTemplate(outline, line);
    });
    if (model == kNone)
        model = findNear(outline, after, hasWords);
    Dialect const& dialect = outline.dialect();
    std::string_view const ending = outline.lineEndingAfter(after);
    std::string_view const text = dialect.commentText(comment);
    if (model == kNone && comment.starts_with(dialect.ownComment())) {
        (out += comment) += ending;
        return;
    }
    std::string_view indent;
    std::string_view mark = dialect.ownComment();
    std::string_view spaces = " ";
    if (model != kNone) {
        Line const& line = outline.lines()[firstOfComment(outline, model)];
        indent = slice(outline.text(), line.begin, line.nameBegin());
        mark = slice(outline.text(), line.nameBegin(), line.nameEnd);
        spaces = slice(outline.text(), line.nameEnd, line.valueBegin);
    }
    if (std::string_view const own = spacesOf(dialect, comment); !own.empty())
        spaces = own;
    if (text.empty())
        spaces = {};
    size_t const length = indent.size() + mark.size() + spaces.size() + text.size();
    if (length > dialect.maxLineLength())
        indent = spaces = {};
    (((out += indent) += mark) += spaces) += text;
    out += ending;
}

}  // namespace zlines
