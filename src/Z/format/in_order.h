// in_order: formats in one step, if the arguments are used in the order of the list.
//
// Each conversion fetches its own arguments when it is written, so that none is stored in between.
#pragma once

#include <stddef.h>

#include "arguments.h"
#include "qvr.h"

namespace zformat {

constexpr int kFailed = -1;
constexpr int kNotInOrder = -2;

// Formats as parse() and render() do. Returns kNotInOrder, with `out` and `args` untouched, for a
// format with an argument number or with many conversions.
int formatInOrder(char* out, size_t size, qvr_cs_t codeset, char const* format, ArgumentList& args);

}  // namespace zformat
