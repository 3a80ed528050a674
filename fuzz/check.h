// check: expectations of fuzz targets; a broken expectation ends the process.
#pragma once

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string>

inline void check(bool holds, char const* expectation)
{
    if (holds)
        return;
    fprintf(stderr, "broken: %s\n", expectation);
    abort();
}

// True while a corpus is replayed: few runs, so that expensive checks run in each.
inline bool isReplay = false;

// Reads an input front to back as the choices of a target; zeros when it has ended.
class Choices {
public:
    Choices(uint8_t const* data, size_t size) : at_(data), left_(size) {}

    bool isEmpty() const { return left_ == 0; }
    unsigned byte()
    {
        if (left_ == 0)
            return 0;
        --left_;
        return *at_++;
    }
    unsigned below(unsigned n) { return byte() % n; }

    // A string of at most `most` bytes: its length, then its bytes.
    std::string text(size_t most) { return bytes(byte() % (most + 1)); }

    std::string bytes(size_t n)
    {
        n = std::min(n, left_);
        std::string const taken(reinterpret_cast<char const*>(at_), n);
        at_ += n;
        left_ -= n;
        return taken;
    }
    std::string rest() { return bytes(left_); }

private:
    uint8_t const* at_;
    size_t left_;
};
