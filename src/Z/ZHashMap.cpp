#include "ZHashMap.h"

#include <algorithm>
#include <memory>
#include <new>

#include "ZArrayList_p.h"
#include "ZException.h"
#include "ZHashMap_p.h"

namespace {

constexpr char kSource[] = "src/Z/ZHashMap";

// The number each raise site puts into its report. Log scanners match on it, so it belongs
// to the site and does not follow the line when the file is edited.
enum RaiseSite { raiseInMake = 74, raiseInReserve = 152, raiseInIndex = 178 };

// The number of buckets of a map. The product wraps round at 32 bits; there is always a bucket.
uint32_t bucketsFor(unsigned int capacity)
{
    uint32_t const buckets = std::max(uint32_t{capacity}, uint32_t{2}) * 3 / 2;
    return std::max(buckets, uint32_t{1});
}

auto equalTo(ZObject_6_0 const* probe)
{
    return [probe](auto const& node) { return probe->equals(*node.entry); };
}

}  // namespace

ZHashMap_6_0::Rep::Rep(uint32_t numberOfBuckets, int ownsEntries)
    : bucketCount(numberOfBuckets), owns(ownsEntries)
{
    buckets.makeZero(bucketCount, kSource, raiseInMake);
}

ZHashMap_6_0::Rep::~Rep()
{
    // Only a copy that failed still holds entries here; maps let theirs go before.
    if (owns != 0)
        forEach([](Node const& node) { delete node.entry; });
}

ZHashMap_6_0::Rep* ZHashMap_6_0::Rep::make(uint32_t numberOfBuckets, int ownsEntries)
{
    Rep* const rep = new (std::nothrow) Rep(numberOfBuckets, ownsEntries);
    if (rep == nullptr)
        ZOutOfMemoryException_6_0().throwException(kSource, raiseInMake);
    return rep;
}

void ZHashMap_6_0::Rep::reserve(uint32_t hash)
{
    if (freeNodes == 0 && nodesUsed == nodeRoom) {
        if (nodeRoom == kMostNodes)
            ZOutOfMemoryException_6_0().throwException(kSource, raiseInReserve);
        uint32_t const room = std::max(nodeRoom * 2, uint32_t{4});
        nodes.resize(room, kSource, raiseInReserve);
        nodeRoom = room;
    }
    if (markCount == 0) {
        if (count >= kLongChain && chainLength(hash) >= kLongChain) {
            uint32_t size = 4 * kLongChain;
            while (size / 4 < count)
                size *= 2;
            index(size);
        }
    } else if (count >= markCount / 2) {
        index(markCount * 2);
    }
}

void ZHashMap_6_0::Rep::append(uint32_t hash, ZObject_6_0* entry)
{
    Place place = freeNodes;
    if (place != 0)
        freeNodes = at(place).next;
    else
        place = ++nodesUsed;
    Chain& chain = buckets[bucketOf(hash)];
    at(place) = Node{entry, hash, 0, chain.last};
    (chain.last != 0 ? at(chain.last).next : chain.first) = place;
    chain.last = place;
    ++count;
    if (markCount != 0)
        mark(marks, markCount, Mark{hash, place});
}

void ZHashMap_6_0::Rep::put(Place place, uint32_t hash, ZObject_6_0* entry)
{
    std::unique_ptr<ZObject_6_0> clone(owns != 0 ? entry->clone() : nullptr);
    ZObject_6_0* const stored = owns != 0 ? clone.get() : entry;
    if (stored == nullptr)
        return;
    if (place == 0) {
        reserve(hash);
        append(hash, stored);
        clone.release();
        return;
    }
    at(place).hash = hash;
    ZObject_6_0* const old = std::exchange(at(place).entry, stored);
    clone.release();
    if (owns != 0)
        delete old;
}

void ZHashMap_6_0::Rep::remove(Place place)
{
    Node& node = at(place);
    if (markCount != 0)
        unmark(node.hash, place);
    Chain& chain = buckets[bucketOf(node.hash)];
    (node.previous != 0 ? at(node.previous).next : chain.first) = node.next;
    (node.next != 0 ? at(node.next).previous : chain.last) = node.previous;
    node.next = freeNodes;
    freeNodes = place;
    --count;
    ZObject_6_0* const entry = std::exchange(node.entry, nullptr);
    if (owns != 0)
        delete entry;
}

void ZHashMap_6_0::Rep::removeAll()
{
    if (count == 0)
        return;
    ObjectDeleter deleter;
    for (uint32_t bucket = 0; bucket < bucketCount; ++bucket) {
        for (Place place = buckets[bucket].first; place != 0; place = at(place).next) {
            ZObject_6_0* const entry = std::exchange(at(place).entry, nullptr);
            if (owns != 0)
                deleter.drop(entry);
        }
        buckets[bucket] = Chain{0, 0};
    }
    nodes.clear();
    marks.clear();
    markCount = count = nodesUsed = nodeRoom = 0;
    freeNodes = 0;
    deleter.finish();
}

