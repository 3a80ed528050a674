// journal_file: the file of a journal: finding one that a writer left, writing one, and retiring
// it.
//
// A journal is retired by overwriting its checksum and removing it: the removal need not be durable
// then. The checksum, not the header: two journals may begin alike, so that the header of the next
// one could complete the rest of this one where its blocks are used again.
#pragma once

#include <sys/stat.h>

#include <memory>
#include <string>
#include <string_view>

#include "directory.h"
#include "journal.h"
#include "main_file.h"

namespace zstore {

constexpr dev_t kNoDisk = 0;

// What is found under the name of a journal.
struct FoundJournal {
    enum Kind {
        none,
        obstacle,  // it cannot be a journal, or it is not a complete one and not trusted
        invalid,   // trusted, but not a complete journal
        foreign,   // complete, but not trusted
        valid,
    } kind = none;
    struct stat status = {};
    std::unique_ptr<Journal> journal;  // if valid or foreign
    bool isByOwner = false;            // its owner owns the file, or is root, or we are
};

/// Reads the journal of a file. It is trusted if it is a regular file with one link whose owner
/// could have written the file, and if nobody can write it who cannot write the file.
/// throws  IoError if it cannot be read: without its journal a file may be torn; std::bad_alloc.
FoundJournal findJournal(MainFile const& main);

/// Creates a new file, readable by nobody else, and returns its descriptor; -1 with errno if it
/// fails. An existing file was left by a crashed writer and is removed. EEXIST if it cannot be
/// removed because it is another user's in a sticky directory.
int createExclusive(Directory const& directory, std::string const& name);

/// Gives the file at `name` another name, ".orphan" or ".orphan.2" and so on appended, and replaces
/// nothing. Returns 0 or an errno: ESTALE, with everything as before, if it is not `expected`.
int putAside(Directory const& directory, std::string const& name, struct stat const& expected);

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

    /// Whether the journal of this object is at its name. Every other journal is left alone.
    bool isPublished() const { return isPublished_; }

    /// Takes over the journal of a crashed writer.
    void adopt(struct stat const& status);

    /// Allows publish() to replace this file, which is not a valid journal.
    void allowReplacing(struct stat const& status) { replaceable_ = status; }

    // Writing: each returns 0 or an errno.
    int create();
    int descriptor() const { return fd_.get(); }
    int append(std::string_view bytes);
    int finish();   // writes the checksum
    int publish();  // renames it to its name
    int sync() const;

    /// Removes a journal that was not published.
    void discard();

    /// Overwrites its checksum: it is not valid any more. Returns 0 or an errno.
    int invalidate(dev_t disk) const;

    /// Retires the journal, so that a power cut cannot bring it back. `disk` is that of the main
    /// file, `anyFile` a file on it. Returns 0 or an errno.
    int retire(dev_t disk, int anyFile);

private:
    int removeOwn() const;

    Directory const& directory_;
    std::string const name_;
    std::string const temporaryName_;
    ScopedFd fd_;  // of a journal that this object created
    struct stat status_ = {};
    struct stat replaceable_ = {};
    uint32_t crc_ = 0;
    bool isPublished_ = false;
};

}  // namespace zstore
