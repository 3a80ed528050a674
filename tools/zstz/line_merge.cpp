#include "line_merge.h"

#include <Z/lines/alignment.h>
#include <stdint.h>

#include <algorithm>
#include <vector>

namespace {

using Lines = std::vector<std::string_view>;

constexpr uint32_t kAbsent = UINT32_MAX;

Lines splitLines(std::string_view text)
{
    Lines lines;
    while (!text.empty()) {
        size_t const length = std::min(text.find('\n'), text.size() - 1) + 1;
        lines.push_back(text.substr(0, length));
        text.remove_prefix(length);
    }
    return lines;
}

// Returns the position of each line of the base in the side, or kAbsent.
std::vector<uint32_t> positionsIn(Lines const& base, Lines const& side)
{
    std::vector<uint32_t> positions(base.size(), kAbsent);
    for (auto const& [before, after] : zlines::align(base, side))
        positions[before] = after;
    return positions;
}

class LineMerge {
public:
    LineMerge(std::string_view base, std::string_view ours, std::string_view theirs)
        : base_(splitLines(base)),
          ours_(splitLines(ours)),
          theirs_(splitLines(theirs)),
          lineEnd_(!ours_.empty() && ours_.front().ends_with("\r\n") ? "\r\n" : "\n")
    {
    }

    MergedLines merge()
    {
        std::vector<uint32_t> const inOurs = positionsIn(base_, ours_);
        std::vector<uint32_t> const inTheirs = positionsIn(base_, theirs_);
        Position at = {0, 0, 0};
        for (uint32_t i = 0; i < base_.size(); ++i) {
            if (inOurs[i] == kAbsent || inTheirs[i] == kAbsent)
                continue;
            mergeBetween(at, {i, inOurs[i], inTheirs[i]});
            merged_.text += base_[i];
            at = {i + size_t{1}, inOurs[i] + size_t{1}, inTheirs[i] + size_t{1}};
        }
        mergeBetween(at, {base_.size(), ours_.size(), theirs_.size()});
        return std::move(merged_);
    }

private:
    struct Position {
        size_t base, ours, theirs;
    };

    static Lines slice(Lines const& lines, size_t first, size_t end)
    {
        return {lines.begin() + static_cast<ptrdiff_t>(first),
                lines.begin() + static_cast<ptrdiff_t>(end)};
    }

    void mergeBetween(Position const& first, Position const& end)
    {
        Lines const base = slice(base_, first.base, end.base);
        Lines const ours = slice(ours_, first.ours, end.ours);
        Lines const theirs = slice(theirs_, first.theirs, end.theirs);
        if (ours == theirs || theirs == base)
            return append(ours);
        if (ours == base)
            return append(theirs);
        ++merged_.conflicts;
        appendMark("<<<<<<< ours");
        append(ours);
        appendMark("=======");
        append(theirs);
        appendMark(std::string(">>>>>>> ") + "theirs");
    }

    void append(Lines const& lines)
    {
        for (std::string_view const line : lines)
            merged_.text += line;
    }

    void appendMark(std::string_view mark)
    {
        if (!merged_.text.empty() && merged_.text.back() != '\n')
            merged_.text += lineEnd_;
        merged_.text += mark;
        merged_.text += lineEnd_;
    }

    Lines const base_;
    Lines const ours_;
    Lines const theirs_;
    std::string_view const lineEnd_;
    MergedLines merged_ = {};
};

}  // namespace

MergedLines mergeLines(std::string_view base, std::string_view ours, std::string_view theirs)
{
    return LineMerge(base, ours, theirs).merge();
}
