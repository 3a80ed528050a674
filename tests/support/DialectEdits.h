// DialectEdits: checks the edits of any writer of configuration files: given the text before, the
// edits and the text after, it finds the properties that do not hold.
//
//     whole    without an edit, the text is unchanged
//     same     setting the value that a key has changes nothing
//     back     the new text reads as the old values with the edits
//     local    lines without an edited value are verbatim, in their order, and no other line exists
//     within   a changed line keeps its indentation, key, separator, comment and line ending
//     new      a new line is like the line above it
//     end      the last line has a newline if it had one before
//     removed  a removed value takes all its lines, but no comment, blank line or header
//     inside   unchanged lines of a changed value are verbatim, and its comments are kept
//     owner    a comment right above a key or header stays right above it, unless the key is
//              removed, and no other comment gets there
//
// once() checks a writer: edits of different keys commute, and one step for both gives the same.
//
// A writer compares lists of values and does not know which of two equal values was meant. So the
// check tries each longest common subsequence of the old and the new values of a key, and takes
// the subsequence with the fewest violations. If there are more than kMaxPlans, an edit that
// violates the first of them may be right.
#pragma once

#include <Z/lines/columns.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "DialectModel.h"

namespace dialect_model {

// A change of one value. Indices refer to the values before all edits.
struct Edit {
    enum Kind { set, add, remove };
    Kind kind = set;
    std::string stanza;
    std::string key;
    std::string value = {};  // decoded; ignored by `remove`
    std::size_t index = 0;   // of the value that is set or removed; `add` appends
};

// Values that need care in some dialect.
inline std::vector<std::string> const kEditValues = {
    "",       "3",           "two words", " both ends ", "tab\there", "a # b",
    "a;b",    "#",           "; x",       "\"quoted\"",  "it's",      "\"",
    "'",      "back\\slash", "end\\",     "a\nb",        "a\n\nb",    "k = v",
    "[head]", "ä ö",         "$HOME",     "`x`",         "\\n",       "a  #  b"};

// Whether a line between the lines of a value does not belong to it.
inline bool isAside(Line const& line)
{
    return line.kind == LineKind::commentInside || line.kind == LineKind::passedOver;
}

// The number of characters from `begin` to `end`.
inline std::size_t widthOf(std::string const& text, std::size_t begin, std::size_t end)
{
    return zlines::countCharacters(std::string_view(text).substr(begin, end - begin));
}

// The lines of a string without their newlines.
inline std::vector<std::string> splitLines(std::string const& text)
{
    std::vector<std::string> lines(1);
    for (char const c : text) {
        if (c == '\n')
            lines.emplace_back();
        else
            lines.back() += c;
    }
    return lines;
}

class EditCheck {
public:
    EditCheck(Switches const& rules, std::string before, std::vector<Edit> const& edits,
              std::string after)
        : rules_(rules),
          before_(std::move(before)),
          after_(std::move(after)),
          old_(before_, rules),
          new_(after_, rules)
    {
        expect(edits);
        bool const unchanged = expected_ == valuesOf(old_);
        if (unchanged && after_ != before_)
            broken.emplace_back(edits.empty() ? "whole: the text changed"
                                              : "same: the text changed");
        checkEnd();
        if (!checkBack() || unchanged)
            return;
        std::optional<std::vector<std::string>> best;
        std::vector<Plan> const all = plans();
        for (Plan const& plan : all) {
            found_.clear();
            check(plan);
            if (!best || found_.size() < best->size())
                best = found_;
            if (best->empty())
                break;
        }
        if (hasMorePlans_)
            return;
        broken.insert(broken.end(), best->begin(), best->end());
    }

    // The violations, each with the name of its property and a colon first.
    std::vector<std::string> broken;

    bool holds(std::string_view property) const
    {
        for (std::string const& text : broken)
            if (text.compare(0, property.size() + 1, std::string(property) + ":") == 0)
                return false;
        return true;
    }

    // Returns the text after the edits, or nothing if the writer refuses them.
    using Writer =
        std::function<std::optional<std::string>(std::string const&, std::vector<Edit> const&)>;

