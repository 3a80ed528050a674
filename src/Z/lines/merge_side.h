// merge_side: one of the files of a merge: stanzas, keys with their values, and comments that
// belong to the key or header below them.
#pragma once

#include <list>
#include <map>
#include <memory_resource>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "outline.h"

namespace zlines {

// A comment line.
struct SideComment {
    std::string_view text;  // with its mark
    uint32_t markLength = 0;
    uint32_t headerIndex = 0;  // of a header: its index in its stanza
    uint32_t line = kNone;     // the header or line of the key below it
    bool isBelowBlank = false;

    std::string_view words() const { return text.substr(markLength); }
    bool operator==(SideComment const& other) const { return words() == other.words(); }
};

class MergeSide;

// A key of a side, or no key: a small object that is copied. Its values are decoded by each call,
// because a merge of large files would need much memory for all of them.
class SideKey {
public:
    SideKey() = default;
    SideKey(MergeSide const& side, uint32_t index) : side_(&side), index_(index) {}

    explicit operator bool() const { return side_ != nullptr; }

    // The following functions need a key. The views and references live as long as the side.
    std::string_view name() const;     // as the dialect compares it
    std::string_view spelled() const;  // in the first line; empty: only comments have this name
    std::vector<std::string> values() const;
    template <class Call>
    void forEachValue(Call call) const;  // as call(std::string_view); the view ends with the call
    bool hasValues() const;
    uint32_t firstLine() const;  // kNone: only comments have this name
    std::vector<uint32_t> valueLines() const { return linesWith(true); }
    std::vector<uint32_t> otherLines() const { return linesWith(false); }  // without a value
    std::vector<uint32_t> lines() const;
    std::vector<SideComment> comments() const;
    bool isBelowBlank() const;

    bool isSame(SideKey const& other) const
    {
        return side_ == other.side_ && index_ == other.index_;
    }

    /// Returns whether both have the same values; a missing key differs from every other key.
    bool hasSameValues(SideKey const& other) const;

    /// As hasSameValues(), with the lines without a value.
    bool hasSameLineValues(SideKey const& other) const;

    /// Returns whether the lines with a value are the same, too; line endings after them are not
    /// compared.
    bool hasSameLines(SideKey const& other) const;

    /// Returns the line with a value, without its line ending. Empty: a header is on the line, too.
    std::string_view textOf(uint32_t line) const;

private:
    std::vector<uint32_t> linesWith(bool hasValue) const;
    bool isValue(uint32_t line) const;

    MergeSide const* side_ = nullptr;
    uint32_t index_ = 0;
};

struct SideStanza {
    std::string_view spelled;
    uint32_t number = 0;      // in the order of arrival
    uint32_t header = kNone;  // its first line; kNone: the part above the first header
    uint32_t headerCount = 0;
    std::vector<uint32_t> sections;  // of the outline
    std::vector<uint32_t> keys;      // for MergeSide::key(), in the order of the text
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
    enum Kind : uint8_t { header, key, comment };

    Kind kind;
    bool isBelowBlank;
    bool isBelowComment;         // of a new comment: above the same line as the comment before it
    bool isMoved;                // of a comment: it belongs to another key or line than in the text
    uint32_t headerIndex;        // of a header or its comment: its index in its stanza
    std::string_view stanza;     // of a comment: the stanza or key that it belongs to
    std::string_view name = {};  // of the key; empty: the header
    std::string_view text = {};  // of a comment, with its mark
};

using EntryList = std::pmr::list<SideEntry>;

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

    /// Returns the entries, which belong to the side; the caller changes them.
    EntryList& entries() { return entries_; }

    /// Returns the number of names of keys, also of names that only comments have.
    size_t keyCount() const { return keys_.size(); }

    /// Returns null, or an empty key, if the name is not found.
    SideStanza const* find(std::string_view stanza) const;
    SideKey find(std::string_view stanza, std::string_view key) const;

    /// Returns a key by its number, which is below keyCount().
    SideKey key(uint32_t index) const { return {*this, index}; }

    /// Returns the number of a key, or kNone.
    uint32_t indexOf(std::string_view stanza, std::string_view key) const;

    /// Returns the comments of a header or, if `key` is not empty, of a key.
    std::vector<SideComment> commentsOf(std::string_view stanza, std::string_view key) const;

    /// Returns the comments above lines without a meaning.
    std::vector<SideComment> commentsOfOtherLines() const;

    /// Appends the lines between two positions of the text, each with another line ending; the last
    /// gets it even if it has none.
    void appendLines(std::pair<uint32_t, uint32_t> range, std::string_view ending,
                     std::string& out) const;

    /// Returns the positions of a line: its begin and its end, after its line ending.
    std::pair<uint32_t, uint32_t> rangeOfLine(uint32_t line) const
    {
        return {outline_.lines()[line].begin, outline_.endOf(line)};
    }

    /// Returns whether a blank line is right above a line of the text.
    bool isBelowBlank(uint32_t line) const;

private:
    friend class SideKey;

    // The comments of a key are a ring.
    struct KeyComment {
        SideComment comment;
        uint32_t next;
    };

    // The lines of a key are linked, because most keys have a single line.
    struct KeyRecord {
        std::string_view name;
        uint32_t stanza;            // its number
        uint32_t first = kNone;     // of its lines
        uint32_t last = kNone;      // of its lines
        uint32_t comments = kNone;  // the last, in commentsOfKeys_
    };

    void read(std::vector<std::string> const& names);
    void addSection(Section const& section, std::string const& name);
    void addKey(std::string const& name, SideStanza& stanza, uint32_t line);
    void addOtherLine(std::string const& stanza, uint32_t line);
    uint32_t recordOf(SideStanza const& stanza, std::string_view name, std::string const& space);
    uint32_t indexOf(uint32_t stanza, std::string_view key) const;
    size_t slotOf(uint32_t stanza, std::string_view key) const;
    void growIndex();
    void takeComments(std::string const& stanza, std::string const& key, uint32_t line,
                      uint32_t header = 0);
    void takeCommentsAtStart(uint32_t line);
    void addEntry(SideEntry const& entry);
    std::pair<std::string const, SideStanza>& stanzaOf(std::string const& name);

    // Calls `call(line)` for each line of a key.
    template <class Call>
    void forEachLine(uint32_t key, Call call) const
    {
        for (uint32_t line = keys_[key].first; line != kNone; line = nextOf(line))
            call(line);
    }

    // Returns the next line of the same key.
    uint32_t nextOf(uint32_t line) const { return next_.empty() ? kNone : next_[line]; }

    Outline outline_;
    std::vector<std::string> order_;
    std::map<std::string, SideStanza, std::less<>> stanzas_;
    std::vector<KeyRecord> keys_;
    std::vector<uint32_t> index_;  // of keys_, plus 1: open addressing with linear probing
    std::vector<uint32_t> next_;   // of each line; empty while each key has a single line
    std::vector<KeyComment> commentsOfKeys_;
    Listing const listing_ = withoutEntries;
    std::pmr::monotonic_buffer_resource entryMemory_;  // of entries_
    EntryList entries_{&entryMemory_};
    std::vector<uint32_t> pending_;  // comment lines whose key or header follows
    bool isAtStart_ = true;
};

template <class Call>
void SideKey::forEachValue(Call call) const
{
    std::string space;
    side_->forEachLine(index_, [&](uint32_t line) {
        if (isValue(line))
            call(side_->outline_.value(line, space));
    });
}

}  // namespace zlines
