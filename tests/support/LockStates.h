// LockStates: short names for the states of read-write locks.
#pragma once

#include <Z/ZReadWriteLock.h>

using State = ZReadWriteLockInterface_6_0::zlockstate;
constexpr State kUnset = ZReadWriteLockInterface_6_0::unset;
constexpr State kRead = ZReadWriteLockInterface_6_0::read;
constexpr State kProtect = ZReadWriteLockInterface_6_0::protect;
constexpr State kWrite = ZReadWriteLockInterface_6_0::write;