    // Whether two edits give the same text in both orders and in one step. They must be of
    // different keys, and must not both append to one stanza.
    static bool once(Writer const& write, std::string const& text, Edit const& a, Edit const& b)
    {
        std::optional<std::string> const afterA = write(text, {a});
        std::optional<std::string> const afterB = write(text, {b});
        if (!afterA || !afterB)
            return true;
        std::optional<std::string> const both = write(text, {a, b});
        return both && write(*afterA, {b}) == both && write(*afterB, {a}) == both;
    }

private:
    static constexpr std::size_t kNone = static_cast<std::size_t>(-1);
    static constexpr std::size_t kMaxPlans = 1024;

    // A value, or nothing for a key alone.
    using Text = std::optional<std::string>;
    using Name = std::pair<std::string, std::string>;  // stanza and identity of the key
    using Values = std::map<Name, std::vector<Text>>;
    using Lines = std::vector<std::string>;

    // For each value of a key afterwards, the index of the value whose line it has, or kNone.
    using Origins = std::vector<std::size_t>;
    using Plan = std::map<Name, Origins>;

    static Text textOf(Value const& value) { return value.alone ? Text() : Text(value.text); }

    static Values valuesOf(DialectModel const& model)
    {
        Values found;
        for (Stanza const& stanza : model.stanzas)
            for (Key const& key : stanza.keys)
                for (Value const& value : key.values)
                    found[{stanza.name, key.identity}].push_back(textOf(value));
        return found;
    }

    static std::vector<Value> const& entriesOf(DialectModel const& model, Name const& name)
    {
        static std::vector<Value> const none;
        for (Stanza const& stanza : model.stanzas)
            for (Key const& key : stanza.keys)
                if (stanza.name == name.first && key.identity == name.second)
                    return key.values;
        return none;
    }

    static std::ptrdiff_t countQuotedInPart(DialectModel const& model, Name const& name)
    {
        std::vector<Value> const& values = entriesOf(model, name);
        return std::count_if(values.begin(), values.end(),
                             [](Value const& value) { return value.quotedInPart; });
    }

    void expect(std::vector<Edit> const& edits)
    {
        expected_ = valuesOf(old_);
        std::map<Name, std::set<std::size_t>> removed;
        for (Edit const& edit : edits) {
            Name const name(edit.stanza, old_.identityOfKey(edit.key));
            edited_.insert(name);
            if (edit.kind == Edit::set)
                expected_[name].at(edit.index) = edit.value;
            else if (edit.kind == Edit::remove)
                removed[name].insert(edit.index);
        }
        for (auto const& [name, indices] : removed)
            for (auto index = indices.rbegin(); index != indices.rend(); ++index)
                expected_[name].erase(expected_[name].begin() +
                                      static_cast<std::ptrdiff_t>(*index));
        for (Edit const& edit : edits)
            if (edit.kind == Edit::add)
                expected_[{edit.stanza, old_.identityOfKey(edit.key)}].push_back(edit.value);
        for (auto it = expected_.begin(); it != expected_.end();)
            it = it->second.empty() ? expected_.erase(it) : std::next(it);
    }

    // If the last line has no newline and goes, the line above it loses its own, except a blank
    // line, which would disappear.
    void checkEnd()
    {
        if (!new_.lines.empty() && new_.lines.back().kind == LineKind::blank)
            return;
        if (!before_.empty() && !after_.empty() &&
            (before_.back() == '\n') != (after_.back() == '\n'))
            broken.emplace_back("end: the last line gained or lost its newline");
    }

    bool checkBack()
    {
        if (new_.refused()) {
            broken.push_back("back: line " + std::to_string(new_.errors.front().line) +
                             " is refused: " + new_.errors.front().text);
            return false;
        }
        Values const found = valuesOf(new_);
        for (Name const& name : edited_)
            if (countQuotedInPart(new_, name) > countQuotedInPart(old_, name))
                broken.push_back("back: " + name.first + "/" + name.second +
                                 " is quoted in part, which readers understand in different ways");
        if (found == expected_)
            return true;
        for (auto const& [name, values] : expected_)
            if (found.count(name) == 0 || found.at(name) != values)
                broken.push_back("back: " + name.first + "/" + name.second + " reads differently");
        for (auto const& [name, values] : found)
            if (expected_.count(name) == 0)
                broken.push_back("back: " + name.first + "/" + name.second + " should not exist");
        return false;
    }

