// DialectWriter: a slow writer of configuration files that changes only the lines of edited values.
//
// It spells a value in each possible way, reads the whole new text with DialectModel, and takes the
// first spelling that reads back. It makes one edit after another. Without a spelling it refuses.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "DialectEdits.h"
#include "DialectModel.h"

namespace dialect_model {

class DialectWriter {
public:
    explicit DialectWriter(Switches const& rules) : rules_(rules) {}

    // Returns the new text, or nothing if it refuses an edit.
    std::optional<std::string> write(std::string text, std::vector<Edit> const& edits) const
    {
        // All values are set first, then removed from the last to the first, then added.
        std::multimap<std::pair<int, long>, Edit> order;  // equal keys keep the order of arrival
        for (Edit const& edit : edits) {
            bool const isRemoval = edit.kind == Edit::remove;
            int const rank = edit.kind == Edit::set ? 0 : isRemoval ? 1 : 2;
            order.insert({{rank, isRemoval ? -static_cast<long>(edit.index) : 0L}, edit});
        }
        for (auto const& [rank, edit] : order) {
            std::optional<std::string> next = edit.kind == Edit::set      ? set(text, edit)
                                              : edit.kind == Edit::remove ? remove(text, edit)
                                                                          : add(text, edit);
            if (!next)
                return next;
            text = *next;
        }
        return text;
    }

private:
    using Lines = std::vector<std::string>;

    static bool isBlank(char c) { return c == ' ' || c == '\t'; }

    // Whether the text has the values of the model, except for the edit.
    bool readsBack(std::string const& before, Edit const& edit, std::string const& after) const
    {
        EditCheck const check(rules_, before, {edit}, after);
        return check.holds("back");
    }

    static Value const* find(DialectModel const& model, Edit const& edit)
    {
        Key const* const key = model.find(edit.stanza, edit.key);
        return key == nullptr || edit.index >= key->values.size() ? nullptr
                                                                  : &key->values[edit.index];
    }

    std::string separator() const
    {
        return rules_.separatorStyle == SeparatorStyle::tightEquals ? "=" : " = ";
    }

    // The letter for a character after a backslash, or 0.
    char letterFor(char c) const
    {
        static constexpr std::pair<char const*, char const*> kLetters[] = {
            {"", ""},
            {"ntr\\", "\n\t\r\\"},
            {"ntb\"\\", "\n\t\b\"\\"},
            {"\"\\", "\"\\"},
            {"ntrb\\\"'", "\n\t\r\b\\\"'"},
            {"ntr\"\\", "\n\t\r\"\\"},
            {"ntr\\", "\n\t\r\\"},
            {"\"\\$`", "\"\\$`"},
        };
        auto const& [letters, meanings] = kLetters[static_cast<int>(rules_.escapes)];
        std::size_t const index = std::string_view(meanings).find(c);
        return c != 0 && index != std::string_view::npos ? letters[index] : '\0';
    }

    std::string escaped(std::string const& value, bool newlines) const
    {
        bool const hasBlank = rules_.escapes == Escapes::desktop ||
                              rules_.escapes == Escapes::mysql ||
                              rules_.escapes == Escapes::kconfig;
        std::string out;
        for (std::size_t i = 0; i < value.size(); ++i) {
            char const c = value[i];
            char const letter = c == '\n' && !newlines ? '\0' : letterFor(c);
            bool const isEnd = i == 0 || i + 1 == value.size();
            if (letter != 0)
                out += {'\\', letter};
            else if (c == ' ' && isEnd && hasBlank)
                out += "\\s";
            else
                out += c;
        }
        return out;
    }

    // The spellings of a value, in the order in which they are tried.
    Lines spellings(std::string const& value, std::string const& indentation,
                    std::string const& ending) const
    {
        Lines found = spellingsWithNewlines(value, indentation);
        for (std::string& spelling : found) {
            std::string lines;
            for (char const c : spelling)
                lines += c == '\n' ? ending : std::string(1, c);
            spelling = lines;
        }
        return found;
    }

