#include "commands.h"

#include <Z/ZArrayList.h>
#include <Z/ZPropertiesImpl.h>
#include <Z/ZStanzaFileProperties.h>
#include <ctype.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/file.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <unordered_set>

#include "failures.h"
#include "survey.h"

namespace {

constexpr char kMask[] = "********";

// The stanza in which a store keeps the name of the companion file.
constexpr char kReserved[] = "configuration-database";

std::string text(ZLCString_6_0 const& string)
{
    return std::string(string.getChars(), string.getLength());
}

std::string text(ZObject_6_0 const* name)
{
    return text(static_cast<ZLCString_6_0 const&>(*name));
}

// ---- Reading ----------------------------------------------------------------------------------

struct Stanza {
    std::string name;
    std::vector<std::string> keys;
};

// A configuration file as it was read: the store, and the cache in which its lines stand in order.
class LoadedFile {
public:
    explicit LoadedFile(std::string const& path) : cache_(new ZSCFData_6_0), store_(cache_)
    {
        store_.load(path.c_str());
    }

    // The stanzas with their keys, in file order. Behind them comes what has no line in the file
    // because the companion file alone knows it.
    std::vector<Stanza> outline() const
    {
        std::vector<Stanza> stanzas;
        std::unordered_set<std::string> placed;  // "stanza", "stanza\nkey"

        ZArrayList_6_0 lines(64, 1);
        cache_->getLines(lines);
        for (unsigned i = 0; i < lines.size(); ++i) {
            auto const& line = static_cast<ZPropLine_6_0 const&>(*lines.get(i));
            std::string const name = text(line.text());
            if (line.type() == ZPropLine_6_0::stanzaHead) {
                stanzas.push_back({name, {}});
                placed.insert(name);
            } else if (line.type() == ZPropLine_6_0::keyLine && !stanzas.empty()) {
                stanzas.back().keys.push_back(name);
                placed.insert(stanzas.back().name + '\n' + name);
            }
        }

        ZArrayList_6_0 names(64, 1);
        cache_->getNames(names);
        for (unsigned i = 0; i < names.size(); ++i) {
            std::string const name = text(names.get(i));
            if (placed.insert(name).second)
                stanzas.push_back({name, {}});
        }
        for (Stanza& stanza : stanzas) {
            ZArrayList_6_0 keys(64, 1);
            cache_->getNames(stanza.name.c_str(), keys);
            for (unsigned i = 0; i < keys.size(); ++i) {
                std::string const key = text(keys.get(i));
                if (placed.insert(stanza.name + '\n' + key).second)
                    stanza.keys.push_back(key);
            }
        }
        return stanzas;
    }

    std::vector<std::string> values(std::string const& stanza, std::string const& key)
    {
        ZArrayList_6_0 list(4, 1);
        store_.getValues(stanza.c_str(), key.c_str(), list, zPropLocalStrings);
        std::vector<std::string> values;
        for (unsigned i = 0; i < list.size(); ++i)
            values.push_back(text(list.get(i)));
        return values;
    }

    ZProperties_6_0& store() { return store_; }

private:
    ZSCFData_6_0* cache_;  // owned by the store
    ZProperties_6_0 store_;
};

void needStanza(ZProperties_6_0& store, Request const& request)
{
    if (store.exists(request.stanza.c_str()) == 0)
        throw Failure{exitNotFound, "there is no stanza [" + request.stanza + "] in " +
                                        request.file + "; `zstz stanzas` lists what there is"};
}

void needKey(ZProperties_6_0& store, Request const& request)
{
    needStanza(store, request);
    if (store.exists(request.stanza.c_str(), request.key.c_str()) == 0)
        throw Failure{exitNotFound, "there is no key " + request.key + " in stanza [" +
                                        request.stanza + "] of " + request.file +
                                        "; `zstz keys` lists what there is"};
}

// ---- Changing ---------------------------------------------------------------------------------

// Keeps other zstz processes from changing the file between our reading and storing it. The
// library locks it against everybody, but only while it reads and while it writes. Whoever may read
// the file may hold this lock, so that waiting for it has an end.
class Turn {
public:
    explicit Turn(std::string const& path)
        : fd_(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK))
    {
        // A file that cannot be opened is reported when it is loaded.
        if (fd_ < 0)
            return;
        for (int tries = 0; flock(fd_, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK; ++tries) {
            if (tries == kTries) {
                close(fd_);
                throw Failure{exitLocked,
                              path + " is being changed by another process; try again in a moment"};
            }
            usleep(kBetweenTries);
        }
    }
    Turn(Turn const&) = delete;
    Turn& operator=(Turn const&) = delete;
    ~Turn()
    {
        if (fd_ >= 0)
            close(fd_);
    }

private:
    static constexpr int kTries = 100;
    static constexpr useconds_t kBetweenTries = 50000;  // microseconds

    int fd_;
};

// Reads a line from the terminal without showing it.
std::string askForValue()
{
    termios shown;
    bool const hide = tcgetattr(STDIN_FILENO, &shown) == 0;
    if (hide) {
        termios hidden = shown;
        hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &hidden);
    }
    fputs("value: ", stderr);
    std::string line;
    for (int c = getchar(); c != EOF && c != '\n'; c = getchar())
        line += static_cast<char>(c);
    if (hide) {
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &shown);
        fputc('\n', stderr);
    }
    return line;
}

