#include "unified_diff.h"

#include <stdint.h>
#include <stdio.h>

#include <algorithm>
#include <unordered_map>
#include <vector>

#include "name_hash.h"

namespace zlines {

namespace {

constexpr size_t kContext = 3;
constexpr int kMaxDifferences = 2000;

std::vector<std::string_view> splitLines(std::string_view text)
{
    std::vector<std::string_view> lines;
    while (!text.empty()) {
        size_t const length = std::min(text.find('\n'), text.size() - 1) + 1;
        lines.push_back(text.substr(0, length));
        text.remove_prefix(length);
    }
    return lines;
}

// Finds the lines that two files have in common, by the greedy algorithm of Myers.
class LineMatcher {
public:
    LineMatcher(std::vector<std::string_view> const& oldLines,
                std::vector<std::string_view> const& newLines)
        : isRemoved(oldLines.size()),
          isAdded(newLines.size()),
          old_(number(oldLines)),
          new_(number(newLines))
    {
        size_t first = 0, oldEnd = old_.size(), newEnd = new_.size();
        while (first < oldEnd && first < newEnd && old_[first] == new_[first])
            ++first;
        while (oldEnd > first && newEnd > first && old_[oldEnd - 1] == new_[newEnd - 1])
            --oldEnd, --newEnd;
        match(static_cast<int>(first), static_cast<int>(oldEnd), static_cast<int>(newEnd));
    }

    std::vector<bool> isRemoved;  // of each line of the old text
    std::vector<bool> isAdded;    // of each line of the new text

private:
    // Returns a number for each line; equal lines have equal numbers.
    std::vector<uint32_t> number(std::vector<std::string_view> const& lines)
    {
        std::vector<uint32_t> numbers;
        numbers.reserve(lines.size());
        for (std::string_view const line : lines)
            numbers.push_back(
                numbers_.emplace(line, static_cast<uint32_t>(numbers_.size())).first->second);
        return numbers;
    }

    void match(int first, int oldEnd, int newEnd);
    void trace(std::vector<std::vector<int>> const& furthest, int first, int oldEnd, int newEnd);

    std::unordered_map<std::string_view, uint32_t, NameHash> numbers_;
    std::vector<uint32_t> const old_;
    std::vector<uint32_t> const new_;
};

// Returns the furthest old line on diagonal `k` after `d` differences, if `before` has the furthest
// lines after d - 1. Diagonals are old minus new lines.
int stepTo(std::vector<int> const& before, int d, int k)
{
    auto const at = [&](int diagonal) { return before[static_cast<size_t>(diagonal + d - 1)]; };
    if (k == -d || (k != d && at(k - 1) < at(k + 1)))
        return at(k + 1);
    return at(k - 1) + 1;
}

void LineMatcher::match(int first, int oldEnd, int newEnd)
{
    int const oldCount = oldEnd - first;
    int const newCount = newEnd - first;
    // A path that leaves the grid is longer than a path along its edge, so it is never the first to
    // reach the end.
    std::vector<std::vector<int>> furthest;  // by the number of differences, then by k + d
    for (int d = 0; d <= std::min(oldCount + newCount, kMaxDifferences); ++d) {
        std::vector<int> lines(static_cast<size_t>(2 * d + 1), -1);
        for (int k = -d; k <= d; k += 2) {
            int x = d == 0 ? 0 : stepTo(furthest.back(), d, k);
            while (x < oldCount && x - k < newCount &&
                   old_[static_cast<size_t>(first + x)] == new_[static_cast<size_t>(first + x - k)])
                ++x;
            lines[static_cast<size_t>(k + d)] = x;
            if (x == oldCount && x - k == newCount) {
                furthest.push_back(std::move(lines));
                trace(furthest, first, oldEnd, newEnd);
                return;
            }
        }
        furthest.push_back(std::move(lines));
    }
    std::fill(isRemoved.begin() + first, isRemoved.begin() + oldEnd, true);
    std::fill(isAdded.begin() + first, isAdded.begin() + newEnd, true);
}

void LineMatcher::trace(std::vector<std::vector<int>> const& furthest, int first, int oldEnd,
                        int newEnd)
{
    int x = oldEnd - first, y = newEnd - first;
    for (int d = static_cast<int>(furthest.size()) - 1; d > 0; --d) {
        auto const& before = furthest[static_cast<size_t>(d - 1)];
        auto const at = [&](int diagonal) { return before[static_cast<size_t>(diagonal + d - 1)]; };
        int const k = x - y;
        bool const isAddition = k == -d || (k != d && at(k - 1) < at(k + 1));
        x = isAddition ? at(k + 1) : at(k - 1);
        y = x - (isAddition ? k + 1 : k - 1);
        if (isAddition)
            isAdded[static_cast<size_t>(first + y)] = true;
        else
            isRemoved[static_cast<size_t>(first + x)] = true;
    }
}

// A range of lines that differs.
struct Change {
    size_t oldFirst, oldEnd;
    size_t newFirst, newEnd;
};

std::vector<Change> listChanges(LineMatcher const& matcher)
{
    std::vector<Change> changes;
    size_t const oldCount = matcher.isRemoved.size(), newCount = matcher.isAdded.size();
    for (size_t x = 0, y = 0; x < oldCount || y < newCount; ++x, ++y) {
        Change change = {x, x, y, y};
        while (change.oldEnd < oldCount && matcher.isRemoved[change.oldEnd])
            ++change.oldEnd;
        while (change.newEnd < newCount && matcher.isAdded[change.newEnd])
            ++change.newEnd;
        if (change.oldEnd > x || change.newEnd > y)
            changes.push_back(change);
        x = change.oldEnd;
        y = change.newEnd;
    }
    return changes;
}

class HunkWriter {
public:
    HunkWriter(std::vector<std::string_view> const& oldLines,
               std::vector<std::string_view> const& newLines, std::string& out)
        : old_(oldLines), new_(newLines), out_(out)
    {
    }

