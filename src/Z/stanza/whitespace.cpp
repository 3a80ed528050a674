#include "whitespace.h"

namespace zstanza {

WhitespaceTable::WhitespaceTable()
{
    for (int c = 0; c < 256; ++c)
        is[c] = isSpace(static_cast<char>(c));
}

}  // namespace zstanza
