#include "failures.h"

#include <Z/ZException.h>
#include <Z/files/io_error.h>
#include <Z/reporting/messages.h>
#include <Z/stanza/raise_sites.h>
#include <Z/stanza/reserved_entry.h>
#include <Z/store/limits.h>
#include <Z/store/names.h>
#include <ctype.h>
#include <errno.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <wchar.h>
#include <wctype.h>

#include <algorithm>
#include <optional>
#include <utility>

#include "dialect_choice.h"
#include "problems.h"

namespace {

using zfiles::FailedCall;

// Empty for a call that this tool does not know.
using Call = std::optional<FailedCall>;

// bytes of a quoted text
constexpr size_t kMaxQuotedLength = 60;

// Describes the line of a stanza file that names its companion.
std::string companionEntry()
{
    return std::string("\"") + zstanza::kReservedKey + " = ...\" of [" +
           zstanza::kReservedCategory + "]";
}

std::string removeEntryRemedy(std::string const& mainFile)
{
    return "remove the line " + companionEntry() + " from " + mainFile;
}

std::string restoreRemedy(std::string const& mainFile)
{
    return "restore it, or give up its values: " + removeEntryRemedy(mainFile);
}

Failure describeData(ZPropertiesInvalidDataException_6_0 const& e, std::string const& file)
{
    std::string const damaged = toStdString(e.propFile());
    if (e.badline() == 0)
        return {
            exitInvalidData, damaged, {"damaged companion file of " + file, restoreRemedy(file)}};
    // The file may have changed since, or cannot be read again.
    try {
        if (auto const error =
                describeFailedLoad(Problems(damaged, 0), damaged, readContents(damaged), {}))
            return *error;
    } catch (...) {
    }
    return {exitInvalidData,
            nameLine(damaged, static_cast<size_t>(e.badline()), e.column()),
            {quote(toStdString(e.baddata())) + ": invalid line", "correct it"}};
}

// Returns the kind of a file that cannot be a configuration file; null for a regular or missing
// file.
char const* irregularKind(std::string const& path)
{
    struct stat status;
    if (stat(path.c_str(), &status) != 0 || S_ISREG(status.st_mode))
        return nullptr;
    return S_ISDIR(status.st_mode)    ? "a directory"
           : S_ISFIFO(status.st_mode) ? "a pipe"
                                      : "not a regular file";
}

Failure describeIrregularFile(std::string const& path, char const* kind)
{
    return {exitNoAccess, path, {std::string("is ") + kind, "give a regular file"}};
}

// Describes an unreadable companion file. The library reports a missing and an empty companion with
// the same code.
Failure describeCompanion(std::string const& file, int error, std::string const& mainFile)
{
    std::string const problem = "cannot read the companion file of " + mainFile + ": ";
    std::string const expected = mainFile + zstore::kCompanionSuffix;
    struct stat status;
    if (stat(file.c_str(), &status) != 0) {
        error = errno;
        if (error == ENOENT && stat(expected.c_str(), &status) == 0)
            return {exitNoAccess,
                    file,
                    {problem + strerror(error),
                     "if " + mainFile + " was moved together with " + expected +
                         ", change the line " + companionEntry() + " to the path of " + expected}};
    } else if (char const* const kind = irregularKind(file)) {
        return {exitNoAccess, file, {problem + "it is " + kind, restoreRemedy(mainFile)}};
    } else if (error == EINVAL) {
        return {exitNoAccess, file, {problem + "it is empty", restoreRemedy(mainFile)}};
    }
    return {exitNoAccess,
            file,
            {problem + strerror(error),
             error == ENOENT ? restoreRemedy(mainFile) : "check its owner and permissions"}};
}

// Describes why the library refused a companion file, or could not create one in a directory.
Failure describeCompanionRefusal(std::string const& path, int error, std::string const& mainFile)
{
    struct stat status;
    if (stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && error != EPERM)
        return {exitNoAccess,
                path,
                {"cannot create the companion file of " + mainFile + " here: " + strerror(error),
                 "check the permissions of the directory"}};
    if (error == EEXIST)
        return {exitNoAccess,
                path,
                {"is not a companion file, but has the name of the companion of " + mainFile,
                 "rename it and try again"}};
    if (error != EPERM)
        return {exitNoAccess,
                path,
                {"cannot use the companion file of " + mainFile + ": " + strerror(error),
                 "check its owner and permissions"}};
    if (char const* const kind = irregularKind(path))
        return {exitNoAccess,
                path,
                {std::string("is ") + kind + ", but has the name of the companion of " + mainFile,
                 "rename it and try again"}};
    return {exitNoAccess,
            path,
            {"refused as the companion file of " + mainFile + ": other users can write " +
                 mainFile + ", or no store has created this file",
             "check the owner and the mode of both, or " + removeEntryRemedy(mainFile)}};
}

std::string nameOf(std::string const& path)
{
    return path.substr(path.rfind('/') + 1);
}

// Returns whether `file` has the name of a journal, complete or not.
bool isJournal(std::string const& file)
{
    std::string_view name = file;
    if (name.ends_with(zstore::kNewSuffix))
        name.remove_suffix(strlen(zstore::kNewSuffix));
    return name.ends_with(zstore::kJournalSuffix);
}

// Returns whether `file` has the name of a file that exists only during a store.
bool isHiddenSibling(std::string const& file)
{
    return isJournal(file) || (nameOf(file).starts_with('.') && file.ends_with(zstore::kNewSuffix));
}

// Returns whether `file` is the new file that a store with --replace creates. It is next to the
// target of a symbolic link.
bool isReplacement(std::string const& file, std::string const& mainFile)
{
    char real[PATH_MAX];
    std::string const path = realpath(mainFile.c_str(), real) != nullptr ? real : mainFile;
    return nameOf(file) == "." + nameOf(path) + zstore::kNewSuffix;
}

// Returns why --replace could not rename a new file over `mainFile`; empty if the failure has
// another cause.
std::optional<Problem> describeReplaceError(std::string const& file, Call call, int error,
                                            std::string const& mainFile)
{
    std::string const problem = "cannot replace: ";
    bool const isRefused =
        error == EACCES || error == EPERM || error == EROFS || error == ENAMETOOLONG;
    if (call == FailedCall::rename && file == mainFile)
        return Problem{
            problem + (error == EBUSY ? "another file is mounted there" : strerror(error)),
            "leave out --replace"};
    if (!isReplacement(file, mainFile))
        return {};
    if (call == FailedCall::fchown || call == FailedCall::fsetxattr)
        return Problem{problem + "a new file cannot get its owner, group or attributes",
                       "leave out --replace, or run as its owner or as root"};
    if (call == FailedCall::open && isRefused)
        return Problem{problem + "cannot create a file in its directory",
                       "leave out --replace, or check the permissions of the directory"};
    return {};
}

// Returns the problem of a journal or of another file that exists only during a store; empty if the
// failure has another cause.
std::optional<Problem> describeHiddenSibling(std::string const& file, Call call, int error,
                                             std::string const& mainFile)
{
    if (isJournal(file) && call == FailedCall::access)
        return Problem{
            "journal of an interrupted store, but its owner cannot write " + mainFile,
            "compare both, then give it the owner of " + mainFile + " (chown) or remove it"};
    if (isJournal(file) && call == FailedCall::open && error == EACCES)
        return Problem{
            "cannot read this journal of an interrupted store",
            "do not remove it: its owner or root must first change " + mainFile + " with zstz"};
    if ((isHiddenSibling(file) && error == EEXIST) ||
        (isJournal(file) && (error == EPERM || error == EISDIR)))
        return Problem{"has the name of a temporary file for storing " + mainFile,
                       "remove or rename it as its owner"};
    return {};
}

// Describes a failed call by a table; the default is a failed write.
Failure describeCall(std::string const& file, Call call, int error)
{
    struct Row {
        FailedCall call;
        char const* problem;
        char const* remedy;
    };
    static constexpr Row kRows[] = {
        {FailedCall::fopenToRead, "cannot open: ", "check the path and its permissions"},
        {FailedCall::fopenToUpdate, "cannot write: ", "check the path and its permissions"},
        {FailedCall::fopenToWriteText, "cannot write: ", "check the path and its permissions"},
        {FailedCall::fopenToWrite, "cannot write: ", "check the permissions of its directory"},
        {FailedCall::fgets, "cannot read: ", "check the disk that it is on"},
        {FailedCall::read, "cannot read: ", "check the disk that it is on"},
        {FailedCall::open, "cannot open: ", "check its permissions and the free space"},
    };
    std::string problem = "cannot write: ";
    std::string remedy = "check the free space and the permissions";
    for (Row const& row : kRows)
        if (call == row.call) {
            problem = row.problem;
            remedy = row.remedy;
        }
    if (error == EFBIG)
        remedy = "check the file size limit (ulimit -f); a configuration file can have " +
                 std::to_string(zstore::kDefaultMaxFileSize >> 30) + " GiB";
    if (error == ENOENT)
        remedy = "check the path";
    return {exitNoAccess, file, {problem + strerror(error), remedy}};
}

Failure describeAccess(ZPropertiesIOException_6_0 const& e, std::string const& mainFile)
{
    std::string const file = toStdString(e.propFile());
    Call const call = zfiles::findCall(toStdString(e.api()));
    int const error = e.excerrno();
    if (call == FailedCall::fcntl && (error == EAGAIN || error == EACCES || error == EDEADLK))
        return {exitLocked, file, {"locked by another process", "try again"}};
    if (call == FailedCall::mapFile)
        return describeCompanion(file, error, mainFile);
    if (call == FailedCall::access && !isJournal(file))
        return describeCompanionRefusal(file, error, mainFile);
    if (auto const problem = describeReplaceError(file, call, error, mainFile))
        return {exitNoAccess, mainFile, *problem};
    if (call == FailedCall::fchown && error == EPERM)
        return {exitNoAccess,
                file,
                {"only the owner of " + mainFile + " can create its companion file",
                 "store the value as that user"}};
    if (auto const problem = describeHiddenSibling(file, call, error, mainFile))
        return {exitNoAccess, file, *problem};
    if (error == EFBIG && call == FailedCall::read)
        return {exitNoAccess, file, {"too large for a configuration file", "split it"}};
    if (call == FailedCall::store)
        return {exitNoAccess, file, {"the same value was changed by another program", "try again"}};
    if (error == ESTALE)
        return {exitNoAccess, file, {"replaced by another program", "try again"}};
    if (char const* const kind = irregularKind(file))
        return describeIrregularFile(file, kind);
    return describeCall(file, call, error);
}

Failure describeValue(ZPropertiesInvalidValueException_6_0 const& e, std::string const& path)
{
    std::string const known = toStdString(e.propFile());
    std::string const& file = known.empty() ? path : known;
    std::string const key = toStdString(e.key());
    std::string const stanza = toStdString(e.category());
    std::string const name = key.empty() ? "a comment in [" + stanza + "]" : nameKey(key, stanza);
    std::string const problem = name + ": " + quote(toStdString(e.value()));
    if (e.where() == zstanza::raiseWithoutKeys)
        return {exitRefused,
                file,
                {"without " + name +
                     " the file would have neither a header nor a key, and programs "
                     "would refuse it",
                 "set an empty value, or remove the file"}};
    if (e.where() == zstanza::raiseBelowContinuedLine)
        return {exitInvalidValue,
                file,
                {problem + " would continue the line above, which ends with a backslash",
                 "set the value above without the backslash first"}};
    if (e.where() == zstanza::raiseAboveIndentedLine)
        return {exitInvalidValue,
                file,
                {problem + " would continue in the line below, which is indented",
                 "remove that line, or its indentation, first"}};
    if (key.empty())
        return {exitRefused,
                file,
                {"the changed file would not read back: a comment that cannot be read",
                 "change the comment with an editor"}};
    if (e.messageNumber() == zreporting::invalidValue)
        return {exitInvalidValue,
                file,
                {problem + " would not read back in its line", "shorten it or use another value"}};
    return {exitInvalidValue, file,
            e.messageNumber() == zreporting::invalidBoolValue
                ? Problem{problem + " is not a boolean", "write yes or no"}
                : Problem{problem + " is not a number",
                          "write it in decimal, hexadecimal (0x) or octal (0)"}};
}

}  // namespace

