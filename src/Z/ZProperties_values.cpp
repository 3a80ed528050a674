// Reading and changing values.
#include <ctype.h>
#include <errno.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <string_view>
#include <utility>

#include "ZArrayList.h"
#include "ZDialectData.h"
#include "ZException.h"
#include "ZPropertiesImpl_p.h"
#include "ZProperties_p.h"
#include "ZUTF8String.h"
#include "reporting/failures.h"

using namespace zproperties;
using KeptLines = ZPCategoryBasedCache_6_0::KeptLines;

namespace {

// The words for a boolean, in lower case; case is ignored.
struct BoolWord {
    char const* word;
    int value;
};
constexpr BoolWord kBoolWords[] = {{"yes", 1}, {"y", 1}, {"true", 1},  {"t", 1}, {"1", 1},
                                   {"no", 0},  {"n", 0}, {"false", 0}, {"f", 0}, {"0", 0}};

// Parses the whole string as strtoul() does with a 32-bit long: an overflow gives UINT_MAX, "-"
// negates modulo 2^32.
bool toNumber(char const* text, unsigned int& number)
{
    errno = 0;
    char* end;
    unsigned long const wide = strtoul(text, &end, 0);
    if (end == text || *end != '\0')
        return false;
    while (isspace(static_cast<unsigned char>(*text)))
        ++text;
    unsigned long const magnitude = *text == '-' ? 0 - wide : wide;
    number = errno == ERANGE || magnitude > UINT_MAX ? UINT_MAX : static_cast<unsigned int>(wide);
    return true;
}

bool equalIgnoringCase(char const* lower, char const* text)
{
    for (; *lower != '\0'; ++lower, ++text) {
        char const c = *text >= 'A' && *text <= 'Z' ? static_cast<char>(*text - 'A' + 'a') : *text;
        if (c != *lower)
            return false;
    }
    return *text == '\0';
}

// Converts to the local codeset. Throws if that fails: the empty result would overwrite the value.
template <class UTF8>
void toLocal(UTF8 const& value, ZLCString_6_0& local)
{
    local = value;
    if (local.isEmpty() && !value.isEmpty())
        ZFromUTF8Exception_6_0().throwException(kSource, raiseForConversion);
}

}  // namespace

// ---- Reading values ----------------------------------------------------------------------------

int ZProperties_6_0::exists(char const* category, char const* key) const
{
    requireNames(category, key);
    Hold const hold(*this);
    return cache_->contains(category, key);
}

int ZProperties_6_0::exists(char const* category) const
{
    requireName(category);
    Hold const hold(*this);
    return cache_->contains(category);
}

int ZProperties_6_0::isObfuscated(char const* category, char const* key) const
{
    requireNames(category, key);
    Hold const hold(*this);
    return cache_->isObfuscated(category, key);
}

int ZProperties_6_0::isObfuscated(char const* category) const
{
    requireName(category);
    Hold const hold(*this);
    return cache_->isObfuscated(category);
}

void ZProperties_6_0::Rep::requireParameters(char const* category, char const* key, int required,
                                             bool hasDefault)
{
    requireNames(category, key);
    if (required != 0 && hasDefault)
        ZInvalidParameterException_6_0().throwException(kSource, raiseForDefault);
}

void ZProperties_6_0::Rep::Found::requireValue(int required) const
{
    if (required != 0 && !value)
        ZPropertiesMissingPropertyException_6_0(file.getChars(), category, key)
            .throwException(kSource, raiseForMissing);
}

void ZProperties_6_0::Rep::getValue(Found const& found, ZAbstractMutableString_6_0& out,
                                    int required, char const* defaultValue)
{
    found.requireValue(required);
    if (!found.value) {
        if (defaultValue != nullptr)
            out.setChars(defaultValue);
        else
            out.clear();
    } else if (out.getCodesetHandle() == found.file.getCodesetHandle()) {
        out.setChars(found.value->chars);
    } else {
        out.clear();
        out.convertFromCodeSet(ZLCConstString_6_0(found.value->chars));
    }
}

unsigned int ZProperties_6_0::Rep::getIntegerValue(Found const& found, int required,
                                                   unsigned int defaultValue)
{
    found.requireValue(required);
    if (!found.value)
        return defaultValue;
    unsigned int number = 0;
    if (found.value->length > 0 && !toNumber(found.value->chars, number))
        ZPropertiesInvalidNumValueException_6_0(found.file.getChars(), found.category, found.key,
                                                found.value->chars)
            .throwException(kSource, raiseForNumber);
    return number;
}

