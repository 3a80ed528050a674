// inspector: finds the problems of a stanza file. It is the reader of a parser that does not stop
// at an invalid line, and keeps names only.
//
// Errors are the lines that a load refuses. Notes are the lines that a load accepts and a store
// with comments would change, and lines that other programs read as several: without an error and
// without a note, a store writes the same bytes.
#pragma once

#include <stdint.h>

#include <string>
#include <string_view>
#include <vector>

#include "../cache/hash_index.h"
#include "../memory/owned_block.h"
#include "../stanza/line_splitter.h"
#include "../stanza/parser.h"
#include "../stanza/text_buffer.h"
#include "../stanza/whitespace.h"
#include "complaint_list.h"

namespace zproblems {

class Inspector {
public:
    /// owns    `text` is borrowed while the inspector is used.
    explicit Inspector(std::string_view text) : text_(text) {}
    Inspector(Inspector const&) = delete;
    Inspector& operator=(Inspector const&) = delete;

    /// Parses the text. Call this once.
    /// throws  ZOutOfMemoryException_6_0; std::bad_alloc.
    /// cost    O(bytes); memory for a copy of the text and for each different key.
    void inspect();

    /// Returns the companion that the text names; empty if it names none.
    std::string const& companion() const { return companion_; }

    /// Notes a key that has obfuscated values.
    void addObfuscated(std::string_view category, std::string_view key);

    /// Complains about the companion, at the entry that names it.
    /// range   `reason` is shown after its path, and may be empty.
    void complainOfCompanion(Cause cause, bool isError, std::string const& reason);

    /// Returns all complaints in file order. Call this last.
    /// owns    borrowed until the inspector is destroyed.
    std::vector<Complaint> const& complaints() { return complaints_.finish(); }

    // ---- The reader of the parser

    void reserve(zstanza::LineCounts const&) {}
    std::string_view beginLine(std::string_view line, zstanza::LineSplitter const& lines);
    std::string_view copy(std::string_view text);
    void drop(std::string_view) {}
    void refuse(std::string_view line, size_t index);
    void addHeader(std::string_view name, int, int);
    void addComment(std::string_view text);
    void addBlank();
    void addKey(std::string_view name, std::string_view value);
    zstanza::DuplicateHeader const& duplicate() const { return none_; }
    void flush() {}
    void finish();

private:
    struct Key {
        std::string_view name;
        zcache::Id stanza;
        bool hasValue;
        Place empty;  // of its line without a value; line 0 once that was reported
    };

    // Lines that are listed once for a file.
    struct Lines {
        Place first;
        size_t count = 0;
    };

    size_t offsetOf(char const* part) const;
    std::string_view own(std::string_view part) const;
    size_t columnAt(size_t offset) const;
    Place placeAt(size_t offset) const { return {line_, columnAt(offset)}; }
    void endLine();
    void refuse(Cause cause, size_t offset);
    void addNote(Cause cause, Place place);
    void noteKey(Cause cause, Place place, Key const& key);
    void noteContinuation(Place place, size_t indent, Key const& key);
    void leaveKey();
    void countLine(Lines& lines, size_t offset);
    void findReturn();
    template <class Write>
    void compare(Write write);
    zcache::Id findStanza(std::string_view name) const;
    zcache::Id findKey(zcache::Id stanza, std::string_view name) const;
    zcache::Id addKeyOnce(std::string_view name);
    bool enterStanza(std::string_view name);
    std::string_view stanzaName() const;

    std::string_view const text_;
    zmemory::OwnedBlock<char> block_;  // a copy of the text, into which the parser writes
    zstanza::WhitespaceTable const whitespace_;
    zstanza::DuplicateHeader const none_ = {{}, 0, 0};
    ComplaintList complaints_;
    zstanza::TextBuffer written_;  // the line as a store would write it

    // The current line of the file. The parser may get it in parts.
    size_t line_ = 0;               // its number
    bool continues_ = false;        // the next part belongs to it
    bool isPart_ = false;           // the current part is not the whole line
    bool hasError_ = false;         // the line has been refused
    Place split_;                   // of the complaint about a line in parts; line 0: none
    bool isSplitError_ = false;     // a part was refused
    std::string_view splitDetail_;  // the refused part

    // The current part.
    char const* base_ = nullptr;                  // as the parser sees it
    size_t offset_ = 0;                           // of `base_` in the text
    std::string_view raw_;                        // with everything up to its newline
    std::string_view trimmed_;                    // as exceptions show it
    bool hasZero_ = false;                        // bytes after a zero byte were cut off
    size_t zero_ = 0;                             // its offset
    size_t counted_ = 0;                          // offset of a character at the start of the part
    size_t countedColumn_ = 1;                    // its column
    char copied_[zstanza::kLineBufferSize] = {};  // the part, if the parser cannot write into it

    zcache::Id stanza_ = 0;       // the current stanza
    zcache::Id previousKey_ = 0;  // of the line above; 0 if it is no key line
    static constexpr size_t kNoKeyAbove = SIZE_MAX;
    size_t keyIndent_ = kNoKeyAbove;  // of the key line above that looks like no continuation
    bool isReserved_ = false;
    std::vector<std::string_view> stanzas_;  // the stanza with id 1 is the first
    std::vector<Key> keys_;
    zcache::HashIndex stanzaIndex_;
    zcache::HashIndex keyIndex_;

    std::string companion_;
    Place companionPlace_;
    std::string companionDetail_;
    Lines spacing_;
    Lines lineEndings_;
    Lines returns_;  // lines with a carriage return inside
};

}  // namespace zproblems
