#include "outline.h"

#include <algorithm>

namespace zlines {

Outline::Outline(std::string_view text, Dialect const& dialect) : text_(text), dialect_(dialect)
{
    lines_.reserve(static_cast<size_t>(std::count(text.begin(), text.end(), '\n')) + 1);
    dialect.split(text, lines_);
    sections_.push_back({kNone, 0, static_cast<uint32_t>(lines_.size()), kNone});
    stanzas_.push_back({dialect.topStanza(), 0, 0});
    for (uint32_t line = 0; line < lines_.size(); ++line)
        if (lines_[line].kind == headerLine)
            addHeader(line);
}

void Outline::addHeader(uint32_t line)
{
    sections_.back().end = line;
    auto const section = static_cast<uint32_t>(sections_.size());
    sections_.push_back({line, line + 1, static_cast<uint32_t>(lines_.size()), kNone});
    std::string space;
    std::string_view const name = dialect_.stanzaName(text_, lines_[line], space);
    uint32_t const known = find(name, stanzas_.size());
    if (known == kNone) {
        stanzas_.push_back({keep(name, space), section, section});
        return;
    }
    if (dialect_.refusesRepeatedHeaders())
        repeatedHeader_ = line;
    sections_[stanzas_[known].lastSection].next = section;
    stanzas_[known].lastSection = section;
}

uint32_t Outline::find(std::string_view name, size_t guess)
{
    if (guess > 0 && guess < stanzas_.size() && stanzas_[guess].name == name)
        return static_cast<uint32_t>(guess);
    // The first stanza has a name only if keys above the first header have a stanza.
    for (indexed_ = std::max<size_t>(indexed_, dialect_.topStanza().empty() ? 1 : 0);
         indexed_ < stanzas_.size(); ++indexed_)
        index_.emplace(stanzas_[indexed_].name, static_cast<uint32_t>(indexed_));
    auto const found = index_.find(name);
    return found == index_.end() ? kNone : found->second;
}

std::string_view Outline::lineEndingOf(uint32_t line) const
{
    for (uint32_t at = line + 1; at-- > 0;) {
        std::string_view const bytes = slice(text_, lines_[at].begin, endOf(at));
        if (bytes.ends_with("\r\n"))
            return "\r\n";
        if (bytes.ends_with('\n'))
            return "\n";
    }
    return "\n";
}

}  // namespace zlines