int ZProperties_6_0::Rep::getBooleanValue(Found const& found, int required, int defaultValue)
{
    found.requireValue(required);
    if (!found.value)
        return defaultValue;
    if (found.value->length == 0)
        return 0;
    for (BoolWord const& known : kBoolWords)
        if (equalIgnoringCase(known.word, found.value->chars))
            return known.value;
    ZPropertiesInvalidBoolValueException_6_0(found.file.getChars(), found.category, found.key,
                                             found.value->chars)
        .throwException(kSource, raiseForTruth);
}

void ZProperties_6_0::getValue(char const* category, char const* key,
                               ZAbstractMutableString_6_0& out, int required,
                               char const* defaultValue) const
{
    Rep::requireParameters(category, key, required, defaultValue != nullptr);
    Hold const hold(*this);
    Rep::getValue({Rep::lastValue(*this, category, key), fileName_, category, key}, out, required,
                  defaultValue);
}

unsigned int ZProperties_6_0::getIntegerValue(char const* category, char const* key, int required,
                                              unsigned int defaultValue) const
{
    Rep::requireParameters(category, key, required, defaultValue != 0);
    Hold const hold(*this);
    return Rep::getIntegerValue({Rep::lastValue(*this, category, key), fileName_, category, key},
                                required, defaultValue);
}

int ZProperties_6_0::getBooleanValue(char const* category, char const* key, int required,
                                     int defaultValue) const
{
    Rep::requireParameters(category, key, required, defaultValue != 0);
    Hold const hold(*this);
    if (rep_->dialect != nullptr && rep_->dialect->isOption(category, key) != 0)
        return 1;
    return Rep::getBooleanValue({Rep::lastValue(*this, category, key), fileName_, category, key},
                                required, defaultValue);
}

bool ZProperties_6_0::Rep::lacksUTF8(char const* value)
{
    return *value != '\0' && ZUTF8String_6_0(ZLCConstString_6_0(value)).isEmpty();
}

bool ZProperties_6_0::Rep::hasValueWithoutUTF8(ZProperties_6_0 const& store, char const* category,
                                               char const* key)
{
    for (auto const type : {ZPCache_6_0::plainValues, ZPCache_6_0::obfuscatedValues}) {
        auto const* const values = store.cache_->get(category, key, type);
        for (unsigned i = 0; values != nullptr && i < values->size(); ++i)
            if (lacksUTF8(static_cast<ZLCString_6_0 const*>(values->get(i))->getChars()))
                return true;
    }
    return false;
}

void ZProperties_6_0::Rep::requireValidOrPresentValue(ZProperties_6_0 const& store,
                                                      char const* category, char const* key,
                                                      char const* value)
{
    if (store.rep_->canBeSet(key, value))
        return;
    if (store.rep_->dialect != nullptr && value != nullptr) {
        auto values = static_cast<ZSCFData_6_0 const&>(*store.cache_)
                          .values(category, key, ZPCache_6_0::plainValues);
        for (Text present; values.next(present);)
            if (std::string_view(present.chars, present.length) == value)
                return;
    }
    ZInvalidParameterException_6_0().throwException(kSource, raiseForNewText);
}

// KEPT: a value that is not valid in the local codeset becomes an empty string without an error, as
// in getValue() and the iterators. A program that reads all values of a file with one broken value
// would fail otherwise. Test:
// ZStanzaFileProperties.KeepsReadingAnUnconvertibleValueAsEmptyUTF8
void ZProperties_6_0::Rep::Strings::add(char const* text, ZPropertyStringType type)
{
    std::unique_ptr<ZObject_6_0> string;
    if (type == zPropUTF8Strings)
        string.reset(new ZUTF8String_6_0(ZLCConstString_6_0(text)));
    else
        string.reset(new ZLCString_6_0(text));
    list_.addNoCopy(string.get());
    (void)string.release();
}

void ZProperties_6_0::Rep::Strings::removeFirst()
{
    delete list_.get(0);
    list_.remove(0u);
}

// ZArrayList has no reserve(), but keeps its capacity when elements are removed.
void ZProperties_6_0::Rep::Strings::reserveIn(ZArrayList_6_0& target, unsigned existing) const
{
    unsigned const before = target.size();
    try {
        while (target.capacity() < existing + list_.size())
            target.addNoCopy(nullptr);
    } catch (ZOutOfMemoryException_6_0 const&) {
        while (target.size() > before)
            target.remove(target.size() - 1);
        throw;
    }
    while (target.size() > before)
        target.remove(target.size() - 1);
}

