#include "ZHashKeyMap.h"

#include <memory>

#include "ZArrayList_p.h"
#include "ZHashMap_p.h"

namespace {

// Whether a node holds the entry of `key`, whose hash is `hash`. The hash that a node keeps is the
// one that its entry remembers, so most of the others are told apart without a look at them.
auto entryOf(ZObject_6_0 const* key, uint32_t hash)
{
    return [key, hash](auto const& node) {
        if (node.hash != hash)
            return false;
        ZObject_6_0 const* const stored = static_cast<ZKeyEntry_6_0*>(node.entry)->key();
        return stored != nullptr && key->equals(*stored);
    };
}

}  // namespace

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
        ObjectDeleter deleter;
        deleter.drop(key_);
        deleter.drop(value_);
        deleter.finish();
    }
}

uint32_t ZKeyEntry_6_0::hash() const
{
    hashCode_ = key_->hash();
    return hashCode_;
}

int ZKeyEntry_6_0::compare(ZObject_6_0 const& other) const
{
    return key_->compare(*static_cast<ZKeyEntry_6_0 const&>(other).key_);
}

ZObject_6_0* ZKeyEntry_6_0::clone() const
{
    std::unique_ptr<ZKeyEntry_6_0> copy(new ZKeyEntry_6_0(nullptr, nullptr, owns_));
    copy->hashCode_ = hashCode_;
    copy->key_ = owns_ != 0 ? cloneOf(key_) : key_;
    copy->value_ = owns_ != 0 ? cloneOf(value_) : value_;
    return copy.release();
}

bool ZKeyEntry_6_0::equals(ZObject_6_0 const& other) const
{
    auto const& entry = static_cast<ZKeyEntry_6_0 const&>(other);
    return hashCode_ == entry.hashCode_ && key_->equals(*entry.key_);
}

ZHashKeyMap_6_0::ZHashKeyMap_6_0(unsigned int capacity, int owns) : map_(capacity, 1), owns_(owns)
{
}

ZHashKeyMap_6_0::ZHashKeyMap_6_0(ZHashKeyMap_6_0 const& source) = default;

ZHashKeyMap_6_0& ZHashKeyMap_6_0::operator=(ZHashKeyMap_6_0 const& source)
{
    map_ = source.map_;
    owns_ = source.owns_;
    return *this;
}

ZHashKeyMap_6_0::~ZHashKeyMap_6_0() = default;

ZObject_6_0* ZHashKeyMap_6_0::clone() const
{
    return new ZHashKeyMap_6_0(*this);
}

unsigned int ZHashKeyMap_6_0::size() const
{
    return map_.size();
}

bool ZHashKeyMap_6_0::contains(ZObject_6_0 const* key) const
{
    if (key == nullptr)
        return false;
    uint32_t const hash = key->hash();
    return map_.rep_->find(hash, entryOf(key, hash)) != 0;
}

ZObject_6_0* ZHashKeyMap_6_0::getEntry(ZObject_6_0 const* key) const
{
    if (key == nullptr)
        return nullptr;
    uint32_t const hash = key->hash();
    ZHashMap_6_0::Rep const& rep = *map_.rep_;
    auto const place = rep.find(hash, entryOf(key, hash));
    return place != 0 ? static_cast<ZKeyEntry_6_0*>(rep.at(place).entry)->value() : nullptr;
}

void ZHashKeyMap_6_0::putEntry(ZObject_6_0 const* key, ZObject_6_0 const* value)
{
    if (key == nullptr)
        return;
    // KEPT: key and value are cloned here and once more when the probe is stored; callers count on
    // what they get being clones of clones. Test: ZHashKeyMap.KeepsClonesOfClones
    std::unique_ptr<ZObject_6_0> keyCopy(owns_ != 0 ? key->clone() : nullptr);
    std::unique_ptr<ZObject_6_0> valueCopy(owns_ != 0 ? cloneOf(value) : nullptr);
    if (owns_ != 0 && keyCopy == nullptr)
        return;
    ZKeyEntry_6_0 probe(owns_ != 0 ? keyCopy.release() : const_cast<ZObject_6_0*>(key),
                        owns_ != 0 ? valueCopy.release() : const_cast<ZObject_6_0*>(value), owns_);
    uint32_t const hash = probe.hash();
    ZHashMap_6_0::Rep& rep = *map_.rep_;
    rep.put(rep.find(hash, entryOf(probe.key(), hash)), hash, &probe);
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
    uint32_t const hash = key->hash();
    ZHashMap_6_0::Rep& rep = *map_.rep_;
    if (auto const place = rep.find(hash, entryOf(key, hash)))
        rep.remove(place);
}

void ZHashKeyMap_6_0::removeAll()
{
    map_.removeAll();
}

void ZHashKeyMap_6_0::listKeys(ZList_6_0& target) const
{
    addAllOrNothing(target, [&] {
        map_.rep_->forEach([&](ZHashMap_6_0::Rep::Node const& node) {
            target.add(static_cast<ZKeyEntry_6_0*>(node.entry)->key());
        });
    });
}

void ZHashKeyMap_6_0::listObjects(ZList_6_0& target) const
{
    addAllOrNothing(target, [&] {
        map_.rep_->forEach([&](ZHashMap_6_0::Rep::Node const& node) {
            target.add(static_cast<ZKeyEntry_6_0*>(node.entry)->value());
        });
    });
}
