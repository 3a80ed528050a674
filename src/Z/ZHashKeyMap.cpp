#include "ZHashKeyMap.h"

#include <memory>
#include <typeinfo>
#include <utility>

#include "ZLCString.h"
#include "ZUTF8String.h"
#include "containers/hash_table.h"
#include "containers/list_rollback.h"
#include "containers/object_deleter.h"
#include "containers/slots.h"
#include "memory/rep.h"
#include "reporting/failures.h"

using zcontainers::HashTable;

namespace {

constexpr char kSource[] = "src/Z/ZHashKeyMap";

// Stable ids in reports; log scanners match them. See docs/failures.md.
enum RaiseSite {
    reportInEntry = 36,
    raiseInConstruct = 81,
    raiseInCopy = 86,
    reportInDestructor = 93
};

static_assert(sizeof(ZLCString_6_0) <= HashTable::kCellSize);
static_assert(sizeof(ZUTF8String_6_0) <= HashTable::kCellSize);

// Returns whether `obj` is exactly one of the library's strings. A clone of its clone equals its
// clone in every respect, and its functions do not change a map.
bool isString(ZObject_6_0 const& obj)
{
    return typeid(obj) == typeid(ZLCString_6_0) || typeid(obj) == typeid(ZUTF8String_6_0);
}

ZObject_6_0* placeString(void* cell, ZObject_6_0 const& obj)
{
    if (typeid(obj) == typeid(ZLCString_6_0))
        return ::new (cell) ZLCString_6_0(static_cast<ZLCString_6_0 const&>(obj));
    if (typeid(obj) == typeid(ZUTF8String_6_0))
        return ::new (cell) ZUTF8String_6_0(static_cast<ZUTF8String_6_0 const&>(obj));
    return nullptr;
}

}  // namespace

struct ZHashKeyMap_6_0::Rep : HashTable {
    using HashTable::HashTable;
    Rep(Rep const& source) : HashTable(source, placeString) {}

    // Stores a clone of `key` and one of `value`, which are strings; `value` may be null.
    void putStrings(ZObject_6_0 const& key, ZObject_6_0 const* value)
    {
        uint32_t const hash = key.hash();
        NodeIndex const index = findKey(key, hash);
        if (index == 0) {
            appendPlaced(hash, key, value, placeString);
            return;
        }
        std::unique_ptr<ZObject_6_0> storedKey(key.clone());
        std::unique_ptr<ZObject_6_0> storedValue(zcontainers::cloneOf(value));
        put(index, hash, storedKey.release(), storedValue.release());
    }
};

ZAbstractKeyMap_6_0::~ZAbstractKeyMap_6_0() = default;

bool ZAbstractKeyMap_6_0::isEmpty() const
{
    return size() == 0;
}

ZKeyEntry_6_0::ZKeyEntry_6_0(ZObject_6_0* key, ZObject_6_0* value, int owns)
    : key_(key), value_(value), owns_(owns), hashCode_(0)
{
}

ZKeyEntry_6_0::~ZKeyEntry_6_0()
{
    if (owns_ != 0) {
        zcontainers::ObjectDeleter deleter;
        deleter.destroy(key_);
        deleter.destroy(value_);
        zreporting::runInDestructor({kSource, reportInEntry}, [&] { deleter.rethrowFirst(); });
    }
}

uint32_t ZKeyEntry_6_0::hash() const
{
    hashCode_ = key_->hash();
    return hashCode_;
}

int ZKeyEntry_6_0::compare(ZObject_6_0 const& other) const
{
    auto const* const entry = dynamic_cast<ZKeyEntry_6_0 const*>(&other);
    return entry != nullptr ? key_->compare(*entry->key_) : ZObject_6_0::compare(other);
}

ZObject_6_0* ZKeyEntry_6_0::clone() const
{
    std::unique_ptr<ZKeyEntry_6_0> copy(new ZKeyEntry_6_0(nullptr, nullptr, owns_));
    copy->hashCode_ = hashCode_;
    copy->key_ = owns_ != 0 ? zcontainers::cloneOf(key_) : key_;
    copy->value_ = owns_ != 0 ? zcontainers::cloneOf(value_) : value_;
    return copy.release();
}

bool ZKeyEntry_6_0::equals(ZObject_6_0 const& other) const
{
    auto const* const entry = dynamic_cast<ZKeyEntry_6_0 const*>(&other);
    return entry != nullptr && hashCode_ == entry->hashCode_ && key_->equals(*entry->key_);
}