    Lines spellingsWithNewlines(std::string const& value, std::string const& indentation) const
    {
        Lines found;
        if (value.find('\n') == std::string::npos) {
            found.push_back(value);
        } else if (rules_.join & indented) {
            std::string lines;
            for (char const c : value)
                lines += c == '\n' ? "\n" + indentation : std::string(1, c);
            found.push_back(lines);
        }
        if (rules_.escapes != Escapes::none && rules_.escapes != Escapes::php)
            found.push_back(escaped(value, true));
        if (rules_.quoting != Quoting::none && (rules_.quotes & doubleQuote)) {
            found.push_back('"' + escaped(value, true) + '"');
            found.push_back('"' + escaped(value, false) + '"');
        }
        if (rules_.quoting != Quoting::none && (rules_.quotes & singleQuote))
            found.push_back('\'' + value + '\'');
        return found;
    }

    // Keeps the column of a comment after a value: `rest` starts after the value.
    static std::string withColumn(std::string rest, std::size_t oldSize, std::size_t newSize)
    {
        std::size_t blanks = 0;
        while (blanks < rest.size() && rest[blanks] == ' ')
            ++blanks;
        if (blanks < 2 || blanks == rest.size() || (rest[blanks] != '#' && rest[blanks] != ';'))
            return rest;
        std::size_t const column = oldSize + blanks;
        rest.erase(0, blanks);
        return std::string(column > newSize ? column - newSize : 1, ' ') + rest;
    }

    std::optional<std::string> set(std::string const& text, Edit const& edit) const
    {
        DialectModel const model(text, rules_);
        Value const* const value = find(model, edit);
        if (value == nullptr)
            return std::nullopt;
        if (!value->alone && value->text == edit.value)
            return text;
        if (std::optional<std::string> const lines = setLines(text, model, *value, edit))
            return lines;
        std::string const comments = commentsIn(text, model, *value);
        for (std::string const& spelling :
             spellings(edit.value, continuation(model, *value, text), endingOf(text))) {
            std::string const start = value->alone ? separator() : "";
            std::size_t const size = value->valueEnd - value->valueBegin;
            std::size_t const width = widthOf(text, value->valueBegin, value->valueEnd);
            bool const isOneLine =
                spelling.find('\n') == std::string::npos && value->line == value->lastLine;
            std::string rest = text.substr(value->valueEnd);
            rest = isOneLine ? withColumn(rest, width,
                                          start.size() + widthOf(spelling, 0, spelling.size()))
                             : rest;
            if (size == 0 && !rest.empty() && !isBlank(rest[0]) && rest[0] != '\n' &&
                rest[0] != '\r')
                rest = " " + rest;
            std::size_t const first = model.lines[value->line - 1].begin;
            std::string const next = text.substr(0, first) + comments +
                                     text.substr(first, value->valueBegin - first) + start +
                                     spelling + rest;
            if (readsBack(text, edit, next))
                return next;
        }
        return std::nullopt;
    }

    // The comments inside a value, which move above its key.
    static std::string commentsIn(std::string const& text, DialectModel const& model,
                                  Value const& value)
    {
        std::string comments;
        for (std::size_t i = value.line; i < value.lastLine; ++i)
            if (isAside(model.lines[i]) && model.lines[i].begin < value.valueEnd)
                comments +=
                    text.substr(model.lines[i].begin, model.lines[i].next - model.lines[i].begin);
        return comments;
    }

    static std::string endingOf(std::string const& text)
    {
        std::size_t const newline = text.find('\n');
        return newline != 0 && newline != std::string::npos && text[newline - 1] == '\r' ? "\r\n"
                                                                                         : "\n";
    }

