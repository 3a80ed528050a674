// DialectModel: a slow reader of configuration files in any dialect, written from the switches
// alone. It gives stanzas, keys and values in file order, the spelling of each value, the kind of
// each line, and every line that is refused.
//
// Offsets count bytes from the start of the text; columns count bytes from 1. Names and values are
// bytes.
#pragma once

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "DialectEscapedNames.h"
#include "DialectPercents.h"
#include "DialectValues.h"

namespace dialect_model {

struct Key {
    std::string name;      // as first written
    std::string identity;  // names with the same identity are the same key
    std::vector<Value> values;
};

struct Stanza {
    std::string name;
    std::string identity;
    std::vector<Key> keys;
};

class DialectModel : public DialectValues {
public:
    DialectModel(std::string_view text, Switches const& switches) : DialectValues(text, switches)
    {
        if (!isText())
            return;
        while (next_ < lines.size()) {
            std::size_t const line = next_;
            std::size_t const refusals = errors.size();
            readLine();
            if (refusesReturns() && errors.size() == refusals)
                refuseReturn(line);
            else if (text_.find('\n') == kNowhere && errors.size() > refusals)
                replaceErrors(refusals);
        }
        if (stanzas.empty() && !notes.empty() && errors.empty())
            refuse(notes.front().line - 1, notes.front().column, "no header and no key");
    }

    // The bytes of the file from the start of the value to its end.
    std::string raw(Value const& value) const
    {
        return std::string(text_.substr(value.valueBegin, value.valueEnd - value.valueBegin));
    }

    // The values that count: those after the last reset, the last or the first.
    std::vector<Value> counting(Key const& key) const
    {
        std::string const folded = allFolded(key.name);
        bool const isPhpList = rules.repeatedKey == RepeatedKey::lastOrPhpList &&
                               (folded == "extension" || folded == "zend_extension");
        bool const isList = isPhpList || (key.name.size() > 2 &&
                                          key.name.compare(key.name.size() - 2, 2, "[]") == 0);
        std::vector<Value> const& all = key.values;
        if (all.empty())
            return all;
        if (rules.repeatedKey == RepeatedKey::first)
            return {all.front()};
        if (rules.repeatedKey == RepeatedKey::last ||
            ((rules.repeatedKey == RepeatedKey::lastOrList ||
              rules.repeatedKey == RepeatedKey::lastOrPhpList) &&
             !isList))
            return {all.back()};
        std::vector<Value> found;
        for (Value const& value : all) {
            if (rules.emptyValues == EmptyValues::reset && value.text.empty())
                found.clear();
            else
                found.push_back(value);
        }
        return found;
    }

    Key const* find(std::string_view stanza, std::string_view key) const
    {
        for (Stanza const& s : stanzas)
            for (Key const& k : s.keys)
                if (s.name == stanza && k.identity == identityOfKey(key))
                    return &k;
        return nullptr;
    }

    std::string identityOfKey(std::string_view name) const
    {
        std::string identity;
        bool const isSlashPath =
            rules.paths == Paths::dotsOrSlashes && name.find('/') < name.find('.');
        for (char c : name) {
            if (isSlashPath && (c == '/' || c == '.'))
                c = c == '/' ? '.' : '/';
            if (rules.dropBlanks && isBlank(c))
                continue;
            identity += rules.dashes && c == '-' ? '_' : rules.foldKeys ? folded(c) : c;
        }
        return identity;
    }

    std::vector<Stanza> stanzas;

private:
    // Refuses a carriage return without a newline in the lines from `first` to next_, outside the
    // quotes of a value.
    void refuseReturn(std::size_t first)
    {
        Value const none;
        bool const hasValue = open_ != nullptr && open_->line == first + 1 && !open_->alone;
        Value const& value = hasValue && hasLongQuotes() ? *open_ : none;
        for (std::size_t at = lines[first].begin; at < lines[next_ - 1].next; ++at) {
            if (at == value.valueBegin && value.valueEnd > at)
                at = afterQuotes(at, value.valueEnd);
            if (isLoneReturn(at))
                return refuse(first, at < lines[first].next ? at - lines[first].begin + 1 : 0,
                              "carriage return");
        }
    }

