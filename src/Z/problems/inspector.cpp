#include "inspector.h"

#include <string.h>

#include <algorithm>
#include <memory>

#include "../ZLCString.h"
#include "../lines/columns.h"
#include "../lines/name_hash.h"
#include "../stanza/line_writer.h"
#include "../stanza/raise_sites.h"
#include "../stanza/reserved_entry.h"

namespace zproblems {

using zcache::Id;
using zlines::hashOf;

namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

bool isUTF16(std::string_view text)
{
    return text.starts_with("\xFF\xFE") || text.starts_with("\xFE\xFF");
}

}  // namespace

void Inspector::inspect()
{
    block_.resize(text_.size() + 1, zstanza::kSource, zstanza::raiseInAllocate);
    if (!text_.empty())
        memcpy(block_.data(), text_.data(), text_.size());
    block_[text_.size()] = '\0';
    if (isUTF16(text_)) {
        // Each line would be refused for another reason: there is a single remedy.
        zstanza::LineSplitter lines(block_.data(), text_.size());
        char const* line;
        size_t length;
        lines.next(line, length);
        complaints_.add({{1, 1}, utf16, true, whitespace_.trim(text_.substr(0, length))});
        return;
    }
    zstanza::Parser parser("", *this, true);
    parser.parse(block_.data(), text_.size());
    std::unique_ptr<ZLCString_6_0> const companion(parser.finish());
    if (companion != nullptr)
        companion_.assign(companion->getChars(), companion->getLength());
}

void Inspector::addObfuscated(std::string_view category, std::string_view key)
{
    Id const stanza = findStanza(category);
    Id const id = stanza == 0 ? 0 : findKey(stanza, key);
    if (id == 0)
        return;
    Key& found = keys_[id - 1];
    if (found.empty.line != 0)
        noteKey(droppedLine, found.empty, found);
    found.empty = {};
}

void Inspector::complainOfCompanion(Cause cause, bool isError, std::string const& reason)
{
    companionDetail_ = companion_ + reason;
    complaints_.add(
        {companionPlace_, cause, isError, companionDetail_, 1, zstanza::kReservedCategory});
}

// ---- The current line ------------------------------------------------------------------------

std::string_view Inspector::beginLine(std::string_view line, zstanza::LineSplitter const& lines)
{
    bool const isContinuation = continues_;
    if (!isContinuation)
        endLine();
    base_ = line.data();
    offset_ = static_cast<size_t>(base_ - block_.data());
    raw_ = text_.substr(offset_, static_cast<size_t>(lines.end() - base_));
    if (raw_.ends_with('\n'))
        raw_.remove_suffix(1);
    hasZero_ = line.size() < raw_.size();
    zero_ = offset_ + line.size();
    continues_ = lines.isSplit();
    isPart_ = isContinuation || continues_;
    trimmed_ = whitespace_.trim(text_.substr(offset_, line.size()));
    if (!isContinuation) {
        ++line_;
        counted_ = offset_;
        countedColumn_ = 1;
        findReturn();
    } else {
        for (; counted_ < offset_; ++countedColumn_)
            counted_ += zlines::characterLength(text_.substr(counted_));
        if (split_.line == 0)
            split_ = placeAt(offset_);
    }
    if (offset_ == 0 && line.starts_with(kByteOrderMark)) {
        complaints_.add({{1, 1}, byteOrderMark, true, trimmed_});
        hasError_ = true;
        line.remove_prefix(kByteOrderMark.size());
        base_ += kByteOrderMark.size();
        offset_ += kByteOrderMark.size();
    }
    return line;
}

// Complains about the line as a whole.
void Inspector::endLine()
{
    if (split_.line != 0)
        complaints_.add({split_, splitLine, isSplitError_, splitDetail_, 1, stanzaName()});
    else if (hasZero_ && !hasError_)
        addNote(zeroByte, placeAt(zero_));
    split_ = {};
    splitDetail_ = {};
    isSplitError_ = hasError_ = hasZero_ = false;
}

std::string_view Inspector::copy(std::string_view text)
{
    memcpy(copied_, text.data(), text.size());
    copied_[text.size()] = '\0';
    base_ = copied_;
    return {copied_, text.size()};
}

