// DialectRewriter: edits a file in a dialect as the library does, with the difference writer: it
// reads all stanzas, keys, values and comments, makes the edits in them, and rewrites the text.
#pragma once

#include <Z/dialects/switched_dialect.h>
#include <Z/lines/difference.h>

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "DialectEdits.h"

namespace dialect_model {

class DialectRewriter {
public:
    DialectRewriter(zlines::Dialect const& dialect, std::string text)
        : dialect_(dialect), text_(std::move(text))
    {
        read();
    }

    // Returns the text after the edits, or nothing if they are refused. Fails if a further rewrite
    // would change the text again.
    std::optional<std::string> write(std::vector<Edit> const& edits)
    {
        for (Edit const& edit : edits)
            if (edit.kind == Edit::set)
                keyOf(edit).values.at(edit.index) = edit.value;
        std::vector<Edit> removals;
        for (Edit const& edit : edits)
            if (edit.kind == Edit::remove)
                removals.push_back(edit);
        std::sort(removals.begin(), removals.end(),
                  [](Edit const& a, Edit const& b) { return a.index > b.index; });
        for (Edit const& edit : removals)
            remove(edit);
        for (Edit const& edit : edits)
            if (edit.kind == Edit::add)
                add(edit);
        zlines::Document document;
        describe(document);
        try {
            std::string out;
            if (!zlines::rewrite(text_, dialect_, document, history_, out))
                return text_;
            std::string again;
            if (zlines::rewrite(out, dialect_, document, history_, again))
                return "changed again: " + again;
            return out;
        } catch (zlines::Refusal const&) {
            return std::nullopt;
        }
    }

    // Whether the key has lines without a value among others: lists of values do not have them.
    bool isKnown(Edit const& edit)
    {
        bool const isStanza = &stanzaOf(edit) != stanzas_.data() + stanzas_.size();
        return isStanza && (edit.kind == Edit::add || find(stanzaOf(edit), edit) != nullptr);
    }

    bool isMixed(Edit const& edit)
    {
        Entry const* const key = find(stanzaOf(edit), edit);
        return key != nullptr && key->alone > 0 && (!key->values.empty() || key->alone > 1);
    }

    bool isAlone(Edit const& edit)
    {
        Entry const* const key = find(stanzaOf(edit), edit);
        return key != nullptr && key->alone > 0;
    }

private:
    struct Entry {
        std::string text;      // of a comment with its mark, or the key as first written
        std::string identity;  // of a key: its name as it is compared
        bool isComment;
        bool isBelowBlank;
        std::vector<std::string> values = {};
        std::size_t alone = 0;  // lines without a value
    };

    struct Stanza {
        std::string name;      // as first written
        std::string identity;  // as it is compared
        bool isBelowBlank;
        std::vector<Entry> entries = {};
    };

    void read()
    {
        zlines::Outline outline(text_, dialect_);
        std::vector<zlines::HeaderComment> headerComments;
        outline.moveHeaderComments(headerComments);
        auto const isBlank = [&](std::uint32_t line) {
            return line == 0 || outline.lines()[line - 1].kind == zlines::blankLine;
        };
        for (zlines::ReadStanza const& stanza : outline.stanzas()) {
            std::uint32_t const header = outline.sections()[stanza.firstSection].header;
            std::string const identity(stanza.name);
            std::string space;
            std::string const name(
                header != zlines::kNone && dialect_.joinsHeaders()
                    ? dialect_.writtenStanza(text_, outline.lines()[header], space)
                    : identity);
            stanzas_.push_back({name, identity, header != zlines::kNone && isBlank(header)});
            for (std::uint32_t i = stanza.firstSection; i != zlines::kNone;
                 i = outline.sections()[i].next) {
                zlines::Section const& section = outline.sections()[i];
                for (std::uint32_t line = section.first; line < section.end; ++line)
                    readLine(outline, line, isBlank(line));
            }
        }
    }

