// CacheHelpers: reads, writes and compares caches of stanza files.
#pragma once

#include <Z/ZArrayList.h>
#include <Z/ZBuffer.h>
#include <Z/ZException.h>
#include <Z/ZPropertiesImpl.h>
#include <Z/ZSqueeze.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

using Cache = ZPCategoryBasedCache_6_0;
using Strings = std::vector<std::string>;

inline constexpr size_t kMaxReadLength = 8191;  // bytes of a full buffer without its zero byte

inline Strings strings(ZArrayList_6_0 const& list)
{
    Strings texts;
    for (unsigned i = 0; i < list.size(); ++i)
        texts.emplace_back(static_cast<ZLCString_6_0 const*>(list.get(i))->getChars());
    return texts;
}

inline Strings values(Cache const& cache, char const* category, char const* key,
                      ZPCache_6_0::get_type_e type = ZPCache_6_0::anyValues)
{
    Strings texts;
    Cache::Values values = cache.values(category, key, type);
    for (Cache::Text text; values.next(text);)
        texts.emplace_back(text.chars, text.length);
    return texts;
}

inline Strings names(ZPCache_6_0 const& cache)
{
    ZArrayList_6_0 list(1, 1);
    cache.getNames(list);
    return strings(list);
}

inline Strings names(ZPCache_6_0 const& cache, char const* category)
{
    std::unique_ptr<ZArrayList_6_0> const list(cache.getNames(category));
    return list == nullptr ? Strings{"(missing)"} : strings(*list);
}

inline std::string textOf(ZSCFData_6_0 const& data)
{
    ZBuffer_6_0 text;
    data.writeText(text);
    return {static_cast<char const*>(text.getBuffer()), text.getLength()};
}

// The visible state of a cache: companion, lines, names, values and obfuscated items.
inline std::string stateOf(ZSCFData_6_0 const& data)
{
    std::string state = "companion " + std::string(data.companionFile().getChars()) + "\n";
    ZArrayList_6_0 lines(1, 1);
    data.getLines(lines);
    for (unsigned i = 0; i < lines.size(); ++i) {
        auto const* const line = static_cast<ZPropLine_6_0 const*>(lines.get(i));
        state += std::to_string(line->type()) + " " + line->text().getChars() + "\n";
    }
    for (std::string const& category : names(data)) {
        state += "[" + category + "]\n";
        for (std::string const& key : names(data, category.c_str())) {
            for (auto const type : {ZPCache_6_0::plainValues, ZPCache_6_0::obfuscatedValues}) {
                state += key + " " + std::to_string(type) + ":";
                for (std::string const& value : values(data, category.c_str(), key.c_str(), type))
                    state += " <" + value + ">";
                state += "\n";
            }
        }
    }
    ZArrayList_6_0 items(1, 1);
    data.getObfuscatedItems(items);
    for (unsigned i = 0; i < items.size(); ++i) {
        auto const* const item = static_cast<ZObfuscatedItem_6_0 const*>(items.get(i));
        state += "item " + std::string(item->category().getChars()) + "/" + item->key().getChars() +
                 "\n";
    }
    return state;
}

// A stream that reads `text`.
class Stream {
public:
    explicit Stream(std::string const& text) : text_(text), stream_(nullptr)
    {
        stream_ =
            text.empty() ? fopen("/dev/null", "r") : fmemopen(text_.data(), text_.size(), "r");
    }
    ~Stream() { fclose(stream_); }
    Stream(Stream const&) = delete;
    Stream& operator=(Stream const&) = delete;
    FILE* file() const { return stream_; }

private:
    std::string text_;
    FILE* stream_;
};

// Returns a cache that has read `text`.
inline std::unique_ptr<ZSCFData_6_0> parsed(std::string const& text,
                                            unsigned long attributes = ZPCache_6_0::keepComments)
{
    auto data = std::make_unique<ZSCFData_6_0>();
    data->setAttributes(attributes, nullptr);
    Stream const stream(text);
    data->be_read("test.conf", stream.file());
    return data;
}

// Returns the bytes that be_write() writes.
inline std::string written(ZSCFData_6_0& data)
{
    char* chars = nullptr;
    size_t length = 0;
    FILE* const file = open_memstream(&chars, &length);
    data.be_write("test.conf", file);
    fclose(file);
    std::string const text(chars, length);
    free(chars);
    return text;
}

// Reads `before`, calls `change(cache)` and returns the new text.
template <class Change>
inline std::string changed(std::string const& before, Change change)
{
    std::unique_ptr<ZSCFData_6_0> const data = parsed(before);
    change(*data);
    return textOf(*data);
}

struct Refusal {
    int line;
    int column;
    std::string text;
};

// Reads `text` into `data`, which must refuse it.
inline Refusal refusal(ZSCFData_6_0& data, std::string const& text)
{
    Stream const stream(text);
    try {
        data.be_read("test.conf", stream.file());
    } catch (ZPropertiesInvalidDataException_6_0 const& e) {
        EXPECT_EQ(44u, e.messageNumber());
        EXPECT_STREQ("test.conf", e.propFile().getChars());
        EXPECT_STREQ("src/Z/ZPropertiesImpl", e.who());
        EXPECT_EQ(72u, e.where());
        return {e.badline(), e.column(), e.baddata().getChars()};
    }
    ADD_FAILURE() << "accepted";
    return {0, 0, ""};
}

inline std::string compressed(std::string records)
{
    ZSqueeze_6_0 squeeze;
    std::vector<unsigned char> buffer(records.size() * 2 + 100);
    squeeze.setSource(reinterpret_cast<unsigned char*>(records.data()), records.size());
    int const length = squeeze.squeeze(buffer.data(), buffer.size());
    EXPECT_GT(length, 0);
    return {reinterpret_cast<char const*>(buffer.data()), static_cast<size_t>(length)};
}

inline std::string decompressed(ZBuffer_6_0& buffer)
{
    ZSqueeze_6_0 squeeze;
    std::vector<unsigned char> bytes(1 << 20);
    squeeze.setSource(static_cast<unsigned char*>(buffer.getBuffer()), buffer.getLength());
    int const length = squeeze.unsqueeze(bytes.data(), bytes.size());
    EXPECT_GT(length, 0);
    return {reinterpret_cast<char const*>(bytes.data()), static_cast<size_t>(length)};
}

inline void readCompanion(ZSCFData_6_0& data, std::string content)
{
    ZBuffer_6_0 buffer(content.size(), content.data());
    data.be_read_obfuscated(buffer);
}

// Expects that `data` refuses `content` and is unchanged.
inline void expectCompanionRefused(ZSCFData_6_0& data, std::string const& content)
{
    std::string const before = stateOf(data);
    try {
        readCompanion(data, content);
        ADD_FAILURE() << "accepted";
    } catch (ZPropertiesInvalidDataException_6_0 const& e) {
        EXPECT_EQ(44u, e.messageNumber());
        EXPECT_STREQ("/x/test.obf", e.propFile().getChars());
        EXPECT_EQ(0, e.badline());
        EXPECT_STREQ("src/Z/ZPropertiesImpl", e.who());
    }
    EXPECT_EQ(before, stateOf(data));
}
