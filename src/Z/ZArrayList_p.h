// ZArrayList_p: adding to a list of any class, all or nothing. Not installed.
#pragma once

#include "ZArrayList.h"

/// Runs `addMembers`, which adds to `target`. When it raises, what it had added is removed again.
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
