#include "values.h"

#include <algorithm>

#include "escapes.h"

namespace zdialects {

// --- the end of a value

size_t ValueScanner::commentStart(std::string_view chars, size_t at) const
{
    if (switches_.trailing == 0 || switches_.trailingNeeds != TrailingNeeds::nothing)
        return chars.size();
    char quote = 0;
    for (; at < chars.size(); ++at) {
        char const c = chars[at];
        if (quote != 0) {
            if (c == '\\')
                ++at;
            else if (c == quote)
                quote = 0;
        } else if (characters_.isQuote(c)) {
            quote = c;
        } else if (characters_.isTrailingMark(c)) {
            return at;
        }
    }
    return chars.size();
}

size_t ValueScanner::commentAfterBlank(std::string_view chars, size_t from) const
{
    for (size_t at = from + 1; at < chars.size(); ++at)
        if (characters_.isTrailingMark(chars[at]) && characters_.isBlank(chars[at - 1]))
            return at;
    return chars.size();
}

Extent ValueScanner::scan(LogicalLine& line, size_t from, size_t keyEnd)
{
    switch (switches_.quoting) {
        case Quoting::none: {
            std::string_view const chars = line.chars();
            size_t const limit =
                switches_.trailingNeeds == TrailingNeeds::blankBeforeInValue
                    ? commentAfterBlank(chars, characters_.afterBlanks(chars, from))
                    : chars.size();
            return scanPlain(line, from, limit);
        }
        case Quoting::ends:
            return scanPlain(line, from, commentStart(line.chars(), 0));
        case Quoting::anywhere:
        case Quoting::anywhereSkipping:
        case Quoting::whole:
            break;
    }
    line_ = {line.begin(), line.offset(line.chars().size()), line.next()};
    size_t at = line.offset(from);
    skipBlanks(at);
    extent_ = {at, at, 0};
    if (switches_.quoting == Quoting::whole)
        scanWhole();
    else
        scanAnywhere();
    keepSpaceBeforeComment(keyEnd);
    extent_.next = line_.next;
    return extent_;
}

Extent ValueScanner::scanPlain(LogicalLine const& line, size_t from, size_t limit) const
{
    std::string_view const chars = line.chars().substr(0, limit);
    size_t begin = characters_.afterBlanks(chars, from);
    size_t const end =
        switches_.blanksAtEnd ? chars.size() : characters_.withoutBlanksAtEnd(chars, begin);
    if (begin < end)
        return {line.offset(begin), line.offset(end - 1) + 1, line.next()};
    // Not at the backslash of a joined line, which is read as a space.
    begin = from + (from < end && characters_.isBlank(text_[line.offset(from)]) ? 1 : 0);
    // The end of the characters is not the end of the line if a comment follows.
    size_t const at = begin < chars.size() || chars.empty() ? line.offset(begin)
                                                            : line.offset(chars.size() - 1) + 1;
    return {at, at, line.next()};
}

void ValueScanner::skipBlanks(size_t& at) const
{
    while (at < line_.end && characters_.isBlank(text_[at]))
        ++at;
}

// Moves to the following line. Returns false at the end of the file.
bool ValueScanner::moveOn(size_t& at)
{
    if (line_.next == text_.size())
        return false;
    line_ = physicalLineAt(text_, line_.next);
    at = line_.begin;
    return true;
}

void ValueScanner::refuse(Fault fault, size_t at, size_t line)
{
    extent_.isInvalid = true;
    extent_.finding = {fault, true, static_cast<uint32_t>(at), static_cast<uint32_t>(line)};
}

void ValueScanner::scanAnywhere()
{
    size_t const first = line_.begin;
    size_t at = extent_.begin;
    size_t quote = at;
    bool isQuoted = false;
    for (;;) {
        if (at < line_.end && characters_.isOrdinary(text_[at])) {
            extent_.end = ++at;
            continue;
        }
        if (at == line_.end) {
            if (!isQuoted)
                return;
            if (!(switches_.join & joinOpenQuote) || !moveOn(at))
                return refuse(Fault::openQuote, quote, first);
            continue;
        }
        char const c = text_[at];
        if (!isQuoted && characters_.isBlank(c)) {
            ++at;
        } else if (!isQuoted && characters_.isTrailingMark(c)) {
            return;
        } else if (c == '\\' && at + 1 == line_.end && (switches_.join & joinInsideValue)) {
            extent_.end = ++at;
            if (!moveOn(at)) {
                if (isQuoted)
                    refuse(Fault::openQuote, quote, first);
                return;
            }
        } else if (c == '\\') {
            Escape const escape = readEscape(switches_.escapes, text_.substr(0, line_.end), at);
            if (escape.kind == Escape::unknown && switches_.unknownEscape == UnknownEscape::refused)
                return refuse(Fault::unknownEscape, at, line_.begin);
            extent_.end = at = escape.end;
        } else if (characters_.isQuote(c)) {
            isQuoted = !isQuoted;
            quote = at;
            extent_.end = ++at;
            if (!isQuoted && switches_.quoting == Quoting::anywhereSkipping)
                skipBlanks(at);
        } else {
            extent_.end = ++at;
        }
    }
}

void ValueScanner::scanWhole()
{
    size_t at = extent_.begin;
    if (at == line_.end || !characters_.isQuote(text_[at]))
        return scanUnquoted(at);
    if (!skipQuoted(at))
        return;
    size_t rest = at;
    skipBlanks(rest);
    bool const isEnd =
        rest == line_.end || (characters_.isTrailingMark(text_[rest]) &&
                              (rest > at || switches_.trailingNeeds == TrailingNeeds::nothing));
    extent_.end = at;
    if (!isEnd)
        scanUnquoted(at);
}

// Moves from the quote at `at` past the closing quote. Without a closing quote, refuses the value
// and returns false.
bool ValueScanner::skipQuoted(size_t& at)
{
    size_t const line = line_.begin;
    size_t const start = at;
    char const quote = text_[at++];
    while (at == line_.end || text_[at] != quote) {
        if (at == line_.end) {
            if (!(switches_.join & joinOpenQuote) || !moveOn(at)) {
                refuse(Fault::openQuote, start, line);
                return false;
            }
        } else if (text_[at] != '\\' || quote == '\'' ||
                   isBeforeClosingQuote(switches_.escapes, text_, at)) {
            ++at;
        } else if (at + 1 < line_.end) {
            at += 2;
        } else if (!(switches_.join & joinInsideValue) || !moveOn(at)) {
            ++at;
        }
    }
    ++at;
    return true;
}

void ValueScanner::scanUnquoted(size_t at)
{
    while (at < line_.end) {
        char const c = text_[at];
        if (characters_.isOrdinary(c)) {
            extent_.end = ++at;
            continue;
        }
        if (characters_.isTrailingMark(c) && (switches_.trailingNeeds == TrailingNeeds::nothing ||
                                              characters_.isBlank(text_[at - 1])))
            return;
        if (characters_.isBlank(c)) {
            ++at;
            continue;
        }
        if (characters_.isQuote(c)) {
            if (!skipQuoted(at))
                return;
            extent_.end = at;
        } else if (c == '\\' && (switches_.join & joinInsideValue) && at + 1 == line_.end) {
            extent_.end = ++at;
            moveOn(at);
        } else {
            bool const isPair =
                c == '\\' && switches_.escapes == Escapes::environment && at + 1 < line_.end;
            extent_.end = at += isPair ? 2 : 1;
        }
    }
}

void ValueScanner::keepSpaceBeforeComment(size_t keyEnd)
{
    if (extent_.begin != extent_.end)
        return;
    size_t begin = extent_.begin;
    while (begin > keyEnd && characters_.isBlank(text_[begin - 1]))
        --begin;
    if (!(switches_.separators & separatorTight))
        begin = std::min(begin + 1, extent_.begin);
    extent_.begin = extent_.end = begin;
}

// --- the meaning of a value

std::string_view ValueDecoder::decode(std::string_view text, size_t lineBegin, size_t begin,
                                      size_t end, std::string& space)
{
    std::string_view spelled = text.substr(begin, end - begin);
    isQuotedInPart_ = false;
    switch (switches_.quoting) {
        case Quoting::none:
            if (switches_.join & joinIndented)
                return decodeIndented(text, lineBegin, begin, end, space);
            return unescaped(withoutRuns(joining_.joined(spelled, space), space), space);
        case Quoting::ends:
            spelled = joining_.joined(spelled, space);
            if (spelled.size() > 1 && characters_.isQuote(spelled.front()) &&
                spelled.front() == spelled.back())
                spelled = spelled.substr(1, spelled.size() - 2);
            return unescaped(spelled, space);
        case Quoting::anywhere:
        case Quoting::anywhereSkipping:
        case Quoting::whole:
            break;
    }
    auto const isPlain = [this](char c) { return c != '\\' && !characters_.isQuote(c); };
    if (std::all_of(spelled.begin(), spelled.end(), isPlain))
        return spelled;
    space.clear();
    if (switches_.quoting != Quoting::whole) {
        decodeAnywhere(spelled, space);
        return space;
    }
    std::string_view const rest = text.substr(end, 2);
    decodeWhole(spelled, rest.empty() || rest.front() == '\n' || rest == "\r\n", space);
    return isQuotedInPart_ ? spelled : space;
}

// Reads each run of whitespace as its first character. `chars` may be a part of `space`.
std::string_view ValueDecoder::withoutRuns(std::string_view chars, std::string& space) const
{
    auto const isSpace = [](char c) {
        return std::string_view(" \t\v\f\r").find(c) != std::string_view::npos;
    };
    auto const isRun = [&](char a, char b) { return isSpace(a) && isSpace(b); };
    if (switches_.blankRuns == BlankRuns::kept ||
        std::adjacent_find(chars.begin(), chars.end(), isRun) == chars.end())
        return chars;
    std::string out(chars);
    out.erase(std::unique(out.begin(), out.end(), isRun), out.end());
    space = std::move(out);
    return space;
}

// Resolves the escapes. `chars` may be a part of `space`.
std::string_view ValueDecoder::unescaped(std::string_view chars, std::string& space) const
{
    size_t at = switches_.escapes == Escapes::none ? chars.npos : chars.find('\\');
    if (at == chars.npos)
        return chars;
    std::string out(chars.substr(0, at));
    while (at < chars.size()) {
        if (chars[at] == '\\') {
            at = appendUnescaped(switches_, chars, at, false, out);
            continue;
        }
        size_t const next = std::min(chars.find('\\', at), chars.size());
        out += chars.substr(at, next - at);
        at = next;
    }
    space = std::move(out);
    return space;
}

// Joins lines that are indented deeper than the last line that is not; that line, if it is not the
// first, is passed over. Comments are skipped. Blank lines count if a line of the value follows.
std::string_view ValueDecoder::decodeIndented(std::string_view text, size_t lineBegin, size_t begin,
                                              size_t end, std::string& space) const
{
    std::string_view const spelled = text.substr(begin, end - begin);
    if (spelled.find('\n') == spelled.npos)
        return spelled;
    ValueScanner const scanner(switches_, characters_, text);
    auto const withoutComment = [&](std::string_view chars, size_t from) {
        if (switches_.trailingNeeds == TrailingNeeds::nothing)
            return chars.substr(0, scanner.commentStart(chars, from));
        return chars.substr(0, scanner.commentAfterBlank(chars, from));
    };
    bool const canStartWithComment = switches_.trailingNeeds != TrailingNeeds::blankBeforeInValue;
    space.clear();
    size_t indentation = characters_.afterBlanks(text, lineBegin) - lineBegin;
    size_t newlines = 1;
    for (PhysicalLine line = physicalLineAt(text, begin);; line = physicalLineAt(text, line.next)) {
        bool const isFirst = line.begin == begin;
        // The comment can begin with the value, after the space before it.
        size_t const start = isFirst ? begin - 1 : line.begin;
        std::string_view chars = text.substr(start, std::min(line.end, end) - start);
        size_t at = characters_.afterBlanks(chars, 0);
        if (isFirst) {
            at = characters_.afterBlanks(chars, 1);
            chars = withoutComment(chars, canStartWithComment ? 0 : at);
            at = std::min(at, chars.size());
            space += chars.substr(at, switches_.blanksAtEnd
                                          ? chars.npos
                                          : characters_.withoutBlanksAtEnd(chars, at) - at);
        } else if (at == chars.size()) {
            ++newlines;
        } else if (!characters_.isMark(chars[at]) && at <= indentation) {
            indentation = at;
        } else if (!characters_.isMark(chars[at])) {
            chars = withoutComment(chars, at);
            if (at < chars.size()) {
                space.append(newlines, '\n');
                space += chars.substr(at, characters_.withoutBlanksAtEnd(chars, at) - at);
                newlines = 1;
            }
        }
        if (line.next >= end)
            return space;
    }
}

void ValueDecoder::decodeAnywhere(std::string_view spelled, std::string& out) const
{
    bool isQuoted = false;
    for (size_t at = 0; at < spelled.size();) {
        char const c = spelled[at];
        if (c == '\n' || (c == '\r' && spelled.substr(at, 2) == "\r\n")) {
            out += '\n';  // in quotes
            at += c == '\n' ? 1 : 2;
        } else if (!isQuoted && characters_.isBlank(c)) {
            if (!out.empty())
                out += c;
            ++at;
        } else if (c == '\\') {
            std::string_view const rest = spelled.substr(at + 1, 2);
            bool const isAtEnd = rest.empty() || rest[0] == '\n' || rest == "\r\n";
            if (!isAtEnd)
                at = appendUnescaped(switches_, spelled, at, true, out);
            else if (switches_.join & joinInsideValue)
                at += 1 + (rest.empty() ? 0 : rest[0] == '\n' ? 1 : 2);
            else
                at = appendUnescaped(switches_, spelled.substr(0, at + 1), at, true, out);
        } else if (characters_.isQuote(c)) {
            isQuoted = !isQuoted;
            ++at;
            if (!isQuoted && switches_.quoting == Quoting::anywhereSkipping)
                at = characters_.afterBlanks(spelled, at);
        } else {
            out += c;
            ++at;
        }
    }
}

// Appends the meaning of the quoted text at `at`, and moves past its closing quote. Returns false
// without a closing quote.
bool ValueDecoder::decodeQuoted(std::string_view spelled, size_t& at, std::string& out) const
{
    char const quote = spelled[at++];
    for (;;) {
        if (at >= spelled.size())
            return false;
        char const c = spelled[at];
        std::string_view const next = spelled.substr(at + 1, 2);
        if (c == quote) {
            ++at;
            return true;
        }
        if (c == '\r' && next.starts_with('\n')) {
            ++at;
        } else if (c != '\\' || quote == '\'' ||
                   isBeforeClosingQuote(switches_.escapes, spelled, at)) {
            out += c;
            ++at;
        } else if (next.starts_with('\n') || next == "\r\n") {
            if (switches_.join & joinInsideValue)
                at += next.starts_with('\n') ? 2 : 3;
            else
                out += spelled[at++];
        } else {
            at = appendUnescaped(switches_, spelled, at, true, out);
        }
    }
}

void ValueDecoder::decodeWhole(std::string_view spelled, bool endsLine, std::string& out)
{
    size_t at = 0;
    if (characters_.isQuote(spelled.front())) {
        isQuotedInPart_ = !decodeQuoted(spelled, at, out) || at != spelled.size();
        return;
    }
    while (at < spelled.size()) {
        char const c = spelled[at];
        if (characters_.isQuote(c)) {
            isQuotedInPart_ = true;
            return;
        }
        if (c != '\\') {
            out += c;
            ++at;
            continue;
        }
        std::string_view const next = spelled.substr(at + 1, 2);
        if ((switches_.join & joinInsideValue) &&
            (next.empty() ? endsLine : next.starts_with('\n') || next == "\r\n")) {
            at += next.empty() ? 1 : next.starts_with('\n') ? 2 : 3;
        } else if (switches_.escapes == Escapes::environment && !next.empty()) {
            out += spelled[at + 1];
            at += 2;
        } else {
            out += c;
            ++at;
        }
    }
}

}  // namespace zdialects
