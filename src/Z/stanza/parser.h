// parser: classifies the lines of a stanza file, and refuses invalid lines.
#pragma once

#include <string.h>

#include <string_view>

#include "../ZException.h"
#include "../ZLCString.h"
#include "line_splitter.h"
#include "raise_sites.h"
#include "reserved_entry.h"
#include "whitespace.h"

namespace zstanza {

// A header whose category exists already.
struct DuplicateHeader {
    std::string_view name;
    int lineNumber;  // 0 if there is no such header
};

// Passes the lines of a file to a reader, which adds them to a cache. Lines are parsed in place:
// the parser writes a zero byte after each name, value and comment.
template <class AnyReader>
class Parser {
public:
    Parser(char const* path, AnyReader& reader, bool keepsComments)
        : path_(path), reader_(reader), keepsComments_(keepsComments)
    {
    }

    /// Parses `length` bytes, which a zero byte follows.
    /// throws  ZPropertiesInvalidDataException_6_0 (path, line text, line number) for an invalid
    ///         line or a duplicate header; any exception of the reader.
    void parse(char* text, size_t length)
    {
        LineCounts counts = estimateLines(text, length);
        if (!keepsComments_)
            counts.comments = counts.blanks = 0;
        reader_.reserve(counts);
        LineSplitter lines(text, length);
        for (char* line; lines.next(line, length);) {
            number_ = lines.number();
            if (lines.isSplit())
                line = const_cast<char*>(reader_.copy(std::string_view(line, length)).data());
            while (length > 0 && whitespace_.contains(line[length - 1]))
                --length;
            for (; length > 0 && whitespace_.contains(*line); --length)
                ++line;
            line[length] = '\0';
            parseLine(line, length);
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
    void parseLine(char* line, size_t length)
    {
        if (length == 0) {
            if (keepsComments_)
                reader_.addBlank();
        } else if (*line == '#') {
            if (keepsComments_)
                reader_.addComment(std::string_view(line, length));
            else
                reader_.drop(std::string_view(line, length));
        } else if (*line == '[') {
            parseHeader(line, length);
        } else {
            parseKey(line, length);
        }
    }

    void parseHeader(char* line, size_t length)
    {
        auto* const end = static_cast<char*>(memchr(line, ']', length));
        if (end == nullptr)
            refuse(line);
        std::string_view const name(line + 1, static_cast<size_t>(end - line) - 1);
        *end = '\0';  // the rest of the line is ignored
        reader_.addHeader(name, number_);
        hasStanza_ = true;
        isReserved_ = name == kReservedCategory;
    }

    void parseKey(char* line, size_t length)
    {
        auto* const sign = static_cast<char*>(memchr(line, '=', length));
        if (sign == nullptr || sign == line || !hasStanza_)
            refuse(line);
        char* end = sign;
        while (whitespace_.contains(end[-1]))
            --end;
        char* value = sign + 1;
        while (whitespace_.contains(*value))
            ++value;
        *end = '\0';
        std::string_view const key(line, static_cast<size_t>(end - line));
        std::string_view const text(value, static_cast<size_t>(line + length - value));
        reader_.addKey(key, text);
        if (isReserved_ && key == kReservedKey)
            companion_ = text;
    }

    [[noreturn]] void refuse(char const* line)
    {
        reader_.flush();
        refuseDuplicate();
        ZPropertiesInvalidDataException_6_0(path_, line, number_)
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
        ZPropertiesInvalidDataException_6_0(path_, name - 1, duplicate.lineNumber)
            .throwException(kSource, raiseAtLine);
    }

    char const* const path_;
    AnyReader& reader_;
    WhitespaceTable const whitespace_;
    bool const keepsComments_;
    bool hasStanza_ = false;
    bool isReserved_ = false;  // the current stanza has the reserved entry
    int number_ = 0;           // of the current line
    std::string_view companion_ = {nullptr, 0};
};

}  // namespace zstanza
