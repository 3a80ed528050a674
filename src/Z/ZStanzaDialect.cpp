#include "ZStanzaDialect.h"

#include <string.h>

#include <array>
#include <bit>
#include <string_view>
#include <type_traits>

#include "ZException.h"
#include "ZStanzaDialect_p.h"
#include "dialects/recognition.h"
#include "dialects/suggestion.h"
#include "dialects/table.h"
#include "memory/out_of_memory.h"

static_assert(sizeof(ZStanzaDialect_6_0) == 72);
static_assert(std::is_trivially_copyable_v<ZStanzaDialect_6_0>);

namespace {

constexpr char kSource[] = "src/Z/ZStanzaDialect";

enum RaiseSite { raiseInGet = 71, raiseInSet = 72, raiseInReadsAs = 73, raiseInRecognised = 74 };

}  // namespace

ZStanzaDialect_6_0::ZStanzaDialect_6_0()
    : name_(zdialects::rowAt(zdialects::rowStanza).name), switches_{}
{
    memcpy(switches_, &zdialects::rowAt(zdialects::rowStanza).switches, zdialects::kSwitchCount);
}

int ZStanzaDialect_6_0::named(char const* name, ZStanzaDialect_6_0& out)
{
    std::string_view const text = name == nullptr ? "" : name;
    std::string_view const plain = text.substr(0, text.find(','));
    zdialects::Row const* const row = zdialects::findRow(plain);
    if (row == nullptr)
        return 0;
    zdialects::Switches switches = row->switches;
    if (plain.size() < text.size() &&
        !zdialects::applyVariations(text.substr(plain.size() + 1), switches))
        return 0;
    out.name_ = row->name;
    memset(out.switches_, 0, sizeof out.switches_);
    memcpy(out.switches_, &switches, sizeof switches);
    return 1;
}

int ZStanzaDialect_6_0::recognised(char const* path, char const* text, size_t length,
                                   ZStanzaDialect_6_0& out)
{
    if (path == nullptr)
        return 0;
    char const* const name = zmemory::translateBadAlloc(kSource, raiseInRecognised, [&] {
        return zdialects::recognise(path, {text, length});
    });
    return name == nullptr ? 0 : named(name, out);
}

char const* ZStanzaDialect_6_0::readsAs(char const* text, size_t length)
{
    return zmemory::translateBadAlloc(kSource, raiseInReadsAs, [&]() -> char const* {
        zdialects::Row const* const row = zdialects::suggest({text, length});
        return row == nullptr ? nullptr : row->name;
    });
}

char const* ZStanzaDialect_6_0::nameAt(int index)
{
    return index < 0 || index >= zdialects::kRowCount ? nullptr : zdialects::rowAt(index).name;
}

int ZStanzaDialect_6_0::get(ZStanzaSwitch which) const
{
    if (which < 0 || which >= zdialects::kSwitchCount)
        ZInvalidParameterException_6_0().throwException(kSource, raiseInGet);
    return switches_[which];
}

void ZStanzaDialect_6_0::set(ZStanzaSwitch which, int value)
{
    if (!zdialects::isValue(which, value))
        ZInvalidParameterException_6_0().throwException(kSource, raiseInSet);
    ZStanzaDialect_6_0 changed = *this;
    changed.switches_[which] = static_cast<unsigned char>(value);
    if (!zdialects::isVariation(zdialects::switchesOf(*this), zdialects::switchesOf(changed)))
        ZInvalidParameterException_6_0().throwException(kSource, raiseInSet);
    *this = changed;
}

zdialects::Switches zdialects::switchesOf(ZStanzaDialect_6_0 const& dialect)
{
    std::array<uint8_t, kSwitchCount> bytes;
    for (int i = 0; i < kSwitchCount; ++i)
        bytes[static_cast<size_t>(i)] =
            static_cast<uint8_t>(dialect.get(static_cast<ZStanzaSwitch>(i)));
    return std::bit_cast<Switches>(bytes);
}
