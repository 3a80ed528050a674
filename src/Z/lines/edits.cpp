#include "edits.h"

#include <algorithm>
#include <tuple>

namespace zlines {

namespace {

constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";

}  // namespace

std::string Edits::compose(std::vector<uint32_t>& movedComments)
{
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
    for (Edit const& edit : edits_) {
        Replacement const& change = edit.change;
        if (change.begin > done)
            copyTo(change.begin);
        if (edit.order != changes && edit.order != names && out.size() > start &&
            out.back() != '\n')
            out += edit.lineEnding;
        for (size_t at = 0; at < change.commentBytes;) {
            movedComments.push_back(static_cast<uint32_t>(out.size() + at));
            at = std::min(change.text.find('\n', at), change.commentBytes) + 1;
        }
        out += change.text;
        done = std::max(done, change.end);
    }
    copyTo(static_cast<uint32_t>(text_.size()));
    // A blank line at the end would be removed with its line ending.
    size_t const last = out.size() < 2 ? 0 : out.rfind('\n', out.size() - 2) + 1;
    bool const isBlankLast =
        !removesLast_ && out.find_first_not_of(" \t\r\n", last) == std::string::npos;
    if (text_.size() > start && text_.back() != '\n' && !isBlankLast && out.ends_with('\n')) {
        out.pop_back();
        if (!out.empty() && out.back() == '\r')
            out.pop_back();
    }
    return out;
}

}  // namespace zlines
