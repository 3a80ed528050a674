// metadata: the origin of a generation of a configuration, and the entries of its log.
//
// Metadata are lines "NAME VALUE". An entry of the log has the metadata, a blank line, and the text
// and the companion, compressed as one block.
#pragma once

#include <stdint.h>

#include <string>

namespace zfleet {

struct Metadata {
    uint64_t generation = 0;  // 1 is the first; 0: the text was not stored by this library
    std::string id = {};      // random; of the store operation
    int64_t base = 0;         // revision of the text that was changed
    std::string host = {};
    std::string user = {};
    int64_t time = 0;  // seconds since the epoch; only shown, never compared
    std::string reason = {};
};

/// Returns metadata with a new id, for this host, user and time.
/// throws  CallError if the system has no random numbers.
Metadata makeMetadata(uint64_t generation, int64_t base, std::string const& reason);

std::string format(Metadata const& metadata);

/// Reads metadata. Missing or damaged lines keep their defaults.
Metadata parseMetadata(std::string const& lines);

// A generation of a configuration.
struct LogEntry {
    Metadata metadata;
    std::string text = {};
    std::string hidden = {};
    bool isOmitted = false;  // the contents were too large for the log
};

/// Returns the bytes of an entry. Contents that need more than `maxSize` bytes, compressed, are
/// omitted.
std::string format(LogEntry const& entry, size_t maxSize);

/// Reads an entry. Returns false if it is damaged.
bool parseLogEntry(std::string const& bytes, LogEntry& entry);

}  // namespace zfleet
