#include "suggestion.h"

#include <set>
#include <string>
#include <utility>
#include <vector>

#include "switched_dialect.h"

namespace zdialects {

namespace {

using Lines = std::vector<zlines::Line>;

// Returns whether the text has a header with a subsection, or only keys that are indented by tabs:
// few other formats have such lines.
bool looksLikeGit(std::string_view text, Lines const& lines)
{
    bool hasKey = false;
    for (zlines::Line const& line : lines) {
        std::string_view const header = zlines::slice(text, line.begin, line.nameEnd);
        if (line.kind == zlines::headerLine && header.find('"') != header.npos)
            return true;
        if (!line.isKey())
            continue;
        std::string_view const indent = zlines::slice(text, line.begin, line.nameBegin());
        if (indent.find_first_not_of('\t') != indent.npos || indent.empty())
            return false;
        hasKey = true;
    }
    return hasKey;
}

// Returns whether stanzas of one name have the same key, so that they are records, not parts of one
// stanza.
bool hasRecords(std::string_view text, Lines const& lines)
{
    std::set<std::pair<std::string_view, std::string_view>> earlier;
    std::vector<std::string_view> keys;
    std::string_view header;
    for (zlines::Line const& line : lines) {
        std::string_view const name = zlines::slice(text, line.nameBegin(), line.nameEnd);
        if (line.kind == zlines::headerLine) {
            for (std::string_view const key : keys)
                earlier.emplace(header, key);
            keys.clear();
            header = name;
        } else if (line.isKey()) {
            if (earlier.contains({header, name}))
                return true;
            keys.push_back(name);
        }
    }
    return false;
}

// Returns whether the lines could be in a stanza file: comments with "#", headers, and below them
// keys without indentation and brackets.
bool looksLikeStanza(std::string_view text, Lines const& lines)
{
    bool hasHead = false;
    for (zlines::Line const& line : lines) {
        char const first = line.nameBegin() < text.size() ? text[line.nameBegin()] : '\0';
        bool const isForeign =
            line.kind == zlines::otherLine || (line.kind == zlines::commentLine && first != '#') ||
            (line.isKey() &&
             (!hasHead || line.indent > 0 ||
              zlines::slice(text, line.begin, line.nameEnd).find('[') != std::string_view::npos));
        if (isForeign)
            return false;
        hasHead |= line.kind == zlines::headerLine;
    }
    return hasHead;
}

// Strict formats first, formats with keys alone last: they read almost any line. The order was
// chosen by the files of Debian packages; tests/unit/DialectProblemsTest.cpp counts how often it is
// right.
struct Candidate {
    RowIndex row;
    bool needsHead;  // files of the format start with a header, even if its readers do not insist
    bool (*isLikely)(std::string_view text, Lines const& lines) = nullptr;  // null: always
};

constexpr Candidate kCandidates[] = {
    {rowNetworkd, true, hasRecords},
    {rowIni, true, looksLikeStanza},
    {rowEnv, false},
    {rowGit, true, looksLikeGit},
    {rowDesktop, true},
    {rowSystemd, true},
    {rowPython, true},
    {rowPhp, false},
    {rowSysctl, false},
    {rowSamba, false},
    {rowQt, false},
    {rowEditorconfig, false},
    {rowMysql, true},
    {rowGit, true},
    {rowIni, false},
};

// Ends the reading at the first finding.
class Refusal final : public FindingSink {
public:
    void found(Finding const& finding) override { throw finding; }
};

bool isRead(Candidate const& candidate, std::string_view text, Lines& lines)
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
            return (hasHead || !candidate.needsHead) &&
                   (candidate.isLikely == nullptr || candidate.isLikely(text, lines));
    }
    return false;
}

}  // namespace

Row const* suggest(std::string_view text)
{
    Lines lines;
    for (Candidate const& candidate : kCandidates)
        if (isRead(candidate, text, lines))
            return &rowAt(candidate.row);
    return nullptr;
}

}  // namespace zdialects
