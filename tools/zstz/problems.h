// problems: the problems of stanza files, as the library finds them.
#pragma once

#include <Z/ZArrayList.h>
#include <Z/ZStanzaDialect.h>
#include <Z/ZStanzaProblem.h>

#include <optional>
#include <string>
#include <vector>

#include "failures.h"

// Every problem of a file, in file order.
class Problems {
public:
    /// Waits up to `wait` seconds for a busy file.
    /// throws  as ZStanzaFileProperties_6_0::findProblems().
    Problems(std::string const& path, double wait, ZStanzaDialect_6_0 const& dialect = {});

    /// Returns the problems of contents that are in no file.
    static Problems ofText(std::string const& text, ZStanzaDialect_6_0 const& dialect = {});

    unsigned size() const { return list_.size(); }
    ZStanzaProblem_6_0 const& operator[](unsigned index) const
    {
        return static_cast<ZStanzaProblem_6_0 const&>(*list_.get(index));
    }

private:
    Problems() : list_(16, 1) {}

    ZArrayList_6_0 list_;
};

/// Returns the description of a problem, "WHAT; HELP". Changes by this tool keep most lines that a
/// store with the library's defaults changes: those notes name the option that changes the line.
std::string textOf(ZStanzaProblem_6_0 const& problem);

/// Returns the problem of a file as an object of JSON.
std::string formatJson(std::string const& path, ZStanzaProblem_6_0 const& problem,
                       std::string const& text);

/// Returns the exit code that the problem is worth.
ExitCode codeOf(ZStanzaProblem_6_0 const& problem);

/// Returns whether the companion of a file has the problem, not a line.
bool isAboutCompanion(ZStanzaProblem_6_0 const& problem);

/// Returns the errors for which a load refuses a file of a dialect, in file order. The last error
/// of a line suggests a dialect that reads the contents.
std::vector<Failure> describeErrors(Problems const& problems, std::string const& path,
                                    std::string const& contents, ZStanzaDialect_6_0 const& dialect);

/// Returns the errors for which only the programs of the format refuse a file.
std::vector<Failure> describeRefusals(Problems const& problems, std::string const& path);

/// Returns the first of the errors of describeErrors(), with the further errors of lines; nothing
/// if there is no error.
std::optional<Failure> describeFailedLoad(Problems const& problems, std::string const& path,
                                          std::string const& contents,
                                          ZStanzaDialect_6_0 const& dialect);

/// Returns the two parts of such a description.
Problem splitText(std::string const& text);
