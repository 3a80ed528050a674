#include "ZStanzaFileProperties.h"

#include <string.h>

#include <memory>
#include <new>
#include <string_view>
#include <unordered_set>
#include <utility>

#include "ZArrayList.h"
#include "ZException.h"
#include "ZPropertiesImpl_p.h"
#include "ZProperties_p.h"
#include "ZStanzaFileProperties_p.h"
#include "ZUTF8String.h"
#include "lines/name_hash.h"
#include "memory/out_of_memory.h"

using KeptLines = ZPCategoryBasedCache_6_0::KeptLines;

namespace {

constexpr char kSource[] = "src/Z/ZStanzaFileProperties";

// Stable ids in reports; log scanners match them. See docs/failures.md.
enum RaiseSite {
    raiseInConstructor = 45,
    raiseForName = 55,
    raiseForNewText = 65,
    raiseForConversion = 75,
    raiseInAddValue = 110,
    raiseInAddValues = 140,
    raiseInGetItems = 260
};

bool isEmpty(char const* text)
{
    return text == nullptr || *text == '\0';
}

void requireName(char const* stanza)
{
    if (isEmpty(stanza))
        ZInvalidParameterException_6_0().throwException(kSource, raiseForName);
}

// Returns `string` in the local codeset, converted into `local` if necessary. Throws if that fails:
// the empty result would overwrite the value.
char const* toLocal(ZAbstractString_6_0 const& string, ZLCString_6_0& local)
{
    if (string.getCodesetHandle() == local.getCodesetHandle())
        return string.getChars();
    local = ZUTF8ConstString_6_0(string.getChars());
    if (local.isEmpty() && !string.isEmpty())
        ZFromUTF8Exception_6_0().throwException(kSource, raiseForConversion);
    return local.getChars();
}

// Decides by the class, because in a UTF-8 locale both kinds of strings have the same codeset.
bool isUTF8(ZAbstractString_6_0 const& string)
{
    return dynamic_cast<ZUTF8String_6_0 const*>(&string) != nullptr ||
           dynamic_cast<ZUTF8ConstString_6_0 const*>(&string) != nullptr;
}

char const* textAt(ZArrayList_6_0 const& values, unsigned index)
{
    return static_cast<ZLCString_6_0 const*>(values.get(index))->getChars();
}

ZPCache_6_0* newCache()
{
    auto* const cache = new (std::nothrow) ZSCFData_6_0;
    if (cache == nullptr)
        ZOutOfMemoryException_6_0().throwException(kSource, raiseInConstructor);
    return cache;
}

// A set of borrowed strings.
class StringSet {
public:
    // Returns whether the string was inserted, because the set did not contain it.
    bool insert(char const* text)
    {
        return zmemory::translateBadAlloc(kSource, raiseInAddValues,
                                          [&] { return strings_.insert(text).second; });
    }

private:
    std::unordered_set<std::string_view, zlines::NameHash> strings_;
};

// Copies `values` in the local codeset to `strings`, after `check(text)` of each. Returns whether
// one of them is an empty UTF-8 string.
template <class Strings, class Check>
bool copyNewValues(ZArrayList_6_0 const& values, Strings& strings, Check check)
{
    bool hasEmptyUTF8 = false;
    for (unsigned i = 0; i < values.size(); ++i) {
        auto const* const string = dynamic_cast<ZAbstractString_6_0 const*>(values.get(i));
        if (string == nullptr)
            ZInvalidParameterException_6_0().throwException(kSource, raiseInAddValues);
        ZLCString_6_0 converted;
        char const* const text = toLocal(*string, converted);
        check(text);
        strings.add(text, zPropLocalStrings);
        hasEmptyUTF8 = hasEmptyUTF8 || (*text == '\0' && isUTF8(*string));
    }
    return hasEmptyUTF8;
}

// Removes strings that equal an existing value or an earlier string. An empty value stays if
// `keepsEmpty`: it resets the values before it.
template <class Strings>
void removeDuplicates(ZArrayList_6_0 const& existing, Strings& strings, bool keepsEmpty)
{
    // The usual case, a single string, is compared with each value and needs no set.
    if (strings.count() == 1) {
        bool exists = false;
        for (unsigned i = 0; i < existing.size() && !exists; ++i)
            exists = strcmp(strings.text(0), textAt(existing, i)) == 0;
        strings.removeIf([exists, keepsEmpty](char const* text) {
            return exists && !(keepsEmpty && *text == '\0');
        });
        return;
    }
    StringSet known;
    for (unsigned i = 0; i < existing.size(); ++i)
        known.insert(textAt(existing, i));
    strings.removeIf([&known, keepsEmpty](char const* text) {
        return !(keepsEmpty && *text == '\0') && !known.insert(text);
    });
}

}  // namespace

