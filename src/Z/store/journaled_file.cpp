#include "journaled_file.h"

#include <errno.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>

#include <utility>

#include "../files/access.h"
#include "../files/size_signal_guard.h"
#include "limits.h"

namespace zstore {

namespace {

// Returns whether there is something at the path of a companion that no store created, by the errno
// of opening it.
bool isForeignKind(int error)
{
    return error == EISDIR || error == EINVAL || error == ENOTDIR;
}

}  // namespace

JournaledFile::Stamp::Stamp(struct stat const& status)
    : seconds(status.st_mtim.tv_sec),
      nanoseconds(status.st_mtim.tv_nsec),
      size(status.st_size),
      inode(status.st_ino),
      device(status.st_dev)
{
}

bool JournaledFile::Stamp::operator==(Stamp const& other) const
{
    return seconds == other.seconds && nanoseconds == other.nanoseconds && size == other.size &&
           inode == other.inode && device == other.device;
}

JournaledFile::JournaledFile(char const* path, Mode mode) : file_(path)
{
    file_.locate(mode == Mode::store);
    do {
        file_.open();
        stamp_ = Stamp(file_.status);
        file_.read();
    } while (!recover(mode));
}

JournaledFile::~JournaledFile() = default;

// Decides between the files and the journal of a crashed writer. The writer has ended: we hold its
// lock. Returns false if the file has been replaced: the journal may belong to a writer of the new
// file then, and is not touched.
bool JournaledFile::recover(Mode mode)
{
    FoundJournal found = findJournal(file_);
    if (found.kind != FoundJournal::none && !file_.hasItsName())
        return false;
    if (found.kind == FoundJournal::invalid)
        invalidJournal_ = found.status;
    if (found.kind == FoundJournal::none || found.kind == FoundJournal::invalid)
        return true;
    std::string_view const text = file_.contents.view();
    Journal const* const journal = found.journal.get();
    bool const describes = journal != nullptr && journal->isPartialRewrite(text);
    bool const isOld = describes && journal->isOld(text);
    if (int const error = checkUse(found)) {
        // Without the journal the text may be torn, or have the companion of another generation.
        bool const isComplete = describes && journal->companion.empty() && journal->isNew(text);
        if (describes && !isOld && !isComplete && error != EPERM)
            throw IoError{journal->companion, FailedCall::mapFile, error};
        if (describes && !isOld && !isComplete)
            throw IoError{file_.pathOf(file_.journalName()), FailedCall::access, EPERM};
        if (mode == Mode::store)
            renameToOrphan(file_.directory, file_.journalName(),
                           found.status);  // else publish() fails
        return true;
    }
    SizeSignalGuard const noSignal;
    bool const counts =
        describes && (journal->companion.empty() || describesCompanion(*journal, isOld));
    // Another program wrote the companion, but the text is torn: only the journal has all of it.
    if (describes && !counts && !isOld && !journal->isNew(text))
        throw IoError{file_.pathOf(file_.journalName()), FailedCall::access, EPERM};
    if (!counts || isOld) {
        if (mode == Mode::store)
            retireOutdated(found, counts);
    } else if (mode == Mode::load) {
        file_.contents = journal->newText(text);
        journal_ = std::move(found.journal);
    } else {
        replay(found);
    }
    return true;
}

// Returns 0 if a journal can be used, EPERM if not, or the errno with which its companion cannot be
// examined. If its owner can write the file but does not own it, the journal must not change a
// companion that this user cannot write.
int JournaledFile::checkUse(FoundJournal const& found) const
{
    if (found.kind != FoundJournal::valid)
        return EPERM;
    if (found.isByOwner || found.journal->companion.empty())
        return 0;
    CompanionFile const companion(file_, found.journal->companion);
    SharedFile file;
    AccessList list;
    int error = companion.openForReading(file);
    if (error == ENOENT)
        return 0;
    if (isForeignKind(error))
        return EPERM;
    if (error == 0)
        error = list.read(file.descriptor());
    if (error == 0 && !list.allows(found.status.st_uid, kMayWrite))
        error = EPERM;
    return error;
}

// Completes the store of a crashed writer.
void JournaledFile::replay(FoundJournal const& found)
{
    Journal const& journal = *found.journal;
    Bytes const newText = journal.newText(file_.contents.view());
    Companion companion;
    companion.path = journal.companion;
    companion.contents = journal.newCompanion;
    if (!companion.path.empty() && !journal.newIsNone)
        companion.change = Companion::written;
    else if (!companion.path.empty() && findOwnership(companion.path))
        companion.change = Companion::removed;
    Writer(file_, newText.view(), companion).replay(found.status);
    file_.read();
    stamp_ = Stamp(file_.status);
}

// Removes the journal of a writer that crashed before it changed the file, or renames it to an
// orphan if another program has written the file since. If it stayed, the next stored text could be
// taken for an interrupted rewrite.
void JournaledFile::retireOutdated(FoundJournal const& found, bool isOld)
{
    Directory const& directory = file_.directory;
    std::string const name = file_.journalName();
    JournalFile journal(directory, name);
    journal.adopt(found.status);
    int error = 0;
    if (isOld) {
        directory.remove(file_.replacementName());
        if (!found.journal->companion.empty()) {
            CompanionFile const companion(file_, found.journal->companion);
            if (companion.check() == 0 && companion.directoryError() == 0)
                companion.directory().remove(hiddenSibling(companion.name(), kNewSuffix));
        }
        error = journal.retire(file_.status.st_dev, file_.fd);
    } else {
        // The orphan keeps its contents for a comparison.
        error = journal.invalidate(file_.status.st_dev);
        if (renameToOrphan(directory, name, found.status) == 0)
            error = 0;
    }
    if (error != 0)
        throw IoError{file_.pathOf(name), FailedCall::unlink, error};
}

// Returns whether the journal's writer found or wrote this companion. A companion that the file may
// not use any more is not read: without it only the old text is known to be complete.
bool JournaledFile::describesCompanion(Journal const& journal, bool oldText) const
{
    CompanionFile const companion(file_, journal.companion);
    int error = companion.check();
    if (error == EPERM && oldText)
        return false;
    if (error == EPERM)
        throw IoError{journal.companion, FailedCall::access, error};
    SharedFile file;
    Bytes contents;
    if (error == 0)
        error = companion.openForReading(file);
    bool const present = error == 0;
    if (present)
        error = readAll(file.descriptor(), kMaxCompanionSize, contents);
    if (isForeignKind(error))
        return false;
    if (error != 0 && error != ENOENT)
        throw IoError{journal.companion, FailedCall::mapFile, error};
    return journal.describesCompanion(present, contents.view());
}

JournaledFile::Bytes JournaledFile::readCompanion(char const* name)
{
    CompanionFile const companion(file_, name);
    if (int const error = companion.check())
        throw IoError{name, FailedCall::access, error};
    // An earlier version of this library may have written a journal with a relative path.
    bool const isInJournal =
        journal_ != nullptr && !journal_->companion.empty() &&
        (journal_->companion == name || journal_->companion == absolutePath(name));
    if (isInJournal) {
        std::string_view const packed = journal_->newCompanion;
        if (packed.empty())
            throw IoError{name, FailedCall::mapFile, EINVAL};
        Bytes contents(packed.size());
        memcpy(contents.data(), packed.data(), packed.size());
        return contents;
    }
    // The codes are the same as if the file was mapped: neither an empty or missing file nor
    // anything except a regular file can be mapped.
    struct stat status;
    if (!companion.exists(status))
        throw IoError{name, FailedCall::mapFile, EINVAL};
    SharedFile file;
    Bytes contents;
    int error = S_ISREG(status.st_mode) ? companion.openForReading(file) : ENODEV;
    if (error == EPERM)
        throw IoError{name, FailedCall::access, error};
    if (error == 0)
        error = readAll(file.descriptor(), kMaxCompanionSize, contents);
    if (error == 0 && contents.length() == 0)
        error = EINVAL;
    if (error != 0)
        throw IoError{name, FailedCall::mapFile, error};
    return contents;
}

std::string JournaledFile::newCompanion() const
{
    return onlyWeCanWrite(file_.status) ? defaultCompanionPath(file_.path)
                                        : file_.real + kCompanionSuffix;
}

std::string JournaledFile::defaultCompanionPath(std::string const& path)
{
    return zstore::defaultCompanionPath(path);
}

std::string JournaledFile::likelyCompanion(char const* path)
{
    struct stat status;
    char real[PATH_MAX];
    bool const isShared = stat(path, &status) == 0 && !onlyWeCanWrite(status);
    return isShared && realpath(path, real) != nullptr ? std::string(real) + kCompanionSuffix
                                                       : defaultCompanionPath(path);
}

bool JournaledFile::isOwnCompanion(std::string const& name) const
{
    return CompanionFile(file_, name).isOwn();
}

// As isOwnCompanion(), but throws if that cannot be found out.
bool JournaledFile::findOwnership(std::string const& name) const
{
    CompanionFile const companion(file_, name);
    if (int const error = companion.ownershipError())
        throw IoError{directoryPart(name), FailedCall::access, error};
    return companion.isOwn();
}

bool JournaledFile::mayRemove(std::string const& name) const
{
    if (!findOwnership(name))
        return false;
    int const error = checkCompanionPath(name);
    if (error != 0 && error != EPERM)
        throw IoError{name, FailedCall::access, error};
    return error == 0;
}

int JournaledFile::checkCompanionPath(std::string const& name) const
{
    return CompanionFile(file_, name).check();
}

void JournaledFile::commit(std::string_view text, Companion const& companion, bool replaces)
{
    // The next load would refuse it.
    if (text.size() > maxFileSize())
        throw IoError{file_.path, FailedCall::write, EFBIG};
    SizeSignalGuard const noSignal;
    if (companion.change != Companion::kept)
        if (int const error = checkCompanionPath(companion.path))
            throw IoError{companion.path, FailedCall::access, error};
    Writer writer(file_, text, companion);
    if (replaces)
        writer.replaceFile();
    if (skipsUnchanged_)
        writer.skipUnchanged();
    if (invalidJournal_.st_nlink != 0)
        writer.replaceInvalidJournal(invalidJournal_);
    writer.commit();
    file_.isCreated = false;
    stamp_ = Stamp(file_.status);
}

}  // namespace zstore
