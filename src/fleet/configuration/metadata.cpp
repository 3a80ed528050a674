#include "configuration/metadata.h"

#include <Z/ZSqueeze.h>
#include <errno.h>
#include <inttypes.h>
#include <limits.h>
#include <pwd.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/random.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <new>
#include <string_view>

#include "transport/failure.h"

namespace zfleet {

namespace {

constexpr size_t kMaxEntrySize = size_t{16} << 20;  // expanded, in bytes

std::string randomId()
{
    unsigned char bytes[16];
    if (getrandom(bytes, sizeof bytes, 0) != static_cast<ssize_t>(sizeof bytes))
        throw CallError{"getrandom()", errno, false, "no random numbers"};
    std::string id;
    char digits[3];
    for (unsigned char const byte : bytes) {
        snprintf(digits, sizeof digits, "%02x", byte);
        id += digits;
    }
    return id;
}

std::string hostName()
{
    char name[HOST_NAME_MAX + 1] = "";
    gethostname(name, sizeof name - 1);
    return name;
}

std::string userName()
{
    char buffer[4096];
    passwd entry;
    passwd* found = nullptr;
    if (getpwuid_r(geteuid(), &entry, buffer, sizeof buffer, &found) == 0 && found != nullptr)
        return found->pw_name;
    return std::to_string(geteuid());
}

// A value is one line.
std::string oneLine(std::string text)
{
    std::replace_if(
        text.begin(), text.end(), [](unsigned char byte) { return byte < ' '; }, ' ');
    return text;
}

// Calls `visit` with name and value of each line, up to a blank line. Returns the bytes up to it.
template <class Visit>
size_t forEachLine(std::string_view lines, Visit visit)
{
    size_t at = 0;
    while (at < lines.size()) {
        size_t const end = std::min(lines.find('\n', at), lines.size());
        std::string_view const line = lines.substr(at, end - at);
        at = std::min(end + 1, lines.size());
        if (line.empty())
            break;
        size_t const space = std::min(line.find(' '), line.size());
        visit(line.substr(0, space), std::string(line.substr(std::min(space + 1, line.size()))));
    }
    return at;
}

}  // namespace

Metadata makeMetadata(uint64_t generation, int64_t base, std::string const& reason)
{
    return {generation,     randomId(), base,
            hostName(),     userName(), static_cast<int64_t>(time(nullptr)),
            oneLine(reason)};
}

std::string format(Metadata const& metadata)
{
    return "generation " + std::to_string(metadata.generation) + "\nid " + metadata.id + "\nbase " +
           std::to_string(metadata.base) + "\nhost " + metadata.host + "\nuser " + metadata.user +
           "\ntime " + std::to_string(metadata.time) + "\nreason " + metadata.reason + "\n";
}

Metadata parseMetadata(std::string const& lines)
{
    Metadata metadata;
    forEachLine(lines, [&](std::string_view name, std::string const& value) {
        if (name == "generation")
            metadata.generation = strtoull(value.c_str(), nullptr, 10);
        else if (name == "id")
            metadata.id = value;
        else if (name == "base")
            metadata.base = strtoll(value.c_str(), nullptr, 10);
        else if (name == "host")
            metadata.host = value;
        else if (name == "user")
            metadata.user = value;
        else if (name == "time")
            metadata.time = strtoll(value.c_str(), nullptr, 10);
        else if (name == "reason")
            metadata.reason = value;
    });
    return metadata;
}

std::string format(LogEntry const& entry, size_t maxSize)
{
    std::string const block = entry.text + entry.hidden;
    std::string packed(block.size() + (block.size() >> 10) + 64, '\0');  // the bound of zlib
    unsigned long size = packed.size();
    ZSqueeze_6_0 squeeze;
    int const code =
        squeeze.compress(reinterpret_cast<unsigned char*>(packed.data()), &size,
                         reinterpret_cast<unsigned char const*>(block.data()), block.size());
    if (code != 0)
        throw std::bad_alloc();
    packed.resize(size);
    std::string const head = format(entry.metadata);
    if (size > maxSize)
        return head + "omitted 1\n\n";
    return head + "text " + std::to_string(entry.text.size()) + "\nhidden " +
           std::to_string(entry.hidden.size()) + "\n\n" + packed;
}

bool parseLogEntry(std::string const& bytes, LogEntry& entry)
{
    size_t textSize = 0;
    size_t hiddenSize = 0;
    bool isOmitted = false;
    size_t const start = forEachLine(bytes, [&](std::string_view name, std::string const& value) {
        if (name == "text")
            textSize = strtoull(value.c_str(), nullptr, 10);
        else if (name == "hidden")
            hiddenSize = strtoull(value.c_str(), nullptr, 10);
        else if (name == "omitted")
            isOmitted = true;
    });
    entry = {parseMetadata(bytes.substr(0, start)), {}, {}, isOmitted};
    if (isOmitted)
        return true;
    if (textSize > kMaxEntrySize || hiddenSize > kMaxEntrySize)
        return false;
    std::string block(textSize + hiddenSize + 1, '\0');
    unsigned long size = block.size();
    ZSqueeze_6_0 squeeze;
    int const code = squeeze.uncompress(
        reinterpret_cast<unsigned char*>(block.data()), &size,
        reinterpret_cast<unsigned char const*>(bytes.data() + start), bytes.size() - start);
    if (code != 0 || size != textSize + hiddenSize)
        return false;
    entry.text = block.substr(0, textSize);
    entry.hidden = block.substr(textSize, hiddenSize);
    return true;
}

}  // namespace zfleet
