// dialect: how the lines of a file are recognised, and how names and values are spelled.
//
// The difference writer calls a dialect for everything that depends on the format. A dialect has no
// state; a single object serves all files and threads. The results are views of the text or of
// `space`, a string of the caller that the next call overwrites.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "line.h"

namespace zlines {

// The replacement of a range of bytes.
struct Replacement {
    uint32_t begin;
    uint32_t end;
    std::string text;

    // The size of the comment lines at the start of `text`: they were between the lines of a value,
    // and are above its key now.
    size_t commentBytes = 0;
};

// The line of a new value, for the spellings that have further lines.
struct LineForm {
    std::string_view indent;
    std::string_view lineEnding;
};

class Dialect {
public:
    Dialect() = default;
    Dialect(Dialect const&) = delete;
    Dialect& operator=(Dialect const&) = delete;
    virtual ~Dialect() = default;

    // --- reading

    /// Appends the lines of `text` to `lines`. Each begins where the one before it ends; the first
    /// may begin after a byte order mark. Refuses nothing: an invalid line is an otherLine. Returns
    /// whether all lines are valid.
    virtual bool split(std::string_view text, std::vector<Line>& lines) const = 0;

    /// Return the name of a header or of a key line, as the cache compares it.
    virtual std::string_view stanzaName(std::string_view text, Line const& header,
                                        std::string& space) const;
    virtual std::string_view keyName(std::string_view text, Line const& line,
                                     std::string& space) const;

    /// Return a name of the cache as it is compared with the names above.
    virtual std::string_view comparableStanza(std::string_view name, std::string& space) const;
    virtual std::string_view comparableKey(std::string_view name, std::string& space) const;

    /// Returns whether different names can be compared as the same name. Then the functions below
    /// return the name of a header or of a key line as the cache has it.
    virtual bool foldsNames() const { return false; }
    virtual std::string_view writtenStanza(std::string_view text, Line const& header,
                                           std::string& space) const
    {
        return stanzaName(text, header, space);
    }
    virtual std::string_view writtenKey(std::string_view text, Line const& line,
                                        std::string& space) const
    {
        return keyName(text, line, space);
    }

    /// Returns the value of a valueLine.
    virtual std::string_view value(std::string_view text, Line const& line,
                                   std::string& space) const;

    /// Returns whether readers of the format read the value of a valueLine in different ways. No
    /// such value is written.
    virtual bool isAmbiguous(std::string_view, Line const&) const { return false; }

    /// Returns a comment of the cache without its mark, and without whitespace around the rest.
    virtual std::string_view commentText(std::string_view comment) const = 0;

    /// Returns whether a key can have an empty value. Otherwise empty values are not written.
    virtual bool hasEmptyValues() const { return true; }

    /// Returns whether an empty value of a key resets the values above it.
    virtual bool hasResets() const { return false; }

    /// Returns whether a file without a header and a key is valid.
    virtual bool acceptsWithoutKeys(std::string_view) const { return true; }

    /// Returns whether a second header of a name makes a file invalid.
    virtual bool refusesRepeatedHeaders() const { return false; }

    /// Returns whether a comment can follow a value in its line.
    virtual bool hasCommentsAfterValues() const { return true; }

    /// Returns the stanza of the keys above the first header; empty if there are no such keys.
    virtual std::string_view topStanza() const { return {}; }

    /// Returns whether a second header of a name continues the stanza. Otherwise it starts the
    /// stanza NAME]2.
    virtual bool joinsHeaders() const { return true; }

    /// Returns whether the reading of a key line depends on more than the line above it: on the
    /// header, or on the indentation of the key above.
    virtual bool needsContext() const { return false; }

    // --- spelling

    /// Return the dialect's own style, for a file that shows none.
    virtual std::string_view ownSeparator() const = 0;
    virtual std::string_view ownComment() const = 0;  // the mark of a comment
    virtual std::string_view ownIndent() const { return {}; }

    /// Returns the bytes that separate a key from its value.
    virtual std::string_view separatorBytes() const = 0;

    /// Returns the maximum length of a line, without its line ending.
    virtual size_t maxLineLength() const = 0;

    virtual void appendHeader(std::string_view name, std::string& out) const = 0;
    virtual void appendKey(std::string_view name, std::string& out) const { out += name; }

    /// Returns the number of spellings of a value: plain, escaped, quoted and so on. The writer
    /// takes the first that reads back in its line.
    virtual unsigned spellingCount() const { return 1; }

    /// Appends a value of a new line. Returns false if the dialect does not write it in this way.
    virtual bool appendValue(std::string_view value, unsigned spelling, LineForm const& form,
                             std::string& out) const;

    /// Returns how a new line of a key without a value continues after the key, if the lines around
    /// it have `separator`.
    virtual std::string keyOnlyEnd(std::string_view separator) const = 0;

    /// Returns the change that gives the key of `line`, which ends at `end`, another value; nothing
    /// if the dialect does not write the value in this way. The order of the spellings depends on
    /// the line. The default replaces the bytes of the value only.
    virtual std::optional<Replacement> replaceValue(std::string_view text, Line const& line,
                                                    uint32_t end, std::string_view value,
                                                    unsigned spelling) const;

    /// Returns the change that leaves the key of a valueLine without a value.
    virtual Replacement removeValue(std::string_view text, Line const& line) const;

    /// Return the change that gives a header or a key line another name.
    virtual Replacement renameHeader(std::string_view text, Line const& header,
                                     std::string_view name) const;
    virtual Replacement renameKey(std::string_view text, Line const& line,
                                  std::string_view name) const;

    /// Returns the change that removes a key line, which ends at `end`.
    virtual Replacement removeLine(std::string_view text, Line const& line, uint32_t end) const;
};

// The owner of a dialect. A dialect that lives as long as the program has none.
using SharedDialect = std::shared_ptr<Dialect const>;

inline SharedDialect withoutOwner(Dialect const& dialect)
{
    return SharedDialect(SharedDialect(), &dialect);
}

}  // namespace zlines
