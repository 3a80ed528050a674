// raise_sites: the numbers that reports of the cache of a stanza file carry.
#pragma once

namespace zstanza {

constexpr char kSource[] = "src/Z/ZPropertiesImpl";

// Stable ids in reports; log scanners match them. See docs/failures.md.
enum RaiseSite {
    raiseInAllocate = 61,
    raiseInRead = 71,
    raiseAtLine = 72,
    raiseInWrite = 81,
    raiseInUnpack = 91,
    raiseAtRecord = 92,
    raiseInPack = 95,
};

[[noreturn]] void raiseOutOfMemory();

}  // namespace zstanza
