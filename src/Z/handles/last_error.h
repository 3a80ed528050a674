// last_error: the last failure of each thread in the plain functions.
#pragma once

#include <stdint.h>

namespace zhandles {

/// The names that a call received. A failure is recorded with them unless its exception has names
/// of its own.
struct CallNames {
    char const* stanza = nullptr;  // null: none
    char const* key = nullptr;     // null: none
    char const* file = nullptr;    // null: none
    char const* reason = nullptr;  // why an argument or a line is invalid; null: not known
};

/// A failure. The strings are never null.
struct LastError {
    int code;  // 0: no call has failed
    uint32_t messageNumber;
    int error;  // an errno
    unsigned long line;
    unsigned long column;
    char const* file;
    char const* stanza;
    char const* key;
    char const* text;
};

// The reasons of failures without an exception.
inline constexpr char kBadHandle[] = "The handle is null, closed or not of this kind.";
inline constexpr char kMissingArgument[] = "A required argument is null or out of range.";
inline constexpr char kOtherThread[] = "The iterator belongs to another thread.";
inline constexpr char kNoCurrentEntry[] = "The iterator has no current entry.";
inline constexpr char kOtherIterator[] = "The iterator does not support this operation.";

/// Records the exception that is being handled as the last failure of the calling thread. Returns
/// `code`.
/// range   only in a `catch (...)` that has not caught a cancellation.
/// cost    allocates memory only for unusually long strings. They are cut if memory is exhausted.
int recordException(int code, CallNames const& names) noexcept;

/// Records a failure without an exception. Returns `code`.
/// range   `message` is a message number, `error` an errno, `line` a line of the file; 0: none.
int recordFailure(int code, char const* text, CallNames const& names = {}, uint32_t message = 0,
                  int error = 0, unsigned long line = 0) noexcept;

/// Returns the last failure of the calling thread.
/// owns    borrowed until the thread's next failure.
LastError lastError() noexcept;

}  // namespace zhandles
