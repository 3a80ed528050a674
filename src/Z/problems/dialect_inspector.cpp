#include "dialect_inspector.h"

#include <algorithm>
#include <string>
#include <utility>

#include "../cache/hash_index.h"
#include "../dialects/counting.h"
#include "../dialects/logical_line.h"
#include "../lines/columns.h"
#include "../lines/name_hash.h"
#include "php_syntax.h"

namespace zproblems {

using zdialects::Fault;
using zdialects::Finding;
using zlines::Line;

namespace {

// The cause of an error, and the reason for which a line is passed over.
struct Meaning {
    Fault fault;
    Cause error;
    char const* reason = "";
};

constexpr Meaning kMeanings[] = {
    {Fault::utf16, utf16},
    {Fault::byteOrderMark, byteOrderMark},
    {Fault::zeroByte, zeroByte},
    {Fault::lineTooLong, lineTooLong},
    {Fault::unclosedHead, unclosedHeader, "it starts with \"[\" and has no \"]\""},
    {Fault::invalidHead, invalidHead},
    {Fault::repeatedHead, duplicateStanza},
    {Fault::keyAboveHeads, keyOutsideStanza, "no header is above it"},
    {Fault::noSeparator, notAnEntry, "it has no separator"},
    {Fault::noKey, missingKey, "it has no key before the separator"},
    {Fault::invalidKey, invalidKey},
    {Fault::blankAtSeparator, passedOver, "a space is next to the separator"},
    {Fault::openQuote, openQuote},
    {Fault::unknownEscape, unknownEscape},
    {Fault::directive, directive},
    {Fault::loneReturn, loneReturn},
    {Fault::noHeadOrKey, noHeadOrKey},
};

constexpr uint32_t kNoLine = UINT32_MAX;

// The stanza with the defaults of configparser, whose header can be repeated.
constexpr std::string_view kDefaults = "DEFAULT";

// Returns the size in bytes of the longest valid UTF-8 prefix.
size_t validPrefix(std::string_view text)
{
    size_t at = 0;
    while (at < text.size()) {
        size_t const length = zlines::characterLength(text.substr(at));
        if (length == 1 && static_cast<unsigned char>(text[at]) >= 0x80)
            break;
        at += length;
    }
    return at;
}

Meaning const& meaningOf(Fault fault)
{
    return *std::find_if(std::begin(kMeanings), std::end(kMeanings),
                         [fault](Meaning const& meaning) { return meaning.fault == fault; });
}

}  // namespace

void DialectInspector::inspect()
{
    dialect_.read(text_, lines_, *this);
    // A file that is no text has no stanzas.
    if (std::all_of(lines_.begin(), lines_.end(),
                    [](Line const& line) { return line.kind == zlines::otherLine; }))
        complaints_.clearStanzas();
    if (!isText_)
        return;
    findRepetitions();
    if (refuses(zdialects::refusalNotUtf8))
        findInvalidBytes();
    if (refuses(zdialects::refusalPhp))
        findSyntaxFaults();
    if (dialect_.switches().quoting == zdialects::Quoting::whole)
        findPartialQuotes();
    if (dialect_.switches().commentsJoin)
        findContinuedComments();
}

// Returns a string that lives as long as the inspector: `view`, or a copy if it is in `space`.
std::string_view DialectInspector::own(std::string_view view, std::string const& space)
{
    return view.data() == space.data() ? std::string_view(names_.emplace_back(view)) : view;
}

// Returns the name of the header at header_.
std::string_view DialectInspector::stanzaName()
{
    if (header_ == kTop)
        return dialect_.topStanza();
    if (named_ != header_) {
        std::string space;
        stanza_ = own(dialect_.writtenStanza(text_, lines_[header_], space), space);
        named_ = header_;
    }
    return stanza_;
}

// Moves to the physical line of a position.
void DialectInspector::moveTo(size_t at)
{
    if (at < begin_) {
        begin_ = 0;
        line_ = 1;
    }
    for (size_t feed; (feed = text_.substr(0, at).find('\n', begin_)) != text_.npos; ++line_)
        begin_ = feed + 1;
}

Place DialectInspector::placeAt(size_t at)
{
    moveTo(at);
    size_t const mark = begin_ == 0 ? zdialects::byteOrderMarkSize(text_) : 0;
    size_t const start = std::min(begin_ + mark, at);
    return {line_, 1 + zlines::countCharacters(text_.substr(start, at - start))};
}

// Returns the physical line without spaces at its ends.
std::string_view DialectInspector::lineAt(size_t begin) const
{
    zdialects::PhysicalLine const line = zdialects::physicalLineAt(text_, begin);
    std::string_view chars = text_.substr(begin, line.end - begin);
    chars = chars.substr(0, chars.find('\0'));
    size_t const first = dialect_.characters().afterBlanks(chars, 0);
    size_t const end = dialect_.characters().withoutBlanksAtEnd(chars, first);
    return chars.substr(first, end - first);
}

void DialectInspector::startAtTop()
{
    scanned_ = 0;
    header_ = named_ = kTop;
}

// Moves header_ to the last header before the line `end`.
void DialectInspector::passHeaders(size_t end)
{
    for (; scanned_ < end; ++scanned_)
        if (lines_[scanned_].kind == zlines::headerLine)
            header_ = scanned_;
}

void DialectInspector::found(Finding const& finding)
{
    // The reader may have joined the last lines with their key.
    scanned_ = std::min(scanned_, lines_.size());
    passHeaders(lines_.size());
    Meaning const& meaning = meaningOf(finding.fault);
    bool const isPassedOver = !finding.isError && finding.fault != Fault::directive;
    bool const isRefused = isPassedOver && refuses(zdialects::refusalPassedOver);
    Cause const cause = isRefused ? refusedLine : isPassedOver ? passedOver : meaning.error;
    Complaint complaint{placeAt(finding.at), cause, finding.isError || isRefused, {}};
    complaint.isForeign = true;
    isText_ = isText_ && cause != utf16 && cause != zeroByte && cause != lineTooLong;
    if (complaint.isError && finding.fault != Fault::noHeadOrKey)
        refusedLines_.push_back(static_cast<uint32_t>(begin_));
    if (complaints_.wants(complaint.place, cause)) {
        complaint.detail = lineAt(begin_);
        complaint.stanza = stanzaName();
        if (isPassedOver)
            complaint.reason = meaning.reason;
    }
    complaints_.add(complaint);
}

// Returns for each line whether another line of its key is valid instead, whether it is refused
// because it repeats a header or a key, or whether only one of it and the first line of its key has
// a value. Stores for each header the first header of its
// stanza in `firstOf`.
std::vector<DialectInspector::Repetition> DialectInspector::markRepetitions(
    std::vector<uint32_t>& firstOf) const
{
    using zdialects::RepeatedKey;
    struct Key {
        uint32_t line;  // that counts
        uint32_t stanza;
    };
    RepeatedKey const rule = dialect_.switches().repeatedKey;
    zcache::HashIndex headerIndex;
    zcache::HashIndex keyIndex;
    std::vector<uint32_t> headers;
    std::vector<Key> keys;
    std::string space;
    std::string otherSpace;
    std::vector<Repetition> repetitions(lines_.size(), Repetition::none);
    auto const isReset = [&](Line const& line) {
        return line.kind == zlines::valueLine && dialect_.value(text_, line, space).empty();
    };
    // For each line of a key, the line of the key above it, up to the last reset.
    std::vector<uint32_t> above(dialect_.hasResets() ? lines_.size() : 0, kNoLine);
    uint32_t stanza = 0;  // one more than its first header
    for (uint32_t i = 0; i < lines_.size(); ++i) {
        Line const& line = lines_[i];
        if (line.kind == zlines::headerLine) {
            stanza = i + 1;
            if (dialect_.joinsHeaders()) {
                std::string_view const name = dialect_.stanzaName(text_, line, space);
                uint32_t const hash = zlines::hashOf(name);
                zcache::Id const known = headerIndex.find(hash, [&](zcache::Id id) {
                    return dialect_.stanzaName(text_, lines_[headers[id - 1]], otherSpace) == name;
                });
                if (known != 0) {
                    stanza = headers[known - 1] + 1;
                    if (refuses(zdialects::refusalRepeatedHeads) && name != kDefaults)
                        repetitions[i] = Repetition::refused;
                    else if (dialect_.switches().joinedHeads != zdialects::JoinedHeads::all)
                        repetitions[i] = Repetition::repeatedHeader;
                } else {
                    headers.push_back(i);
                    headerIndex.add(hash, static_cast<zcache::Id>(headers.size()));
                }
            }
            firstOf.push_back(stanza - 1);
        }
        if (!line.isKey())
            continue;
        std::string_view const name = dialect_.keyName(text_, line, space);
        if (zdialects::isListKey(dialect_.switches(), name))
            continue;
        uint32_t const hash = zlines::hashOf(name, stanza);
        zcache::Id const known = keyIndex.find(hash, [&](zcache::Id id) {
            Key const& key = keys[id - 1];
            return key.stanza == stanza &&
                   dialect_.keyName(text_, lines_[key.line], otherSpace) == name;
        });
        if (known == 0) {
            keys.push_back({i, stanza});
            keyIndex.add(hash, static_cast<zcache::Id>(keys.size()));
        } else if (refuses(zdialects::refusalRepeatedKeys)) {
            repetitions[i] = Repetition::refused;
        } else if (dialect_.hasResets()) {
            above[i] = std::exchange(keys[known - 1].line, i);
            if (!isReset(line))
                continue;
            for (uint32_t at = std::exchange(above[i], kNoLine); at != kNoLine; at = above[at])
                if (!isReset(lines_[at]))
                    repetitions[at] = Repetition::shadowed;
        } else if (rule == RepeatedKey::values) {
            if (line.kind != lines_[keys[known - 1].line].kind)
                repetitions[i] = Repetition::mixed;
        } else if (rule == RepeatedKey::first) {
            repetitions[i] = Repetition::shadowed;
        } else {
            repetitions[std::exchange(keys[known - 1].line, i)] = Repetition::shadowed;
        }
    }
    return repetitions;
}

void DialectInspector::addRepetition(Line const& line, Repetition repetition)
{
    bool const isRefused = repetition == Repetition::refused;
    bool const isHeader = repetition == Repetition::repeatedHeader;
    Cause const cause = isRefused                         ? refusedRepetition
                        : isHeader                        ? repeatedHeader
                        : repetition == Repetition::mixed ? mixedLines
                                                          : shadowed;
    size_t const at =
        line.isKey() ? line.nameBegin() : dialect_.characters().afterBlanks(text_, line.begin);
    Complaint complaint{placeAt(at), cause, isRefused, {}};
    complaint.isForeign = true;
    if (complaints_.wants(complaint.place, cause)) {
        std::string space;
        if (line.isKey())
            complaint.key = own(dialect_.writtenKey(text_, line, space), space);
        complaint.detail = isRefused || isHeader ? lineAt(begin_) : complaint.key;
        bool const readsLast = dialect_.switches().joinedHeads == zdialects::JoinedHeads::last;
        complaint.reason = isHeader       ? (readsLast ? "last" : "first")
                           : line.isKey() ? "the key is repeated"
                                          : "the header is repeated";
        complaint.stanza = stanzaName();
    }
    complaints_.add(complaint);
}

// Records the lines of a key that are ignored because of another line of the key, the lines that
// are refused because they repeat a header or a key, headers of which programs may read one, and
// lines without a value of a key with values.
void DialectInspector::findRepetitions()
{
    if (dialect_.switches().repeatedKey == zdialects::RepeatedKey::values &&
        dialect_.switches().joinedHeads == zdialects::JoinedHeads::all && !dialect_.hasResets() &&
        !refuses(zdialects::refusalRepeatedHeads) && !refuses(zdialects::refusalRepeatedKeys) &&
        dialect_.switches().keyAlone != zdialects::KeyAlone::option)
        return;
    std::vector<uint32_t> firstOf;
    std::vector<Repetition> const repetitions = markRepetitions(firstOf);
    size_t headers = 0;
    startAtTop();
    for (size_t i = 0; i < lines_.size(); ++i) {
        if (lines_[i].kind == zlines::headerLine)
            header_ = firstOf[headers++];
        if (repetitions[i] != Repetition::none)
            addRepetition(lines_[i], repetitions[i]);
    }
}

// Records a complaint about the line at a position, below the last header that was passed. An error
// that was found before is enough.
void DialectInspector::addAt(size_t at, Cause cause, bool isError, char const* reason)
{
    Complaint complaint{placeAt(at), cause, isError, {}};
    if (isError && std::binary_search(refusedLines_.begin(), refusedLines_.end(),
                                      static_cast<uint32_t>(begin_)))
        return;
    complaint.isForeign = true;
    if (complaints_.wants(complaint.place, cause)) {
        complaint.detail = lineAt(begin_);
        complaint.stanza = stanzaName();
        complaint.reason = reason;
    }
    complaints_.add(complaint);
}

// Records lines with bytes that are not UTF-8. Comments can have them, also between joined lines.
void DialectInspector::findInvalidBytes()
{
    startAtTop();
    for (size_t i = 0; i < lines_.size(); ++i) {
        if (lines_[i].kind == zlines::commentLine || lines_[i].kind == zlines::blankLine)
            continue;
        passHeaders(i);
        size_t const end = i + 1 < lines_.size() ? lines_[i + 1].begin : text_.size();
        for (size_t begin = lines_[i].begin; begin < end;) {
            zdialects::PhysicalLine const line = zdialects::physicalLineAt(text_, begin);
            size_t const first = dialect_.characters().afterBlanks(text_, begin);
            bool const isComment = first < line.end && dialect_.characters().isMark(text_[first]);
            size_t const valid = validPrefix(text_.substr(begin, line.end - begin));
            if (!isComment && begin + valid < line.end) {
                addAt(begin + valid, refusedLine, true, "it is not valid UTF-8");
                break;
            }
            begin = line.next;
        }
    }
}

void DialectInspector::findSyntaxFaults()
{
    startAtTop();
    PhpSyntax syntax(text_, zdialects::byteOrderMarkSize(text_));
    for (SyntaxFault fault{0, ""}; syntax.findNext(fault);) {
        size_t next = scanned_;
        while (next < lines_.size() && lines_[next].begin <= fault.at)
            ++next;
        passHeaders(next);
        addAt(fault.at, refusedLine, true, fault.reason);
    }
}

void DialectInspector::findPartialQuotes()
{
    startAtTop();
    for (size_t i = 0; i < lines_.size(); ++i) {
        if (lines_[i].kind != zlines::valueLine || !dialect_.isQuotedInPart(text_, lines_[i]))
            continue;
        passHeaders(i);
        addAt(lines_[i].valueBegin, quotedInPart, false, "");
    }
}

// Records the second line of each comment that continues.
void DialectInspector::findContinuedComments()
{
    startAtTop();
    for (size_t i = 0; i < lines_.size(); ++i) {
        if (lines_[i].kind != zlines::otherLine)
            continue;
        size_t const next = zdialects::physicalLineAt(text_, lines_[i].begin).next;
        size_t const end = i + 1 < lines_.size() ? lines_[i + 1].begin : text_.size();
        size_t const first = dialect_.characters().afterBlanks(text_, lines_[i].begin);
        if (next >= end || first >= end || !dialect_.characters().isMark(text_[first]))
            continue;
        passHeaders(i);
        addAt(next, continuedComment, false, "");
    }
}

}  // namespace zproblems
