#include "commands.h"

#include <errno.h>
#include <limits.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>

#include "failures.h"
#include "problems.h"
#include "stanza_file.h"

namespace {

constexpr char kMask[] = "********";

void requireKey(ZProperties_6_0& store, Request const& request)
{
    requireStanza(store, request.file, request.stanza);
    if (store.exists(request.stanza.c_str(), request.key.c_str()) == 0)
        throw Failure{exitNotFound,
                      request.file,
                      {"no key " + quote(request.key) + " in [" + request.stanza + "]",
                       "run 'zstz keys " + shellWord(request.file) + " " +
                           shellWord(request.stanza) + "' to list them"}};
}

// ---- Changing ---------------------------------------------------------------------------------

// Turns terminal echo off in this scope. A terminating signal turns it on again first. SIGTSTP is
// ignored, because a stopped tool would leave echo off.
class ScopedEchoOff {
public:
    ScopedEchoOff()
    {
        if (tcgetattr(STDIN_FILENO, &saved_) != 0)
            return;
        for (int const ending : {SIGHUP, SIGINT, SIGQUIT, SIGTERM})
            if (signal(ending, showAndEnd) == SIG_IGN)
                signal(ending, SIG_IGN);
        stop_ = signal(SIGTSTP, SIG_IGN);
        termios hidden = saved_;
        hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &hidden);
        isHidden_ = true;
    }
    ScopedEchoOff(ScopedEchoOff const&) = delete;
    ScopedEchoOff& operator=(ScopedEchoOff const&) = delete;
    ~ScopedEchoOff()
    {
        if (!isHidden_)
            return;
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved_);
        signal(SIGTSTP, stop_);
        fputc('\n', stderr);
    }

private:
    static void showAndEnd(int number)
    {
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved_);
        signal(number, SIG_DFL);
        raise(number);
    }

    static termios saved_;
    void (*stop_)(int) = SIG_DFL;
    bool isHidden_ = false;
};

termios ScopedEchoOff::saved_;

// Reads a line from the terminal without echo.
std::string promptForValue()
{
    ScopedEchoOff const hidden;
    fputs("value: ", stderr);
    std::string line;
    for (int c = getchar(); c != EOF && c != '\n'; c = getchar())
        line += static_cast<char>(c);
    return line;
}

// Reads standard input to its end and drops one trailing newline.
std::string readInput()
{
    std::string value;
    char chunk[4096];
    size_t length;
    while ((length = fread(chunk, 1, sizeof chunk, stdin)) > 0)
        value.append(chunk, length);
    if (ferror(stdin))
        throw Failure{exitNoAccess, "standard input", {"cannot read the value", "pipe it in"}};
    if (!value.empty() && value.back() == '\n')
        value.pop_back();
    return value;
}

// Reads a value that must not appear on the command line.
std::string readValue()
{
    std::string const value = isatty(STDIN_FILENO) ? promptForValue() : readInput();
    if (value.empty())  // for example, the command before the pipe failed
        throw Failure{
            exitInvalidValue,
            "",
            {"no value on standard input", "pipe one in, or remove the key with 'zstz unset'"}};
    if (value.find('\0') != std::string::npos)
        throw Failure{
            exitInvalidValue, "standard input", {"the value has a zero byte", "remove it"}};
    return value;
}

std::string requestedValue(Request const& request)
{
    return request.obfuscated ? readValue() : request.value;
}

// The values of a key are all plain or all obfuscated.
void checkKind(ZProperties_6_0& store, Request const& request)
{
    if (store.numValues(request.stanza.c_str(), request.key.c_str()) == 0)
        return;
    bool const obfuscated = store.isObfuscated(request.stanza.c_str(), request.key.c_str()) != 0;
    if (obfuscated == request.obfuscated)
        return;
    std::string const key = nameKey(request.key, request.stanza);
    throw Failure{exitRefused, request.file,
                  obfuscated ? Problem{key + " has obfuscated values",
                                       "pass --obfuscated, or remove the key with 'zstz unset'"}
                             : Problem{key + " has plain values",
                                       "leave out --obfuscated, or "
                                       "remove the key with 'zstz unset'"}};
}

EditedFile::Edit editOf(Request const& request)
{
    return {request.stanza, request.key, request.wholeStanza || request.all, request.normalise};
}

// Refuses a change that would remove more than one value, unless --all is set.
void checkCount(ZProperties_6_0& store, Request const& request, char const* verb,
                char const* alternative)
{
    int const count = store.numValues(request.stanza.c_str(), request.key.c_str());
    if (count > 1 && !request.all)
        throw Failure{
            exitRefused,
            request.file,
            {nameKey(request.key, request.stanza) + " has " + std::to_string(count) + " values",
             std::string("pass --all to ") + verb + (count == 2 ? " both" : " all") + alternative}};
}

