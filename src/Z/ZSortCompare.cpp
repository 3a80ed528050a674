#include "ZSortCompare.h"

#include <atomic>

namespace {

// Initialised by the compiler, so that installing it can neither fail nor leak.
constinit ZDefaultSortCompare_6_0 const shared;

}  // namespace

constinit ZDefaultSortCompare_6_0 const* ZSortCompare_6_0::dsc_ = nullptr;

ZSortCompare_6_0 const& ZSortCompare_6_0::defaultSortCompare()
{
    std::atomic_ref<ZDefaultSortCompare_6_0 const*> const current(dsc_);
    if (current.load(std::memory_order_acquire) == nullptr)
        init();  // two threads may store the same address
    return *current.load(std::memory_order_acquire);
}

void ZSortCompare_6_0::init()
{
    std::atomic_ref<ZDefaultSortCompare_6_0 const*>(dsc_).store(&shared, std::memory_order_release);
}

int ZDefaultSortCompare_6_0::sortCompare(ZObject_6_0 const* left, ZObject_6_0 const* right) const
{
    return left->compare(*right);
}
