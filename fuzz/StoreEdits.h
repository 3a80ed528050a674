// StoreEdits: renames, comments and removals of stanzas in a store of any dialect. The new file
// reads as the old one with the edit, and no line changes that the edit does not concern. A refused
// edit changes nothing; neither does an edit that sets the present value, name or comment.
#pragma once

#include <Z/ZBuffer.h>
#include <Z/ZException.h>
#include <Z/ZLCString.h>
#include <Z/ZStanzaFileProperties.h>
#include <Z/dialects/switched_dialect.h>
#include <Z/dialects/table.h>

#include <algorithm>
#include <bit>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "DialectEdits.h"
#include "DialectReading.h"
#include "check.h"

class StoreEdits {
public:
    enum Kind : unsigned {
        same,
        renameKey,
        renameStanza,
        removeStanza,
        setComment,
        removeComment,
        addKey,
        removeKey,
        kindCount,
        firstOfKeys = addKey
    };

    /// `row` is the dialect of the table from which the switches vary.
    StoreEdits(zdialects::SwitchedDialect const& dialect, int row, std::string const& text)
        : dialect_(dialect),
          row_(zdialects::rowAt(row)),
          rules_(dialect_model::modelSwitches(dialect.switches())),
          text_(text),
          old_(text, rules_),
          isPossible_(!old_.refused() && text.find('\0') == text.npos && makeDialect())
    {
    }

    /// range   `place` chooses a stanza and a key; `wanted` is a name or a comment.
    void run(Kind kind, Choices& place, std::string const& wanted)
    {
        if (!isPossible_ || !load(store_, text_))
            return;
        check(textOf(store_) == text_, "a store without a change writes the file");
        if (!choose(place))
            return;
        edit_ = "edit " + std::to_string(kind) + " to \"" + wanted + "\"";
        switch (kind) {
            case same:
                return giveTheSame();
            case renameKey:
                return rename(wanted, true);
            case renameStanza:
                return rename(wanted, false);
            case removeStanza:
                return removeTheStanza();
            case setComment:
                return comment(place.below(3), &wanted);
            case removeComment:
                return comment(place.below(3), nullptr);
            case addKey:
                return add(wanted);
            case removeKey:
                return removeTheKey();
            default:
                return;
        }
    }

private:
    using Store = ZStanzaFileProperties_6_0;
    using Model = dialect_model::DialectModel;
    using Values =
        std::map<std::pair<std::string, std::string>,
                 std::vector<std::optional<std::string>>>;  // nothing: a key without a value
    using Lines = std::vector<std::string>;

    // The dialect of the switches. Some switches can be set only after others.
    bool makeDialect()
    {
        check(ZStanzaDialect_6_0::named(row_.name, named_) == 1, "the table has its names");
        auto const bytes =
            std::bit_cast<std::array<uint8_t, zdialects::kSwitchCount>>(dialect_.switches());
        bool isLeft = true;
        for (int round = 0; round < 3 && isLeft; ++round) {
            isLeft = false;
            for (size_t i = 0; i < bytes.size(); ++i) {
                auto const which = static_cast<ZStanzaSwitch>(i);
                if (named_.get(which) == bytes[i])
                    continue;
                try {
                    named_.set(which, bytes[i]);
                } catch (ZInvalidParameterException_6_0 const&) {
                    isLeft = true;
                }
            }
        }
        return !isLeft;
    }

    bool load(std::optional<Store>& store, std::string const& text) const
    {
        store.emplace(1, named_);
        try {
            store->loadText(text.data(), text.size());
            return true;
        } catch (ZPropertiesInvalidDataException_6_0 const&) {
            return false;
        }
    }

    static std::string textOf(std::optional<Store> const& store)
    {
        ZBuffer_6_0 buffer;
        store->storeText(buffer);
        return {static_cast<char const*>(buffer.getBuffer()), buffer.getLength()};
    }

    // Returns the text after an edit, or nothing if the edit or the store is refused.
    template <class EditOfStore>
    std::optional<std::string> textAfter(EditOfStore const& edit)
    {
        try {
            edit();
        } catch (ZInvalidParameterException_6_0 const&) {
            check(textOf(store_) == text_, "a refused edit changes nothing");
            return std::nullopt;
        } catch (ZPropertiesInvalidValueException_6_0 const&) {
            check(textOf(store_) == text_, "a refused edit changes nothing");
            return std::nullopt;
        }
        try {
            std::string const after = textOf(store_);
            check(textOf(store_) == after, "a second store writes the same");
            std::optional<Store> again;
            check(load(again, after), "a new file can be loaded");
            check(textOf(again) == after, "a store of the new file writes nothing");
            expectOwners(again, after);
            return after;
        } catch (ZPropertiesInvalidValueException_6_0 const&) {
            return std::nullopt;
        }
    }

