// DialectReading: compares the library's reading of a file in a dialect with the model's, in every
// detail: names, values, their positions, the kind of each line, and lines that are refused or
// passed over.
#pragma once

#include <Z/dialects/switched_dialect.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "DialectModel.h"

namespace dialect_model {

// The model's switches as the library has them: the numbers are the same.
inline zdialects::Switches librarySwitches(Switches const& rules)
{
    using namespace zdialects;
    zdialects::Switches s;
    s.marks = static_cast<uint8_t>(rules.marks);
    s.trailing = static_cast<uint8_t>(rules.trailing);
    s.trailingNeeds = static_cast<zdialects::TrailingNeeds>(rules.trailingNeeds);
    s.heads = static_cast<zdialects::Heads>(rules.heads);
    s.top = static_cast<zdialects::Top>(rules.top);
    s.repeatedHead = static_cast<zdialects::RepeatedHead>(rules.repeatedHead);
    s.separators = static_cast<uint8_t>(rules.separators);
    s.keyAlone = static_cast<zdialects::KeyAlone>(rules.keyAlone);
    s.join = static_cast<uint8_t>(rules.join);
    s.joinSkipsComments = rules.joinSkipsComments;
    s.commentsJoin = rules.commentsJoin;
    s.quotes = static_cast<uint8_t>(rules.quotes);
    s.quoting = static_cast<zdialects::Quoting>(rules.quoting);
    s.escapes = static_cast<zdialects::Escapes>(rules.escapes);
    s.unknownEscape = static_cast<zdialects::UnknownEscape>(rules.unknownEscape);
    s.foldStanzas = static_cast<zdialects::FoldStanzas>(rules.foldStanzas);
    s.foldKeys = rules.foldKeys;
    s.dropBlanks = rules.dropBlanks;
    s.dashes = rules.dashes;
    s.markers = static_cast<uint8_t>(rules.markers);
    s.repeatedKey = static_cast<zdialects::RepeatedKey>(rules.repeatedKey);
    s.emptyValues = static_cast<zdialects::EmptyValues>(rules.emptyValues);
    s.blanksAtEnd = rules.blanksAtEnd;
    s.byteOrderMark = rules.byteOrderMark;
    s.separatorStyle = static_cast<zdialects::SeparatorStyle>(rules.separatorStyle);
    s.indentStyle = static_cast<zdialects::IndentStyle>(rules.indentStyle);
    s.notPlain = static_cast<uint8_t>(rules.notPlain);
    s.newKeys = static_cast<zdialects::NewKeys>(rules.newKeys);
    s.commentStyle = static_cast<zdialects::CommentStyle>(rules.commentStyle);
    s.lineLimit = static_cast<zdialects::LineLimit>(rules.lineLimit);
    s.refusals = static_cast<uint8_t>(rules.refusals);
    s.names = static_cast<zdialects::Names>(rules.names);
    s.returns = static_cast<zdialects::Returns>(rules.lone);
    s.newStanzas = static_cast<zdialects::NewStanzas>(rules.newStanzas);
    s.notPlainMore = static_cast<uint8_t>(rules.notPlainMore);
    s.nonAscii = static_cast<zdialects::NonAscii>(rules.nonAscii);
    s.blankRuns = static_cast<zdialects::BlankRuns>(rules.blankRuns);
    s.paths = static_cast<zdialects::Paths>(rules.paths);
    s.joinedHeads = static_cast<zdialects::JoinedHeads>(rules.joinedHeads);
    return s;
}

// The library's switches as the model has them.
inline Switches modelSwitches(zdialects::Switches const& s)
{
    Switches rules;
    rules.marks = s.marks;
    rules.trailing = s.trailing;
    rules.trailingNeeds = static_cast<TrailingNeeds>(s.trailingNeeds);
    rules.heads = static_cast<Heads>(s.heads);
    rules.top = static_cast<Top>(s.top);
    rules.repeatedHead = static_cast<RepeatedHead>(s.repeatedHead);
    rules.separators = s.separators;
    rules.keyAlone = static_cast<KeyAlone>(s.keyAlone);
    rules.join = s.join;
    rules.joinSkipsComments = s.joinSkipsComments;
    rules.commentsJoin = s.commentsJoin;
    rules.quotes = s.quotes;
    rules.quoting = static_cast<Quoting>(s.quoting);
    rules.escapes = static_cast<Escapes>(s.escapes);
    rules.unknownEscape = static_cast<UnknownEscape>(s.unknownEscape);
    rules.foldStanzas = static_cast<FoldStanzas>(s.foldStanzas);
    rules.foldKeys = s.foldKeys;
    rules.dropBlanks = s.dropBlanks;
    rules.dashes = s.dashes;
    rules.markers = s.markers;
    rules.repeatedKey = static_cast<RepeatedKey>(s.repeatedKey);
    rules.emptyValues = static_cast<EmptyValues>(s.emptyValues);
    rules.blanksAtEnd = s.blanksAtEnd;
    rules.byteOrderMark = s.byteOrderMark;
    rules.separatorStyle = static_cast<SeparatorStyle>(s.separatorStyle);
    rules.indentStyle = static_cast<IndentStyle>(s.indentStyle);
    rules.notPlain = s.notPlain;
    rules.newKeys = static_cast<NewKeys>(s.newKeys);
    rules.commentStyle = static_cast<CommentStyle>(s.commentStyle);
    rules.lineLimit = static_cast<LineLimit>(s.lineLimit);
    rules.refusals = s.refusals;
    rules.names = static_cast<Names>(s.names);
    rules.lone = static_cast<Returns>(s.returns);
    rules.newStanzas = static_cast<NewStanzas>(s.newStanzas);
    rules.notPlainMore = s.notPlainMore;
    rules.nonAscii = static_cast<NonAscii>(s.nonAscii);
    rules.blankRuns = static_cast<BlankRuns>(s.blankRuns);
    rules.paths = static_cast<Paths>(s.paths);
    rules.joinedHeads = static_cast<JoinedHeads>(s.joinedHeads);
    return rules;
}

// The library's reading of a file, in the form of the model's stanzas, errors and notes.
class LibraryReading : private zdialects::FindingSink {
public:
    LibraryReading(std::string_view text, zdialects::SwitchedDialect const& dialect)
        : text_(text), dialect_(dialect)
    {
        dialect.read(text, lines, *this);
        for (std::size_t i = 0; i < lines.size(); ++i) {
            if (lines[i].kind == zlines::headerLine)
                open(lines[i]);
            else if (lines[i].isKey())
                add(lines[i]);
        }
    }

