// The plain functions for the values that count: their range, and the contents of a store as JSON
// text.
#include <limits.h>
#include <string.h>

#include <algorithm>
#include <array>
#include <memory>
#include <new>
#include <string_view>
#include <vector>

#include "ZArrayList.h"
#include "ZException.h"
#include "ZPropertiesImpl_p.h"
#include "ZStanzaDialect_p.h"
#include "dialects/counting.h"
#include "handles/returned_strings.h"
#include "stanza/text_buffer.h"
#include "zproperties_c.h"
#include "zproperties_c_p.h"

using namespace zhandles;

namespace {

using zcache::Contents;
using zcache::Id;
using zstanza::TextBuffer;

constexpr char kSource[] = "src/Z/zproperties_c";

// Stable ids in reports; log scanners match them. See docs/failures.md.
enum RaiseSite { raiseInGetAll = 470 };

// Makes the cache of a store and its contents accessible.
struct OpenStore : ZProperties_6_0 {
    static ZPCategoryBasedCache_6_0 const& cacheOf(ZProperties_6_0 const& store)
    {
        ZPCache_6_0& (ZProperties_6_0::*const cache)() const = &OpenStore::cache;
        return static_cast<ZPCategoryBasedCache_6_0 const&>((store.*cache)());
    }
};

struct OpenCache : ZPCategoryBasedCache_6_0 {
    static Contents const& contentsOf(ZPCategoryBasedCache_6_0 const& cache)
    {
        Rep const& (ZPCategoryBasedCache_6_0::*const rep)() const = &OpenCache::rep;
        return (cache.*rep)();
    }
};

// ---- Strings ------------------------------------------------------------------------------------

bool isContinuation(std::string_view text, size_t at)
{
    return at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80;
}

// Returns the length of the character of UTF-8 at the start of `text`; 0 if the bytes are not
// UTF-8.
size_t characterLength(std::string_view text)
{
    auto const first = static_cast<unsigned char>(text[0]);
    auto const second = static_cast<unsigned char>(text.size() > 1 ? text[1] : 0);
    size_t const length = first >= 0xF5   ? 0
                          : first >= 0xF0 ? 4
                          : first >= 0xE0 ? 3
                          : first >= 0xC2 ? 2
                                          : 0;
    for (size_t i = 1; i < length; ++i)
        if (!isContinuation(text, i))
            return 0;
    bool const isOverlong = (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90);
    bool const isSurrogate = first == 0xED && second >= 0xA0;
    bool const isTooLarge = first == 0xF4 && second >= 0x90;
    return isOverlong || isSurrogate || isTooLarge ? 0 : length;
}

void addEscape(char prefix, unsigned char byte, TextBuffer& out)
{
    constexpr char kDigits[] = "0123456789abcdef";
    out.add(prefix == 'd' ? "\\udc" : "\\u00");
    out.add({&kDigits[byte >> 4], 1});
    out.add({&kDigits[byte & 15], 1});
}

constexpr std::array<bool, 256> kIsPlain = [] {
    std::array<bool, 256> isPlain = {};
    for (size_t byte = 0x20; byte < 0x80; ++byte)
        isPlain[byte] = byte != '"' && byte != '\\';
    return isPlain;
}();

// Returns the number of bytes at the start of `text` that need no escape and are ASCII.
size_t plainLength(std::string_view text)
{
    size_t length = 0;
    while (length < text.size() && kIsPlain[static_cast<unsigned char>(text[length])])
        ++length;
    return length;
}

void addEscaped(std::string_view text, TextBuffer& out)
{
    while (!text.empty()) {
        auto const byte = static_cast<unsigned char>(text[0]);
        size_t length = plainLength(text);
        if (length == 0 && byte >= 0x80)
            length = characterLength(text);
        if (length != 0)
            out.add(text.substr(0, length));
        else if (byte == '"' || byte == '\\')
            out.add(byte == '"' ? "\\\"" : "\\\\");
        else
            addEscape(byte >= 0x80 ? 'd' : '0', byte, out);
        text.remove_prefix(length != 0 ? length : 1);
    }
}

void addString(std::string_view text, TextBuffer& out)
{
    if (plainLength(text) < text.size()) {
        out.add("\"");
        addEscaped(text, out);
        out.add("\"");
        return;
    }
    char* const at = out.append(text.size() + 2);
    at[0] = '"';
    memcpy(at + 1, text.data(), text.size());
    at[text.size() + 1] = '"';
}

// ---- Values -------------------------------------------------------------------------------------

// The values of a key that count in a dialect.
class CountingValues {
public:
    explicit CountingValues(ZStanzaDialect_6_0 const& dialect)
        : switches_(zdialects::switchesOf(dialect))
    {
    }

    zdialects::ValueRange of(Contents const& contents, Id key, Contents::Kind kind) const
    {
        if (switches_.isStanzaFormat())
            return {0, INT_MAX};
        return zdialects::countingRange(switches_, contents.name(contents.key(key)),
                                        static_cast<int>(contents.valueCount(key, kind)),
                                        [&] { return afterReset(contents, key, kind); });
    }

private:
    static int afterReset(Contents const& contents, Id key, Contents::Kind kind)
    {
        int first = 0;
        int index = 0;
        contents.forEachValue(key, kind, [&](std::string_view value) {
            ++index;
            if (value.empty())
                first = index;
        });
        return first;
    }

