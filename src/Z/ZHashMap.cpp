#include "ZHashMap.h"

#include <memory>
#include <typeinfo>
#include <utility>

#include "containers/hash_table.h"
#include "containers/list_rollback.h"
#include "memory/rep.h"
#include "reporting/failures.h"

using zcontainers::HashTable;

namespace {

constexpr char kSource[] = "src/Z/ZHashMap";

// Stable ids in reports; log scanners match them. See docs/failures.md.
enum RaiseSite { raiseInConstruct = 61, raiseInCopy = 66, reportInDestructor = 51 };

auto equalTo(ZObject_6_0 const* probe)
{
    return [probe](HashTable::Node const& node) { return probe->equals(*node.key); };
}

}  // namespace

struct ZHashMap_6_0::Rep : HashTable {
    using HashTable::HashTable;
};

ZAbstractMap_6_0::~ZAbstractMap_6_0() = default;

bool ZAbstractMap_6_0::isEmpty() const
{
    return size() == 0;
}

ZHashMap_6_0::ZHashMap_6_0(unsigned int capacity, int owns)
    : rep_(zmemory::makeRep<Rep>(kSource, raiseInConstruct, capacity, owns))
{
}

ZHashMap_6_0::ZHashMap_6_0(ZHashMap_6_0 const& source)
    : ZAbstractMap_6_0(source), rep_(zmemory::makeRep<Rep>(kSource, raiseInCopy, *source.rep_))
{
}

ZHashMap_6_0& ZHashMap_6_0::operator=(ZHashMap_6_0 const& source)
{
    if (this != &source) {
        ZHashMap_6_0 copy(source);
        std::swap(rep_, copy.rep_);
        copy.removeAll();
    }
    return *this;
}

ZHashMap_6_0::~ZHashMap_6_0()
{
    std::unique_ptr<Rep> const rep(rep_);
    zreporting::runInDestructor({kSource, reportInDestructor}, [&] { rep->removeAll(); });
}

ZObject_6_0* ZHashMap_6_0::clone() const
{
    return new ZHashMap_6_0(*this);
}

unsigned int ZHashMap_6_0::size() const
{
    return rep_->size();
}

bool ZHashMap_6_0::contains(ZObject_6_0 const* probe) const
{
    return getEntry(probe) != nullptr;
}

ZObject_6_0* ZHashMap_6_0::getEntry(ZObject_6_0 const* probe) const
{
    if (probe == nullptr)
        return nullptr;
    auto const index = rep_->find(probe->hash(), equalTo(probe));
    return index != 0 ? rep_->at(index).key : nullptr;
}

void ZHashMap_6_0::putEntry(ZObject_6_0* entry)
{
    if (entry == nullptr)
        return;
    std::unique_ptr<ZObject_6_0> clone(rep_->owns() ? entry->clone() : nullptr);
    if (rep_->owns() && clone == nullptr)
        return;
    // Look up only now: clone() may have changed the map.
    uint32_t const hash = entry->hash();
    auto const index = rep_->find(hash, equalTo(entry));
    rep_->reserve(index, hash);
    rep_->put(index, hash, rep_->owns() ? clone.release() : entry, nullptr);
}

void ZHashMap_6_0::putAll(ZMap_6_0& other)
{
    ZArrayList_6_0 entries(10, 0);
    other.list(entries);
    for (unsigned int i = 0; i < entries.size(); ++i)
        putEntry(entries.get(i));
}

void ZHashMap_6_0::removeEntry(ZObject_6_0* probe)
{
    if (probe == nullptr)
        return;
    if (auto const index = rep_->find(probe->hash(), equalTo(probe)))
        rep_->remove(index);
}

void ZHashMap_6_0::removeAll()
{
    rep_->removeAll();
}

void ZHashMap_6_0::list(ZList_6_0& target) const
{
    zcontainers::addAllOrNothing(target, [&] {
        if (typeid(target) == typeid(ZArrayList_6_0)) {
            rep_->forEach([&](HashTable::Node const& node) { target.add(node.key); });
            return;
        }
        ZArrayList_6_0 entries(10, 0);  // of one bucket
        rep_->forEachBucket([&](HashTable::NodeIndex first) {
            entries.removeAll();
            for (HashTable::NodeIndex index = first; index != 0; index = rep_->at(index).next)
                entries.add(rep_->at(index).key);
            target.addList(entries);
        });
    });
}

ZArrayMap_6_0::ZArrayMap_6_0(unsigned int initialCapacity, int owns)
    : ZArrayList_6_0(initialCapacity, owns)
{
}

