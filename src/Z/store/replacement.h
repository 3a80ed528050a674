// replacement: a new file that takes the name of the main file, for readers that take no lock.
//
// It has owner, mode, access control list and attributes of the main file, and is locked before it
// gets the name. Until the store is complete the old file keeps a hidden name, so that the exchange
// can be undone.
#pragma once

#include <string>
#include <string_view>

#include "access.h"
#include "main_file.h"

namespace zstore {

class Replacement {
public:
    explicit Replacement(MainFile& main);
    Replacement(Replacement const&) = delete;
    Replacement& operator=(Replacement const&) = delete;

    std::string const& path() const { return path_; }

    /// Creates the hidden file with the new text. Returns 0 or an errno; `call` is the call that
    /// failed.
    /// throws  std::bad_alloc.
    int prepare(AccessList const& access, std::string_view text, char const*& call);

    /// Exchanges the files, and makes that durable. Returns 0 or an errno: ESTALE if the name means
    /// another file.
    int publish();

    /// Exchanges the files back if they have been exchanged. Returns 0 or an errno. `isDurable` is
    /// set to whether the disk has that.
    int revert(bool& isDurable);

    /// Removes the file with the hidden name.
    void removeHidden();

private:
    int checkLeftover() const;
    int exchangeBack();
    void use(ZSharedFile const& file, struct stat const& status);

    MainFile& main_;
    std::string const name_;
    std::string const path_;
    struct stat old_ = {};
    struct stat new_ = {};
    bool isPrepared_ = false;
    bool isPublished_ = false;
    bool keepsOld_ = false;  // under the hidden name
};

}  // namespace zstore
