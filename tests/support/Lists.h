// Lists: fixtures and helpers of the tests of ZArrayList.
#pragma once

#include <Z/ZArrayList.h>

#include "Containers.h"

inline void fill(ZArrayList_6_0& list, Numbers const& numbers)
{
    for (int number : numbers)
        list.addNoCopy(number < 0 ? nullptr : new CountedObject(number));
}

// An owning list of objects with these numbers; -1 stands for a null.
struct OwningList : ZArrayList_6_0 {
    explicit OwningList(Numbers const& numbers) : ZArrayList_6_0(1, kOwns) { fill(*this, numbers); }
};

class ZArrayList : public CountingTest {};

class ZListIterator : public ZArrayList {};
class ZArrayListSort : public ZArrayList {};
