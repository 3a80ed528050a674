// journal: the form of a journal, and the decision whether it describes a text.
//
// Numbers are little-endian:
//
//     0   8  "ZSTORE2\n"
//     8   8  length of the prefix that stays
//    16   8  length of the suffix that stays; 0 if the lengths of the texts differ
//    24   8  length of the old middle
//    32   8  length of the new middle
//    40   8  length of the suffix that moves
//    48   8  length of the new companion; all ones: there must be none
//    56   8  length of the old companion; all ones: there was none
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

#include "bytes.h"
#include "text_diff.h"

namespace zstore {

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

    Bytes bytes;  // the views refer to them if the journal was read

    /// Returns everything before the texts.
    std::string header() const;

    /// Returns the last bytes of a journal whose CRC-32 is `crc`: never 0, which marks a journal
    /// as invalid.
    static std::string trailer(uint32_t crc);

    /// Parses `bytes`. Returns false if they are not a complete journal.
    bool parse();

    /// Returns whether the companion file is as the writer found it, as the writer wrote it, or
    /// as an interrupted writer leaves it that wrote it in place: a prefix of the new one, with
    /// zeros where the disk does not have a block yet.
    bool describesCompanion(bool present, std::string_view contents) const;

    /// Returns whether `text` is the old text, the new text, or an interrupted rewrite: prefix and
    /// suffix unchanged; between them, at each place, the old byte or the new one. Past the end
    /// of the shorter text a zero byte counts too: truncation zeroes the rest of the last block,
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