    // All longest common subsequences of two lists, as pairs of indices.
    using Pairs = std::vector<std::pair<std::size_t, std::size_t>>;
    template <class List>
    static std::vector<Pairs> alignments(List const& a, List const& b)
    {
        std::vector<std::vector<std::size_t>> longest(a.size() + 1,
                                                      std::vector<std::size_t>(b.size() + 1));
        for (std::size_t i = a.size(); i-- > 0;)
            for (std::size_t j = b.size(); j-- > 0;)
                longest[i][j] = a[i] == b[j] ? longest[i + 1][j + 1] + 1
                                             : std::max(longest[i + 1][j], longest[i][j + 1]);
        std::vector<Pairs> found;
        Pairs pairs;
        std::function<void(std::size_t, std::size_t)> const extend = [&](std::size_t i,
                                                                         std::size_t j) {
            if (found.size() > kMaxPlans)
                return;
            if (longest[i][j] == 0)
                return found.push_back(pairs);
            for (std::size_t k = i; k < a.size(); ++k) {
                for (std::size_t l = j; l < b.size(); ++l) {
                    if (a[k] == b[l] && longest[k + 1][l + 1] + 1 == longest[i][j]) {
                        pairs.emplace_back(k, l);
                        extend(k + 1, l + 1);
                        pairs.pop_back();
                    }
                }
            }
        };
        extend(0, 0);
        return found;
    }

    // Between two aligned values, new values take over the lines of old ones, in order.
    static Origins originsOf(Pairs pairs, std::size_t oldCount, std::size_t newCount)
    {
        Origins origins(newCount, kNone);
        pairs.emplace_back(oldCount, newCount);
        std::size_t i = 0;
        std::size_t j = 0;
        for (auto const& [a, b] : pairs) {
            for (; i < a && j < b; ++i, ++j)
                origins[j] = i;
            if (b < newCount)
                origins[b] = a;
            i = a + 1;
            j = b + 1;
        }
        return origins;
    }

    std::vector<Plan> plans()
    {
        std::vector<Plan> all = {{}};
        Values const old = valuesOf(old_);
        for (Name const& name : edited_) {
            std::vector<Text> const from = old.count(name) ? old.at(name) : std::vector<Text>();
            std::vector<Text> const to =
                expected_.count(name) ? expected_.at(name) : std::vector<Text>();
            std::vector<Plan> next;
            for (Plan const& plan : all) {
                for (Pairs const& pairs : alignments(from, to)) {
                    hasMorePlans_ = hasMorePlans_ || next.size() == kMaxPlans;
                    if (next.size() == kMaxPlans)
                        break;
                    next.push_back(plan);
                    next.back()[name] = originsOf(pairs, from.size(), to.size());
                }
            }
            all = next;
        }
        return all;
    }

    // A line with its line ending.
    static std::string lineOf(DialectModel const& model, std::string const& text, std::size_t line)
    {
        std::size_t const begin = line == 0 ? 0 : model.lines[line].begin;
        return text.substr(begin, model.lines[line].next - begin);
    }

    // Compares lines; the last line can lose or gain a line ending.
    static bool isSameLine(std::string const& a, std::string const& b)
    {
        bool const bothEnd = !a.empty() && !b.empty() && a.back() == '\n' && b.back() == '\n';
        return bothEnd ? a == b : withoutEnding(a) == withoutEnding(b);
    }

    static std::string withoutEnding(std::string line)
    {
        if (!line.empty() && line.back() == '\n')
            line.pop_back();
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        return line;
    }

    void check(Plan const& plan)
    {
        changed_.clear();
        written_.clear();
        bool removes = false;
        for (auto const& [name, origins] : plan) {
            std::vector<Value> const& old = entriesOf(old_, name);
            std::vector<Value> const& now = entriesOf(new_, name);
            std::set<std::size_t> const kept(origins.begin(), origins.end());
            for (std::size_t i = 0; i < old.size(); ++i) {
                if (kept.count(i) == 0) {
                    mark(changed_, old[i]);
                    removes = true;
                    checkHeaderStays(old[i]);
                }
            }
            for (std::size_t j = 0; j < now.size(); ++j) {
                if (origins[j] != kNone && textOf(old[origins[j]]) == textOf(now[j]))
                    continue;
                mark(written_, now[j]);
                if (origins[j] != kNone)
                    mark(changed_, old[origins[j]]);
            }
        }
        checkLocal(removes ? "removed: " : "local: ");
        for (auto const& [name, origins] : plan)
            checkValues(name, origins);
        checkOwners(plan);
    }