// Reads a value from standard input: all of it but one line feed at its end.
std::string readValue()
{
    if (isatty(STDIN_FILENO))
        return askForValue();
    std::string value;
    char part[4096];
    size_t got;
    while ((got = fread(part, 1, sizeof part, stdin)) > 0)
        value.append(part, got);
    if (ferror(stdin))
        throw Failure{exitNoAccess, "cannot read the value; give it on standard input"};
    if (!value.empty() && value.back() == '\n')
        value.pop_back();
    if (value.find('\0') != std::string::npos)
        throw Failure{exitInvalidValue, "the value has a NUL byte in it; take it out"};
    return value;
}

std::string valueOf(Request const& request)
{
    return request.obfuscated ? readValue() : request.value;
}

bool isSpace(char c)
{
    return isspace(static_cast<unsigned char>(c)) != 0;
}

// The store writes the reserved stanza itself; what is changed there by hand costs the obfuscated
// values.
void checkReserved(Request const& request)
{
    if (request.stanza == kReserved)
        throw Failure{exitRefused, "the stanza [" + request.stanza +
                                       "] is reserved for the name of the companion file and is "
                                       "kept up to date by itself; use another stanza"};
}

// Says what is wrong with names and value where the file could not give them back.
void checkText(Request const& request, std::string const& value)
{
    checkReserved(request);
    if (ZPCategoryBasedCache_6_0::validateCategory(request.stanza.c_str()) == 0)
        throw Failure{exitInvalidValue,
                      "the stanza name " + quoted(request.stanza) +
                          " cannot be stored; use one line of text without \"]\""};
    if (ZPCategoryBasedCache_6_0::validateKey(request.stanza.c_str(), request.key.c_str()) == 0)
        throw Failure{exitInvalidValue,
                      "the key " + quoted(request.key) +
                          " cannot be stored; use one line of text that has no \"=\", no outer "
                          "blanks and no leading \"#\" or \"[\""};
    if (request.obfuscated)
        return;
    if (ZPCategoryBasedCache_6_0::validateValue(request.key.c_str(), value.c_str()) == 0)
        throw Failure{exitInvalidValue,
                      "the value of key " + request.key +
                          " cannot be stored; use one line of at most 8190 bytes"};
    if (!value.empty() && (isSpace(value.front()) || isSpace(value.back())))
        throw Failure{exitInvalidValue, "the value " + quoted(value) + " of key " + request.key +
                                            " begins or ends with white space, which a line does "
                                            "not keep; leave that out, or use --obfuscated, "
                                            "which keeps it"};
}

// A key keeps one kind of values.
void checkKind(ZProperties_6_0& store, Request const& request)
{
    if (store.numValues(request.stanza.c_str(), request.key.c_str()) == 0)
        return;
    bool const obfuscated = store.isObfuscated(request.stanza.c_str(), request.key.c_str()) != 0;
    if (obfuscated == request.obfuscated)
        return;
    throw Failure{
        exitRefused,
        "key " + request.key + " in [" + request.stanza + "] of " + request.file +
            (obfuscated ? " holds obfuscated values; use --obfuscated, or unset it first"
                        : " holds plain values; leave out --obfuscated, or unset it first")};
}

// A file that is read, changed and stored with its comments, while no other zstz does so.
class EditedFile {
public:
    explicit EditedFile(std::string const& path) : turn_(path), store_(path.c_str(), 1)
    {
        // What is not read whole would not be written back whole.
        survey(path, [&path](Piece const& piece) {
            if (char const* const loss = piece.isTorn    ? kTornLine
                                         : piece.hasZero ? kZeroByte
                                                         : nullptr)
                throw Failure{exitRefused, path + ":" + std::to_string(piece.line) +
                                               ": the file would not be stored as it is: " + loss};
            return true;
        });
    }

    ZStanzaFileProperties_6_0& store() { return store_; }

private:
    Turn const turn_;
    ZStanzaFileProperties_6_0 store_;
};

