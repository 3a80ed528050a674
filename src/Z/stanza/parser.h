// parser: reads the text of a stanza file.
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

// A head that names a category that there is.
struct Repetition {
    std::string_view name;
    int lineNumber;  // 0: there is none
};

// Parses a text into a reader of one of the two kinds; what went in goes out again unless finish()
// was called.
template <class AnyReader>
class Parser {
public:
    Parser(char const* path, AnyReader& reader, bool keepsComments)
        : path_(path), reader_(reader), keepsComments_(keepsComments)
    {
    }

    // Parses `length` bytes of a text, behind which a zero byte stands.
    void parse(char* text, size_t length)
    {
        Expected expected = expect(text, length);
        if (!keepsComments_)
            expected.comments = expected.blanks = 0;
        reader_.reserve(expected);
        LineCutter lines(text, length);
        for (char* line; lines.next(line, length);) {
            number_ = lines.number();
            if (lines.isTorn())
                line = const_cast<char*>(reader_.keep(std::string_view(line, length)).data());
            while (length > 0 && spaces_.has(line[length - 1]))
                --length;
            for (; length > 0 && spaces_.has(*line); --length)
                ++line;
            line[length] = '\0';
            takeLine(line, length);
        }
        reader_.flush();
        refuseRepetition();
    }

    // Returns the name of the companion file, if the text has one; owned by the caller.
    ZLCString_6_0* finish()
    {
        auto* const companion =
            companion_.data() == nullptr ? nullptr : new ZLCString_6_0(companion_.data());
        reader_.finish();
        return companion;
    }

private:
    void takeLine(char* line, size_t length)
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
            takeHead(line, length);
        } else {
            takeKey(line, length);
        }
    }

    void takeHead(char* line, size_t length)
    {
        auto* const end = static_cast<char*>(memchr(line, ']', length));
        if (end == nullptr)
            refuse(line);
        std::string_view const name(line + 1, static_cast<size_t>(end - line) - 1);
        *end = '\0';  // what follows it is ignored
        reader_.addHead(name, number_);
        hasStanza_ = true;
        namesCompanion_ = name == kCompanionCategory;
    }

    void takeKey(char* line, size_t length)
    {
        auto* const sign = static_cast<char*>(memchr(line, '=', length));
        if (sign == nullptr || sign == line || !hasStanza_)
            refuse(line);
        char* end = sign;
        while (spaces_.has(end[-1]))
            --end;
        char* value = sign + 1;
        while (spaces_.has(*value))
            ++value;
        *end = '\0';
        std::string_view const key(line, static_cast<size_t>(end - line));
        std::string_view const text(value, static_cast<size_t>(line + length - value));
        reader_.addKey(key, text);
        if (namesCompanion_ && key == kCompanionKey)
            companion_ = text;
    }

    [[noreturn]] void refuse(char const* line)
    {
        reader_.flush();
        refuseRepetition();
        ZPropertiesInvalidDataException_6_0(path_, line, number_)
            .throwException(kSource, raiseAtLine);
    }

    // Refuses the first head, if any, that names a stanza that there is.
    void refuseRepetition()
    {
        Repetition const& repetition = reader_.repetition();
        if (repetition.lineNumber == 0)
            return;
        // A zero byte was put into the line behind the name.
        auto* const name = const_cast<char*>(repetition.name.data());
        name[repetition.name.size()] = ']';
        ZPropertiesInvalidDataException_6_0(path_, name - 1, repetition.lineNumber)
            .throwException(kSource, raiseAtLine);
    }

    char const* const path_;
    AnyReader& reader_;
    Spaces const spaces_;
    bool const keepsComments_;
    bool hasStanza_ = false;
    bool namesCompanion_ = false;  // the current stanza does, with one of its keys
    int number_ = 0;               // of the current line
    std::string_view companion_ = {nullptr, 0};
};

}  // namespace zstanza
