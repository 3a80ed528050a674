#include "suggestion.h"

#include <vector>

#include "switched_dialect.h"

namespace zdialects {

namespace {

// Strict formats first, formats with keys alone last: they read almost any line. The order was
// chosen by the files of Debian packages; tests/unit/DialectProblemsTest.cpp counts how often it is
// right.
struct Candidate {
    RowIndex row;
    bool needsHead;  // files of the format start with a header, even if its readers do not insist
};

constexpr Candidate kCandidates[] = {
    {rowEnv, false},   {rowGit, true},           {rowDesktop, true}, {rowSystemd, true},
    {rowPython, true}, {rowPhp, false},          {rowSysctl, false}, {rowSamba, false},
    {rowQt, false},    {rowEditorconfig, false}, {rowMysql, true},   {rowIni, false},
};

// Ends the reading at the first finding.
class Refusal final : public FindingSink {
public:
    void found(Finding const& finding) override { throw finding; }
};

bool isRead(Candidate candidate, std::string_view text, std::vector<zlines::Line>& lines)
{
    Refusal refusal;
    lines.clear();
    try {
        dialectWith(rowAt(candidate.row).switches)->read(text, lines, refusal);
    } catch (Finding const&) {
        return false;
    }
    bool hasHead = false;
    for (zlines::Line const& line : lines) {
        hasHead |= line.kind == zlines::headerLine;
        if (line.isKey())
            return hasHead || !candidate.needsHead;
    }
    return false;
}

}  // namespace

Row const* suggest(std::string_view text)
{
    std::vector<zlines::Line> lines;
    for (Candidate const candidate : kCandidates)
        if (isRead(candidate, text, lines))
            return &rowAt(candidate.row);
    return nullptr;
}

}  // namespace zdialects
