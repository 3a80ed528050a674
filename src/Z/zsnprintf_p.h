// zsnprintf_p: what the halves of zsnprintf share: one output position and the renderers.
//
// Subsystem: text.  Stands on: zsnprintf, qvr.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "qvr.h"
#include "zsnprintf.h"

namespace zprintf {

// The flags without which there is no width, and no precision.
constexpr uint32_t kHasWidth = zprintfWidth | zprintfStarWidth | zprintfWidthOf8;
constexpr uint32_t kHasPrecision = zprintfPrecision | zprintfStarPrecision | zprintfPrecisionOf8;

// The digits of 00 to 99, two bytes each.
extern char const kDigitPairs[201];

// Copies `n` bytes. Most pieces of a text are shorter than the call of memcpy takes.
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

// A place to write and the room left there. What does not fit is dropped.
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

    // Writes a character whole or ends the text here.
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

    // Counts `n` bytes that were written at at().
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

// What get_render_params delivers, and whether a precision was given at all. A negative one from an
// argument was not, and neither was the 8 that a flag stands for.
struct RenderParams {
    int width;
    int precision;
    char padChar;
    bool hasPrecision;
};

RenderParams renderParams(ZPrintfConversion_6_0 const& conversion,
                          ZPrintfArgument_6_0 const* arguments);

// Writes one conversion into at most `room` bytes at `out` and returns the length that it needs, or
// a negative value. Behind `room` bytes, when there are any, lies one byte more that may be used.
using Renderer = int64_t(qvr_cs_t codeset, ZPrintfConversion_6_0 const& conversion,
                         ZPrintfArgument_6_0 const* arguments, char* out, size_t room);

Renderer render_double;  // zsnprintf_double.cpp

// Does the work of zvsnprintf_render_6_0, for any size.
int render(ZPrintfContext_6_0 const& context, char* out, size_t size);  // zsnprintf_render.cpp

}  // namespace zprintf
