#include "edits.h"

#include <algorithm>
#include <tuple>

namespace zlines {

namespace {

constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";

// A position of the old text that is replaced by the position of the new text.
struct Moved {
    uint32_t* position;
    bool isAfter;  // insertions there

    bool isBefore(Moved const& other) const
    {
        return std::tie(*position, isAfter) < std::tie(*other.position, other.isAfter);
    }
};

std::vector<Moved> positionsOf(std::vector<HeaderComment>& comments)
{
    std::vector<Moved> positions;
    for (HeaderComment& comment : comments) {
        positions.push_back({&comment.begin, false});
        positions.push_back({&comment.end, true});
    }
    std::sort(positions.begin(), positions.end(),
              [](Moved const& a, Moved const& b) { return a.isBefore(b); });
    return positions;
}

// Returns the start of the last line if it is blank, else the end of the text.
size_t startOfBlankEnd(std::string const& text)
{
    size_t const last = text.size() < 2 ? 0 : text.rfind('\n', text.size() - 2) + 1;
    return text.find_first_not_of(" \t\r\n", last) == std::string::npos ? last : text.size();
}

// Removes the line ending at the end of `text`, first with the blank lines there if
// `removesBlankLines`. Otherwise a blank line at the end stays, because it would be removed with
// its line ending.
void removeEnding(std::string& text, bool removesBlankLines)
{
    while (removesBlankLines && startOfBlankEnd(text) < text.size())
        text.resize(startOfBlankEnd(text));
    if (!text.ends_with('\n') || startOfBlankEnd(text) < text.size())
        return;
    text.pop_back();
    if (text.ends_with('\r'))
        text.pop_back();
}

}  // namespace

bool Edits::writesUpTo(uint32_t position) const
{
    return std::any_of(edits_.begin(), edits_.end(), [position](Edit const& edit) {
        return edit.change.begin <= position && !edit.change.text.empty() &&
               edit.order < commentMoves;
    });
}

std::string Edits::compose(TextHistory& history)
{
    std::vector<uint32_t>& movedComments = history.movedComments;
    std::sort(edits_.begin(), edits_.end(), [](Edit const& a, Edit const& b) {
        return std::tie(a.change.begin, a.order, a.number) <
               std::tie(b.change.begin, b.order, b.number);
    });
    size_t size = text_.size();
    for (Edit const& edit : edits_)
        size += edit.change.text.size() + 2;
    std::string out;
    out.reserve(size);
    std::vector<uint32_t> const before = std::move(movedComments);
    movedComments.clear();
    auto moved = before.begin();
    size_t const start = text_.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0;
    uint32_t done = 0;
    auto const copyTo = [&](uint32_t end) {
        while (moved != before.end() && *moved < done)
            ++moved;
        for (; moved != before.end() && *moved < end; ++moved)
            movedComments.push_back(static_cast<uint32_t>(out.size()) + (*moved - done));
        out += slice(text_, done, end);
        done = end;
    };
    std::vector<Moved> const positions = positionsOf(history.headerComments);
    auto next = positions.begin();
    auto const move = [&] {
        uint32_t& position = *next++->position;
        if (position > done)
            copyTo(position);
        position = static_cast<uint32_t>(out.size());
    };
    for (Edit const& edit : edits_) {
        Replacement const& change = edit.change;
        while (next != positions.end() && (*next->position < change.begin ||
                                           (*next->position == change.begin && !next->isAfter)))
            move();
        if (change.begin > done)
            copyTo(change.begin);
        if (edit.order != changes && edit.order < commentMoves && out.size() > start &&
            out.back() != '\n')
            out += edit.lineEnding;
        for (size_t at = 0; at < change.commentBytes;) {
            movedComments.push_back(static_cast<uint32_t>(out.size() + at));
            at = std::min(change.text.find('\n', at), change.commentBytes) + 1;
        }
        out += change.text;
        done = std::max(done, change.end);
    }
    while (next != positions.end())
        move();
    copyTo(static_cast<uint32_t>(text_.size()));
    if (text_.size() > start && text_.back() != '\n') {
        removeEnding(out, removesLast_);
        // A comment above a removed header can end at the end of the text.
        auto const end = static_cast<uint32_t>(out.size());
        for (HeaderComment& comment : history.headerComments) {
            comment.begin = std::min(comment.begin, end);
            comment.end = std::min(comment.end, end);
        }
    }
    return out;
}

}  // namespace zlines
