// JournalForm: encodes a journal by its documented form.
#pragma once

#include <stdint.h>
#include <zlib.h>

#include <string>
#include <utility>

#include "JournaledFileFixture.h"

inline void putNumber(std::string& out, uint64_t number, int bytes)
{
    for (int i = 0; i < bytes; ++i)
        out += static_cast<char>(number >> (8 * i));
}

inline constexpr uint64_t kNone = ~uint64_t{0};

inline uint32_t crcOf(std::string const& bytes)
{
    return static_cast<uint32_t>(
        crc32(0, reinterpret_cast<Bytef const*>(bytes.data()), static_cast<uInt>(bytes.size())));
}

inline uint32_t adlerOf(std::string const& bytes)
{
    return static_cast<uint32_t>(
        adler32(1, reinterpret_cast<Bytef const*>(bytes.data()), static_cast<uInt>(bytes.size())));
}

// Returns a journal in the form of docs/durability.md.
inline std::string journalOf(Pair const& before, Pair const& after, std::string const& path)
{
    std::string oldMiddle = before.text;
    std::string newMiddle = after.text;
    std::string beginning;
    std::string end;
    while (!oldMiddle.empty() && !newMiddle.empty() && oldMiddle[0] == newMiddle[0]) {
        beginning += oldMiddle[0];
        oldMiddle.erase(0, 1);
        newMiddle.erase(0, 1);
    }
    while (!oldMiddle.empty() && !newMiddle.empty() && oldMiddle.back() == newMiddle.back()) {
        end.insert(0, 1, oldMiddle.back());
        oldMiddle.pop_back();
        newMiddle.pop_back();
    }
    std::string moved;
    if (oldMiddle.size() != newMiddle.size())
        std::swap(end, moved);

    std::string out = "ZSTORE2\n";
    putNumber(out, beginning.size(), 8);
    putNumber(out, end.size(), 8);
    putNumber(out, oldMiddle.size(), 8);
    putNumber(out, newMiddle.size(), 8);
    putNumber(out, moved.size(), 8);
    putNumber(out, after.companion.empty() ? kNone : after.companion.size(), 8);
    putNumber(out, before.companion.empty() ? kNone : before.companion.size(), 8);
    putNumber(out, before.companion.empty() ? 0 : crcOf(before.companion), 4);
    putNumber(out, adlerOf(beginning), 4);
    putNumber(out, adlerOf(end), 4);
    putNumber(out, path.size(), 4);
    out += path + oldMiddle + newMiddle + moved + after.companion;
    uint32_t const crc = crcOf(out);
    putNumber(out, crc != 0 ? crc : 1, 4);
    return out;
}

// Returns four bytes; appended to `bytes`, they make the CRC-32 0.
inline std::string bytesToZeroCrc(std::string const& bytes)
{
    z_crc_t const* const table = get_crc_table();
    uint32_t state = ~uint32_t{0};  // after the four bytes
    for (int i = 0; i < 4; ++i) {
        uint32_t index = 0;
        while ((table[index] ^ state) >> 24 != 0)
            ++index;
        state = (state ^ static_cast<uint32_t>(table[index])) << 8 | index;
    }
    std::string out;
    putNumber(out, state ^ ~crcOf(bytes), 4);
    return out;
}
