#include "dialect_inspector.h"

#include <algorithm>
#include <unordered_map>
#include <utility>

#include "../dialects/logical_line.h"
#include "../lines/columns.h"

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
    std::stable_sort(findings_.begin(), findings_.end(),
                     [](Finding const& a, Finding const& b) { return a.at < b.at; });
    std::string_view stanza = dialect_.topStanza();
    // A file that is no text has no stanzas.
    bool const isText = std::any_of(lines_.begin(), lines_.end(), [](Line const& line) {
        return line.kind != zlines::otherLine;
    });
    if (!isText)
        stanza = {};
    auto line = lines_.begin();
    for (Finding const& finding : findings_) {
        for (; line != lines_.end() && line->begin < finding.at; ++line)
            if (line->kind == zlines::headerLine)
                stanza = nameOf(*line);
        complain(finding, stanza);
    }
    if (dialect_.switches().repeatedKey != zdialects::RepeatedKey::values)
        findShadowed();
}

// Returns the name of a header, as long as the inspector exists.
std::string_view DialectInspector::nameOf(Line const& header)
{
    std::string space;
    std::string_view const name = dialect_.writtenStanza(text_, header, space);
    return name.data() == space.data() ? std::string_view(names_.emplace_back(name)) : name;
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

void DialectInspector::complain(Finding const& finding, std::string_view stanza)
{
    Meaning const& meaning = meaningOf(finding.fault);
    Place const place = placeAt(finding.at);
    zdialects::PhysicalLine const line = zdialects::physicalLineAt(text_, begin_);
    std::string_view detail = text_.substr(begin_, line.end - begin_);
    detail = detail.substr(0, detail.find('\0'));
    size_t const first = dialect_.characters().afterBlanks(detail, 0);
    detail = detail.substr(first, dialect_.characters().withoutBlanksAtEnd(detail, first) - first);
    Complaint complaint{place, meaning.error, finding.isError, detail, 1, stanza};
    complaint.isForeign = true;
    if (!finding.isError && finding.fault != Fault::directive) {
        complaint.cause = passedOver;
        complaint.reason = meaning.reason;
    }
    complaints_.add(complaint);
}

// Notes the lines of a key that are ignored because of another line of it.
void DialectInspector::findShadowed()
{
    using zdialects::RepeatedKey;
    struct Stanza {
        std::string_view name;  // as first written
        size_t id;
    };
    RepeatedKey const rule = dialect_.switches().repeatedKey;
    bool const isSeparate = !dialect_.joinsHeaders();
    std::unordered_map<std::string, Stanza> stanzas;
    std::unordered_map<std::string, size_t> counting;  // the line of a key that counts
    std::string_view stanza = dialect_.topStanza();
    size_t id = 0;
    std::string space;
    std::vector<Complaint> complaints;
    std::vector<std::pair<size_t, size_t>> places;  // position, complaint
    for (size_t i = 0; i < lines_.size(); ++i) {
        if (lines_[i].kind == zlines::headerLine) {
            stanza = nameOf(lines_[i]);
            std::string const name(dialect_.stanzaName(text_, lines_[i], space));
            auto const [first, isNew] = stanzas.try_emplace(name, Stanza{stanza, i + 1});
            if (!isNew && !isSeparate)
                stanza = first->second.name;
            id = isSeparate ? i + 1 : first->second.id;
        }
        if (!lines_[i].isKey())
            continue;
        std::string_view const key = dialect_.keyName(text_, lines_[i], space);
        if (rule == RepeatedKey::lastOrList && key.size() > 2 && key.ends_with("[]"))
            continue;
        auto const [entry, isNew] =
            counting.emplace(std::to_string(id) + '\0' + std::string(key), i);
        if (isNew)
            continue;
        size_t const other = rule == RepeatedKey::first ? i : std::exchange(entry->second, i);
        names_.emplace_back(dialect_.writtenKey(text_, lines_[other], space));
        complaints.push_back({{}, shadowed, false, names_.back(), 1, stanza, names_.back(), true});
        places.emplace_back(lines_[other].nameBegin(), complaints.size() - 1);
    }
    std::sort(places.begin(), places.end());
    for (auto const& [at, index] : places) {
        complaints[index].place = placeAt(at);
        complaints_.add(complaints[index]);
    }
}

}  // namespace zproblems
