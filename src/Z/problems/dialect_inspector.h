// dialect_inspector: finds the problems of a file in a dialect other than the stanza format.
//
// Errors are the lines for which a load, or the programs that use the format, refuse the file.
// Notes are lines that are kept, but never read: lines that the format passes over, directives, and
// lines of a key that are ignored; and values that programs read as something else.
#pragma once

#include <stdint.h>

#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "../dialects/switched_dialect.h"
#include "complaint_list.h"

namespace zproblems {

class DialectInspector : private zdialects::FindingSink {
public:
    /// owns    the arguments are borrowed while the inspector is used.
    DialectInspector(std::string_view text, zdialects::SwitchedDialect const& dialect)
        : text_(text), dialect_(dialect)
    {
    }

    /// Reads the text. Call this once.
    /// cost    O(bytes); memory for each line, each different key and the listed complaints.
    void inspect();

    /// Returns all complaints in file order. Call this last.
    /// owns    borrowed until the inspector is destroyed.
    std::vector<Complaint> const& complaints() { return complaints_.finish(); }

private:
    enum class Repetition : uint8_t { none, shadowed, refused, repeatedHeader, mixed };

    void found(zdialects::Finding const& finding) override;
    void findRepetitions();
    std::vector<Repetition> markRepetitions(std::vector<uint32_t>& firstOf) const;
    void findInvalidBytes();
    void findSyntaxFaults();
    void findPartialQuotes();
    void findContinuedComments();
    void addRepetition(zlines::Line const& line, Repetition repetition);
    void addAt(size_t at, Cause cause, bool isError, char const* reason);
    void startAtTop();
    void passHeaders(size_t end);
    std::string_view lineAt(size_t begin) const;
    bool refuses(zdialects::Refusal refusal) const
    {
        return (dialect_.switches().refusals & refusal) != 0;
    }
    std::string_view stanzaName();
    std::string_view own(std::string_view view, std::string const& space);
    void moveTo(size_t at);
    Place placeAt(size_t at);

    std::string_view const text_;
    zdialects::SwitchedDialect const& dialect_;
    std::vector<zlines::Line> lines_;
    std::deque<std::string> names_;  // which complaints borrow
    ComplaintList complaints_;

    bool isText_ = true;
    std::vector<uint32_t> refusedLines_;  // the positions of physical lines with an error

    // The header above the last finding.
    static constexpr size_t kTop = SIZE_MAX;
    size_t scanned_ = 0;  // lines that were searched for headers
    size_t header_ = kTop;
    size_t named_ = kTop;  // the header that stanza_ is the name of
    std::string_view stanza_;

    // The physical line of the last place.
    size_t line_ = 1;
    size_t begin_ = 0;
};

}  // namespace zproblems
