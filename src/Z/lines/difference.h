// difference: the smallest change that gives the text of a file the wanted contents.
//
// Nothing is recorded while values change: the values of each key in the text are compared with
// the wanted values, and the two lists are aligned. Lines whose values stay are copied byte for
// byte. Stanzas and keys of the text keep their places.
//
// A stanza whose lines and entries are in the same order is compared line by line. For any other
// stanza the lines of the entries are looked up, which takes longer.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "document.h"
#include "edits.h"
#include "matching.h"
#include "name_hash.h"
#include "outline.h"
#include "style.h"

namespace zlines {

// A name, value or comment that no line of the format can hold. Empty parts do not apply; a comment
// is a value without a key.
struct Refusal {
    enum Reason {
        doesNotReadBack,
        continuesAbove,  // the line above continues in a line below it
        continuesBelow,  // the line below would continue the new line
        leavesNoKey      // the file would have neither a header nor a key
    };
    std::string stanza;
    std::string key;
    std::string value;
    Reason reason = doesNotReadBack;
};

class Difference {
public:
    /// range   the arguments but `history` outlive the object.
    ///         `names` is oldNames if the text has the names from before renames.
    ///         `steps` is removalsFirst if additions after removals may be left out.
    enum Names { oldNames, presentNames };
    enum Steps { removalsFirst, oneStep };
    Difference(std::string_view text, Dialect const& dialect, Document const& document,
               TextHistory const& history, Names names, Steps steps);

    bool isEmpty() const { return edits_.count() == 0; }

    /// Returns the text after the changes. `history` describes the old text before
    /// the call, and the new text after it.
    std::string compose(TextHistory& history);

    /// Returns whether all lines of the text are valid.
    bool hasValidLines() const { return outline_.isValid(); }

    /// Refuses an invalid file: a header is invalid, or there is no header and no key.
    /// throws  Refusal.
    /// range   `change` is the change that the refusal names.
    void requireValidText(Refusal const& change) const;

    /// Returns whether every edit changes a value that reads back in its line, so that the text
    /// after the edits has the wanted contents.
    bool isProven() const { return provenEdits_ == edits_.count(); }

    /// Returns whether new keys and stanzas are left out, because lines are removed: a second
    /// difference from the text without them gives the new lines their places and styles.
    bool isPartial() const { return isPartial_; }

    /// Returns the stanza, key and value of the first difference.
    Refusal const& first() const { return first_; }

    size_t count() const { return edits_.count(); }

private:
    // A stanza that is not in the order of the text.
    struct Reordered {
        uint32_t stanza;  // of the wanted contents
        uint32_t read;    // of the text
        Entries entries;
        std::vector<uint32_t> lineOf;     // of each entry: its comment or first key line, or kNone
        std::vector<uint32_t> movedFrom;  // of each entry: the old line of a comment that moves
    };

    struct NewComment {
        std::string_view text;
        bool isBelowBlank;
        uint32_t movedFrom;  // its old line, or kNone
    };

    // Lines of a removed stanza of the text.
    struct RemovedRange {
        uint32_t first;
        uint32_t end;
        uint32_t stanza;
    };

    // New keys that follow one another at a position.
    struct NewKeyRun {
        uint32_t position = kNone;
        std::vector<std::string> lines = {};  // of the last keys
        std::optional<Style> style = {};      // of the next, if it does not depend on the lines
    };

    // The position at which the next new line of a stanza is inserted.
    struct Placement {
        uint32_t position;
        uint32_t after;  // the line above, or kNone
        bool isAfterKey = false;
        bool isLastKnown = false;
        uint32_t last = kNone;                  // the last key line of the stanza, if it is known
        std::vector<NewComment> comments = {};  // that belong to the next line
        uint32_t headerIndex = 0;               // of the header that has them; else 0
        NewKeyRun run = {};
    };