// Refuses a number outside the range of unsigned int. The library would return another number: it
// negates modulo 2^32 and clamps at the maximum.
void checkNumber(std::string const& value, Request const& request)
{
    char const* const text = value.c_str() + value.find_first_not_of(" \t\n\v\f\r");
    errno = 0;
    unsigned long const wide = strtoul(text, nullptr, 0);
    if (errno != 0 || wide > UINT_MAX || (*text == '-' && wide != 0))
        throw Failure{exitInvalidValue,
                      request.file,
                      {nameKey(request.key, request.stanza) + ": " + quote(value) +
                           " is not a number from 0 to " + std::to_string(UINT_MAX),
                       "leave out --as to print it unchanged"}};
}

}  // namespace

int runGet(Request const& request)
{
    LoadedFile file(request.file);
    requireKey(file.store(), request);
    char const* const stanza = request.stanza.c_str();
    char const* const key = request.key.c_str();
    if (request.as == "number") {
        unsigned const number = file.store().getIntegerValue(stanza, key, 0, 0);
        std::vector<std::string> const values = file.values(request.stanza, request.key);
        if (!values.empty() && !values.back().empty())
            checkNumber(values.back(), request);
        printf("%u\n", number);
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
    std::string const value = requestedValue(request);
    checkNames(request.file, request.stanza, request.key);
    if (!request.obfuscated)
        checkValue(request.file, request.key, value);
    EditedFile file(request.file, editOf(request));
    checkKind(file.store(), request);
    checkCount(file.store(), request, "replace", ", or use 'zstz add'");
    file.store().setValue(request.stanza.c_str(), request.key.c_str(), value.c_str(),
                          request.obfuscated);
    file.store().setReplacing(request.replace);
    file.store().store(nullptr);
    return exitDone;
}

int runAdd(Request const& request)
{
    std::string const value = requestedValue(request);
    checkNames(request.file, request.stanza, request.key);
    if (!request.obfuscated)
        checkValue(request.file, request.key, value);
    if (value.empty())
        throw Failure{exitInvalidValue,
                      request.file,
                      {nameKey(request.key, request.stanza) + ": cannot add an empty value",
                       "use 'zstz set' for a key without a value"}};
    EditedFile file(request.file, editOf(request));
    checkKind(file.store(), request);
    file.store().addValue(request.stanza.c_str(), request.key.c_str(), value.c_str(),
                          request.obfuscated);
    file.store().setReplacing(request.replace);
    file.store().store(nullptr);
    return exitDone;
}

int runUnset(Request const& request)
{
    checkReserved(request.file, request.stanza);
    EditedFile file(request.file, editOf(request));
    if (request.wholeStanza) {
        requireStanza(file.store(), request.file, request.stanza);
        file.store().deleteStanza(request.stanza.c_str());
    } else {
        requireKey(file.store(), request);
        checkCount(file.store(), request, "remove", "");
        file.store().deleteKey(request.stanza.c_str(), request.key.c_str());
    }
    file.store().setReplacing(request.replace);
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
    requireStanza(file.store(), request.file, request.stanza);
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
        requireStanza(file.store(), request.file, request.stanza);
    char const* gap = "";
    for (Stanza const& stanza : file.outline()) {
        if (!request.stanza.empty() && stanza.name != request.stanza)
            continue;
        printf("%s[%s]\n", gap, stanza.name.c_str());
        gap = "\n";
        for (std::string const& key : stanza.keys) {
            bool const masked = file.isObfuscated(stanza.name, key);
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

void printNote(std::string const& path, ZStanzaProblem_6_0 const& problem)
{
    printf("%s: note: %s\n", nameLine(path, problem.line()).c_str(), problem.text().getChars());
}

void checkFile(std::string const& path)
{
    LoadedFile const file(path);
    size_t stanzas = 0, keys = 0, values = 0;
    for (Stanza const& stanza : file.outline()) {
        ++stanzas;
        keys += stanza.keys.size();
        for (std::string const& key : stanza.keys)
            values += file.valueCount(stanza.name, key);
    }
    printf("%s: %s, %s, %s\n", path.c_str(), formatCount(stanzas, "stanza", "stanzas").c_str(),
           formatCount(keys, "key", "keys").c_str(),
           formatCount(values, "value", "values").c_str());
    // First the lines that are not read completely, then the lines that are ignored.
    using Problem = ZStanzaProblem_6_0;
    Problems const problems(path);
    for (bool const isIgnored : {false, true})
        for (unsigned i = 0; i < problems.size(); ++i) {
            Problem::Cause const cause = problems[i].cause();
            if (isIgnored ? cause == Problem::droppedLine || cause == Problem::omitted
                          : cause == Problem::splitLine || cause == Problem::zeroByte)
                printNote(path, problems[i]);
        }
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