    // Returns the line of the key or header right below a comment, or kNone.
    static std::size_t ownerOf(DialectModel const& model, std::size_t line)
    {
        while (line < model.lines.size() && model.lines[line].kind == LineKind::comment)
            ++line;
        bool const isOwner =
            line < model.lines.size() &&
            (model.lines[line].kind == LineKind::key || model.lines[line].kind == LineKind::header);
        return isOwner ? line : kNone;
    }

    // Whether a comment has the name of the key of a new line: it may be the template of that key.
    bool hasName(std::string const& comment, std::size_t line) const
    {
        Line const& key = new_.lines[line];
        return comment.find(after_.substr(key.begin + key.key - 1, key.keyEnd - key.key)) !=
               comment.npos;
    }

    // Whether a changed value has a line inside with this text.
    bool isInside(std::string const& text) const
    {
        return std::any_of(changed_.begin(), changed_.end(), [&](std::size_t line) {
            return isAside(old_.lines[line]) && isSameLine(lineOf(old_, before_, line), text);
        });
    }

    void checkOwners(Plan const& plan)
    {
        std::map<std::size_t, std::size_t> newLines = newLines_;
        for (auto const& [name, origins] : plan)
            for (std::size_t j = 0; j < origins.size(); ++j)
                if (origins[j] != kNone)
                    newLines[entriesOf(old_, name)[origins[j]].line - 1] =
                        entriesOf(new_, name)[j].line - 1;
        for (auto const& [before, now] : newLines_) {
            // A comment inside a changed value can move above the key, and be taken for this one.
            std::string const text = lineOf(old_, before_, before);
            if (old_.lines[before].kind != LineKind::comment || isInside(text))
                continue;
            std::size_t const owner = ownerOf(old_, before);
            std::size_t const newOwner = ownerOf(new_, now);
            auto const found = newLines.find(owner);
            if (owner != kNone && found == newLines.end())
                continue;  // the key was removed
            if (newOwner == (owner == kNone ? kNone : found->second))
                continue;
            bool const isTemplate =
                newOwner != kNone && written_.count(newOwner) != 0 && hasName(text, newOwner);
            if (!isTemplate)
                found_.push_back("owner: the comment belongs to another line: " + text);
        }
    }

    // Checks the lines of changed and new values of a key.
    void checkValues(Name const& name, Origins const& origins)
    {
        std::vector<Value> const& old = entriesOf(old_, name);
        std::vector<Value> const& now = entriesOf(new_, name);
        for (std::size_t j = 0; j < now.size(); ++j) {
            if (origins[j] == kNone) {
                checkNew(now[j], name.first);
                if (j > 0 && now[j].line != now[j - 1].lastLine + 1)
                    found_.push_back("new: the line is not after the value before it");
            } else if (textOf(old[origins[j]]) != textOf(now[j])) {
                checkWithin(old[origins[j]], now[j]);
                checkInside(old[origins[j]], now[j]);
            }
        }
    }

    static void mark(std::set<std::size_t>& lines, Value const& value)
    {
        for (std::size_t i = value.line - 1; i < value.lastLine; ++i)
            lines.insert(i);
    }

    // On the line of a header, only the key is removed.
    void checkHeaderStays(Value const& value)
    {
        std::size_t const line = value.line - 1;
        if (old_.lines[line].kind != LineKind::header)
            return;
        std::string const all = lineOf(old_, before_, line);
        std::string const head = all.substr(0, all.rfind(']', old_.lines[line].key) + 1);
        auto const isHeader = [](Line const& l) { return l.kind == LineKind::header; };
        auto headersAbove = std::count_if(
            old_.lines.begin(), old_.lines.begin() + static_cast<std::ptrdiff_t>(line), isHeader);
        for (std::size_t i = 0; i < new_.lines.size(); ++i) {
            if (!isHeader(new_.lines[i]) || headersAbove-- > 0)
                continue;
            if (lineOf(new_, after_, i).compare(0, head.size(), head) != 0)
                break;
            written_.insert(i);
            return;
        }
        found_.push_back("removed: the header before a removed key is missing");
    }

