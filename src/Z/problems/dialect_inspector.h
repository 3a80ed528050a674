// dialect_inspector: finds the problems of a file in a dialect other than the stanza format.
//
// Errors are the lines for which a load refuses the file. Notes are lines that are kept, but never
// read: lines that the format passes over, directives, and lines of a key that are ignored.
#pragma once

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
    /// cost    O(bytes); memory for each line and each different key.
    void inspect();

    /// Returns all complaints in file order. Call this last.
    /// owns    borrowed until the inspector is destroyed.
    std::vector<Complaint> const& complaints() { return complaints_.finish(); }

private:
    void found(zdialects::Finding const& finding) override { findings_.push_back(finding); }
    void complain(zdialects::Finding const& finding, std::string_view stanza);
    void findShadowed();
    std::string_view nameOf(zlines::Line const& header);
    void moveTo(size_t at);
    Place placeAt(size_t at);

    std::string_view const text_;
    zdialects::SwitchedDialect const& dialect_;
    std::vector<zlines::Line> lines_;
    std::vector<zdialects::Finding> findings_;
    std::deque<std::string> names_;  // which complaints borrow
    ComplaintList complaints_;

    // The physical line of the last place.
    size_t line_ = 1;
    size_t begin_ = 0;
};

}  // namespace zproblems
