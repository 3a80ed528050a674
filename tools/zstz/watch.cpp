// watch: the verb watch.
//
// Only complete states of the file are compared: those after a rename, after a program has closed
// the file, and after a store of the library. Reading takes a lease, which no writer passes; where
// leases are not available, a state that was read while the file was being written is dropped.
#include <Z/ZException.h>
#include <errno.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <optional>

#include "busy.h"
#include "commands.h"
#include "contents.h"
#include "dialect_choice.h"
#include "failures.h"
#include "file_watch.h"
#include "output.h"

namespace {

constexpr int kRetryInterval = 20;     // milliseconds
constexpr int kMissingInterval = 500;  // milliseconds
constexpr int kMaxQuietTries = 100;    // after them, a program has the file open and does not write

// Returns `text` as a word of a shell command.
std::string toWord(std::string const& text)
{
    bool isPlain = !text.empty() && text != "-";
    std::string quoted = "'";
    for (char const c : text) {
        bool const isSafe = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') ||
                            (c >= 'a' && c <= 'z') || static_cast<unsigned char>(c) >= 0x80 ||
                            std::string_view("_-./:,+@%=").find(c) != std::string_view::npos;
        isPlain = isPlain && isSafe;
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return isPlain ? text : quoted + '\'';
}

std::string formatPlain(Change const& change)
{
    std::string line =
        toWord(change.stanza) + ' ' + (change.key.empty() ? "-" : toWord(change.key));
    for (ValueState const* state : {&change.before, &change.after})
        line += ' ' + (state->kind == ValueState::absent ? std::string("-")
                                                         : toWord(shownValue(change, *state)));
    return line;
}

class Watcher {
public:
    explicit Watcher(Request const& request)
        : request_(request), dialect_(chooseDialect(request, request.file)), watch_(request.file)
    {
    }

    [[noreturn]] void run()
    {
        state_ = readComplete(true);
        bool isMissing = false, isNoted = false;
        for (;;) {
            // An editor may create the file again.
            if (!watch_.wait(isMissing && !isNoted ? kMissingInterval : -1)) {
                noteMissingFile();
                isNoted = true;
                continue;
            }
            std::optional<FileContents> fresh;
            isMissing = false;
            try {
                fresh = readComplete(false);
                isMissing = !fresh;
            } catch (...) {
                report(describe(std::current_exception(), request_.file));
            }
            isNoted = isNoted && isMissing;
            if (!fresh)
                continue;
            print(*state_, *fresh);
            state_ = std::move(fresh);
        }
    }

private:
    void noteMissingFile() const
    {
        if (!request_.quiet)
            fprintf(stderr, "zstz: %s: note: the file is missing; waiting for a new one\n",
                    toPrintable(request_.file).c_str());
    }

    // Reads a state that a program has left. Returns nothing if the file does not exist now.
    std::optional<FileContents> readComplete(bool isFirst)
    {
        for (int tries = 0;; ++tries) {
            bool const isMissing = access(request_.file.c_str(), F_OK) != 0 && errno == ENOENT;
            if (isMissing && !isFirst)
                return {};
            bool const isQuiet = tries >= kMaxQuietTries && !watch_.isBeingWritten();
            if (auto contents = tryToRead(isQuiet))
                return contents;
            if (watch_.wait(tries < kMaxQuietTries ? kRetryInterval : -1))
                tries = 0;
        }
    }

    // Returns nothing if the file was being written.
    std::optional<FileContents> tryToRead(bool isQuiet)
    {
        WriteGuard const guard(request_.file);
        if (guard.state() == WriteGuard::busy && !isQuiet)
            return {};
        if (guard.state() != WriteGuard::held && watch_.isBeingWritten() && !isQuiet)
            return {};
        bool const isUnguarded = guard.state() != WriteGuard::held;
        Store store(dialect_);
        if (store.isStanzaFile() && request_.format == "json")  // its objects have lines
            store.setAttributes(ZPCache_6_0::keepComments | ZPCache_6_0::keepLines, nullptr);
        try {
            loadOnce(request_.file, store);
        } catch (ZPropertiesIOException_6_0 const& failure) {
            if (isBusy(failure) && !isQuiet)
                return {};
            throw;
        } catch (ZPropertiesInvalidDataException_6_0 const&) {
            if (isUnguarded && watch_.isBeingWritten())
                return {};
            throw;
        } catch (Failure const& failure) {
            if (failure.code == exitInvalidData && isUnguarded && watch_.isBeingWritten())
                return {};
            throw;
        }
        bool const isComplete = guard.state() == WriteGuard::held
                                    ? guard.isCurrent()
                                    : isQuiet || !watch_.isBeingWritten();
        return isComplete ? std::optional(contentsOf(store)) : std::nullopt;
    }

    void print(FileContents const& before, FileContents const& after)
    {
        for (Change const& change : compareContents(before, after)) {
            if (!isWanted(change, after))
                continue;
            printLine(request_, request_.format == "json"
                                    ? formatJson(change, request_.file, &after, change.after.line)
                                : request_.format == "lines" ? formatFields(change)
                                                             : formatPlain(change));
        }
        if (fflush(stdout) != 0)
            throw Failure{
                exitNoAccess, "standard output", {"cannot write", "check its destination"}};
    }

    // Returns whether the change is in the stanza and key of the request, in any spelling.
    bool isWanted(Change const& change, FileContents const& file) const
    {
        std::string stanza = request_.stanza, key = request_.key, space;
        if (file.text != nullptr) {
            zlines::Dialect const& dialect = file.text->kept->dialect;
            stanza = std::string(dialect.comparableStanza(stanza, space));
            key = std::string(dialect.comparableKey(key, space));
        }
        return (stanza.empty() || stanza == change.comparableStanza) &&
               (key.empty() || key == change.comparableKey);
    }

    Request const& request_;
    ZStanzaDialect_6_0 const dialect_;
    FileWatch watch_;
    std::optional<FileContents> state_;
};

}  // namespace

int runWatch(Request const& request)
{
    struct stat status;
    if (stat(request.file.c_str(), &status) == 0 && S_ISDIR(status.st_mode))
        throw Failure{exitNoAccess, request.file, {"is a directory", "give a regular file"}};
    Watcher(request).run();
}
