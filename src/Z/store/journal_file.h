// journal_file: finds the journal of a crashed writer, writes a journal, and retires it.
//
// To retire a journal, its checksum is overwritten and then the file is removed; the removal need
// not be durable. Overwriting the header would not do: if the next journal reuses the blocks and
// starts with the same bytes, its header could complete the rest of the retired one.
#pragma once

#include <sys/stat.h>

#include <memory>
#include <string>
#include <string_view>

#include "../files/directory.h"
#include "journal.h"
#include "main_file.h"
#include "names.h"

namespace zstore {

constexpr dev_t kNoDisk = 0;

// The file with the name of a journal.
struct FoundJournal {
    enum Kind {
        none,
        obstacle,  // not a journal, or neither complete nor trusted
        invalid,   // trusted, but not a complete journal
        foreign,   // complete, but not trusted
        valid,
    } kind = none;
    struct stat status = {};
    std::unique_ptr<Journal> journal;  // if valid or foreign
    bool isByOwner = false;            // its owner is the main file's owner, root, or this user
};

/// Reads the journal of a file. It is trusted if it is a regular file with one link, its owner
/// could have written the file, and every user who can write it can write the file too.
/// throws  IoError if it cannot be read: without its journal a file may be torn; std::bad_alloc.
FoundJournal findJournal(MainFile const& main);

/// Creates a file that only its owner can read, and returns its descriptor; -1 with errno if that
/// fails. An existing file was left by a crashed writer and is removed. EEXIST: it is another
/// user's in a sticky directory and cannot be removed.
int createExclusive(Directory const& directory, std::string const& name);

/// Renames the file at `name`: appends ".orphan", or ".orphan.2" and so on, and replaces no file.
/// Returns 0 or an errno: ESTALE, with no change, if the file is not `expected`.
int renameToOrphan(Directory const& directory, std::string const& name,
                   struct stat const& expected);

class JournalFile {
public:
    JournalFile(Directory const& directory, std::string const& name)
        : directory_(directory), name_(name), temporaryName_(name + kNewSuffix)
    {
    }
    JournalFile(JournalFile const&) = delete;
    JournalFile& operator=(JournalFile const&) = delete;

    std::string const& name() const { return name_; }
    std::string const& temporaryName() const { return temporaryName_; }

    /// Returns whether the journal of this object has its name. No other journal is changed.
    bool isPublished() const { return isPublished_; }

    /// Takes over the journal of a crashed writer.
    void adopt(struct stat const& status);

    /// Allows publish() to replace this file, which is not a valid journal.
    void allowReplacing(struct stat const& status) { replaceable_ = status; }

    // Writing: each returns 0 or an errno.
    int create();
    int descriptor() const { return fd_.get(); }
    dev_t disk() const { return status_.st_dev; }
    int append(std::string_view bytes);
    int finish();   // writes the checksum
    int publish();  // renames it to its name
    int sync() const;

    /// Removes a journal that was not published.
    void discard();

    /// Makes the journal invalid: overwrites its checksum. Returns 0 or an errno.
    int invalidate(dev_t disk) const;

    /// Retires the journal, so that a power cut cannot restore it. `disk` is the main file's,
    /// `anyFile` a file on it. Returns 0 or an errno.
    int retire(dev_t disk, int anyFile);

private:
    int removeOwn() const;
    int writeGathered();

    Directory const& directory_;
    std::string const name_;
    std::string const temporaryName_;
    ScopedFd fd_;  // of a journal that this object created
    struct stat status_ = {};
    struct stat replaceable_ = {};
    uint32_t crc_ = 0;
    std::string gathered_;  // small parts that are not written yet
    bool isPublished_ = false;
};

}  // namespace zstore
