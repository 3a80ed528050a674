#include "@NAME@.h"

@NAME@_6_0::@NAME@_6_0() = default;

@NAME@_6_0::~@NAME@_6_0() = default;
