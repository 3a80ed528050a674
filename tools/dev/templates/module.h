// @NAME@: @PURPOSE@.
//
// Subsystem: @SUBSYSTEM@.  Stands on: ZObject.
//
// Ownership: arguments are copied.
// Threads: unsynchronised; callers serialise access to one object.
#pragma once

#include "ZObject.h"

class @NAME@_6_0 : public ZObject_6_0 {
public:
    @NAME@_6_0();
    @NAME@_6_0(@NAME@_6_0 const&) = delete;
    @NAME@_6_0& operator=(@NAME@_6_0 const&) = delete;

    // Virtual functions in slot order. The order is binary interface: append only.
    ~@NAME@_6_0() override;
};
