#include "heads.h"

#include <algorithm>

#include "escaped_names.h"
#include "percent_names.h"

namespace zdialects {

namespace {

bool isOfSection(char c)
{
    return isLetter(c) || isDigit(c) || c == '-' || c == '.';
}

bool isControl(char c)
{
    return (c >= 0 && c < 0x20) || c == 0x7f;
}

// Returns whether a name ends with a bracket and a number, as the names that callers see for the
// second and further stanzas with the same header.
bool hasNumber(std::string_view name)
{
    size_t const bracket = name.find_last_not_of("0123456789");
    return bracket != name.npos && name[bracket] == ']' && bracket + 1 < name.size();
}

Head invalid(size_t end)
{
    return {Head::isInvalid, 0, 0, end};
}

// Finds [a "B"].
Head findSubsection(Characters const& characters, std::string_view chars, size_t begin)
{
    size_t at = begin;
    while (at < chars.size() && isOfSection(chars[at]))
        ++at;
    bool const hasSection = at > begin;
    size_t const quote = characters.afterBlanks(chars, at);
    if (quote > at && quote < chars.size() && chars[quote] == '"') {
        for (at = quote + 1; at < chars.size() && chars[at] != '"'; ++at)
            if (chars[at] == '\\' && at + 1 < chars.size())
                ++at;
        ++at;
    }
    if (!hasSection || at >= chars.size() || chars[at] != ']')
        return invalid(std::min(at, chars.size()));
    return {Head::valid, begin, at, at + 1};
}

constexpr std::string_view kGroupMark = "$i";
constexpr std::string_view kBetweenGroups = "][";

// Returns the index of the bracket that ends [A][B].
size_t endOfGroups(std::string_view chars, size_t close)
{
    while (close + 1 < chars.size() && chars[close + 1] == '[') {
        size_t const next = chars.find(']', close + 2);
        if (next == chars.npos)
            return close;
        close = next;
    }
    return close;
}

// Returns the index of the end of A][B in [A][B][$i], and the start of the empty name in [$i]. Only
// at the end of the line, $i is the mark of groups that must not be changed.
size_t endOfName(std::string_view line, size_t begin, size_t close)
{
    std::string_view const spelled = line.substr(begin, close - begin);
    if (close + 1 != line.size() || !spelled.ends_with(kGroupMark))
        return close;
    std::string_view const groups = spelled.substr(0, spelled.size() - kGroupMark.size());
    return groups.empty()                     ? begin
           : groups.ends_with(kBetweenGroups) ? begin + groups.size() - kBetweenGroups.size()
                                              : close;
}

// Returns a.B of a "B".
std::string_view decodeSubsection(Switches const& switches, std::string_view spelled,
                                  std::string& space)
{
    bool const isFolded = switches.foldStanzas != FoldStanzas::none;
    size_t at = 0;
    space.clear();
    for (; at < spelled.size() && isOfSection(spelled[at]); ++at)
        space += isFolded ? foldedCase(spelled[at]) : spelled[at];
    if (at == spelled.size())
        return space == spelled ? spelled : std::string_view(space);
    space += '.';
    for (at = spelled.find('"', at) + 1; at + 1 < spelled.size(); ++at) {
        if (spelled[at] == '\\')
            ++at;
        space += spelled[at];
    }
    return space;
}

Head findAnyHead(Switches const& switches, Characters const& characters, std::string_view chars,
                 size_t at)
{
    size_t const begin = at + 1;
    if (switches.heads == Heads::subsection)
        return findSubsection(characters, chars, begin);
    std::string_view const line = chars.substr(0, characters.withoutBlanksAtEnd(chars, at));
    size_t close = line.find(']', begin);
    switch (switches.heads) {
        case Heads::none:
        case Heads::subsection:
        case Heads::toBracket:
        case Heads::toBracketTrimmed:
            break;
        case Heads::endsLine:
        case Heads::alone:
            close = line.ends_with(']') ? line.size() - 1 : line.npos;
            break;
        case Heads::toLastBracket:
            close = line.rfind(']');
            if (close == line.npos || close <= begin)
                return {Head::notAHead};
            break;
        case Heads::bracketedGroups:
            if (close == line.npos)
                return {Head::isPassedOver};
            close = endOfGroups(line, close);
            return {Head::valid, begin, endOfName(line, begin, close), close + 1};
    }
    if (close == line.npos)
        return {Head::isUnclosed};
    std::string_view const name = line.substr(begin, close - begin);
    if (switches.heads == Heads::toBracketTrimmed)
        return {Head::valid, begin, begin + trimmedName(name).size(), close + 1};
    bool const hasControl = std::any_of(name.begin(), name.end(), isControl);
    if (switches.heads == Heads::alone &&
        (name.empty() || hasControl || name.find_first_of("[]") != name.npos))
        return invalid(close + 1);
    if (switches.heads == Heads::endsLine &&
        (hasControl || name.find_first_of("\"'\\") != name.npos))
        return invalid(close + 1);
    return {Head::valid, begin, close, close + 1};
}

}  // namespace

Head findHead(Switches const& switches, Characters const& characters, std::string_view chars,
              size_t at)
{
    Head const head = findAnyHead(switches, characters, chars, at);
    if (head.kind != Head::valid || switches.repeatedHead != RepeatedHead::separate)
        return head;
    std::string space;
    std::string_view const spelled = chars.substr(head.nameBegin, head.nameEnd - head.nameBegin);
    std::string_view const name = decodeHead(switches, spelled, space);
    // [.] is the stanza .]1, and valid.
    return hasNumber(name) && (name != ".]1" || hasNumber(spelled)) ? invalid(head.end) : head;
}

std::string_view decodeHead(Switches const& switches, std::string_view spelled, std::string& space)
{
    std::string_view name = spelled;
    if (switches.heads == Heads::subsection)
        name = decodeSubsection(switches, spelled, space);
    else if (switches.names == Names::percent)
        name = decodePercents(spelled, space);
    else if (switches.names == Names::escaped)
        name = decodeEscapedStanza(spelled, space);
    return name == "." ? std::string_view(".]1") : name;
}

std::string_view foldStanza(Switches const& switches, std::string_view name, std::string& space)
{
    // [A.B] is a.b when it is decoded; of a name from a caller, B is a subsection.
    std::string_view folded = name;
    if (switches.foldStanzas == FoldStanzas::none)
        return name;
    if (switches.foldStanzas == FoldStanzas::beforeSubsection)
        folded = switches.heads == Heads::subsection ? name.substr(0, name.find('.'))
                                                     : std::string_view();
    if (std::none_of(folded.begin(), folded.end(), [](char c) { return c != foldedCase(c); }))
        return name;
    size_t const count = folded.size();
    if (name.data() != space.data())
        space = name;
    std::transform(space.begin(), space.begin() + static_cast<std::ptrdiff_t>(count), space.begin(),
                   foldedCase);
    return space;
}

}  // namespace zdialects
