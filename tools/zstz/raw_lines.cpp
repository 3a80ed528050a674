#include "raw_lines.h"

#include <Z/stanza/limits.h>
#include <Z/stanza/line_parts.h>
#include <Z/stanza/line_splitter.h>
#include <Z/stanza/whitespace.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>
#include <utility>

namespace {

// Calls `visit(number, stanza, key, hasValue)` for each key line of a stanza file. Parses a line as
// the library does.
template <class Visit>
void forEachKeyLine(std::string const& path, Visit visit)
{
    std::string stanza;
    zstanza::WhitespaceTable const whitespace;
    forEachRawLine(path, [&](RawLine const& line) {
        std::string_view const text = whitespace.trim(line.bytes);
        if (text.empty() || text.front() == '#')
            return true;
        if (text.front() == '[')
            stanza = zstanza::findHeaderName(text).value_or("");
        else if (auto const parts = zstanza::splitKeyLine(text, whitespace))
            visit(line.number, stanza, std::string(parts->key), !parts->value.empty());
        return true;
    });
}

}  // namespace

std::optional<Problem> describeByteOrderMark(std::string_view bytes)
{
    if (bytes.starts_with("\xEF\xBB\xBF"))
        return Problem{"the file starts with a byte order mark", "save it as UTF-8 without one"};
    if (bytes.starts_with("\xFF\xFE") || bytes.starts_with("\xFE\xFF"))
        return Problem{"the file is UTF-16", "save it as UTF-8 without a byte order mark"};
    return {};
}

std::string readFile(std::string const& path)
{
    std::string text;
    int const fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0)
        return text;
    struct stat status;
    if (fstat(fd, &status) == 0 && S_ISREG(status.st_mode)) {
        char chunk[65536];
        ssize_t length;
        while ((length = read(fd, chunk, sizeof chunk)) > 0)
            text.append(chunk, static_cast<size_t>(length));
    }
    close(fd);
    return text;
}

void forEachRawLine(std::string const& path, std::function<bool(RawLine const&)> const& visit)
{
    std::string const text = readFile(path);
    char const* const end = text.data() + text.size();
    zstanza::LineSplitter lines(text.data(), text.size());
    size_t libraryNumber = 0, number = 1;
    bool isContinuation = false;
    char const* bytes;
    for (size_t length; lines.next(bytes, length);) {
        // The splitter ends a line at its first zero byte.
        bool const hasZero =
            length < zstanza::kMaxReadLength && bytes + length != end && bytes[length] == '\0';
        if (!visit({++libraryNumber, number, isContinuation || lines.isSplit(), hasZero,
                    std::string_view(bytes, length)}))
            return;
        isContinuation = lines.isSplit();
        if (!isContinuation)
            ++number;
    }
}

std::optional<Problem> describeRawLine(RawLine const& line)
{
    if (line.isSplit)
        return Problem{"the line exceeds " + std::to_string(zstanza::kMaxLineLength) +
                           " bytes and would be split",
                       "shorten it or use a line per value"};
    if (line.hasZero)
        return Problem{"the line has a zero byte and is ignored after it", "remove the zero byte"};
    return {};
}

Problem describeDroppedLine(DroppedLine const& dropped)
{
    return {"key " + quote(dropped.key) +
                " has no value here but values elsewhere, and storing drops this line",
            "remove it, or give it a value"};
}

std::vector<DroppedLine> findDroppedLines(
    std::string const& path,
    std::function<bool(std::string const&, std::string const&)> const& isObfuscated)
{
    // Few files have lines without a value: the map has only the keys of these lines.
    std::map<std::pair<std::string, std::string>, bool> hasValues;
    forEachKeyLine(path,
                   [&](size_t, std::string const& stanza, std::string const& key, bool value) {
                       if (!value)
                           hasValues.try_emplace({stanza, key}, isObfuscated(stanza, key));
                   });
    std::vector<DroppedLine> dropped;
    if (hasValues.empty())
        return dropped;
    forEachKeyLine(
        path, [&](size_t, std::string const& stanza, std::string const& key, bool value) {
            if (auto const known = hasValues.find({stanza, key}); value && known != hasValues.end())
                known->second = true;
        });
    // If a key has only lines without a value, storing writes the first.
    forEachKeyLine(
        path, [&](size_t number, std::string const& stanza, std::string const& key, bool value) {
            if (!value && std::exchange(hasValues.at({stanza, key}), true))
                dropped.push_back({number, stanza, key});
        });
    return dropped;
}
