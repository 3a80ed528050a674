#include "suggestion.h"

#include <algorithm>
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

// Returns whether the name of each key starts with a capital letter, as in units and networks.
bool looksLikeUnit(std::string_view text, Lines const& lines)
{
    return std::all_of(lines.begin(), lines.end(), [text](zlines::Line const& line) {
        std::string_view const name = zlines::slice(text, line.nameBegin(), line.nameEnd);
        return !line.isKey() || (!name.empty() && name.front() >= 'A' && name.front() <= 'Z');
    });
}

// Returns whether stanzas of one name have the same key, so that they are records, not parts of one
// stanza.
bool hasRecords(std::string_view text, Lines const& lines)
{
    if (!looksLikeUnit(text, lines))
        return false;
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

// Returns whether a line satisfies a predicate, which takes its kind and its name.
template <class Predicate>
bool anyName(std::string_view text, Lines const& lines, Predicate predicate)
{
    return std::any_of(lines.begin(), lines.end(), [&](zlines::Line const& line) {
        return predicate(line, zlines::slice(text, line.nameBegin(), line.nameEnd));
    });
}

// Returns whether a key has a language or a mark in brackets, or a header has several words.
bool looksLikeDesktop(std::string_view text, Lines const& lines)
{
    return anyName(text, lines, [text](zlines::Line const& line, std::string_view name) {
        return line.isKey() ? zlines::slice(text, line.begin, line.nameEnd).find('[') != name.npos
                            : line.kind == zlines::headerLine && name.find(' ') != name.npos;
    });
}

// Returns whether the keys are not indented and have one word each.
bool looksLikeIni(std::string_view text, Lines const& lines)
{
    return !anyName(text, lines, [](zlines::Line const& line, std::string_view name) {
        return line.isKey() && (line.indent > 0 || name.find_first_of(" \t") != name.npos);
    });
}

// Returns whether a key has several words.
bool looksLikeSamba(std::string_view text, Lines const& lines)
{
    return anyName(text, lines, [](zlines::Line const& line, std::string_view name) {
        return line.isKey() && name.find(' ') != name.npos;
    });
}

// Returns whether a header or a key is in most files for the interpreter or its processes.
bool looksLikePhp(std::string_view text, Lines const& lines)
{
    return anyName(text, lines, [](zlines::Line const& line, std::string_view name) {
        return line.isKey() ? name == "extension" || name == "zend_extension" ||
                                  name.find('.') != name.npos || name.find("[]") != name.npos
                            : line.kind == zlines::headerLine && name == "PHP";
    });
}

// Returns whether each key is the path of a setting.
bool looksLikeSysctl(std::string_view text, Lines const& lines)
{
    return !anyName(text, lines, [](zlines::Line const& line, std::string_view name) {
        return line.isKey() && name.find_first_of("./") == name.npos;
    });
}

// Returns whether a value is not stored as text, or a header is the header of settings without a
// group.
bool looksLikeQt(std::string_view text, Lines const& lines)
{
    return anyName(text, lines, [text](zlines::Line const& line, std::string_view name) {
        return line.isKey() ? text.substr(line.valueBegin).starts_with('@')
                            : line.kind == zlines::headerLine && name == "General";
    });
}

// Returns whether a header is a pattern of file names, or a key marks the topmost file.
bool looksLikeEditorconfig(std::string_view text, Lines const& lines)
{
    return anyName(text, lines, [](zlines::Line const& line, std::string_view name) {
        return line.isKey()
                   ? name == "root"
                   : line.kind == zlines::headerLine && name.find_first_of("*?{[") != name.npos;
    });
}

// Returns whether each key without a separator is a word, as the name of an option is.
bool looksLikeMysql(std::string_view text, Lines const& lines)
{
    constexpr std::string_view kLetters =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_";
    return !anyName(text, lines, [&](zlines::Line const& line, std::string_view name) {
        return line.kind == zlines::keyOnlyLine && name.find_first_not_of(kLetters) != name.npos;
    });
}

// Strict formats first, formats with keys alone last: they read almost any line. A format that few
// programs read is suggested only for contents that look like its files. The order was
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
    {rowDesktop, true, looksLikeDesktop},
    {rowSystemd, true, looksLikeUnit},
    {rowPhp, false, looksLikePhp},
    {rowIni, true, looksLikeIni},
    {rowSamba, true, looksLikeSamba},
    {rowPython, true},
    {rowSysctl, false, looksLikeSysctl},
    {rowSamba, true},
    {rowQt, false, looksLikeQt},
    {rowEditorconfig, false, looksLikeEditorconfig},
    {rowMysql, true, looksLikeMysql},
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