    void readLine(zlines::Outline const& outline, std::uint32_t line, bool isBelowBlank)
    {
        std::vector<Entry>& entries = stanzas_.back().entries;
        zlines::Line const& record = outline.lines()[line];
        std::string space;
        if (record.kind == zlines::commentLine) {
            entries.push_back(
                {std::string(zlines::slice(text_, record.nameBegin(), record.valueEnd)), "", true,
                 isBelowBlank});
            return;
        }
        if (!record.isKey())
            return;
        std::string const identity(outline.keyName(line, space));
        auto key = std::find_if(entries.begin(), entries.end(), [&](Entry const& entry) {
            return !entry.isComment && entry.identity == identity;
        });
        if (key == entries.end()) {
            std::string const name(dialect_.writtenKey(text_, record, space));
            key = entries.insert(entries.end(), {name, identity, false, isBelowBlank});
        }
        if (record.kind == zlines::valueLine)
            key->values.emplace_back(outline.value(line, space));
        else
            ++key->alone;
    }

    std::string identityOf(std::string const& stanza) const
    {
        std::string space;
        return std::string(dialect_.comparableStanza(stanza, space));
    }

    Stanza& stanzaOf(Edit const& edit)
    {
        // The lines above the first header are a stanza in some dialects only.
        auto const first = stanzas_.begin() + (dialect_.topStanza().empty() ? 1 : 0);
        return *std::find_if(first, stanzas_.end(), [&](Stanza const& stanza) {
            return stanza.identity == identityOf(edit.stanza);
        });
    }

    Entry* find(Stanza& stanza, Edit const& edit)
    {
        std::string space;
        std::string_view const name = dialect_.comparableKey(edit.key, space);
        for (Entry& entry : stanza.entries)
            if (!entry.isComment && entry.identity == name)
                return &entry;
        return nullptr;
    }

    Entry& keyOf(Edit const& edit)
    {
        Entry& key = *find(stanzaOf(edit), edit);
        if (key.values.empty())
            key.values.resize(1);  // a key alone gets a value
        return key;
    }

    void remove(Edit const& edit)
    {
        Stanza& stanza = stanzaOf(edit);
        Entry* const key = find(stanza, edit);
        if (edit.index < key->values.size())
            key->values.erase(key->values.begin() + static_cast<std::ptrdiff_t>(edit.index));
        if (key->values.empty())
            stanza.entries.erase(stanza.entries.begin() + (key - stanza.entries.data()));
    }

    // A new key follows the last key of its stanza.
    void add(Edit const& edit)
    {
        Stanza& stanza = stanzaOf(edit);
        if (Entry* const key = find(stanza, edit)) {
            key->values.push_back(edit.value);
            return;
        }
        auto const last = std::find_if(stanza.entries.rbegin(), stanza.entries.rend(),
                                       [](Entry const& entry) { return !entry.isComment; });
        std::string space;
        std::string const identity(dialect_.comparableKey(edit.key, space));
        stanza.entries.insert(last.base(), {edit.key, identity, false, false, {edit.value}});
    }

    void describe(zlines::Document& document) const
    {
        for (std::size_t i = 0; i < stanzas_.size(); ++i) {
            // The comments above the first header are no part of a stanza; keys there are.
            bool isTop = i == 0;
            if (!isTop)
                document.addStanza(stanzas_[i].name, stanzas_[i].isBelowBlank);
            for (Entry const& entry : stanzas_[i].entries) {
                if (isTop && !entry.isComment) {
                    document.addStanza(stanzas_[i].name, entry.isBelowBlank);
                    isTop = false;
                }
                if (entry.isComment) {
                    document.addComment(entry.text, entry.isBelowBlank);
                    continue;
                }
                document.addKey(entry.text, entry.isBelowBlank);
                for (std::string const& value : entry.values)
                    document.addValue(value);
            }
        }
    }

    zlines::Dialect const& dialect_;
    std::string const text_;
    zlines::TextHistory history_;
    std::vector<Stanza> stanzas_;
};

}  // namespace dialect_model
