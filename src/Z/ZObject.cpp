#include "ZObject.h"

#include <new>

#include "ZException.h"

namespace {

constexpr char kSource[] = "src/Z/ZObject";

// Stable ids in reports; log scanners match them. See docs/failures.md.
enum RaiseSite { raiseInAllocate = 65 };

void* allocate(size_t size)
{
    void* const block = ::operator new(size, std::nothrow);
    if (block == nullptr)
        ZOutOfMemoryException_6_0().throwException(kSource, raiseInAllocate);
    return block;
}

}  // namespace

ZObject_6_0::~ZObject_6_0() noexcept(false) = default;

uint32_t ZObject_6_0::hash() const
{
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(this));
}

int ZObject_6_0::compare(ZObject_6_0 const& other) const
{
    auto const mine = reinterpret_cast<uintptr_t>(this);
    auto const theirs = reinterpret_cast<uintptr_t>(&other);
    return mine == theirs ? 0 : mine < theirs ? -1 : 1;
}

ZObject_6_0* ZObject_6_0::clone() const
{
    return nullptr;
}

bool ZObject_6_0::equals(ZObject_6_0 const& other) const
{
    return compare(other) == 0;
}

void* ZObject_6_0::operator new(size_t size)
{
    return allocate(size);
}

void* ZObject_6_0::operator new[](size_t size)
{
    return allocate(size);
}

void ZObject_6_0::operator delete(void* block) noexcept
{
    ::operator delete(block);
}

void ZObject_6_0::operator delete[](void* block) noexcept
{
    ::operator delete(block);
}