    static bool isAscii(std::string const& text)
    {
        return std::all_of(text.begin(), text.end(), [](char c) { return c > 0; });
    }

    bool choose(Choices& place)
    {
        if (old_.stanzas.empty())
            return false;
        stanza_ = &old_.stanzas[place.below(static_cast<unsigned>(old_.stanzas.size()))];
        if (!stanza_->keys.empty())
            key_ = &stanza_->keys[place.below(static_cast<unsigned>(stanza_->keys.size()))];
        stanzaName_ = stanza_->name;
        if (stanzaName_.empty() || !isAscii(stanzaName_) ||
            (key_ != nullptr && !isAscii(key_->name)))
            return false;
        if (store_->isAmbiguous(stanzaName_.c_str()) != 0) {
            auto const isOfName = [&](dialect_model::Stanza const& stanza) {
                return stanza.name == stanza_->name;
            };
            auto const number = std::count_if(&old_.stanzas.front(), stanza_ + 1, isOfName);
            stanzaName_ += "]" + std::to_string(number);
        }
        return true;
    }

    void giveTheSame()
    {
        ZLCString_6_0 comment;
        char const* const stanza = stanzaName_.c_str();
        if (store_->getComment(nullptr, nullptr, comment) != 0)
            store_->setComment(nullptr, nullptr, comment.getChars());
        if (store_->getComment(stanza, nullptr, comment) != 0)
            store_->setComment(stanza, nullptr, comment.getChars());
        if (key_ != nullptr) {
            char const* const key = key_->name.c_str();
            if (store_->getComment(stanza, key, comment) != 0)
                store_->setComment(stanza, key, comment.getChars());
            std::vector<char const*> values;
            bool isList = true;
            for (dialect_model::Value const& value : key_->values) {
                isList = isList && !value.alone && isAscii(value.text);
                values.push_back(value.text.c_str());
            }
            if (isList)
                store_->setValues(stanza, key, values.data(), static_cast<unsigned>(values.size()));
        }
        expectText(textOf(store_), text_, "the values and comments of a file change nothing");
    }

    Values valuesOf(Model const& model) const
    {
        Values values;
        for (dialect_model::Stanza const& stanza : model.stanzas)
            for (dialect_model::Key const& key : stanza.keys)
                for (dialect_model::Value const& value : key.values)
                    values[{stanza.identity, key.identity}].push_back(
                        value.alone ? std::nullopt : std::optional(value.text));
        return values;
    }

    // Renames the key, or its stanza.
    void rename(std::string const& name, bool isKey)
    {
        if (isKey && key_ == nullptr)
            return;
        std::optional<std::string> const after = textAfter([&] {
            if (isKey)
                store_->renameKey(stanzaName_.c_str(), key_->name.c_str(), name.c_str());
            else
                store_->renameStanza(stanzaName_.c_str(), name.c_str());
        });
        if (!after)
            return;
        Model const now(*after, rules_);
        std::string space;
        bool const isTop = !isKey && stanza_->name == dialect_.topStanza();
        if (!dialect_.joinsHeaders())
            return expectValuesInOrder(now, *after);  // names contain numbers
        std::string const newStanza(isKey ? stanza_->identity
                                          : dialect_.comparableStanza(name, space));
        std::string const newKey(isKey ? dialect_.comparableKey(name, space) : "");
        Values expected;
        for (auto& [names, values] : valuesOf(old_)) {
            bool const isStanza = names.first == stanza_->identity;
            expected[{isStanza ? newStanza : names.first,
                      isKey && isStanza && names.second == key_->identity ? newKey
                                                                          : names.second}] = values;
        }
        expect(valuesOf(now) == expected, *after, "a renamed file reads back");
        std::string const from = isKey ? key_->identity : "";
        std::string const old = masked(text_, stanza_->identity, from, isTop);
        std::string const changed = masked(*after, newStanza, newKey, isTop);
        expectText(changed, old, "a rename changes names only");
    }

