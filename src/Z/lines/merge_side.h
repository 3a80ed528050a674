// merge_side: one of the files of a merge: stanzas, keys with their values, and comments that
// belong to the key or header below them.
#pragma once

#include <list>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "outline.h"

namespace zlines {

// A comment line.
struct SideComment {
    std::string_view text;   // with its mark
    std::string_view words;  // without
    bool isBelowBlank = false;

    bool operator==(SideComment const& other) const { return words == other.words; }
};

struct SideKey {
    std::string_view spelled;
    std::vector<std::string> values;
    std::vector<uint32_t> valueLines;
    std::vector<uint32_t> otherLines;  // without a value
    std::vector<SideComment> comments;
    bool isBelowBlank = false;
};

struct SideStanza {
    std::string_view spelled;
    uint32_t header = kNone;             // its first line; kNone: the part above the first header
    std::vector<uint32_t> sections;      // of the outline
    std::vector<std::string_view> keys;  // in the order of the text, as in `contents`
    std::map<std::string, SideKey, std::less<>> contents;
    std::vector<SideComment> comments;
    bool isBelowBlank = false;
};

// The names of two stanzas that no header can have: the part above the first header, whose comments
// are those at the start of the text, and the comments at its end.
inline constexpr char kTopOfText[] = "\n";
inline constexpr char kEndOfText[] = "\n\n";

// The first character of the name of a line without a meaning, which has comments but is not a key.
// The comments stay with the line, which is not merged.
inline constexpr char kOtherLine = '\n';

// A header, the first line of a key, or a comment, in the order of the text. The names are views of
// strings of the side.
struct SideEntry {
    enum Kind { header, key, comment };

    Kind kind;
    std::string_view stanza;  // of a comment: the stanza or key that it belongs to
    std::string_view name;    // of the key; empty: the header
    SideComment text;
    bool isBelowBlank = false;
};

class MergeSide {
public:
    enum Listing { withoutEntries, withEntries };

    /// range   `text` outlives the object. If `base` is not null, a stanza that is not joined has
    ///         the name of the same stanza there, whatever its number; a further stanza has a name
    ///         that depends on its contents. Only `withEntries` gives the side entries.
    MergeSide(std::string_view text, Dialect const& dialect, MergeSide const* base = nullptr,
              Listing listing = withoutEntries);

    /// As above, with the names of stanzas that are not joined. The names are ignored if their
    /// number differs.
    MergeSide(std::string_view text, Dialect const& dialect, std::vector<std::string> const& names);
    MergeSide(MergeSide const&) = delete;
    MergeSide& operator=(MergeSide const&) = delete;

    Outline const& outline() const { return outline_; }

    /// Returns the positions of the lines of a section with a header: from the first comment that
    /// belongs to the header to the end of the last key.
    std::pair<uint32_t, uint32_t> rangeOf(uint32_t section) const;
    std::vector<std::string> const& stanzas() const { return order_; }  // in the order of the text

    /// Returns the entries, and leaves the side without them.
    std::list<SideEntry> takeEntries() { return std::move(entries_); }

    /// Return null if the name is not found.
    SideStanza const* find(std::string_view stanza) const;
    SideKey const* find(std::string_view stanza, std::string_view key) const;

    /// Returns the comments of a header or, if `key` is not empty, of a key.
    std::vector<SideComment> commentsOf(std::string_view stanza, std::string_view key) const;

private:
    void read(std::vector<std::string> const& names);
    void addSection(Section const& section, std::string const& name);
    void addKey(std::string const& stanza, uint32_t line);
    void addOtherLine(std::string const& stanza, uint32_t line);
    void takeComments(std::string const& stanza, std::string const& key);
    void takeCommentsAtStart(uint32_t line);
    void addEntry(SideEntry const& entry);
    bool isBelowBlank(uint32_t line) const;

    Outline outline_;
    std::vector<std::string> order_;
    std::map<std::string, SideStanza, std::less<>> stanzas_;
    Listing const listing_ = withoutEntries;
    std::list<SideEntry> entries_;
    std::vector<uint32_t> pending_;  // comment lines whose key or header follows
    bool isAtStart_ = true;
};

}  // namespace zlines
