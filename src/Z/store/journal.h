// journal: the format of a journal, and the decision whether it describes the text of a file.
//
// Numbers are little-endian:
//
//     0   8  "ZSTORE2\n"
//     8   8  length of the prefix that stays
//    16   8  length of the suffix that stays; 0 if old and new text differ in length
//    24   8  length of the old middle
//    32   8  length of the new middle
//    40   8  length of the suffix that moves
//    48   8  length of the new companion; all ones: no companion
//    56   8  length of the old companion; all ones: no companion
//    64   4  CRC-32 of the old companion
//    68   4  Adler-32 of the prefix that stays
//    72   4  Adler-32 of the suffix that stays
//    76   4  length of the companion's path; 0: the companion does not change
//    80      the path, the old middle, the new middle, the suffix that moves, the new companion
//         4  CRC-32 of all preceding bytes, 1 in place of 0
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <string_view>

#include "../files/bytes.h"
#include "text_diff.h"

namespace zstore {

using namespace zfiles;

struct Journal {
    static constexpr size_t kChecksumSize = 4;

    TextDiff diff;
    uint32_t prefixChecksum = 0;
    uint32_t suffixChecksum = 0;
    std::string companion;  // path; empty: it does not change
    bool newIsNone = true;
    std::string_view newCompanion;
    bool oldIsNone = true;
    uint64_t oldLength = 0;
    uint32_t oldChecksum = 0;

    Bytes bytes;  // if the journal was read: the views refer to them

    /// Returns the fixed fields and the companion's path.
    std::string header() const;

    /// Returns the last bytes of a journal with the CRC-32 `crc`. They are never 0: zero bytes mark
    /// a journal as invalid.
    static std::string trailer(uint32_t crc);

    /// Parses `bytes`. Returns false if they are not a complete journal.
    bool parse();

    /// Returns whether the companion file is the old companion, the new one, or the new one after
    /// an interrupted write in place: a prefix of it, with zeros for blocks that the disk lacks.
    bool describesCompanion(bool present, std::string_view contents) const;

    /// Returns whether `text` is the old text, the new text, or an interrupted rewrite: prefix and
    /// suffix unchanged; between them, at each offset, the old byte or the new one. Past the end
    /// of the shorter text a zero byte is valid too: truncation zeroes the rest of the last block,
    /// which may reach the disk before the new length does.
    bool isPartialRewrite(std::string_view text) const;

    /// Returns whether `text`, a partial rewrite, is the old text and differs from the new one.
    bool isOld(std::string_view text) const;

    /// Returns whether `text`, a partial rewrite, is the new text.
    bool isNew(std::string_view text) const;

    /// Returns the new text; `text` is a partial rewrite.
    /// throws  std::bad_alloc.
    Bytes newText(std::string_view text) const;
};

}  // namespace zstore