    // The indentation of the first continuation line of a value, or a deeper one than its key's.
    static std::string continuation(DialectModel const& model, Value const& value,
                                    std::string const& text)
    {
        for (std::size_t i = value.line; i < value.lastLine; ++i)
            if (model.lines[i].kind == LineKind::continuation &&
                model.lines[i].end > model.lines[i].begin)
                return indentationAt(text, model.lines[i].begin);
        return indentationAt(text, model.lines[value.line - 1].begin) + "    ";
    }

    static std::string indentationAt(std::string const& text, std::size_t at)
    {
        std::size_t end = at;
        while (end < text.size() && isBlank(text[end]))
            ++end;
        return text.substr(at, end - at);
    }

    // Sets a value of indented lines: equal lines stay, with the comments above them. Comments of
    // other lines move above the key.
    std::optional<std::string> setLines(std::string const& text, DialectModel const& model,
                                        Value const& value, Edit const& edit) const
    {
        if (!(rules_.join & indented) || value.line == value.lastLine)
            return std::nullopt;
        Lines const from = splitLines(value.text);
        Lines const to = splitLines(edit.value);
        std::map<std::size_t, std::string> above;  // comments, by the line of the value below
        Lines oldLines;
        for (std::size_t i = value.line - 1; i < value.lastLine; ++i) {
            Line const& line = model.lines[i];
            if (isAside(line))
                above[oldLines.size()] += text.substr(line.begin, line.next - line.begin);
            else
                oldLines.push_back(text.substr(line.begin, line.end - line.begin));
        }
        std::size_t const first = model.lines[value.line - 1].begin;
        std::string const ending =
            text.substr(model.lines[value.line - 1].end,
                        model.lines[value.line - 1].next - model.lines[value.line - 1].end);
        std::string out =
            to[0] == from[0] ? oldLines[0] : text.substr(first, value.valueBegin - first) + to[0];
        std::size_t next = 1;
        for (std::size_t j = 1; j < to.size(); ++j) {
            std::size_t i = next;
            while (i < from.size() && from[i] != to[j])
                ++i;
            out += ending;
            if (i < from.size()) {
                out += above[i] + oldLines[i];
                above.erase(i);
                next = i + 1;
            } else if (!to[j].empty()) {
                out += continuation(model, value, text) + to[j];
            }
        }
        std::string comments;
        for (auto const& [index, lines] : above)
            comments += lines;
        std::size_t const end = model.lines[value.lastLine - 1].end;
        std::string const after = text.substr(0, first) + comments + out + text.substr(end);
        return readsBack(text, edit, after) ? std::optional<std::string>(after) : std::nullopt;
    }

    std::optional<std::string> remove(std::string const& text, Edit const& edit) const
    {
        DialectModel const model(text, rules_);
        Value const* const value = find(model, edit);
        if (value == nullptr)
            return std::nullopt;
        std::string next = text.substr(0, model.lines[value->line - 1].begin);
        if (value->line == 1)
            next = text.substr(0, model.lines[0].begin);  // with a byte order mark
        std::size_t const first = model.lines[value->line - 1].begin;
        bool const hasHeader = model.lines[value->line - 1].kind == LineKind::header;
        if (hasHeader) {
            std::size_t head = value->keyBegin;
            while (head > first && isBlank(text[head - 1]))
                --head;
            next += text.substr(first, head - first);
        }
        for (std::size_t i = value->line - 1; i < value->lastLine; ++i) {
            Line const& line = model.lines[i];
            if (isAside(line))
                next += text.substr(line.begin, line.next - line.begin);
            if (hasHeader && i + 1 == value->lastLine)
                next += text.substr(value->valueEnd, line.next - value->valueEnd);
        }
        next += text.substr(model.lines[value->lastLine - 1].next);
        DialectModel const now(next, rules_);
        if (!text.empty() && text.back() != '\n' && !next.empty() && next.back() == '\n' &&
            now.lines.back().kind != LineKind::blank)
            next.resize(next.size() - (next.size() > 1 && next[next.size() - 2] == '\r' ? 2 : 1));
        return readsBack(text, edit, next) ? std::optional<std::string>(next) : std::nullopt;
    }

