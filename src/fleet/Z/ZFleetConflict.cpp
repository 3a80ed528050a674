#include "ZFleetConflict.h"

#include <errno.h>

#include "ZFleetConflict_p.h"

namespace {

constexpr char kSource[] = "src/fleet/Z/ZFleetConflict";
enum RaiseSite { raiseInAt = 1 };

}  // namespace

ZFleetConflict_6_0::ZFleetConflict_6_0(char const* stanza, char const* key)
    : stanza_(stanza), key_(key)
{
}

ZFleetConflict_6_0::ZFleetConflict_6_0(ZFleetConflict_6_0 const& other) = default;
ZFleetConflict_6_0::~ZFleetConflict_6_0() = default;

ZObject_6_0* ZFleetConflict_6_0::clone() const
{
    return new ZFleetConflict_6_0(*this);
}

ZFleetConflictException_6_0::ZFleetConflictException_6_0(char const* path, List* list)
    : ZPropertiesIOException_6_0(path, "merge()", ESTALE), list_(list)
{
}

ZFleetConflictException_6_0::ZFleetConflictException_6_0(ZFleetConflictException_6_0 const& other)
    : ZPropertiesIOException_6_0(other), list_(other.list_)
{
    ++list_->references;
}

ZFleetConflictException_6_0::~ZFleetConflictException_6_0()
{
    if (--list_->references == 0)
        delete list_;
}

ZObject_6_0* ZFleetConflictException_6_0::clone() const
{
    return new ZFleetConflictException_6_0(*this);
}

void ZFleetConflictException_6_0::throwException(char const* file, int line)
{
    addLocation(file, static_cast<unsigned long>(line));
    throw ZFleetConflictException_6_0(*this);
}

unsigned ZFleetConflictException_6_0::count() const
{
    return static_cast<unsigned>(list_->conflicts.size());
}

ZFleetConflict_6_0 const& ZFleetConflictException_6_0::at(unsigned index) const
{
    if (index >= count())
        ZInvalidParameterException_6_0().throwException(kSource, raiseInAt);
    return list_->conflicts[index];
}
