#include "commented_lines.h"

#include <Z/ZException.h>
#include <Z/dialects/counting.h>
#include <Z/dialects/line_rules.h>
#include <stdlib.h>

#include <algorithm>

#include "failures.h"
#include "key_lines.h"

namespace {

using zdialects::LineRules;
using zlines::Line;
using zlines::Outline;

Failure refuse(Request const& request, std::string const& problem, char const* remedy)
{
    return {exitRefused, request.file, {problem, remedy}};
}

void storeChange(EditedFile& file, Request const& request, std::string const& text)
{
    file.willChange(request.stanza, request.key, false);
    try {
        file.setText(text);
    } catch (ZPropertiesInvalidDataException_6_0 const&) {
        throw refuse(request, "the changed file would not be valid", "change it with an editor");
    }
}

// Returns the bytes of a line before its end.
std::string_view bytesOf(Outline const& outline, uint32_t index)
{
    std::string_view line =
        zlines::slice(outline.text(), outline.lines()[index].begin, outline.endOf(index));
    while (line.ends_with('\n') || line.ends_with('\r'))
        line.remove_suffix(1);
    return line;
}

size_t indentOf(std::string_view line)
{
    return std::min(line.find_first_not_of(" \t"), line.size());
}

// Returns whether these bytes are one line of a file, perhaps with continuations.
bool readsAsOneLine(zlines::Dialect const& dialect, std::string_view bytes)
{
    return zdialects::LoneText(dialect, bytes).isOneLine();
}

// Decides whether a line that alone continues no value can be followed by a line that does.
class PassedLines {
public:
    explicit PassedLines(zlines::Dialect const& dialect)
        : rules_(dialect), hasOthers_(readsAsOneLine(dialect, "k=v\nx\n  y"))
    {
    }

    /// range   `distance` is the number of lines since the last one of the value.
    bool mayContain(std::string_view line, uint32_t distance) const
    {
        zlines::LineKind const kind = rules_.readAlone(line).kind;
        return kind == zlines::commentLine ||
               (hasOthers_ && kind == zlines::otherLine && distance < kMaxOthers);
    }

    bool hasOthers() const { return hasOthers_; }

private:
    static constexpr uint32_t kMaxOthers = 100;

    LineRules const rules_;
    bool const hasOthers_;  // a value can have lines without a meaning between its lines
};

// ---- Comments with a line of the key -----------------------------------------------------------

// A comment that has a line of the key.
struct Candidate {
    uint32_t index;
    size_t number;     // of the line, from 1
    std::string text;  // after the marks, and after a single space; a value of several lines has
                       // several, without their marks
    size_t marks;      // before a single space, as turnOff() writes them; 0 in another form
    uint32_t last;     // the comment with the last line
    uint32_t end;      // the position after the last line, without its line ending
};

// A commented value has at most this number of lines after its first, if each has a mark.
constexpr uint32_t kMaxContinuations = 1000;

// A line of a comment.
struct CommentedLine {
    std::string_view indent;
    std::string_view text;  // after the marks, and after a single space
    size_t marks;           // before a single space; 0 in another form
};

class Candidates {
public:
    Candidates(Outline& outline, Request const& request)
        : outline_(outline),
          rules_(outline.dialect()),
          passedLines_(outline.dialect()),
          joinsComments_(rules_.joinsComments()),
          key_(rules_.keyIdentity(request.key))
    {
        uint32_t const stanza = outline.find(rules_.stanzaIdentity(request.stanza), 0);
        for (uint32_t at = stanza == zlines::kNone ? zlines::kNone
                                                   : outline.stanzas()[stanza].firstSection;
             at != zlines::kNone; at = outline.sections()[at].next)
            search(outline.sections()[at]);
        number();
    }

    // Each is a comment, or several adjacent comments that one turnOff() has made.
    std::vector<std::vector<Candidate>> groups() const
    {
        std::vector<std::vector<Candidate>> groups;
        for (Candidate const& candidate : found_) {
            bool const isNext = !groups.empty() && candidate.marks > 0 &&
                                groups.back().back().marks == candidate.marks &&
                                groups.back().back().last + 1 == candidate.index;
            if (!isNext)
                groups.emplace_back();
            groups.back().push_back(candidate);
        }
        return groups;
    }

    // Returns the highest number of marks, of a comment with a header too.
    size_t maxMarksOfAll() const { return std::max(maxMarks(), maxHeaderMarks_); }

