// document: the wanted contents of a file: its stanzas, keys, values and comments.
#pragma once

#include <stdint.h>

#include <algorithm>
#include <deque>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "line.h"

namespace zlines {

// Returns whether a string is a view of bytes of the text.
inline bool isPartOf(std::string_view text, std::string_view part)
{
    return std::less_equal<>()(text.data(), part.data()) &&
           std::less_equal<>()(part.data() + part.size(), text.data() + text.size());
}

// Returns the line of the text that has a part, without its line ending.
inline std::string_view lineAround(std::string_view text, std::string_view part)
{
    size_t const at = static_cast<size_t>(part.data() - text.data());
    size_t const begin = at == 0 ? 0 : text.rfind('\n', at - 1) + 1;
    return withoutLineEnding(text.substr(begin, text.find('\n', at) - begin));
}

// A comment, or a key with its values.
struct Entry {
    std::string_view text;  // the key, or the whole comment
    uint32_t firstValue;    // of Document::values
    uint32_t valueCount;
    bool isComment;
    bool isBelowBlank;  // a blank line is above it
    bool needsLine;     // without values the key has a line, too

    // The name was set: if names are folded, each line of the key gets this spelling. Otherwise
    // it is the spelling of the first line that was read.
    bool hasNewName = false;

    bool isBelowRemoved = false;  // the line of a removed key is right above
    bool isBelowGap = false;      // the line right above is not an entry
    bool isBelowComment = false;  // a new comment, above the same line as the comment before it
    bool isAtEnd = false;         // a new comment at the end of the text
    bool isMoved = false;         // a comment that belongs to another key or line than in the text

    // Of a comment above a further header of its stanza: the index of the header; else 0.
    uint32_t headerIndex = 0;

    std::string_view oldName = {};  // the name in the text, if the key was renamed

    // Whether another line is between it and a comment above.
    bool isParted() const { return isBelowBlank || isBelowGap; }
};

struct Stanza {
    std::string_view name;
    uint32_t firstEntry;
    uint32_t entryCount;
    bool isBelowBlank;
    bool hasNewName = false;        // as for a key
    std::string_view oldName = {};  // as for a key
    bool isBelowGap = false;        // as for a key

    bool isParted() const { return isBelowBlank || isBelowGap; }
};

struct Document {
    std::vector<Stanza> stanzas;  // the first has no header: the comments at the start
    std::vector<Entry> entries;
    std::vector<std::string_view> values;
    std::deque<std::string> owned;  // strings that the views above refer to, if nothing else does

    // Lines of another text, without their line endings, that new lines are copied from. A value
    // that replaces another takes its whole line from there.
    std::vector<std::pair<size_t, std::string_view>> lines;      // of values, by their indexes
    std::unordered_map<char const*, std::string_view> ownLines;  // by the name

    // The versions of a merge: a new comment that is a view of one gets its whole line.
    std::vector<std::string_view> versions;

    // Whether entries are below gaps: isBelowGap has a meaning.
    bool hasGaps = false;

    // Whether stanzas that stay have their present or old names in the text.
    bool hasOldNames = false;

    // Whether a stanza of the text that is not wanted is renamed if a new stanza at its index has
    // the same contents.
    bool renamesStanzas = true;

    // The comments above the further headers of a stanza are removed with the stanza.
    bool removesHeaderComments = false;

    Document() { stanzas.push_back({{}, 0, 0, false}); }
    Document(Document const&) = delete;
    Document& operator=(Document const&) = delete;

    /// Reserves memory for the expected numbers of stanzas and lines.
    void reserve(size_t stanzaCount, size_t lineCount)
    {
        stanzas.reserve(stanzaCount + 1);
        entries.reserve(lineCount);
        values.reserve(lineCount);
    }

    void addStanza(std::string_view name, bool isBelowBlank)
    {
        stanzas.push_back({name, static_cast<uint32_t>(entries.size()), 0, isBelowBlank});
    }

    void addComment(std::string_view comment, bool isBelowBlank, uint32_t headerIndex = 0)
    {
        entries.push_back({comment, 0, 0, true, isBelowBlank, false});
        entries.back().headerIndex = headerIndex;
        ++stanzas.back().entryCount;
    }

    // Values that are added next belong to this key.
    void addKey(std::string_view key, bool isBelowBlank)
    {
        entries.push_back(
            {key, static_cast<uint32_t>(values.size()), 0, false, isBelowBlank, true});
        ++stanzas.back().entryCount;
    }

    void addValue(std::string_view value, std::string_view line = {})
    {
        if (!line.empty())
            lines.emplace_back(values.size(), line);
        values.push_back(value);
        ++entries.back().valueCount;
    }

    /// Returns the line that a value is copied from; empty: none.
    std::string_view lineOf(size_t value) const
    {
        auto const found =
            std::lower_bound(lines.begin(), lines.end(), value,
                             [](auto const& line, size_t index) { return line.first < index; });
        return found == lines.end() || found->first != value ? std::string_view() : found->second;
    }

    /// Returns the line that a header or a key without values is copied from.
    std::string_view ownLineOf(std::string_view text) const
    {
        auto const found = ownLines.find(text.data());
        return found == ownLines.end() ? std::string_view() : found->second;
    }

    /// Returns the line that a new comment is copied from, without its line ending; empty: none.
    std::string_view commentLineOf(std::string_view comment) const
    {
        for (std::string_view const version : versions)
            if (isPartOf(version, comment))
                return lineAround(version, comment);
        return {};
    }

    bool hasLines() const { return !lines.empty() || !ownLines.empty() || !versions.empty(); }

    void dropLines()
    {
        lines.clear();
        ownLines.clear();
        versions.clear();
    }

    void dropOldNames()
    {
        hasOldNames = false;
        for (Stanza& stanza : stanzas)
            stanza.oldName = {};
        for (Entry& entry : entries)
            entry.oldName = {};
    }

    /// Returns a copy that lives as long as this object.
    std::string_view own(std::string_view text) { return owned.emplace_back(text); }
};

}  // namespace zlines