ZStanzaFileProperties_6_0::ZStanzaFileProperties_6_0(int keepComments) : ZProperties_6_0(newCache())
{
    getFactory();
    if (keepComments != 0)
        setAttributes(ZPCache_6_0::keepComments, nullptr);
}

ZStanzaFileProperties_6_0::ZStanzaFileProperties_6_0(char const* path, int keepComments)
    : ZStanzaFileProperties_6_0(keepComments)
{
    load(path);
}

ZStanzaFileProperties_6_0::ZStanzaFileProperties_6_0(ZStanzaFileProperties_6_0 const& other) =
    default;

ZStanzaFileProperties_6_0::~ZStanzaFileProperties_6_0() = default;

void ZStanzaFileProperties_6_0::addEntryComment(char const* stanza, char const* key,
                                                char const* comment)
{
    ZProperties_6_0::addEntryComment(stanza, key, comment);
}

void ZStanzaFileProperties_6_0::checkComment(ZLCString_6_0& comment)
{
    zstanza::CommentForm const form = KeptLines::commentForm(cache());
    if (!form.isMark(comment.getChars()[0]))
        comment.prepend(form.marks.front() == '#' ? "#" : ";");
}

void ZStanzaFileProperties_6_0::addValue(char const* stanza, char const* key, char const* value,
                                         int obfuscated)
{
    Hold const hold(*this);
    if (value == nullptr || (*value == '\0' && rep_->dialect == nullptr))
        ZInvalidParameterException_6_0().throwException(kSource, raiseInAddValue);
    ZArrayList_6_0 values(1, 0);
    ZLCConstString_6_0 const text(value);
    values.addNoCopy(&text);
    addValues(stanza, key, values, obfuscated);
}

void ZStanzaFileProperties_6_0::addValue(char const* stanza, char const* key,
                                         ZLCString_6_0 const& value, int obfuscated)
{
    addValue(stanza, key, value.getChars(), obfuscated);
}

void ZStanzaFileProperties_6_0::addValue(char const* stanza, char const* key,
                                         ZUTF8String_6_0 const& value, int obfuscated)
{
    ZLCString_6_0 local;
    addValue(stanza, key, toLocal(value, local), obfuscated);
}

void ZStanzaFileProperties_6_0::addValue(char const* stanza, char const* key,
                                         ZLCConstString_6_0 const& value, int obfuscated)
{
    addValue(stanza, key, value.getChars(), obfuscated);
}

void ZStanzaFileProperties_6_0::addValue(char const* stanza, char const* key,
                                         ZUTF8ConstString_6_0 const& value, int obfuscated)
{
    ZLCString_6_0 local;
    addValue(stanza, key, toLocal(value, local), obfuscated);
}

