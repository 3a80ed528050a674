// ZArrayList_p: adding to a list of any class, all or nothing. Not installed.
#pragma once

#include <cxxabi.h>

#include "ZArrayList.h"

/// Runs `addMembers`, which adds to `target`. When it raises, what it had added is removed again.
template <class AddMembers>
void addAllOrNothing(ZList_6_0& target, AddMembers addMembers)
{
    unsigned int const before = target.size();
    try {
        addMembers();
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        while (target.size() > before)
            target.remove(target.size() - 1);
        throw;
    }
}
