// sample_line: whether a name or value reads back in a line of its own.
#pragma once

#include <string>
#include <string_view>

#include "switched_dialect.h"

namespace zdialects {

// Spells a line and reads it, so that no rule about names and values exists twice.
class SampleLine {
public:
    /// range   `dialect` outlives the object.
    explicit SampleLine(SwitchedDialect const& dialect) : dialect_(dialect) {}

    bool isValidStanza(std::string_view name) const;
    bool isValidKey(std::string_view name) const;

    /// Returns whether a new stanza can have this valid name. A stanza of a file can have others.
    bool canBeNewStanza(std::string_view name) const;

    /// Returns whether a new key can have this valid name. A key of a file can have others.
    bool canBeNew(std::string_view key) const;

    /// Returns whether a line of the key can have the value.
    bool isValidValue(std::string_view key, std::string_view value) const;

    /// Returns whether a key can be without a separator.
    bool canStandAlone() const;

private:
    std::string start() const;
    bool isShortEnough(std::string_view lines) const;

    SwitchedDialect const& dialect_;
};

}  // namespace zdialects