    // Returns the highest number of marks.
    size_t maxMarks() const
    {
        size_t most = 0;
        for (Candidate const& candidate : found_)
            most = std::max(most, candidate.marks);
        return most;
    }

    // Returns the comments that the last turnOff() has made, which distinguished them by several
    // marks; empty if it had no need to.
    std::vector<Candidate> distinguished() const
    {
        size_t const most = maxMarks();
        std::vector<Candidate> last;
        for (Candidate const& candidate : found_)
            if (candidate.marks > 1 && candidate.marks == most)
                last.push_back(candidate);
        return last;
    }

    bool isEmpty() const { return found_.empty(); }

private:
    // The lines below the comment of a header belong to another stanza, up to a line of a key, or
    // to a comment with a line of a key that has more marks: turnOff() has made that comment.
    void search(zlines::Section const& section)
    {
        bool isOtherStanza = false;
        size_t headerMarks = 0;
        for (uint32_t i = section.first; i < section.end; ++i) {
            if (outline_.lines()[i].isKey())
                isOtherStanza = false;
            if (!isComment(i))
                continue;
            Candidate candidate = readFrom(i, section.end);
            LineRules::LoneLine const lone = rules_.readAlone(candidate.text);
            if (lone.kind == zlines::headerLine) {
                isOtherStanza = true;
                headerMarks = countMarks(i);
                maxHeaderMarks_ = std::max(maxHeaderMarks_, headerMarks);
            }
            bool const hasValue = lone.kind == zlines::valueLine;
            bool const isKey = hasValue || lone.kind == zlines::keyOnlyLine;
            bool const isOfKey = isKey && rules_.keyIdentity(lone.name) == key_;
            bool const isDistinguished = candidate.marks > std::max<size_t>(headerMarks, 1);
            if (isDistinguished && (hasValue || isOfKey))
                isOtherStanza = false;
            if (isOtherStanza || !isOfKey)
                continue;
            i = candidate.last;
            found_.push_back(std::move(candidate));
        }
    }

    // Returns whether a line is a comment, perhaps of several lines of the file.
    bool isComment(uint32_t index) const
    {
        auto const kind = static_cast<zlines::LineKind>(outline_.lines()[index].kind);
        return kind == zlines::commentLine || (kind == zlines::otherLine && joinsComments_ &&
                                               rules_.startsComment(bytesOf(outline_, index)));
    }

    // Returns the number of marks of our own at the start of a comment.
    size_t countMarks(uint32_t index) const
    {
        std::string_view const mark = outline_.dialect().ownComment();
        std::string_view bytes = bytesOf(outline_, index);
        bytes.remove_prefix(indentOf(bytes));
        size_t count = 0;
        for (; bytes.starts_with(mark); ++count)
            bytes.remove_prefix(mark.size());
        return count;
    }

    // Returns the contents of a comment, with the adjacent comments that continue its line.
    Candidate readFrom(uint32_t index, uint32_t end) const
    {
        Line line = outline_.lines()[index];
        if (line.kind != zlines::commentLine)
            line.nameEnd = line.nameBegin() + 1;
        Candidate read{index, 0, {}, 0, index, line.nameBegin()};
        Candidate candidate = read;
        for (uint32_t i = index; i < end && isComment(i); ++i) {
            std::string_view bytes = bytesOf(outline_, i);
            uint32_t at = outline_.lines()[i].begin;
            // A comment has several lines where comments can be continued.
            while (!bytes.empty()) {
                std::string_view const part = bytes.substr(0, bytes.find('\n'));
                bool const isFirst = read.text.empty() && i == index;
                bool const isJoined = at != outline_.lines()[i].begin;
                bool const isContinued = part.size() < bytes.size();
                CommentedLine next = readLine(part, isFirst ? &line : nullptr);
                // The mark of the first line makes a joined line a comment, too.
                if (isJoined && (next.marks == 0 || next.marks != read.marks))
                    next = {part.substr(0, indentOf(part)), part.substr(indentOf(part)),
                            read.marks};
                if (!isFirst) {
                    read.text += zlines::slice(outline_.text(), read.end, at);
                    read.text += next.indent;
                }
                read.text += next.text;
                read.marks = isFirst || read.marks == next.marks ? next.marks : 0;
                read.last = i;
                read.end = at + static_cast<uint32_t>(part.size());
                // Only at its end has a comment with multiple lines been read completely.
                bool const isWhole = isFirst || ((isJoined ? !isContinued : read.marks > 0) &&
                                                 readsAsOneLine(outline_.dialect(), read.text));
                if (isWhole)
                    candidate = read;
                bool const isLast =
                    isFirst       ? !mayContinue(read.text)
                    : isContinued ? false
                                  : i - index >= kMaxContinuations ||
                                        (!isWhole &&
                                         ((read.marks == 0 && !isJoined) ||
                                          !passedLines_.mayContain(next.text, i - candidate.last)));
                if (isLast)
                    return candidate;
                size_t const length = std::min(part.size() + 1, bytes.size());
                at += static_cast<uint32_t>(length);
                bytes.remove_prefix(length);
            }
        }
        return candidate;
    }