    std::vector<zlines::Line> lines;
    std::vector<zdialects::Finding> errors;
    std::vector<zdialects::Finding> notes;
    std::vector<Stanza> stanzas;
    bool areNamesComparable = true;  // names as written have the identity of the line

    std::size_t endOf(std::size_t line) const
    {
        return line + 1 < lines.size() ? lines[line + 1].begin : text_.size();
    }

private:
    void found(zdialects::Finding const& finding) override
    {
        (finding.isError ? errors : notes).push_back(finding);
    }

    void open(zlines::Line const& line)
    {
        std::string space;
        std::string const identity(dialect_.stanzaName(text_, line, space));
        std::string name(dialect_.writtenStanza(text_, line, space));
        areNamesComparable = areNamesComparable &&
                             identity == dialect_.comparableStanza(identity, space) &&
                             identity == dialect_.comparableStanza(name, space);
        std::size_t count = 0;
        for (std::size_t i = 0; i < stanzas.size(); ++i)
            if (stanzas[i].identity == identity)
                current_ = i, ++count;
        if (count > 0 && dialect_.joinsHeaders())
            return;
        if (count > 0)
            name += "]" + std::to_string(count + 1);
        current_ = stanzas.size();
        stanzas.push_back({name, identity, {}});
    }

    void add(zlines::Line const& line)
    {
        if (stanzas.empty()) {
            stanzas.push_back({std::string(dialect_.topStanza()), "", {}});
            stanzas.back().identity = stanzas.back().name;
        }
        std::string space;
        std::string const identity(dialect_.keyName(text_, line, space));
        std::string const name(dialect_.writtenKey(text_, line, space));
        areNamesComparable = areNamesComparable &&
                             identity == dialect_.comparableKey(identity, space) &&
                             identity == dialect_.comparableKey(name, space);
        std::vector<Key>& keys = stanzas[current_].keys;
        auto key = std::find_if(keys.begin(), keys.end(),
                                [&](Key const& k) { return k.identity == identity; });
        if (key == keys.end())
            key = keys.insert(key, {name, identity, {}});
        Value value;
        value.alone = line.kind == zlines::keyOnlyLine;
        if (!value.alone) {
            value.text = dialect_.value(text_, line, space);
            value.quotedInPart = dialect_.isQuotedInPart(text_, line);
        }
        value.keyBegin = line.nameBegin();
        value.keyEnd = line.nameEnd;
        value.valueBegin = line.valueBegin;
        value.valueEnd = line.valueEnd;
        key->values.push_back(value);
    }

