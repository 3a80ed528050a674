// CacheModel: a slow cache for tests. It keeps values and lines in vectors and scans them exactly
// by the rules of a stanza file.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

class CacheModel {
public:
    struct Key {
        std::string name;
        std::vector<std::string> plain;
        std::vector<std::string> obfuscated;
    };
    struct Category {
        std::string name;
        std::vector<Key> keys;
    };
    enum Type { comment = 1, blank = 2, head = 4, keyLine = 8 };
    struct Line {
        Type type;
        std::string text;
        bool operator==(Line const& other) const
        {
            return type == other.type && text == other.text;
        }
    };

    // The number and text of a refused line; the number is 0 if no line was refused.
    struct Refusal {
        int line = 0;
        std::string text;
    };

    // --- values

    Category* find(std::string const& category)
    {
        for (Category& one : categories)
            if (one.name == category)
                return &one;
        return nullptr;
    }

    Key* find(std::string const& category, std::string const& key)
    {
        Category* const found = find(category);
        if (found != nullptr)
            for (Key& one : found->keys)
                if (one.name == key)
                    return &one;
        return nullptr;
    }

    Key* createAndGet(std::string const& category, std::string const& key)
    {
        if (find(category) == nullptr)
            categories.push_back({category, {}});
        if (key.empty())
            return nullptr;
        if (find(category, key) == nullptr)
            find(category)->keys.push_back({key, {}, {}});
        return find(category, key);
    }

    void add(std::string const& category, std::string const& key, std::string const& value,
             bool obfuscated)
    {
        Key* const entry = createAndGet(category, key);
        if (entry == nullptr || value.empty())
            return;
        if (obfuscated)
            addItem(category, key);
        (obfuscated ? entry->obfuscated : entry->plain).push_back(value);
    }

    void set(std::string const& category, std::string const& key, std::string const& value,
             bool obfuscated)
    {
        Key* const entry = createAndGet(category, key);
        if (entry == nullptr)
            return;
        entry->plain.clear();
        entry->obfuscated.clear();
        if (!obfuscated || value.empty())
            removeItem(category, key);
        else
            addItem(category, key);
        if (!value.empty())
            (obfuscated ? entry->obfuscated : entry->plain).push_back(value);
    }

    void remove(std::string const& category, std::string const& key)
    {
        removeItem(category, key);
        if (Category* const found = find(category); found != nullptr)
            std::erase_if(found->keys, [&](Key const& one) { return one.name == key; });
    }

    void remove(std::string const& category)
    {
        std::erase_if(items, [&](auto const& item) { return item.first == category; });
        std::erase_if(categories, [&](Category const& one) { return one.name == category; });
    }

    // --- lines

    void addStanzaLine(std::string const& category)
    {
        if (find(category) != nullptr)
            return;
        removeSection(category);
        createAndGet(category, "");
        appendHead(category);
    }

    void addLine(std::string const& category, std::string const& key, std::string const& value,
                 bool obfuscated)
    {
        addStanzaLine(category);
        if (key.empty())
            return;
        set(category, key, value, obfuscated);
        addKeyLine(category, key);
    }

    void delLine(std::string const& category, std::string const& key)
    {
        remove(category, key);
        if (size_t const at = keyLineOf(category, key); at != lines.size())
            lines.erase(lines.begin() + static_cast<std::ptrdiff_t>(at));
    }

    void delStanzaLine(std::string const& category)
    {
        remove(category);
        removeSection(category);
    }

    void addFileComment(std::string const& text)
    {
        size_t at = 0;
        while (at < lines.size() && lines[at].type == comment)
            ++at;
        at = insertComments(at, text);
        if (at < lines.size() && lines[at].type == head)
            insert(at, {blank, ""});
    }

    void addStanzaComment(std::string const& category, std::string const& text)
    {
        if (find(category) == nullptr)
            return;
        if (headOf(category) == lines.size())
            appendHead(category);
        size_t at = headOf(category);
        if (at == 0 || lines[at - 1].type != blank)
            insert(at++, {blank, ""});
        insertComments(at, text);
    }

    void addLineComment(std::string const& category, std::string const& key,
                        std::string const& text)
    {
        if (find(category, key) == nullptr)
            addLine(category, key, "", false);
        addKeyLine(category, key);
        size_t at = keyLineOf(category, key);
        if (lines[at - 1].type == keyLine || lines[at - 1].type == head)
            insert(at++, {blank, ""});
        insertComments(at, text);
    }

    // --- text

    std::string text() const
    {
        std::string out;
        std::string stanza;
        bool isSkipping = false;
        auto* const self = const_cast<CacheModel*>(this);
        for (Line const& line : lines) {
            if (line.type == head) {
                stanza = line.text;
                isSkipping = self->find(stanza) == nullptr;
            }
            if (isSkipping)
                continue;
            if (line.type == head) {
                out += "[" + stanza + "]\n";
            } else if (line.type == keyLine) {
                Key const* const key = self->find(stanza, line.text);
                if (key == nullptr)
                    continue;
                for (std::string const& value : key->plain)
                    out += key->name + " = " + value + "\n";
                if (key->plain.empty() && key->obfuscated.empty())
                    out += key->name + " =\n";
            } else {
                out += line.text + "\n";
            }
        }
        return out;
    }

