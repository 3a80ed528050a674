// list_rollback: adds elements to a list of any class, all or none.
#pragma once

namespace zcontainers {

/// Runs `addElements`, which appends to `target`. If it throws, removes the appended elements.
template <class List, class AddElements>
void addAllOrNothing(List& target, AddElements addElements)
{
    unsigned int const before = target.size();
    try {
        addElements();
    } catch (...) {
        for (unsigned int i = target.size(); i > before; --i)
            target.remove(i - 1);
        throw;
    }
}

}  // namespace zcontainers
