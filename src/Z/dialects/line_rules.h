// line_rules: lines without their neighbours, and names as a file writes them, in any dialect.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "../lines/dialect.h"

namespace zdialects {

// The contents of a file with a header, and bytes below, as a dialect reads them.
struct LoneText {
    /// range   `bytes` have no line ending at the end.
    LoneText(zlines::Dialect const& dialect, std::string_view bytes);

    /// Returns the line that starts with the bytes; null if the header has the bytes.
    zlines::Line const* firstLine() const;

    /// Returns whether the bytes are one line, perhaps with continuations. It is the last line.
    bool isOneLine() const { return !lines.empty() && lines.back().begin == begin; }

    std::string text;
    size_t begin;  // of the bytes
    std::vector<zlines::Line> lines;
};

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

    /// Returns whether a comment continues after a backslash at the end of its line. It is read as
    /// a line that is passed over then.
    bool joinsComments() const;

    /// Returns whether a line starts with the mark of a comment, perhaps after spaces.
    bool startsComment(std::string_view line) const;

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
