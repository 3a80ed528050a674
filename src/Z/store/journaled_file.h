// journaled_file: crash-safe replacement of a configuration file and its companion.
//
// After a crash a reader gets the complete old pair or the complete new pair. The file keeps its
// inode: it is locked, rewritten in place and truncated, as other programs expect. Safety comes
// from a journal next to it, ".<name>.zjn": the changed bytes, old and new, and the new companion.
// It is durable before the first byte of the file changes:
//
//     store   lock, read; complete the store of a crashed writer; the caller renders;
//             write the journal, reserve the space, write the companion's temporary file;
//             rewrite in place; replace the companion; retire the journal.
//     load    lock, read; if a journal exists, and the file is neither the old text nor the text
//             of another program, use the pair of the journal. Nothing is written.
//
// If the directory does not allow a journal, the changed bytes are written with one call, padded
// with newlines to the old length, and the file is truncated. docs/durability.md has the limits.
//
// Cost: the changed range is written three times: old and new into the journal, new in place. A
// range that only moves is written twice. A store waits for the disk three times on ext4 and XFS,
// four or five times elsewhere, and two times more if the companion changes.
//
// Ownership: an object has the file open and locked until it is closed or destroyed.
// Threads: an object belongs to one thread; objects of one process on one file take turns.
// Failures: a failed call throws an IoError, and nothing has changed.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <memory>
#include <string>
#include <string_view>

#include "writer.h"

namespace zstore {

class JournaledFile {
public:
    using IoError = zfiles::IoError;
    using Bytes = zfiles::Bytes;
    using Companion = CompanionChange;

    // Identifies one state of a file.
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

    enum class Mode { load, store };

    /// Opens, locks and reads `path`. A store creates a missing file, and first completes the store
    /// of a crashed writer.
    /// throws  IoError with "fopen(r)", "fopen(r+)", "fcntl()", "fstat()", "read()"; with
    ///         "lstat()", "open()", "read()", "mapFile()" or "access()" if a journal or its
    ///         companion cannot or may not be read, or if a journal that is not trusted, or that
    ///         does not describe the companion, describes a torn text; with "unlink()" if an
    ///         outdated journal cannot be removed; as commit() while a store is completed;
    ///         std::bad_alloc.
    JournaledFile(char const* path, Mode mode);
    JournaledFile(JournaledFile const&) = delete;
    JournaledFile& operator=(JournaledFile const&) = delete;

    /// Closes. A file that was created for a store without a commit() is removed again.
    ~JournaledFile();

    /// Returns the text of the file, or of a valid journal.
    /// owns    borrowed until the object is destroyed.
    std::string_view text() const { return file_.contents.view(); }

    /// Returns whether a store has created the file and not committed yet.
    bool isCreated() const { return file_.isCreated; }

    /// Returns the contents of the companion, of the same generation as text().
    /// throws  IoError (name, "access()", EPERM) if the file cannot use this companion, see
    ///         checkCompanionPath(); (name, "mapFile()", code): EINVAL for a missing or empty file,
    ///         ENODEV for anything but a regular file, EFBIG for more than 257 MiB, else the errno;
    ///         std::bad_alloc.
    Bytes readCompanion(char const* name);

    /// Returns the path for a companion that does not exist yet: ".obf" appended to the given path,
    /// made absolute, or to the real path if other users can write the file.
    /// throws  IoError (path, "getcwd()", errno).
    std::string newCompanion() const;

    /// Returns ".obf" appended to `path`, made absolute.
    /// throws  IoError (path, "getcwd()", errno).
    static std::string defaultCompanionPath(std::string const& path);

    /// Returns what newCompanion() will return for the file at `path`, unless another process
    /// changes the file first.
    /// throws  IoError (path, "getcwd()", errno).
    static std::string likelyCompanion(char const* path);

    /// Returns whether `name` is the companion of this path: in the same directory, with ".obf"
    /// appended to the name. Stores remove no other companion.
    bool isOwnCompanion(std::string const& name) const;

    /// Returns whether a store can remove `name`: it is the companion that belongs to the path, and
    /// the file can use it. It may be missing.
    /// throws  IoError (directory, "access()", errno) if the directory of a file with the right
    ///         name cannot be opened; IoError (name, "access()", errno) if the file cannot be
    ///         examined; std::bad_alloc.
    bool mayRemove(std::string const& name) const;

    /// Returns 0 if the file can use `name` as its companion. A file that we own, and that no other
    /// user can write, can use any; another file only the companion that belongs to its path, and
    /// only if it is a regular file with one link and the owner of the file. No file can use
    /// itself, or a name that its stores use for their own hidden files.
    /// codes   EPERM; an errno if that cannot be determined.
    int checkCompanionPath(std::string const& name) const;

    /// Makes commit() and replace() write nothing if text and companion already have the new
    /// contents.
    void skipUnchanged() { skipsUnchanged_ = true; }

    /// Replaces text and companion.
    /// range   once for each object; text() does not change.
    /// throws  IoError (file, call, errno): file, companion and journal are as before; with
    ///         "fopen(r+)" and ESTALE if another program replaced the file; std::bad_alloc.
    void commit(std::string_view text, Companion const& companion)
    {
        commit(text, companion, false);
    }

    /// As commit(), but gives the name to a new file with the owner, mode, access control list and
    /// attributes of the old one: a reader without a lock sees a complete text. Other hard links,
    /// and locks of other processes, stay with the old file.
    /// throws  as commit(); IoError (hidden file, "open()" or "fchown()", errno) if the directory
    ///         allows no new file, or if its owner cannot be set.
    void replace(std::string_view text, Companion const& companion)
    {
        commit(text, companion, true);
    }

    /// Returns whether the name refers to another file by now, or to none.
    bool isReplaced() const { return !file_.hasItsName(); }

    /// Returns the state of the file when it was read or, after commit(), written.
    Stamp const& stamp() const { return stamp_; }

    /// Unlocks and closes.
    void close() { file_.close(); }

private:
    void commit(std::string_view text, Companion const& companion, bool replaces);
    bool recover(Mode mode);
    int checkUse(FoundJournal const& found) const;
    bool findOwnership(std::string const& name) const;
    void replay(FoundJournal const& found);
    void retireOutdated(FoundJournal const& found, bool isOld);
    bool describesCompanion(Journal const& journal, bool oldText) const;

    MainFile file_;
    Stamp stamp_;
    bool skipsUnchanged_ = false;
    std::unique_ptr<Journal> journal_;  // set if the journal counts
    struct stat invalidJournal_ = {};   // a file that the new journal replaces
};

}  // namespace zstore
