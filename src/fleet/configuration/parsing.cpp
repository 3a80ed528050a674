#include "configuration/parsing.h"

#include <Z/ZArrayList.h>
#include <Z/ZBuffer.h>
#include <Z/ZException.h>
#include <Z/ZLCString.h>

#include <algorithm>

namespace zfleet {

namespace {

constexpr char kSource[] = "src/fleet/configuration/parsing";
enum RaiseSite { raiseForZeroByte = 1 };

// The entry of a stanza file that names its companion; docs/file-formats.md.
constexpr char kReservedStanza[] = "configuration-database";
constexpr char kReservedKey[] = "file";

char const* nameAt(ZArrayList_6_0 const& names, unsigned index)
{
    return static_cast<ZLCString_6_0 const*>(names.get(index))->getChars();
}

bool isLastStanza(ZSCFData_6_0 const& cache, char const* stanza)
{
    ZArrayList_6_0 names(8, 1);
    cache.getNamesInFileOrder(names);
    return names.size() > 0 && nameAt(names, names.size() - 1) == std::string(stanza);
}

// The reader of lines ends a line at a zero byte: the next store would lose the rest of the line.
void requireNoZeroByte(char const* path, std::string const& text)
{
    size_t const zero = text.find('\0');
    if (zero == std::string::npos)
        return;
    size_t const start = text.rfind('\n', zero) + 1;  // 0 in the first line
    auto const line =
        std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(zero), '\n');
    ZPropertiesInvalidDataException_6_0(path, text.substr(start, zero - start).c_str(),
                                        static_cast<int>(line) + 1)
        .throwException(kSource, raiseForZeroByte);
}

// Removes the name of the companion.
void dropCompanionName(ZSCFData_6_0& cache)
{
    cache.setCompanionFile(nullptr);
    if (cache.contains(kReservedStanza, kReservedKey) == 0)
        return;
    cache.delLine(kReservedStanza, kReservedKey);
    // In the middle of the file, this would remove the comments above the next stanza.
    if (cache.keyCount(kReservedStanza) == 0 && isLastStanza(cache, kReservedStanza))
        cache.delLine(kReservedStanza);
}

bool namesCompanion(ZSCFData_6_0 const& cache)
{
    return !cache.companionFile().isEmpty() || cache.contains(kReservedStanza, kReservedKey) != 0;
}

std::string bytesOf(ZBuffer_6_0 const& buffer)
{
    return {static_cast<char const*>(buffer.getBuffer()), buffer.getLength()};
}

std::vector<std::string> listOf(ZSCFData_6_0 const& cache, char const* stanza, char const* key,
                                ZPCache_6_0::get_type_e type)
{
    std::vector<std::string> list;
    ZPCategoryBasedCache_6_0::Values values = cache.values(stanza, key, type);
    for (ZPCategoryBasedCache_6_0::Text text; values.next(text);)
        list.emplace_back(text.chars, text.length);
    return list;
}

}  // namespace

std::unique_ptr<ZSCFData_6_0> parseContents(char const* path, Contents const& contents,
                                            ZSCFData_6_0 const& prototype)
{
    requireNoZeroByte(path, contents.text);
    std::unique_ptr<ZSCFData_6_0> cache(static_cast<ZSCFData_6_0*>(prototype.makeEmpty()));
    cache->readText(path, contents.text.data(), contents.text.size());
    dropCompanionName(*cache);
    if (!contents.hidden.empty()) {
        ZBuffer_6_0 hidden;
        hidden.setBuffer(contents.hidden.size(), const_cast<char*>(contents.hidden.data()));
        // A damaged companion is reported with this name.
        cache->setCompanionFile((std::string(path) + "#hidden").c_str());
        cache->be_read_obfuscated(hidden);
        cache->setCompanionFile(nullptr);
    }
    return cache;
}

Contents formatContents(ZSCFData_6_0 const& cache)
{
    auto const* source = &cache;
    std::unique_ptr<ZPCache_6_0> copy;
    if (namesCompanion(cache)) {
        copy.reset(cache.clone());
        dropCompanionName(static_cast<ZSCFData_6_0&>(*copy));
        source = static_cast<ZSCFData_6_0*>(copy.get());
    }
    ZBuffer_6_0 text;
    source->writeText(text);
    ZBuffer_6_0 hidden;
    const_cast<ZSCFData_6_0*>(source)->be_write_obfuscated(hidden);
    return {bytesOf(text), bytesOf(hidden)};
}

AllValues valuesOf(ZSCFData_6_0 const& cache)
{
    AllValues all;
    ZArrayList_6_0 stanzas(8, 1);
    cache.getNames(stanzas);
    for (unsigned i = 0; i < stanzas.size(); ++i) {
        char const* const stanza = nameAt(stanzas, i);
        StanzaValues& found = all[stanza];
        ZArrayList_6_0 keys(8, 1);
        cache.ZPCategoryBasedCache_6_0::getNames(stanza, keys);
        for (unsigned k = 0; k < keys.size(); ++k) {
            char const* const key = nameAt(keys, k);
            found[key] = {listOf(cache, stanza, key, ZPCache_6_0::plainValues),
                          listOf(cache, stanza, key, ZPCache_6_0::obfuscatedValues)};
        }
    }
    return all;
}

}  // namespace zfleet