ZArrayMap_6_0::ZArrayMap_6_0(ZArrayMap_6_0 const& source) = default;

ZArrayMap_6_0& ZArrayMap_6_0::operator=(ZArrayMap_6_0 const& source)
{
    if (typeid(*this) == typeid(ZArrayMap_6_0))
        assign(source);
    else
        ZArrayList_6_0::operator=(source);
    return *this;
}

ZArrayMap_6_0::~ZArrayMap_6_0() = default;

ZObject_6_0* ZArrayMap_6_0::clone() const
{
    return new ZArrayMap_6_0(*this);
}

bool ZArrayMap_6_0::isEmpty() const
{
    return size() == 0;
}

unsigned int ZArrayMap_6_0::size() const
{
    return ZArrayList_6_0::size();
}

bool ZArrayMap_6_0::contains(ZObject_6_0 const* probe) const
{
    return getIndex(probe) >= 0;
}

void ZArrayMap_6_0::removeAll()
{
    ZArrayList_6_0::removeAll();
}

ZObject_6_0* ZArrayMap_6_0::getEntry(ZObject_6_0 const* probe) const
{
    int const index = getIndex(probe);
    return index >= 0 ? get(static_cast<unsigned int>(index)) : nullptr;
}

void ZArrayMap_6_0::putEntry(ZObject_6_0* entry)
{
    int const index = getIndex(entry);
    if (index < 0)
        add(entry);
    else
        set(static_cast<unsigned int>(index), entry);
}

void ZArrayMap_6_0::putAll(ZMap_6_0& other)
{
    // KEPT: appends without checking for equal entries, unlike a hash map. A check would change
    // size() and list() after putAll(), and make filling a map quadratic.
    // Test: ZArrayMap.KeepsEqualEntriesTwiceWhenPuttingAll
    other.list(*this);
}

void ZArrayMap_6_0::removeEntry(ZObject_6_0* probe)
{
    int const index = getIndex(probe);
    if (index >= 0)
        remove(static_cast<unsigned int>(index));
}

void ZArrayMap_6_0::list(ZList_6_0& target) const
{
    target.addList(*this);
}

int ZArrayMap_6_0::getIndex(ZObject_6_0 const* probe) const
{
    if (probe == nullptr || typeid(*this) == typeid(ZArrayMap_6_0))
        return ZArrayList_6_0::indexOf(probe);
    for (unsigned int i = 0; i < size(); ++i) {
        ZObject_6_0 const* const entry = get(i);
        if (entry != nullptr && probe->equals(*entry))
            return static_cast<int>(i);
    }
    return -1;
}

ZMapIterator_6_0::ZMapIterator_6_0(ZMap_6_0 const& map)
{
    std::unique_ptr<ZArrayList_6_0> snapshot(new ZArrayList_6_0(map.size(), 0));
    map.list(*snapshot);
    iterator_ = new ZListIterator_6_0(*snapshot);
    snapshot_ = snapshot.release();
}

ZMapIterator_6_0::ZMapIterator_6_0(ZMapIterator_6_0 const& source) : ZAbstractIterator_6_0(source)
{
    std::unique_ptr<ZArrayList_6_0> snapshot(new ZArrayList_6_0(*source.snapshot_));
    std::unique_ptr<ZListIterator_6_0> iterator(new ZListIterator_6_0(*snapshot));
    while (iterator->indexOf() != source.iterator_->indexOf())
        iterator->getNext();
    iterator_ = iterator.release();
    snapshot_ = snapshot.release();
}

ZMapIterator_6_0::~ZMapIterator_6_0()
{
    delete iterator_;
    delete snapshot_;
}

ZObject_6_0* ZMapIterator_6_0::clone() const
{
    return new ZMapIterator_6_0(*this);
}

bool ZMapIterator_6_0::hasMore()
{
    return iterator_->hasMore();
}

ZObject_6_0* ZMapIterator_6_0::getNext()
{
    return iterator_->getNext();
}

void ZMapIterator_6_0::reset()
{
    iterator_->reset();
}

ZArrayMapIterator_6_0::ZArrayMapIterator_6_0(ZArrayMap_6_0& map) : ZListIterator_6_0(map)
{
}

ZArrayMapIterator_6_0::~ZArrayMapIterator_6_0() = default;

ZObject_6_0* ZArrayMapIterator_6_0::clone() const
{
    return new ZArrayMapIterator_6_0(*this);
}
