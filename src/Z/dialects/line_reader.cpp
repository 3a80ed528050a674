#include "line_reader.h"

#include <string.h>

#include <algorithm>

namespace zdialects {

namespace {

// Brackets in a key of desktop entries are for a locale at its end.
bool isDesktopKey(std::string_view key)
{
    size_t const open = key.find('[');
    size_t const close = key.find(']');
    if (open == key.npos)
        return close == key.npos;
    if (open == 0 || close + 1 != key.size() || key[open - 1] == ' ' || key[open - 1] == '\t')
        return false;
    std::string_view const locale = key.substr(open + 1, close - open - 1);
    return std::all_of(locale.begin(), locale.end(), [](char c) {
        return isLetter(c) || isDigit(c) || c < 0 || c == '-' || c == '_' || c == '.' || c == '@';
    });
}

// Returns the position of a carriage return in [at, end) without a newline after it, or npos.
size_t loneReturn(std::string_view text, size_t at, size_t end)
{
    while ((at = text.substr(0, end).find('\r', at)) != text.npos) {
        if (at + 1 == text.size() || text[at + 1] != '\n')
            return at;
        ++at;
    }
    return text.npos;
}

}  // namespace

bool LineReader::read()
{
    next_ = begin_ = switches_.byteOrderMark ? byteOrderMarkSize(text_) : 0;
    if (isText(begin_)) {
        hasNewline_ = text_.find('\n') != text_.npos;
        refusesReturns_ = (switches_.returns == Returns::lineEnd || !hasNewline_) &&
                          loneReturn(text_, begin_, text_.size()) != text_.npos;
        while (next_ < text_.size())
            readLine();
        bool const isValid = !hasError_;
        if (!hasHead_ && !hasKey_ && hasNote_ && isValid)
            report({Fault::noHeadOrKey, true, firstNote_.at, firstNote_.line});
        return isValid;
    }
    while (next_ < text_.size()) {
        PhysicalLine const line = physicalLineAt(text_, next_);
        next_ = line.next;
        append(zlines::otherLine, line.begin, line.begin, line.end, line.end);
    }
    return false;
}

// Refuses bytes that no line of text has.
bool LineReader::isText(size_t begin)
{
    if (text_.starts_with("\xff\xfe") || text_.starts_with("\xfe\xff")) {
        report({Fault::utf16, true, 0, 0});
        return false;
    }
    if (!switches_.byteOrderMark && byteOrderMarkSize(text_) != 0)
        report({Fault::byteOrderMark, true, 0, 0});
    if (text_.size() <= kMaxLineLength && text_.find('\0') == std::string_view::npos)
        return !hasError_;
    for (size_t at = begin; at < text_.size();) {
        PhysicalLine const line = physicalLineAt(text_, at);
        auto const* const zero = static_cast<char const*>(
            memchr(text_.data() + line.begin, '\0', line.end - line.begin));
        auto const lineBegin = static_cast<uint32_t>(line.begin);
        if (zero != nullptr)
            report({Fault::zeroByte, true, static_cast<uint32_t>(zero - text_.data()), lineBegin});
        else if (line.end - line.begin > kMaxLineLength)
            report({Fault::lineTooLong, true, static_cast<uint32_t>(line.begin + kMaxLineLength),
                    lineBegin});
        at = line.next;
    }
    return !hasError_;
}

void LineReader::report(Finding finding)
{
    if (finding.isError && refusesReturns_ && !hasNewline_) {
        // All lines were read as one, so the carriage return is the cause of any other error.
        if (hasErrorInLine_)
            return;
        if (finding.fault != Fault::loneReturn)
            finding.at = static_cast<uint32_t>(loneReturn(text_, finding.line, text_.size()));
        finding.fault = Fault::loneReturn;
    }
    hasError_ |= finding.isError;
    hasErrorInLine_ |= finding.isError;
    if (!finding.isError && !hasNote_) {
        hasNote_ = true;
        firstNote_ = finding;
    }
    if (sink_ != nullptr)
        sink_->found(finding);
}

void LineReader::report(Fault fault, bool isError, size_t at)
{
    report({fault, isError, static_cast<uint32_t>(line_.offset(at)),
            static_cast<uint32_t>(line_.begin())});
}

// Appends the line from begin_. Arguments are positions.
void LineReader::append(zlines::LineKind kind, size_t name, size_t nameEnd, size_t value,
                        size_t valueEnd)
{
    lines_.push_back({static_cast<uint32_t>(begin_), kind,
                      static_cast<uint32_t>(name - begin_) & 0x1FFFFFFF,
                      static_cast<uint32_t>(nameEnd), static_cast<uint32_t>(value),
                      static_cast<uint32_t>(valueEnd)});
    begin_ = next_;
}

void LineReader::appendOther(size_t at)
{
    size_t const begin = line_.offset(at);
    size_t const end = line_.offset(line_.chars().size());
    append(zlines::otherLine, begin, begin, end, end);
}

void LineReader::readLine()
{
    if (!refusesReturns_)
        return readLogicalLine();
    size_t const begin = next_;
    size_t const count = lines_.size();
    hasErrorInLine_ = false;
    readLogicalLine();
    if (hasErrorInLine_)
        return;
    bool const hasValue = lines_.size() > count && lines_.back().kind == zlines::valueLine;
    size_t const at = unquotedReturn(begin, hasValue ? &lines_.back() : nullptr);
    if (at != text_.npos)
        refuseReturn(at, begin, count);
}

// Returns the position of the first lone carriage return from `begin` to next_ that is not in
// quotes, or npos. `value` is the last line if it has a value.
size_t LineReader::unquotedReturn(size_t begin, zlines::Line const* value) const
{
    bool const hasQuotes = switches_.quoting != Quoting::none && switches_.quoting != Quoting::ends;
    if (value == nullptr || !hasQuotes)
        return loneReturn(text_, begin, next_);
    size_t at = loneReturn(text_, begin, value->valueBegin);
    if (at != text_.npos)
        return at;
    bool const isWhole = switches_.quoting == Quoting::whole;
    char quote = 0;
    for (at = value->valueBegin; at < value->valueEnd; ++at) {
        char const c = text_[at];
        bool const isEscape =
            c == '\\' &&
            (!isWhole || quote == '"' || (quote == 0 && switches_.escapes == Escapes::environment));
        if (quote == 0 && loneReturn(text_, at, at + 1) == at)
            return at;
        if (isEscape && at + 1 < value->valueEnd && text_[at + 1] != '\r')
            ++at;
        else if (isWhole && quote != 0 ? c == quote : characters_.isQuote(c))
            quote = quote == 0 ? c : '\0';
    }
    return loneReturn(text_, value->valueEnd, next_);
}

// Refuses the line with a carriage return, whose lines follow the first `count`. An indented line
// has none of its own.
void LineReader::refuseReturn(size_t at, size_t line, size_t count)
{
    report({Fault::loneReturn, true, static_cast<uint32_t>(at), static_cast<uint32_t>(line)});
    for (size_t i = std::min(count, lines_.size() - 1); i < lines_.size(); ++i)
        lines_[i].kind = zlines::otherLine;
}

void LineReader::readLogicalLine()
{
    line_.take(joining_, text_, next_);
    next_ = line_.next();
    std::string_view const chars = line_.chars();
    size_t at = characters_.afterBlanks(chars, 0);
    if (at == chars.size()) {
        size_t const end = line_.offset(at);
        return append(line_.isJoined() ? zlines::otherLine : zlines::blankLine, end, end, end, end);
    }
    if (characters_.isMark(chars[at]) || cutComment(at))
        return readMarked(at);
    if ((switches_.join & joinIndented) && takeIndented(at))
        return;
    if (chars[at] == '[' && switches_.heads != Heads::none) {
        if (switches_.heads != Heads::subsection) {
            if (readHead(at))
                return;
        } else {
            at = readSubsections(at);
            if (at == line_.chars().size())
                return;
        }
    }
    readKey(at);
}

// Takes a comment, whose mark is at `at`, or a directive.
void LineReader::readMarked(size_t at)
{
    bool const isDirective = line_.chars()[at] == '!';
    if (isDirective)
        passOver(Fault::directive, at);
    if (isDirective || line_.hasSeveralLines())
        return appendOther(at);
    size_t const mark = line_.offset(at);
    std::string_view const comment = text_.substr(0, physicalLineAt(text_, line_.begin()).end);
    size_t const begin = characters_.afterBlanks(comment, mark + 1);
    append(zlines::commentLine, mark, mark + 1, begin,
           characters_.withoutBlanksAtEnd(comment, begin));
}

// Cuts a comment from a line of a dialect without quotes. Returns whether a comment begins at `at`.
bool LineReader::cutComment(size_t at)
{
    std::string_view const chars = line_.chars();
    if (switches_.trailingNeeds == TrailingNeeds::nothing && characters_.isTrailingMark(chars[at]))
        return true;
    if (switches_.trailing == 0 || switches_.quoting != Quoting::none)
        return false;
    switch (switches_.trailingNeeds) {
        case TrailingNeeds::nothing:
            line_.cut(scanner_.commentStart(chars, at));
            return false;
        case TrailingNeeds::blankBeforeInValue:
            if (chars[at] != '[')
                return false;
            break;
        case TrailingNeeds::blankBefore:
            break;
    }
    line_.cut(scanner_.commentAfterBlank(chars, at));
    return false;
}

// Takes a line that continues a value because of its indentation.
bool LineReader::takeIndented(size_t indentation)
{
    if (open_ == kClosed || indentation <= indentation_) {
        indentation_ = indentation;
        return false;
    }
    if (switches_.trailingNeeds == TrailingNeeds::blankBeforeInValue)
        line_.cut(scanner_.commentAfterBlank(line_.chars(), indentation));
    size_t const end = characters_.withoutBlanksAtEnd(line_.chars(), indentation);
    // Comments and blank lines in between belong to the value.
    lines_.erase(lines_.begin() + static_cast<std::ptrdiff_t>(open_) + 1, lines_.end());
    lines_[open_].valueEnd = static_cast<uint32_t>(line_.offset(end));
    begin_ = next_;
    return true;
}

// Takes a header that has the line for itself. Returns false if the line is a key line.
bool LineReader::readHead(size_t at)
{
    Head const head = findHead(switches_, characters_, line_.chars(), at);
    switch (head.kind) {
        case Head::notAHead:
            return false;
        case Head::valid:
            takeHead(head, at);
            return true;
        case Head::isPassedOver:
            passOver(Fault::unclosedHead, at);
            break;
        case Head::isUnclosed:
            refuse(Fault::unclosedHead, at);
            break;
        case Head::isInvalid:
            refuse(Fault::invalidHead, at);
            break;
    }
    appendOther(at);
    return true;
}

// Takes headers that others, or a key, can follow. Returns the index of the key, or the size.
size_t LineReader::readSubsections(size_t at)
{
    std::string_view const chars = line_.chars();
    while (chars[at] == '[') {
        Head const head = findHead(switches_, characters_, chars, at);
        if (head.kind != Head::valid) {
            refuse(Fault::invalidHead, at);
            appendOther(at);
            return chars.size();
        }
        takeHead(head, at);
        at = characters_.afterBlanks(chars, head.end);
        if (at == chars.size() || characters_.isTrailingMark(chars[at]))
            return chars.size();
        begin_ = line_.offset(at);
    }
    return at;
}

void LineReader::takeHead(Head const& head, size_t at)
{
    open_ = kClosed;
    hasHead_ = true;
    size_t const begin = line_.offset(head.nameBegin);
    size_t const end = line_.offset(head.nameEnd);
    if (switches_.repeatedHead == RepeatedHead::refused) {
        std::string joined;
        std::string decoded;
        std::string folded;
        std::string_view const spelled = joining_.joined(text_.substr(begin, end - begin), joined);
        std::string_view const name = decodeHead(switches_, spelled, decoded);
        if (!names_.emplace(foldStanza(switches_, name, folded)).second)
            refuse(Fault::repeatedHead, at);
    }
    append(zlines::headerLine, begin, end, end + 1, end + 1);
}

bool LineReader::isBelowHeads(size_t at)
{
    if (hasHead_)
        return true;
    switch (switches_.top) {
        case Top::stanza:
            return true;
        case Top::refused:
            refuse(Fault::keyAboveHeads, at);
            break;
        case Top::passedOver:
            passOver(Fault::keyAboveHeads, at);
            break;
    }
    appendOther(at);
    return false;
}

void LineReader::readKey(size_t at)
{
    if (!isBelowHeads(at))
        return;
    if (switches_.heads == Heads::subsection)
        return readSubsectionKey(at);
    std::string_view const chars =
        line_.chars().substr(0, scanner_.commentStart(line_.chars(), at));
    size_t separator = at;
    if (switches_.separators & separatorColon)
        while (separator < chars.size() && !characters_.isSeparator(chars[separator]))
            ++separator;
    else
        separator = std::min(chars.find('=', at), chars.size());
    Key const key =
        withoutMarkers(chars, {at, characters_.withoutBlanksAtEnd(chars.substr(0, separator), at)});
    if (separator < chars.size())
        return readSeparated(key, separator);
    switch (switches_.keyAlone) {
        case KeyAlone::option:
            return key.begin < key.end ? addAlone(key) : readNoName(key.begin);
        case KeyAlone::refused:
            refuse(Fault::noSeparator, key.begin);
            break;
        case KeyAlone::passedOver:
        case KeyAlone::passedOverOrNoName:
            passOver(Fault::noSeparator, key.begin);
            break;
    }
    appendOther(key.begin);
}

// Drops characters next to a key that do not belong to it.
LineReader::Key LineReader::withoutMarkers(std::string_view chars, Key key) const
{
    constexpr std::string_view kExport = "export";
    if ((switches_.markers & markerMinusPrefix) && chars[key.begin] == '-')
        key.begin = characters_.afterBlanks(chars, key.begin + 1);
    size_t const afterExport = key.begin + kExport.size();
    if ((switches_.markers & markerExportPrefix) && chars.substr(key.begin).starts_with(kExport) &&
        afterExport < chars.size() && characters_.isBlank(chars[afterExport]))
        key.begin = characters_.afterBlanks(chars, afterExport);
    key.end = std::max(key.begin, key.end);
    if (!(switches_.markers & markerDollarSuffix))
        return key;
    while (key.end > key.begin && chars[key.end - 1] == ']') {
        size_t const open = chars.substr(0, key.end).rfind("[$");
        if (open == chars.npos || open < key.begin ||
            chars.substr(open, key.end - open - 1).find(']') != chars.npos)
            break;
        key.end = characters_.withoutBlanksAtEnd(chars.substr(0, open), key.begin);
    }
    return key;
}

// Takes a key with a separator.
void LineReader::readSeparated(Key key, size_t separator)
{
    std::string_view const chars = line_.chars();
    if (key.begin == key.end)
        return readNoName(key.begin);
    if (switches_.heads == Heads::alone &&
        !isDesktopKey(chars.substr(key.begin, key.end - key.begin))) {
        refuse(Fault::invalidKey, key.begin);
        return appendOther(key.begin);
    }
    if (switches_.separators & separatorTight) {
        auto const isBlank = [this](char c) { return characters_.isBlank(c); };
        size_t const value = characters_.afterBlanks(chars, separator + 1);
        bool const isApart = value > separator + 1 && value < chars.size() &&
                             !characters_.isTrailingMark(chars[value]);
        if (isApart ||
            std::any_of(chars.begin() + static_cast<std::ptrdiff_t>(key.begin),
                        chars.begin() + static_cast<std::ptrdiff_t>(separator), isBlank)) {
            passOver(Fault::blankAtSeparator, key.begin);
            return appendOther(key.begin);
        }
    }
    size_t const begin = line_.offset(key.begin);
    size_t const end = line_.offset(key.end);
    Extent const value = scanner_.scan(line_, separator + 1, end);
    next_ = value.next;
    hasKey_ = true;
    if (value.isInvalid) {
        report(value.finding);
        return append(zlines::otherLine, begin, begin, value.end, value.end);
    }
    append(zlines::valueLine, begin, end, value.begin, value.end);
    open_ = lines_.size() - 1;
}

void LineReader::readSubsectionKey(size_t at)
{
    std::string_view const chars = line_.chars();
    size_t end = at;
    while (end < chars.size() &&
           (isLetter(chars[end]) || (end > at && (isDigit(chars[end]) || chars[end] == '-'))))
        ++end;
    size_t const separator = characters_.afterBlanks(chars, end);
    if (end > at && separator == chars.size())
        return addAlone({at, end});
    if (end > at && characters_.isSeparator(chars[separator]))
        return readSeparated({at, end}, separator);
    refuse(Fault::invalidKey, end == at ? at : separator);
    appendOther(at);
}

void LineReader::readNoName(size_t at)
{
    open_ = kClosed;
    switch (switches_.keyAlone) {
        case KeyAlone::refused:
        case KeyAlone::passedOverOrNoName:
            refuse(Fault::noKey, at);
            break;
        case KeyAlone::passedOver:
        case KeyAlone::option:
            passOver(Fault::noKey, at);
            break;
    }
    appendOther(at);
}

void LineReader::addAlone(Key key)
{
    open_ = kClosed;
    hasKey_ = true;
    size_t const end = line_.offset(key.end);
    append(zlines::keyOnlyLine, line_.offset(key.begin), end, end, end);
}

}  // namespace zdialects