std::string toStdString(ZLCString_6_0 const& string)
{
    return std::string(string.getChars(), string.getLength());
}

std::string quote(std::string const& text)
{
    if (text.size() <= kMaxQuotedLength)
        return '"' + text + '"';
    size_t end = kMaxQuotedLength;
    // Do not cut inside a UTF-8 character.
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80)
        --end;
    return '"' + text.substr(0, end) + "...\"";
}

std::string shellWord(std::string const& text)
{
    auto const isPlain = [](char c) {
        return isalnum(static_cast<unsigned char>(c)) != 0 || strchr("%+,-./:@_", c) != nullptr;
    };
    return std::all_of(text.begin(), text.end(), isPlain) ? text : '"' + text + '"';
}

std::string toPrintable(std::string const& text)
{
    std::string shown;
    mbstate_t state = {};
    for (size_t at = 0; at < text.size();) {
        wchar_t character;
        size_t const length = mbrtowc(&character, text.data() + at, text.size() - at, &state);
        if (length == 0 || length > text.size() - at) {
            state = {};
            shown += '?';
            ++at;
            continue;
        }
        if (iswprint(static_cast<wint_t>(character)))
            shown.append(text, at, length);
        else
            shown += text[at] == '\t' ? ' ' : '?';
        at += length;
    }
    return shown;
}