    // range   `line` is null for a line that has a mark only if it is a comment of our own.
    CommentedLine readLine(std::string_view bytes, Line const* line) const
    {
        std::string_view const ownMark = outline_.dialect().ownComment();
        size_t const mark = line != nullptr ? line->indent : indentOf(bytes);
        bool const isMarked = bytes.substr(mark).starts_with(ownMark);
        size_t const end = line != nullptr
                               ? std::min<size_t>(line->nameEnd - line->begin, bytes.size())
                           : isMarked ? mark + ownMark.size()
                                      : mark;
        std::string_view text = bytes.substr(end);
        std::string_view afterMarks = text;
        size_t marks = bytes.substr(mark, end - mark) == ownMark ? 1 : 0;
        for (; marks > 0 && afterMarks.starts_with(ownMark); ++marks)
            afterMarks.remove_prefix(ownMark.size());
        bool const hasOneSpace =
            afterMarks.size() > 1 && afterMarks[0] == ' ' && indentOf(afterMarks) == 1;
        if (hasOneSpace)
            text = afterMarks.substr(1);
        return {bytes.substr(0, mark), text, hasOneSpace ? marks : 0};
    }

    // Returns whether comments below may continue the first line of a comment. A value with an open
    // quote is not yet a key, where quotes have several lines.
    bool mayContinue(std::string const& text) const
    {
        LineRules::LoneLine const lone = rules_.readAlone(text);
        bool const isKey = lone.kind == zlines::valueLine || lone.kind == zlines::keyOnlyLine;
        return isKey ? rules_.keyIdentity(lone.name) == key_
                     : lone.kind == zlines::otherLine && !passedLines_.hasOthers();
    }

    void number()
    {
        size_t lines = 1;
        uint32_t counted = 0;
        for (Candidate& candidate : found_) {
            uint32_t const begin = outline_.lines()[candidate.index].begin;
            std::string_view const passed = zlines::slice(outline_.text(), counted, begin);
            lines += static_cast<size_t>(std::count(passed.begin(), passed.end(), '\n'));
            counted = begin;
            candidate.number = lines;
        }
    }

    Outline& outline_;
    LineRules const rules_;
    PassedLines const passedLines_;
    bool const joinsComments_;
    std::string const key_;
    std::vector<Candidate> found_;  // in file order
    size_t maxHeaderMarks_ = 0;
};

// Returns "3 and 7", the numbers of the first lines.
std::string listLines(std::vector<std::vector<Candidate>> const& groups)
{
    std::string list;
    for (size_t i = 0; i < groups.size(); ++i)
        list += (i == 0                  ? ""
                 : i + 1 < groups.size() ? ", "
                                         : " and ") +
                std::to_string(groups[i].front().number);
    return list;
}

// Returns the comments that a request turns on.
std::vector<Candidate> chooseCandidates(Candidates const& candidates, Request const& request)
{
    std::vector<std::vector<Candidate>> const groups = candidates.groups();
    std::string const name = nameKey(request.key, request.stanza);
    if (groups.empty())
        throw Failure{exitNotFound,
                      request.file,
                      {"no comment has a line of " + name, "set the key with 'zstz set'"}};
    if (request.all) {
        std::vector<Candidate> all;
        for (std::vector<Candidate> const& group : groups)
            all.insert(all.end(), group.begin(), group.end());
        return all;
    }
    if (!request.nth.empty()) {
        unsigned long const number = strtoul(request.nth.c_str(), nullptr, 10);
        if (number > groups.size())
            throw Failure{
                exitNotFound,
                request.file,
                {formatCount(groups.size(), "comment has", "comments have") + " a line of " + name,
                 "choose one with --nth"}};
        return groups[number - 1];
    }
    if (std::vector<Candidate> last = candidates.distinguished(); !last.empty())
        return last;
    if (groups.size() > 1)
        throw refuse(request,
                     std::to_string(groups.size()) + " comments have a line of " + name +
                         ", in lines " + listLines(groups),
                     "choose one with --nth, or pass --all");
    return groups.front();
}

// Returns the text with the comments turned on. The indentation of a line is before its mark, or
// after the mark if there is more than one space.
std::string uncomment(Outline const& outline, std::vector<Candidate> const& chosen,
                      bool keepsIndent)
{
    std::string after;
    uint32_t done = 0;
    for (Candidate const& candidate : chosen) {
        uint32_t const begin = outline.lines()[candidate.index].nameBegin();
        after += zlines::slice(outline.text(), done, begin);
        after += keepsIndent ? candidate.text : candidate.text.substr(indentOf(candidate.text));
        done = candidate.end;
    }
    return after += outline.text().substr(done);
}

// Returns the lines of `all` that were comments in `chosen`. Both arguments are in file order.
std::vector<KeyLine> linesAt(std::vector<KeyLine> const& all, std::vector<Candidate> const& chosen)
{
    std::vector<KeyLine> found;
    auto next = chosen.begin();
    for (KeyLine const& line : all) {
        while (next != chosen.end() && next->number < line.number)
            ++next;
        if (next != chosen.end() && next->number == line.number)
            found.push_back(line);
    }
    return found;
}

}  // namespace

