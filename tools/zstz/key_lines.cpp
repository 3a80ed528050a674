#include "key_lines.h"

#include <Z/ZPropertiesImpl_p.h>

#include <algorithm>

zlines::SharedText keptText(Store const& store)
{
    return ZPCategoryBasedCache_6_0::KeptLines::textOf(store.contents());
}

std::vector<KeyLine> findKeyLines(zlines::Outline& outline, std::string const& stanza,
                                  std::string const& key)
{
    std::vector<KeyLine> found;
    zlines::Dialect const& dialect = outline.dialect();
    std::string stanzaSpace, keySpace, space;
    uint32_t const index = outline.find(dialect.comparableStanza(stanza, stanzaSpace), 0);
    if (index == zlines::kNone)
        return found;
    std::string_view const wanted = dialect.comparableKey(key, keySpace);
    size_t number = 1;
    uint32_t counted = 0;
    for (uint32_t at = outline.stanzas()[index].firstSection; at != zlines::kNone;
         at = outline.sections()[at].next) {
        zlines::Section const section = outline.sections()[at];
        for (uint32_t i = section.first; i < section.end; ++i) {
            zlines::Line const& line = outline.lines()[i];
            if (!line.isKey() || outline.keyName(i, space) != wanted)
                continue;
            std::string_view const passed = zlines::slice(outline.text(), counted, line.begin);
            number += static_cast<size_t>(std::count(passed.begin(), passed.end(), '\n'));
            counted = line.begin;
            std::string_view const value =
                line.kind == zlines::valueLine ? outline.value(i, space) : "";
            found.push_back({line, i, number,
                             zlines::slice(outline.text(), line.valueBegin, line.valueEnd),
                             std::string(value)});
        }
    }
    return found;
}