    // In a file of one line, a carriage return is the cause of all errors.
    void replaceErrors(std::size_t count)
    {
        for (std::size_t at = lines[0].begin; at < text_.size(); ++at) {
            if (!isLoneReturn(at) || isStanzaFormat())
                continue;
            errors.resize(count);
            return refuse(0, at - lines[0].begin + 1, "carriage return");
        }
    }

    void readLine()
    {
        std::size_t const line = next_;
        Piece piece = takePiece();
        std::size_t at = afterBlanks(piece.chars, 0);
        if (at == piece.chars.size()) {
            ++pendingBlanks_;
            return;
        }
        if (isMark(piece.chars[at], rules.marks)) {
            readComment(line);
            if (piece.chars[at] == '!')
                passOver(line, at + 1, "directive");
            return;
        }
        bool const cutsLine =
            rules.trailingNeeds == TrailingNeeds::blankBefore ||
            (rules.trailingNeeds == TrailingNeeds::blankBeforeInValue && piece.chars[at] == '[');
        if (cutsLine && rules.quoting == Quoting::none)
            cutComment(piece, at);
        std::size_t const start = commentStart(piece.chars, at);
        if (start == at)
            return readComment(line);
        if (rules.quoting == Quoting::none) {
            piece.chars.resize(start);
            piece.offsets.resize(start);
        }
        if (takeIndented(piece, line, at))
            return;
        if (rules.heads == Heads::subsection && piece.chars[at] == '[')
            at = readGitHeaders(piece, line, at);
        else if (rules.heads != Heads::none && piece.chars[at] == '[' &&
                 readHeader(piece, line, at))
            return;
        if (at != kNowhere)
            readKey(piece, line, at);
    }

    void readComment(std::size_t line)
    {
        for (std::size_t i = line; i < next_; ++i)
            lines[i].kind = LineKind::comment;
    }

    // Takes a line that continues a value because of its indentation.
    bool takeIndented(Piece& piece, std::size_t line, std::size_t indentation)
    {
        if (!(rules.join & indented))
            return false;
        if (open_ == nullptr || indentation <= indentation_) {
            indentation_ = indentation;
            return false;
        }
        if (rules.trailingNeeds == TrailingNeeds::blankBeforeInValue)
            cutComment(piece, indentation);
        std::size_t const end = withoutBlanksAtEnd(piece.chars, indentation);
        open_->text += std::string(pendingBlanks_ + 1, '\n');
        pendingBlanks_ = 0;
        open_->text += piece.chars.substr(indentation, end - indentation);
        open_->valueEnd = piece.offset(end);
        for (std::size_t i = open_->lastLine; i < line; ++i)
            lines[i].kind = lines[i].kind == LineKind::comment      ? LineKind::commentInside
                            : lines[i].kind == LineKind::passedOver ? LineKind::passedOver
                                                                    : LineKind::continuation;
        lines[line].kind = LineKind::continuation;
        open_->lastLine = line + 1;
        return true;
    }

