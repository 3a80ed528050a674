// table: the dialects by name, their switches, and the values that a switch can have.
#pragma once

#include <string>
#include <string_view>

#include "switches.h"

namespace zdialects {

struct Row {
    char const* name;
    Switches switches;
};

// Rows that the recognition of file names refers to.
enum RowIndex : uint8_t {
    rowStanza,
    rowSystemd,
    rowNetworkd,
    rowDesktop,
    rowGit,
    rowPhp,
    rowSamba,
    rowMysql,
    rowPython,
    rowPythonInline,
    rowQt,
    rowKconfig,
    rowEditorconfig,
    rowIni,
    rowWindows,
    rowSysctl,
    rowEnv,
    kRowCount
};

/// range   `index` is less than kRowCount.
Row const& rowAt(int index);

/// Returns the row of a dialect, or null.
Row const* findRow(std::string_view name);

/// Returns whether `value` is a value of switch `index`.
bool isValue(int index, int value);

/// Returns whether the switches of a dialect can change to `varied`: the stanza format
/// allows no change, and there must be a reader for all others.
bool isVariation(Switches const& original, Switches const& varied);

/// Applies variations such as "trailing=#;,heads=none": "NAME=VALUE" with the name of a switch; a
/// set is a sequence of characters such as "#;" or words with "+" between them. Returns false,
/// with `switches` unchanged, if the text has no meaning or the result is no variation.
bool applyVariations(std::string_view text, Switches& switches);

/// Returns the name of a row, and the variations of the row that give `switches`, in words. This is
/// a name for ZStanzaDialect_6_0::named().
std::string spellDialect(Row const& row, Switches const& switches);

}  // namespace zdialects
