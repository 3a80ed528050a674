#include "writer.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <new>

#include "../files/access.h"
#include "../files/traits.h"

namespace zstore {

namespace {

// Returns whether a name cannot be replaced or removed although the file can be written: it is a
// mount point, or the directory is sticky or append-only.
bool isFixedName(int error)
{
    return error == EBUSY || error == EPERM;
}

}  // namespace

Writer::Writer(MainFile& file, std::string_view text, CompanionChange const& companion)
    : file_(file),
      text_(text),
      diff_(file.contents.view(), text),
      change_(companion),
      companionChange_(companion.change),
      journal_(file.directory, file.journalName()),
      journalPath_(file.pathOf(journal_.name())),
      temporaryJournalPath_(file.pathOf(journal_.temporaryName())),
      newCompanionName_(hiddenSibling(namePart(companion.path), kNewSuffix))
{
    if (companionChange_ == CompanionChange::kept)
        return;
    companion_ = std::make_unique<CompanionFile>(file, companion.path);
    newCompanionPath_ = companion_->directory().pathOf(newCompanionName_);
}

Writer::~Writer() = default;

int Writer::fail(FailedCall call, std::string const& file, int error)
{
    if (error != 0 && error_ == 0) {
        call_ = call;
        failedFile_ = &file;
        error_ = error;
    }
    return error;
}

void Writer::throwError() const
{
    throw IoError{*failedFile_, call_, error_};
}

void Writer::commit()
{
    if (int const error = access_.read(file_.fd))
        throw IoError{file_.path, FailedCall::fgetxattr, error};
    if (companion_ != nullptr) {
        readOldCompanion();
        companionInJournal_ = absolutePath(change_.path);
    }
    if (skipsUnchanged_ && diff_.isEmpty() && !file_.isCreated &&
        companionChange_ == CompanionChange::kept)
        return;
    try {
        if (requireName() == 0 && writeJournal() == 0 && prepareWithoutJournal() == 0 &&
            replacePair() == 0) {
            retireJournal();
            return;
        }
    } catch (std::bad_alloc const&) {
        if (rollBack())
            throw;
        return;
    }
    if (rollBack())
        throwError();
}

void Writer::replay(struct stat const& journal)
{
    if (companion_ != nullptr)
        openOldCompanion();
    if (int const error = access_.read(file_.fd))
        throw IoError{file_.path, FailedCall::fgetxattr, error};
    journal_.adopt(journal);
    file_.directory.remove(file_.replacementName());
    phase_ = Phase::journaled;
    // The crashed writer may have renamed the file without syncing the directory. The new name must
    // be durable before the companion changes and before the journal is retired.
    if (int const error = file_.directory.sync(file_.fd))
        throw IoError{file_.path, FailedCall::fsync, error};
    try {
        if (replacePair() == 0 && fail(FailedCall::fsync, change_.path, companionSyncError_) == 0 &&
            fail(FailedCall::unlink, journalPath_, retireJournal()) == 0)
            return;
    } catch (std::bad_alloc const&) {
        removeNewCompanion();
        throw;
    }
    removeNewCompanion();
    throwError();
}

// ---- The companion that exists -----------------------------------------------------------------

// Opens the companion if it exists, and checks again whether the file can use it: since the
// caller's check, a link in the path may have been changed.
void Writer::openOldCompanion()
{
    std::string const& path = change_.path;
    int error = companion_->openForReading(companionFile_);
    if (error == EISDIR || error == EINVAL || error == EPERM ||
        (companionChange_ == CompanionChange::removed && !companion_->isOwn()))
        throw IoError{path, FailedCall::access, EPERM};
    hadCompanion_ = error == 0;
    if (hadCompanion_)
        error = oldAccess_.read(companionFile_.descriptor());
    if (error != 0 && error != ENOENT)
        throw IoError{path, FailedCall::fopenToWrite, error};
}

void Writer::readOldCompanion()
{
    std::string const& path = change_.path;
    openOldCompanion();
    if (!hadCompanion_)
        return;
    if (int const error = readAll(companionFile_.descriptor(), kMaxCompanionSize, oldCompanion_))
        throw IoError{path, FailedCall::fopenToWrite, error};
    // A file that no store can have written is not replaced, unless it is the damaged companion of
    // this file.
    bool const isOther = !looksCompressed(oldCompanion_.view());
    if (isOther && !companion_->isOwn())
        throw IoError{path, FailedCall::access, EPERM};
    if (isOther && !change_.isNamed)
        throw IoError{path, FailedCall::access, EEXIST};
    if (companionChange_ == CompanionChange::written && isAsWanted()) {
        bool isNameSynced = false;
        if (int const error = syncUnchangedCompanion(isNameSynced))
            throw IoError{path, FailedCall::fsync, error};
        if (isNameSynced)
            companionChange_ = CompanionChange::kept;
    }
}

// Returns whether the companion already has its contents, and owner, group, access and disk of the
// file. It may have an access control list of its own that grants no more than the file.
bool Writer::isAsWanted() const
{
    struct stat const& model = access_.status();
    struct stat const& status = oldAccess_.status();
    bool const hasOwnList =
        oldAccess_.isExtended() && oldAccess_.isWithin(access_, kMayRead | kMayWrite);
    bool const hasSameMode = !oldAccess_.isExtended() && !access_.isExtended() &&
                             ((status.st_mode ^ model.st_mode) & kPermissions) == 0;
    return oldCompanion_.view() == change_.contents && status.st_dev == model.st_dev &&
           status.st_uid == model.st_uid && status.st_gid == model.st_gid && status.st_nlink == 1 &&
           (hasOwnList || hasSameMode);
}

// Another program may have created the companion without syncing it. If its name cannot be synced,
// the companion is written again: then the journal describes both states that a power cut may
// leave.
int Writer::syncUnchangedCompanion(bool& isNameSynced) const
{
    int const fd = companionFile_.descriptor();
    if (int const error =
            flushBeforeLaterSyncs(fd, oldAccess_.status().st_dev == file_.status.st_dev))
        return error;
    isNameSynced =
        FileSystemTraits(fd).syncsDirectoryEntry || companion_->directory().sync(fd) == 0;
    return 0;
}

// ---- The journal -------------------------------------------------------------------------------

// An editor may have replaced the file since it was opened.
int Writer::requireName()
{
    return fail(FailedCall::fopenToUpdate, file_.path, file_.checkName());
}

// Returns 0 without a journal if the directory does not allow one.
int Writer::writeJournal()
{
    int error = journal_.create();
    if (error == 0)
        error = writeJournalContents();
    else if (isRefusal(error))
        return refuse(error);
    else
        return fail(FailedCall::open, temporaryJournalPath_, error);
    if (error == 0)
        error = journal_.publish();
    if (journal_.isPublished())
        return error != 0 ? fail(FailedCall::rename, journalPath_, error) : syncJournal();
    journal_.discard();
    if (error_ != 0)
        return error_;
    if (error == EPERM || error == EACCES)  // an append-only directory, for example
        return refuse(error);
    // If another file has replaced ours, its writer may have published a journal first.
    return requireName() != 0 ? error_ : fail(FailedCall::rename, journalPath_, error);
}

// The directory allows no journal.
int Writer::refuse(int error)
{
    refusal_ = error;
    return 0;
}

int Writer::writeJournalContents()
{
    bool owned = false;
    int const fd = journal_.descriptor();
    if (int const error = access_.copyTo(fd, owned))
        return fail(FailedCall::fchmod, temporaryJournalPath_, error);
    // Data that another program wrote and did not sync must be durable before it is overwritten.
    bool const isOnSameDisk = file_.status.st_dev == journal_.disk();
    if (int const error = flushBeforeLaterSyncs(file_.fd, isOnSameDisk))
        return fail(FailedCall::fdatasync, file_.path, error);

    Journal journal;
    journal.diff = diff_;
    journal.prefixChecksum = quickChecksum(text_.substr(0, diff_.prefix));
    journal.suffixChecksum = quickChecksum(dropPrefix(text_, text_.size() - diff_.suffix));
    if (companionChange_ != CompanionChange::kept) {
        journal.companion = companionInJournal_;
        journal.newIsNone = companionChange_ == CompanionChange::removed;
        journal.newCompanion = journal.newIsNone ? std::string_view() : change_.contents;
        journal.oldIsNone = !hadCompanion_;
        journal.oldLength = oldCompanion_.length();
        journal.oldChecksum = checksum(oldCompanion_.view());
    }
    std::string const header = journal.header();
    for (std::string_view const part : {std::string_view(header), diff_.oldMiddle, diff_.newMiddle,
                                        diff_.moved, journal.newCompanion})
        if (int const error = journal_.append(part))
            return fail(FailedCall::write, temporaryJournalPath_, error);
    return fail(FailedCall::write, temporaryJournalPath_, journal_.finish());
}

// The journal gets its name before it is synced, so that most file systems write both together. A
// power cut may leave it torn; then it is invalid, and nothing has changed yet. A file system that
// writes names before contents cannot show an earlier journal in its blocks either: a journal is
// removed only after it is invalid on the disk.
int Writer::syncJournal()
{
    if (int const error = journal_.sync())
        return fail(FailedCall::fsync, journalPath_, error);
    int const fd = journal_.descriptor();
    if (file_.isCreated || !FileSystemTraits(fd).syncsDirectoryEntry)
        if (int const error = file_.directory.sync(fd))
            return fail(FailedCall::fsync, journalPath_, error);
    phase_ = Phase::journaled;
    return 0;
}

// Without a journal, pads a shorter text to the length of the old one.
int Writer::prepareWithoutJournal()
{
    if (phase_ == Phase::journaled)
        return 0;
    if (replacement_ != nullptr)
        return fail(FailedCall::open, replacement_->path(), refusal_);
    phase_ = Phase::journaled;
    if (text_.size() >= file_.contents.length())
        return 0;
    std::string_view const text = diff_.rewritten(text_);
    padded_ = Bytes(diff_.rewritten(file_.contents.view()).size());
    if (!text.empty())
        memcpy(padded_.data(), text.data(), text.size());
    memset(padded_.data() + text.size(), '\n', padded_.length() - text.size());
    return 0;
}

// ---- Replacing ---------------------------------------------------------------------------------

int Writer::replacePair()
{
    bool const writes = companionChange_ == CompanionChange::written;
    if ((replacement_ != nullptr ? prepareReplacement() : reserve()) != 0 ||
        (writes && prepareCompanion(change_.contents) != 0) ||
        (replacement_ != nullptr ? publishReplacement() : rewriteText()) != 0 ||
        changeCompanion() != 0)
        return error_;
    phase_ = Phase::applied;
    return 0;
}

// Allocates the space of a longer text.
int Writer::reserve()
{
    if (text_.size() <= file_.contents.length())
        return 0;
    int const fd = file_.fd;
    auto const length = static_cast<off_t>(text_.size());
    int const error = retryOnEintr([=] { return fallocate(fd, FALLOC_FL_KEEP_SIZE, 0, length); });
    if (error == EOPNOTSUPP || error == ENOSYS || error == EINVAL)
        return 0;
    return fail(FailedCall::fallocate, file_.path, error);
}

// Frees the space past the current end of the file.
void Writer::returnReservedSpace()
{
    struct stat status;
    if (text_.size() > file_.contents.length() && fstat(file_.fd, &status) == 0)
        truncateFile(file_.fd, static_cast<size_t>(status.st_size));
}

// Writes the new contents of the companion into a hidden file next to it.
int Writer::prepareCompanion(std::string_view contents)
{
    if (int const error = companion_->directoryError())
        return fail(FailedCall::fopenToWrite, change_.path, error);
    newCompanion_.reset(createExclusive(companion_->directory(), newCompanionName_));
    int const refused = newCompanion_.isOpen() ? 0 : errno;
    if (refused != 0 && !((isRefusal(refused) || refused == EEXIST) && hadCompanion_))
        return fail(FailedCall::fopenToWrite, refused == EEXIST ? newCompanionPath_ : change_.path,
                    refused);
    bool owned = false;
    if (refused == 0)
        if (int const error = access_.copyTo(newCompanion_.get(), owned))
            return fail(FailedCall::fchmod, change_.path, error);
    if (owned)
        return keepAccess() != 0 ? error_ : fillNewCompanion(contents);
    // No reader would use a companion of another owner, see companion.h.
    if (refused == 0) {
        companion_->directory().remove(newCompanionName_);
        newCompanion_.close();
    }
    if (!hadCompanion_)
        return fail(FailedCall::fchown, change_.path, EPERM);
    return openInPlace();
}

// Keeps the attributes of the companion, and its access control list unless that grants more than
// the file. Attributes that we may not set are lost.
int Writer::keepAccess()
{
    if (!hadCompanion_)
        return 0;
    int error = copyAttributes(companionFile_.descriptor(), newCompanion_.get());
    if ((error == 0 || isForbidden(error)) && oldAccess_.isExtended() &&
        oldAccess_.isWithin(access_, kMayRead | kMayWrite))
        error = oldAccess_.copyListTo(newCompanion_.get());
    return fail(FailedCall::fsetxattr, change_.path, isForbidden(error) ? 0 : error);
}

int Writer::fillNewCompanion(std::string_view contents)
{
    int const fd = newCompanion_.get();
    if (int const error = writeAll(fd, contents))
        return fail(FailedCall::write, change_.path, error);
    if (int const error = syncFile(fd))
        return fail(FailedCall::fsync, change_.path, error);
    return fail(FailedCall::fstat, change_.path, fstat(fd, &newCompanionStatus_) != 0 ? errno : 0);
}

int Writer::openInPlace()
{
    writesInPlace_ = true;
    if (int const error = companion_->openForWriting(companionFile_))
        return fail(FailedCall::fopenToWrite, change_.path, error);
    return restrictInPlace();
}

// Restricts the companion, before it gets its contents, if it grants more than the file.
int Writer::restrictInPlace()
{
    int const fd = companionFile_.descriptor();
    AccessList now;
    bool owned = false;
    int error = now.read(fd);
    if (error == 0 && now.isWithin(access_, kMayRead | kMayWrite))
        return 0;
    if (error == 0)
        error = access_.copyTo(fd, owned);
    if (error == 0)
        error = now.read(fd);
    if (error == 0 && !now.isWithin(access_, kMayRead | kMayWrite))
        error = EPERM;
    return fail(FailedCall::fchmod, change_.path, error);
}

int Writer::prepareReplacement()
{
    FailedCall call{};
    int const error = replacement_->prepare(access_, text_, call);
    return fail(call, replacement_->path(), error);
}

// The new file is durable already; this gives it the name.
int Writer::publishReplacement()
{
    phase_ = Phase::rewritingText;
    if (requireName() != 0)
        return error_;
    int const error = replacement_->publish();
    if (error == 0)
        textDurability_ = Durability::durable;
    if (fail(error == ESTALE ? FailedCall::fopenToUpdate : FailedCall::rename, file_.path, error) !=
        0)
        return error_;
    // publish() has synced the directory since it checked the name.
    return requireName();
}

int Writer::rewriteText()
{
    bool const pads = padded_.length() > 0;
    int const fd = file_.fd;
    phase_ = Phase::rewritingText;
    if (int const error = writeAllAt(fd, pads ? padded_.view() : diff_.rewritten(text_),
                                     static_cast<off_t>(diff_.prefix), &bytesWritten_))
        return fail(FailedCall::write, file_.path, error);
    if (text_.size() < file_.contents.length()) {
        if (int const error = truncateFile(fd, text_.size()))
            return fail(FailedCall::ftruncate, file_.path, error);
        isTruncated_ = true;
    }
    // The modification time notifies other stores, even if only the companion changed.
    if (diff_.isEmpty())
        if (int const error = retryOnEintr([=] { return futimens(fd, nullptr); }))
            return fail(FailedCall::futimens, file_.path, error);
    if (int const error = syncContents(fd)) {
        textDurability_ = Durability::unknown;
        return fail(FailedCall::fdatasync, file_.path, error);
    }
    textDurability_ = Durability::durable;
    struct stat status;
    if (fstat(fd, &status) != 0)
        return fail(FailedCall::fstat, file_.path, errno);
    file_.status = status;
    // An editor may have replaced the file; the companion belongs to the new file then.
    return requireName();
}

int Writer::changeCompanion()
{
    if (companionChange_ == CompanionChange::kept)
        return 0;
    phase_ = Phase::changingCompanion;
    if (int const error = applyCompanionChange())
        return error;
    // The change has been applied. If the directory cannot be synced, the journal stays and
    // describes both states that a power cut may leave.
    int const anyFile = newCompanion_.isOpen() ? newCompanion_.get() : file_.fd;
    if (companionState_ != CompanionState::rewrittenInPlace)
        companionSyncError_ = companion_->directory().sync(anyFile);
    return requireName();
}

int Writer::applyCompanionChange()
{
    Directory const& directory = companion_->directory();
    bool const removes = companionChange_ == CompanionChange::removed;
    if (!writesInPlace_) {
        int const error = removes ? directory.remove(companion_->name())
                                  : directory.rename(newCompanionName_, companion_->name());
        if (error == 0) {
            companionState_ = removes ? CompanionState::removed : CompanionState::renamed;
            return 0;
        }
        if (!hadCompanion_ || !(isFixedName(error) || (removes && error == EACCES)))
            return fail(removes ? FailedCall::unlink : FailedCall::rename, change_.path, error);
        if (companion_->openForWriting(companionFile_) != 0)
            return fail(removes ? FailedCall::unlink : FailedCall::rename, change_.path, error);
        if (!removes && restrictInPlace() != 0)
            return error_;
    }
    return writeCompanionInPlace(removes ? std::string_view() : change_.contents);
}

// An interrupted write leaves a prefix of the new contents, which the journal recognises.
int Writer::writeCompanionInPlace(std::string_view contents)
{
    std::string const& path = change_.path;
    int const fd = companionFile_.descriptor();
    if (int const error = truncateFile(fd, 0))
        return fail(FailedCall::ftruncate, path, error);
    companionState_ = CompanionState::rewrittenInPlace;
    if (int const error = writeAllAt(fd, contents, 0))
        return fail(FailedCall::write, path, error);
    return fail(FailedCall::fsync, path, syncFile(fd));
}

// The new pair is applied and durable. A power cut must not restore a valid journal: an edit by
// another program that has at each offset the old or the new byte would be taken for an interrupted
// rewrite. If the journal cannot be retired, it describes the new pair.
int Writer::retireJournal()
{
    if (companionState_ == CompanionState::rewrittenInPlace)
        removeNewCompanion();
    if (replacement_ != nullptr)
        replacement_->removeHidden();
    if (journal_.isPublished())
        return companionSyncError_ == 0 ? journal_.retire(file_.status.st_dev, file_.fd) : 0;
    if (file_.isCreated)
        file_.directory.sync(file_.fd);  // nothing has synced the name of the new file yet
    return 0;
}

void Writer::removeNewCompanion()
{
    if (newCompanion_.isOpen())
        companion_->directory().remove(newCompanionName_);
}

// ---- Rolling back ------------------------------------------------------------------------------

// Returns whether the store has failed: whether the old pair is restored. Otherwise the journal
// stays, and every reader uses its new pair.
bool Writer::rollBack()
{
    bool const isReplaced = !file_.hasItsName();
    // Restore the companion first: the journal is valid while the text is new or partly rewritten.
    bool isDurable = true;
    bool const isRestored = restoreCompanion() == 0 && restoreText(isDurable) == 0;
    bool const isTouched = bytesWritten_ > 0 || isTruncated_;
    if (isTouched)
        isDurable = syncContents(file_.fd) == 0;
    if (replacement_ != nullptr)
        replacement_->removeHidden();
    removeNewCompanion();
    if (!journal_.isPublished())
        journal_.discard();
    if (phase_ >= Phase::journaled && replacement_ == nullptr)
        returnReservedSpace();
    if (isReplaced || (isRestored && isDurable))
        journal_.retire(file_.status.st_dev, file_.fd);
    // A repeated sync may succeed although the first one lost data: the disk may still have the old
    // text.
    bool const isNewDurable = textDurability_ == Durability::durable ||
                              (textDurability_ == Durability::unsynced && isTouched && isDurable);
    return isRestored || isReplaced || !journal_.isPublished() || !isNewDurable;
}

int Writer::restoreText(bool& isDurable)
{
    if (replacement_ != nullptr) {
        try {
            return replacement_->revert(access_, file_.contents.view(), isDurable);
        } catch (std::bad_alloc const&) {
            return ENOMEM;
        }
    }
    std::string_view const old = file_.contents.view();
    if (bytesWritten_ == 0 && !isTruncated_)
        return 0;
    if (int const error =
            writeAllAt(file_.fd, diff_.rewritten(old), static_cast<off_t>(diff_.prefix)))
        return error;
    return text_.size() > old.size() ? truncateFile(file_.fd, old.size()) : 0;
}

int Writer::restoreInPlace()
{
    int const fd = companionFile_.descriptor();
    int error = truncateFile(fd, 0);
    if (error == 0)
        error = writeAllAt(fd, oldCompanion_.view(), 0);
    if (error == 0)
        return syncFile(fd);
    // The journal recognises an empty companion, but not a prefix of the old one.
    truncateFile(fd, 0);
    return error;
}

// Replaces only a companion that this object wrote.
int Writer::restoreCompanion()
{
    Directory const* const directory = companion_ != nullptr ? &companion_->directory() : nullptr;
    switch (companionState_) {
        case CompanionState::old:
            return 0;
        case CompanionState::rewrittenInPlace:
            return restoreInPlace();
        case CompanionState::renamed:
            newCompanion_.close();
            if (int const error = directory->check(companion_->name(), newCompanionStatus_))
                return error == ESTALE ? 0 : error;
            if (!hadCompanion_)
                return directory->remove(companion_->name());
            break;
        case CompanionState::removed:
            if (!hadCompanion_)
                return 0;
    }
    try {
        if (int const error = prepareCompanion(oldCompanion_.view()))
            return error;
    } catch (std::bad_alloc const&) {
        return ENOMEM;
    }
    int const error = companionState_ == CompanionState::removed
                          ? directory->renameWithoutReplacing(newCompanionName_, companion_->name())
                          : directory->rename(newCompanionName_, companion_->name());
    if (error == 0)
        directory->sync(newCompanion_.get());
    return error;
}

}  // namespace zstore
