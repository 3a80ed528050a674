// companion_records: the form of a companion file, which holds the obfuscated values.
//
// A record is a category, a key, a value and an empty string, each with its zero byte. The records
// are compressed together, without the last zero byte.
#pragma once

#include <string.h>

#include <string_view>

#include "../ZBuffer.h"
#include "../ZException.h"
#include "../ZSqueeze.h"
#include "text_buffer.h"

namespace zstanza {

// Reads one record at `at`, and advances `at` past it.
struct CompanionRecord {
    explicit CompanionRecord(char const*& at) : category(take(at)), key(take(at)), value(take(at))
    {
        ++at;  // the empty string
    }

    static std::string_view take(char const*& at)
    {
        std::string_view const text(at, strlen(at));
        at += text.size() + 1;
        return text;
    }

    std::string_view category;
    std::string_view key;
    std::string_view value;
};

// Decompresses the contents of a companion file.
class CompanionReader {
public:
    /// owns    `buffer` is borrowed while the reader is used.
    CompanionReader(char const* path, ZBuffer_6_0& buffer);

    /// Decompresses into `block`, which has setCapacity() and chars(), and counts the records.
    /// Returns their size in bytes; 0 without records.
    /// throws  ZPropertiesInvalidDataException_6_0 (path, "", 0) if the contents cannot be
    ///         decompressed, exceed 256 MiB, or are not records.
    template <class Block>
    size_t expand(Block& block, size_t& records)
    {
        // One byte more for the zero byte that the writer omits.
        do
            block.setCapacity(capacity_ + 1);
        while (!expandInto(block.chars()));
        if (length_ == 0)
            return 0;
        block.setCapacity(length_ + 1);
        return countRecords(block.chars(), records);
    }

private:
    bool expandInto(char* bytes);
    size_t countRecords(char* bytes, size_t& records);

    ZPropertiesInvalidDataException_6_0 refusal_;
    ZSqueeze_6_0 squeeze_;
    size_t maxSize_;
    size_t capacity_;
    size_t length_ = 0;
};

// Composes the contents of a companion file.
class CompanionWriter {
public:
    explicit CompanionWriter(char const* path) : refusal_(path, "", 0) {}

    /// throws  ZPropertiesInvalidDataException_6_0 (path, "", 0) if the records exceed 256 MiB.
    void add(std::string_view category, std::string_view key, std::string_view value);

    /// Stores the contents in `buffer`, which is empty if no record was added.
    void compress(ZBuffer_6_0& buffer);

private:
    ZPropertiesInvalidDataException_6_0 refusal_;
    TextBuffer records_;
};

}  // namespace zstanza