void ZHashMap_6_0::Rep::copy(Rep const& source)
{
    source.forEach([this](Node const& node) { put(0, node.hash, node.entry); });
}

uint32_t ZHashMap_6_0::Rep::chainLength(uint32_t hash) const
{
    uint32_t length = 0;
    for (Place place = buckets[bucketOf(hash)].first; place != 0; place = at(place).next)
        ++length;
    return length;
}

// Lays the index anew over every node.
void ZHashMap_6_0::Rep::index(uint32_t newMarkCount)
{
    PlainBlock<Mark> table;
    table.makeZero(newMarkCount, kSource, raiseInIndex);
    for (Place place = 1; place <= nodesUsed; ++place) {
        if (at(place).entry != nullptr)
            mark(table, newMarkCount, Mark{at(place).hash, place});
    }
    marks.swap(table);
    markCount = newMarkCount;
}

void ZHashMap_6_0::Rep::mark(PlainBlock<Mark>& table, uint32_t tableSize, Mark mark) const
{
    uint32_t i = startOf(mark.hash, tableSize);
    while (table[i].place != 0)
        i = (i + 1) & (tableSize - 1);
    table[i] = mark;
}

// Frees the mark and moves those behind it up that would no longer be found across the gap.
void ZHashMap_6_0::Rep::unmark(uint32_t hash, Place place)
{
    uint32_t const wrap = markCount - 1;
    uint32_t gap = startOf(hash, markCount);
    while (marks[gap].place != place)
        gap = (gap + 1) & wrap;
    for (uint32_t i = (gap + 1) & wrap; marks[i].place != 0; i = (i + 1) & wrap) {
        uint32_t const start = startOf(marks[i].hash, markCount);
        if (((i - start) & wrap) >= ((i - gap) & wrap)) {
            marks[gap] = marks[i];
            gap = i;
        }
    }
    marks[gap] = Mark{0, 0};
}

ZAbstractMap_6_0::~ZAbstractMap_6_0() = default;

bool ZAbstractMap_6_0::isEmpty() const
{
    return size() == 0;
}

ZHashMap_6_0::ZHashMap_6_0(unsigned int capacity, int owns)
    : rep_(Rep::make(bucketsFor(capacity), owns))
{
}

ZHashMap_6_0::ZHashMap_6_0(ZHashMap_6_0 const& source) : ZAbstractMap_6_0(source)
{
    std::unique_ptr<Rep> rep(Rep::make(source.rep_->bucketCount, source.rep_->owns));
    rep->copy(*source.rep_);
    rep_ = rep.release();
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
    rep->removeAll();
}

ZObject_6_0* ZHashMap_6_0::clone() const
{
    return new ZHashMap_6_0(*this);
}

unsigned int ZHashMap_6_0::size() const
{
    return rep_->count;
}

bool ZHashMap_6_0::contains(ZObject_6_0 const* probe) const
{
    return getEntry(probe) != nullptr;
}

ZObject_6_0* ZHashMap_6_0::getEntry(ZObject_6_0 const* probe) const
{
    if (probe == nullptr)
        return nullptr;
    Rep::Place const place = rep_->find(probe->hash(), equalTo(probe));
    return place != 0 ? rep_->at(place).entry : nullptr;
}

void ZHashMap_6_0::putEntry(ZObject_6_0* entry)
{
    if (entry == nullptr)
        return;
    uint32_t const hash = entry->hash();
    rep_->put(rep_->find(hash, equalTo(entry)), hash, entry);
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
    if (Rep::Place const place = rep_->find(probe->hash(), equalTo(probe)))
        rep_->remove(place);
}

void ZHashMap_6_0::removeAll()
{
    rep_->removeAll();
}

void ZHashMap_6_0::list(ZList_6_0& target) const
{
    addAllOrNothing(target,
                    [&] { rep_->forEach([&](Rep::Node const& node) { target.add(node.entry); }); });
}

ZArrayMap_6_0::ZArrayMap_6_0(unsigned int initialCapacity, int owns)
    : ZArrayList_6_0(initialCapacity, owns)
{
}

ZArrayMap_6_0::ZArrayMap_6_0(ZArrayMap_6_0 const& source) = default;

ZArrayMap_6_0& ZArrayMap_6_0::operator=(ZArrayMap_6_0 const& source) = default;

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
    // KEPT: appends without a look for equal entries, unlike a hash map; callers fill empty maps
    // with it and expect no search. Test: ZArrayMap.KeepsEqualEntriesTwiceWhenPuttingAll
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
    return indexOf(probe);
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
