// edit_lock: keeps two zstz processes from changing a file at the same time.
#pragma once

#include <string>

// Keeps other zstz processes from changing the file between our reading and storing it. The
// library locks it against everybody, but only while it reads and while it writes. Whoever may read
// the file may hold this lock, so that waiting for it has an end.
class EditLock {
public:
    /// Waits up to five seconds for the turn.
    /// range   a file that cannot be opened gives none; that is reported when it is loaded.
    /// throws  Failure.
    explicit EditLock(std::string const& path);
    EditLock(EditLock const&) = delete;
    EditLock& operator=(EditLock const&) = delete;
    ~EditLock();

private:
    int fd_;
};