namespace {

// Appends the bytes of a key, with a mark in each of its lines, or only in the first line if that
// makes the other lines comments.
void appendCommented(std::string_view bytes, std::string const& mark, bool joinsComments,
                     std::string& out)
{
    if (joinsComments) {
        size_t const indent = indentOf(bytes);
        ((out += bytes.substr(0, indent)) += mark) += bytes.substr(indent);
        return;
    }
    for (size_t at = 0; at < bytes.size();) {
        std::string_view const line = bytes.substr(at, bytes.find('\n', at) - at);
        size_t const length = std::min(line.size() + 1, bytes.size() - at);
        size_t const indent = indentOf(line);
        ((out += line.substr(0, indent)) += mark) += bytes.substr(at + indent, length - indent);
        at += length;
    }
}

// Returns the text with the lines of a key as comments.
std::string commentLines(Outline const& outline, std::vector<KeyLine> const& lines,
                         size_t markCount)
{
    std::string mark;
    for (size_t i = 0; i < markCount; ++i)
        mark += outline.dialect().ownComment();
    mark += ' ';
    bool const isJoined = LineRules(outline.dialect()).joinsComments();
    std::string after;
    uint32_t done = 0;
    for (KeyLine const& line : lines) {
        std::string_view const bytes = bytesOf(outline, line.index);
        after += zlines::slice(outline.text(), done, line.line.begin);
        appendCommented(bytes, mark, isJoined, after);
        done = line.line.begin + static_cast<uint32_t>(bytes.size());
    }
    return after += outline.text().substr(done);
}

// Returns whether a value has an empty line, or a line with spaces only, which would leave a
// comment without text.
bool hasEmptyLine(std::string_view bytes)
{
    for (size_t at = 0; at < bytes.size();) {
        std::string_view const line = bytes.substr(at, bytes.find('\n', at) - at);
        if (line.find_first_not_of(" \t\r") == line.npos)
            return true;
        at += line.size() + 1;
    }
    return false;
}

// Returns the text of a file in which a request turns comments on.
// throws  Failure.
std::string textTurnedOn(Store const& store, Outline& outline, Request const& request)
{
    std::string const name = nameKey(request.key, request.stanza);
    std::vector<Candidate> const chosen = chooseCandidates(Candidates(outline, request), request);
    bool const countsOnce = zdialects::countsOnce(store.switches(), request.key);
    size_t const count = findKeyLines(outline, request.stanza, request.key).size();
    if (count > 0 && countsOnce)
        throw refuse(request, name + " exists, and of several lines only one is valid",
                     "use 'zstz set', or 'zstz comment --off' first");
    for (bool const keepsIndent : {true, false}) {
        std::string const after = uncomment(outline, chosen, keepsIndent);
        Outline changed(after, outline.dialect());
        std::vector<KeyLine> const all = findKeyLines(changed, request.stanza, request.key);
        std::vector<KeyLine> const added = linesAt(all, chosen);
        if (added.size() == chosen.size() && all.size() == count + added.size() &&
            differOnlyIn(outline, nullptr, changed, &added))
            return after;
    }
    throw refuse(request, "the comment with a line of " + name + " is not valid as a line",
                 "set the key with 'zstz set'");
}

// Returns whether turnOn() makes `text` of the text with the comments.
bool isRestored(Store const& store, Outline& commented, std::string const& text,
                Request const& request)
{
    try {
        return textTurnedOn(store, commented, request) == text;
    } catch (Failure const&) {
        return false;
    }
}

}  // namespace