std::string nameKey(std::string const& key, std::string const& stanza)
{
    return "key " + quote(key) + " in [" + stanza + "]";
}

std::string nameLine(std::string const& path, size_t number)
{
    return path + ":" + std::to_string(number);
}

std::string nameLine(std::string const& path, size_t number, size_t column)
{
    return nameLine(path, number) + ":" + std::to_string(column);
}

std::string formatCount(size_t number, char const* singular, char const* plural)
{
    return std::to_string(number) + " " + (number == 1 ? singular : plural);
}

namespace {

char const* theToolName = "zstz";

}  // namespace

void setToolName(char const* name)
{
    theToolName = name;
}

char const* toolName()
{
    return theToolName;
}

int report(Failure const& failure)
{
    // Keeps the order of the lines if standard output and standard error are the same file.
    fflush(stdout);
    std::string const where = failure.where.empty() ? "" : failure.where + ": ";
    std::string const text = where + failure.problem.text + "; " + failure.problem.remedy;
    fprintf(stderr, "%s: %s\n", toolName(), toPrintable(text).c_str());
    for (Failure const& other : failure.further)
        report(other);
    return failure.code;
}

Failure describeOpenError(std::string const& path, int error)
{
    return describeCall(path, FailedCall::fopenToRead, error);
}

