// raise_sites: the source name and the site numbers in reports about the contents of stanza files.
#pragma once

namespace zstanza {

constexpr char kSource[] = "src/Z/ZPropertiesImpl";

// Stable ids in reports; log scanners match them. See docs/failures.md.
enum RaiseSite {
    raiseInAllocate = 61,
    raiseInRead = 71,
    raiseAtLine = 72,
    raiseInWrite = 81,
    raiseInExpand = 91,
    raiseAtRecord = 92,
    raiseInCompress = 95,
};

/// Throws ZOutOfMemoryException_6_0 from raiseInAllocate.
[[noreturn]] void throwOutOfMemory();

}  // namespace zstanza