void turnOff(EditedFile& file, Request const& request)
{
    requireKey(file.store(), request);
    std::string const text = file.text();
    Outline outline(text, keptText(file.store())->dialect);
    std::vector<KeyLine> const lines = findKeyLines(outline, request.stanza, request.key);
    std::string const name = nameKey(request.key, request.stanza);
    if (lines.empty())
        throw refuse(request, name + " has obfuscated values, which cannot be in a comment",
                     "remove the key with 'zstz unset'");
    bool const isLimited = !LineRules(outline.dialect()).joinsComments();
    for (KeyLine const& line : lines) {
        std::string_view const bytes = bytesOf(outline, line.index);
        if (isLimited && std::count(bytes.begin(), bytes.end(), '\n') > kMaxContinuations)
            throw refuse(request,
                         name + " has more than " + std::to_string(kMaxContinuations + 1) +
                             " lines in a value",
                         "turn its lines into comments with an editor");
        if (hasEmptyLine(bytes))
            throw refuse(request, name + " has an empty line in its value",
                         "turn its lines into comments with an editor");
        if (outline.sharesLine(line.index))
            throw refuse(request, name + " is in the line of its header",
                         "move it to a line of its own with an editor");
    }
    // Several marks distinguish the comments if turnOn() could not know them by one: another
    // comment has a line of the key, they are not adjacent, or a comment with a header is above
    // them.
    Candidates const others(outline, request);
    bool const isTogether = lines.back().index - lines.front().index + 1 == lines.size();
    size_t const several = std::max<size_t>(others.maxMarksOfAll() + 1, 2);
    bool isSame = true;
    for (size_t const marks : {size_t{1}, several}) {
        if (marks == 1 && !(others.isEmpty() && isTogether))
            continue;
        std::string const after = commentLines(outline, lines, marks);
        Outline changed(after, outline.dialect());
        isSame = findKeyLines(changed, request.stanza, request.key).empty() &&
                 differOnlyIn(outline, &lines, changed, nullptr);
        if (isSame && isRestored(file.store(), changed, text, request))
            return storeChange(file, request, after);
    }
    if (isSame)
        throw refuse(request, name + " could not be turned on again as it is",
                     "turn it into a comment with an editor");
    throw refuse(request, name + " cannot be in a comment without a change of other lines",
                 "turn it into a comment with an editor");
}

void turnOn(EditedFile& file, Request const& request)
{
    std::string const text = file.text();
    Outline outline(text, keptText(file.store())->dialect);
    storeChange(file, request, textTurnedOn(file.store(), outline, request));
}

