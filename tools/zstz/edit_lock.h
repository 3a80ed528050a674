// edit_lock: serialises the edits of a file by several zstz processes.
#pragma once

#include <string>

#include "busy.h"

// An advisory lock (flock) on a file from before zstz reads it until zstz has stored it. The
// library locks the file too, but only during the read and during the write, so without this lock a
// second zstz could store in between and lose its change. Any process that can read the file can
// hold this lock forever; therefore the wait has a limit.
class EditLock {
public:
    /// Waits for the lock until the deadline.
    /// range   does nothing if the file cannot be opened: loading it will fail with a report.
    /// throws  Failure if another process still holds the lock.
    EditLock(std::string const& path, Deadline const& deadline);
    EditLock(EditLock const&) = delete;
    EditLock& operator=(EditLock const&) = delete;
    ~EditLock();

private:
    int fd_;
};