    void checkLocal(std::string const& property)
    {
        Lines kept;
        Lines comments;  // and the like inside changed values, also blank lines; they can move
        keptBefore_.assign(1, 0);
        keptLines_.clear();
        newLines_.clear();
        for (std::size_t i = 0; i < old_.lines.size(); ++i) {
            if (changed_.count(i) == 0) {
                kept.push_back(lineOf(old_, before_, i));
                keptLines_.push_back(i);
            } else if (isAside(old_.lines[i]) || isBlankLine(lineOf(old_, before_, i))) {
                comments.push_back(lineOf(old_, before_, i));
            }
            keptBefore_.push_back(kept.size());
        }
        std::size_t at = 0;
        foundBefore_.assign(1, 0);
        for (std::size_t i = 0; i < new_.lines.size(); ++i) {
            if (written_.count(i) == 0 || isAside(new_.lines[i]))
                matchLine(i, kept, at, comments, property);
            foundBefore_.push_back(at);
        }
        if (at < kept.size())
            found_.push_back(property + "a line is missing: " + kept[at]);
        for (std::string const& comment : comments)
            if (!isBlankLine(comment))
                found_.push_back("inside: a comment is missing: " + comment);
    }

    // Looks for a line of the new text among the kept lines from `at`.
    void matchLine(std::size_t line, Lines const& kept, std::size_t& at, Lines& comments,
                   std::string const& property)
    {
        std::string const text = lineOf(new_, after_, line);
        auto const isText = [&](std::string const& other) { return isSameLine(text, other); };
        auto const start = kept.begin() + static_cast<std::ptrdiff_t>(at);
        if (start != kept.end() && isText(*start)) {
            newLines_[keptLines_[at++]] = line;
            return;
        }
        auto const comment = std::find_if(comments.begin(), comments.end(), isText);
        if (comment != comments.end()) {
            comments.erase(comment);
            return;
        }
        auto const later = std::find_if(start, kept.end(), isText);
        if (later != kept.end()) {
            found_.push_back(property + "a line is missing: " + *start);
            at = static_cast<std::size_t>(later - kept.begin()) + 1;
        } else if (!belongsToNewStanza(line)) {
            found_.push_back("local: a line was not there, or has moved: " + text);
        }
    }

    // A new stanza has a header and a blank line before it.
    bool belongsToNewStanza(std::size_t line) const
    {
        std::set<std::string> names;
        for (Stanza const& stanza : old_.stanzas)
            names.insert(stanza.name);
        bool hasNew = false;
        for (Stanza const& stanza : new_.stanzas)
            hasNew = hasNew || names.count(stanza.name) == 0;
        return hasNew &&
               (new_.lines[line].kind == LineKind::header ||
                (new_.lines[line].kind == LineKind::blank && line + 1 < new_.lines.size() &&
                 new_.lines[line + 1].kind == LineKind::header));
    }

    static std::size_t startOf(DialectModel const& model, Value const& value)
    {
        return model.lines[value.line - 1].begin;
    }

    void checkWithin(Value const& old, Value const& now)
    {
        std::size_t const oldStart = startOf(old_, old);
        std::size_t const newStart = startOf(new_, now);
        if (keptBefore_[old.line - 1] != foundBefore_[now.line - 1])
            found_.push_back("within: the line has moved");
        std::size_t const start = old.alone ? old.keyEnd : old.valueBegin;
        std::string const before = before_.substr(oldStart, start - oldStart);
        if (after_.compare(newStart, before.size(), before) != 0)
            return found_.push_back("within: the line changed before its value: " + before);
        bool const isEmpty = now.valueBegin == now.valueEnd && !old.alone;
        std::size_t const newEnd = std::max(isEmpty ? 0 : now.valueEnd, newStart + before.size());
        std::size_t const oldLine = lineAt(old_, old.valueEnd);
        std::size_t const newLine = lineAt(new_, newEnd);
        std::string const rest =
            before_.substr(old.valueEnd, old_.lines[oldLine].next - old.valueEnd);
        std::string const newRest = after_.substr(newEnd, new_.lines[newLine].next - newEnd);
        if (old.line < old.lastLine && isLineOf(old, lineOf(new_, after_, newLine)))
            return;  // the last line was a middle line
        std::size_t const blanks = blanksOf(rest);
        std::size_t const newBlanks = blanksOf(newRest);
        if (!isSameLine(rest.substr(blanks), newRest.substr(newBlanks)))
            return found_.push_back("within: the line changed after its value: " + newRest);
        bool const hasComment = rest.find_first_of("#;", blanks) == blanks;
        if (!hasComment && blanks != newBlanks && !old.text.empty())
            return found_.push_back("within: spaces at the end of the line changed");
        bool const isInOneLine = oldLine + 1 == old.line && newLine + 1 == now.line;
        if (!hasComment || rest.find('\t') < blanks || !isInOneLine)
            return;
        std::size_t const column =
            widthOf(before_, old_.lines[oldLine].begin, old.valueEnd) + blanks;
        std::size_t const newColumn =
            widthOf(after_, new_.lines[newLine].begin, newEnd) + newBlanks;
        if (blanks < 2 && newBlanks != blanks && !old.text.empty() && !now.text.empty())
            found_.push_back("within: the space before the comment changed");
        if (blanks >= 2 && newColumn != column && newBlanks != 1)
            found_.push_back("within: the comment left its column");
        if (blanks >= 2 && newColumn < column)
            found_.push_back("within: the comment moved to the left");
    }

