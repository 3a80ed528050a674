// comment_splitter: splits a comment into the lines that are written.
#pragma once

#include <string.h>

#include <string_view>

#include "comment_form.h"

namespace zstanza {

// Splits a comment at newlines, and where a line would be too long to be read back as one line.
// Every line after the first needs a mark: the caller adds a missing one.
class CommentSplitter {
public:
    explicit CommentSplitter(std::string_view comment, CommentForm const& form = {}) : form_(form)
    {
        char const* const end = comment.data() + comment.size();
        isClosed_ = !comment.empty() && end[-1] == '\n';  // no line follows the last newline
        rest_ = {comment.data(), comment.size() - (isClosed_ ? size_t{1} : size_t{0})};
        CommentSplitter counting(*this, 0);
        do {
            bytes_ += counting.size() + 1;
            ++count_;
        } while (counting.advance());
    }

    size_t count() const { return count_; }
    size_t bytes() const { return bytes_; }  // of all lines with a missing mark and a zero byte

    /// Calls `call(bool lacksMark, std::string_view line)` for each line; `lacksMark` is true
    /// if the mark is missing.
    template <class Call>
    void forEachLine(Call call) const
    {
        CommentSplitter splitter(*this, 0);
        do
            call(splitter.lacksMark(), splitter.line());
        while (splitter.advance());
    }

private:
    CommentSplitter(CommentSplitter const& other, int)
        : form_(other.form_), rest_(other.rest_), isClosed_(other.isClosed_)
    {
    }

    bool lacksMark() const { return !isFirst_ && (rest_.empty() || !form_.isMark(rest_[0])); }

    std::string_view line() const
    {
        size_t const maxLength = form_.maxLength - (lacksMark() ? 1 : 0);
        size_t const longest = rest_.size() < maxLength ? rest_.size() : maxLength;
        void const* const newline = memchr(rest_.data(), '\n', longest);
        return {rest_.data(),
                newline == nullptr
                    ? longest
                    : static_cast<size_t>(static_cast<char const*>(newline) - rest_.data())};
    }

    size_t size() const { return line().size() + size_t{lacksMark()}; }

    bool advance()
    {
        std::string_view const taken = line();
        char const* const at = taken.data() + taken.size();
        size_t const left = rest_.size() - taken.size();
        if (left == 0)
            return false;
        rest_ = *at == '\n' ? std::string_view(at + 1, left - 1) : std::string_view(at, left);
        isFirst_ = false;
        return true;
    }

    CommentForm const form_;
    std::string_view rest_;
    bool isClosed_ = false;
    bool isFirst_ = true;
    size_t count_ = 0;
    size_t bytes_ = 0;
};

}  // namespace zstanza
