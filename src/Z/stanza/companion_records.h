// companion_records: the obfuscated values as a companion file holds them.
#pragma once

#include <string.h>

#include <string_view>

#include "../ZBuffer.h"
#include "../ZException.h"
#include "../ZSqueeze.h"
#include "text_buffer.h"

namespace zstanza {

// Takes the texts of one record from the front of a block.
struct ObfuscatedRecord {
    explicit ObfuscatedRecord(char const*& at) : category(take(at)), key(take(at)), value(take(at))
    {
        ++at;  // the empty text
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

// Expands the contents of a companion file.
class CompanionReader {
public:
    CompanionReader(char const* path, ZBuffer_6_0& buffer);

    // Expands the contents into `block`, a block with setRoom() and chars(). Returns how many bytes
    // of records it holds then, 0 when there are none, and stores how many records those are.
    template <class Block>
    size_t expand(Block& block, size_t& records)
    {
        // One byte more than the stream gives: the writer leaves out the last one, which is zero.
        do
            block.setRoom(room_ + 1);
        while (!expandInto(block.chars()));
        if (length_ == 0)
            return 0;
        block.setRoom(length_ + 1);
        return countRecords(block.chars(), records);
    }

private:
    bool expandInto(char* bytes);
    size_t countRecords(char* bytes, size_t& records);

    ZPropertiesInvalidDataException_6_0 refusal_;
    ZSqueeze_6_0 squeeze_;
    size_t most_;
    size_t room_;
    size_t length_ = 0;
};

// Composes the contents of a companion file.
class CompanionWriter {
public:
    explicit CompanionWriter(char const* path) : refusal_(path, "", 0) {}

    void add(std::string_view category, std::string_view key, std::string_view value);

    // Makes `buffer` the contents; empty when no record was added.
    void compress(ZBuffer_6_0& buffer);

private:
    ZPropertiesInvalidDataException_6_0 refusal_;
    TextBuffer records_;
};

}  // namespace zstanza