    // Reads `input`. If a line is refused, the cache is unchanged.
    Refusal read(std::string const& input, bool keepsComments)
    {
        CacheModel read = *this;
        std::string stanza;
        bool hasStanza = false;
        int number = 0;
        for (size_t at = 0; at < input.size();) {
            // The bytes that fgets() stores in a buffer of 8192 bytes.
            size_t const feed = input.find('\n', at);
            size_t const end = std::min(
                {feed == std::string::npos ? input.size() : feed + 1, at + 8191, input.size()});
            std::string line = input.substr(at, end - at).c_str();
            at = end;
            ++number;
            line.erase(line.find_last_not_of(kSpaces) + 1);
            line.erase(0, line.find_first_not_of(kSpaces));
            Refusal const refusal{number, line};
            if (line.empty()) {
                if (keepsComments)
                    read.lines.push_back({blank, ""});
            } else if (line[0] == '#') {
                if (keepsComments)
                    read.lines.push_back({comment, line});
            } else if (line[0] == '[') {
                size_t const close = line.find(']');
                if (close == std::string::npos)
                    return refusal;
                stanza = line.substr(1, close - 1);
                if (read.find(stanza) != nullptr)
                    return refusal;
                hasStanza = true;
                // Do not revive the lines of a removed stanza.
                read.removeSection(stanza);
                read.createAndGet(stanza, "");
                read.lines.push_back({head, stanza});
            } else {
                size_t const sign = line.find('=');
                if (!hasStanza || sign == std::string::npos || sign == 0)
                    return refusal;
                std::string key = line.substr(0, sign);
                key.erase(key.find_last_not_of(kSpaces) + 1);
                std::string value = line.substr(sign + 1);
                value.erase(0, value.find_first_not_of(kSpaces));
                if (read.find(stanza, key) == nullptr)
                    read.lines.push_back({keyLine, key});
                read.add(stanza, key, value, false);
                if (stanza == "configuration-database" && key == "file")
                    read.companion = value;
            }
        }
        *this = read;
        return {};
    }

    // --- the order of the maps

    static uint32_t hash(std::string const& text)
    {
        uint32_t hash = 5381;
        for (char const c : text)
            hash = hash * 33 ^ static_cast<unsigned char>(c);
        return hash;
    }

    template <class Named>
    static std::vector<std::string> inMapOrder(std::vector<Named> const& all)
    {
        std::vector<std::string> names;
        for (uint32_t bucket = 0; bucket < 15; ++bucket)
            for (Named const& one : all)
                if (hash(one.name) % 15 == bucket)
                    names.push_back(one.name);
        return names;
    }

    std::vector<Category> categories;
    std::vector<Line> lines;
    std::vector<std::pair<std::string, std::string>> items;
    std::string companion;

private:
    static constexpr char const* kSpaces = " \t\n\v\f\r";

    void addItem(std::string const& category, std::string const& key)
    {
        std::pair<std::string, std::string> const item(category, key);
        if (std::find(items.begin(), items.end(), item) == items.end())
            items.push_back(item);
    }

    void removeItem(std::string const& category, std::string const& key)
    {
        std::erase(items, std::pair<std::string, std::string>(category, key));
    }

    void insert(size_t at, Line const& line)
    {
        lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(at), line);
    }

    void appendHead(std::string const& category)
    {
        lines.push_back({blank, ""});
        lines.push_back({head, category});
    }

    // Indexes of lines; lines.size() if not found.
    size_t headOf(std::string const& category) const
    {
        size_t at = 0;
        while (at < lines.size() && !(lines[at].type == head && lines[at].text == category))
            ++at;
        return at;
    }

    size_t keyLineOf(std::string const& category, std::string const& key) const
    {
        for (size_t at = headOf(category) + 1; at < lines.size() && lines[at].type != head; ++at)
            if (lines[at].type == keyLine && lines[at].text == key)
                return at;
        return lines.size();
    }

    void removeSection(std::string const& category)
    {
        size_t const from = headOf(category);
        if (from == lines.size())
            return;
        size_t to = from + 1;
        while (to < lines.size() && lines[to].type != head)
            ++to;
        lines.erase(lines.begin() + static_cast<std::ptrdiff_t>(from),
                    lines.begin() + static_cast<std::ptrdiff_t>(to));
    }

    void addKeyLine(std::string const& category, std::string const& key)
    {
        if (headOf(category) == lines.size())
            appendHead(category);
        if (keyLineOf(category, key) != lines.size())
            return;
        size_t place = headOf(category) + 1;
        bool isTemplateSeen = false;
        for (size_t at = place; at < lines.size() && lines[at].type != head; ++at) {
            if (lines[at].type == keyLine) {
                place = at + 1;
            } else if (lines[at].type == comment) {
                isTemplateSeen |= isCommentWeWant("#" + key + "=", lines[at].text);
            } else if (isTemplateSeen) {
                place = at;
                break;
            }
        }
        insert(place, {keyLine, key});
    }

    static bool isCommentWeWant(std::string const& pattern, std::string const& text)
    {
        size_t at = 0;
        for (char const c : pattern) {
            while (at < text.size() && text[at] == ' ')
                ++at;
            if (at == text.size() || text[at] != c)
                return false;
            ++at;
        }
        return true;
    }

    // Inserts the lines of a comment, and returns the index after them.
    size_t insertComments(size_t at, std::string text)
    {
        if (!text.empty() && text.back() == '\n')
            text.pop_back();
        for (bool isFirst = true;; isFirst = false) {
            size_t const feed = text.find('\n');
            std::string line = text.substr(0, feed);
            if (!isFirst && (line.empty() || line[0] != '#'))
                line.insert(0, "#");
            insert(at++, {comment, line});
            if (feed == std::string::npos)
                return at;
            text.erase(0, feed + 1);
        }
    }
};
