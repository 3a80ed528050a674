#include "conflict_marks.h"

#include <algorithm>
#include <vector>

namespace zlines {

namespace {

constexpr char kMiddle[] = "=======";

using Strings = std::vector<std::string>;

class Marker {
public:
    Marker(std::string_view text, Dialect const& dialect, MergedContents const& contents,
           MergeSide const& ours, MergeSide const& theirs)
        : text_(text), contents_(contents), ours_(ours), theirs_(theirs), merged_(text, dialect)
    {
    }

    std::string mark()
    {
        for (auto const& [name, stanza] : contents_.stanzas())
            if (!stanza.isRemovedBySide || !markStanza(name, stanza))
                for (auto const& [key, values] : stanza.keys)
                    markKey(name, key, values);
        return compose();
    }

private:
    // At one position the end of a conflict precedes the start of the next.
    enum Place { end, start };

    struct Insertion {
        uint32_t position;
        Place place;
        std::string lines;
    };

    Outline const& outline() const { return merged_.outline(); }

    // Returns the start of the line of the text that `line` is on: a key may follow a header.
    uint32_t startOf(uint32_t line) const
    {
        uint32_t at = outline().lines()[line].begin;
        while (at > 0 && text_[at - 1] != '\n')
            --at;
        return at;
    }

    std::string_view endingAt(uint32_t line) const { return outline().lineEndingOf(line); }

    void insertAbove(uint32_t line, std::string lines)
    {
        insertions_.push_back({startOf(line), start, std::move(lines)});
    }

    void insertBelow(uint32_t line, std::string lines)
    {
        insertions_.push_back({outline().endOf(line), end, std::move(lines)});
    }

    static void appendLine(std::string& out, std::string_view line, std::string_view ending)
    {
        out += line;
        out += ending;
    }

    // Appends the lines of a side as they are in its text, with the line ending of the result.
    static void appendLines(MergeSide const& side, std::vector<uint32_t> const& lines,
                            std::string_view ending, std::string& out)
    {
        for (uint32_t const line : lines) {
            std::string_view bytes =
                slice(side.outline().text(), side.outline().lines()[line].begin,
                      side.outline().endOf(line));
            while (bytes.ends_with('\n') || bytes.ends_with('\r'))
                bytes.remove_suffix(1);
            appendLine(out, bytes, ending);
        }
    }

    // Returns the lines of a side that have the values or, without values, the key.
    static std::vector<uint32_t> linesOf(MergeSide const& side, std::string_view stanza,
                                         std::string_view key, Strings const& values)
    {
        SideKey const* const found = side.find(stanza, key);
        if (found == nullptr)
            return {};
        if (values.empty())
            return found->values.empty() ? found->otherLines : std::vector<uint32_t>();
        std::vector<uint32_t> lines;
        Strings left = values;
        for (size_t i = 0; i < found->values.size(); ++i) {
            auto const at = std::find(left.begin(), left.end(), found->values[i]);
            if (at == left.end())
                continue;
            lines.push_back(found->valueLines[i]);
            left.erase(at);
        }
        return lines;
    }

    // Marks a stanza that only one side has, with all its lines. Returns false if they are not in
    // one place.
    bool markStanza(std::string const& name, MergedStanza const& stanza)
    {
        SideStanza const* const found = merged_.find(name);
        uint32_t last = kNone;
        for (auto const& [key, values] : stanza.keys) {
            for (MergedValue const& value : values.values)
                if (!value.isConflict)
                    return false;
            for (uint32_t const line : merged_.find(name, key)->valueLines)
                last = last == kNone ? line : std::max(last, line);
        }
        if (last == kNone || last < found->header)
            return false;
        for (uint32_t line = found->header + 1; line < last; ++line)
            if (outline().lines()[line].kind == headerLine)
                return false;
        std::string const ending(endingAt(found->header));
        bool const isOurs = ours_.find(name) != nullptr;
        std::string const above = oursMark_ + ending + (isOurs ? "" : kMiddle + ending);
        std::string const below = (isOurs ? kMiddle + ending : "") + theirsMark_ + ending;
        insertAbove(found->header, above);
        insertBelow(last, below);
        return true;
    }

    void markKey(std::string const& stanza, std::string const& name, MergedKey const& key)
    {
        SideKey const* const found = merged_.find(stanza, name);
        size_t at = 0;
        for (MergedValue const& value : key.values) {
            size_t const count = value.ours.empty() ? value.theirs.size() : value.ours.size();
            if (value.isConflict) {
                auto const first = found->valueLines.begin() + static_cast<ptrdiff_t>(at);
                markValue(stanza, name, value, {first, first + static_cast<ptrdiff_t>(count)});
            }
            at += count;
        }
    }

    void markValue(std::string const& stanza, std::string const& key, MergedValue const& value,
                   std::vector<uint32_t> const& lines)
    {
        std::string const ending(endingAt(lines.front()));
        auto const sideLines = [&](MergeSide const& side, Strings const& values) {
            std::string text;
            appendLines(side, linesOf(side, stanza, key, values), ending, text);
            return text;
        };
        std::string const head(slice(text_, startOf(lines.front()),
                                     outline().lines()[lines.front()].begin));  // "[a] k = v"
        if (value.ours.empty()) {
            insertAbove(lines.front(),
                        oursMark_ + ending + sideLines(ours_, {}) + kMiddle + ending);
            insertBelow(lines.back(), theirsMark_ + ending);
            return;
        }
        // Lines between the lines of the key are not part of the conflict.
        bool const isOneBlock = lines.back() - lines.front() + 1 == lines.size();
        for (size_t i = 0; i < lines.size(); ++i) {
            if (i == 0 || !isOneBlock)
                insertAbove(lines[i], oursMark_ + ending);
            if (i + 1 < lines.size() && isOneBlock)
                continue;
            bool const hasTheirs = isOneBlock || i == 0;
            std::string below = kMiddle + ending;
            if (hasTheirs)
                below += head + sideLines(theirs_, value.theirs);
            if (hasTheirs && !head.empty() && below.ends_with(head))
                below += ending;
            insertBelow(lines[i], below + theirsMark_ + ending);
        }
    }

    std::string compose()
    {
        std::stable_sort(
            insertions_.begin(), insertions_.end(), [](Insertion const& a, Insertion const& b) {
                return a.position != b.position ? a.position < b.position : a.place < b.place;
            });
        std::string out;
        uint32_t done = 0;
        for (Insertion const& insertion : insertions_) {
            out += slice(text_, done, insertion.position);
            done = insertion.position;
            if (!out.empty() && out.back() != '\n')
                out += endingAt(static_cast<uint32_t>(outline().lines().size() - 1));
            out += insertion.lines;
        }
        return out += text_.substr(done);
    }

    std::string_view const text_;
    MergedContents const& contents_;
    MergeSide const& ours_;
    MergeSide const& theirs_;
    MergeSide const merged_;
    std::string const oursMark_ = std::string("<<<<<<< ") + "ours";
    std::string const theirsMark_ = std::string(">>>>>>> ") + "theirs";
    std::vector<Insertion> insertions_;
};

}  // namespace

std::string markConflicts(std::string_view text, Dialect const& dialect,
                          MergedContents const& contents, MergeSide const& ours,
                          MergeSide const& theirs)
{
    return Marker(text, dialect, contents, ours, theirs).mark();
}

}  // namespace zlines
