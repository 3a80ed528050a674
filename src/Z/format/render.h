// render: writes the result of a parsed context, conversion by conversion.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "../zsnprintf.h"
#include "qvr.h"

namespace zformat {

constexpr int64_t kTooLong = int64_t{INT32_MAX} + 1;  // bytes; the smallest length that fails

// A conversion has a width, or a precision, only if one of these flags is set.
constexpr uint32_t kHasWidth = zprintfWidth | zprintfStarWidth | zprintfWidthOf8;
constexpr uint32_t kHasPrecision = zprintfPrecision | zprintfStarPrecision | zprintfPrecisionOf8;

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

// Writes one conversion into at most `capacity` bytes at `out` and returns the length that it
// needs, or a negative value. If `capacity` is not 0, one more byte past it may be used.
using Renderer = int64_t(qvr_cs_t codeset, ZPrintfConversion_6_0 const& conversion,
                         ZPrintfArgument_6_0 const* arguments, char* out, size_t capacity);

Renderer render_double;  // doubles.cpp

extern Renderer* const kRenderers[];  // for each type code

// Implements zvsnprintf_render_6_0, for any size.
int render(ZPrintfContext_6_0 const& context, char* out, size_t size);

}  // namespace zformat
