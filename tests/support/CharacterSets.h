// CharacterSets: large sets of characters in UTF-8, for tests of the time that searches take.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>

// UTF-8 by arithmetic, independent of the code under test; surrogates too.
inline std::string utf8(uint32_t value)
{
    int const following = value < 0x80 ? 0 : value < 0x800 ? 1 : value < 0x10000 ? 2 : 3;
    static constexpr unsigned kLead[] = {0x00, 0xC0, 0xE0, 0xF0};
    std::string text(1, static_cast<char>(kLead[following] + (value >> 6 * following)));
    for (int i = following - 1; i >= 0; --i)
        text += static_cast<char>(0x80 + (value >> 6 * i) % 64);
    return text;
}

// Returns `count` characters of three bytes each, from U+4E00 on; at most 20,000.
inline std::string ideographs(size_t count)
{
    std::string set;
    for (size_t i = 0; i < count; ++i)
        set += utf8(static_cast<uint32_t>(0x4E00 + i));
    return set;
}

// A set of about 31,000 characters, and a string of about 25,000 that are not in it.
struct SearchedSet {
    std::string set;
    std::string outside;
};

// Chooses the characters whose slot in a table of 65,536 is one of the first.
template <class SlotOf>
SearchedSet searchedSet(SlotOf const& slotOf)
{
    SearchedSet chosen;
    size_t members = 0;
    for (uint32_t value = 0x10000; value < 0x110000; ++value) {
        std::string const character = utf8(value);
        size_t const slot = slotOf(character);
        if (slot >= 0x800)
            continue;
        // Every slot is taken; if the slots are true, each lookup scans all of them.
        if (members < 32000 && members % 32 != 31)
            chosen.set += character;
        else if (slot < 0x100)
            chosen.outside += character;
        ++members;
    }
    while (chosen.outside.size() < 100000)
        chosen.outside += chosen.outside;
    return chosen;
}

// Characters that collide in a table whose hash is the common one of the golden ratio.
inline SearchedSet collidingCharacters()
{
    return searchedSet([](std::string const& character) {
        uint64_t number = 0;
        std::memcpy(&number, character.data(), character.size());
        uint64_t const spread = (number ^ number >> 29) * 0x9E3779B97F4A7C15u;
        return static_cast<size_t>((spread ^ spread >> 32) & 0xFFFF);
    });
}

// Characters that were chosen at random, as many as collidingCharacters() returns.
inline SearchedSet scatteredCharacters()
{
    std::mt19937 random(65536);
    return searchedSet([&random](std::string const&) { return random() & 0xFFFF; });
}