    // Reads a header that has the line for itself. Returns false if the line is a key line.
    bool readHeader(Piece const& piece, std::size_t line, std::size_t at)
    {
        std::size_t const end = withoutBlanksAtEnd(piece.chars, at);
        std::string_view const rest = std::string_view(piece.chars).substr(at + 1, end - at - 1);
        std::size_t close = rest.find(']');
        if (rules.heads == Heads::toLastBracket) {
            close = rest.rfind(']');
            if (close == kNowhere || close == 0)
                return false;
        } else if (rules.heads == Heads::endsLine || rules.heads == Heads::alone) {
            close = !rest.empty() && rest.back() == ']' ? rest.size() - 1 : kNowhere;
        }
        if (close == kNowhere && rules.heads == Heads::bracketedGroups) {
            passOver(line, at + 1, "header without ]");
            return true;
        }
        if (close == kNowhere) {
            refuse(line, at + 1, "header without ]");
            return true;
        }
        std::string name(rest.substr(0, close));
        while (rules.heads == Heads::toBracketTrimmed && !name.empty() &&
               std::string_view(" \t\v\f\r\xa0").find(name.back()) != kNowhere)
            name.pop_back();
        if ((rules.heads == Heads::alone && !isDesktopName(name)) ||
            (rules.heads == Heads::endsLine && !isSystemdName(name))) {
            refuse(line, at + 1, "invalid header");
            return true;
        }
        if (rules.heads == Heads::bracketedGroups)
            name = groups(rest);
        if (rules.names == Names::percent)
            name = percentDecoded(name);
        if (rules.names == Names::escaped)
            name = escapedStanzaDecoded(name);
        if (isNumbered(name)) {
            refuse(line, at + 1, "invalid header");
            return true;
        }
        lines[line].kind = LineKind::header;
        openStanza(name, line, at);
        return true;
    }

    // The second stanza of a name is NAME]2, so no header has such a name.
    bool isNumbered(std::string_view name) const
    {
        std::size_t const bracket = name.find_last_not_of("0123456789");
        return rules.repeatedHead == RepeatedHead::separate && bracket != kNowhere &&
               name[bracket] == ']' && bracket + 1 < name.size();
    }

    static bool isAscii(char c) { return static_cast<unsigned char>(c) < 0x80; }
    static bool isControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; }

    static bool isSystemdName(std::string_view name)
    {
        return std::none_of(name.begin(), name.end(), isControl) &&
               name.find_first_of("\"'\\") == kNowhere;
    }

    static bool isDesktopName(std::string_view name)
    {
        for (char const c : name)
            if (c == '[' || c == ']' || isControl(c))
                return false;
        return !name.empty();
    }

    // The name of [A][B][$i], after its first bracket. The mark is the last of the line.
    static std::string groups(std::string_view rest)
    {
        std::string name;
        for (bool isFirst = true;; isFirst = false) {
            std::size_t const close = rest.find(']');
            if (close == kNowhere)
                return name;
            std::string_view const part = rest.substr(0, close);
            if (part == "$i" && close + 1 == rest.size())
                return name;
            name += (isFirst ? "" : "][") + std::string(part);
            if (close + 1 >= rest.size() || rest[close + 1] != '[')
                return name;
            rest.remove_prefix(close + 2);
        }
    }

    // Reads [a "B"], and further headers on its line. Returns the index of a key, or kNowhere.
    std::size_t readGitHeaders(Piece const& piece, std::size_t line, std::size_t at)
    {
        std::string_view const chars = piece.chars;
        while (at < chars.size() && chars[at] == '[') {
            std::size_t const start = at++;
            std::string name;
            for (; at < chars.size() && (isLetter(chars[at]) || isDigit(chars[at]) ||
                                         chars[at] == '-' || chars[at] == '.');
                 ++at)
                name += rules.foldStanzas == FoldStanzas::none ? chars[at] : folded(chars[at]);
            std::size_t const quote = afterBlanks(chars, at);
            bool bad = name.empty();
            if (quote > at && quote < chars.size() && chars[quote] == '"') {
                name += '.';
                for (at = quote + 1; at < chars.size() && chars[at] != '"'; ++at) {
                    if (chars[at] == '\\' && at + 1 < chars.size())
                        ++at;
                    name += chars[at];
                }
                bad = bad || at == chars.size();
                ++at;
            }
            if (bad || at >= chars.size() || chars[at] != ']' || isNumbered(name)) {
                refuse(line, start + 1, "invalid header");
                return kNowhere;
            }
            lines[line].kind = LineKind::header;
            openStanza(name, line, start);
            at = afterBlanks(chars, at + 1);
        }
        if (at == chars.size() || isMark(chars[at], rules.trailing))
            return kNowhere;
        return at;
    }

