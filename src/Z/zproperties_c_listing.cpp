// The plain functions for the values that count: their range, and the contents of a store as JSON
// text or as Python marshals it.
#include <limits.h>
#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <array>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <utility>
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

void addByte(char byte, TextBuffer& out)
{
    *out.append(1) = byte;
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

// The contents as JSON text.
class Json {
public:
    Json(TextBuffer& out, size_t) : out_(out) {}

    void beginTable() { begin('{'); }
    void endTable() { end('}'); }
    void beginList(uint32_t) { begin('['); }
    void endList() { end(']'); }

    void addName(std::string_view name)
    {
        addValue(name);
        addByte(':', out_);
    }
    void addValue(std::string_view value)
    {
        if (!std::exchange(isFirst_, false))
            addByte(',', out_);
        addString(value, out_);
    }

private:
    void begin(char mark)
    {
        addByte(mark, out_);
        isFirst_ = true;
    }
    void end(char mark)
    {
        addByte(mark, out_);
        isFirst_ = false;
    }

    TextBuffer& out_;
    bool isFirst_ = true;
};

// ---- Python's form ------------------------------------------------------------------------------

// Returns text as Python's form has it: a byte that is not UTF-8 is the surrogate that stands for
// it.
std::string withSurrogates(std::string_view text)
{
    std::string result;
    while (!text.empty()) {
        auto const byte = static_cast<unsigned char>(text[0]);
        size_t const length = byte < 0x80 ? 1 : characterLength(text);
        if (length != 0) {
            result += text.substr(0, length);
        } else {
            result += '\xED';
            result += static_cast<char>(0xB0 | byte >> 6);
            result += static_cast<char>(0x80 | (byte & 0x3F));
        }
        text.remove_prefix(length != 0 ? length : 1);
    }
    return result;
}

// The contents as Python's module marshal writes them. Short strings that occur again are
// references to the second occurrence, so that the reader creates them at most twice.
class Marshalled {
public:
    Marshalled(TextBuffer& out, size_t stringCount) : out_(out)
    {
        size_t size = 64;
        while (size < stringCount && size < kMaxKnown)
            size *= 2;
        known_.resize(size);
    }

    void beginTable() { addByte('{', out_); }
    void endTable() { addByte('0', out_); }
    void beginList(uint32_t count) { addNumber('[', count); }
    void endList() {}
    void addName(std::string_view name) { addValue(name); }
    void addValue(std::string_view text)
    {
        if (text.empty() || text.size() > kMaxShared)
            return addText(text, 0);
        Known& known = known_[hashOf(text) & (known_.size() - 1)];
        if (known.text != text) {
            known = {text};
            addText(text, 0);
        } else if (known.number == kNotShared) {
            known.number = count_++;
            addText(text, kReferredTo);
        } else {
            addNumber('r', known.number);
        }
    }

private:
    static constexpr size_t kMaxKnown = 4096;
    static constexpr size_t kMaxShared = 64;  // bytes
    static constexpr uint32_t kNotShared = UINT32_MAX;
    static constexpr int kReferredTo = 0x80;  // added to the type of a string

    // The last string with a hash, and its number among the strings that are referred to.
    struct Known {
        std::string_view text;
        uint32_t number = kNotShared;
    };

    static size_t hashOf(std::string_view text)
    {
        uint64_t first = 0;
        uint64_t last = 0;
        size_t const width = std::min(text.size(), sizeof first);
        memcpy(&first, text.data(), width);
        memcpy(&last, text.data() + text.size() - width, width);
        uint64_t const mixed =
            (first ^ (last << 7 | last >> 57) ^ text.size()) * 0x9E3779B97F4A7C15;
        return static_cast<size_t>(mixed >> 52);
    }

    void addText(std::string_view text, int flag)
    {
        bool const isPlain = plainLength(text) == text.size();
        if (isPlain && text.size() < 256) {
            char* const at = out_.append(text.size() + 2);
            at[0] = static_cast<char>('z' | flag);
            at[1] = static_cast<char>(text.size());
            memcpy(at + 2, text.data(), text.size());
            return;
        }
        std::string const encoded = isPlain ? std::string() : withSurrogates(text);
        std::string_view const bytes = isPlain ? text : encoded;
        addNumber('u' | flag, static_cast<uint32_t>(bytes.size()));
        out_.add(bytes);
    }

    void addNumber(int type, uint32_t number)
    {
        char* const at = out_.append(5);
        at[0] = static_cast<char>(type);
        for (unsigned i = 0; i < 4; ++i)
            at[i + 1] = static_cast<char>(number >> 8 * i);
    }

    TextBuffer& out_;
    std::vector<Known> known_;  // its size is a power of two
    uint32_t count_ = 0;
};

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

template <class Form>
void addValues(Contents const& contents, CountingValues const& counting, Id key, Form& form)
{
    Contents::Kind const kind = contents.anyKind(key);
    zdialects::ValueRange const range = counting.of(contents, key, kind);
    int const end = std::min(range.end, static_cast<int>(contents.valueCount(key, kind)));
    int index = 0;
    form.beginList(static_cast<uint32_t>(std::max(end - range.first, 0)));
    contents.forEachValue(key, kind, [&](std::string_view value) {
        int const at = index++;
        if (at >= range.first && at < end)
            form.addValue(value);
    });
    form.endList();
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

template <class Form>
void addStanza(Contents const& contents, CountingValues const& counting, Id category,
               std::vector<Id>& keys, Form& form)
{
    listKeys(contents, category, keys);
    form.beginTable();
    for (Id const key : keys) {
        form.addName(contents.name(contents.key(key)));
        addValues(contents, counting, key, form);
    }
    form.endTable();
}

template <class Form>
void addStanzas(ZPCategoryBasedCache_6_0 const& cache, CountingValues const& counting, Form& form)
{
    Contents const& contents = OpenCache::contentsOf(cache);
    ZArrayList_6_0 names(16, 1);
    cache.getNamesInFileOrder(names);
    std::vector<Id> keys;
    form.beginTable();
    for (unsigned i = 0; i < names.size(); ++i) {
        auto const& name = static_cast<ZLCString_6_0 const&>(*names.get(i));
        Id const category = contents.liveCategory(name.getChars());
        form.addName({name.getChars(), name.getLength()});
        if (category != 0) {
            addStanza(contents, counting, category, keys, form);
        } else {
            form.beginTable();
            form.endTable();
        }
    }
    form.endTable();
}

template <class Form>
void addContents(Store const& store, char const* stanza, char const* key, TextBuffer& out)
{
    ZPCategoryBasedCache_6_0 const& cache = OpenStore::cacheOf(store);
    CountingValues const counting(store.dialect());
    Contents const& contents = OpenCache::contentsOf(cache);
    size_t const length = contents.textLength();
    if (stanza == nullptr) {
        out.reserve(length + length / 2);
        constexpr size_t kBytesPerString = 16;
        Form form(out, length / kBytesPerString);
        addStanzas(cache, counting, form);
        return;
    }
    Id const found = key != nullptr ? contents.liveKey(stanza, key) : contents.liveCategory(stanza);
    if (found == 0)
        ZPropertiesMissingPropertyException_6_0(store.fileName().getChars(), stanza,
                                                key != nullptr ? key : "")
            .throwException(kSource, raiseInGetAll);
    std::vector<Id> keys;
    Form form(out, 0);
    if (key != nullptr)
        addValues(contents, counting, found, form);
    else
        addStanza(contents, counting, found, keys, form);
}

template <class Form>
char* returnContents(ZPROP_handle* handle, char const* stanza, char const* key, size_t* length,
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
        addContents<Form>(store, stanza, key, block);
        size_t const textLength = block.length() - kStringHeaderSize;
        char* const text = adoptString(block.release(), textLength);
        if (text == nullptr)
            throw std::bad_alloc();
        if (length != nullptr)
            *length = textLength;
        return text;
    });
}

}  // namespace

char* zstzPropGetAll_6_0(ZPROP_handle* handle, char const* stanza, char const* key, size_t* length,
                         int* code)
{
    return returnContents<Json>(handle, stanza, key, length, code);
}

char* zstzPropGetAllMarshalled_6_0(ZPROP_handle* handle, char const* stanza, char const* key,
                                   size_t* length, int* code)
{
    return returnContents<Marshalled>(handle, stanza, key, length, code);
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
