// comment_splitter: a comment with newlines as the lines that it becomes.
#pragma once

#include <string.h>

#include <string_view>

#include "limits.h"

namespace zstanza {

// Cuts a comment into the lines that it becomes: at its line feeds, and where a line would be too
// long to be read back as one. Every line but the first gets a "#" when it has none.
class Pieces {
public:
    explicit Pieces(std::string_view comment)
    {
        char const* const end = comment.data() + comment.size();
        isClosed_ = !comment.empty() && end[-1] == '\n';  // the last line feed begins no line
        rest_ = {comment.data(), comment.size() - (isClosed_ ? size_t{1} : size_t{0})};
        Pieces counting(*this, 0);
        do {
            bytes_ += counting.size() + 1;
            ++count_;
        } while (counting.step());
    }

    size_t count() const { return count_; }
    size_t bytes() const { return bytes_; }  // of all texts with their terminators

    // Calls `call(bool isMarked, std::string_view)` for each piece; one that is marked lacks its
    // "#".
    template <class Call>
    void each(Call call) const
    {
        Pieces walk(*this, 0);
        do
            call(walk.lacksMark(), walk.piece());
        while (walk.step());
    }

private:
    Pieces(Pieces const& other, int) : rest_(other.rest_), isClosed_(other.isClosed_) {}

    bool lacksMark() const { return !isFirst_ && (rest_.empty() || rest_[0] != '#'); }

    std::string_view piece() const
    {
        size_t const room = kLongestLine - (lacksMark() ? 1 : 0);
        size_t const most = rest_.size() < room ? rest_.size() : room;
        void const* const feed = memchr(rest_.data(), '\n', most);
        return {rest_.data(), feed == nullptr ? most
                                              : static_cast<size_t>(static_cast<char const*>(feed) -
                                                                    rest_.data())};
    }

    size_t size() const { return piece().size() + size_t{lacksMark()}; }

    bool step()
    {
        std::string_view const taken = piece();
        char const* const at = taken.data() + taken.size();
        size_t const left = rest_.size() - taken.size();
        if (left == 0)
            return false;
        rest_ = *at == '\n' ? std::string_view(at + 1, left - 1) : std::string_view(at, left);
        isFirst_ = false;
        return true;
    }

    std::string_view rest_;
    bool isClosed_ = false;
    bool isFirst_ = true;
    size_t count_ = 0;
    size_t bytes_ = 0;
};

}  // namespace zstanza