    std::string_view nameOf(uint32_t stanza) const;
    void matchStanzas();
    std::vector<uint32_t> findStanzas();
    bool isRenamed(uint32_t stanza) const;
    void matchRenamedStanzas();
    uint32_t findRenamedTop();
    void insertTopHeader();
    bool hasHeaderComments() const;
    void renameHeader(uint32_t header, std::string_view name);
    void renameHeaders(ReadStanza const& stanza, std::string_view name);
    bool hasOtherName(ReadStanza const& stanza, std::string_view name);
    void respellHeaders(ReadStanza const& stanza, std::string_view name);
    void removeStanzas();
    void removeBlankAtStart();
    bool addsAfterRemovals();
    uint32_t removedKeyBelow(uint32_t after, ReadStanza const& stanza, std::string_view key) const;
    void removeStanza(uint32_t removed, uint32_t kept, std::vector<uint32_t> const& stanzaOf,
                      std::vector<uint32_t> const& stanzaAbove);
    void moveToEnd(ReadStanza& stanza, uint32_t first, uint32_t end);
    void removeRanges();
    bool isInRemovedStanza(uint32_t line) const;
    bool isBelowRemovedStanza(uint32_t after) const;
    bool becomesBlank(uint32_t line) const;
    uint32_t lineAbove(uint32_t after) const;
    Entries entriesOf(uint32_t stanza);

    bool compareInOrder(Entries entries, ReadStanza const& read);
    bool compareKey(Entry const& entry, uint32_t& line, uint32_t end);
    bool hasKey(Entry const& entry, uint32_t line);
    bool isRespelled(Entry const& entry, uint32_t line);

    // difference_values.cpp
    bool isNextParted(uint32_t stanza) const;
    void compareLines(Reordered& stanza);
    void compareSpaces(uint32_t line, std::string_view comment);
    void renameKey(uint32_t line, Entry const& entry);
    void compareValues(Entry const& entry, std::vector<uint32_t> const& lines);
    bool hasValues(Entry const& entry, std::vector<uint32_t> const& read);
    void alignValues(Entry const& entry, std::vector<uint32_t> const& read);
    void removeValues(Entry const& entry, std::vector<uint32_t> const& lines);
    std::string_view valueOf(Entry const& entry, size_t index) const;
    std::string_view lineOf(Entry const& entry, size_t index) const;
    void setValue(uint32_t line, std::string_view value, std::string_view copied = {});
    bool copyLine(uint32_t line, std::string_view key, std::string_view value,
                  std::string_view copied);
    void removeLine(uint32_t line);
    void insertValue(uint32_t model, uint32_t position, Edits::Order order, std::string_view value,
                     std::string_view copied = {});
    void keepCommentColumn(uint32_t line, Replacement& change) const;
    Replacement splitComments(Line const& line, uint32_t begin, Replacement& change) const;
    std::string lineAfter(uint32_t line, Replacement const& change) const;
    bool dropSpaces(uint32_t line, Replacement& change) const;
    std::string contextAbove(uint32_t above) const;
    bool readsBack(std::string_view context, size_t moved, std::string_view line, uint32_t below,
                   std::string_view key, std::string_view value) const;
    Refusal refusalBelow(uint32_t above, std::string_view key, std::string_view value) const;

