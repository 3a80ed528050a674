// writer: replaces the text and the companion of a locked file, or changes nothing.
//
// Phases, in this order. "old..new": partly rewritten; the journal describes it.
//
//     phase              text      companion  after a failure
//     preparing          old       old        the new journal is removed
//     journaled          old       old        the journal is retired
//     rewritingText      old..new  old        the text is restored, the journal retired
//     changingCompanion  new       old..new   the companion, then the text, is restored
//     applied            new       new        cannot fail: only the journal remains to be retired
//
// If the old pair cannot be restored, because the cause of the failure lasts, the journal stays,
// and every reader uses the new pair of the journal. So the store has succeeded, and reports
// success. Only if the text can neither be synced nor restored does a store fail with the new pair.
// If the directory allows no journal, "journaled" is skipped, and these guarantees do not hold.
#pragma once

#include <sys/stat.h>

#include <memory>
#include <string>
#include <string_view>

#include "../files/access.h"
#include "companion.h"
#include "journal_file.h"
#include "main_file.h"
#include "replacement.h"
#include "text_diff.h"

namespace zstore {

// How a store changes the companion.
struct CompanionChange {
    enum Change { kept, written, removed } change = kept;
    std::string path;
    std::string_view contents;  // to write
    bool isNamed = true;        // by the old text: so an existing file is a companion
};

class Writer {
public:
    /// Prepares a store of `text` into the locked file.
    /// throws  IoError (path, "access()", EPERM) if the companion may not be used; std::bad_alloc.
    Writer(MainFile& file, std::string_view text, CompanionChange const& companion);
    Writer(Writer const&) = delete;
    Writer& operator=(Writer const&) = delete;
    ~Writer();

    /// Allows the new journal to replace this file, which is not a valid journal.
    void replaceInvalidJournal(struct stat const& status) { journal_.allowReplacing(status); }

    /// Makes commit() give the name to a new file instead of rewriting the text in place.
    /// throws  std::bad_alloc.
    void replaceFile() { replacement_ = std::make_unique<Replacement>(file_); }

    /// Makes commit() write nothing if text and companion already have the new contents.
    void skipUnchanged() { skipsUnchanged_ = true; }

    /// Writes the journal, then text and companion.
    /// throws  IoError, std::bad_alloc: nothing has changed.
    void commit();

    /// Completes the store of a crashed writer with its journal.
    /// throws  IoError, std::bad_alloc: the journal still describes the pair.
    void replay(struct stat const& journal);

private:
    enum class Phase { preparing, journaled, rewritingText, changingCompanion, applied };
    enum class Durability { unsynced, durable, unknown };
    enum class CompanionState { old, renamed, removed, rewrittenInPlace };

    int fail(FailedCall call, std::string const& file, int error);
    [[noreturn]] void throwError() const;

    void openOldCompanion();
    void readOldCompanion();
    bool isAsWanted() const;
    int syncUnchangedCompanion(bool& isNameSynced) const;

    int requireName();
    int writeJournal();
    int refuse(int error);
    int writeJournalContents();
    int syncJournal();
    int prepareWithoutJournal();

    int replacePair();
    int reserve();
    int prepareCompanion(std::string_view contents);
    int fillNewCompanion(std::string_view contents);
    int openInPlace();
    int keepAccess();
    int restrictInPlace();
    int prepareReplacement();
    int rewriteText();
    int publishReplacement();
    int changeCompanion();
    int applyCompanionChange();
    int writeCompanionInPlace(std::string_view contents);
    int retireJournal();
    void removeNewCompanion();

    bool rollBack();
    int restoreText(bool& isDurable);
    int restoreCompanion();
    int restoreInPlace();
    void returnReservedSpace();

    MainFile& file_;
    std::string_view const text_;
    TextDiff const diff_;  // between the contents of the file and `text_`
    CompanionChange const& change_;
    CompanionChange::Change companionChange_;

    // Created in advance: after the journal is published, nothing allocates memory.
    JournalFile journal_;
    std::string const journalPath_;
    std::string const temporaryJournalPath_;
    std::string companionInJournal_;  // absolute: another process may complete this store
    std::unique_ptr<CompanionFile> companion_;
    std::unique_ptr<Replacement> replacement_;  // if the text is not rewritten in place
    std::string const newCompanionName_;
    std::string newCompanionPath_;
    AccessList access_;     // of the file
    AccessList oldAccess_;  // of the companion
    Bytes padded_;          // written instead of a shorter text if there is no journal
    Bytes oldCompanion_;    // its contents
    bool skipsUnchanged_ = false;
    bool hadCompanion_ = false;
    bool writesInPlace_ = false;  // the companion's name cannot be replaced
    int companionSyncError_ = 0;  // of the directory, after the change
    SharedFile companionFile_;    // the old companion
    ScopedFd newCompanion_;
    struct stat newCompanionStatus_ = {};

    Phase phase_ = Phase::preparing;
    CompanionState companionState_ = CompanionState::old;
    Durability textDurability_ = Durability::unsynced;
    size_t bytesWritten_ = 0;  // of the text
    bool isTruncated_ = false;

    FailedCall call_{};
    std::string const* failedFile_ = nullptr;
    int error_ = 0;
    int refusal_ = 0;  // why the directory allows no journal: an errno
};

}  // namespace zstore