    // The line of an offset; the end of a line belongs to it.
    static std::size_t lineAt(DialectModel const& model, std::size_t offset)
    {
        std::size_t line = 0;
        while (line + 1 < model.lines.size() && model.lines[line].next <= offset)
            ++line;
        return line;
    }

    // Whether a line is one of the old lines of a value.
    bool isLineOf(Value const& old, std::string const& line) const
    {
        for (std::string const& text : physicalLines(old_, before_, old))
            if (isSameLine(text, line))
                return true;
        return false;
    }

    static bool isBlankLine(std::string const& text)
    {
        return text.find_first_not_of(" \t\r\n") == std::string::npos;
    }

    static std::size_t blanksOf(std::string const& text)
    {
        std::size_t const end = text.find_first_not_of(" \t");
        return end == std::string::npos ? text.size() : end;
    }

    // The lines of a value: unchanged ones are verbatim.
    void checkInside(Value const& old, Value const& now)
    {
        Lines const from = splitLines(old.text);
        Lines const to = splitLines(now.text);
        if (!(rules_.join & (indented | openQuote)) || from.size() == 1 || to.size() == 1)
            return;
        Lines const oldLines = physicalLines(old_, before_, old);
        Lines const newLines = physicalLines(new_, after_, now);
        if (from.size() != oldLines.size() || to.size() != newLines.size())
            return;  // spelled with escapes
        for (Pairs const& pairs : alignments(from, to)) {
            bool good = true;
            for (auto const& [i, j] : pairs)
                if (isWhole(i, from.size()) && isWhole(j, to.size()) && (i > 0) == (j > 0) &&
                    !isSameLine(oldLines[i], newLines[j]))
                    good = false;
            if (good)
                return;
        }
        found_.push_back("inside: an unchanged line of a value changed");
    }

    // Quotes are on the first and the last line of a value.
    bool isWhole(std::size_t line, std::size_t count) const
    {
        return (rules_.join & indented) || (line > 0 && line + 1 < count);
    }

    static Lines physicalLines(DialectModel const& model, std::string const& text,
                               Value const& value)
    {
        Lines found;
        for (std::size_t i = value.line - 1; i < value.lastLine; ++i)
            if (!isAside(model.lines[i]))
                found.push_back(lineOf(model, text, i));
        return found;
    }

    // The key lines of a stanza above a line, the nearest first.
    std::vector<Value> keysAbove(std::string const& stanza, std::size_t line) const
    {
        std::vector<Value> found = keysOf(stanza);
        found.erase(std::remove_if(found.begin(), found.end(),
                                   [&](Value const& value) { return value.line >= line; }),
                    found.end());
        std::sort(found.begin(), found.end(),
                  [](Value const& a, Value const& b) { return a.line > b.line; });
        return found;
    }

    std::vector<Value> keysOf(std::string const& stanza) const
    {
        std::vector<Value> found;
        for (Stanza const& s : new_.stanzas)
            for (Key const& key : s.keys)
                if (s.name == stanza)
                    found.insert(found.end(), key.values.begin(), key.values.end());
        return found;
    }

    // Whether the separator of a new line is in the column of the key line above it, and of the
    // nearest line below.
    bool isInColumnBelow(Value const& value, Value const& above, std::string const& stanza) const
    {
        Value const* next = nullptr;
        std::vector<Value> const keys = keysOf(stanza);
        for (Value const& key : keys)
            if (!key.alone && key.line > value.line && (next == nullptr || key.line < next->line))
                next = &key;
        return next != nullptr && areInOneSection(value, *next) &&
               separatorColumn(*next) == separatorColumn(above) &&
               separatorColumn(value) == separatorColumn(above);
    }