void Inspector::finish()
{
    bool const lacksNewline = !text_.empty() && text_.back() != '\n' && !hasError_;
    endLine();
    if (lacksNewline)
        complaints_.add({placeAt(text_.size()), missingNewline, false, {}});
    if (spacing_.count != 0)
        complaints_.add({spacing_.first, spacing, false, {}, spacing_.count});
    if (lineEndings_.count != 0)
        complaints_.add({lineEndings_.first, lineEnding, false, {}, lineEndings_.count});
    if (returns_.count != 0)
        complaints_.add({returns_.first, loneReturn, false, {}, returns_.count});
}

// Returns the offset of a byte of the current part, as the parser sees it.
size_t Inspector::offsetOf(char const* part) const
{
    return offset_ + static_cast<size_t>(part - base_);
}

// Returns a piece of the current line in the text, which stays when the parser has written into it.
std::string_view Inspector::own(std::string_view part) const
{
    return text_.substr(offsetOf(part.data()), part.size());
}

size_t Inspector::columnAt(size_t offset) const
{
    if (offset <= counted_)
        return countedColumn_;
    return countedColumn_ + zlines::countCharacters(text_.substr(counted_, offset - counted_));
}

// ---- Complaints about it ---------------------------------------------------------------------

// Adds an error, one for each line. A line that is too long or has a zero byte is refused because
// of that.
void Inspector::refuse(Cause cause, size_t offset)
{
    if (hasError_)
        return;
    hasError_ = true;
    if (isPart_) {
        split_ = placeAt(offset);
        isSplitError_ = true;
        splitDetail_ = trimmed_;
    } else if (hasZero_) {
        complaints_.add({placeAt(zero_), zeroByte, true, trimmed_, 1, stanzaName()});
    } else {
        complaints_.add({placeAt(offset), cause, true, trimmed_, 1, stanzaName()});
    }
}

void Inspector::addNote(Cause cause, Place place)
{
    complaints_.add({place, cause, false, {}, 1, stanzaName()});
}

void Inspector::noteKey(Cause cause, Place place, Key const& key)
{
    complaints_.add({place, cause, false, key.name, 1, stanzas_[key.stanza - 1], key.name});
}

void Inspector::countLine(Lines& lines, size_t offset)
{
    if (lines.count++ == 0)
        lines.first = placeAt(offset);
}

// Counts a line with a carriage return inside. Other programs may end the line there.
void Inspector::findReturn()
{
    if (size_t const at = trimmed_.find('\r'); at != trimmed_.npos)
        countLine(returns_, static_cast<size_t>(trimmed_.data() + at - text_.data()));
}

// Compares the line with the line that a store writes.
template <class Write>
void Inspector::compare(Write write)
{
    if (isPart_ || hasZero_ || hasError_)
        return;
    written_.clear();
    write(written_);
    std::string_view const expected(written_.chars(), written_.length() - 1);  // without newline
    if (expected == raw_)
        return;
    std::string_view body = raw_;
    if (body.ends_with('\r')) {
        body.remove_suffix(1);
        countLine(lineEndings_, offset_ + body.size());
    }
    if (body == expected)
        return;
    auto const differing =
        std::mismatch(body.begin(), body.end(), expected.begin(), expected.end()).first;
    countLine(spacing_, offset_ + static_cast<size_t>(differing - body.begin()));
}

// ---- The lines that the parser finds ---------------------------------------------------------

void Inspector::refuse(std::string_view line, size_t index)
{
    size_t const offset = offsetOf(line.data()) + index;
    leaveKey();
    if (line.starts_with('[')) {
        refuse(unclosedHeader, offset);
        enterStanza(own(line.substr(1)));
    } else if (line.find('=') == line.npos) {
        refuse(notAnEntry, offset);
    } else if (line.starts_with('=')) {
        refuse(missingKey, offset);
    } else {
        refuse(keyOutsideStanza, offset);
    }
}