ZHashKeyMap_6_0::ZHashKeyMap_6_0(unsigned int capacity, int owns)
    : rep_(zmemory::makeRep<Rep>(kSource, raiseInConstruct, capacity, owns))
{
}

ZHashKeyMap_6_0::ZHashKeyMap_6_0(ZHashKeyMap_6_0 const& source)
    : ZAbstractKeyMap_6_0(source), rep_(zmemory::makeRep<Rep>(kSource, raiseInCopy, *source.rep_))
{
}

ZHashKeyMap_6_0& ZHashKeyMap_6_0::operator=(ZHashKeyMap_6_0 const& source)
{
    if (this != &source) {
        ZHashKeyMap_6_0 copy(source);
        std::swap(rep_, copy.rep_);
        copy.rep_->removeAll();
    }
    return *this;
}

ZHashKeyMap_6_0::~ZHashKeyMap_6_0()
{
    std::unique_ptr<Rep> const rep(rep_);
    zreporting::runInDestructor({kSource, reportInDestructor}, [&] { rep->removeAll(); });
}

ZObject_6_0* ZHashKeyMap_6_0::clone() const
{
    return new ZHashKeyMap_6_0(*this);
}

unsigned int ZHashKeyMap_6_0::size() const
{
    return rep_->size();
}

bool ZHashKeyMap_6_0::contains(ZObject_6_0 const* key) const
{
    if (key == nullptr)
        return false;
    return rep_->findKey(*key, key->hash()) != 0;
}

ZObject_6_0* ZHashKeyMap_6_0::getEntry(ZObject_6_0 const* key) const
{
    if (key == nullptr)
        return nullptr;
    auto const index = rep_->findKey(*key, key->hash());
    return index != 0 ? rep_->at(index).value : nullptr;
}

void ZHashKeyMap_6_0::putEntry(ZObject_6_0 const* key, ZObject_6_0 const* value)
{
    if (key == nullptr)
        return;
    if (!rep_->owns()) {
        uint32_t const hash = key->hash();
        auto const index = rep_->findKey(*key, hash);
        rep_->reserve(index, hash);
        rep_->put(index, hash, const_cast<ZObject_6_0*>(key), const_cast<ZObject_6_0*>(value));
        return;
    }
    if (isString(*key) && (value == nullptr || isString(*value))) {
        rep_->putStrings(*key, value);
        return;
    }
    // KEPT: clones key and value twice, for the probe and for the map. A class whose clone()
    // numbers the generations of an object would find another number in the map.
    // Test: ZHashKeyMap.KeepsClonesOfClones
    std::unique_ptr<ZObject_6_0> probeKey(key->clone());
    std::unique_ptr<ZObject_6_0> probeValue(zcontainers::cloneOf(value));
    if (probeKey == nullptr)
        return;
    ZKeyEntry_6_0 const probe(probeKey.release(), probeValue.release(), 1);
    std::unique_ptr<ZObject_6_0> storedKey(probe.key()->clone());
    std::unique_ptr<ZObject_6_0> storedValue(zcontainers::cloneOf(probe.value()));
    if (storedKey == nullptr)
        return;
    // Look up only now: a clone() may have changed the map.
    uint32_t const hash = probe.hash();
    auto const index = rep_->findKey(*probe.key(), hash);
    rep_->reserve(index, hash);
    rep_->put(index, hash, storedKey.release(), storedValue.release());
}

void ZHashKeyMap_6_0::putAll(ZKeyMap_6_0 const& other)
{
    ZArrayList_6_0 keys(10, 0);
    other.listKeys(keys);
    for (unsigned int i = 0; i < keys.size(); ++i)
        putEntry(keys.get(i), other.getEntry(keys.get(i)));
}

void ZHashKeyMap_6_0::removeEntry(ZObject_6_0 const* key)
{
    if (key == nullptr)
        return;
    if (auto const index = rep_->findKey(*key, key->hash()))
        rep_->remove(index);
}

void ZHashKeyMap_6_0::removeAll()
{
    rep_->removeAll();
}

void ZHashKeyMap_6_0::listKeys(ZList_6_0& target) const
{
    zcontainers::addAllOrNothing(
        target, [&] { rep_->forEach([&](HashTable::Node const& node) { target.add(node.key); }); });
}

void ZHashKeyMap_6_0::listObjects(ZList_6_0& target) const
{
    zcontainers::addAllOrNothing(target, [&] {
        rep_->forEach([&](HashTable::Node const& node) { target.add(node.value); });
    });
}
