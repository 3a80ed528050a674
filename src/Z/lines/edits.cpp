#include "edits.h"

#include <algorithm>
#include <tuple>

namespace zlines {

std::string Edits::compose()
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
    uint32_t done = 0;
    for (Edit const& edit : edits_) {
        Replacement const& change = edit.change;
        if (change.begin > done) {
            out += slice(text_, done, change.begin);
            done = change.begin;
        }
        if (edit.order != changes && !out.empty() && out.back() != '\n')
            out += edit.lineEnding;
        out += change.text;
        done = std::max(done, change.end);
    }
    out += text_.substr(done);
    if (!text_.empty() && text_.back() != '\n' && !out.empty() && out.back() == '\n') {
        out.pop_back();
        if (!out.empty() && out.back() == '\r')
            out.pop_back();
    }
    return out;
}

}  // namespace zlines
