// line_rules: lines without their neighbours, and names as a file writes them, in any dialect.
#pragma once

#include <string>
#include <string_view>

#include "../lines/dialect.h"

namespace zdialects {

class LineRules {
public:
    /// range   the dialect outlives the object.
    explicit LineRules(zlines::Dialect const& dialect) : dialect_(dialect) {}

    zlines::Dialect const& dialect() const { return dialect_; }

    /// Return a name as the file writes it.
    std::string stanzaName(std::string_view text, zlines::Line const& header) const;
    std::string keyName(std::string_view text, zlines::Line const& line) const;

    /// Return the identity of a name: two names are equal if their identities are. NAME]1 is NAME
    /// where each header starts a stanza.
    std::string stanzaIdentity(std::string_view name) const;
    std::string keyIdentity(std::string_view name) const;

    /// Returns whether an empty value resets the values above it.
    bool hasResets() const;

    /// Returns whether a key ignores its spaces.
    bool dropsBlanks() const;

    // A line without its neighbours.
    struct LoneLine {
        zlines::LineKind kind = zlines::otherLine;
        std::string name = {};  // of a header or a key, as written
        std::string value = {};
    };

    /// Reads a line as if it were the only one below a header.
    /// range   without a line ending.
    LoneLine readAlone(std::string_view line) const;

private:
    zlines::Dialect const& dialect_;
};

}  // namespace zdialects