// Refuses what would take several values from a key at once.
void checkCount(ZProperties_6_0& store, Request const& request, char const* advice)
{
    int const count = store.numValues(request.stanza.c_str(), request.key.c_str());
    if (count > 1 && !request.all)
        throw Failure{exitRefused, "key " + request.key + " in [" + request.stanza + "] of " +
                                       request.file + " has " + std::to_string(count) +
                                       " values; use --all to " + advice};
}

}  // namespace

int runGet(Request const& request)
{
    LoadedFile file(request.file);
    needKey(file.store(), request);
    char const* const stanza = request.stanza.c_str();
    char const* const key = request.key.c_str();
    if (request.as == "number") {
        printf("%u\n", file.store().getIntegerValue(stanza, key, 0, 0));
    } else if (request.as == "boolean") {
        puts(file.store().getBooleanValue(stanza, key, 0, 0) ? "yes" : "no");
    } else {
        std::vector<std::string> const values = file.values(request.stanza, request.key);
        if (request.all) {
            for (std::string const& value : values)
                puts(value.c_str());
        } else {
            puts(values.empty() ? "" : values.back().c_str());
        }
    }
    return exitDone;
}

int runSet(Request const& request)
{
    std::string const value = valueOf(request);
    checkText(request, value);
    EditedFile file(request.file);
    checkKind(file.store(), request);
    checkCount(file.store(), request, "replace them all, or `zstz add`");
    file.store().setValue(request.stanza.c_str(), request.key.c_str(), value.c_str(),
                          request.obfuscated);
    file.store().store(nullptr);
    return exitDone;
}

int runAdd(Request const& request)
{
    std::string const value = valueOf(request);
    checkText(request, value);
    if (value.empty())
        throw Failure{exitInvalidValue,
                      "an empty value cannot be added; `zstz set` makes a key "
                      "without a value"};
    EditedFile file(request.file);
    checkKind(file.store(), request);
    file.store().addValue(request.stanza.c_str(), request.key.c_str(), value.c_str(),
                          request.obfuscated);
    file.store().store(nullptr);
    return exitDone;
}

int runUnset(Request const& request)
{
    checkReserved(request);
    EditedFile file(request.file);
    if (request.wholeStanza) {
        needStanza(file.store(), request);
        file.store().deleteStanza(request.stanza.c_str());
    } else {
        needKey(file.store(), request);
        checkCount(file.store(), request, "remove them all");
        file.store().deleteKey(request.stanza.c_str(), request.key.c_str());
    }
    file.store().store(nullptr);
    return exitDone;
}

int runStanzas(Request const& request)
{
    LoadedFile const file(request.file);
    for (Stanza const& stanza : file.outline())
        puts(stanza.name.c_str());
    return exitDone;
}

int runKeys(Request const& request)
{
    LoadedFile file(request.file);
    needStanza(file.store(), request);
    for (Stanza const& stanza : file.outline()) {
        if (stanza.name == request.stanza)
            for (std::string const& key : stanza.keys)
                puts(key.c_str());
    }
    return exitDone;
}

int runList(Request const& request)
{
    LoadedFile file(request.file);
    if (!request.stanza.empty())
        needStanza(file.store(), request);
    char const* gap = "";
    for (Stanza const& stanza : file.outline()) {
        if (!request.stanza.empty() && stanza.name != request.stanza)
            continue;
        printf("%s[%s]\n", gap, stanza.name.c_str());
        gap = "\n";
        for (std::string const& key : stanza.keys) {
            bool const masked = file.store().isObfuscated(stanza.name.c_str(), key.c_str()) != 0;
            std::vector<std::string> const values = file.values(stanza.name, key);
            if (values.empty())
                printf("%s =\n", key.c_str());
            for (std::string const& value : values)
                printf("%s = %s\n", key.c_str(), masked ? kMask : value.c_str());
        }
    }
    return exitDone;
}

namespace {

void checkFile(std::string const& path)
{
    LoadedFile file(path);
    size_t stanzas = 0, keys = 0, values = 0;
    for (Stanza const& stanza : file.outline()) {
        ++stanzas;
        keys += stanza.keys.size();
        for (std::string const& key : stanza.keys)
            values += static_cast<size_t>(file.store().numValues(stanza.name.c_str(), key.c_str()));
    }
    printf("%s: %zu stanzas, %zu keys, %zu values\n", path.c_str(), stanzas, keys, values);
    size_t line = 0;
    survey(path, [&](Piece const& piece) {
        if ((piece.isTorn || piece.hasZero) && piece.line != line)
            printf("%s:%zu: note: %s\n", path.c_str(), line = piece.line,
                   piece.isTorn ? kTornLine : kZeroByte);
        return true;
    });
}

}  // namespace

int runCheck(Request const& request)
{
    int worst = exitDone;
    for (std::string const& path : request.files) {
        try {
            checkFile(path);
        } catch (...) {
            worst = std::max(worst, report(describe(std::current_exception(), path)));
        }
    }
    return worst;
}
