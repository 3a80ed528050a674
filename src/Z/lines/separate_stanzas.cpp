#include "separate_stanzas.h"

#include <algorithm>
#include <string>

#include "alignment.h"

namespace zlines {

namespace {

// A stanza without the number in its name.
struct Signature {
    std::string header;
    std::string all;  // with the keys and values
};

Signature signatureOf(std::string_view name, std::vector<std::string>& lines)
{
    size_t const digits = name.find_last_not_of("0123456789");
    bool const isNumbered =
        digits != std::string_view::npos && digits + 1 < name.size() && name[digits] == ']';
    Signature signature{std::string(name.substr(0, isNumbered ? digits : name.size())), {}};
    signature.all = signature.header;
    std::sort(lines.begin(), lines.end());
    for (std::string const& line : lines)
        (signature.all += '\0') += line;
    return signature;
}

Signature read(Outline const& outline, ReadStanza const& stanza)
{
    std::vector<std::string> lines;
    std::string space;
    Section const& section = outline.sections()[stanza.firstSection];
    for (uint32_t line = section.first; line < section.end; ++line) {
        if (!outline.lines()[line].isKey())
            continue;
        std::string text(outline.keyName(line, space));
        if (outline.lines()[line].kind == valueLine)
            (text += '\0') += outline.value(line, space);
        lines.push_back(std::move(text));
    }
    return signatureOf(stanza.name, lines);
}

Signature wanted(Outline const& outline, Document const& document, Stanza const& stanza)
{
    std::vector<std::string> lines;
    std::string space;
    for (uint32_t i = 0; i < stanza.entryCount; ++i) {
        Entry const& entry = document.entries[stanza.firstEntry + i];
        if (entry.isComment)
            continue;
        std::string const key(outline.dialect().comparableKey(entry.text, space));
        if (entry.valueCount == 0)
            lines.push_back(key);
        for (uint32_t value = 0; value < entry.valueCount; ++value) {
            lines.push_back(key);
            (lines.back() += '\0') += document.values[entry.firstValue + value];
        }
    }
    std::string name(outline.dialect().comparableStanza(stanza.name, space));
    return signatureOf(name, lines);
}

}  // namespace

std::vector<uint32_t> matchSeparateStanzas(Outline& outline, Document const& document)
{
    std::vector<Signature> before;
    std::vector<Signature> after;
    for (size_t i = 1; i < outline.stanzas().size(); ++i)
        before.push_back(read(outline, outline.stanzas()[i]));
    for (size_t i = 1; i < document.stanzas.size(); ++i)
        after.push_back(wanted(outline, document, document.stanzas[i]));
    auto const all = [](std::vector<Signature> const& signatures) {
        std::vector<std::string_view> texts;
        for (Signature const& signature : signatures)
            texts.push_back(signature.all);
        return texts;
    };
    Pairs pairs = align(all(before), all(after));
    pairs.push_back({static_cast<uint32_t>(before.size()), static_cast<uint32_t>(after.size())});

    std::vector<uint32_t> readOf(document.stanzas.size(), kNone);
    readOf[0] = 0;
    uint32_t at = 0;
    uint32_t next = 0;
    for (auto const& [old, now] : pairs) {
        for (; next < now; ++next) {
            uint32_t same = at;
            while (same < old && before[same].header != after[next].header)
                ++same;
            if (same == old)
                continue;
            readOf[next + 1] = same + 1;
            at = same + 1;
        }
        if (now < after.size())
            readOf[now + 1] = old + 1;
        at = old + 1;
        next = now + 1;
    }
    return readOf;
}

}  // namespace zlines
