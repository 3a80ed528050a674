// render: the output of formatted conversions: an output cursor and the renderers.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "../zsnprintf.h"
#include "qvr.h"

namespace zprintf {

// A conversion has a width, or a precision, only if one of these flags is set.
constexpr uint32_t kHasWidth = zprintfWidth | zprintfStarWidth | zprintfWidthOf8;
constexpr uint32_t kHasPrecision = zprintfPrecision | zprintfStarPrecision | zprintfPrecisionOf8;

// The digits of 00 to 99, two bytes each.
extern char const kDigitPairs[201];

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
    Output(char* at, size_t room) : at_(at), room_(room) {}

    void put(char const* text, size_t n)
    {
        n = n < room_ ? n : room_;
        copyBytes(at_, text, n);
        advance(n);
    }

    void put(char c)
    {
        if (room_ > 0) {
            *at_ = c;
            advance(1);
        }
    }

    void fill(char c, int64_t n)
    {
        if (n <= 0 || room_ == 0)
            return;
        size_t const fitting = static_cast<size_t>(n) < room_ ? static_cast<size_t>(n) : room_;
        memset(at_, c, fitting);
        advance(fitting);
    }

    // Writes a whole character, or ends the output if it does not fit.
    void putWhole(char const* character, size_t n)
    {
        if (n <= room_) {
            for (size_t i = 0; i < n; ++i)
                at_[i] = character[i];
            advance(n);
        } else {
            fill('\0', static_cast<int64_t>(room_));
        }
    }

    // Accounts for `n` bytes that were written at at().
    void advance(size_t n)
    {
        at_ += n;
        room_ -= n;
    }

    char* at() const { return at_; }
    size_t room() const { return room_; }

private:
    char* at_;
    size_t room_;
};

// The result of get_render_params, and whether a precision was given. A negative precision from an
// argument is not given, nor is the 8 of zprintfPrecisionOf8.
struct RenderParams {
    int width;
    int precision;
    char padChar;
    bool hasPrecision;
};

RenderParams renderParams(ZPrintfConversion_6_0 const& conversion,
                          ZPrintfArgument_6_0 const* arguments);

// Writes one conversion into at most `room` bytes at `out` and returns the length that it needs, or
// a negative value. If `room` is not 0, one more byte past it may be used.
using Renderer = int64_t(qvr_cs_t codeset, ZPrintfConversion_6_0 const& conversion,
                         ZPrintfArgument_6_0 const* arguments, char* out, size_t room);

Renderer render_double;  // doubles.cpp

// Implements zvsnprintf_render_6_0, for any size.
int render(ZPrintfContext_6_0 const& context, char* out, size_t size);

}  // namespace zprintf
