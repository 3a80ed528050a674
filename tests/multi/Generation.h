// Generation: contents of a configuration file in which every value identifies the store that wrote
// it, so that a reader can distinguish a complete file from a torn one.
//
// Every fourth generation replaces all values. Each of the next three changes one line of it, to
// the same length or a little shorter. Every second generation keeps the secret of its predecessor.
#pragma once

#include <Z/ZArrayList.h>
#include <Z/ZLCString.h>
#include <Z/ZPropertiesImpl.h>
#include <Z/ZStanzaFileProperties.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>

// Contents that are of no single generation.
struct Torn : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Stores that can replace the file by a new one.
template <class Store>
concept CanReplace = requires(Store& store)
{
    store.setReplacing(1);
};

// How stores write the file.
enum class StoreMode { inPlace, replacing, keptLines, keptLinesReplacing };

class Generation {
public:
    static constexpr long kGroup = 4;  // generations that share most of their text

    /// Creates generation 0: an empty or missing file.
    Generation() = default;

    /// Creates a generation with values of about `size` bytes in total. With `secret` it has a
    /// companion.
    Generation(long number, size_t size, bool secret)
        : number_(number), size_(size), secret_(secret)
    {
    }

    long number() const { return number_; }
    size_t size() const { return size_; }
    bool isSecret() const { return secret_; }

    /// Returns the text of the file, except the entry with the companion's name.
    std::string text() const
    {
        std::string all = "[state]\ngeneration = " + std::to_string(number_) +
                          "\nsize = " + std::to_string(size_) + "\n\n[data]\n";
        for (size_t i = 0; i < lines(); ++i)
            all += lineName(i) + " = " + line(i) + "\n";
        return all;
    }

    /// Sets how the stores of this process write the file: in place or as a new file, with all
    /// lines rewritten or with the lines of the file kept.
    static void setMode(StoreMode mode) { mode_ = mode; }
    static bool isReplacing()
    {
        return mode_ == StoreMode::replacing || mode_ == StoreMode::keptLinesReplacing;
    }
    static bool keepsLines()
    {
        return mode_ == StoreMode::keptLines || mode_ == StoreMode::keptLinesReplacing;
    }

    /// Makes `object`, which has loaded nothing yet, store as set for this process.
    template <class Store>
    static void prepare(Store& object)
    {
        if constexpr (CanReplace<Store>)
            object.setReplacing(isReplacing() ? 1 : 0);
        if constexpr (requires { object.setAttributes(0, nullptr); })  // not a bare file
            if (keepsLines())
                object.setAttributes(ZPCache_6_0::keepComments | ZPCache_6_0::keepLines, nullptr);
    }

    /// Sets the values of `store` to this generation.
    void change(ZStanzaFileProperties_6_0& store) const
    {
        put(store, "state", "generation", std::to_string(number_));
        put(store, "state", "size", std::to_string(size_));
        for (size_t i = 0; i < lines(); ++i)
            put(store, "data", lineName(i), line(i));
        for (size_t i = lines(); !value(store, "data", lineName(i)).empty(); ++i)
            store.deleteKey("data", lineName(i).c_str());
        if (secret_)
            put(store, "state", "secret", secret(), 1);
        else if (!value(store, "state", "secret").empty())
            store.deleteKey("state", "secret");
    }

    /// Stores this generation as a program would: load, change, store.
    /// throws  as ZProperties_6_0::load() and store().
    void store(std::string const& path) const
    {
        ZStanzaFileProperties_6_0 store(1);
        prepare(store);
        if (access(path.c_str(), F_OK) == 0)
            store.load(path.c_str());
        change(store);
        store.store(path.c_str());
    }

    /// Returns the generation that a program finds.
    /// throws  Torn; as ZProperties_6_0::load().
    static Generation load(std::string const& path)
    {
        ZStanzaFileProperties_6_0 store(path.c_str(), 1);
        std::string const number = value(store, "state", "generation");
        if (number.empty())
            return {};
        std::string const secret = value(store, "state", "secret");
        Generation const found(std::strtol(number.c_str(), nullptr, 10),
                               std::strtoul(value(store, "state", "size").c_str(), nullptr, 10),
                               !secret.empty());
        for (size_t i = 0; i < found.lines(); ++i)
            if (value(store, "data", lineName(i)) != found.line(i))
                throw Torn("line " + std::to_string(i) + " is not of generation " + number);
        std::unique_ptr<ZArrayList_6_0> const keys(store.keyNames("data"));
        if (keys != nullptr && keys->size() != found.lines())
            throw Torn("generation " + number + " has lines of another one");
        if (found.secret_ && secret != found.secret())
            throw Torn("the companion is not of generation " + number);
        return found;
    }

    /// Returns whether `text` is the complete text of a generation without a secret.
    static bool isWhole(std::string const& text)
    {
        long number = 0;
        size_t size = 0;
        if (sscanf(text.c_str(), "[state]\ngeneration = %ld\nsize = %zu\n", &number, &size) != 2)
            return false;
        return text == Generation(number, size, false).text();
    }

private:
    static constexpr size_t kLine = 4000;

    size_t lines() const { return size_ / kLine + 1; }

    // Returns the generation that wrote the lines that this generation does not change.
    long base() const { return number_ - number_ % kGroup; }

    bool changes(size_t i) const
    {
        return number_ == base() || i == static_cast<size_t>(number_) * 7919 % lines();
    }

    static std::string lineName(size_t i) { return "line" + std::to_string(i); }

    std::string line(size_t i) const
    {
        size_t const length = i + 1 < lines() ? kLine : size_ % kLine + 1;
        if (!changes(i))
            return letters(base(), i, length);
        return letters(number_, i, length - std::min<size_t>(number_ % 3, length - 1));
    }

    std::string secret() const
    {
        long const number = number_ - number_ % 2;
        return letters(number, ~size_t{0}, 1 + number * 997 % 3000);
    }

    // Returns letters that only line `index` of generation `number` has.
    static std::string letters(long number, size_t index, size_t length)
    {
        std::minstd_rand random(static_cast<unsigned>(number * 7919 + index * 31 + 1));
        std::string all(length, ' ');
        for (char& c : all)
            c = static_cast<char>('a' + random() / 64 % 26);
        return all;
    }

    static void put(ZStanzaFileProperties_6_0& store, char const* stanza, std::string const& key,
                    std::string const& value, int obfuscated = 0)
    {
        store.setValue(stanza, key.c_str(), value.c_str(), obfuscated);
    }

    static std::string value(ZStanzaFileProperties_6_0& store, char const* stanza,
                             std::string const& key)
    {
        ZLCString_6_0 out;
        store.getValue(stanza, key.c_str(), out, 0, "");
        return out.getChars();
    }

    inline static StoreMode mode_ = StoreMode::inPlace;

    long number_ = 0;
    size_t size_ = 0;
    bool secret_ = false;
};
