#include "merge_side.h"

#include <algorithm>

#include "name_hash.h"
#include "separate_stanzas.h"

namespace zlines {

namespace {

// Returns the names of the stanzas of a side, as the base has them.
std::vector<std::string> namesLike(MergeSide const& base, Outline& side)
{
    std::vector<std::string> names;
    std::map<std::string, uint32_t> counts;
    std::vector<MatchedStanza> const matched = matchSeparateStanzas(base.outline(), side);
    for (MatchedStanza const& stanza : matched) {
        if (stanza.before != kNone) {
            names.emplace_back(base.outline().stanzas()[stanza.before].name);
            continue;
        }
        // No header has a newline. Equal stanzas that both sides add have one name.
        std::string name = '\n' + stanza.contents;
        name += '\n' + std::to_string(++counts[stanza.contents]);
        names.push_back(std::move(name));
    }
    return names;
}

// Returns the memory that a list of all lines takes at most, so that it is allocated once.
size_t sizeOfEntries(Outline const& outline, MergeSide::Listing listing)
{
    constexpr size_t kLinks = 2 * sizeof(void*);
    return listing == MergeSide::withEntries
               ? (outline.lines().size() + 1) * (sizeof(SideEntry) + kLinks)
               : 1;
}

}  // namespace

MergeSide::MergeSide(std::string_view text, Dialect const& dialect, MergeSide const* base,
                     Listing listing)
    : outline_(text, dialect), listing_(listing), entryMemory_(sizeOfEntries(outline_, listing))
{
    bool const isMatched = base != nullptr && !dialect.joinsHeaders();
    read(isMatched ? namesLike(*base, outline_) : std::vector<std::string>());
}

MergeSide::MergeSide(std::string_view text, Dialect const& dialect,
                     std::vector<std::string> const& names)
    : outline_(text, dialect)
{
    read(names.size() == outline_.stanzas().size() && !dialect.joinsHeaders()
             ? names
             : std::vector<std::string>());
}

// range   `names` is empty: the stanzas have their own names.
void MergeSide::read(std::vector<std::string> const& names)
{
    size_t const keyLines =
        static_cast<size_t>(std::count_if(outline_.lines().begin(), outline_.lines().end(),
                                          [](Line const& line) { return line.isKey(); }));
    keys_.reserve(keyLines);
    commentsOfKeys_.reserve(static_cast<size_t>(
        std::count_if(outline_.lines().begin(), outline_.lines().end(),
                      [](Line const& line) { return line.kind == commentLine; })));
    std::vector<uint32_t> const stanzaOf = outline_.stanzasOfSections();
    auto const& read = outline_.stanzas();
    for (uint32_t i = 0; i < stanzaOf.size(); ++i)
        addSection(outline_.sections()[i], stanzaOf[i] == 0 ? kTopOfText
                                           : names.empty()  ? std::string(read[stanzaOf[i]].name)
                                                            : names[stanzaOf[i]]);
    takeCommentsAtStart(static_cast<uint32_t>(outline_.lines().size()));
    takeComments(kEndOfText, "", kNone);
}

void MergeSide::addEntry(SideEntry const& entry)
{
    if (listing_ == withEntries)
        entries_.push_back(entry);
}

bool MergeSide::isBelowBlank(uint32_t line) const
{
    return line > 0 && outline_.lines()[line - 1].kind == blankLine;
}

void MergeSide::addSection(Section const& section, std::string const& name)
{
    bool const isNew = !stanzas_.contains(name);
    auto& [ownName, stanza] = stanzaOf(name);
    if (isNew)
        order_.push_back(name);
    stanza.sections.push_back(static_cast<uint32_t>(&section - outline_.sections().data()));
    if (section.header != kNone) {
        takeCommentsAtStart(section.header);
        uint32_t const header = stanza.headerCount++;
        takeComments(name, "", section.header, header);
        if (stanza.header == kNone && name != kTopOfText) {
            stanza.header = section.header;
            stanza.spelled = outline_.spelledName(section.header);
            stanza.isBelowBlank = isBelowBlank(section.header);
        }
        addEntry({SideEntry::header, isBelowBlank(section.header), false, false, header, ownName});
    }
    for (uint32_t line = section.first; line < section.end; ++line) {
        if (outline_.lines()[line].kind == commentLine)
            pending_.push_back(line);
        else if (outline_.lines()[line].isKey())
            addKey(ownName, stanza, line);
        else if (outline_.lines()[line].kind == otherLine)
            addOtherLine(name, line);
    }
}

// The comments above a line without a meaning belong to it, and not to the key below it.
void MergeSide::addOtherLine(std::string const& stanza, uint32_t line)
{
    takeCommentsAtStart(line);
    if (pending_.empty())
        return;
    std::string owner(1, kOtherLine);
    owner += slice(outline_.text(), outline_.lines()[line].begin, outline_.endOf(line));
    takeComments(stanza, owner, line);
}

// Returns the stanza of a name, which it adds if it is new.
std::pair<std::string const, SideStanza>& MergeSide::stanzaOf(std::string const& name)
{
    auto const [at, isNew] = stanzas_.try_emplace(name);
    if (isNew)
        at->second.number = static_cast<uint32_t>(stanzas_.size() - 1);
    return *at;
}

uint32_t MergeSide::indexOf(uint32_t stanza, std::string_view key) const
{
    uint32_t const found = index_.empty() ? 0 : index_[slotOf(stanza, key)];
    return found == 0 ? kNone : found - 1;
}

// Returns the slot of a key in the index, or the free slot where it would be.
// range   the index has a free slot.
size_t MergeSide::slotOf(uint32_t stanza, std::string_view key) const
{
    auto const isOfKey = [&](uint32_t slot) {
        KeyRecord const& found = keys_[slot - 1];
        return found.stanza == stanza && found.name == key;
    };
    size_t const mask = index_.size() - 1;
    size_t at = hashOf(key, stanza) & mask;
    while (index_[at] != 0 && !isOfKey(index_[at]))
        at = (at + 1) & mask;
    return at;
}

// Grows the index if it has too few free slots for one more key.
void MergeSide::growIndex()
{
    auto const isEnough = [this](size_t size) { return keys_.size() < size - size / 4; };
    if (!index_.empty() && isEnough(index_.size()))
        return;
    size_t size = 16;
    while (!isEnough(size) || keys_.capacity() >= size)
        size *= 2;
    index_.assign(size, 0);
    for (uint32_t i = 0; i < keys_.size(); ++i)
        index_[slotOf(keys_[i].stanza, keys_[i].name)] = i + 1;
}

// Returns the index of a key, which it adds if it is new. `name` may be in `space`.
uint32_t MergeSide::recordOf(SideStanza const& stanza, std::string_view name,
                             std::string const& space)
{
    growIndex();
    uint32_t& slot = index_[slotOf(stanza.number, name)];
    if (slot == 0) {
        keys_.push_back({outline_.keep(name, space), stanza.number});
        slot = static_cast<uint32_t>(keys_.size());
    }
    return slot - 1;
}

void MergeSide::addKey(std::string const& name, SideStanza& stanza, uint32_t line)
{
    std::string space;
    std::string_view const key = outline_.keyName(line, space);
    takeCommentsAtStart(line);
    if (!pending_.empty())
        takeComments(name, std::string(key), line);
    uint32_t const index = recordOf(stanza, key, space);
    KeyRecord& record = keys_[index];
    if (record.first == kNone) {
        record.first = record.last = line;
        stanza.keys.push_back(index);
        addEntry({SideEntry::key, isBelowBlank(line), false, false, 0, name, record.name});
        return;
    }
    if (next_.empty())
        next_.assign(outline_.lines().size(), kNone);
    next_[std::exchange(record.last, line)] = line;
}

// The comments at the start of the text belong to the text if a blank line follows them.
void MergeSide::takeCommentsAtStart(uint32_t line)
{
    if (!std::exchange(isAtStart_, false))
        return;
    while (line > 0 && outline_.lines()[line - 1].kind != blankLine)
        --line;
    auto const first = std::lower_bound(pending_.begin(), pending_.end(), line);
    std::vector<uint32_t> below(first, pending_.end());
    pending_.erase(first, pending_.end());
    takeComments(kTopOfText, "", kNone);
    pending_ = std::move(below);
}

// Takes the pending comments for a key or, if `key` is empty, for a header of the stanza. They are
// above `line`.
void MergeSide::takeComments(std::string const& stanza, std::string const& key, uint32_t line,
                             uint32_t header)
{
    for (uint32_t const at : pending_) {
        Line const& record = outline_.lines()[at];
        SideComment const comment{slice(outline_.text(), record.nameBegin(), record.valueEnd),
                                  record.valueBegin - record.nameBegin(), header, line,
                                  isBelowBlank(at)};
        auto& [name, parent] = stanzaOf(stanza);
        if (key.empty()) {
            parent.comments.push_back(comment);
            addEntry({SideEntry::comment,
                      comment.isBelowBlank,
                      false,
                      false,
                      header,
                      name,
                      {},
                      comment.text});
            continue;
        }
        KeyRecord& owner = keys_[recordOf(parent, key, key)];
        auto const added = static_cast<uint32_t>(commentsOfKeys_.size());
        commentsOfKeys_.push_back({comment, added});
        if (owner.comments != kNone)
            std::swap(commentsOfKeys_[added].next, commentsOfKeys_[owner.comments].next);
        owner.comments = added;
        addEntry({SideEntry::comment, comment.isBelowBlank, false, false, 0, name, owner.name,
                  comment.text});
    }
    pending_.clear();
}

std::pair<uint32_t, uint32_t> MergeSide::rangeOf(uint32_t section) const
{
    Section const& found = outline_.sections()[section];
    std::vector<Line> const& lines = outline_.lines();
    uint32_t first = found.header;
    for (uint32_t at = first; at > 0; --at) {
        if (lines[at - 1].kind == commentLine)
            first = at - 1;
        else if (lines[at - 1].kind != blankLine)
            break;
        // Comments at the start of the text belong to it if a blank line follows them.
        if (at == 1)
            for (first = found.header; first > 0 && lines[first - 1].kind == commentLine;)
                --first;
    }
    uint32_t last = found.header;
    for (uint32_t line = found.first; line < found.end; ++line)
        if (lines[line].isKey())
            last = line;
    return {lines[first].begin, outline_.endOf(last)};
}

void MergeSide::appendLines(std::pair<uint32_t, uint32_t> range, std::string_view ending,
                            std::string& out) const
{
    std::string_view bytes = slice(outline_.text(), range.first, range.second);
    while (!bytes.empty()) {
        size_t const length = std::min(bytes.find('\n'), bytes.size());
        std::string_view line = bytes.substr(0, length);
        if (line.ends_with('\r'))
            line.remove_suffix(1);
        (out += line) += ending;
        bytes.remove_prefix(std::min(length + 1, bytes.size()));
    }
}

SideStanza const* MergeSide::find(std::string_view stanza) const
{
    auto const found = stanzas_.find(stanza);
    return found == stanzas_.end() ? nullptr : &found->second;
}

SideKey MergeSide::find(std::string_view stanza, std::string_view key) const
{
    uint32_t const index = indexOf(stanza, key);
    return index == kNone ? SideKey() : SideKey(*this, index);
}

uint32_t MergeSide::indexOf(std::string_view stanza, std::string_view key) const
{
    SideStanza const* const parent = find(stanza);
    return parent == nullptr ? kNone : indexOf(parent->number, key);
}

std::vector<SideComment> MergeSide::commentsOf(std::string_view stanza, std::string_view key) const
{
    if (!key.empty()) {
        SideKey const found = find(stanza, key);
        return found ? found.comments() : std::vector<SideComment>();
    }
    SideStanza const* const found = find(stanza);
    return found == nullptr ? std::vector<SideComment>() : found->comments;
}

std::vector<SideComment> MergeSide::commentsOfOtherLines() const
{
    std::vector<SideComment> found;
    for (uint32_t i = 0; i < keys_.size(); ++i)
        if (keys_[i].comments != kNone && keys_[i].name.starts_with(kOtherLine))
            for (SideComment const& comment : key(i).comments())
                found.push_back(comment);
    return found;
}

std::string_view SideKey::name() const
{
    return side_->keys_[index_].name;
}

std::string_view SideKey::spelled() const
{
    uint32_t const first = firstLine();
    return first == kNone ? std::string_view() : side_->outline_.spelledName(first);
}

std::vector<std::string> SideKey::values() const
{
    std::vector<std::string> values;
    forEachValue([&](std::string_view value) { values.emplace_back(value); });
    return values;
}

bool SideKey::hasValues() const
{
    for (uint32_t line = firstLine(); line != kNone; line = side_->nextOf(line))
        if (isValue(line))
            return true;
    return false;
}

uint32_t SideKey::firstLine() const
{
    return side_->keys_[index_].first;
}

std::vector<uint32_t> SideKey::linesWith(bool hasValue) const
{
    std::vector<uint32_t> lines;
    side_->forEachLine(index_, [&](uint32_t line) {
        if (isValue(line) == hasValue)
            lines.push_back(line);
    });
    return lines;
}

bool SideKey::isValue(uint32_t line) const
{
    return side_->outline_.lines()[line].kind == valueLine;
}

std::vector<uint32_t> SideKey::lines() const
{
    std::vector<uint32_t> lines;
    side_->forEachLine(index_, [&](uint32_t line) { lines.push_back(line); });
    return lines;
}

std::vector<SideComment> SideKey::comments() const
{
    std::vector<SideComment> comments;
    uint32_t const last = side_->keys_[index_].comments;
    if (last == kNone)
        return comments;
    for (uint32_t at = side_->commentsOfKeys_[last].next;; at = side_->commentsOfKeys_[at].next) {
        comments.push_back(side_->commentsOfKeys_[at].comment);
        if (at == last)
            return comments;
    }
}

bool SideKey::isBelowBlank() const
{
    uint32_t const first = firstLine();
    return first != kNone && side_->isBelowBlank(first);
}

bool SideKey::hasSameValues(SideKey const& other) const
{
    if (side_ == nullptr || other.side_ == nullptr)
        return side_ == other.side_;
    return values() == other.values();
}

bool SideKey::hasSameLineValues(SideKey const& other) const
{
    if (!hasSameValues(other))
        return false;
    if (side_ == nullptr)
        return true;
    auto const kindsOf = [](SideKey const& key) {
        std::vector<uint8_t> kinds;
        for (uint32_t const line : key.lines())
            kinds.push_back(key.side_->outline_.lines()[line].kind);
        return kinds;
    };
    return kindsOf(*this) == kindsOf(other);
}

bool SideKey::hasSameLines(SideKey const& other) const
{
    if (side_ == nullptr || other.side_ == nullptr)
        return side_ == other.side_;
    std::vector<uint32_t> const lines = valueLines();
    std::vector<uint32_t> const others = other.valueLines();
    return std::equal(
        lines.begin(), lines.end(), others.begin(), others.end(),
        [&](uint32_t line, uint32_t another) { return textOf(line) == other.textOf(another); });
}

std::string_view SideKey::textOf(uint32_t line) const
{
    return side_->outline_.wholeLine(line);
}

}  // namespace zlines