void Inspector::addHeader(std::string_view parsed, int, int)
{
    std::string_view const name = own(parsed);
    size_t const offset = offsetOf(parsed.data());
    leaveKey();
    if (!enterStanza(name))
        refuse(duplicateStanza, offset);
    size_t const bracket = offset + name.size() - offset_;
    std::string_view const rest = whitespace_.trim(raw_.substr(bracket + 1));
    if (rest.empty() || isPart_ || hasZero_ || hasError_)
        compare([name](zstanza::TextBuffer& text) { zstanza::writeHeader(name, text); });
    else
        addNote(textAfterHeader, placeAt(static_cast<size_t>(rest.data() - text_.data())));
}

void Inspector::addComment(std::string_view parsed)
{
    std::string_view const comment = own(parsed);
    leaveKey();
    compare([comment](zstanza::TextBuffer& text) { zstanza::writeLine(comment, text); });
}

void Inspector::addBlank()
{
    leaveKey();
    compare([](zstanza::TextBuffer& text) { zstanza::writeLine("", text); });
}

void Inspector::addKey(std::string_view parsedName, std::string_view parsedValue)
{
    std::string_view const name = own(parsedName);
    std::string_view const value = own(parsedValue);
    Place const place = placeAt(offsetOf(parsedName.data()));
    size_t const known = keys_.size();
    Id const id = addKeyOnce(name);
    Key& key = keys_[id - 1];
    bool const isDropped = value.empty() && (key.hasValue || key.empty.line != 0);
    if (isDropped)
        noteKey(droppedLine, place, key);
    else if (keys_.size() == known && previousKey_ != id && !isPart_)
        noteKey(movedLine, place, key);
    if (!isDropped)
        previousKey_ = id;
    noteContinuation(place, offsetOf(parsedName.data()) - offset_, key);
    if (!value.empty()) {
        if (key.empty.line != 0)
            noteKey(droppedLine, key.empty, key);
        key.empty = {};
        key.hasValue = true;
    } else if (!isDropped) {
        key.empty = place;
    }
    if (isReserved_ && name == zstanza::kReservedKey)
        companionPlace_ = placeAt(offsetOf(parsedValue.data()));
    compare([name, value](zstanza::TextBuffer& text) {
        if (value.empty())
            zstanza::writeEmptyKey(name, text);
        else
            zstanza::writeValue(name, value, text);
    });
}

// Reports a key that is indented more than the keys above it. Other formats have continuations
// there.
void Inspector::noteContinuation(Place place, size_t indent, Key const& key)
{
    if (isPart_ || hasZero_ || hasError_)
        keyIndent_ = kNoKeyAbove;
    else if (indent > keyIndent_)
        noteKey(looksContinued, place, key);
    else
        keyIndent_ = indent;
}

// The line is not a key line.
void Inspector::leaveKey()
{
    previousKey_ = 0;
    keyIndent_ = kNoKeyAbove;
}

// ---- Names -----------------------------------------------------------------------------------

Id Inspector::findStanza(std::string_view name) const
{
    return stanzaIndex_.find(hashOf(name), [&](Id id) { return stanzas_[id - 1] == name; });
}

Id Inspector::findKey(Id stanza, std::string_view name) const
{
    return keyIndex_.find(hashOf(name, stanza), [&](Id id) {
        return keys_[id - 1].stanza == stanza && keys_[id - 1].name == name;
    });
}

// Returns the name of the current stanza; empty before the first.
std::string_view Inspector::stanzaName() const
{
    return stanza_ == 0 ? std::string_view() : stanzas_[stanza_ - 1];
}

// Makes a stanza the current stanza. Returns whether it is new.
bool Inspector::enterStanza(std::string_view name)
{
    isReserved_ = name == zstanza::kReservedCategory;
    stanza_ = findStanza(name);
    if (stanza_ != 0)
        return false;
    stanzas_.push_back(name);
    stanzaIndex_.reserve(1);
    stanza_ = static_cast<Id>(stanzas_.size());
    stanzaIndex_.add(hashOf(name), stanza_);
    return true;
}

// Returns the key of the current stanza, which is added if it is new.
Id Inspector::addKeyOnce(std::string_view name)
{
    Id const known = findKey(stanza_, name);
    if (known != 0)
        return known;
    keys_.push_back({name, stanza_, false, {}});
    keyIndex_.reserve(1);
    auto const id = static_cast<Id>(keys_.size());
    keyIndex_.add(hashOf(name, stanza_), id);
    return id;
}

}  // namespace zproblems
