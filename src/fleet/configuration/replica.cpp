#include "configuration/replica.h"

#include <Z/ZException.h>
#include <Z/ZLCString.h>
#include <Z/ZStanzaFileProperties.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>

#include "configuration/parsing.h"

namespace zfleet {

namespace {

constexpr char kSource[] = "src/fleet/configuration/replica";
enum RaiseSite { raiseInRead = 1, raiseInCreate, raiseInRename, raiseForTrust };

// The stanza of a file that the foundation reserves for its own entries.
constexpr char kReservedStanza[] = "configuration-database";
constexpr char const* kKeys[] = {"cluster", "revision", "hidden", "generation"};

// A local stanza file whose cache this module reads and replaces.
class File : public ZStanzaFileProperties_6_0 {
public:
    File() : ZStanzaFileProperties_6_0(1) {}

    ZSCFData_6_0& contents() const { return static_cast<ZSCFData_6_0&>(cache()); }

    std::string entry(char const* key) const
    {
        ZLCString_6_0 value;
        getValue(kReservedStanza, key, value, 0, "");
        return value.getChars();
    }
};

[[noreturn]] void throwFailure(std::string const& path, char const* call, RaiseSite site)
{
    ZPropertiesIOException_6_0(path.c_str(), call, errno).throwException(kSource, site);
    abort();  // not reached
}

void makeDirectory(std::string const& path)
{
    if (mkdir(path.c_str(), 0700) != 0 && errno != EEXIST)
        throwFailure(path, "mkdir()", raiseInCreate);
}

// Requires that only the user of the program and root can write a file or directory, if it exists.
// In a sticky directory, other users can create files, but neither remove nor rename these.
void requireTrusted(std::string const& path, bool mayBeSticky)
{
    struct stat status {};
    if (stat(path.c_str(), &status) != 0)
        return;  // the caller finds out why
    bool const isOurs = status.st_uid == geteuid() || status.st_uid == 0;
    bool const isShared = (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
    if (isOurs && (!isShared || (mayBeSticky && (status.st_mode & S_ISVTX) != 0)))
        return;
    errno = EPERM;
    throwFailure(path, "access()", raiseForTrust);
}

// Returns whether `state` was read later than `present`. If only one of them has a companion, which
// was put or removed by hand, their order is unknown, and the result is true.
bool isLater(Snapshot const& state, Snapshot const& present)
{
    if (state.textRevision != present.textRevision)
        return state.textRevision > present.textRevision;
    return state.hiddenRevision > present.hiddenRevision ||
           (state.hiddenRevision == 0 && present.hiddenRevision != 0);
}

}  // namespace

Replica::Replica(Settings const& settings, std::string const& name)
    : parent_(settings.replicaDirectory),
      directory_(settings.replicaDirectory + "/" + settings.fleet),
      path_(directory_ + "/" + name + ".conf")
{
}

// Another user who can write the file or create it could choose the values of the program.
void Replica::requireTrust() const
{
    requireTrusted(parent_, true);
    requireTrusted(directory_, false);
    requireTrusted(path_, false);
}

Replica::State Replica::read() const
{
    requireTrust();
    File file;
    file.load(path_.c_str());
    Snapshot snapshot;
    uint64_t const cluster = strtoull(file.entry("cluster").c_str(), nullptr, 16);
    snapshot.textRevision = strtoll(file.entry("revision").c_str(), nullptr, 10);
    snapshot.hiddenRevision = strtoll(file.entry("hidden").c_str(), nullptr, 10);
    if (cluster == 0 || snapshot.textRevision <= 0)
        ZPropertiesInvalidDataException_6_0(path_.c_str(), "", 0)
            .throwException(kSource, raiseInRead);
    Metadata metadata;
    metadata.generation = strtoull(file.entry("generation").c_str(), nullptr, 10);
    snapshot.metaLines = format(metadata);
    for (char const* const key : kKeys)
        file.contents().delLine(kReservedStanza, key);
    snapshot.contents = formatContents(file.contents());
    return {std::move(snapshot), cluster};
}

// Compares the present file with a state of the cluster.
Replica::Present Replica::compare(State const& state, int64_t revision) const
{
    try {
        State const present = read();
        if (present.cluster != state.cluster || present.snapshot.revision() > revision)
            return Present::isForeign;
        return isLater(state.snapshot, present.snapshot) ? Present::isOlder : Present::isRecent;
    } catch (ZPropertiesIOException_6_0 const& e) {
        if (e.excerrno() != ENOENT)
            throw;
        return Present::none;
    } catch (ZPropertiesInvalidDataException_6_0 const&) {
        // A crash can leave the empty file that createFile() has created.
        struct stat file {};
        bool const isEmpty = stat(path_.c_str(), &file) == 0 && file.st_size == 0;
        return isEmpty ? Present::isOlder : Present::isForeign;
    }
}

void Replica::keepAsOrphan() const
{
    std::string const orphan = path_ + ".orphan";
    try {
        File file;
        file.load(path_.c_str());
        file.store(orphan.c_str());
    } catch (ZPropertiesInvalidDataException_6_0 const&) {
        if (rename(path_.c_str(), orphan.c_str()) != 0)
            throwFailure(path_, "rename()", raiseInRename);
    }
}

// Creates an empty file that only its owner can read: it can get obfuscated values.
void Replica::createFile() const
{
    makeDirectory(directory_);
    requireTrust();
    int const fd = open(path_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0)
        throwFailure(path_, "open()", raiseInCreate);
    close(fd);
}

bool Replica::write(State const& state, int64_t revision) const
{
    Snapshot const& snapshot = state.snapshot;
    Present const present = compare(state, revision);
    if (present == Present::isRecent)
        return true;
    if (present == Present::isForeign)
        keepAsOrphan();
    if (present != Present::isOlder)
        createFile();
    File file;
    std::unique_ptr<ZSCFData_6_0> const contents =
        parseContents(path_.c_str(), snapshot.contents, file.contents());
    file.contents().swapContents(*contents);
    char cluster[17];
    snprintf(cluster, sizeof cluster, "%llx", static_cast<unsigned long long>(state.cluster));
    std::string const values[] = {cluster, std::to_string(snapshot.textRevision),
                                  std::to_string(snapshot.hiddenRevision),
                                  std::to_string(snapshot.metadata().generation)};
    for (size_t i = 0; i < std::size(values); ++i)
        file.setValue(kReservedStanza, kKeys[i], values[i].c_str());
    file.store(path_.c_str());
    return present != Present::isForeign;
}

}  // namespace zfleet