void ZStanzaFileProperties_6_0::addValues(char const* stanza, char const* key,
                                          ZArrayList_6_0 const& values, int obfuscated)
{
    Hold const hold(*this);
    if (!rep_->isValidKey(stanza, key) || (obfuscated != 0 && rep_->dialect != nullptr))
        ZInvalidParameterException_6_0().throwException(kSource, raiseForNewText);
    // Check every new string before the first is stored.
    Rep::Strings strings;
    bool const hasEmptyUTF8 = copyNewValues(values, strings, [&](char const* value) {
        if (obfuscated == 0 && !rep_->isValidValue(key, value))
            ZInvalidParameterException_6_0().throwException(kSource, raiseForNewText);
    });
    // The caller may have read the empty UTF-8 string in place of a value without a UTF-8 form.
    if (hasEmptyUTF8 && Rep::hasValueWithoutUTF8(*this, stanza, key))
        ZInvalidParameterException_6_0().throwException(kSource, raiseForNewText);
    checkAccess(stanza, key, obfuscated);
    if (strings.count() == 0)
        return;
    if (strings.count() == 1 && cache().countValues(stanza, key) == 0) {
        setValue(stanza, key, strings.text(0), obfuscated);
        return;
    }

    // Create a new stanza or key without lines first, so that it can be removed without a trace if
    // memory is exhausted.
    bool isChanged = true;
    zproperties::changeKey(cache(), stanza, key, [&] {
        cache().add(stanza, key, obfuscated);
        ZArrayList_6_0& existing = *cache().get(
            stanza, key,
            obfuscated != 0 ? ZPCache_6_0::obfuscatedValues : ZPCache_6_0::plainValues);
        removeDuplicates(existing, strings, rep_->dialect != nullptr);
        isChanged = strings.count() != 0;
        if (!isChanged)
            return;
        strings.reserveIn(existing, existing.size());
        if (existing.size() == 0) {
            // An empty string leaves the key without values. The following string becomes the first
            // value, and observers receive a notice of each of the two changes.
            std::unique_ptr<Notice> emptied;
            if (*strings.text(0) == '\0' && strings.count() > 1 && rep_->dialect == nullptr) {
                emptied = Rep::makeNotice(ZPropertyChanged_6_0::set, stanza, key);
                strings.removeFirst();
            }
            setValue(stanza, key, strings.text(0), obfuscated);
            // setValue() created the lines; nothing after it throws.
            strings.removeFirst();
            if (emptied != nullptr)
                Rep::recordChange(*this, std::move(emptied));
        }
        strings.moveTo(existing);
    });
    if (isChanged)
        Rep::setModified(*this, 1);
}

void ZStanzaFileProperties_6_0::getStanza(char const* stanza, ZPropertiesKVList_6_0& out)
{
    requireName(stanza);
    Hold const hold(*this);
    ZPropertiesKVList_6_0 items(out.stringType());
    // KEPT: the item of a key with several values has the first value, although getValue() returns
    // the last. A program that takes the first value for the preferred one, such as the first of
    // several addresses, would use the last.
    // Test: ZStanzaFileProperties.KeepsTheFirstValueInAStanzaList
    ZStanzaIterator_6_0 iterator(*this, stanza);
    while (iterator.hasMore()) {
        iterator.nextEntry();
        items.addItem(ZLCConstString_6_0(iterator.entryName()),
                      ZLCConstString_6_0(iterator.entryValue(0)));
    }
    out = items;
}

void ZStanzaFileProperties_6_0::addStanza(char const* stanza)
{
    Hold const hold(*this);
    if (!rep_->isValidCategory(stanza))
        ZInvalidParameterException_6_0().throwException(kSource, raiseForNewText);
    auto notice = Rep::makeNotice(ZPropertyChanged_6_0::added, stanza, nullptr);
    cache().addLine(stanza, nullptr, 0);
    Rep::recordChange(*this, std::move(notice));
}

void ZStanzaFileProperties_6_0::deleteStanza(char const* stanza)
{
    requireName(stanza);
    auto notice = Rep::makeNotice(ZPropertyChanged_6_0::removed, stanza, nullptr);
    Hold const hold(*this);
    rep_->requireUnambiguous(stanza);
    cache().delLine(stanza);
    Rep::recordChange(*this, std::move(notice));
}

