#include "mixed_keys.h"

namespace zlines {

namespace {

// Calls `call(stanza, key)` for each line of a kind.
template <class Call>
void forEachLine(Outline const& outline, LineKind kind, Call call)
{
    std::string space;
    for (ReadStanza const& stanza : outline.stanzas())
        for (uint32_t at = stanza.firstSection; at != kNone; at = outline.sections()[at].next) {
            Section const& section = outline.sections()[at];
            for (uint32_t line = section.first; line < section.end; ++line)
                if (outline.lines()[line].kind == kind)
                    call(stanza.name, outline.keyName(line, space));
        }
}

}  // namespace

MixedKeys::MixedKeys(std::string_view text, Dialect const& dialect)
{
    Outline const outline(text, dialect);
    std::set<std::pair<std::string, std::string>> alone;
    forEachLine(outline, keyOnlyLine,
                [&](std::string_view stanza, std::string_view key) { alone.emplace(stanza, key); });
    if (alone.empty())
        return;
    forEachLine(outline, valueLine, [&](std::string_view stanza, std::string_view key) {
        if (auto found = alone.extract({std::string(stanza), std::string(key)}))
            keys_.insert(std::move(found));
    });
}

bool MixedKeys::contains(std::string_view stanza, std::string_view key) const
{
    return !keys_.empty() && keys_.contains({std::string(stanza), std::string(key)});
}

}  // namespace zlines