    // Headers are numbered in the file: the values and their order stay.
    void expectValuesInOrder(Model const& now, std::string const& after) const
    {
        auto const list = [](Model const& model) {
            Lines values;
            for (dialect_model::Stanza const& stanza : model.stanzas)
                for (dialect_model::Key const& key : stanza.keys)
                    for (dialect_model::Value const& value : key.values)
                        values.push_back(value.text);
            return values;
        };
        expect(!now.refused() && list(old_) == list(now), after, "a renamed file reads back");
    }

    // Returns the text with a zero byte for the names of a key or, without a key, of a stanza:
    // without its headers if `dropsHeaders`. Lines inside a name are above it.
    std::string masked(std::string const& text, std::string const& stanza, std::string const& key,
                       bool dropsHeaders) const
    {
        std::vector<zlines::Line> lines;
        dialect_.split(text, lines);
        std::string out;
        size_t done = 0;
        std::string space;
        std::string current(dialect_.topStanza());
        for (size_t i = 0; i < lines.size(); ++i) {
            zlines::Line const& line = lines[i];
            bool const isHeader = line.kind == zlines::headerLine;
            if (isHeader)
                current = dialect_.stanzaName(text, line, space);
            if (current != stanza ||
                !(key.empty() ? isHeader
                              : line.isKey() && dialect_.keyName(text, line, space) == key))
                continue;
            if (dropsHeaders) {
                out += text.substr(done, line.begin - done);
                done = i + 1 < lines.size() ? lines[i + 1].begin : text.size();
                continue;
            }
            std::string const name = text.substr(line.nameBegin(), line.nameEnd - line.nameBegin());
            out += text.substr(done, line.begin - done);
            for (size_t at = name.find('\n'); at != name.npos; at = name.find('\n', at + 1)) {
                std::string const next = name.substr(at + 1, name.find('\n', at + 1) - at);
                size_t const first = next.find_first_not_of(" \t");
                if (first != next.npos && dialect_.switches().joinSkipsComments &&
                    (next[first] == '#' || next[first] == ';') && next.back() == '\n')
                    out += next;
            }
            (out += text.substr(line.begin, line.nameBegin() - line.begin)) += '\0';
            done = line.nameEnd;
        }
        return out + text.substr(done);
    }

    void removeTheStanza()
    {
        if (stanza_->name == dialect_.topStanza())
            return;
        removes_ = true;
        std::optional<std::string> const after =
            textAfter([&] { store_->deleteStanza(stanzaName_.c_str()); });
        if (!after)
            return;
        Model const now(*after, rules_);
        auto const list = [&](Model const& model, dialect_model::Stanza const* without) {
            Lines values;
            for (dialect_model::Stanza const& stanza : model.stanzas)
                for (dialect_model::Key const& key : stanza.keys)
                    for (dialect_model::Value const& value : key.values)
                        if (&stanza != without)
                            values.push_back(key.identity + "\n" + value.text);
            return values;
        };
        expect(!now.refused() && list(old_, stanza_) == list(now, nullptr), *after,
               "a file without a stanza reads back");
        if (dialect_.joinsHeaders()) {
            Values expected = valuesOf(old_);
            std::erase_if(expected, [&](auto const& entry) {
                return entry.first.first == stanza_->identity;
            });
            expect(valuesOf(now) == expected, *after, "a file without a stanza reads back");
        }
        LibraryLines const lines(dialect_, text_);
        if (std::any_of(lines.headers.begin(), lines.headers.end(),
                        [&](size_t begin) { return isInsideLine(begin); }))
            return;  // a header can go that shares its line with others
        expect(isLeft(runsWithoutStanza(), runsOf(*after)), *after,
               "the removal of a stanza changes no other line");
    }

    bool isInsideLine(size_t position) const
    {
        return old_.lines[lineAt(position)].begin < position && text_[position - 1] != '\n';
    }

    // A line that is not blank, and the blank lines above it. The last has the end of the file.
    struct Run {
        std::string line = {};
        size_t blanks = 0;
        size_t removals = 0;
    };
    using Runs = std::vector<Run>;

    static std::string withoutEnding(std::string line)
    {
        for (char const end : {'\n', '\r'})
            if (line.ends_with(end))
                line.pop_back();
        return line;
    }

    static bool isBlank(std::string const& line)
    {
        return line.find_first_not_of(" \t\r\n\v\f") == line.npos;
    }

    static Runs runsOf(std::string const& text)
    {
        Runs runs(1);
        size_t const start = text.starts_with("\xef\xbb\xbf") ? 3 : 0;  // a byte order mark
        for (std::string const& line : dialect_model::splitLines(text.substr(start)))
            append(runs, line);
        return runs;
    }

