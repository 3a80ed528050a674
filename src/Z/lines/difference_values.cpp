// The lines of a stanza that are changed or removed, and further lines of its keys.

#include <algorithm>
#include <utility>

#include "alignment.h"
#include "columns.h"
#include "difference.h"

namespace zlines {

namespace {

bool hasLongLine(std::string_view lines, size_t maxLength)
{
    while (lines.size() > maxLength) {
        std::string_view line = lines.substr(0, lines.find('\n'));
        lines.remove_prefix(std::min(line.size() + 1, lines.size()));
        line.remove_suffix(line.ends_with('\r') ? 1 : 0);
        if (line.size() > maxLength)
            return true;
    }
    return false;
}

}  // namespace

std::string_view Difference::valueOf(Entry const& entry, size_t index) const
{
    return document_.values[entry.firstValue + index];
}

// Returns the line that a value is copied from; empty: none.
std::string_view Difference::lineOf(Entry const& entry, size_t index) const
{
    return document_.lineOf(entry.firstValue + index);
}

// Returns whether the header after a wanted stanza is not right below its entries.
bool Difference::isNextParted(uint32_t stanza) const
{
    uint32_t next = stanza + 1;
    while (next < readOf_.size() && readOf_[next] == 0)
        ++next;
    return next >= readOf_.size() || document_.stanzas[next].isParted();
}

// Changes and removes the lines of keys and comments, and finds the lines of the entries.
void Difference::compareLines(Reordered& stanza)
{
    stanzaName_ = nameOf(stanza.stanza);
    Matching found =
        matchLines(outline_, outline_.stanzas()[stanza.read], document_, stanza.entries,
                   isNextParted(stanza.stanza), isScattered_, names_ == oldNames);
    isScattered_ = isScattered_ || found.isScattered;
    for (ReadKey const& key : found.keys) {
        if (key.entry == kNone) {
            for (uint32_t const line : key.lines)
                removeLine(line);
            continue;
        }
        Entry const& entry = stanza.entries[key.entry];
        renamedKey_ = key.isRenamed ? &entry : nullptr;
        compareValues(entry, key.lines);
        renamedKey_ = nullptr;
        for (uint32_t const line : key.lines)
            if (!isGone(line) && (key.isRenamed || isRespelled(entry, line)))
                renameKey(line, entry);
    }
    removesComments_ = removesComments_ || !found.removedComments.empty();
    for (uint32_t const line : found.removedComments)
        removeLine(line);
    for (size_t i = 0; i < stanza.entries.size(); ++i)
        if (stanza.entries[i].isComment && found.lineOf[i] != kNone)
            compareSpaces(found.lineOf[i], stanza.entries[i].text);
    stanza.lineOf = std::move(found.lineOf);
    stanza.movedFrom = std::move(found.movedFrom);
}

// Gives a comment of the text the spaces of a wanted comment with the same words, if it has spaces.
void Difference::compareSpaces(uint32_t line, std::string_view comment)
{
    std::string_view const spaces = spacesOf(dialect_, comment);
    Line const& read = outline_.lines()[line];
    if (spaces.empty() || spaces == slice(text_, read.nameEnd, read.valueBegin) ||
        comment == slice(text_, read.nameBegin(), read.valueEnd))
        return;
    record(stanzaName_, {}, comment);
    edits_.replace({read.nameEnd, read.valueBegin, std::string(spaces)});
}

void Difference::renameKey(uint32_t line, Entry const& entry)
{
    record(stanzaName_, entry.text, {});
    Line const& read = outline_.lines()[line];
    Replacement change = dialect_.renameKey(text_, read, entry.text);
    if (change.commentBytes > 0)
        edits_.moveComments(splitComments(read, read.nameBegin(), change));
    edits_.replaceName(std::move(change));
}

void Difference::compareValues(Entry const& entry, std::vector<uint32_t> const& lines)
{
    std::vector<uint32_t> read;  // lines with a value
    for (uint32_t const line : lines)
        if (outline_.lines()[line].kind == valueLine)
            read.push_back(line);
    if (entry.valueCount == 0) {
        removeValues(entry, lines);
    } else if (read.empty()) {
        setValue(lines.front(), valueOf(entry, 0), lineOf(entry, 0));
        for (size_t i = 1; i < entry.valueCount; ++i)
            insertValue(lines.front(), outline_.endOf(lines.front()), Edits::valuesOfLineAbove,
                        valueOf(entry, i), lineOf(entry, i));
    } else if (read.size() == entry.valueCount && hasValues(entry, read)) {
        return;
    } else if (read.size() == 1 && entry.valueCount == 1) {
        setValue(read.front(), valueOf(entry, 0), lineOf(entry, 0));
    } else {
        alignValues(entry, read);
    }
}

// Returns whether lines have the values of a key, in their order.
bool Difference::hasValues(Entry const& entry, std::vector<uint32_t> const& read)
{
    for (size_t i = 0; i < read.size(); ++i)
        if (outline_.value(read[i], valueSpace_) != valueOf(entry, i))
            return false;
    return true;
}

// Leaves a key without values. One line stays, unless the values are in the companion.
void Difference::removeValues(Entry const& entry, std::vector<uint32_t> const& lines)
{
    bool needsLine = entry.needsLine;
    for (uint32_t const line : lines)
        needsLine = needsLine && outline_.lines()[line].kind == valueLine;
    for (uint32_t const line : lines) {
        if (outline_.lines()[line].kind != valueLine)
            continue;
        if (needsLine) {
            record(stanzaName_, entry.text, {});
            edits_.replace(dialect_.removeValue(text_, outline_.lines()[line]));
        } else {
            removeLine(line);
        }
        needsLine = false;
    }
}

void Difference::alignValues(Entry const& entry, std::vector<uint32_t> const& read)
{
    std::vector<std::string_view> before;
    std::vector<std::string_view> after;
    for (uint32_t const line : read)
        before.push_back(outline_.keep(outline_.value(line, valueSpace_), valueSpace_));
    for (size_t i = 0; i < entry.valueCount; ++i)
        after.push_back(valueOf(entry, i));
    auto pairs = align(before, after);
    pairs.push_back({static_cast<uint32_t>(before.size()), static_cast<uint32_t>(after.size())});

    uint32_t nextRead = 0;
    uint32_t nextValue = 0;
    uint32_t last = kNone;  // the line above a new value
    for (auto const& [read_, value] : pairs) {
        while (nextRead < read_ && nextValue < value) {
            last = read[nextRead];
            setValue(read[nextRead++], after[nextValue], lineOf(entry, nextValue));
            ++nextValue;
        }
        while (nextRead < read_)
            removeLine(read[nextRead++]);
        for (; nextValue < value; ++nextValue) {
            if (last != kNone)
                insertValue(last, outline_.endOf(last), Edits::valuesOfLineAbove, after[nextValue],
                            lineOf(entry, nextValue));
            else
                insertValue(read[0], outline_.lines()[read[0]].begin, Edits::valuesOfLineBelow,
                            after[nextValue], lineOf(entry, nextValue));
        }
        if (read_ == before.size())
            break;
        last = read[read_];
        ++nextRead, ++nextValue;
    }
}

// range   `copied` is the line of the value in another text; empty: none.
void Difference::setValue(uint32_t line, std::string_view value, std::string_view copied)
{
    std::string const key(outline_.keyName(line, keySpace_));
    record(stanzaName_, key, value);
    if (!copied.empty() && copyLine(line, key, value, copied))
        return;
    Line const& record = outline_.lines()[line];
    std::string const above = contextAbove(line == 0 ? kNone : line - 1);
    for (unsigned spelling = 0; spelling < dialect_.spellingCount(); ++spelling) {
        std::optional<Replacement> change =
            dialect_.replaceValue(text_, record, outline_.endOf(line), value, spelling);
        if (!change)
            continue;
        keepCommentColumn(line, *change);
        std::string changed = lineAfter(line, *change);
        if (hasLongLine(changed, dialect_.maxLineLength()) && dropSpaces(line, *change))
            changed = lineAfter(line, *change);
        std::string context = above;
        context += std::string_view(change->text).substr(0, change->commentBytes);
        bool const isProven =
            readsBack(context, change->commentBytes, changed, line + 1, key, value);
        bool const isLast = spelling + 1 == dialect_.spellingCount();
        if (isProven || (isLast && !dialect_.needsContext())) {
            size_t const count = edits_.count();
            if (change->commentBytes > 0)
                edits_.moveComments(splitComments(record, record.valueBegin, *change));
            // Values that are added to the key above precede a name at the start of the line.
            if (change->begin == record.begin)
                edits_.replaceName(std::move(*change));
            else
                edits_.replace(std::move(*change));
            provenEdits_ += isProven ? edits_.count() - count : 0;
            return;
        }
    }
    throw Refusal{std::string(stanzaName_), key, std::string(value)};
}

// Replaces a whole line by the line of its value in another text. Returns false if that line does
// not read back here.
bool Difference::copyLine(uint32_t line, std::string_view key, std::string_view value,
                          std::string_view copied)
{
    uint32_t const begin = outline_.lines()[line].begin;
    std::string_view const old = withoutLineEnding(slice(text_, begin, outline_.endOf(line)));
    std::string changed(copied);
    changed += slice(text_, begin + static_cast<uint32_t>(old.size()), outline_.endOf(line));
    if (renamedKey_ != nullptr || outline_.sharesLine(line) ||
        !hasLineEndings(copied, outline_.lineEndingOf(line)) ||
        !readsBack(contextAbove(line == 0 ? kNone : line - 1), 0, changed, line + 1, key, value))
        return false;
    edits_.replaceName({begin, begin + static_cast<uint32_t>(old.size()), std::string(copied)});
    ++provenEdits_;
    return true;
}

// Returns the part of a change that inserts comments above a line. Leaves the rest to `change`,
// without the bytes up to `begin` if they stay: the key may get another name.
Replacement Difference::splitComments(Line const& line, uint32_t begin, Replacement& change) const
{
    Replacement comments{change.begin, change.begin, change.text.substr(0, change.commentBytes),
                         change.commentBytes};
    change.text.erase(0, std::exchange(change.commentBytes, 0));
    std::string_view const prefix = slice(text_, line.begin, begin);
    if (change.begin == line.begin && change.text.starts_with(prefix)) {
        change.text.erase(0, prefix.size());
        change.begin = begin;
    }
    return comments;
}

// Returns a line after a change of its value, without comments that move above it.
std::string Difference::lineAfter(uint32_t line, Replacement const& change) const
{
    std::string changed(slice(text_, outline_.lines()[line].begin, change.begin));
    changed += std::string_view(change.text).substr(change.commentBytes);
    changed += slice(text_, change.end, outline_.endOf(line));
    return changed;
}

// Lets a change of a value also remove the spaces of its line, which is too long with them. Returns
// false if the value has several lines, or shares its line with a header.
bool Difference::dropSpaces(uint32_t line, Replacement& change) const
{
    Line const& record = outline_.lines()[line];
    size_t const newline = slice(text_, record.begin, outline_.endOf(line)).find('\n');
    size_t const separator = text_.find_first_of(dialect_.separatorBytes(), record.nameEnd);
    if (renamedKey_ != nullptr || record.begin + newline + 1 < outline_.endOf(line) ||
        outline_.sharesLine(line) || change.begin != record.valueBegin ||
        separator >= record.valueBegin)
        return false;
    change.text.erase(0, change.text.find_first_not_of(' '));
    change.text.insert(0, 1, text_[separator]);
    change.text.insert(0, outline_.spelledName(line));
    change.begin = record.begin;
    while (change.end < text_.size() && (text_[change.end] == ' ' || text_[change.end] == '\t'))
        ++change.end;
    return true;
}

// Two or more spaces before a comment after the value give way, so that the comment stays in its
// column.
void Difference::keepCommentColumn(uint32_t line, Replacement& change) const
{
    std::string_view const rest = slice(text_, change.end, outline_.endOf(line));
    size_t const spaces = rest.find_first_not_of(' ');
    if (!dialect_.hasCommentsAfterValues() || spaces == std::string_view::npos || spaces < 2 ||
        static_cast<unsigned char>(rest[spaces]) < ' ')
        return;
    auto const widthOf = [](std::string_view lines) {
        return countCharacters(lines.substr(lines.rfind('\n') + 1));
    };
    // A header can be on the line, too.
    uint32_t begin = outline_.lines()[line].begin;
    while (begin > 0 && text_[begin - 1] != '\n')
        --begin;
    std::string changed(slice(text_, begin, change.begin));
    changed += change.text;
    size_t const used = widthOf(changed);
    size_t const width = widthOf(slice(text_, begin, change.end)) + spaces;
    if (used + spaces == width)
        return;
    change.end += static_cast<uint32_t>(spaces);
    change.text.append(width > used ? width - used : 1, ' ');
}

void Difference::removeLine(uint32_t line)
{
    if (outline_.lines()[line].isKey())
        record(stanzaName_, outline_.keyName(line, keySpace_), {});
    else
        record(stanzaName_, {}, outline_.comment(line));
    gone_[line] = true;
    edits_.replace(dialect_.removeLine(text_, outline_.lines()[line], outline_.endOf(line)));
}

// Inserts a line for a further value of a key, in the style of the line `model`.
// range   `copied` is the line of the value in another text; empty: none.
void Difference::insertValue(uint32_t model, uint32_t position, Edits::Order order,
                             std::string_view value, std::string_view copied)
{
    record(stanzaName_, outline_.keyName(model, keySpace_), value);
    uint32_t const below = order == Edits::valuesOfLineAbove ? model + 1 : model;
    std::string key;
    if (renamedKey_ != nullptr)
        dialect_.appendKey(renamedKey_->text, key);
    else
        key = outline_.spelledName(model);
    // Comments can be between the lines of a name that continues.
    if (key.find('\n') != std::string::npos) {
        std::string space;
        std::string const name(dialect_.writtenKey(text_, outline_.lines()[model], space));
        key.clear();
        dialect_.appendKey(name, key);
    }
    Style const style =
        renamedKey_ != nullptr ? styleOf(outline_, model) : styleOfValue(outline_, model, key);
    std::string line;
    if (!appendLine(style, key, value, contextAbove(below == 0 ? kNone : below - 1), below, line,
                    copied))
        throw refusalBelow(below == 0 ? kNone : below - 1, outline_.keyName(model, keySpace_),
                           value);
    edits_.insertLines(position, std::move(line), style.lineEnding, order);
}

// Returns the lines on which the reading of the line after `above` depends.
std::string Difference::contextAbove(uint32_t above) const
{
    if (above == kNone)
        return {};
    std::vector<Line> const& lines = outline_.lines();
    if (!dialect_.needsContext())
        return std::string(slice(text_, lines[above].begin, outline_.endOf(above)));
    constexpr uint32_t kMaxLines = 64;
    Section const& section = outline_.sectionOf(above);
    uint32_t first = above;
    while (first > section.first && above - first < kMaxLines && !lines[first].isKey())
        --first;
    std::string context;
    if (section.header != kNone && section.header != first) {
        context = slice(text_, lines[section.header].begin, outline_.endOf(section.header));
        if (first > section.first && !context.ends_with('\n'))
            context += '\n';
    }
    std::vector<uint32_t> const& keys = outline_.keyLines();
    auto const key = std::lower_bound(keys.begin(), keys.end(), first);
    if (!lines[first].isKey() && key != keys.begin() && key[-1] >= section.first)
        context += slice(text_, lines[key[-1]].begin, outline_.endOf(key[-1]));
    context += slice(text_, lines[first].begin, outline_.endOf(above));
    return context;
}

// Returns whether a line between `context` and the line `below` reads as a key with a value, and
// leaves the line below as it is. The last `moved` bytes of the context were lines inside the old
// value. Lines without meaning can be left of it.
bool Difference::readsBack(std::string_view context, size_t moved, std::string_view line,
                           uint32_t below, std::string_view key, std::string_view value) const
{
    if (hasLongLine(line, dialect_.maxLineLength()))
        return false;
    // Only a whole text that starts with these bytes is UTF-16.
    bool const isUtf16 = context.starts_with("\xff\xfe") || context.starts_with("\xfe\xff");
    std::string sample(isUtf16 ? "\n" : "");
    sample += context;
    auto const begin = static_cast<uint32_t>(sample.size());
    sample += line;
    auto const end = static_cast<uint32_t>(sample.size());
    if (below < outline_.lines().size())
        sample += slice(text_, outline_.lines()[below].begin, outline_.endOf(below));
    std::vector<Line> lines;
    dialect_.split(sample, lines);
    auto const at = [&](size_t position) {
        return std::find_if(lines.begin(), lines.end(),
                            [position](Line const& l) { return l.begin == position; });
    };
    auto const found = at(begin);
    std::string space;
    if (found == lines.end() || found->kind != valueLine ||
        dialect_.keyName(sample, *found, space) != key ||
        dialect_.value(sample, *found, space) != value || dialect_.isAmbiguous(sample, *found))
        return false;
    auto const next = end == sample.size() ? lines.end() : at(end);
    if (end != sample.size() && next == lines.end())
        return false;
    auto const above = moved == 0 ? found : at(begin - moved);
    auto const isComment = [](Line const& l) { return l.kind == commentLine; };
    auto const isLeft = [](Line const& l) { return l.kind == blankLine || l.kind == otherLine; };
    return above != lines.end() && std::all_of(above, found, isComment) &&
           std::all_of(found + 1, next, isLeft);
}

}  // namespace zlines
