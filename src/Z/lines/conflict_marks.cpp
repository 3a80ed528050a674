#include "conflict_marks.h"

#include <algorithm>
#include <iterator>
#include <vector>

namespace zlines {

namespace {

constexpr char kMiddle[] = "=======";

using Strings = std::vector<std::string>;

class Marker {
public:
    Marker(std::string_view text, Dialect const& dialect, std::vector<std::string> const& names,
           MergedContents const& contents, MergeSide const& ours, MergeSide const& theirs)
        : text_(text),
          contents_(contents),
          ours_(ours),
          theirs_(theirs),
          merged_(text, dialect, names)
    {
    }

    std::string mark()
    {
        for (auto const& [name, stanza] : contents_.stanzas())
            if (stanza.conflict == MergedStanza::onlyOurs)
                markStanzaOfOurs(name);
            else if (stanza.conflict == MergedStanza::onlyTheirs)
                markStanzaOfTheirs(name);
            else
                for (MergedKey const& key : stanza.keys)
                    if (!key.values.empty())
                        markValues(name, std::string(key.name), key.values);
        return compose();
    }

    size_t blocks() const { return blocks_; }

private:
    // At one position the end of a conflict precedes the start of the next.
    enum Place { end, start };

    struct Insertion {
        uint32_t position;
        Place place;
        std::string lines;
        uint32_t until = 0;  // the end of the bytes that it replaces; 0: none
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
        ++blocks_;
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
        for (uint32_t const line : lines)
            side.appendLines(side.rangeOfLine(line), ending, out);
    }

    // Returns the lines of a side that have the values or, without values, the key. All values: the
    // lines without a value, too.
    static std::vector<uint32_t> linesOf(MergeSide const& side, std::string_view stanza,
                                         std::string_view key, Strings const& values)
    {
        SideKey const found = side.find(stanza, key);
        if (!found)
            return {};
        if (values.empty())
            return found.hasValues() ? std::vector<uint32_t>() : found.otherLines();
        std::vector<uint32_t> const valueLines = found.valueLines();
        std::vector<uint32_t> lines;
        if (values.size() == valueLines.size()) {
            std::vector<uint32_t> const others = found.otherLines();
            std::merge(valueLines.begin(), valueLines.end(), others.begin(), others.end(),
                       std::back_inserter(lines));
            return lines;
        }
        Strings const all = found.values();
        Strings left = values;
        for (size_t i = 0; i < all.size(); ++i) {
            auto const at = std::find(left.begin(), left.end(), all[i]);
            if (at == left.end())
                continue;
            lines.push_back(valueLines[i]);
            left.erase(at);
        }
        return lines;
    }

    // Marks a stanza that only `ours` has, wherever its lines are.
    void markStanzaOfOurs(std::string const& name)
    {
        SideStanza const* const found = merged_.find(name);
        if (found == nullptr)
            return;
        for (uint32_t const section : found->sections) {
            auto const [first, last] = merged_.rangeOf(section);
            std::string const ending(endingAt(outline().sections()[section].header));
            insertions_.push_back({first, start, oursMark_ + ending});
            insertions_.push_back({last, end, kMiddle + ending + theirsMark_ + ending});
            ++blocks_;
        }
    }

    // Puts the lines of a stanza that only `theirs` has in the place of its new header.
    void markStanzaOfTheirs(std::string const& name)
    {
        SideStanza const* const found = merged_.find(name);
        SideStanza const* const theirs = theirs_.find(name);
        uint32_t const header = found == nullptr ? kNone : found->header;
        std::string const ending(outline().lineEndingAfter(header == kNone ? kNone : header));
        std::string lines = oursMark_ + ending + kMiddle + ending;
        for (uint32_t const section : theirs->sections)
            theirs_.appendLines(theirs_.rangeOf(section), ending, lines);
        lines += theirsMark_ + ending;
        replace(header, header, std::move(lines));
    }