    static void append(Runs& runs, std::string const& line)
    {
        if (isBlank(line)) {
            ++runs.back().blanks;
            return;
        }
        runs.back().line = withoutEnding(line);
        runs.emplace_back();
    }

    static bool isLeft(Runs const& kept, Runs const& left)
    {
        bool isLeft = kept.size() == left.size();
        for (size_t i = 0; isLeft && i < kept.size(); ++i) {
            // A blank line can be new anywhere, and the last lines can lose their endings.
            bool const isLast = i + 1 == kept.size();
            isLeft = kept[i].line == left[i].line &&
                     (isLast || (left[i].blanks >= kept[i].blanks &&
                                 left[i].blanks <= kept[i].blanks + kept[i].removals));
        }
        return isLeft;
    }

    // The lines from each header of the stanza to the next, without the comments right above it,
    // go. The library takes a comment that continues for a line of no meaning.
    Runs runsWithoutStanza() const
    {
        LibraryLines const lines(dialect_, text_);
        std::vector<size_t> const& headers = lines.headers;
        std::vector<bool> gone(old_.lines.size());
        std::vector<bool> isStart(old_.lines.size());
        for (size_t i = 0; i < headers.size(); ++i) {
            bool const isOfStanza = dialect_.joinsHeaders() ? lines.names[i] == stanza_->identity
                                                            : &old_.stanzas[i] == stanza_;
            if (!isOfStanza)
                continue;
            size_t const first = lineAt(headers[i]);
            size_t end = i + 1 < headers.size() ? lineAt(headers[i + 1]) : old_.lines.size();
            if (i + 1 < headers.size())
                while (end > first && lines.comments.contains(old_.lines[end - 1].begin))
                    --end;
            std::fill(gone.begin() + static_cast<ptrdiff_t>(first),
                      gone.begin() + static_cast<ptrdiff_t>(end), true);
            isStart[first] = true;
        }
        Runs runs(1);
        for (size_t i = 0; i < old_.lines.size(); ++i) {
            runs.back().removals += isStart[i] ? 1 : 0;
            if (!gone[i])
                append(runs,
                       text_.substr(old_.lines[i].begin, old_.lines[i].next - old_.lines[i].begin));
        }
        return runs;
    }

    size_t lineAt(size_t position) const
    {
        size_t line = 0;
        while (line + 1 < old_.lines.size() && old_.lines[line].next <= position)
            ++line;
        return line;
    }

    // The headers of a file, with the names of their stanzas; the keys; and the comments.
    struct LibraryLines {
        LibraryLines(zdialects::SwitchedDialect const& dialect, std::string const& text)
        {
            std::vector<zlines::Line> lines;
            dialect.split(text, lines);
            std::string space;
            for (zlines::Line const& line : lines) {
                if (line.isKey())
                    keys.push_back(line.begin);
                if (line.kind == zlines::commentLine)
                    comments.insert(line.begin);
                if (line.kind != zlines::headerLine)
                    continue;
                headers.push_back(line.begin);
                names.emplace_back(dialect.stanzaName(text, line, space));
            }
        }
        std::vector<size_t> headers;
        std::vector<std::string> names;  // of the headers
        std::vector<size_t> keys;
        std::set<size_t> comments;
    };

    // The comments of a store: of the file, of each stanza and of each key.
    using Comments = std::map<std::pair<std::string, std::string>, std::string>;

    Comments commentsOf(std::optional<Store> const& store) const { return commentsOf(store, old_); }

    Comments commentsOf(std::optional<Store> const& store, Model const& model) const
    {
        std::map<std::string, unsigned> numbers;
        Comments comments;
        ZLCString_6_0 found;
        store->getComment(nullptr, nullptr, found);
        comments[{"", ""}] = found.getChars();
        for (dialect_model::Stanza const& stanza : model.stanzas) {
            if (stanza.name.empty() || !isAscii(stanza.name))
                continue;
            std::string name = stanza.name;
            unsigned const number = ++numbers[name];
            if (store->isAmbiguous(name.c_str()) != 0)
                name += "]" + std::to_string(number);
            if (stanza.name != dialect_.topStanza()) {
                store->getComment(name.c_str(), nullptr, found);
                comments[{name, ""}] = found.getChars();
            }
            for (dialect_model::Key const& key : stanza.keys) {
                if (!isAscii(key.name))
                    continue;
                store->getComment(name.c_str(), key.name.c_str(), found);
                comments[{name, key.name}] = found.getChars();
            }
        }
        return comments;
    }

