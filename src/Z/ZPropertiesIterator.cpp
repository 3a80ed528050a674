#include "ZPropertiesIterator.h"

#include <stdlib.h>

#include "ZArrayList.h"
#include "ZException.h"
#include "ZPropertiesImpl_p.h"
#include "ZProperties_p.h"
#include "ZUTF8String.h"

namespace {

constexpr char kSource[] = "src/Z/ZPropertiesIterator";

// Stable ids in reports; log scanners match them. See docs/failures.md.
enum RaiseSite {
    raiseInConstructor = 45,
    raiseInNextEntry = 70,
    raiseForEntry = 80,
    raiseInEntryValue = 95,
    raiseInValuesConstructor = 150,
    raiseInNextValue = 185,
    raiseForValue = 195,
    raiseForNewText = 230,
    raiseForConversion = 240
};

// Keys are prefetched this number of steps ahead, and their records twice the number.
constexpr int kAhead = 6;
constexpr int kLargeCategory = 1000;  // keys

using Cache = ZPCategoryBasedCache_6_0;
using Text = Cache::Text;

// Returns the record of the key at `place` if it has at most one value, which is plain; else null.
zcache::Key const* simpleKey(Cache const& direct, uint32_t place)
{
    zcache::Key const* const key =
        place == 0 ? nullptr : &Cache::Visit::contentsOf(direct).key(place);
    return key == nullptr || key->hasExtra ? nullptr : key;
}

char const* textAt(ZArrayList_6_0 const& values, int index)
{
    return static_cast<ZLCString_6_0 const*>(values.get(static_cast<unsigned>(index)))->getChars();
}

int sizeOf(ZArrayList_6_0 const* values)
{
    return values == nullptr ? 0 : static_cast<int>(values->size());
}

}  // namespace

// ---- Keys --------------------------------------------------------------------------------------

ZPropertiesIterator_6_0::ZPropertiesIterator_6_0(ZProperties_6_0& store, char const* category,
                                                 bool walks)
    : category_(category),
      store_(store),
      hold_(store),
      keys_(nullptr),
      names_(nullptr),
      count_(0),
      position_(-1),
      current_(other_.getChars()),
      changes_(0),
      generation_(ZProperties_6_0::Rep::generation(store)),
      placesHold_(false),
      isPlaceKnown_(false),
      place_(0),
      valueToCome_(0),
      valuesGiven_(-1)
{
    if (!walks)
        return;
    if (category == nullptr)
        ZInvalidParameterException_6_0().throwException(kSource, raiseInConstructor);
    ZPCategoryBasedCache_6_0 const* const direct = store.rep_->direct;
    if (direct != nullptr && *category != '\0') {
        keys_ = direct->listKeys(category, count_);
        changes_ = direct->changes();
        placesHold_ = true;
    } else {
        names_ = store.keyNames(category);
        count_ = sizeOf(names_);
    }
}

ZPropertiesIterator_6_0::ZPropertiesIterator_6_0(ZProperties_6_0& store, char const* category)
    : ZPropertiesIterator_6_0(store, category, true)
{
}

ZPropertiesIterator_6_0::ZPropertiesIterator_6_0(ZProperties_6_0& store)
    : ZPropertiesIterator_6_0(store, nullptr, false)
{
}

ZPropertiesIterator_6_0::~ZPropertiesIterator_6_0() noexcept(false)
{
    free(keys_);
    delete names_;
}

int ZPropertiesIterator_6_0::hasMore() const
{
    return position_ + 1 < count_;
}

char const* ZPropertiesIterator_6_0::nameAt(int index) const
{
    return keys_ != nullptr ? keys_[index].name : textAt(*names_, index);
}

