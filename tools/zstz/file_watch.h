// file_watch: waits for changes of a file, whether it is replaced or written in place.
#pragma once

#include <sys/stat.h>

#include <string>
#include <vector>

// Watches the directory of a file, because a file that another program renames over the old one is
// a new file, and the directory of each symbolic link on the way to it. Compares the state of the
// file each second, too: a directory on the way may be renamed.
class FileWatch {
public:
    /// throws  Failure.
    explicit FileWatch(std::string const& path);
    FileWatch(FileWatch const&) = delete;
    FileWatch& operator=(FileWatch const&) = delete;
    ~FileWatch();

    /// Waits until the file may have changed.
    /// range   `milliseconds` -1: without a limit.
    /// codes   false after that time without an event.
    bool wait(int milliseconds);

    /// Reads the pending events. Returns whether a program wrote to the file and has not closed it.
    bool isBeingWritten();

private:
    // A link on the way to the file, or the file.
    struct Entry {
        int directory;  // number of its watch
        std::string name;

        bool operator==(Entry const& other) const = default;
    };

    bool follow();
    void addEntry(std::vector<Entry>& entries, std::string const& directory,
                  std::string const& name);
    bool readEvents();

    std::string const path_;
    int const fd_;
    std::vector<Entry> entries_;
    struct stat state_ = {};  // of the file
    bool isOpen_ = false;     // written, and not closed since
};

// A guard against writers: while it is held, no process has the file open for writing.
class WriteGuard {
public:
    enum State { held, busy, unavailable };

    /// Holds the file if no process has it open for writing. A process that opens it for writing
    /// waits for the end of the guard.
    explicit WriteGuard(std::string const& path);
    WriteGuard(WriteGuard const&) = delete;
    WriteGuard& operator=(WriteGuard const&) = delete;
    ~WriteGuard();

    /// Returns `busy` if a process has the file open for writing, and `unavailable` if the file or
    /// its file system allows no guard.
    State state() const { return state_; }

    /// Returns whether the path still leads to the guarded file.
    bool isCurrent() const;

private:
    std::string const path_;
    int const fd_;
    State state_ = unavailable;
};