    // A store and the file that it has written have the same comments, of the same keys and
    // headers. A comment right above a removed header or key can precede the comment of the next,
    // and a comment inside a changed value or name can be between the lines of a comment above the
    // next line: only a load gives these comments to the line below. A line without a meaning
    // inside a removed value stays, and parts a comment from the line below.
    void expectOwners(std::optional<Store> const& again, std::string const& after) const
    {
        Model const now(after, rules_);
        Comments const found = commentsOf(again, now);
        bool const hasInside =
            std::any_of(old_.lines.begin(), old_.lines.end(), [](dialect_model::Line const& line) {
                return line.kind == dialect_model::LineKind::commentInside;
            });
        bool const canPart =
            removes_ && (dialect_.switches().join & zdialects::joinIndented) != 0 &&
            std::any_of(old_.lines.begin(), old_.lines.end(), [](dialect_model::Line const& line) {
                return line.kind == dialect_model::LineKind::passedOver;
            });
        for (auto const& [name, text] : commentsOf(store_, now)) {
            std::string const is = withoutMarks(found.at(name));
            std::string const wanted = text.empty() ? "" : withoutMarks(text);
            if (canPart && (found.at(name).empty() || haveLinesOf(wanted, is)))
                continue;
            bool const isSame = removes_ && hasInside ? haveLinesOf(is, wanted)
                                : removes_            ? is.ends_with(wanted)
                                : hasInside           ? is.starts_with(wanted)
                                                      : is == withoutMarks(text);
            if (!isSame)
                expect(false, after,
                       ("a comment has its owner: [" + name.first + "] " + name.second + " <" +
                        text + "> <" + found.at(name) + ">")
                           .c_str());
        }
    }

    // Returns whether a comment has the lines of another, perhaps with lines between them.
    static bool haveLinesOf(std::string const& comment, std::string const& other)
    {
        Lines const wanted = dialect_model::splitLines(other);
        size_t found = 0;
        for (std::string const& line : dialect_model::splitLines(comment))
            found += found < wanted.size() && line == wanted[found] ? 1 : 0;
        return found == wanted.size();
    }

    void add(std::string const& name)
    {
        Values expected = valuesOf(old_);
        std::string space;
        std::vector<std::optional<std::string>>& values =
            expected[{stanza_->identity, std::string(dialect_.comparableKey(name, space))}];
        if (!values.empty())
            return;
        std::optional<std::string> const after =
            textAfter([&] { store_->addValue(stanzaName_.c_str(), name.c_str(), "1", 0); });
        if (!after)
            return;
        values.emplace_back("1");
        Model const now(*after, rules_);
        expect(!now.refused() && (!dialect_.joinsHeaders() || valuesOf(now) == expected), *after,
               "a file with a new key reads back");
    }

    void removeTheKey()
    {
        if (key_ == nullptr)
            return;
        removes_ = true;
        std::optional<std::string> const after =
            textAfter([&] { store_->deleteKey(stanzaName_.c_str(), key_->name.c_str()); });
        if (!after)
            return;
        Values expected = valuesOf(old_);
        expected.erase({stanza_->identity, key_->identity});
        Model const now(*after, rules_);
        expect(!now.refused() && (!dialect_.joinsHeaders() || valuesOf(now) == expected), *after,
               "a file without a key reads back");
    }

    // Sets or removes the comment of the file (0), the stanza (1) or the key (2).
    void comment(unsigned of, std::string const* wanted)
    {
        if ((of == 2 && key_ == nullptr) || (of == 1 && stanza_->name == dialect_.topStanza()))
            return;
        char const* const stanza = of == 0 ? nullptr : stanzaName_.c_str();
        char const* const key = of == 2 ? key_->name.c_str() : nullptr;
        std::pair<std::string, std::string> const target(of == 0 ? "" : stanzaName_,
                                                         of == 2 ? key_->name : "");
        edit_ += " of " + std::string(of == 0 ? "the file" : of == 1 ? "the stanza" : "the key");
        Comments const before = commentsOf(store_);
        Comments wantedComments;
        std::optional<std::string> const after = textAfter([&] {
            store_->setComment(stanza, key, wanted == nullptr ? nullptr : wanted->c_str());
            wantedComments = commentsOf(store_);
        });
        if (!after)
            return;
        for (auto const& [name, text] : wantedComments)
            expect(name == target || text == before.at(name), *after,
                   "a comment of the store changes no other");
        Model const now(*after, rules_);
        expect(!now.refused() && valuesOf(now) == valuesOf(old_), *after,
               "a new comment changes no value");
        std::optional<Store> reread;
        check(load(reread, *after), "a new file can be loaded");
        Comments const found = commentsOf(reread);
        for (auto const& [name, text] : wantedComments)
            if (withoutMarks(found.at(name)) != withoutMarks(text))
                expect(false, *after,
                       ("a comment reads back: [" + name.first + "] " + name.second + " <" + text +
                        "> <" + found.at(name) + ">")
                           .c_str());
        std::vector<size_t> const keys = LibraryLines(dialect_, text_).keys;
        if (std::any_of(keys.begin(), keys.end(),
                        [&](size_t begin) { return isInsideLine(begin); }))
            return;  // a comment can be between a header and a key of one line
        expectOtherLines(now, *after, before.at(target));
    }