    /// Appends the hunk of adjacent changes.
    void append(Change const* first, Change const* end)
    {
        size_t const context = std::min(first->oldFirst, kContext);
        size_t const below = std::min(old_.size() - end[-1].oldEnd, kContext);
        size_t const oldFirst = first->oldFirst - context, oldEnd = end[-1].oldEnd + below;
        size_t const newFirst = first->newFirst - context, newEnd = end[-1].newEnd + below;
        out_ +=
            "@@ -" + formatRange(oldFirst, oldEnd) + " +" + formatRange(newFirst, newEnd) + " @@\n";
        size_t line = oldFirst;
        for (Change const* change = first; change != end; ++change) {
            appendLines(' ', old_, line, change->oldFirst);
            appendLines('-', old_, change->oldFirst, change->oldEnd);
            appendLines('+', new_, change->newFirst, change->newEnd);
            line = change->oldEnd;
        }
        appendLines(' ', old_, line, oldEnd);
    }

private:
    // An empty range is after the line with its number.
    static std::string formatRange(size_t first, size_t end)
    {
        std::string const start = std::to_string(end > first ? first + 1 : first);
        return end - first == 1 ? start : start + ',' + std::to_string(end - first);
    }

    void appendLines(char mark, std::vector<std::string_view> const& lines, size_t first,
                     size_t end)
    {
        for (size_t i = first; i < end; ++i) {
            out_ += mark;
            out_ += lines[i];
            if (lines[i].back() != '\n')
                out_ += "\n\\ No newline at end of file\n";
        }
    }

    std::vector<std::string_view> const& old_;
    std::vector<std::string_view> const& new_;
    std::string& out_;
};

// Returns a file name as patch(1) reads it: in quotes, with escapes, if it has a character that
// would end it.
std::string spellName(std::string const& name)
{
    bool isPlain = !name.empty();
    std::string quoted = "\"";
    for (char const c : name) {
        auto const byte = static_cast<unsigned char>(c);
        isPlain = isPlain && byte > ' ' && byte < 0x7F && c != '"' && c != '\\';
        char escape[sizeof "\\000"];
        if (byte < ' ' || byte >= 0x7F)
            snprintf(escape, sizeof escape, "\\%03o", byte);
        else
            snprintf(escape, sizeof escape, c == '"' || c == '\\' ? "\\%c" : "%c", c);
        quoted += escape;
    }
    return isPlain ? name : quoted + '"';
}

}  // namespace

std::string formatUnifiedDiff(std::string_view oldText, std::string_view newText,
                              std::string const& oldName, std::string const& newName)
{
    if (oldText == newText)
        return {};
    std::string out = "--- " + spellName(oldName) + "\n+++ " + spellName(newName) + '\n';
    std::vector<std::string_view> const oldLines = splitLines(oldText);
    std::vector<std::string_view> const newLines = splitLines(newText);
    std::vector<Change> const changes = listChanges(LineMatcher(oldLines, newLines));
    HunkWriter writer(oldLines, newLines, out);
    for (size_t first = 0, end; first < changes.size(); first = end) {
        for (end = first + 1; end < changes.size() &&
                              changes[end].oldFirst - changes[end - 1].oldEnd <= 2 * kContext;)
            ++end;
        writer.append(&changes[first], &changes[0] + end);
    }
    return out;
}

}  // namespace zlines
