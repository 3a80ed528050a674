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
//     load    lock, read; if there is a journal, and the file is neither the old text nor the text
//             of another program, take the pair from the journal. Nothing is written.
//
// If the directory does not allow a journal, the changed bytes are written with one call, padded
// with newlines to the old length, and the file is truncated. docs/durability.md has the limits.
//
// Cost: the range in which the texts differ is written twice or three times: old and new into the
// journal, new in place; a moved range once and once. On ext4 and XFS three waits for the disk,
// elsewhere four or five, and two more for a companion.
//
// Ownership: an object has the file open and locked until it is closed or destroyed.
// Threads: an object belongs to one thread; objects of one process on one file take turns.
// Failures: a call that fails is thrown as an IoError. Nothing has changed then.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <memory>
#include <string>
#include <string_view>

#include "writer.h"

class ZJournaledFile {
public:
    using IoError = zstore::IoError;
    using Bytes = zstore::Bytes;
    using Companion = zstore::CompanionChange;

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

    /// Opens and locks `path`, and reads it. A store creates a missing file, and first completes a
    /// store that crashed.
    /// throws  IoError with "fopen(r)", "fopen(r+)", "fcntl()", "fstat()", "read()"; with
    ///         "lstat()", "open()", "read()", "mapFile()" or "access()" if a journal or its
    ///         companion cannot or may not be read, or if a journal that is not trusted, or whose
    ///         companion is another one, describes the text; with "unlink()" if a journal that is
    ///         out of date cannot be removed; as commit() while a store is completed;
    ///         std::bad_alloc.
    ZJournaledFile(char const* path, Mode mode);
    ZJournaledFile(ZJournaledFile const&) = delete;
    ZJournaledFile& operator=(ZJournaledFile const&) = delete;

    /// Closes. A file that was created for a store without a commit() is removed again.
    ~ZJournaledFile();

    /// Returns the text of the file, or of the journal if that counts.
    /// owns    borrowed until the object is destroyed.
    std::string_view text() const { return file_.contents.view(); }

    /// Returns the contents of the companion that goes with text().
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

    /// Returns whether `name` is the companion that belongs to the path: in the same directory,
    /// with ".obf" appended to the name. Only such a file is ever removed.
    bool isOwnCompanion(std::string const& name) const;

    /// Returns 0 if the file can use `name` as its companion. A file that we own, and that no other
    /// user can write, can use any; another file only the companion that belongs to its path, and
    /// only if it is a regular file with one link and the owner of the file. No file can use
    /// itself, or a name that its stores use for their own hidden files.
    /// codes   EPERM; the errno if that cannot be found out.
    int checkCompanionPath(std::string const& name) const;

    /// Replaces text and companion.
    /// range   once for each object: text() stays as it was.
    /// throws  IoError (file, call, errno): file, companion and journal are as before; with
    ///         "fopen(r+)" and ESTALE if another program replaced the file; std::bad_alloc.
    void commit(std::string_view text, Companion const& companion)
    {
        commit(text, companion, false);
    }

    /// As commit(), but a new file with the owner, mode, access control list and attributes of the
    /// old one takes its name: a reader without a lock sees one of the two, whole. Other hard
    /// links, and locks of other processes, stay with the old file.
    /// throws  as commit(); IoError (hidden file, "open()" or "fchown()", errno) if the directory
    ///         allows no new file, or if we cannot give it to the owner.
    void replace(std::string_view text, Companion const& companion)
    {
        commit(text, companion, true);
    }

    /// Returns the state of the file when it was read or, after commit(), written.
    Stamp const& stamp() const { return stamp_; }

    /// Unlocks and closes.
    void close() { file_.close(); }

private:
    void commit(std::string_view text, Companion const& companion, bool replaces);
    bool recover(Mode mode);
    bool mayUse(zstore::FoundJournal const& found) const;
    void replay(zstore::FoundJournal const& found);
    void retireOutdated(zstore::FoundJournal const& found, bool isOld);
    bool describesCompanion(zstore::Journal const& journal, bool oldText) const;

    zstore::MainFile file_;
    Stamp stamp_;
    std::unique_ptr<zstore::Journal> journal_;  // set if the journal counts
    struct stat invalidJournal_ = {};           // a file that the new journal replaces
};
