// GuardedRoom: a buffer at the end of writable memory, so that writing past it crashes.
#pragma once

#include <string>

#include "GuardedBytes.h"

class GuardedRoom {
public:
    explicit GuardedRoom(size_t most) : most_(most), bytes_(std::string(most, '~')) {}

    // The last `n` bytes, at most the whole buffer, filled with '~'.
    char* last(size_t n) const
    {
        char* const room = bytes_ + (most_ - n);
        std::memset(room, '~', n);
        return room;
    }

private:
    size_t most_;
    GuardedBytes bytes_;
};
