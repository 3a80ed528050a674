// Dialects: the library reads any bytes with any switches as the model of the tests does.
#include <Z/dialects/switched_dialect.h>
#include <Z/dialects/table.h>

#include <array>
#include <bit>

#include "DialectReading.h"
#include "check.h"

namespace {

using zdialects::Switches;

// A row of the table, and some of its switches changed.
Switches switchesOf(Choices& choices)
{
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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    Choices choices(data, size);
    zdialects::SwitchedDialect const dialect(switchesOf(choices));
    std::string const text = choices.rest();
    std::string const difference = dialect_model::differenceFromModel(
        text, dialect_model::modelSwitches(dialect.switches()), dialect);
    if (!difference.empty())
        fprintf(stderr, "%s\n", difference.c_str());
    check(difference.empty(), "a file is read as the model reads it");

    std::vector<zlines::Line> lines;
    auto const again = zdialects::dialectWith(dialect.switches());
    again->split(text, lines);
    check(lines.empty() == (text.empty() || text == "\xef\xbb\xbf"), "each file has lines");
    return 0;
}
