// counting: the values of a key that count in a dialect.
#pragma once

#include <algorithm>
#include <string_view>

#include "characters.h"
#include "switches.h"

namespace zdialects {

// Indexes of values.
struct ValueRange {
    int first;
    int end;

    int count() const { return end - first; }
};

/// Returns whether each line of the key counts although only one line of most keys does.
inline bool isListKey(Switches const& switches, std::string_view key)
{
    if (switches.repeatedKey != RepeatedKey::lastOrList &&
        switches.repeatedKey != RepeatedKey::lastOrPhpList)
        return false;
    if (key.size() > 2 && key.ends_with("[]"))
        return true;
    auto const isKey = [key](std::string_view name) {
        return std::equal(key.begin(), key.end(), name.begin(), name.end(),
                          [](char a, char b) { return foldedCase(a) == b; });
    };
    return switches.repeatedKey == RepeatedKey::lastOrPhpList &&
           (isKey("extension") || isKey("zend_extension"));
}

/// Returns whether only one line of a key is valid.
inline bool countsOnce(Switches const& switches, std::string_view key)
{
    return !switches.isStanzaFormat() && switches.repeatedKey != RepeatedKey::values &&
           !isListKey(switches, key);
}

/// Returns the values that count of a key with `count` values.
/// range   `afterReset` returns the index past the last empty value, or 0 without an empty value.
///         It is called if empty values are resets.
template <class AfterReset>
ValueRange countingRange(Switches const& switches, std::string_view key, int count,
                         AfterReset afterReset)
{
    if (countsOnce(switches, key) && count > 0)
        return switches.repeatedKey == RepeatedKey::first ? ValueRange{0, 1}
                                                          : ValueRange{count - 1, count};
    return {switches.emptyValues == EmptyValues::reset ? afterReset() : 0, count};
}

}  // namespace zdialects
