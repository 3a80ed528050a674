// ZArrayList_p: adds elements to a list of any class, all or none. Not installed.
#pragma once

#include "ZArrayList.h"

/// Runs `addMembers`, which appends to `target`. If it throws, removes the appended elements.
template <class AddMembers>
void addAllOrNothing(ZList_6_0& target, AddMembers addMembers)
{
    unsigned int const before = target.size();
    try {
        addMembers();
    } catch (...) {
        for (unsigned int i = target.size(); i > before; --i)
            target.remove(i - 1);
        throw;
    }
}