    // The text between key and value, without a marker of the key.
    std::string separatorOf(Value const& value) const
    {
        std::size_t const begin =
            std::min(after_.find_first_of(" \t=:", value.keyEnd), value.valueBegin);
        return after_.substr(begin, value.valueBegin - begin);
    }

    std::string indentationOf(Value const& value) const
    {
        std::size_t const start = startOf(new_, value);
        return after_.substr(start, blanksOf(after_.substr(start)));
    }

    // The column of the separator.
    std::size_t separatorColumn(Value const& value) const
    {
        std::string const separator = separatorOf(value);
        return widthOf(after_, startOf(new_, value), value.valueBegin - separator.size()) +
               blanksOf(separator);
    }

    void checkNew(Value const& value, std::string const& stanza)
    {
        std::size_t const line = value.line - 1;
        if (line > 0 && lineEnding(line) != lineEnding(line - 1) &&
            new_.lines[value.lastLine - 1].next < after_.size())
            found_.push_back("new: the line ending differs from the line above");
        std::vector<Value> const above = keysAbove(stanza, value.line);
        if (above.empty() || new_.lines[above[0].line - 1].kind == LineKind::header) {
            bool const isTight = rules_.separatorStyle == SeparatorStyle::tightEquals;
            if (!value.text.empty() && separatorOf(value) != (isTight ? "=" : " = "))
                found_.push_back("new: the separator is not in the style of the dialect");
            if (indentationOf(value) != (rules_.indentStyle == IndentStyle::tab ? "\t" : ""))
                found_.push_back("new: the indentation is not in the style of the dialect");
            return;
        }
        if (indentationOf(value) != indentationOf(above[0]))
            found_.push_back("new: the indentation differs from the line above");
        std::size_t const column = separatorColumn(above[0]);
        // Of keys of the same length, two spaces before the separator show a column.
        bool isAligned = false;
        for (std::size_t i = 1; i < above.size() && areInOneSection(above[i], above[0]); ++i) {
            if (above[i].alone)
                continue;
            if (separatorColumn(above[i]) != column)
                break;
            isAligned = isAligned || blanksOf(separatorOf(above[0])) > 1 ||
                        blanksOf(separatorOf(above[0])) != blanksOf(separatorOf(above[i]));
        }
        std::size_t const width = widthOf(after_, startOf(new_, value), value.keyEnd);
        if (isAligned && width < column) {
            if (separatorColumn(value) != column)
                found_.push_back("new: the separator is not in the column of its neighbours");
        } else if (!isAligned && !above[0].alone && !above[0].text.empty() && !value.text.empty() &&
                   separatorOf(value) != separatorOf(above[0]) &&
                   !isInColumnBelow(value, above[0], stanza)) {
            found_.push_back("new: the separator differs from the line above");
        }
        if (above[0].text.empty() && !above[0].alone && !value.text.empty() &&
            isOneSided(separatorOf(above[0])) && isOneSided(separatorOf(value)))
            found_.push_back("new: no space is after the sign, and spaces are before it");
    }

    // Whether no header is between two key lines. A key can follow on the line of the header.
    bool areInOneSection(Value const& first, Value const& second) const
    {
        for (std::size_t i = first.line; i < second.line; ++i)
            if (new_.lines[i].kind == LineKind::header)
                return false;
        return true;
    }

    // "key =" does not show the spaces after the sign.
    static bool isOneSided(std::string const& separator)
    {
        return separator.size() > 1 && blanksOf(separator) == separator.size() - 1;
    }

    std::string lineEnding(std::size_t line) const
    {
        return after_.substr(new_.lines[line].end, new_.lines[line].next - new_.lines[line].end);
    }

    Switches const rules_;
    std::string const before_;
    std::string const after_;
    DialectModel const old_;
    DialectModel const new_;
    Values expected_;
    std::set<Name> edited_;
    bool hasMorePlans_ = false;
    std::vector<std::string> found_;      // violations under the present plan
    std::set<std::size_t> changed_;       // lines before, of values that change or go
    std::set<std::size_t> written_;       // lines afterwards, of values that are changed or new
    std::vector<std::size_t> keptLines_;  // of the old lines that stay
    std::map<std::size_t, std::size_t> newLines_;  // by the old lines that stay
    std::vector<std::size_t> keptBefore_;          // for each old line, the kept lines above it
    std::vector<std::size_t> foundBefore_;         // for each new line, the kept lines above it
};

}  // namespace dialect_model