    std::string_view const text_;
    zdialects::SwitchedDialect const& dialect_;
    std::size_t current_ = 0;
};

inline std::string textOf(zdialects::Fault fault)
{
    using zdialects::Fault;
    switch (fault) {
        case Fault::utf16:
            return "UTF-16";
        case Fault::byteOrderMark:
            return "byte order mark";
        case Fault::zeroByte:
            return "zero byte";
        case Fault::lineTooLong:
            return "line too long";
        case Fault::unclosedHead:
            return "header without ]";
        case Fault::invalidHead:
            return "invalid header";
        case Fault::repeatedHead:
            return "second header";
        case Fault::keyAboveHeads:
            return "no header above";
        case Fault::noSeparator:
            return "no separator";
        case Fault::noKey:
            return "no key";
        case Fault::invalidKey:
            return "invalid key";
        case Fault::blankAtSeparator:
            return "space next to the separator";
        case Fault::openQuote:
            return "open quote";
        case Fault::unknownEscape:
            return "unknown escape";
        case Fault::directive:
            return "directive";
        case Fault::loneReturn:
            return "carriage return";
        case Fault::noHeadOrKey:
            return "no header and no key";
    }
    return "";
}

// Describes problems by line, column and text. The model's columns count joined lines as one; the
// column is left out if the position is below the first of them.
inline std::string describe(std::vector<Problem> const& problems,
                            std::vector<Problem> const& others)
{
    std::string out;
    for (std::size_t i = 0; i < problems.size(); ++i) {
        bool const hasColumn =
            problems[i].column != 0 && (i >= others.size() || others[i].column != 0);
        out += std::to_string(problems[i].line) + ":" +
               (hasColumn ? std::to_string(problems[i].column) : "?") + " " + problems[i].text +
               "\n";
    }
    return out;
}

inline std::vector<Problem> problemsOf(std::vector<zdialects::Finding> const& findings,
                                       std::vector<Line> const& lines)
{
    std::vector<Problem> problems;
    for (zdialects::Finding const& finding : findings) {
        // The first line begins after a byte order mark, unless that is the fault.
        auto const after =
            std::upper_bound(lines.begin(), lines.end(), finding.line,
                             [](std::size_t at, Line const& line) { return at < line.begin; });
        Line const& line = after == lines.begin() ? lines.front() : *(after - 1);
        std::size_t const number = static_cast<std::size_t>(&line - lines.data()) + 1;
        problems.push_back({number, finding.at < line.next ? finding.at - line.begin + 1 : 0,
                            textOf(finding.fault)});
    }
    return problems;
}

inline std::string describe(std::vector<Stanza> const& stanzas)
{
    std::string out;
    for (Stanza const& stanza : stanzas) {
        out += "[" + stanza.name + "] " + stanza.identity + "\n";
        for (Key const& key : stanza.keys) {
            out += "  " + key.name + " " + key.identity + "\n";
            for (Value const& value : key.values)
                out += "    " + std::to_string(value.keyBegin) + "-" +
                       std::to_string(value.keyEnd) + " " + std::to_string(value.valueBegin) + "-" +
                       std::to_string(value.valueEnd) + (value.alone ? " alone" : "") +
                       (value.quotedInPart ? " in part" : "") + " \"" + value.text + "\"\n";
        }
    }
    return out;
}

// Returns the first difference of the kinds and positions of lines, or nothing.
inline std::string differenceOfLines(std::string_view text, LibraryReading const& reading,
                                     DialectModel const& model)
{
    auto const fail = [](char const* what, std::size_t line) {
        return what + (" at line index " + std::to_string(line)) + "\n";
    };
    std::size_t at = model.lines.empty() ? 0 : model.lines.front().begin;
    for (std::size_t i = 0; i < reading.lines.size(); ++i) {
        zlines::Line const& line = reading.lines[i];
        if (line.begin != at || line.nameBegin() < at || line.nameEnd < line.nameBegin() ||
            line.valueBegin < line.nameEnd || line.valueEnd < line.valueBegin ||
            line.valueEnd > reading.endOf(i))
            return fail("wrong positions", i);
        at = reading.endOf(i);
    }
    if (!reading.lines.empty() && at != text.size())
        return fail("wrong end", reading.lines.size());
    if (model.refused())
        return "";
    std::size_t mine = 0;
    for (std::size_t i = 0; i < model.lines.size(); ++i) {
        Line const& line = model.lines[i];
        if (line.begin == text.size())
            break;  // only a byte order mark
        while (mine + 1 < reading.lines.size() && reading.endOf(mine) <= line.begin)
            ++mine;
        zlines::Line const& found = reading.lines[mine];
        auto const kind = static_cast<zlines::LineKind>(found.kind);
        bool const isInside = found.begin < line.begin;
        bool const isLonger = reading.endOf(mine) > line.next;
        bool agrees = false;
        switch (line.kind) {
            case LineKind::blank:
                // A backslash that joins nothing is in a line of its own.
                agrees = isInside ? found.isKey()
                         : isLonger || text.substr(line.begin, line.end - line.begin).find('\\') !=
                                           text.npos
                             ? kind == zlines::otherLine
                             : kind == zlines::blankLine;
                break;
            case LineKind::comment:
                agrees =
                    isInside || isLonger ? kind == zlines::otherLine : kind == zlines::commentLine;
                break;
            case LineKind::header:
                agrees = !isInside && kind == zlines::headerLine;
                break;
            case LineKind::key:
                agrees = !isInside && found.isKey();
                break;
            case LineKind::passedOver:
                agrees = isInside ? found.isKey() : kind == zlines::otherLine;
                break;
            case LineKind::continuation:
            case LineKind::commentInside:
                agrees = isInside;
                break;
        }
        if (line.kind == LineKind::comment && !agrees)
            agrees = text[line.begin + text.substr(line.begin).find_first_not_of(" \t")] == '!' &&
                     kind == zlines::otherLine;
        if (!agrees)
            return fail("wrong kind", i);
    }
    return "";
}

// Returns the first difference between the readings of the library and of the model, or nothing.
inline std::string differenceFromModel(std::string_view text, Switches const& rules,
                                       zdialects::SwitchedDialect const& dialect)
{
    DialectModel const model(text, rules);
    LibraryReading const reading(text, dialect);
    std::vector<Problem> const errors = problemsOf(reading.errors, model.lines);
    std::vector<Problem> const notes = problemsOf(reading.notes, model.lines);
    auto const compare = [](char const* what, std::string const& expected,
                            std::string const& actual) {
        return expected == actual ? "" : what + (", expected:\n" + expected) + "actual:\n" + actual;
    };
    std::string found = compare("errors", describe(model.errors, errors), describe(errors, errors));
    if (found.empty())
        found = compare("notes", describe(model.notes, notes), describe(notes, notes));
    if (found.empty() && !model.refused())
        found = compare("reading", describe(model.stanzas), describe(reading.stanzas));
    if (found.empty())
        found = differenceOfLines(text, reading, model);
    if (found.empty() && !reading.areNamesComparable)
        found = "a name as written has another identity\n";
    return found.empty() ? "" : found + "text:\n" + std::string(text);
}

}  // namespace dialect_model
