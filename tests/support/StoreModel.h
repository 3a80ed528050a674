// StoreModel: a slow configuration store for tests, based on the slow cache. It models the valid
// changes, the iterators, the files and the notices to observers.
#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "CacheModel.h"

class StoreModel {
public:
    // The exception of an operation.
    enum Outcome { done, refused, pastTheEnd, invalidLine, missingCompanion };

    // An obfuscated value in the companion file.
    struct Record {
        std::string category;
        std::string key;
        std::string value;
    };

    // An iterator over the values of a key.
    class Values {
    public:
        Values(StoreModel& store, std::string category, std::string key, int kind)
            : store_(store), category_(std::move(category)), key_(std::move(key))
        {
            obfuscated_ = kind == 2 || (kind == 0 && store.hides(category_, key_));
            outcome_ = kind == 0 ? done : store.access(category_, key_, obfuscated_);
        }

        Outcome outcome() const { return outcome_; }  // of the constructor

        std::vector<std::string>* list() const
        {
            CacheModel::Key* const key = store_.cache.find(category_, key_);
            if (key == nullptr)
                return nullptr;
            return obfuscated_ ? &key->obfuscated : &key->plain;
        }
        int count() const { return list() == nullptr ? 0 : static_cast<int>(list()->size()); }
        bool hasMore() const { return position_ + 1 < count(); }
        bool isValid() const { return position_ >= 0 && position_ < count(); }

        Outcome next(std::string& value)
        {
            if (!hasMore())
                return pastTheEnd;
            value = (*list())[static_cast<size_t>(++position_)];
            return done;
        }

        Outcome change(std::string const& value)
        {
            if (!isValid())
                return pastTheEnd;
            if (!obfuscated_ && !isOneLine(value))
                return refused;
            (*list())[static_cast<size_t>(position_)] = value;
            store_.isModified = true;
            return done;
        }

        Outcome add(std::string const& value)
        {
            if (!obfuscated_ && !isOneLine(value))
                return refused;
            if (count() > 0) {
                position_ = position_ < count() ? position_ + 1 : count();
                list()->insert(list()->begin() + position_, value);
                store_.isModified = true;
                return done;
            }
            Outcome const outcome = store_.set(category_, key_, value, obfuscated_);
            if (outcome == done)
                position_ = value.empty() ? -1 : 0;
            return outcome;
        }

        Outcome remove()
        {
            if (!isValid())
                return pastTheEnd;
            if (position_ == 0 && obfuscated_)
                return store_.set(category_, key_, "", false);  // and the position is -1
            list()->erase(list()->begin() + position_--);
            store_.isModified = true;
            return done;
        }

        void forget() { position_ = -1; }

    private:
        StoreModel& store_;
        std::string const category_;
        std::string const key_;
        bool obfuscated_ = false;
        Outcome outcome_ = done;
        int position_ = -1;
    };

    explicit StoreModel(std::string const& path) : companionPath_(path + ".obf") {}

    // --- changes

    Outcome set(std::string const& category, std::string const& key, std::string const& value,
                bool obfuscated)
    {
        if (!isStorable(category, key) || (!obfuscated && !isOneLine(value)))
            return refused;
        if (!value.empty() && access(category, key, obfuscated) != done)
            return refused;
        cache.addLine(category, key, value, obfuscated);
        changed("2", category, key);
        return done;
    }

    Outcome add(std::string const& category, std::string const& key,
                std::vector<std::string> const& values, bool obfuscated)
    {
        if (!isStorable(category, key))
            return refused;
        for (std::string const& value : values)
            if (!obfuscated && !isOneLine(value))
                return refused;
        Values iterator(*this, category, key, obfuscated ? 2 : 1);
        if (iterator.outcome() != done)
            return refused;
        std::vector<std::string> held;
        for (std::string value; iterator.next(value) == done;)
            held.push_back(value);
        for (std::string const& value : values) {
            if (std::find(held.begin(), held.end(), value) != held.end())
                continue;
            held.push_back(value);
            iterator.add(value);
        }
        return done;
    }

    Outcome deleteKey(std::string const& category, std::string const& key)
    {
        if (category.empty() || key.empty())
            return refused;
        cache.delLine(category, key);
        changed("1", category, key);
        return done;
    }

    Outcome addStanza(std::string const& category)
    {
        if (!isStorable(category))
            return refused;
        cache.addStanzaLine(category);
        changed("0", category, "");
        return done;
    }