    // difference_lines.cpp
    void place(Reordered const& stanza);
    void moveBelowTopHeader(Placement& at);
    uint32_t firstStaying(uint32_t first);
    void placeKey(Reordered const& stanza, Entry const& entry, bool isLast, Placement& at);
    void placeHeaderComments(Reordered const& stanza, uint32_t headerIndex, Placement& at);
    void moveBelowKey(Placement& at);
    void placeRemainingComments(Reordered const& stanza, Placement& at);
    bool hasLineBetween(uint32_t after, uint32_t line) const;
    void insertCommentsBelow(Placement& at, bool needsBlankBelow);
    void insertComments(Placement& at, uint32_t position, uint32_t after, LineKind below,
                        bool needsBlankBelow);
    void appendComments(std::vector<NewComment> const& comments, uint32_t after, bool isAtBlank,
                        LineKind below, std::string& out);
    void appendMoved(NewComment const& comment, uint32_t after, std::string& out) const;
    bool isBelowComment(uint32_t after) const;
    enum Lines { stayingLines, allLines };
    uint32_t lastKeyLine(ReadStanza const& read, Lines which = stayingLines) const;
    bool placeKeyAt(Reordered const& stanza, Entry const& entry, uint32_t position, uint32_t after,
                    Placement& at);
    bool appendKey(Style const& style, std::string_view key, Entry const& entry,
                   std::string const& context, uint32_t below, std::string& out) const;
    void appendNewKey(Section const& section, uint32_t after, Entry const& entry,
                      std::string const& header, std::string& out) const;
    bool appendLine(Style const& style, std::string_view key, std::string_view value,
                    std::string context, uint32_t below, std::string& out,
                    std::string_view copied = {}) const;
    void addStanza(uint32_t stanza);
    bool isAboveNextHeader(uint32_t stanza, uint32_t entry) const;

    void record(std::string_view stanza, std::string_view key, std::string_view value);
    bool isGone(uint32_t line) const { return !gone_.empty() && gone_[line]; }
    bool isBlank(uint32_t line) const { return outline_.lines()[line].kind == blankLine; }

    // Return whether a blank line, or no line, is above or below a new line after the line `after`,
    // after the removal of lines. kNone: at the start.
    bool isBelowBlank(uint32_t after) const;
    bool isAboveBlank(uint32_t after) const;

    std::string_view const text_;
    Dialect const& dialect_;
    Document const& document_;
    Outline outline_;
    Edits edits_;
    Refusal first_;
    bool hasFirst_ = false;
    bool isPartial_ = false;
    bool removesComments_ = false;
    Names const names_;
    bool isScattered_;
    std::vector<HeaderComment> headerComments_;
    std::unordered_map<std::string_view, std::string, NameHash> renamedStanzas_;
    size_t provenEdits_ = 0;
    std::string_view stanzaName_;        // that is compared, for first_
    Entry const* renamedKey_ = nullptr;  // that is compared, if its lines have another name
    std::vector<Entry> topEntries_;      // of both stanzas for the lines above the first header
    uint32_t headed_ = kNone;     // wanted stanza of the keys above the first header, renamed
    uint32_t topHeader_ = kNone;  // line below its header, if it is renamed
    Edits::Order newLineOrder_ = Edits::newLines;
    std::vector<uint32_t> readOf_;    // of each wanted stanza: its stanza in the text
    std::vector<uint32_t> nextKept_;  // of each: the next stanza that the text has, or kNone
    std::vector<Reordered> reordered_;
    std::vector<uint32_t> leftComments_;  // positions of the comments of removed stanzas
    std::vector<bool> gone_;              // lines that are removed; empty: none
    std::vector<RemovedRange> removedRanges_;
    bool dropsComments_ = false;    // of removed stanzas, with stanzas that are removed after them
    std::vector<uint32_t> blanks_;  // removed lines that a blank line replaces, ascending
    std::vector<NewComment> carried_;           // above the header of the next new stanza
    std::vector<InsertedComment> newComments_;  // that show the style of those below
    uint32_t lastAbove_ = kNone;                // the line above the stanza that was added last
    uint32_t lastAdded_ = kNone;                // the line below the stanza that was added last
    std::string keySpace_;
    std::string nameSpace_;
    std::string valueSpace_;
};

/// Stores the text after the changes in `out` and returns true; returns false if nothing changes.
/// `history` describes `text` and, after the call, `out`.
/// throws  Refusal if some of the wanted contents would not read back.
bool rewrite(std::string_view text, Dialect const& dialect, Document const& document,
             TextHistory& history, std::string& out);

}  // namespace zlines
