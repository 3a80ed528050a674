// Maps: fixtures and helpers of the tests of maps of entries.
#pragma once

#include <Z/ZArrayList.h>
#include <Z/ZHashMap.h>

#include <functional>
#include <string>

#include "Containers.h"

// The entries of a map in its order.
inline Numbers orderOf(ZMap_6_0 const& map)
{
    ZArrayList_6_0 list(1, kBorrows);
    map.list(list);
    return numbersOf(list);
}

inline void put(ZMap_6_0& map, Numbers const& numbers)
{
    for (int number : numbers) {
        CountedObject entry(number);
        map.putEntry(&entry);
    }
}

// An entry whose key is its number; the version distinguishes equal entries.
class Versioned : public CountedObject {
public:
    Versioned(int number, int version) : CountedObject(number), version_(version) {}
    Versioned(int number, int version, uint32_t hash)
        : CountedObject(number, hash), version_(version)
    {
    }
    ZObject_6_0* clone() const override { return new Versioned(*this); }
    int version() const { return version_; }

private:
    int version_;
};

inline int versionOf(ZObject_6_0 const* entry)
{
    return entry == nullptr ? -1 : static_cast<Versioned const*>(entry)->version();
}

class ZHashMap : public CountingTest {};

class ZArrayMap : public ZHashMap {};
class ZMapIterator : public ZHashMap {};
class ZArrayMapIterator : public ZHashMap {};

// Runs a test on each class of map.
inline void forEachMap(std::function<void(ZMap_6_0&, int owns)> test)
{
    for (int owns : {kBorrows, kOwns}) {
        {
            SCOPED_TRACE("ZHashMap " + std::to_string(owns));
            ZHashMap_6_0 map(10, owns);
            test(map, owns);
        }
        {
            SCOPED_TRACE("ZArrayMap " + std::to_string(owns));
            ZArrayMap_6_0 map(1, owns);
            test(map, owns);
        }
    }
}