void ZPropertiesIterator_6_0::nextEntry()
{
    if (!hasMore())
        ZPropertiesIteratorException_6_0(store_.fileName_.getChars())
            .throwException(kSource, raiseInNextEntry);
    getValues(nameAt(position_ + 1));
    ++position_;
    Cache const* const direct = store_.rep_->direct;
    if (count_ < kLargeCategory || count_ - position_ <= 2 * kAhead || keys_ == nullptr ||
        direct == nullptr || !placesHold_ || changes_ != direct->changes() ||
        generation_ != ZProperties_6_0::Rep::generation(store_))
        return;
    // The keys of a large category are far apart, and a caller waits for memory.
    zcache::Contents const& contents = Cache::Visit::contentsOf(*direct);
    __builtin_prefetch(&contents.key(keys_[position_ + 2 * kAhead].place));
    __builtin_prefetch(contents.text(contents.key(keys_[position_ + kAhead].place)).data());
}

void ZPropertiesIterator_6_0::getValues(char const* name)
{
    // nextEntry() passes the very pointer of the next name; its slot is then known without a
    // lookup.
    bool const isStep = hasMore() && name == nameAt(position_ + 1);
    if (!isStep)
        other_ = name;
    current_ = isStep ? name : other_.getChars();
    isPlaceKnown_ = isStep && keys_ != nullptr && placesHold_;
    place_ = isPlaceKnown_ ? keys_[position_ + 1].place : 0;
    valuesGiven_ = -1;
}

void ZPropertiesIterator_6_0::needEntry() const
{
    if (position_ < 0)
        ZPropertiesIteratorException_6_0(store_.fileName_.getChars())
            .throwException(kSource, raiseForEntry);
}

// Returns the slot of the current key in a cache with direct access. If the iterating thread has
// changed the cache, all known slots are invalid and the key is looked up by its name.
uint32_t ZPropertiesIterator_6_0::currentPlace() const
{
    ZPCategoryBasedCache_6_0 const& direct = *store_.rep_->direct;
    unsigned long const generation = ZProperties_6_0::Rep::generation(store_);
    if (changes_ != direct.changes() || generation_ != generation) {
        changes_ = direct.changes();
        generation_ = generation;
        placesHold_ = false;
        isPlaceKnown_ = false;
        valuesGiven_ = -1;
    }
    if (!isPlaceKnown_) {
        place_ = direct.placeOf(category_.getChars(), current_);
        isPlaceKnown_ = true;
    }
    return place_;
}

char const* ZPropertiesIterator_6_0::entryName() const
{
    needEntry();
    return nameAt(position_);
}

// Looks up the values at each call, because the iterating thread may have changed them. If it has
// not, the search continues where the previous call stopped.
char const* ZPropertiesIterator_6_0::entryValue(int index) const
{
    needEntry();
    ZPCategoryBasedCache_6_0 const* const direct = store_.rep_->direct;
    if (direct != nullptr) {
        uint32_t const place = currentPlace();
        if (zcache::Key const* const key = simpleKey(*direct, place)) {
            if (key->value == 0)
                return nullptr;
            if (index == 0)
                return Cache::Visit::contentsOf(*direct).text(*key).data();
        }
        auto values = direct->values(place, ZPCache_6_0::anyValues);
        if (values.count() <= 0)
            return nullptr;
        Text value;
        if (index == values.count() - 1 && values.last(value))
            return value.chars;
        if (valuesGiven_ >= 0 && valuesGiven_ <= index)
            values.resume({valueToCome_, valuesGiven_});
        if (index >= 0 && values.skipTo(index)) {
            valueToCome_ = values.place().next;
            valuesGiven_ = values.place().given;
            if (values.next(value))
                return value.chars;
        }
    } else {
        auto const* const values =
            store_.cache_->get(category_.getChars(), current_, ZPCache_6_0::anyValues);
        if (sizeOf(values) == 0)
            return nullptr;
        if (index >= 0 && index < sizeOf(values))
            return textAt(*values, index);
    }
    ZInvalidParameterException_6_0().throwException(kSource, raiseInEntryValue);
}

