// output: a bounded position to write to.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

namespace zformat {

// Copies `n` bytes. Most parts of a result are so short that a call of memcpy would cost more.
inline void copyBytes(char* to, char const* from, size_t n)
{
    if (n >= 16) {
        memcpy(to, from, n);
    } else if (n >= 8) {
        uint64_t head, tail;
        memcpy(&head, from, 8);
        memcpy(&tail, from + n - 8, 8);
        memcpy(to, &head, 8);
        memcpy(to + n - 8, &tail, 8);
    } else {
        for (size_t i = 0; i < n; ++i)
            to[i] = from[i];
    }
}

// An output position and the capacity left. Bytes that do not fit are dropped.
class Output {
public:
    Output(char* at, size_t space) : at_(at), space_(space) {}

    void put(char const* text, size_t n)
    {
        n = n < space_ ? n : space_;
        copyBytes(at_, text, n);
        advance(n);
    }

    void put(char c)
    {
        if (space_ > 0) {
            *at_ = c;
            advance(1);
        }
    }

    void fill(char c, int64_t n)
    {
        if (n <= 0 || space_ == 0)
            return;
        size_t const fitting = static_cast<size_t>(n) < space_ ? static_cast<size_t>(n) : space_;
        memset(at_, c, fitting);
        advance(fitting);
    }

    // Writes a whole character, or ends the output if it does not fit.
    void putWhole(char const* character, size_t n)
    {
        if (n <= space_) {
            for (size_t i = 0; i < n; ++i)
                at_[i] = character[i];
            advance(n);
        } else {
            fill('\0', static_cast<int64_t>(space_));
        }
    }

    // Accounts for `n` bytes that were written at at().
    void advance(size_t n)
    {
        at_ += n;
        space_ -= n;
    }

    char* at() const { return at_; }
    size_t space() const { return space_; }

private:
    char* at_;
    size_t space_;
};

}  // namespace zformat