void ZStanzaFileProperties_6_0::addStanzaComment(char const* stanza, char const* comment)
{
    requireName(stanza);
    Hold const hold(*this);
    rep_->requireUnambiguous(stanza);
    Rep::addComment(*this, comment, [stanza](ZPCache_6_0& cache, char const* line) {
        cache.addLineComment(stanza, line);
    });
}

ZArrayList_6_0* ZStanzaFileProperties_6_0::getKeys(char const* stanza) const
{
    return keyNames(stanza);
}

void ZStanzaFileProperties_6_0::getItems(ZStzFileItem_6_0* items, int count) const
{
    if (items == nullptr || count == 0)
        ZInvalidParameterException_6_0().throwException(kSource, raiseInGetItems);
    Hold const hold(*this);
    for (int i = 0; i < count; ++i) {
        ZStzFileItem_6_0 const& item = items[i];
        if (item.type < zStzBoolean || item.type > zStzStanza)
            return;
        if (item.result == nullptr)
            ZInvalidParameterException_6_0().throwException(kSource, raiseInGetItems);
        int const required = item.required > 0;
        auto const& fallback = item.defaultValue;
        switch (item.type) {
            case zStzBoolean:
                *static_cast<int*>(item.result) =
                    getBooleanValue(item.stanza, item.key, required, fallback.truth);
                break;
            case zStzInteger:
                *static_cast<unsigned int*>(item.result) =
                    getIntegerValue(item.stanza, item.key, required, fallback.number);
                break;
            case zStzString:
                getValue(item.stanza, item.key,
                         *static_cast<ZAbstractMutableString_6_0*>(item.result), required,
                         fallback.text);
                break;
            case zStzStrings:
            case zStzUTF8Strings:
                getValues(item.stanza, item.key, *static_cast<ZArrayList_6_0*>(item.result),
                          item.type == zStzStrings ? zPropLocalStrings : zPropUTF8Strings);
                break;
            default:
                const_cast<ZStanzaFileProperties_6_0*>(this)->getStanza(
                    item.stanza, *static_cast<ZPropertiesKVList_6_0*>(item.result));
        }
    }
}

// ---- The factory -------------------------------------------------------------------------------

ZStanzaFileProperties_6_0::ZStanzaFilePropertiesFactory::ZStanzaFilePropertiesFactory() = default;

ZStanzaFileProperties_6_0::ZStanzaFilePropertiesFactory::~ZStanzaFilePropertiesFactory() = default;

ZProperties_6_0* ZStanzaFileProperties_6_0::ZStanzaFilePropertiesFactory::makePropertiesInstance()
{
    return new ZStanzaFileProperties_6_0(1);
}

ZStanzaFileProperties_6_0::ZStanzaFilePropertiesFactory* ZStanzaFileProperties_6_0::factory_ =
    nullptr;

void ZStanzaFileProperties_6_0::init()
{
    [[maybe_unused]] static ZStanzaFilePropertiesFactory* const factory = factory_ =
        new ZStanzaFilePropertiesFactory;
}

ZStanzaFileProperties_6_0::ZStanzaFilePropertiesFactory* ZStanzaFileProperties_6_0::getFactory()
{
    init();
    return factory_;
}

// ---- Iterators ---------------------------------------------------------------------------------

ZStanzaIterator_6_0::ZStanzaIterator_6_0(ZStanzaFileProperties_6_0& store, char const* stanza)
    : ZPropertiesIterator_6_0(store, stanza)
{
}

ZStanzaIterator_6_0::~ZStanzaIterator_6_0() = default;

ZStanzaValueIterator_6_0::ZStanzaValueIterator_6_0(ZStanzaFileProperties_6_0& store,
                                                   char const* stanza, char const* key,
                                                   ZPropertyStringType type,
                                                   ZPropIter_valtype valtype)
    : ZAbstractPropertyValuesIterator_6_0(store, stanza, key, type, valtype)
{
}

ZStanzaValueIterator_6_0::~ZStanzaValueIterator_6_0() = default;
