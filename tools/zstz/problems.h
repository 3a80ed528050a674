// problems: the problems of stanza files, as the library finds them.
#pragma once

#include <Z/ZArrayList.h>
#include <Z/ZStanzaProblem.h>

#include <string>

#include "failures.h"

// Every problem of a file, in file order.
class Problems {
public:
    /// Waits up to `wait` seconds for a busy file.
    /// throws  as ZStanzaFileProperties_6_0::findProblems().
    Problems(std::string const& path, double wait);

    /// Returns the problems of contents that are in no file.
    static Problems ofText(std::string const& text);

    unsigned size() const { return list_.size(); }
    ZStanzaProblem_6_0 const& operator[](unsigned index) const
    {
        return static_cast<ZStanzaProblem_6_0 const&>(*list_.get(index));
    }

private:
    Problems() : list_(16, 1) {}

    ZArrayList_6_0 list_;
};

/// Returns the two parts of the text of a problem, "WHAT; HELP".
Problem splitText(std::string const& text);
