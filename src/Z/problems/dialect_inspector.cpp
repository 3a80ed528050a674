#include "dialect_inspector.h"

#include <algorithm>
#include <string>
#include <utility>

#include "../cache/hash_index.h"
#include "../dialects/logical_line.h"
#include "../lines/columns.h"
#include "../lines/name_hash.h"

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
    {Fault::noHeadOrKey, noHeadOrKey},
};

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
    if (dialect_.switches().repeatedKey != zdialects::RepeatedKey::values)
        findShadowed();
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

void DialectInspector::found(Finding const& finding)
{
    // The reader may have joined the last lines with their key.
    scanned_ = std::min(scanned_, lines_.size());
    for (; scanned_ < lines_.size(); ++scanned_)
        if (lines_[scanned_].kind == zlines::headerLine)
            header_ = scanned_;
    Meaning const& meaning = meaningOf(finding.fault);
    bool const isPassedOver = !finding.isError && finding.fault != Fault::directive;
    Cause const cause = isPassedOver ? passedOver : meaning.error;
    Complaint complaint{placeAt(finding.at), cause, finding.isError, {}};
    complaint.isForeign = true;
    if (complaints_.wants(complaint.place, cause)) {
        zdialects::PhysicalLine const line = zdialects::physicalLineAt(text_, begin_);
        std::string_view detail = text_.substr(begin_, line.end - begin_);
        detail = detail.substr(0, detail.find('\0'));
        size_t const first = dialect_.characters().afterBlanks(detail, 0);
        size_t const end = dialect_.characters().withoutBlanksAtEnd(detail, first);
        complaint.detail = detail.substr(first, end - first);
        complaint.stanza = stanzaName();
        if (isPassedOver)
            complaint.reason = meaning.reason;
    }
    complaints_.add(complaint);
}

// Returns for each line whether another line of its key counts in its place. Stores for each header
// the first header of its stanza in `firstOf`.
std::vector<bool> DialectInspector::markShadowed(std::vector<uint32_t>& firstOf) const
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
    std::vector<bool> isShadowed(lines_.size());
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
        if (rule == RepeatedKey::lastOrList && name.size() > 2 && name.ends_with("[]"))
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
        } else if (rule == RepeatedKey::first) {
            isShadowed[i] = true;
        } else {
            isShadowed[std::exchange(keys[known - 1].line, i)] = true;
        }
    }
    return isShadowed;
}

// Records the lines of a key that are ignored because of another line of the key.
void DialectInspector::findShadowed()
{
    std::vector<uint32_t> firstOf;
    std::vector<bool> const isShadowed = markShadowed(firstOf);
    std::string space;
    size_t headers = 0;
    header_ = named_ = kTop;
    for (size_t i = 0; i < lines_.size(); ++i) {
        if (lines_[i].kind == zlines::headerLine)
            header_ = firstOf[headers++];
        if (!isShadowed[i])
            continue;
        Complaint complaint{placeAt(lines_[i].nameBegin()), shadowed, false, {}};
        complaint.isForeign = true;
        if (complaints_.wants(complaint.place, shadowed)) {
            complaint.key = own(dialect_.writtenKey(text_, lines_[i], space), space);
            complaint.detail = complaint.key;
            complaint.stanza = stanzaName();
        }
        complaints_.add(complaint);
    }
}

}  // namespace zproblems
