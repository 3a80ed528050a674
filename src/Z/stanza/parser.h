// parser: classifies the lines of a stanza file, and refuses invalid lines.
#pragma once

#include <string_view>

#include "../ZException.h"
#include "../ZLCString.h"
#include "../lines/columns.h"
#include "line_parts.h"
#include "line_splitter.h"
#include "raise_sites.h"
#include "reserved_entry.h"
#include "whitespace.h"

namespace zstanza {

// A header whose category exists already.
struct DuplicateHeader {
    std::string_view name;
    int lineNumber;  // 0 if there is no such header
    int indent;      // bytes of the line before its "["
};

// Passes the lines of a file to a reader, which adds them to a cache. Lines are parsed in place:
// the parser writes a zero byte after each name, value and comment.
//
// A reader with `beginLine` gets every line first, and `refuse` gets every invalid line: the parser
// continues with the next line instead of throwing. A header without "]" is a header to the lines
// after it.
template <class AnyReader>
class Parser {
public:
    Parser(char const* path, AnyReader& reader, bool keepsComments)
        : path_(path), reader_(reader), keepsComments_(keepsComments)
    {
    }

    /// Parses `length` bytes that can be written, and that a zero byte follows.
    /// throws  ZPropertiesInvalidDataException_6_0 (path, line text, line number) for an invalid
    ///         line or a duplicate header; any exception of the reader.
    void parse(char* text, size_t length)
    {
        LineCounts counts = estimateLines(text, length);
        if (!keepsComments_)
            counts.comments = counts.blanks = 0;
        reader_.reserve(counts);
        LineSplitter lines(text, length);
        for (char const* bytes; lines.next(bytes, length);) {
            number_ = lines.number();
            std::string_view line(bytes, length);
            if constexpr (kCollects)
                line = reader_.beginLine(line, lines);
            if (lines.isSplit())
                line = reader_.copy(line);
            start_ = line.data();
            line = whitespace_.trim(line);
            terminate(line);
            parseLine(line);
        }
        reader_.flush();
        refuseDuplicate();
    }

    /// Makes the reader keep the lines. Returns the path of the companion, or null if the text has
    /// no reserved entry.
    /// owns    owned by the caller; released with delete.
    ZLCString_6_0* finish()
    {
        auto* const companion =
            companion_.data() == nullptr ? nullptr : new ZLCString_6_0(companion_.data());
        reader_.finish();
        return companion;
    }

private:
    static constexpr bool kCollects = requires(AnyReader & reader, LineSplitter const& lines)
    {
        reader.beginLine(std::string_view(), lines);
    };

    // Writes a zero byte after a piece of the text, which can be written.
    static void terminate(std::string_view part)
    {
        const_cast<char*>(part.data())[part.size()] = '\0';
    }

    void parseLine(std::string_view line)
    {
        if (line.empty()) {
            if (keepsComments_)
                reader_.addBlank();
        } else if (line.front() == '#') {
            if (keepsComments_)
                reader_.addComment(line);
            else
                reader_.drop(line);
        } else if (line.front() == '[') {
            parseHeader(line);
        } else {
            parseKey(line);
        }
    }

    void parseHeader(std::string_view line)
    {
        auto const name = findHeaderName(line);
        if (!name) {
            refuse(line, line.size());
            hasStanza_ = true;
            isReserved_ = false;
            return;
        }
        terminate(*name);
        reader_.addHeader(*name, number_, static_cast<int>(line.data() - start_));
        hasStanza_ = true;
        isReserved_ = *name == kReservedCategory;
    }

    void parseKey(std::string_view line)
    {
        auto const parts = splitKeyLine(line, whitespace_);
        if (!parts || !hasStanza_) {
            refuse(line, 0);
            return;
        }
        terminate(parts->key);
        reader_.addKey(parts->key, parts->value);
        if (isReserved_ && parts->key == kReservedKey)
            companion_ = parts->value;
    }

    // Refuses a line because of its byte at `index`. Returns only if the reader collects such
    // lines.
    void refuse(std::string_view line, size_t index)
    {
        if constexpr (kCollects) {
            reader_.refuse(line, index);
            return;
        }
        reader_.flush();
        refuseDuplicate();
        std::string_view const before(start_, static_cast<size_t>(line.data() - start_) + index);
        ZPropertiesInvalidDataException_6_0(path_, line.data(), number_,
                                            static_cast<int>(zlines::countCharacters(before)) + 1)
            .throwException(kSource, raiseAtLine);
    }

    // Refuses the first duplicate header, if any.
    void refuseDuplicate()
    {
        DuplicateHeader const& duplicate = reader_.duplicate();
        if (duplicate.lineNumber == 0)
            return;
        // Restore the byte that parseHeader() replaced.
        auto* const name = const_cast<char*>(duplicate.name.data());
        name[duplicate.name.size()] = ']';
        // Each byte of the indentation is a character; the "[" is before the name.
        ZPropertiesInvalidDataException_6_0(path_, name - 1, duplicate.lineNumber,
                                            duplicate.indent + 2)
            .throwException(kSource, raiseAtLine);
    }

    char const* const path_;
    AnyReader& reader_;
    WhitespaceTable const whitespace_;
    bool const keepsComments_;
    bool hasStanza_ = false;
    bool isReserved_ = false;      // the current stanza has the reserved entry
    int number_ = 0;               // of the current line
    char const* start_ = nullptr;  // its first byte
    std::string_view companion_ = {nullptr, 0};
};

}  // namespace zstanza