Failure describe(std::exception_ptr exception, std::string const& file)
{
    Failure const outOfMemory = {exitInternal, "", {"out of memory", "free some and try again"}};
    char const* const remedy = "please report it";
    try {
        std::rethrow_exception(exception);
    } catch (Failure const& failure) {
        return failure;
    } catch (ZPropertiesInvalidDataException_6_0 const& e) {
        return describeData(e, file);
    } catch (ZPropertiesIOException_6_0 const& e) {
        return describeAccess(e, file);
    } catch (ZPropertiesInvalidValueException_6_0 const& e) {
        return describeValue(e, file);
    } catch (ZUnexpectedEndOfFile_6_0 const&) {
        if (char const* const kind = irregularKind(file))
            return describeIrregularFile(file, kind);
        return {exitNoAccess, file, {"cannot read", "check the disk that it is on"}};
    } catch (ZInvalidParameterException_6_0 const&) {
        return {exitInvalidValue,
                file,
                {"a name or a value cannot be stored", "use other names and values"}};
    } catch (ZOutOfMemoryException_6_0 const&) {
        return outOfMemory;
    } catch (std::bad_alloc const&) {
        return outOfMemory;
    } catch (ZException_6_0 const& e) {
        std::string const source = e.who() == nullptr ? "?" : e.who();
        return {exitInternal,
                file,
                {std::string("internal error ") + e.exceptionName() + " " +
                     std::to_string(e.messageNumber()) + " at " + source + ":" +
                     std::to_string(e.where()),
                 remedy}};
    } catch (std::exception const& e) {
        return {exitInternal, file, {std::string("internal error: ") + e.what(), remedy}};
    }
}