namespace {

// Returns whether these bytes are a line of the key, perhaps with continuations.
bool isLineOf(zlines::Dialect const& dialect, std::string const& text, Request const& request)
{
    zdialects::LoneText const lone(dialect, text);
    LineRules const rules(dialect);
    return lone.isOneLine() && lone.lines.back().isKey() &&
           rules.keyIdentity(rules.keyName(lone.text, lone.lines.back())) ==
               rules.keyIdentity(request.key);
}

// Returns a comment line without its mark, and without the spaces that the first line of the
// comment has after its mark.
std::string withoutMark(Outline const& outline, uint32_t index, std::string_view spaces)
{
    Line const& line = outline.lines()[index];
    std::string_view const bytes = bytesOf(outline, index);
    std::string_view text = bytes.substr(std::min<size_t>(line.nameEnd - line.begin, bytes.size()));
    if (text.starts_with(spaces))
        text.remove_prefix(spaces.size());
    return std::string(bytes.substr(0, line.indent)) + std::string(text);
}

// Returns the last of the comment lines from `next` on that continue the comment `first`, which has
// a line of the key. Returns `first` if there are no such lines.
uint32_t lastOfComment(Outline const& outline, uint32_t first, uint32_t next,
                       Request const& request)
{
    Line const& line = outline.lines()[first];
    std::string_view const spaces = zlines::slice(outline.text(), line.nameEnd, line.valueBegin);
    LineRules const rules(outline.dialect());
    std::string text = withoutMark(outline, first, spaces);
    PassedLines const passedLines(outline.dialect());
    bool const hasOpenQuote = rules.readAlone(text).kind == zlines::otherLine;
    uint32_t last = first;
    for (uint32_t i = next; i < outline.lines().size() && i - next < kMaxContinuations &&
                            outline.lines()[i].kind == zlines::commentLine;
         ++i) {
        std::string const added = withoutMark(outline, i, spaces);
        text += '\n' + added;
        if (isLineOf(outline.dialect(), text, request))
            last = i;
        else if (!hasOpenQuote && !passedLines.mayContain(added, i - last))
            break;
    }
    return last;
}

// Returns the text with the line of a key below the comments that turnOff() has distinguished by
// several marks; empty without such comments, or if the line would not read back there.
// range   `line` is the line in another text of the file, which has the key.
std::string textWithLine(Outline& outline, Outline const& other, KeyLine const& line,
                         Request const& request)
{
    Candidates const candidates(outline, request);
    std::vector<Candidate> const distinguished = candidates.distinguished();
    if (distinguished.empty())
        return {};
    Candidate below = distinguished.front();
    for (Candidate const& candidate : distinguished)
        if (candidate.index == below.last + 1)
            below = candidate;
    std::string_view const bytes = bytesOf(other, line.index);
    std::string_view const comment = bytesOf(outline, below.index);
    std::string_view const ending = outline.lineEndingOf(below.last);
    uint32_t const end = outline.endOf(below.last);
    bool const isOpen = !outline.text().substr(0, end).ends_with('\n');
    for (size_t const indent : {indentOf(comment), size_t{0}}) {
        std::string added(comment.substr(0, indent));
        added += indent == 0 ? bytes : bytes.substr(indentOf(bytes));
        std::string after(outline.text());
        after.insert(end, isOpen ? std::string(ending) + added : added + std::string(ending));
        Outline changed(after, outline.dialect());
        std::vector<KeyLine> const found = findKeyLines(changed, request.stanza, request.key);
        if (found.size() == 1 && found.front().value == line.value &&
            differOnlyIn(outline, nullptr, changed, &found))
            return after;
    }
    return {};
}

// Moves the new line of a key below the comment lines that continue a comment with a line of the
// key, which is right above. Does nothing if there are no such comment lines.
void moveBelowComment(EditedFile& file, Request const& request)
{
    Store& store = file.store();
    ZLCString_6_0 comment;
    // A script can add many keys, so the text is composed only for those below a comment.
    if (store.isStanzaFile() ||
        store.getComment(request.stanza.c_str(), request.key.c_str(), comment) == 0)
        return;
    std::string const text = file.text();
    Outline outline(text, keptText(store)->dialect);
    std::vector<KeyLine> const lines = findKeyLines(outline, request.stanza, request.key);
    if (lines.size() != 1 || lines.front().index == 0 || outline.sharesLine(lines.front().index))
        return;
    uint32_t const key = lines.front().index;
    if (outline.lines()[key - 1].kind != zlines::commentLine)
        return;
    uint32_t const last = lastOfComment(outline, key - 1, key + 1, request);
    if (last < key)
        return;
    std::string moved(zlines::slice(text, outline.lines()[key].begin, outline.endOf(key)));
    std::string below(zlines::slice(text, outline.endOf(key), outline.endOf(last)));
    if (!below.ends_with('\n')) {
        std::string const ending(outline.lineEndingOf(key));
        below += ending;
        moved.resize(moved.size() - ending.size());
    }
    std::string after = text;
    after.replace(outline.lines()[key].begin, moved.size() + below.size(), below + moved);
    Outline changed(after, outline.dialect());
    if (differOnlyIn(outline, nullptr, changed, nullptr))
        file.setText(after);
}

}  // namespace

NewLine::NewLine(EditedFile& file, Request const& request) : file_(file), request_(request)
{
    // A script can add many keys, so the text is composed only if it can have such comments.
    if (file.mayHaveSeveralMarks(request.key) && !request.obfuscated)
        before_ = file.text();
}

void NewLine::place()
{
    if (!before_.empty()) {
        zlines::Dialect const& dialect = keptText(file_.store())->dialect;
        std::string const text = file_.text();
        Outline outline(text, dialect);
        Outline before(before_, dialect);
        std::vector<KeyLine> const lines = findKeyLines(outline, request_.stanza, request_.key);
        std::string const after = lines.size() != 1 || outline.sharesLine(lines.front().index)
                                      ? ""
                                      : textWithLine(before, outline, lines.front(), request_);
        if (!after.empty())
            return file_.setText(after);
    }
    moveBelowComment(file_, request_);
}