    void openTop()
    {
        for (std::size_t i = 0; i < stanzas.size(); ++i) {
            if (stanzas[i].name == ".") {
                current_ = i;
                return;
            }
        }
        stanzas.push_back({".", ".", {}});
        current_ = stanzas.size() - 1;
    }

    void openStanza(std::string name, std::size_t line, std::size_t at)
    {
        open_ = nullptr;
        if (name == "." && !isStanzaFormat())
            name = ".]1";
        std::string const identity = rules.foldStanzas == FoldStanzas::all ? allFolded(name) : name;
        std::size_t count = 0;
        for (std::size_t i = 0; i < stanzas.size(); ++i) {
            if (stanzas[i].identity != identity)
                continue;
            ++count;
            current_ = i;
        }
        if (count > 0 && rules.repeatedHead == RepeatedHead::refused)
            refuse(line, at + 1, "second header");
        if (count > 0 && rules.repeatedHead != RepeatedHead::separate)
            return;
        if (count > 0)
            name += "]" + std::to_string(count + 1);
        stanzas.push_back({name, identity, {}});
        current_ = stanzas.size() - 1;
    }

    // Reads a key line from the first character that is not a space.
    void readKey(Piece const& piece, std::size_t line, std::size_t at)
    {
        if (!current_ && rules.top == Top::refused)
            return refuse(line, at + 1, "no header above");
        if (!current_ && rules.top == Top::passedOver)
            return passOver(line, at + 1, "no header above");
        if (rules.heads == Heads::subsection)
            return readGitKey(piece, line, at);
        std::size_t const limit = commentStart(piece.chars, at);
        std::string_view const chars = std::string_view(piece.chars).substr(0, limit);
        std::size_t separator = at;
        while (separator < chars.size() && !isSeparator(chars[separator]))
            ++separator;
        if ((rules.markers & minusPrefix) && chars[at] == '-')
            at = afterBlanks(chars, at + 1);
        if ((rules.markers & exportPrefix) && chars.substr(at, 6) == "export" &&
            at + 6 < chars.size() && isBlank(chars[at + 6]))
            at = afterBlanks(chars, at + 6);
        std::size_t const end = withoutBlanksAtEnd(chars.substr(0, separator), at);
        std::size_t const keyEnd = withoutMarker(chars, at, end);
        if (separator == chars.size()) {
            if (rules.keyAlone == KeyAlone::option && keyEnd <= at)
                readNoName(line, at);
            else if (rules.keyAlone == KeyAlone::option)
                addAlone(piece, line, at, keyEnd);
            else if (rules.keyAlone == KeyAlone::refused)
                refuse(line, at + 1, "no separator");
            else
                passOver(line, at + 1, "no separator");
            return;
        }
        if (keyEnd <= at)
            return readNoName(line, at);
        if (rules.heads == Heads::alone && !isDesktopKey(chars.substr(at, keyEnd - at)))
            return refuse(line, at + 1, "invalid key");
        if ((rules.separators & tight) &&
            (chars.substr(at, separator - at).find_first_of(" \t") != kNowhere ||
             startsApart(piece.chars, separator + 1)))
            return passOver(line, at + 1, "space next to the separator");
        Value value;
        value.keyBegin = piece.offset(at);
        value.keyEnd = piece.offset(keyEnd);
        readValue(piece, line, separator + 1, value);
        addValue(piece.chars.substr(at, keyEnd - at), line, std::move(value));
    }

    // True if spaces are between `at` and the value. Only an empty value can have them before it.
    bool startsApart(std::string_view chars, std::size_t at) const
    {
        std::size_t const value = chars.find_first_not_of(" \t", at);
        return value != kNowhere && value > at && !isMark(chars[value], rules.trailing);
    }

    void readNoName(std::size_t line, std::size_t at)
    {
        open_ = nullptr;
        if (rules.keyAlone == KeyAlone::refused || rules.keyAlone == KeyAlone::passedOverOrNoName)
            refuse(line, at + 1, "no key");
        else
            passOver(line, at + 1, "no key");
    }

