// replacement: a new file that takes the name of the main file, for readers that take no lock.
//
// It has owner, mode, access control list and attributes of the main file, and is locked before it
// gets the name. Until the store is complete the old file has a hidden name, so that the exchange
// can be undone. If the file system cannot exchange two names, the old file is lost, and the change
// is undone with another new file that has the old text.
#pragma once

#include <string>
#include <string_view>

#include "../files/access.h"
#include "main_file.h"

namespace zstore {

class Replacement {
public:
    explicit Replacement(MainFile& main);
    Replacement(Replacement const&) = delete;
    Replacement& operator=(Replacement const&) = delete;

    std::string const& path() const { return path_; }

    /// Creates the hidden file with the new text. Returns 0 or an errno; `call` is the failed call.
    /// throws  std::bad_alloc.
    int prepare(AccessList const& access, std::string_view text, FailedCall& call);

    /// Exchanges the files, and makes that durable. Returns 0 or an errno: ESTALE if the name
    /// refers to another file.
    int publish();

    /// Undoes publish(); `oldText` is the text of the old file. Returns 0 or an errno. Sets
    /// `isDurable` to whether the change back is durable.
    /// throws  std::bad_alloc, if the names cannot be exchanged.
    int revert(AccessList const& access, std::string_view oldText, bool& isDurable);

    /// Removes the file with the hidden name.
    void removeHidden();

private:
    int checkLeftover() const;
    int create(AccessList const& access, std::string_view text, SharedFile& file,
               struct stat& status, FailedCall& call);
    int exchangeBack();
    int replaceBack(AccessList const& access, std::string_view oldText);
    void use(SharedFile const& file, struct stat const& status);

    MainFile& main_;
    std::string const name_;
    std::string const path_;
    struct stat old_ = {};
    struct stat new_ = {};
    SharedFile restored_;  // a file with the old text that undoes a rename
    bool isPrepared_ = false;
    bool isPublished_ = false;
    bool keepsOld_ = false;  // under the hidden name
};

}  // namespace zstore
