// edited_file: a file that is loaded to be changed and stored, and the run of a verb on it.
#pragma once

#include <Z/lines/mixed_keys.h>

#include <functional>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

#include "stanza_file.h"

class ZStanzaProblem_6_0;

// Lines that do not change are stored byte for byte, unless the whole file is normalised. Nothing
// is written before finish().
class EditedFile {
public:
    /// Loads the file of a request, or standard input.
    /// throws  Failure; as ZProperties_6_0::load().
    explicit EditedFile(Request const& request);
    EditedFile(EditedFile const&) = delete;
    EditedFile& operator=(EditedFile const&) = delete;

    /// Returns the store. Call willChange() before a change.
    Store& store() { return store_; }

    /// Returns the file name for reports.
    std::string const& path() const { return request_.file; }

    /// Records that a stanza changes, or one key of it if `key` is not empty.
    /// range   `removesLines`: the change removes or replaces all lines of the key or stanza.
    void willChange(std::string const& stanza, std::string const& key, bool removesLines);

    /// Returns the text that finish() stores.
    std::string text() const;

    /// Returns false if the text has no comment with a line of the key and several marks, as
    /// turnOff() writes them.
    /// cost    O(n) in the first call, and in the first call after setText().
    bool mayHaveSeveralMarks(std::string const& key);

    /// Returns whether the values of a key do not have all its lines: lines without a value are
    /// options in the dialect, and the key has lines with a value, too.
    /// cost    O(n) in the first call, and in the first call after setText().
    bool hasMixedLines(std::string const& stanza, std::string const& key);

    /// Replaces the text. The obfuscated values stay.
    /// throws  ZPropertiesInvalidDataException_6_0; the file cannot be stored then.
    void setText(std::string const& text);

    /// Stores the file; prints the difference or, for standard input, the text.
    /// throws  Failure if the changes are in a stanza with a line that is not read completely or,
    ///         in a normalised file, if a line would be lost that no change removes; as
    ///         ZProperties_6_0::store(). The file is unchanged then.
    void finish();

    /// Returns whether finish() changes the file.
    bool isChanged() const;

private:
    struct Change {
        std::string stanza;
        std::string key;
        bool removesLines;
    };

    void requireKeptLines() const;
    void findMarkedKeys(std::string const& text);
    bool removes(ZStanzaProblem_6_0 const& problem) const;
    bool touches(ZStanzaProblem_6_0 const& problem) const;
    std::string secrets() const;
    bool isStoredDirectly() const;
    void storeAll();
    void storeText(std::string const& text) const;
    void storeCopy() const;
    void printDifference(std::string const& text) const;

    Request const& request_;
    bool isNew_ = false;
    Store store_;
    std::string original_;
    std::string originalSecrets_;
    std::vector<Change> changes_;
    bool isText_ = false;                                        // setText() was called
    std::optional<std::unordered_set<std::string>> markedKeys_;  // of mayHaveSeveralMarks()
    std::optional<zlines::MixedKeys> mixedKeys_;                 // of hasMixedLines()
};

/// Makes a change and stores the file. Waits for a busy file. Returns the exit code.
int runChange(Request const& request,
              std::function<void(EditedFile&, Request const&)> const& apply);
