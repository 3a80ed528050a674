// Comments, and the numbers of lines.
#include <algorithm>
#include <string>

#include "ZBuffer.h"
#include "ZException.h"
#include "ZPropertiesImpl.h"
#include "ZProperties_p.h"
#include "ZStanzaFileProperties.h"
#include "lines/outline.h"
#include "stanza/stanza_dialect.h"

using namespace zproperties;

namespace {

[[noreturn]] void throwMissing(ZStanzaFileProperties_6_0 const& store, char const* stanza,
                               char const* key)
{
    ZPropertiesMissingPropertyException_6_0(store.fileName().getChars(), stanza, key)
        .throwException(kSource, raiseForMissing);
}

// Checks that the file, the stanza or the key exists.
void requireCommented(ZStanzaFileProperties_6_0 const& store, char const* stanza, char const* key)
{
    if (stanza == nullptr && key == nullptr)
        return;
    if (key == nullptr ? store.exists(stanza) == 0 : store.exists(stanza, key) == 0)
        throwMissing(store, stanza, key != nullptr ? key : "");
}

// Returns the line of the value at `index` of a key; null if it does not exist.
zlines::Line const* findLine(zlines::Outline& outline, char const* stanza, std::string_view key,
                             bool hasValues, unsigned index)
{
    uint32_t const found = outline.find(stanza, 0);
    if (found == zlines::kNone)
        return nullptr;
    std::string space;
    for (uint32_t at = outline.stanzas()[found].firstSection; at != zlines::kNone;
         at = outline.sections()[at].next) {
        zlines::Section const& section = outline.sections()[at];
        for (uint32_t line = section.first; line < section.end; ++line) {
            zlines::Line const& read = outline.lines()[line];
            bool const counts = hasValues ? read.kind == zlines::valueLine : read.isKey();
            if (counts && outline.keyName(line, space) == key && index-- == 0)
                return &read;
        }
    }
    return nullptr;
}

}  // namespace

int ZStanzaFileProperties_6_0::getComment(char const* stanza, char const* key,
                                          ZLCString_6_0& out) const
{
    Hold const hold(*this);
    requireCommented(*this, stanza, key);
    return static_cast<ZSCFData_6_0 const&>(cache()).getComment(stanza, key, out);
}

void ZStanzaFileProperties_6_0::setComment(char const* stanza, char const* key, char const* comment)
{
    Hold const hold(*this);
    requireCommented(*this, stanza, key);
    auto const set = [&](ZPCache_6_0& cache, char const* text) {
        static_cast<ZSCFData_6_0&>(cache).setComment(stanza, key, text);
    };
    if (comment != nullptr) {
        Rep::addComment(*this, comment, set);
        return;
    }
    ZLCString_6_0 old;
    if (getComment(stanza, key, old) == 0)
        return;
    set(cache(), nullptr);
    Rep::setModified(*this, 1);
}

unsigned long ZStanzaFileProperties_6_0::lineOf(char const* stanza, char const* key,
                                                unsigned index) const
{
    Hold const hold(*this);
    int const count = numValues(stanza, key);
    if (exists(stanza, key) == 0 || index >= static_cast<unsigned>(std::max(count, 1)))
        throwMissing(*this, stanza, key);
    if (isObfuscated(stanza, key) != 0)
        return 0;
    unsigned long number = 0;
    translateErrors(raiseInLineOf, [&] {
        ZBuffer_6_0 buffer;
        storeText(buffer);
        std::string_view const text(static_cast<char const*>(buffer.getBuffer()),
                                    buffer.getLength());
        zlines::Outline outline(text, zstanza::stanzaDialect());
        zlines::Line const* const line = findLine(outline, stanza, key, count > 0, index);
        if (line != nullptr)
            number = 1 + static_cast<unsigned long>(
                             std::count(text.begin(), text.begin() + line->begin, '\n'));
    });
    return number;
}
