#include "name_hash.h"

#include <string.h>
#include <sys/random.h>
#include <time.h>

namespace zlines {

namespace {

// The secret of the process.
struct HashKey {
    uint64_t first;
    uint64_t second;
};

HashKey drawKey()
{
    HashKey drawn;
    if (getrandom(&drawn, sizeof drawn, GRND_NONBLOCK) != static_cast<ssize_t>(sizeof drawn)) {
        // No random bytes: fall back to an address and the time.
        timespec now = {};
        clock_gettime(CLOCK_MONOTONIC, &now);
        drawn.first = reinterpret_cast<uintptr_t>(&drawn) * 0x9E3779B97F4A7C15u;
        drawn.second = static_cast<uint64_t>(now.tv_nsec) * 0xD6E8FEB86659FD93u ^
                       static_cast<uint64_t>(now.tv_sec);
    }
    return {drawn.first | 1, drawn.second | 1};
}

__extension__ using Wide = unsigned __int128;

uint64_t mix(uint64_t a, uint64_t b)
{
    Wide const product = static_cast<Wide>(a) * b;
    return static_cast<uint64_t>(product) ^ static_cast<uint64_t>(product >> 64);
}

uint64_t read8(char const* at)
{
    uint64_t word;
    memcpy(&word, at, sizeof word);
    return word;
}

uint64_t read4(char const* at)
{
    uint32_t word;
    memcpy(&word, at, sizeof word);
    return word;
}

}  // namespace

uint32_t hashOf(std::string_view text, uint32_t salt)
{
    static HashKey const key = drawKey();
    char const* at = text.data();
    size_t left = text.size();
    uint64_t state = mix(key.first ^ salt, key.second);
    for (; left > 16; left -= 16, at += 16)
        state = mix(read8(at) ^ key.first, read8(at + 8) ^ state);
    // Make two words of the last bytes, at most 16.
    uint64_t low = 0;
    uint64_t high = 0;
    if (left >= 8) {
        low = read8(at);
        high = read8(at + left - 8);
    } else if (left >= 4) {
        low = read4(at);
        high = read4(at + left - 4);
    } else if (left > 0) {
        auto const* const bytes = reinterpret_cast<unsigned char const*>(at);
        low = static_cast<uint64_t>(bytes[0]) << 16 | static_cast<uint64_t>(bytes[left / 2]) << 8 |
              bytes[left - 1];
    }
    return static_cast<uint32_t>(
        mix(low ^ key.first ^ text.size(), mix(high ^ state, key.second)) >> 32);
}

}  // namespace zlines