    // A new comment gets the mark and the spaces of the comments of the file.
    static std::string withoutMarks(std::string const& comment)
    {
        std::string out;
        for (std::string const& line : dialect_model::splitLines(comment)) {
            size_t const first = line.find_first_not_of("#; \t");
            size_t const last = line.find_last_not_of(" \t");
            (out += first > line.size() ? "" : line.substr(first, last + 1 - first)) += '\n';
        }
        return out;
    }

    // The lines of a file, without blank lines and comments; the comments are ordered.
    static std::pair<Lines, std::multiset<std::string>> linesOf(Model const& model,
                                                                std::string const& text)
    {
        using dialect_model::LineKind;
        std::pair<Lines, std::multiset<std::string>> found;
        for (dialect_model::Line const& line : model.lines) {
            std::string const chars = text.substr(line.begin, line.end - line.begin);
            if (line.kind == LineKind::comment)
                found.second.insert(withoutIndentation(chars));
            else if (!isBlank(chars))
                found.first.push_back(chars);
        }
        return found;
    }

    static std::string withoutIndentation(std::string const& line)
    {
        size_t const first = line.find_first_not_of(" \t");
        return first == line.npos ? std::string() : line.substr(first);
    }

    static std::string withoutBlanksAtEnd(std::string const& line)
    {
        return line.substr(0, line.find_last_not_of(" \t\r") + 1);
    }

    void expectOtherLines(Model const& now, std::string const& after, std::string const& old) const
    {
        auto const [lines, oldComments] = linesOf(old_, text_);
        auto const [newLines, foundComments] = linesOf(now, after);
        expect(lines == newLines, after, "a comment changes no other line");
        std::multiset<std::string> comments = oldComments;
        std::multiset<std::string> const& newComments = foundComments;
        for (std::string const& line : dialect_model::splitLines(old)) {
            // A store has comments without the spaces at their ends, so several can be equal.
            auto const found =
                std::find_if(comments.begin(), comments.end(), [&](std::string const& comment) {
                    return withoutBlanksAtEnd(comment) ==
                               withoutBlanksAtEnd(withoutIndentation(line)) &&
                           newComments.count(comment) < comments.count(comment);
                });
            if (found != comments.end())
                comments.erase(found);
        }
        expect(
            std::includes(newComments.begin(), newComments.end(), comments.begin(), comments.end()),
            after, "a comment changes no other comment");
    }

    void expectText(std::string const& found, std::string const& wanted,
                    char const* expectation) const
    {
        if (found != wanted)
            fprintf(stderr, "expected:\n%s\nfound:\n%s\n", wanted.c_str(), found.c_str());
        expect(found == wanted, found, expectation);
    }

    void expect(bool holds, std::string const& after, char const* expectation) const
    {
        if (!holds)
            fprintf(stderr, "%s, [%s] %s, %s, before:\n%s\nafter:\n%s\n",
                    zdialects::spellDialect(row_, dialect_.switches()).c_str(), stanzaName_.c_str(),
                    key_ == nullptr ? "" : key_->name.c_str(), edit_.c_str(), text_.c_str(),
                    after.c_str());
        check(holds, expectation);
    }

    zdialects::SwitchedDialect const& dialect_;
    zdialects::Row const& row_;
    dialect_model::Switches const rules_;
    std::string const text_;
    Model const old_;
    ZStanzaDialect_6_0 named_;
    bool const isPossible_;
    std::optional<Store> store_;
    dialect_model::Stanza const* stanza_ = nullptr;
    dialect_model::Key const* key_ = nullptr;
    std::string stanzaName_;
    std::string edit_;  // for reports
    bool removes_ = false;
};