    // Replaces the lines from `first` to `last` by a block; kNone: adds it at the end of the text.
    void replace(uint32_t first, uint32_t last, std::string block)
    {
        auto const size = static_cast<uint32_t>(text_.size());
        insertions_.push_back({first == kNone ? size : outline().lines()[first].begin, start,
                               std::move(block), last == kNone ? size : outline().endOf(last)});
        ++blocks_;
    }

    void markValues(std::string const& stanza, std::string const& name,
                    std::vector<MergedValue> const& values)
    {
        SideKey const found = merged_.find(stanza, name);
        std::vector<uint32_t> const lines = found ? found.valueLines() : std::vector<uint32_t>();
        size_t at = 0;
        for (MergedValue const& value : values) {
            size_t const count = value.ours.empty() ? value.theirs.size() : value.ours.size();
            if (value.isConflict && found && at + count <= lines.size()) {
                auto const first = lines.begin() + static_cast<ptrdiff_t>(at);
                markValue(stanza, name, value, {first, first + static_cast<ptrdiff_t>(count)});
            } else if (value.isConflict) {
                std::string block;
                appendBlock(stanza, name, value, outline().lineEndingAfter(kNone), block);
                replace(kNone, kNone, std::move(block));
            }
            at += count;
        }
    }

    void markValue(std::string const& stanza, std::string const& key, MergedValue const& value,
                   std::vector<uint32_t> const& lines)
    {
        std::string const ending(endingAt(lines.front()));
        if (value.ours.empty()) {
            // The lines of `theirs`, as the dialect spells new lines.
            std::string block;
            appendBlock(stanza, key, value, ending, block);
            replace(lines.front(), lines.front(), std::move(block));
            for (size_t i = 1; i < lines.size(); ++i)
                insertions_.push_back(
                    {outline().lines()[lines[i]].begin, start, "", outline().endOf(lines[i])});
            return;
        }
        std::string const head(slice(text_, startOf(lines.front()),
                                     outline().lines()[lines.front()].begin));  // "[a] k = v"
        // Lines between the lines of the key do not belong to the conflict.
        bool const isOneBlock = lines.back() - lines.front() + 1 == lines.size();
        for (size_t i = 0; i < lines.size(); ++i) {
            if (i == 0 || !isOneBlock)
                insertAbove(lines[i], oursMark_ + ending);
            if (i + 1 < lines.size() && isOneBlock)
                continue;
            bool const hasTheirs = isOneBlock || i == 0;
            std::string below = kMiddle + ending;
            if (hasTheirs)
                below += head, appendLines(theirs_, linesOf(theirs_, stanza, key, value.theirs),
                                           ending, below);
            if (hasTheirs && !head.empty() && below.ends_with(head))
                below += ending;
            insertBelow(lines[i], below + theirsMark_ + ending);
        }
    }

    // Appends both sides of a conflict, with marks.
    void appendBlock(std::string const& stanza, std::string const& key, MergedValue const& value,
                     std::string_view ending, std::string& out) const
    {
        appendLine(out, oursMark_, ending);
        appendLines(ours_, linesOf(ours_, stanza, key, value.ours), ending, out);
        appendLine(out, kMiddle, ending);
        appendLines(theirs_, linesOf(theirs_, stanza, key, value.theirs), ending, out);
        appendLine(out, theirsMark_, ending);
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
            if (insertion.position > done)
                out += slice(text_, done, insertion.position);
            done = std::max({done, insertion.position, insertion.until});
            if (!out.empty() && out.back() != '\n' && !insertion.lines.empty())
                out +=
                    outline().lineEndingAfter(static_cast<uint32_t>(outline().lines().size() - 1));
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
    size_t blocks_ = 0;
};

}  // namespace

std::string markConflicts(std::string_view text, Dialect const& dialect,
                          std::vector<std::string> const& names, MergedContents const& contents,
                          MergeSide const& ours, MergeSide const& theirs, size_t& blocks)
{
    Marker marker(text, dialect, names, contents, ours, theirs);
    std::string marked = marker.mark();
    blocks = marker.blocks();
    return marked;
}

}  // namespace zlines
