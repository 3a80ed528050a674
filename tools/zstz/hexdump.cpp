// hexdump: the verb zstz hexdump, which prints files of any size with the library's hex dump.
#include <Z/zhex_dump.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>

#include "commands.h"
#include "failures.h"

namespace {

constexpr size_t kBytesPerLine = 16;

// The library starts each dump at offset 0. In a chunk of this size all offsets have four digits,
// so all lines have the same length and the offset can be replaced. The dump of a chunk is small
// enough for malloc to reuse its memory.
constexpr size_t kChunkSize = 0x1000;
constexpr size_t kOffsetEnd = 5;  // in a line: a newline and four digits
constexpr size_t kColumnStart = 59;
constexpr size_t kColumnEnd = kColumnStart + kBytesPerLine;
constexpr size_t kLineLength = kColumnEnd + 1;

// Returns the library's dump of `length` bytes.
std::string formatDump(unsigned char const* data, size_t length, char const* title)
{
    char* text = nullptr;
    size_t size = 0;
    FILE* const memory = open_memstream(&text, &size);
    if (memory == nullptr)
        throw std::bad_alloc();
    zhex_dump_6_0(memory, static_cast<int>(length), data, title);
    bool const isComplete = fclose(memory) == 0;
    std::string const result = isComplete ? std::string(text, size) : "";
    free(text);
    if (!isComplete)
        throw std::bad_alloc();
    return result;
}

// Replaces bytes outside ASCII, which could be control sequences of a terminal.
void maskNonAscii(char* line)
{
    for (size_t i = kColumnStart; i < kColumnEnd; ++i)
        if (static_cast<unsigned char>(line[i]) >= 0x7F)
            line[i] = '.';
}

// Appends `offset` in hexadecimal, at least four digits.
void appendOffset(std::string& out, unsigned long long offset)
{
    char digits[16];
    char* const end = std::to_chars(digits, digits + sizeof digits, offset, 16).ptr;
    size_t const count = static_cast<size_t>(end - digits);
    out.append(count < 4 ? 4 - count : 0, '0').append(digits, count);
}

void dumpStream(FILE* in, std::string const& path, char const* title)
{
    bool const toTerminal = isatty(STDOUT_FILENO) != 0;
    if (title != nullptr) {
        std::string titleLine = formatDump(nullptr, 0, title);
        titleLine.pop_back();  // the newline that ends a dump
        fputs(titleLine.c_str(), stdout);
    }
    std::vector<unsigned char> chunk(kChunkSize);
    std::string out;
    unsigned long long offset = 0;
    for (;;) {
        size_t const length = fread(chunk.data(), 1, chunk.size(), in);
        if (ferror(in))
            throw Failure{exitNoAccess,
                          path,
                          {std::string("cannot read: ") + strerror(errno), "give a readable file"}};
        std::string text = formatDump(chunk.data(), length, nullptr);
        out.clear();
        for (size_t at = 0; at + kLineLength <= text.size(); at += kLineLength) {
            if (toTerminal)
                maskNonAscii(text.data() + at);
            out += '\n';
            appendOffset(out, offset);
            out.append(text, at + kOffsetEnd, kLineLength - kOffsetEnd);
            offset += kBytesPerLine;
        }
        fwrite(out.data(), 1, out.size(), stdout);
        if (length < chunk.size() || ferror(stdout))
            break;
    }
    putchar('\n');
}

void dumpFile(std::string const& path, char const* title)
{
    if (path == "-") {
        dumpStream(stdin, "standard input", title);
        return;
    }
    FILE* const file = fopen(path.c_str(), "re");
    if (file == nullptr)
        throw describeOpenError(path, errno);
    try {
        dumpStream(file, path, title);
    } catch (...) {
        fclose(file);
        throw;
    }
    fclose(file);
}

}  // namespace

int runHexdump(Request const& request)
{
    int worst = exitDone;
    for (std::string const& path : request.files) {
        try {
            dumpFile(path, request.files.size() > 1 ? path.c_str() : nullptr);
        } catch (...) {
            worst = std::max(worst, report(describe(std::current_exception(), path)));
        }
    }
    return worst;
}
