// switched_dialect: a dialect for the difference writer that follows switches.
//
// The cache is filled from the same lines:
//
//  - A value with its continuation lines, and the lines between them, is one line.
//  - A header and a key next to it are two lines: the second begins at the key.
//  - A key without a separator is a keyOnlyLine; any other key is a valueLine, also if its value is
//    empty.
//  - Comments that continue in the next line, directives, and lines that are passed over or invalid
//    are otherLines.
//
// The name of a header or key, and a value, may be spelled across lines: the functions below join
// them. A name or value that is spelled as it reads is a view of the text.
#pragma once

#include <memory>

#include "../lines/dialect.h"
#include "characters.h"
#include "finding.h"
#include "switches.h"

namespace zdialects {

class SwitchedDialect final : public zlines::Dialect {
public:
    /// range   not the switches of the stanza format, which has a reader of its own.
    explicit SwitchedDialect(Switches const& switches);

    Switches const& switches() const { return switches_; }
    Characters const& characters() const { return characters_; }

    // --- reading (switched_dialect.cpp)

    bool split(std::string_view text, std::vector<zlines::Line>& lines) const override;

    /// As split(), and reports invalid lines and lines that are passed over.
    /// range   the text has less than 4 GiB.
    /// throws  the exceptions of the sink and std::bad_alloc.
    /// cost    linear, whatever the text.
    void read(std::string_view text, std::vector<zlines::Line>& lines, FindingSink& sink) const;

    /// Return the identity of a name: folded, without the characters that the dialect ignores.
    /// A header that would be taken for the part above all headers, [.], is ".]1".
    std::string_view stanzaName(std::string_view text, zlines::Line const& header,
                                std::string& space) const override;
    std::string_view keyName(std::string_view text, zlines::Line const& line,
                             std::string& space) const override;

    /// Return the same names as they are written in the file, but decoded: what callers see.
    std::string_view writtenStanza(std::string_view text, zlines::Line const& header,
                                   std::string& space) const override;
    std::string_view writtenKey(std::string_view text, zlines::Line const& line,
                                std::string& space) const override;
    bool foldsNames() const override
    {
        return switches_.foldKeys || switches_.dropBlanks || switches_.dashes ||
               switches_.foldStanzas != FoldStanzas::none || switches_.paths != Paths::none;
    }

    /// Return the identity of a name as written or as a caller gives it.
    std::string_view comparableStanza(std::string_view name, std::string& space) const override;
    std::string_view comparableKey(std::string_view name, std::string& space) const override;

    /// Returns the decoded value; lines of a value are joined, with newlines if they belong to it.
    std::string_view value(std::string_view text, zlines::Line const& line,
                           std::string& space) const override;

    /// Returns whether the value of a valueLine is quoted only in part: it reads as spelled, and no
    /// spelling gives such a value.
    bool isQuotedInPart(std::string_view text, zlines::Line const& line) const;
    bool isAmbiguous(std::string_view text, zlines::Line const& line) const override
    {
        return isQuotedInPart(text, line);
    }

    std::string_view commentText(std::string_view comment) const override;
    bool hasEmptyValues() const override { return true; }
    bool hasResets() const override { return switches_.emptyValues == EmptyValues::reset; }
    std::string_view topStanza() const override;
    bool joinsHeaders() const override { return switches_.repeatedHead != RepeatedHead::separate; }
    bool refusesRepeatedHeaders() const override
    {
        return switches_.repeatedHead == RepeatedHead::refused;
    }
    bool acceptsWithoutKeys(std::string_view text) const override;
    bool hasCommentsAfterValues() const override { return switches_.trailing != 0; }
    bool needsContext() const override { return true; }

    // --- spelling (spelling.cpp)

    std::string_view ownSeparator() const override;
    std::string_view ownComment() const override;
    std::string_view ownIndent() const override;
    std::string_view separatorBytes() const override;
    size_t maxLineLength() const override;
    void appendHeader(std::string_view name, std::string& out) const override;
    void appendKey(std::string_view name, std::string& out) const override;
    unsigned spellingCount() const override;
    bool appendValue(std::string_view value, unsigned spelling, zlines::LineForm const& form,
                     std::string& out) const override;
    std::string keyOnlyEnd(std::string_view separator) const override;
    std::optional<zlines::Replacement> replaceValue(std::string_view text, zlines::Line const& line,
                                                    uint32_t end, std::string_view value,
                                                    unsigned spelling) const override;
    zlines::Replacement removeValue(std::string_view text, zlines::Line const& line) const override;
    zlines::Replacement renameHeader(std::string_view text, zlines::Line const& header,
                                     std::string_view name) const override;
    zlines::Replacement renameKey(std::string_view text, zlines::Line const& line,
                                  std::string_view name) const override;
    zlines::Replacement removeLine(std::string_view text, zlines::Line const& line,
                                   uint32_t end) const override;

private:
    Switches const switches_;
    Characters const characters_;
};

/// Returns the dialect with these switches. Dialects of the table are shared and live as long as
/// the program.
/// range   not the stanza format.
std::shared_ptr<SwitchedDialect const> dialectWith(Switches const& switches);

}  // namespace zdialects
