// DialectChoices: the switches of a dialect, as a fuzz target chooses them.
#pragma once

#include <Z/dialects/table.h>

#include <array>
#include <bit>

#include "check.h"

// Returns a row of the table with some of its switches changed.
inline zdialects::Switches switchesOf(Choices& choices)
{
    using zdialects::Switches;
    Switches const row =
        zdialects::rowAt(static_cast<int>(1 + choices.below(zdialects::kRowCount - 1))).switches;
    Switches varied = row;
    for (unsigned changes = choices.below(4); changes-- > 0;) {
        auto bytes = std::bit_cast<std::array<uint8_t, zdialects::kSwitchCount>>(varied);
        unsigned const index = choices.below(zdialects::kSwitchCount);
        unsigned const value = choices.byte() % 32;
        if (!zdialects::isValue(static_cast<int>(index), static_cast<int>(value)))
            continue;
        bytes[index] = static_cast<uint8_t>(value);
        auto const changed = std::bit_cast<Switches>(bytes);
        if (zdialects::isVariation(row, changed))
            varied = changed;
    }
    return varied;
}
