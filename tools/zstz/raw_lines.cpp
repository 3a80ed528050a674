#include "raw_lines.h"

#include <ctype.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>
#include <utility>

namespace {

std::string_view trimmed(std::string_view text)
{
    auto const isSpace = [](char c) { return isspace(static_cast<unsigned char>(c)) != 0; };
    while (!text.empty() && isSpace(text.back()))
        text.remove_suffix(1);
    while (!text.empty() && isSpace(text.front()))
        text.remove_prefix(1);
    return text;
}

// Calls `visit(line, stanza, key, hasValue)` for the key lines of a stanza file, read as the
// library reads them.
template <class Visit>
void eachKeyLine(std::string const& path, Visit visit)
{
    std::string stanza;
    survey(path, [&](Piece const& piece) {
        std::string_view const text = trimmed(piece.bytes.substr(0, piece.bytes.find('\0')));
        size_t const sign = text.find('=');
        if (text.empty() || text.front() == '#')
            return true;
        if (text.front() == '[')
            stanza = text.substr(1, text.find(']') - 1);
        else if (sign != text.npos)
            visit(piece.line, stanza, std::string(trimmed(text.substr(0, sign))),
                  sign + 1 < text.size());
        return true;
    });
}

}  // namespace

char const* reportOfMark(std::string_view bytes)
{
    auto const begins = [bytes](std::string_view mark) {
        return bytes.substr(0, mark.size()) == mark;
    };
    if (begins("\xEF\xBB\xBF"))
        return "the file begins with a byte order mark; save it as UTF-8 without one";
    if (begins("\xFF\xFE") || begins("\xFE\xFF"))
        return "the file is UTF-16 text; save it as UTF-8 without a byte order mark";
    return nullptr;
}

std::string contents(std::string const& path)
{
    std::string text;
    int const fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0)
        return text;
    struct stat status;
    if (fstat(fd, &status) == 0 && S_ISREG(status.st_mode)) {
        char part[65536];
        ssize_t got;
        while ((got = read(fd, part, sizeof part)) > 0)
            text.append(part, static_cast<size_t>(got));
    }
    close(fd);
    return text;
}

void survey(std::string const& path, std::function<bool(Piece const&)> const& visit)
{
    // A piece ends behind a line feed, or with as many bytes as a line and its line feed may have.
    constexpr size_t kMost = kLongestLine + 1;
    std::string const text = contents(path);
    std::string_view rest = text;
    size_t number = 0, line = 1;
    bool isRest = false;
    while (!rest.empty()) {
        size_t const feed = rest.substr(0, kMost).find('\n');
        bool const ends = feed != std::string_view::npos;
        std::string_view const bytes = rest.substr(0, ends ? feed : kMost);
        rest.remove_prefix(bytes.size() + (ends ? 1 : 0));
        bool const goesOn = !ends && !rest.empty();
        if (!visit({++number, line, isRest || goesOn, bytes.find('\0') != bytes.npos, bytes}))
            return;
        isRest = goesOn;
        if (ends)
            ++line;
    }
}

std::string reportOf(DroppedLine const& dropped)
{
    return "key " + dropped.key +
           " has no value on this line but other lines or obfuscated values, and storing drops the "
           "line; remove it, or give it a value";
}

std::vector<DroppedLine> droppedLines(
    std::string const& path,
    std::function<bool(std::string const&, std::string const&)> const& isObfuscated)
{
    // Few files have lines without a value, so that the keys of such lines are counted only then.
    std::map<std::pair<std::string, std::string>, bool> hasValues;
    eachKeyLine(path, [&](size_t, std::string const& stanza, std::string const& key, bool value) {
        if (!value)
            hasValues.try_emplace({stanza, key}, isObfuscated(stanza, key));
    });
    std::vector<DroppedLine> dropped;
    if (hasValues.empty())
        return dropped;
    eachKeyLine(path, [&](size_t, std::string const& stanza, std::string const& key, bool value) {
        if (auto const known = hasValues.find({stanza, key}); value && known != hasValues.end())
            known->second = true;
    });
    // Of several lines without a value the first is written.
    eachKeyLine(path,
                [&](size_t line, std::string const& stanza, std::string const& key, bool value) {
                    if (!value && std::exchange(hasValues.at({stanza, key}), true))
                        dropped.push_back({line, stanza, key});
                });
    return dropped;
}
