#include "ZFleetGeneration.h"

ZFleetGeneration_6_0::ZFleetGeneration_6_0(uint64_t generation, int64_t time, char const* host,
                                           char const* user, char const* reason, int isOmitted)
    : generation_(generation),
      time_(time),
      host_(host),
      user_(user),
      reason_(reason),
      isOmitted_(isOmitted)
{
}

ZFleetGeneration_6_0::ZFleetGeneration_6_0(ZFleetGeneration_6_0 const& other) = default;
ZFleetGeneration_6_0::~ZFleetGeneration_6_0() = default;

ZObject_6_0* ZFleetGeneration_6_0::clone() const
{
    return new ZFleetGeneration_6_0(*this);
}