int ZPropertiesIterator_6_0::keyCount() const
{
    return count_;
}

int ZPropertiesIterator_6_0::valueCount() const
{
    if (*current_ == '\0')
        needEntry();
    if (category_.isEmpty())
        return store_.cache_->countValues(current_);
    ZPCategoryBasedCache_6_0 const* const direct = store_.rep_->direct;
    if (direct == nullptr)
        return sizeOf(store_.cache_->get(category_.getChars(), current_, ZPCache_6_0::anyValues));
    uint32_t const place = currentPlace();
    if (zcache::Key const* const key = simpleKey(*direct, place))
        return key->value != 0;
    int const count = direct->values(place, ZPCache_6_0::anyValues).count();
    return count < 0 ? 0 : count;
}

// ---- Values ------------------------------------------------------------------------------------

ZAbstractPropertyValuesIterator_6_0::ZAbstractPropertyValuesIterator_6_0(ZProperties_6_0& store,
                                                                         char const* category,
                                                                         char const* key,
                                                                         ZPropertyStringType type,
                                                                         ZPropIter_valtype valtype)
    : values_(nullptr),
      position_(-1),
      store_(store),
      hold_(store),
      category_(category),
      key_(key),
      type_(type),
      current_(nullptr),
      valtype_(valtype),
      generation_(0)
{
    bool const known =
        (type == zPropLocalStrings || type == zPropUTF8Strings) &&
        (valtype == zPropIterAny || valtype == zPropIterPlain || valtype == zPropIterObfuscated);
    if (category == nullptr || key == nullptr || !known)
        ZInvalidParameterException_6_0().throwException(kSource, raiseInValuesConstructor);
    if (valtype != zPropIterAny)
        store.checkAccess(category, key, valtype == zPropIterObfuscated);
    else if (store.cache_->isObfuscated(category, key) != 0)
        valtype_ = zPropIterObfuscated;
    else
        valtype_ = zPropIterPlain;
    values();
    if (type == zPropUTF8Strings)
        current_ = new ZUTF8String_6_0;
    else
        current_ = new ZLCConstString_6_0;
}

ZAbstractPropertyValuesIterator_6_0::~ZAbstractPropertyValuesIterator_6_0() noexcept(false)
{
    delete current_;
}

// Returns the cache's list. Fetches it again if it may have been destroyed: the iterating thread
// itself can remove the key or reload the file.
ZArrayList_6_0* ZAbstractPropertyValuesIterator_6_0::values() const
{
    unsigned long const now = ZProperties_6_0::Rep::generation(store_);
    if (values_ == nullptr || generation_ != now) {
        values_ = nullptr;
        values_ = store_.cache_->get(category_.getChars(), key_.getChars(),
                                     valtype_ == zPropIterObfuscated ? ZPCache_6_0::obfuscatedValues
                                                                     : ZPCache_6_0::plainValues);
        generation_ = ZProperties_6_0::Rep::generation(store_);
    }
    return values_;
}

int ZAbstractPropertyValuesIterator_6_0::hasMore() const
{
    return position_ + 1 < sizeOf(values());
}

int ZAbstractPropertyValuesIterator_6_0::isValid() const
{
    return position_ >= 0 && position_ < sizeOf(values());
}

int ZAbstractPropertyValuesIterator_6_0::valueCount() const
{
    return sizeOf(values());
}

void ZAbstractPropertyValuesIterator_6_0::step()
{
    if (!hasMore())
        ZPropertiesIteratorException_6_0(store_.fileName_.getChars())
            .throwException(kSource, raiseInNextValue);
    ZLCConstString_6_0 const value(textAt(*values_, position_ + 1));
    if (type_ == zPropUTF8Strings)
        *static_cast<ZUTF8String_6_0*>(current_) = value;
    else
        *static_cast<ZLCConstString_6_0*>(current_) = value;
    ++position_;
}

