// outline: the lines of a file, by stanza.
#pragma once

#include <deque>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "dialect.h"
#include "name_hash.h"

namespace zlines {

constexpr uint32_t kNone = UINT32_MAX;

// The lines after a header, up to the next header.
struct Section {
    uint32_t header;  // index of its line; kNone for the lines above the first header
    uint32_t first;
    uint32_t end;
    uint32_t next;  // section of the same stanza, or kNone
};

struct ReadStanza {
    std::string_view name;
    uint32_t firstSection;
    uint32_t lastSection;
    bool isKept = false;  // it is still wanted
};

class Outline {
public:
    /// range   `text` outlives the object. `movedComments` has the positions of comments that are
    ///         not in the contents; they are lines of no meaning.
    Outline(std::string_view text, Dialect const& dialect,
            std::vector<uint32_t> const& movedComments = {});
    Outline(Outline const&) = delete;
    Outline& operator=(Outline const&) = delete;

    std::string_view text() const { return text_; }
    Dialect const& dialect() const { return dialect_; }
    std::vector<Line> const& lines() const { return lines_; }
    std::vector<Section> const& sections() const { return sections_; }

    /// Returns the key lines, ascending.
    std::vector<uint32_t> const& keyLines() const;

    /// The first stanza has the lines above the first header.
    std::vector<ReadStanza>& stanzas() { return stanzas_; }
    std::vector<ReadStanza> const& stanzas() const { return stanzas_; }

    /// Returns the index of a stanza, or kNone.
    /// range   `guess` is the index to try first.
    uint32_t find(std::string_view name, size_t guess);

    /// Returns whether all lines of the text are valid.
    bool isValid() const { return isValid_; }

    /// Returns a header with the name of an earlier header, if the dialect refuses it; else kNone.
    uint32_t repeatedHeader() const { return repeatedHeader_; }

    /// Returns the position of the first line, after a byte order mark.
    uint32_t start() const
    {
        return lines_.empty() ? static_cast<uint32_t>(text_.size()) : lines_[0].begin;
    }

    /// Returns the position after a line.
    uint32_t endOf(uint32_t line) const
    {
        return line + 1 < lines_.size() ? lines_[line + 1].begin
                                        : static_cast<uint32_t>(text_.size());
    }

    /// Returns whether a key or header follows a header on the header's line of the file.
    bool sharesLine(uint32_t line) const
    {
        return line > 0 && lines_[line - 1].kind == headerLine &&
               text_[lines_[line].begin - 1] != '\n';
    }

    /// Returns a line without its line ending; empty if another is on the same line of the file.
    std::string_view wholeLine(uint32_t line) const
    {
        bool const isShared =
            sharesLine(line) || (line + 1 < lines_.size() && sharesLine(line + 1));
        return isShared ? std::string_view()
                        : withoutLineEnding(slice(text_, lines_[line].begin, endOf(line)));
    }

    /// Returns the header of a section, or the key on the header's line of the file.
    uint32_t lastOnHeader(Section const& section) const
    {
        return section.first < section.end && sharesLine(section.first) ? section.first
                                                                        : section.header;
    }

    /// Return the section that has a line, or whose header it is.
    Section const& sectionOf(uint32_t line) const { return sections_[sectionIndexOf(line)]; }
    uint32_t sectionIndexOf(uint32_t line) const;

    /// Returns the stanza of each section, by the index of the section.
    std::vector<uint32_t> stanzasOfSections() const;

    /// Gives the comment right above each header to the stanza whose lines end above that header
    /// in a cache: the stanza before it, or its own if the header is repeated. Call this once.
    /// range   `comments` were moved before: they are in the same stanzas again. Then it has the
    ///         comments that are moved, and the places of such comments.
    void moveHeaderComments(std::vector<HeaderComment>& comments);

    /// Returns the first of the comments that end a range of lines; `end` if no comment ends it.
    uint32_t firstCommentAbove(uint32_t first, uint32_t end) const;

    /// Returns the number of sections that the text has. Appended sections follow them.
    uint32_t sectionCount() const { return static_cast<uint32_t>(sections_.size() - appended_); }

    /// Appends the lines from `first` to the end of a section to the stanza of the section
    /// `previous`, after that section. Returns their new section.
    uint32_t appendSection(ReadStanza& stanza, uint32_t previous, uint32_t first, uint32_t end);

    /// Returns the line ending of a line, or of the nearest line above that has one.
    std::string_view lineEndingOf(uint32_t line) const;

    /// Returns the line ending of a new line after the line `after`; kNone: at the start.
    std::string_view lineEndingAfter(uint32_t after) const
    {
        return lines_.empty() ? "\n" : lineEndingOf(after == kNone ? 0 : after);
    }

    /// Returns the spelling of the name of a line.
    std::string_view spelledName(uint32_t line) const
    {
        return slice(text_, lines_[line].nameBegin(), lines_[line].nameEnd);
    }

    std::string_view keyName(uint32_t line, std::string& space) const
    {
        return dialect_.keyName(text_, lines_[line], space);
    }
    std::string_view value(uint32_t line, std::string& space) const
    {
        return dialect_.value(text_, lines_[line], space);
    }

    /// Returns a comment without its mark.
    std::string_view comment(uint32_t line) const
    {
        return slice(text_, lines_[line].valueBegin, lines_[line].valueEnd);
    }

    /// Returns a string that lives as long as the outline: `view`, or a copy if it is in `space`.
    std::string_view keep(std::string_view view, std::string const& space)
    {
        return view.data() == space.data() ? std::string_view(owned_.emplace_back(view)) : view;
    }

private:
    void addHeader(uint32_t line);
    std::string_view nameOf(uint32_t header);
    void findHeaderComments(std::vector<uint32_t> const& previous,
                            std::vector<uint32_t> const& stanzaOf,
                            std::vector<HeaderComment>& comments) const;
    uint32_t lineAt(uint32_t position) const;

    std::string_view const text_;
    Dialect const& dialect_;
    std::vector<Line> lines_;
    mutable std::vector<uint32_t> keyLines_;  // found by keyLines()
    std::vector<Section> sections_;           // appended sections are the last
    size_t appended_ = 0;
    std::vector<ReadStanza> stanzas_;
    std::unordered_map<std::string_view, uint32_t, NameHash> index_;
    size_t indexed_ = 0;  // stanzas in the index
    uint32_t repeatedHeader_ = kNone;
    bool isValid_;
    std::unordered_map<std::string_view, uint32_t, NameHash>
        headers_;  // of each name, if not joined
    std::deque<std::string> owned_;
};

}  // namespace zlines