    // The end of a key without [$e] and the like.
    std::size_t withoutMarker(std::string_view chars, std::size_t at, std::size_t end) const
    {
        while ((rules.markers & dollarSuffix) && end > at && chars[end - 1] == ']') {
            std::size_t const open = chars.substr(0, end).rfind("[$");
            if (open == kNowhere || open < at ||
                chars.substr(open, end - open - 1).find(']') != kNowhere)
                break;
            end = withoutBlanksAtEnd(chars.substr(0, open), at);
        }
        return end;
    }

    // Brackets are for a locale at the end of the key.
    static bool isDesktopKey(std::string_view key)
    {
        std::size_t const open = key.find('[');
        if (open == kNowhere)
            return key.find(']') == kNowhere;
        if (open == 0 || key.find(']') + 1 != key.size() || key[open - 1] == ' ' ||
            key[open - 1] == '\t')
            return false;
        for (char const c : key.substr(open + 1, key.size() - open - 2))
            if (!isLetter(c) && !isDigit(c) && std::string_view("-_.@").find(c) == kNowhere &&
                isAscii(c))
                return false;
        return true;
    }

    void readGitKey(Piece const& piece, std::size_t line, std::size_t at)
    {
        std::string_view const chars = piece.chars;
        std::size_t end = at;
        while (end < chars.size() &&
               (isLetter(chars[end]) || (end > at && (isDigit(chars[end]) || chars[end] == '-'))))
            ++end;
        if (end == at)
            return refuse(line, at + 1, "invalid key");
        std::size_t const after = afterBlanks(chars, end);
        if (after == chars.size())
            return addAlone(piece, line, at, end);
        if (!isSeparator(chars[after]))
            return refuse(line, after + 1, "invalid key");
        Value value;
        value.keyBegin = piece.offset(at);
        value.keyEnd = piece.offset(end);
        readValue(piece, line, after + 1, value);
        addValue(std::string(chars.substr(at, end - at)), line, std::move(value));
    }

    void addAlone(Piece const& piece, std::size_t line, std::size_t at, std::size_t end)
    {
        Value value;
        value.alone = true;
        value.keyBegin = piece.offset(at);
        value.keyEnd = piece.offset(end);
        value.valueBegin = value.valueEnd = value.keyEnd;
        addValue(piece.chars.substr(at, end - at), line, std::move(value));
        open_ = nullptr;
    }

    void addValue(std::string name, std::size_t line, Value value)
    {
        if (rules.names == Names::percent)
            name = percentDecoded(name);
        if (rules.names == Names::escaped)
            name = escapedKeyDecoded(name);
        if (!current_)
            openTop();
        value.line = line + 1;
        value.lastLine = next_;
        if (lines[line].kind != LineKind::header)
            lines[line].kind = LineKind::key;
        lines[line].key = value.keyBegin - lines[line].begin + 1;
        lines[line].keyEnd = value.keyEnd - lines[line].begin + 1;
        lines[line].value = value.valueBegin - lines[line].begin + 1;
        lines[line].valueEnd = std::min(value.valueEnd, lines[line].end) - lines[line].begin + 1;
        Key* key = nullptr;
        for (Key& k : stanzas[*current_].keys)
            if (k.identity == identityOfKey(name))
                key = &k;
        if (key == nullptr) {
            stanzas[*current_].keys.push_back({name, identityOfKey(name), {}});
            key = &stanzas[*current_].keys.back();
        }
        if (rules.emptyValues == EmptyValues::none && value.text.empty())
            return;
        key->values.push_back(std::move(value));
        open_ = &key->values.back();
        pendingBlanks_ = 0;
    }

    std::optional<std::size_t> current_;  // stanza
    Value* open_ = nullptr;               // that indented lines continue
    std::size_t indentation_ = 0;         // of the last line that did not continue another
    std::size_t pendingBlanks_ = 0;       // blank lines that a value may continue after
};

}  // namespace dialect_model
