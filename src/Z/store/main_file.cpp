#include "main_file.h"

#include <errno.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "limits.h"

namespace zstore {

namespace {

constexpr int kMaxAttempts = 100;  // to open a file that editors replace repeatedly
constexpr int kMaxLinks = 40;
constexpr int kMaxResolutions = 3;  // attempts to resolve a path while editors replace the file

// Returns the target of the symbolic link at `path`, relative to the working directory; "" if it is
// not a link.
std::string targetOf(std::string const& path)
{
    char target[PATH_MAX];
    ssize_t const length = readlink(path.c_str(), target, sizeof target);
    if (length <= 0 || length == static_cast<ssize_t>(sizeof target))
        return "";
    std::string const text(target, static_cast<size_t>(length));
    size_t const slash = path.rfind('/');
    bool const isRelative = text[0] != '/' && slash != std::string::npos;
    return isRelative ? path.substr(0, slash + 1) + text : text;
}

// Returns whether a path is its own real path, unless it has symbolic links.
bool isNormal(std::string const& path)
{
    std::string const closed = path + '/';
    return path.starts_with('/') && closed.find("//") == closed.npos &&
           closed.find("/./") == closed.npos && closed.find("/../") == closed.npos;
}

// Returns whether `path` refers to a file, and `other` to another file or to none.
bool leadsElsewhere(char const* path, char const* other)
{
    struct stat meant;
    struct stat found;
    for (int i = 0; i < kMaxResolutions && strcmp(path, other) != 0; ++i) {
        if (stat(path, &meant) != 0)
            return false;
        if (stat(other, &found) == 0 && isSameFile(meant, found))
            return false;
    }
    return strcmp(path, other) != 0;
}

// Sets `resolved` to the real path of the file at `path`. Returns 0; an errno of realpath(); ESTALE
// if realpath() finds another file: a link in /proc may lead to another mount namespace, or to a
// file without a name, and is then not a path in this namespace.
int findRealPath(std::string const& path, char (&resolved)[PATH_MAX])
{
    for (int i = 0; i < kMaxResolutions; ++i) {
        if (realpath(path.c_str(), resolved) == nullptr)
            return errno;
        if (!leadsElsewhere(path.c_str(), resolved))
            return 0;
    }
    return ESTALE;
}

}  // namespace

void MainFile::locate(bool forAStore)
{
    forStore = forAStore;
    real.reserve(PATH_MAX);  // a file that is created must not stay for lack of its name
    if (int const error = resolve())
        throw IoError{path, openCall(), error};
}

void MainFile::open()
{
    do {
        close();
        if (attempts++ == kMaxAttempts)
            throw IoError{path, openCall(), ESTALE};
    } while (!openOnce());
}

// Finds directory and name. If the path is a dangling link, a store creates its target.
int MainFile::resolve()
{
    if (locateWithoutLinks())
        return 0;
    std::string at = path;
    for (int links = 0; links < kMaxLinks; ++links) {
        char resolved[PATH_MAX];
        int const error = findRealPath(at, resolved);
        if (error == 0) {
            real = resolved;
            name = namePart(real);
            isDirectoryGiven = links == 0 && directoryPart(real) != directoryPart(path) &&
                               name == namePart(path) && targetOf(path).empty();
            return name.empty() ? EISDIR : directory.openResolved(directoryPart(real));
        }
        std::string const target = targetOf(at);
        if (target.empty())
            return locateAsGiven(at);
        if (leadsElsewhere(at.c_str(), target.c_str()))
            return ENOENT;
        if (error != ESTALE && (error != ENOENT || !forStore))
            return error;
        at = target;
    }
    return ELOOP;
}

// Finds an existing file whose path has no symbolic links, as most paths have none. realpath()
// would read each directory of the path as a link.
bool MainFile::locateWithoutLinks()
{
    struct stat named;
    name = namePart(path);
    if (!isNormal(path) || directory.openResolved(directoryPart(path)) != 0 ||
        directory.stat(name, named) != 0 || S_ISLNK(named.st_mode))
        return false;
    real = path;
    isRegular = S_ISREG(named.st_mode);
    return true;
}

// The path has no real path: the file is missing, its real path is too long, or it is in another
// mount namespace.
int MainFile::locateAsGiven(std::string const& at)
{
    real = at;
    name = namePart(at);
    isDirectoryGiven = at == path;
    if (int const error = directory.openFollowingLinks(directoryPart(at)))
        return error;
    return name.empty() ? EISDIR : 0;
}

// Opens and locks the file; returns false if its name refers to another file by then.
bool MainFile::openOnce()
{
    int error = openByName();
    if (forStore && error == EEXIST)
        return false;
    if (error != 0)
        throw IoError{path, openCall(), error};
    error = file.lock(forStore ? F_WRLCK : F_RDLCK, 0, 0);
    if (error != 0) {
        // If another process has locked the new file, it stays.
        bool const isHeld = error == EAGAIN || error == EACCES || error == EDEADLK;
        if (isCreated && !isHeld && fstat(file.descriptor(), &status) == 0 && status.st_size == 0)
            fd = file.descriptor();  // close() removes it
        close();
        throw IoError{path, FailedCall::fcntl, error};
    }
    fd = file.descriptor();
    if (fstat(fd, &status) != 0) {
        error = errno;
        close();
        throw IoError{path, FailedCall::fstat, error};
    }
    if (status.st_size > 0)
        isCreated = false;  // another process stored into it before it was locked
    error = checkName();
    if (error == 0)
        return true;
    isCreated = false;
    close();
    if (error != ESTALE)
        throw IoError{path, FailedCall::fstat, error};
    return false;
}

// A store opens the file for reading and writing, and does not truncate it.
int MainFile::openByName()
{
    constexpr mode_t kMode = S_IRUSR | S_IWUSR | S_IRGRP | S_IWGRP | S_IROTH | S_IWOTH;
    int const at = directory.descriptor();
    // Without O_NONBLOCK, openAt() would check again that the file is regular.
    int const flags = O_NOFOLLOW | (isRegular && attempts == 1 ? O_NONBLOCK : 0);
    if (!forStore)
        return file.openAt(at, name.c_str(), O_RDONLY | flags, 0);
    int error = file.openAt(at, name.c_str(), O_RDWR | flags, 0);
    if (error != ENOENT)
        return error;
    error = file.openAt(at, name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, kMode);
    isCreated = error == 0;
    char resolved[PATH_MAX];
    if (isCreated && realpath(real.c_str(), resolved) != nullptr)
        real = resolved;
    return error;
}

void MainFile::read()
{
    if (int const error = readAll(fd, static_cast<size_t>(status.st_size), maxFileSize(), contents))
        throw IoError{path, FailedCall::read, error};
}

void MainFile::close()
{
    if (isCreated && fd >= 0 && checkName() == 0)
        directory.remove(name);
    isCreated = false;
    fd = -1;
    file.close();
    replacement.close();
}

}  // namespace zstore