    Outcome deleteStanza(std::string const& category)
    {
        if (category.empty())
            return refused;
        cache.delStanzaLine(category);
        changed("1", category, "");
        return done;
    }

    Outcome addFileComment(std::string const& comment)
    {
        for (std::string const& line : commentLines(comment))
            cache.addFileComment(line);
        isModified = true;
        return done;
    }

    Outcome addStanzaComment(std::string const& category, std::string const& comment)
    {
        if (category.empty())
            return refused;
        // The lines are a single comment and stay together.
        std::string joined;
        for (std::string const& line : commentLines(comment))
            joined += (joined.empty() ? "" : "\n") + line;
        cache.addStanzaComment(category, joined);
        isModified = true;
        return done;
    }

    Outcome addEntryComment(std::string const& category, std::string const& key,
                            std::string const& comment)
    {
        if (!isStorable(category, key))
            return refused;
        for (std::string const& line : commentLines(comment))
            cache.addLineComment(category, key, line);
        isModified = true;
        return done;
    }

    // A key has values of a single kind.
    Outcome access(std::string const& category, std::string const& key, bool obfuscated)
    {
        if (category.empty() || key.empty())
            return refused;
        CacheModel::Key const* const found = cache.find(category, key);
        if (found == nullptr)
            return done;
        bool const isFree = found->plain.empty() && found->obfuscated.empty();
        std::vector<std::string> const& held = obfuscated ? found->obfuscated : found->plain;
        return isFree || !held.empty() ? done : refused;
    }

    bool hides(std::string const& category, std::string const& key)
    {
        CacheModel::Key const* const found = cache.find(category, key);
        return found != nullptr && !found->obfuscated.empty();
    }

    // --- the file and its companion

    void store()
    {
        CacheModel::Key const* const entry = cache.find(kReserved, "file");
        bool const hasEntry =
            entry != nullptr && !entry->plain.empty() && !entry->plain.back().empty();
        std::string const named = hasEntry ? entry->plain.back() : cache.companion;
        companion.clear();
        if (!cache.items.empty()) {
            for (auto const& [category, key] : cache.items)
                for (std::string const& value : cache.find(category, key)->obfuscated)
                    companion.push_back({category, key, value});
            cache.companion = named.empty() ? companionPath_ : named;
            if (!hasEntry)
                cache.addLine(kReserved, "file", cache.companion, false);
        } else if (!named.empty()) {
            cache.delLine(kReserved, "file");
            cache.companion.clear();
        }
        text = cache.text();
        isModified = false;
    }

    // Reads the file, and replaces the contents or adds to them.
    Outcome load(bool inPlace, bool keepsComments, CacheModel::Refusal& refusal)
    {
        CacheModel read;
        if (!inPlace)
            read = cache;
        refusal = read.read(text, keepsComments);
        if (refusal.line != 0)
            return invalidLine;
        if (!read.companion.empty()) {
            if (companion.empty())
                return missingCompanion;
            for (Record const& record : companion)
                read.add(record.category, record.key, record.value, true);
        }
        cache = read;
        isModified = false;
        return done;
    }

    static constexpr char const* kReserved = "configuration-database";

    CacheModel cache;
    bool isModified = false;
    std::string told;  // to observers, as "2[category]key "

    std::string text;               // of the file
    std::vector<Record> companion;  // empty: the file does not exist

private:
    static bool isOneLine(std::string const& value)
    {
        return value.find('\n') == std::string::npos;
    }

    static bool isStorable(std::string const& category)
    {
        return !category.empty() && category.find_first_of("]\n") == std::string::npos;
    }

    static bool isStorable(std::string const& category, std::string const& key)
    {
        return isStorable(category) && !key.empty() &&
               key.find_first_of("=\n") == std::string::npos && key[0] != '#' && key[0] != '[' &&
               std::string(" \t").find(key.front()) == std::string::npos &&
               std::string(" \t").find(key.back()) == std::string::npos;
    }

    static std::vector<std::string> commentLines(std::string const& comment)
    {
        std::vector<std::string> lines(1);
        for (char const c : comment) {
            if (c == '\n')
                lines.emplace_back();
            else
                lines.back() += c;
        }
        for (std::string& line : lines)
            if (line.empty() || line[0] != '#')
                line.insert(0, "#");
        return lines;
    }

    void changed(std::string const& what, std::string const& category, std::string const& key)
    {
        isModified = true;
        told += what + "[" + category + "]" + key + " ";
    }

    std::string const companionPath_;
};
