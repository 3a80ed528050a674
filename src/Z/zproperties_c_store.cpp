// The store of an open file: its changes, as the observer receives them, and the reasons for
// refusals.
#include <string.h>

#include <algorithm>
#include <optional>
#include <vector>

#include "ZException.h"
#include "ZLCString.h"
#include "ZPropertiesImpl.h"
#include "ZStanzaDialect_p.h"
#include "dialects/counting.h"
#include "zproperties_c_p.h"

namespace zhandles {

namespace {

constexpr char kSource[] = "src/Z/zproperties_c";

// Stable ids in reports; log scanners match them. See docs/failures.md.
enum RaiseSite { raiseInRemoveValue = 472 };

using Cache = ZPCategoryBasedCache_6_0;

char const* orEmpty(char const* text)
{
    return text != nullptr ? text : "";
}

bool isEmpty(char const* text)
{
    return text == nullptr || *text == '\0';
}

constexpr char kSeveralStanzas[] =
    "Several stanzas have the name; add the number of one of them, as in NAME]2.";

Cache const& valuesOf(ZPCache_6_0 const& cache)
{
    return static_cast<Cache const&>(cache);  // the cache of a stanza file is derived from it
}

}  // namespace

// ---- Changes ------------------------------------------------------------------------------------

PlainStore::Access::Sender::~Sender() noexcept(false)
{
    if (changes.empty())
        return;
    // A cancellation would end the process.
    std::optional<zreporting::CancelGuard> uncancelled;
    if (zreporting::unwinding())
        uncancelled.emplace();
    for (Change const& change : changes)
        observer.notify(change.kind, change.stanza.c_str(), change.key.c_str());
}

PlainStore::Access::Access(PlainStore& store) : store_(store), sender_{store.observer}, hold_(store)
{
    ++store_.depth_;
}

PlainStore::Access::~Access() noexcept(false)
{
    if (--store_.depth_ == 0)
        sender_.changes.swap(store_.queued_);
}

void PlainStore::publishName()
{
    knownName_.store(fileName().getChars(), std::memory_order_release);
}

PlainStore::Changes PlainStore::prepare(int kind, char const* stanza, char const* key) const
{
    Changes changes;
    if (observer.isSet())
        changes.push_back({kind, orEmpty(stanza), orEmpty(key)});
    return changes;
}

unsigned long PlainStore::cacheAttributes() const
{
    return cache().attributes();
}

// Returns whether a key has these values, and no values of the other kind. No name that a file
// cannot hold has values.
bool PlainStore::hasOnly(char const* stanza, char const* key, char const* const* values, int count,
                         Call::Kind kind) const
{
    if (isEmpty(stanza) || isEmpty(key) || cache().contains(stanza, key) == 0)
        return false;
    auto const wanted =
        kind == Call::obfuscated ? ZPCache_6_0::obfuscatedValues : ZPCache_6_0::plainValues;
    auto const other =
        kind == Call::obfuscated ? ZPCache_6_0::plainValues : ZPCache_6_0::obfuscatedValues;
    if (valuesOf(cache()).values(stanza, key, other).count() > 0)
        return false;
    Cache::Values read = valuesOf(cache()).values(stanza, key, wanted);
    if (read.count() != count)
        return false;
    Cache::Text value;
    for (int i = 0; i < count && read.next(value); ++i)
        if (strcmp(value.chars, values[i]) != 0)
            return false;
    return true;
}

void PlainStore::requireOneStanza(char const* stanza) const
{
    if (stanza != nullptr && isAmbiguous(stanza) != 0)
        throw Refusal{kSeveralStanzas};
}

// The strings are borrowed until the next change.
std::vector<char const*> PlainStore::plainValues(char const* stanza, char const* key) const
{
    std::vector<char const*> all;
    if (isEmpty(stanza) || isEmpty(key))
        return all;
    Cache::Values values = valuesOf(cache()).values(stanza, key, ZPCache_6_0::plainValues);
    for (Cache::Text text; values.next(text);)
        all.push_back(text.chars);
    return all;
}

zdialects::ValueRange PlainStore::countingRange(char const* key,
                                                std::vector<char const*> const& values) const
{
    return zdialects::countingRange(switches_, key, static_cast<int>(values.size()), [&] {
        auto const isReset = [](char const* value) { return *value == '\0'; };
        auto const last = std::find_if(values.rbegin(), values.rend(), isReset);
        return static_cast<int>(values.rend() - last);
    });
}

void PlainStore::setText(char const* stanza, char const* key, char const* value, Call::Kind kind)
{
    requireOneStanza(stanza);
    if (kind == Call::plain && value != nullptr && !isStanzaFile_ && !isEmpty(key)) {
        std::vector<char const*> all = plainValues(stanza, key);
        zdialects::ValueRange const range = countingRange(key, all);
        if (all.size() > 1 && range.count() == 0 && *value == '\0')
            return;  // the last value is a reset
        if (all.size() > 1 && range.count() <= 1) {
            if (range.count() == 1)
                all[static_cast<size_t>(range.first)] = value;
            else
                all.push_back(value);
            setTexts(stanza, key, all.data(), static_cast<int>(all.size()));
            return;
        }
    }
    int const obfuscated = kind == Call::obfuscated ? 1 : 0;
    // An empty value leaves a key of a stanza file without values.
    bool const isNone = isStanzaFile_ ? isEmpty(value) : value == nullptr;
    if (hasOnly(stanza, key, &value, isNone ? 0 : 1, kind))
        return;
    Changes set = prepare(zpropSet, stanza, key);
    // KEPT: an empty plain value replaces obfuscated values, although any other plain value is
    // refused. Programs remove a password in this way. Test:
    // ZPropertiesCChanges.KeepsRemovingObfuscatedValuesByAnEmptyPlainValue
    if (obfuscated != 0)
        checkAccess(stanza, key, obfuscated);
    setValue(stanza, key, value, obfuscated);
    record(set);
}

int PlainStore::booleanOf(char const* stanza, char const* key, int isRequired) const
{
    Hold const hold(*this);
    bool const isOption = !isStanzaFile_ && switches_.keyAlone == zdialects::KeyAlone::option;
    if (isOption && !isEmpty(stanza) && !isEmpty(key) && exists(stanza, key) != 0 &&
        numValues(stanza, key) == 0)
        return 1;
    return getBooleanValue(stanza, key, isRequired, 0);
}

void PlainStore::setTexts(char const* stanza, char const* key, char const* const* values, int count)
{
    requireOneStanza(stanza);
    int const present = isStanzaFile_ && count == 1 && *values[0] == '\0' ? 0 : count;
    if (hasOnly(stanza, key, values, present, Call::plain))
        return;
    Changes set = prepare(zpropSet, stanza, key);
    setValues(stanza, key, values, static_cast<unsigned>(count));
    record(set);
}

void PlainStore::addText(char const* stanza, char const* key, char const* value)
{
    requireOneStanza(stanza);
    if (!isEmpty(stanza) && !isEmpty(key) && zdialects::countsOnce(switches_, key) &&
        exists(stanza, key) != 0)
        throw Refusal{"The key exists, and only one of its lines would count; set its value."};
    Changes set = prepare(zpropSet, stanza, key);
    int const before = isEmpty(stanza) || isEmpty(key) ? 0 : numValues(stanza, key);
    if (isStanzaFile_)
        addValue(stanza, key, value, 0);
    else
        appendText(stanza, key, value);
    if (numValues(stanza, key) != before)
        record(set);
}

// Appends a value that the key may have already.
void PlainStore::appendText(char const* stanza, char const* key, char const* value)
{
    std::vector<char const*> all = plainValues(stanza, key);
    all.push_back(value);
    setValues(stanza, key, all.data(), static_cast<unsigned>(all.size()));
}

void PlainStore::removeText(char const* stanza, char const* key, char const* value)
{
    requireOneStanza(stanza);
    Changes set = prepare(zpropSet, stanza, key);
    Changes removed = prepare(zpropRemoved, stanza, key);
    std::vector<char const*> all;
    if (!isStanzaFile_)
        all = plainValues(stanza, key);
    zdialects::ValueRange const range = countingRange(key, all);
    // Earlier values may have no effect. The function removes the value that the getters return.
    auto const first = all.begin() + range.first;
    auto const found = std::find_if(first, all.begin() + range.end,
                                    [&](char const* other) { return strcmp(value, other) == 0; });
    if (isStanzaFile_ || all.size() == 1) {
        removeValue(stanza, key, value);
    } else if (found != all.begin() + range.end) {
        all.erase(found);
        setValues(stanza, key, all.data(), static_cast<unsigned>(all.size()));
    } else {
        ZPropertiesMissingPropertyException_6_0(knownName(), stanza, key)
            .throwException(kSource, raiseInRemoveValue);
    }
    record(exists(stanza, key) != 0 ? set : removed);
}

void PlainStore::removeKey(char const* stanza, char const* key)
{
    requireOneStanza(stanza);
    if (exists(stanza, key) == 0)
        return;
    Changes removed = prepare(zpropRemoved, stanza, key);
    deleteKey(stanza, key);
    record(removed);
}

void PlainStore::removeStanza(char const* stanza)
{
    requireOneStanza(stanza);
    if (exists(stanza) == 0)
        return;
    Changes removed = prepare(zpropRemoved, stanza, nullptr);
    deleteStanza(stanza);
    record(removed);
}

void PlainStore::addNewStanza(char const* stanza)
{
    if (exists(stanza) != 0)
        return;
    Changes added = prepare(zpropAdded, stanza, nullptr);
    addStanza(stanza);
    record(added);
}

void PlainStore::rename(char const* stanza, char const* newStanza)
{
    requireOneStanza(stanza);
    Changes changes = prepare(zpropRemoved, stanza, nullptr);
    changes.splice(changes.end(), prepare(zpropAdded, newStanza, nullptr));
    renameStanza(stanza, newStanza);
    if (strcmp(stanza, newStanza) != 0)
        record(changes);
}

void PlainStore::rename(char const* stanza, char const* key, char const* newKey)
{
    requireOneStanza(stanza);
    Changes changes = prepare(zpropRemoved, stanza, key);
    changes.splice(changes.end(), prepare(zpropSet, stanza, newKey));
    renameKey(stanza, key, newKey);
    if (strcmp(key, newKey) != 0)
        record(changes);
}

// Returns a comment as it reads back.
std::string PlainStore::commentLines(char const* comment)
{
    std::string lines;
    for (char const* at = comment;;) {
        char const* const end = strchrnul(at, '\n');
        ZLCString_6_0 line(at, static_cast<unsigned>(end - at));
        checkComment(line);
        lines += line.getChars();
        if (*end == '\0')
            return lines;
        lines += '\n';
        at = end + 1;
    }
}

void PlainStore::replaceComment(char const* stanza, char const* key, char const* comment)
{
    requireOneStanza(stanza);
    ZLCString_6_0 before;
    bool const hasComment = getComment(stanza, key, before) != 0;
    if (comment == nullptr ? !hasComment : hasComment && commentLines(comment) == before.getChars())
        return;
    Changes commented = prepare(zpropCommented, stanza, key);
    setComment(stanza, key, comment);
    record(commented);
}

void PlainStore::respell(char const* stanza, char const* key, unsigned index, char const* spelling)
{
    requireOneStanza(stanza);
    Changes set = prepare(zpropSet, stanza, key);
    ZLCString_6_0 before;
    getSpelling(stanza, key, index, before);
    if (strcmp(before.getChars(), spelling) == 0)
        return;
    setSpelling(stanza, key, index, spelling);
    record(set);
}

void PlainStore::addComment(char const* stanza, char const* key, char const* comment)
{
    requireOneStanza(stanza);
    Changes changes;
    if (key != nullptr && !isEmpty(stanza) && !isEmpty(key) && exists(stanza, key) == 0)
        changes = prepare(zpropSet, stanza, key);
    if (stanza == nullptr || key != nullptr || (!isEmpty(stanza) && exists(stanza) != 0))
        changes.splice(changes.end(), prepare(zpropCommented, stanza, key));
    if (stanza == nullptr)
        addFileComment(comment);
    else if (key == nullptr)
        addStanzaComment(stanza, comment);
    else
        addEntryComment(stanza, key, comment);
    record(changes);
}

// ---- Reasons ------------------------------------------------------------------------------------

namespace {

constexpr char kEmptyStanza[] = "The name of the stanza is empty.";
constexpr char kEmptyKey[] = "The key is empty.";
constexpr char kBadStanza[] =
    "No header can hold the name of the stanza: it has a \"]\" or a newline, or is too long.";
constexpr char kBadKey[] =
    "No line can hold the key: it starts with \"#\" or \"[\", has a \"=\", a newline or spaces "
    "at its ends, or is too long.";

}  // namespace

char const* PlainStore::reasonOf(Call const& call) const
{
    try {
        throw;
    } catch (ZInvalidParameterException_6_0 const&) {
        try {
            return findReason(call);
        } catch (ZException_6_0 const&) {
            return nullptr;
        }
    } catch (...) {
        return nullptr;
    }
}

char const* PlainStore::findReason(Call const& call) const
{
    if (call.stanza != nullptr && *call.stanza == '\0')
        return kEmptyStanza;
    if (call.key != nullptr && *call.key == '\0')
        return kEmptyKey;
    if (call.newName != nullptr && *call.newName == '\0')
        return call.key != nullptr ? kEmptyKey : kEmptyStanza;
    if (!isStanzaFile_)
        return findDialectReason(call);
    if (call.stanza != nullptr && cache().validCategory(call.stanza) == 0)
        return kBadStanza;
    if (call.key != nullptr && cache().validKey(call.stanza, call.key) == 0)
        return kBadKey;
    if (call.newName != nullptr && call.key != nullptr) {
        if (cache().validKey(call.stanza, call.newName) == 0)
            return kBadKey;
        if (exists(call.stanza, call.newName) != 0)
            return "The stanza has a key of the new name.";
        return "A line of the key would be too long, or the new name is reserved.";
    }
    if (call.newName != nullptr) {
        if (cache().validCategory(call.newName) == 0)
            return kBadStanza;
        return exists(call.newName) != 0 ? "The file has a stanza of the new name."
                                         : "The new name is reserved.";
    }
    if (call.stanza == nullptr && !call.hasComment)
        return *knownName() == '\0' ? "The store has no file; name a file." : nullptr;
    if (call.hasComment)
        return call.key != nullptr && isObfuscated(call.stanza, call.key) != 0
                   ? "The key has obfuscated values, and so no line for a comment."
                   : "A line of the comment is too long.";
    if (call.hasSpelling)
        return "The spelling does not read back as one value of the line.";
    for (int i = 0; i < call.valueCount && call.kind == Call::plain; ++i) {
        if (call.values[i] == nullptr || *call.values[i] == '\0') {
            if (call.valueCount > 1)
                return "One of several values is empty.";
        } else if (cache().validValue(call.key, call.values[i]) == 0) {
            return "No line can hold the value: it has a newline, or is too long.";
        }
    }
    if (call.kind == Call::plain && isObfuscated(call.stanza, call.key) != 0)
        return "The key has obfuscated values.";
    if (call.kind == Call::obfuscated && exists(call.stanza, call.key) != 0 &&
        isObfuscated(call.stanza, call.key) == 0)
        return "The key has plain values.";
    return nullptr;
}

// The same for every dialect but "stanza". No name is empty.
char const* PlainStore::findDialectReason(Call const& call) const
{
    auto const isAmbiguous = [&] {
        return call.stanza != nullptr && exists(call.stanza) != 0 &&
               cache().validKey(call.stanza, "k") == 0;
    };
    if (call.kind == Call::obfuscated)
        return "Only stanza files have obfuscated values.";
    if (call.stanza == nullptr && !call.hasComment)
        return *knownName() == '\0' ? "The store has no file; name a file." : nullptr;
    if (isAmbiguous())
        return kSeveralStanzas;
    if (call.stanza != nullptr && exists(call.stanza) == 0 &&
        cache().validCategory(call.stanza) == 0)
        return "No header of the dialect can hold the name of the stanza.";
    if (call.key != nullptr && exists(call.stanza, call.key) == 0 &&
        cache().validKey(call.stanza, call.key) == 0)
        return "No line of the dialect can hold the key.";
    if (call.newName != nullptr)
        return (call.key != nullptr ? exists(call.stanza, call.newName) : exists(call.newName)) != 0
                   ? "The new name is in use."
                   : "No line of the dialect can hold the new name.";
    if (call.hasComment)
        return "No comment of the dialect can hold a line of the text.";
    if (call.hasSpelling)
        return "The spelling does not read back as one value of the line.";
    return call.kind == Call::plain ? "No line of the dialect can hold the value." : nullptr;
}

// ---- Threads ------------------------------------------------------------------------------------

uint64_t threadNumber()
{
    static constinit std::atomic<uint64_t> last{0};
    static constinit thread_local uint64_t number = 0;
    if (number == 0)
        number = ++last;
    return number;
}

Options& threadOptions()
{
    static constinit thread_local Options options = {ZPCache_6_0::keepComments, 0};
    return options;
}

}  // namespace zhandles