    zdialects::Switches const switches_;
};

void addValues(Contents const& contents, CountingValues const& counting, Id key, TextBuffer& out)
{
    char const* separator = "[";
    Contents::Kind const kind = contents.anyKind(key);
    zdialects::ValueRange const range = counting.of(contents, key, kind);
    int index = 0;
    contents.forEachValue(key, kind, [&](std::string_view value) {
        int const at = index++;
        if (at < range.first || at >= range.end)
            return;
        out.add(std::string_view(separator));
        addString(value, out);
        separator = ",";
    });
    out.add(*separator == '[' ? "[]" : "]");
}

// Returns the keys of a category in the order of their lines, then the keys without a line.
void listKeys(Contents const& contents, Id category, std::vector<Id>& keys)
{
    keys.clear();
    zcache::Category const& found = contents.category(category);
    keys.reserve(found.keyCount);
    Id line = found.header != 0 ? contents.line(found.header).next : contents.firstLine();
    for (; line != 0 && contents.line(line).kind != zcache::headerLine;
         line = contents.line(line).next) {
        Id const key = contents.line(line).kind == zcache::keyLine ? contents.line(line).ref : 0;
        if (key != 0 && contents.key(key).isLive && contents.key(key).category == category)
            keys.push_back(key);
    }
    if (keys.size() >= found.keyCount)
        return;
    std::vector<Id> listed = keys;
    std::sort(listed.begin(), listed.end());
    for (Id key = found.firstKey; key != 0; key = contents.key(key).next)
        if (contents.key(key).isLive && !std::binary_search(listed.begin(), listed.end(), key))
            keys.push_back(key);
}

void addStanza(Contents const& contents, CountingValues const& counting, Id category,
               std::vector<Id>& keys, TextBuffer& out)
{
    listKeys(contents, category, keys);
    char const* separator = "{";
    for (Id const key : keys) {
        out.add(std::string_view(separator));
        addString(contents.name(contents.key(key)), out);
        out.add(":");
        addValues(contents, counting, key, out);
        separator = ",";
    }
    out.add(keys.empty() ? "{}" : "}");
}

void addStanzas(ZPCategoryBasedCache_6_0 const& cache, CountingValues const& counting,
                TextBuffer& out)
{
    Contents const& contents = OpenCache::contentsOf(cache);
    ZArrayList_6_0 names(16, 1);
    cache.getNamesInFileOrder(names);
    std::vector<Id> keys;
    out.reserve(contents.textLength() + contents.textLength() / 2);
    for (unsigned i = 0; i < names.size(); ++i) {
        auto const& name = static_cast<ZLCString_6_0 const&>(*names.get(i));
        Id const category = contents.liveCategory(name.getChars());
        out.add(i == 0 ? "{" : ",");
        addString({name.getChars(), name.getLength()}, out);
        out.add(":");
        if (category != 0)
            addStanza(contents, counting, category, keys, out);
        else
            out.add("{}");
    }
    out.add(names.size() == 0 ? "{}" : "}");
}

void addContents(Store const& store, char const* stanza, char const* key, TextBuffer& out)
{
    ZPCategoryBasedCache_6_0 const& cache = OpenStore::cacheOf(store);
    CountingValues const counting(store.dialect());
    if (stanza == nullptr) {
        addStanzas(cache, counting, out);
        return;
    }
    Contents const& contents = OpenCache::contentsOf(cache);
    Id const found = key != nullptr ? contents.liveKey(stanza, key) : contents.liveCategory(stanza);
    if (found == 0)
        ZPropertiesMissingPropertyException_6_0(store.fileName().getChars(), stanza,
                                                key != nullptr ? key : "")
            .throwException(kSource, raiseInGetAll);
    std::vector<Id> keys;
    if (key != nullptr)
        addValues(contents, counting, found, out);
    else
        addStanza(contents, counting, found, keys, out);
}

}  // namespace

char* zstzPropGetAll_6_0(ZPROP_handle* handle, char const* stanza, char const* key, size_t* length,
                         int* code)
{
    if (length != nullptr)
        *length = 0;
    if (code == nullptr || (stanza == nullptr && key != nullptr))
        return missingArgument(nullptr);
    return readFile(handle, Call{{stanza, key}}, code, [&](Store& store) {
        Store::Access const access(store);
        TextBuffer block;
        block.append(kStringHeaderSize);
        addContents(store, stanza, key, block);
        size_t const textLength = block.length() - kStringHeaderSize;
        char* const text = adoptString(block.release(), textLength);
        if (text == nullptr)
            throw std::bad_alloc();
        if (length != nullptr)
            *length = textLength;
        return text;
    });
}

int zstzPropGetCountingRange_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                                 int* first, int* count)
{
    if (stanza == nullptr || key == nullptr || first == nullptr || count == nullptr)
        return missingArgument();
    return withStore(handle, {{stanza, key}}, readCode, [&](Store const& store) {
        Contents const& contents = OpenCache::contentsOf(OpenStore::cacheOf(store));
        Id const found = contents.liveKey(stanza, key);
        if (found == 0)
            ZPropertiesMissingPropertyException_6_0(store.fileName().getChars(), stanza, key)
                .throwException(kSource, raiseInGetAll);
        Contents::Kind const kind = contents.anyKind(found);
        int const all = static_cast<int>(contents.valueCount(found, kind));
        zdialects::ValueRange const range =
            CountingValues(store.dialect()).of(contents, found, kind);
        *first = std::min(range.first, all);
        *count = std::min(range.end, all) - *first;
    });
}
