// character_set: a set of multibyte characters, for searches in long strings. Not installed.
#pragma once

#include <limits.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/random.h>

#include <bit>
#include <utility>

#include "qvr.h"

namespace ztext {

// Single bytes are in a table of flags. A longer character is stored as an integer: at most eight
// bytes, none of them zero, padded with zeros, so the integer is unique. Integers are in a hash
// table with open addressing. The hash is multiplicative with a random factor per process: no input
// can be crafted to collide.
class CharacterSet {
public:
    static constexpr size_t kMaxCharacterSize = qvrMbLenMax;

    CharacterSet() = default;
    CharacterSet(CharacterSet const&) = delete;
    CharacterSet& operator=(CharacterSet const&) = delete;
    ~CharacterSet() { free(wide_); }

    /// Adds a character; ignores one that is longer than any valid character. Returns false if
    /// memory is short.
    bool add(char const* character, size_t length)
    {
        if (length == 1)
            single_[static_cast<unsigned char>(*character)] = true;
        else if (length > 1 && length <= kMaxCharacterSize)
            return addWide(numberOf(character, length));
        return true;
    }

    bool contains(char const* character, size_t length) const
    {
        if (length == 1)
            return single_[static_cast<unsigned char>(*character)];
        return count_ != 0 && length <= kMaxCharacterSize &&
               *slotOf(numberOf(character, length)) != 0;
    }

private:
    static_assert(kMaxCharacterSize <= sizeof(uint64_t));

    // A random odd number; without entropy, one from the load address of the library.
    static uint64_t factor()
    {
        static uint64_t const drawn = [] {
            uint64_t number = 0;
            if (getrandom(&number, sizeof number, GRND_NONBLOCK) != sizeof number)
                number = 0x9E3779B97F4A7C15u ^ reinterpret_cast<uintptr_t>(&numberOf);
            return number | 1;
        }();
        return drawn;
    }

    static uint64_t numberOf(char const* character, size_t length)
    {
        uint64_t number = 0;
        memcpy(&number, character, length);
        return number;
    }

    // Returns the slot of the number, or the free slot where it would be inserted.
    uint64_t* slotOf(uint64_t number) const
    {
        size_t slot = number * factor() >> (64 - std::countr_zero(slots_));
        while (wide_[slot] != 0 && wide_[slot] != number)
            slot = (slot + 1) & (slots_ - 1);
        return wide_ + slot;
    }

    bool addWide(uint64_t number)
    {
        if (2 * (count_ + 1) > slots_ && !grow())
            return false;
        uint64_t* const slot = slotOf(number);
        count_ += *slot == 0;
        *slot = number;
        return true;
    }

    bool grow()
    {
        size_t const slots = slots_ == 0 ? 32 : 2 * slots_;
        auto* const grown = static_cast<uint64_t*>(calloc(slots, sizeof(uint64_t)));
        if (grown == nullptr)
            return false;
        uint64_t* const old = std::exchange(wide_, grown);
        size_t const oldSlots = std::exchange(slots_, slots);
        for (size_t i = 0; i < oldSlots; ++i)
            if (old[i] != 0)
                *slotOf(old[i]) = old[i];
        free(old);
        return true;
    }

    bool single_[UCHAR_MAX + 1] = {};
    uint64_t* wide_ = nullptr;  // the longer characters as integers; 0: a free slot
    size_t slots_ = 0;          // 0 or a power of 2, of which at least half are free
    size_t count_ = 0;
};

}  // namespace ztext
