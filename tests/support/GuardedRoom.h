// GuardedRoom: room that ends where writable memory ends, so that writing one byte more is a crash.
#pragma once

#include <string>

#include "GuardedBytes.h"

class GuardedRoom {
public:
    explicit GuardedRoom(size_t most) : most_(most), bytes_(std::string(most, '~')) {}

    // The last `n` bytes, at most as many as there are, filled with '~'.
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
