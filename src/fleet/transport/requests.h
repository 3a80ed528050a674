// requests: the requests to a cluster and its replies, as plain values.
//
// Only this directory includes gRPC and the messages of the wire format; the other sources of the
// library work with these values.
#pragma once

#include <stdint.h>

#include <string>
#include <variant>
#include <vector>

namespace zfleet {

// The state of the cluster that a reply belongs to.
struct Header {
    uint64_t cluster = 0;
    uint64_t member = 0;
    int64_t revision = 0;
    uint64_t term = 0;
};

struct KeyValue {
    std::string key;
    std::string value;
    int64_t createRevision = 0;
    int64_t modRevision = 0;
    int64_t version = 0;
    int64_t lease = 0;
};

// Reads a key, or all keys from `key` up to `end`. Such a read is linearizable.
struct Range {
    std::string key;
    std::string end = {};  // the first key past the range; empty: only `key`
    int64_t limit = 0;     // keys; 0: all
    int64_t revision = 0;  // 0: the latest
    bool isKeysOnly = false;
    bool isDescending = false;      // by key
    bool isNewestFirst = false;     // by create revision
    int64_t maxCreateRevision = 0;  // of the keys; 0: any
};

struct RangeResult {
    Header header;
    std::vector<KeyValue> entries;
    bool hasMore = false;
    int64_t count = 0;  // in the whole range
};

struct Put {
    std::string key;
    std::string value;
    int64_t lease = 0;
};

// Removes a key, or all keys from `key` up to `end`.
struct Remove {
    std::string key;
    std::string end = {};
};

using Operation = std::variant<Range, Put, Remove>;

// A condition of a transaction.
struct Condition {
    enum Relation { equal, greater, less, notEqual };
    enum Target { version, createRevision, modRevision, value, lease };

    std::string key;
    Target target;
    Relation relation;
    int64_t operand;
    std::string bytes = {};  // the operand for a value
};

// Executes `success` if all conditions are true, else `failure`; all operations, or none.
struct Transaction {
    std::vector<Condition> conditions;
    std::vector<Operation> success;
    std::vector<Operation> failure;
};

struct TransactionResult {
    Header header;
    bool hasSucceeded = false;
    std::vector<RangeResult> ranges;  // the results of the Range operations that were executed
    bool wasDoubtful = false;         // an earlier attempt of the same call may have been executed
};

// A lease, as the cluster has granted or renewed it.
struct LeaseResult {
    Header header;
    int64_t id = 0;
    int64_t seconds = 0;  // from the execution of the request; 0: the lease does not exist
    int64_t sentAt = 0;   // the time of bootTime() before the attempt that got the reply
};

/// Returns the nanoseconds since the start of the machine, with the time in which it was suspended.
int64_t bootTime();

/// Returns the first key past all keys that start with `prefix`.
/// range   `prefix` has a byte other than 0xFF.
std::string endOfPrefix(std::string prefix);

}  // namespace zfleet