ZAbstractString_6_0 const& ZAbstractPropertyValuesIterator_6_0::nextValue()
{
    step();
    return *current_;
}

void ZAbstractPropertyValuesIterator_6_0::nextValue(char const*& value)
{
    step();
    value = current_->getChars();
}

void ZAbstractPropertyValuesIterator_6_0::needValue() const
{
    if (!isValid())
        ZPropertiesIteratorException_6_0(store_.fileName_.getChars())
            .throwException(kSource, raiseForValue);
}

// Converts `value` to the local codeset and checks that it can be stored.
void ZAbstractPropertyValuesIterator_6_0::toLocal(char const* value, ZLCString_6_0& out) const
{
    if (value == nullptr)
        ZInvalidParameterException_6_0().throwException(kSource, raiseForNewText);
    if (type_ == zPropUTF8Strings) {
        out = ZUTF8ConstString_6_0(value);
        if (out.isEmpty() && *value != '\0')
            ZFromUTF8Exception_6_0().throwException(kSource, raiseForConversion);
    } else {
        out = value;
    }
    if (valtype_ != zPropIterObfuscated &&
        !store_.rep_->isValidValue(key_.getChars(), out.getChars()))
        ZInvalidParameterException_6_0().throwException(kSource, raiseForNewText);
}

void ZAbstractPropertyValuesIterator_6_0::changeValue(char const* value)
{
    needValue();
    store_.rep_->requireUnambiguous(category_.getChars());
    ZLCString_6_0 local;
    toLocal(value, local);
    // The caller may have read the empty UTF-8 string in place of a value without a UTF-8 form.
    if (type_ == zPropUTF8Strings && local.isEmpty() &&
        ZProperties_6_0::Rep::lacksUTF8(textAt(*values(), position_)))
        ZInvalidParameterException_6_0().throwException(kSource, raiseForNewText);
    // KEPT: an empty value remains in the list, although load() drops empty values. A program that
    // clears a value while it iterates would see the later values move to lower indexes. Test:
    // ZPropertiesIterator.KeepsAnEmptyValueUntilTheFileIsReadAgain
    values()->set(static_cast<unsigned>(position_), &local);
    ZProperties_6_0::Rep::setModified(store_, 1);
}

void ZAbstractPropertyValuesIterator_6_0::addValue(char const* value)
{
    store_.rep_->requireUnambiguous(category_.getChars());
    ZLCString_6_0 local;
    toLocal(value, local);
    // The current value, or all values, may have been removed since the last step.
    int const count = valueCount();
    if (type_ == zPropUTF8Strings && local.isEmpty() &&
        ZProperties_6_0::Rep::hasValueWithoutUTF8(store_, category_.getChars(), key_.getChars()))
        ZInvalidParameterException_6_0().throwException(kSource, raiseForNewText);
    if (count > 0) {
        int const next = position_ < count ? position_ + 1 : count;
        values()->add(static_cast<unsigned>(next), &local);
        position_ = next;
    } else {
        store_.setValue(category_.getChars(), key_.getChars(), local.getChars(),
                        valtype_ == zPropIterObfuscated);
        position_ = local.isEmpty() ? -1 : 0;
    }
    ZProperties_6_0::Rep::setModified(store_, 1);
}

void ZAbstractPropertyValuesIterator_6_0::removeValue()
{
    needValue();
    store_.rep_->requireUnambiguous(category_.getChars());
    if (position_ == 0 && valtype_ == zPropIterObfuscated) {
        // KEPT: removing the first value of an obfuscated key removes all its values. A program
        // that removes a secret in this way would leave the other values in the companion file.
        // Test: ZPropertiesIterator.KeepsRemovingAllObfuscatedValuesWithTheFirst
        store_.setValue(category_.getChars(), key_.getChars(), "");
        position_ = -1;
    } else {
        values()->remove(static_cast<unsigned>(position_));
        --position_;
    }
    ZProperties_6_0::Rep::setModified(store_, 1);
}