    // The key line after which a new value goes: the last of its key, or of its stanza.
    static Value const* predecessor(DialectModel const& model, Edit const& edit)
    {
        if (Key const* const key = model.find(edit.stanza, edit.key))
            if (!key->values.empty())
                return &key->values.back();
        Value const* last = nullptr;
        for (Stanza const& stanza : model.stanzas)
            for (Key const& key : stanza.keys)
                for (Value const& value : key.values)
                    if (stanza.name == edit.stanza && (last == nullptr || value.line > last->line))
                        last = &value;
        return last;
    }

    std::optional<std::string> add(std::string const& text, Edit const& edit) const
    {
        DialectModel const model(text, rules_);
        Value const* const above = predecessor(model, edit);
        if (above == nullptr)
            return std::nullopt;  // a new stanza, or one without a key
        std::size_t const at = model.lines[above->lastLine - 1].next;
        Line const& line = model.lines[above->line - 1];
        bool const isLast = model.lines[above->lastLine - 1].end == at;
        std::string const ending = endingOf(text);
        bool const isHeader = line.kind == LineKind::header;
        std::string const indentation = isHeader
                                            ? (rules_.indentStyle == IndentStyle::tab ? "\t" : "")
                                            : indentationAt(text, line.begin);
        std::string const key = rules_.names == Names::percent   ? percentEncoded(edit.key)
                                : rules_.names == Names::escaped ? escapedKeyEncoded(edit.key)
                                                                 : edit.key;
        std::string between = isHeader || above->alone
                                  ? separator()
                                  : separatorFor(text, model, *above, indentation, key);
        for (std::string const& spelling : spellings(edit.value, indentation + "    ", ending)) {
            std::string const next = text.substr(0, at) + (isLast ? ending : "") + indentation +
                                     key + between + spelling + (isLast ? "" : ending) +
                                     text.substr(at);
            if (readsBack(text, edit, next))
                return next;
        }
        return std::nullopt;
    }

    // The text between key and value: as on the line above, or in the column of two lines above.
    std::string separatorFor(std::string const& text, DialectModel const& model, Value const& above,
                             std::string const& indentation, std::string const& key) const
    {
        std::size_t const start = std::min(text.find_first_of(" \t=:", above.keyEnd),
                                           above.valueBegin);  // after a marker of the key
        std::string own = text.substr(start, above.valueBegin - start);
        if (above.text.empty() && above.valueBegin == above.valueEnd &&
            (own.empty() || !isBlank(own.back())) && own != "=")
            own += isBlank(own[0]) ? " " : "";
        Value const* second = nullptr;
        for (Stanza const& stanza : model.stanzas)
            for (Key const& k : stanza.keys)
                for (Value const& value : k.values)
                    if (&value != &above && value.line < above.line && contains(stanza, above) &&
                        (second == nullptr || value.line > second->line))
                        second = &value;
        if (second == nullptr)
            return own;
        auto const column = [&](Value const& value) {
            std::size_t at = value.keyEnd;
            while (isBlank(text[at]))
                ++at;
            return widthOf(text, model.lines[value.line - 1].begin, at);
        };
        std::size_t const width = indentation.size() + widthOf(key, 0, key.size());
        if (column(*second) != column(above) || width >= column(above) ||
            widthOf(text, above.keyBegin, above.keyEnd) ==
                widthOf(text, second->keyBegin, second->keyEnd))
            return own;
        std::size_t const mark = own.find_first_not_of(" \t");
        return std::string(column(above) - width, ' ') + own.substr(mark);
    }

    static bool contains(Stanza const& stanza, Value const& value)
    {
        for (Key const& key : stanza.keys)
            for (Value const& v : key.values)
                if (&v == &value)
                    return true;
        return false;
    }

    Switches const rules_;
};

}  // namespace dialect_model
