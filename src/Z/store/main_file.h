// main_file: a configuration file that is open and locked, and its directory.
//
// Symbolic links in the given path are resolved once. From then on the file is used by its name in
// the descriptor of its directory, and no link is followed any more.
#pragma once

#include <sys/stat.h>

#include <string>

#include "../files/bytes.h"
#include "../files/directory.h"
#include "../files/io_error.h"
#include "../files/shared_file.h"
#include "names.h"

namespace zstore {

using namespace zfiles;

struct MainFile {
    explicit MainFile(char const* givenPath) : path(givenPath) {}
    MainFile(MainFile const&) = delete;
    MainFile& operator=(MainFile const&) = delete;

    /// Closes. A file that open() created and that is still empty is removed.
    ~MainFile() { close(); }

    /// Resolves the path.
    /// throws  IoError, as open(); std::bad_alloc.
    void locate(bool forAStore);

    /// Opens and locks the file; a store creates a missing file. Repeats this if an editor has
    /// replaced the file by the time it is locked.
    /// throws  IoError with "fopen(r)" or "fopen(r+)", "fcntl()", "fstat()"; std::bad_alloc.
    void open();

    void read();
    void close();

    /// Returns 0 if the name still refers to this file, ESTALE if not, or an errno. Editors replace
    /// files by renaming.
    int checkName() const { return directory.check(name, status); }
    bool hasItsName() const { return checkName() != ESTALE; }

    /// Returns whether `directoryPath` is the path of the directory, as resolved or as given.
    bool isInDirectory(std::string const& directoryPath) const
    {
        return directoryPath[0] == '/' &&
               (directoryPath == directoryPart(real) ||
                (isDirectoryGiven && directoryPath == directoryPart(path)));
    }

    std::string journalName() const { return hiddenSibling(name, kJournalSuffix); }
    std::string replacementName() const { return hiddenSibling(name, kNewSuffix); }

    /// Returns the path of a file next to this one, for messages.
    std::string pathOf(std::string const& sibling) const { return directory.pathOf(sibling); }

    std::string const path;  // as given
    std::string real;        // without symbolic links, if they could be resolved
    Directory directory;
    bool isDirectoryGiven = false;  // by `path`, which has links only before the name
    std::string name;               // in the directory
    SharedFile file;
    SharedFile replacement;  // a new file that has the name, or will get it
    int fd = -1;
    bool isCreated = false;   // by this object, and still empty
    struct stat status = {};  // when it was locked or, after a store, written
    Bytes contents;

private:
    int resolve();
    bool locateWithoutLinks();
    int locateAsGiven(std::string const& path);
    bool openOnce();
    int openByName();
    FailedCall openCall() const
    {
        return forStore ? FailedCall::fopenToUpdate : FailedCall::fopenToRead;
    }

    bool forStore = false;
    bool isRegular = false;  // a regular file had the name when the path was resolved
    int attempts = 0;
};

}  // namespace zstore
