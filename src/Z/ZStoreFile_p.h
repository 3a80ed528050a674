// ZStoreFile: reads a configuration file with its companion, and replaces both so that whatever
// happens the old pair or the new pair is there: one routine for every kind of property file.
//
// Subsystem: properties.  Stands on: ZSharedFile; zlib for CRC-32.
//
// The file keeps its inode: it is locked, rewritten in place, cut to length and closed, and other
// programs need to know only that. What makes it safe is a journal beside it, ".<name>.zjn" in the
// directory of the real file, which holds what the new text changes, as it was and as it is to be,
// and the new companion. It is on disk before the first byte of the file changes:
//
//     store   lock, read; finish what a dead writer left; the caller renders;
//             write the journal, reserve the space, write the companion's temporary file;
//             write in place what changes; move the companion into place; remove the journal.
//     load    lock, read; when a journal is there and the file is neither the old text nor
//             somebody else's, take the pair from the journal. Nothing is written.
//
// A directory that does not allow a journal is no reason to refuse: then what changes is written
// with one call, padded with line feeds to the old length, and the file is cut. See
// docs/durability.md.
//
// Cost: what differs between the texts, from its first byte to its last, is written twice or three
// times: old and new into the journal, new in place; what only moves, once and once. On ext4 and
// XFS three waits for the disk, else four or five, and two more for a companion.
//
// Ownership: an object has the file open and locked until it is closed or destroyed.
// Threads: an object belongs to one thread; objects of one process on one file take turns.
// Failures: a call that fails is thrown as a Failure. Nothing has changed then.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <memory>
#include <string>

#include "ZSharedFile_p.h"

class ZStoreFile {
public:
    // A call that failed: on which file, which call, with which errno.
    struct Failure {
        std::string file;
        char const* call;
        int error;
    };

    // Bytes from malloc().
    class Bytes {
    public:
        Bytes() = default;
        /// throws  std::bad_alloc.
        explicit Bytes(size_t length);

        char* data() { return bytes_.get(); }
        char const* data() const { return bytes_.get(); }
        size_t length() const { return length_; }
        void setLength(size_t length) { length_ = length; }  // at most what was asked for
        void grow(size_t length);                            // keeps what is there
        char* release() { return bytes_.release(); }         // to be released with free()

    private:
        struct Free {
            void operator()(char* block) const { free(block); }
        };
        std::unique_ptr<char, Free> bytes_;
        size_t length_ = 0;
    };

    // A piece of memory that belongs to somebody else.
    struct View {
        char const* data = nullptr;
        size_t length = 0;
    };

    // What tells one state of a file from another.
    struct Stamp {
        long seconds = 0;  // modification time
        long nanoseconds = 0;
        off_t size = 0;
        ino_t inode = 0;
        dev_t device = 0;

        Stamp() = default;
        explicit Stamp(struct stat const& status);
        bool operator==(Stamp const& other) const;
    };

    // What a store does with the companion file.
    struct Companion {
        enum Change { kept, written, removed } change = kept;
        std::string path;
        View contents;  // to write
    };

    enum class Use { load, store };

    /// Opens and locks `path`, and reads it. For a store, a missing file is made, and a store that
    /// died half-way is finished first.
    /// throws  Failure with "fopen(r)", "fopen(r+)", "fcntl()", "fstat()", "read()"; and with
    ///         "lstat()", "open()", "read()", "mapFile()" or "access()" when a journal, or the
    ///         companion that it is about, cannot or may not be looked at; while finishing, as
    ///         commit(); std::bad_alloc.
    ZStoreFile(char const* path, Use use);
    ZStoreFile(ZStoreFile const&) = delete;
    ZStoreFile& operator=(ZStoreFile const&) = delete;

    /// Closes. A file that was made for a store that did not come to commit() is removed again.
    ~ZStoreFile();

    /// Returns the text: that of the file, or that of the journal where this is what counts.
    /// owns    borrowed until the object is destroyed.
    View text() const;

    /// Returns the contents of the companion file that goes with text().
    /// throws  Failure (name, "access()", EPERM) when the file may not name this companion, see
    ///         mayName(); (name, "mapFile()", code): EINVAL for a missing or empty file, ENODEV for
    ///         what is no regular file, EFBIG for more than 257 MiB, else the errno;
    ///         std::bad_alloc.
    Bytes readCompanion(char const* name);

    /// Returns the path of a companion that is to be made: ".obf" behind the path as given, made
    /// absolute, or behind the real path when the file is not ours alone.
    /// throws  Failure (path, "getcwd()", errno).
    std::string newCompanion() const;

    /// Returns ".obf" behind `path`, made absolute.
    /// throws  Failure (path, "getcwd()", errno).
    static std::string companionBeside(std::string const& path);

    /// Returns whether `name` is the companion that belongs to the path: in the same directory,
    /// with ".obf" behind the name. Only such a file is ever removed.
    bool isOwnCompanion(std::string const& name) const;

    /// Returns 0 when the file may name `name` as its companion. A file that is ours alone (we own
    /// it, nobody else may write it) may name any; another only the one that belongs to its path,
    /// and only a regular file with one link that the file's owner owns. Nobody may name the file
    /// itself or its journal.
    /// codes   EPERM; errno when that cannot be found out.
    int mayName(std::string const& name) const;

    /// Replaces text and companion.
    /// range   once for each object: text() stays what it was.
    /// throws  Failure (file, call, errno): file, companion and store are as before.
    void commit(View text, Companion const& companion);

    /// Returns what the file was when it was read or, after commit(), written.
    Stamp const& stamp() const { return stamp_; }

    /// Unlocks and closes.
    void close();

private:
    struct Journal;
    class Writer;

    bool open(Use use, char const* openCall);
    int openForStore();
    void pick(Use use);
    bool concernsCompanion(Journal const& journal, bool oldText) const;

    std::string const path_;  // as given
    std::string real_;        // without symbolic links
    std::string journal_;     // beside the real file
    ZSharedFile file_;
    int fd_ = -1;
    bool made_ = false;  // this object made the file, and it is empty still
    struct stat status_ = {};
    Bytes main_;  // what the file holds, or what it is to hold by the journal
    Stamp stamp_;
    std::unique_ptr<Journal> picked_;  // set when the journal is what counts
};