void ZProperties_6_0::Rep::Strings::moveTo(ZArrayList_6_0& target)
{
    for (unsigned i = 0; i < list_.size(); ++i)
        target.addNoCopy(list_.get(i));
    list_.removeAll();
}

void ZProperties_6_0::getValues(char const* category, char const* key, ZArrayList_6_0& out,
                                ZPropertyStringType type) const
{
    requireNames(category, key);
    if (out.ownsMembers() == 0 || (type != zPropLocalStrings && type != zPropUTF8Strings))
        ZInvalidParameterException_6_0().throwException(kSource, raiseInGetValues);
    Hold const hold(*this);
    Rep::Strings fresh;
    if (rep_->direct != nullptr) {
        auto values = rep_->direct->values(category, key, ZPCache_6_0::anyValues);
        for (Text value; values.next(value);)
            fresh.add(value.chars, type);
    } else if (auto const* list = cache_->get(category, key, ZPCache_6_0::anyValues)) {
        for (unsigned i = 0; i < list->size(); ++i)
            fresh.add(static_cast<ZLCString_6_0 const*>(list->get(i))->getChars(), type);
    }
    fresh.reserveIn(out, 0);
    out.removeAll();
    fresh.moveTo(out);
}

int ZProperties_6_0::numValues(char const* category) const
{
    requireName(category);
    Hold const hold(*this);
    if (rep_->direct != nullptr)
        return cache_->countValues(category);
    auto const* const values = cache_->get(category, ZPCache_6_0::anyValues);
    return values == nullptr ? 0 : static_cast<int>(values->size());
}

int ZProperties_6_0::numValues(char const* category, char const* key) const
{
    requireNames(category, key);
    Hold const hold(*this);
    if (rep_->direct != nullptr)
        return cache_->countValues(category, key);
    auto const* const values = cache_->get(category, key, ZPCache_6_0::anyValues);
    return values == nullptr ? 0 : static_cast<int>(values->size());
}

int ZProperties_6_0::count() const
{
    Hold const hold(*this);
    return cache_->count();
}

int ZProperties_6_0::count(char const* category) const
{
    requireName(category);
    Hold const hold(*this);
    return cache_->keyCount(category);
}

void ZProperties_6_0::list() const
{
    zreporting::CancelGuard const uncancelled;
    Hold const hold(*this);
    cache_->list(stdout);
}

ZArrayList_6_0* ZProperties_6_0::keyNames(char const* category) const
{
    requireName(category);
    Hold const hold(*this);
    return cache_->getNames(category);
}

ZArrayList_6_0* ZProperties_6_0::categoryNames() const
{
    Hold const hold(*this);
    std::unique_ptr<ZArrayList_6_0> names(new ZArrayList_6_0(16, 1));
    cache_->getNames(*names);
    return names.release();
}

// ---- Changing ----------------------------------------------------------------------------------

void ZProperties_6_0::setValue(char const* category, char const* key, char const* value)
{
    setValue(category, key, value, 0);
}

void ZProperties_6_0::setValue(char const* category, char const* key, char const* value,
                               int obfuscated)
{
    Hold const hold(*this);
    rep_->requireValidKey(category, key);
    bool const reserved =
        strcmp(category, kReservedCategory) == 0 && strcmp(key, kReservedKey) == 0;
    if (obfuscated == 0)
        Rep::requireValidOrPresentValue(*this, category, key, value);
    else if (reserved || rep_->dialect != nullptr)
        // The entry that names the companion must be in the file. Dialects have no companion.
        ZInvalidParameterException_6_0().throwException(kSource, raiseForNewText);
    auto notice = Rep::makeNotice(ZPropertyChanged_6_0::set, category, key);
    if (!isEmpty(value))
        checkAccess(category, key, obfuscated);
    cache_->addLine(category, key, value, obfuscated);
    Rep::recordChange(*this, std::move(notice));
}

void ZProperties_6_0::setValue(char const* category, char const* key, ZLCString_6_0 const& value,
                               int obfuscated)
{
    setValue(category, key, value.getChars(), obfuscated);
}

void ZProperties_6_0::setValue(char const* category, char const* key, ZUTF8String_6_0 const& value,
                               int obfuscated)
{
    ZLCString_6_0 local;
    toLocal(value, local);
    Hold const hold(*this);
    if (local.isEmpty()) {
        rep_->requireValidKey(category, key);
        if (Rep::hasValueWithoutUTF8(*this, category, key))
            ZInvalidParameterException_6_0().throwException(kSource, raiseForNewText);
    }
    setValue(category, key, local.getChars(), obfuscated);
}

