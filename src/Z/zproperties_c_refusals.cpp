// The problem and the remedy of a line that a load has refused.
#include <string.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "ZException.h"
#include "ZStanzaDialect_p.h"
#include "dialects/switched_dialect.h"
#include "problems/dialect_inspector.h"
#include "problems/inspector.h"
#include "store/journaled_file.h"
#include "zproperties_c_p.h"

namespace zhandles {

namespace {

using zproblems::Complaint;

// Returns the text of the first error in a line, or of the first error if the line has none: a load
// counts the parts of a long line.
std::string textOfError(std::vector<Complaint> const& complaints, size_t line)
{
    auto const isError = [](Complaint const& complaint) { return complaint.refusesLoad(); };
    auto found =
        std::find_if(complaints.begin(), complaints.end(), [&](Complaint const& complaint) {
            return complaint.refusesLoad() && complaint.place.line == line;
        });
    if (found == complaints.end())
        found = std::find_if(complaints.begin(), complaints.end(), isError);
    return found == complaints.end() ? std::string() : zproblems::textOf(*found);
}

std::string explain(std::string_view contents, ZStanzaDialect_6_0 const& dialect, size_t line)
{
    zdialects::Switches const switches = zdialects::switchesOf(dialect);
    if (!switches.isStanzaFormat()) {
        auto const reader = zdialects::dialectWith(switches);
        zproblems::DialectInspector inspector(contents, *reader);
        inspector.inspect();
        return textOfError(inspector.complaints(), line);
    }
    zproblems::Inspector inspector(contents);
    inspector.inspect();
    std::string text = textOfError(inspector.complaints(), line);
    char const* const other = ZStanzaDialect_6_0::readsAs(contents.data(), contents.size());
    if (!text.empty() && other != nullptr)
        text += std::string("; reads as ") + other + ", open it with that dialect";
    return text;
}

}  // namespace

std::string explainedLine(Call const& call)
{
    if (call.loaded == nullptr)
        return {};
    try {
        throw;
    } catch (ZPropertiesInvalidDataException_6_0 const& failure) {
        auto const line = static_cast<size_t>(std::max(failure.badline(), 0));
        // The companion may be invalid, too.
        bool const isInContents = strcmp(failure.propFile().getChars(), call.file) == 0;
        if (line == 0 || !isInContents)
            return {};
        try {
            if (call.text != nullptr)
                return explain({call.text, call.length}, *call.loaded, line);
            zstore::JournaledFile file(call.file, zstore::JournaledFile::Mode::load);
            return explain(file.text(), *call.loaded, line);
        } catch (...) {
            if (zreporting::caughtCancellation())
                throw;
            return {};  // without memory, or if the file has changed: the message is enough
        }
    } catch (...) {
        return {};
    }
}

}  // namespace zhandles