void ZProperties_6_0::setValue(char const* category, char const* key,
                               ZLCConstString_6_0 const& value, int obfuscated)
{
    setValue(category, key, value.getChars(), obfuscated);
}

void ZProperties_6_0::setValue(char const* category, char const* key,
                               ZUTF8ConstString_6_0 const& value, int obfuscated)
{
    ZLCString_6_0 local;
    toLocal(value, local);
    Hold const hold(*this);
    if (local.isEmpty()) {
        rep_->requireValidKey(category, key);
        if (Rep::hasValueWithoutUTF8(*this, category, key))
            ZInvalidParameterException_6_0().throwException(kSource, raiseForNewText);
    }
    setValue(category, key, local.getChars(), obfuscated);
}

void ZProperties_6_0::setIntegerValue(char const* category, char const* key, unsigned int value)
{
    requireNames(category, key);
    Hold const hold(*this);
    checkAccess(category, key, 0);
    setValue(category, key, ZLCString_6_0(value), 0);
}

void ZProperties_6_0::setBooleanValue(char const* category, char const* key, int value)
{
    requireNames(category, key);
    Hold const hold(*this);
    checkAccess(category, key, 0);
    setValue(category, key, value != 0 ? "yes" : "no", 0);
}

void ZProperties_6_0::deleteKey(char const* category, char const* key)
{
    requireNames(category, key);
    auto notice = Rep::makeNotice(ZPropertyChanged_6_0::removed, category, key);
    Hold const hold(*this);
    rep_->requireUnambiguous(category);
    cache_->delLine(category, key);
    Rep::recordChange(*this, std::move(notice));
}

// Returns the strings to add to the cache one after another: the lines of a comment after
// checkComment(). A cache of stanza files gets them in a single string, which it splits into the
// same lines: if they were added one by one, it would insert blank lines between the lines of a
// stanza's comment.
ZArrayList_6_0* ZProperties_6_0::Rep::commentTexts(ZProperties_6_0& store, char const* comment)
{
    if (comment == nullptr)
        ZInvalidParameterException_6_0().throwException(kSource, raiseForComment);
    zstanza::CommentForm const form = KeptLines::commentForm(*store.cache_);
    std::unique_ptr<ZArrayList_6_0> lines(new ZArrayList_6_0(1, 1));
    ZLCString_6_0 joined;
    for (char const* at = comment;;) {
        char const* const end = strchrnul(at, '\n');
        std::unique_ptr<ZLCString_6_0> line(new ZLCString_6_0(at, static_cast<unsigned>(end - at)));
        store.checkComment(*line);
        // A line without "#" would be read back as a key or as the header of a stanza.
        bool const isMarked = !store.rep_->isStanzaFile || form.isMark(line->getChars()[0]);
        if (!isMarked || line->getLength() > form.maxLength)
            ZInvalidParameterException_6_0().throwException(kSource, raiseForComment);
        if (store.rep_->isStanzaFile) {
            if (at != comment)
                joined += "\n";
            joined += *line;
        } else {
            lines->addNoCopy(line.get());
            (void)line.release();
        }
        if (*end == '\0') {
            if (store.rep_->isStanzaFile)
                lines->add(&joined);
            return lines.release();
        }
        at = end + 1;
    }
}

void ZProperties_6_0::addFileComment(char const* comment)
{
    Hold const hold(*this);
    Rep::addComment(*this, comment,
                    [](ZPCache_6_0& cache, char const* line) { cache.addFileComment(line); });
}

void ZProperties_6_0::addEntryComment(char const* category, char const* key, char const* comment)
{
    Hold const hold(*this);
    rep_->requireValidKey(category, key);
    Rep::addComment(*this, comment, [&](ZPCache_6_0& cache, char const* line) {
        cache.addLineComment(category, key, line);
    });
}

void ZProperties_6_0::checkAccess(char const* category, char const* key, int obfuscated)
{
    requireNames(category, key);
    Hold const hold(*this);
    bool const hidden = cache_->isObfuscated(category, key) != 0;
    bool plain;
    if (rep_->direct != nullptr) {
        plain = rep_->direct->values(category, key, ZPCache_6_0::plainValues).count() > 0;
    } else {
        auto const* const values = cache_->get(category, key, ZPCache_6_0::plainValues);
        plain = values != nullptr && values->size() > 0;
    }
    bool const allowed = obfuscated != 0 ? hidden || !plain : plain || !hidden;
    if (!allowed)
        ZInvalidParameterException_6_0().throwException(kSource, raiseInCheckAccess);
}
