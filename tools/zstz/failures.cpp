#include "failures.h"

#include <Z/ZException.h>
#include <errno.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <wchar.h>
#include <wctype.h>

#include "raw_lines.h"

namespace {

// bytes of a quoted text
constexpr size_t kMaxQuotedLength = 60;

constexpr char kRemoveEntry[] = "edit the line \"file = ...\" of [configuration-database] out of ";

std::string restoreCompanion(std::string const& mainFile)
{
    return "put back a copy of it, or " + (kRemoveEntry + mainFile);
}

bool startsWith(std::string const& line, char c)
{
    return !line.empty() && line[0] == c;
}

// Returns the problem of a line that the library rejected, from the text of the line.
char const* describeInvalidLine(std::string const& line)
{
    if (startsWith(line, '['))
        return line.find(']') == std::string::npos
                   ? "the stanza head has no \"]\"; end the name with one"
                   : "a stanza of this name stands further up; join the two";
    if (line.find('=') == std::string::npos)
        return "neither a stanza head, a comment nor KEY = VALUE; add the \"=\" or a leading \"#\"";
    if (startsWith(line, '='))
        return "there is no key before the \"=\"; give it one";
    return "a key before the first stanza; put it below a [stanza] head";
}

// Returns the problem of a line from its bytes in the file; null if the text of the line is enough.
char const* describeRawLine(RawLine const& line)
{
    if (line.isSplit)
        return kSplitLine;
    if (line.number == 1 && describeByteOrderMark(line.bytes) != nullptr)
        return describeByteOrderMark(line.bytes);
    return line.hasZero ? kZeroByte : nullptr;
}

Failure describeData(ZPropertiesInvalidDataException_6_0 const& e, std::string const& file)
{
    std::string const damaged = toStdString(e.propFile());
    if (e.badline() == 0)
        return {exitInvalidData, damaged +
                                     ": the companion file of obfuscated values is damaged; " +
                                     restoreCompanion(file)};
    size_t const libraryNumber = static_cast<size_t>(e.badline());
    size_t number = libraryNumber;
    std::string const line = toStdString(e.baddata());
    char const* problem = describeInvalidLine(line);
    forEachRawLine(damaged, [&](RawLine const& raw) {
        if (raw.libraryNumber != libraryNumber)
            return true;
        number = raw.number;
        if (char const* const cause = describeRawLine(raw))
            problem = cause;
        return false;
    });
    return {exitInvalidData,
            damaged + ":" + std::to_string(number) + ": " + quote(line) + ": " + problem};
}

// Returns the kind of a file that cannot be a configuration file; null for a regular or missing
// file.
char const* irregularKind(std::string const& path)
{
    struct stat status;
    if (stat(path.c_str(), &status) != 0 || S_ISREG(status.st_mode))
        return nullptr;
    return S_ISDIR(status.st_mode)    ? "a folder"
           : S_ISFIFO(status.st_mode) ? "a pipe"
                                      : "no regular file";
}

// Describes an unreadable companion file. The library reports a missing and an empty companion with
// the same code.
Failure describeCompanion(std::string const& file, int error, std::string const& mainFile)
{
    std::string const what = "cannot read the companion file " + file + ": ";
    struct stat status;
    std::string const own = mainFile + ".obf";
    if (stat(file.c_str(), &status) != 0) {
        error = errno;
        if (error == ENOENT && stat(own.c_str(), &status) == 0)
            return {exitNoAccess, what + strerror(error) + "; if " + mainFile +
                                      " was moved or renamed together with " + own +
                                      ", change the line \"file = ...\" of "
                                      "[configuration-database] to the path of that"};
    } else if (char const* const kind = irregularKind(file))
        return {exitNoAccess, what + "it is " + kind + "; " + restoreCompanion(mainFile)};
    else if (error == EINVAL)
        return {exitNoAccess, what + "it is empty; " + restoreCompanion(mainFile)};
    return {exitNoAccess,
            what + strerror(error) + "; " +
                (error == ENOENT ? restoreCompanion(mainFile) : "check its owner and permissions")};
}

// Describes why the library refused a companion file, or could not create one in a directory.
Failure describeCompanionRefusal(std::string const& path, int error, std::string const& mainFile)
{
    struct stat status;
    if (stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && error != EPERM)
        return {exitNoAccess, "cannot write in " + path + ": " + strerror(error) +
                                  "; the companion file of " + mainFile +
                                  " belongs there, check the permissions of the folder"};
    if (error == EEXIST)
        return {exitNoAccess,
                path + ": is not a companion file, but has the name of the companion of " +
                    mainFile + "; rename it, then try again"};
    if (error != EPERM)
        return {exitNoAccess, "cannot use the companion file " + path + ": " + strerror(error) +
                                  "; check its owner and permissions"};
    if (char const* const kind = irregularKind(path))
        return {exitNoAccess, path + " is " + kind + ", where the companion file of " + mainFile +
                                  " belongs; move it away"};
    return {exitNoAccess,
            path + " may not be the companion file of " + mainFile +
                ", because others than you may write " + mainFile +
                " or because no store made it; check the owner and the mode of both, or " +
                kRemoveEntry + mainFile};
}

std::string nameOf(std::string const& path)
{
    return path.substr(path.rfind('/') + 1);
}

// Returns whether `file` has the name of a journal, complete or not.
bool isJournal(std::string const& file)
{
    return file.ends_with(".zjn") || file.ends_with(".zjn.new");
}

// Returns whether `file` has the name of a file that exists only during a store.
bool isHiddenSibling(std::string const& file)
{
    return isJournal(file) || (nameOf(file).starts_with('.') && file.ends_with(".new"));
}

// Returns whether `file` is the new file that a store with --replace creates. It is next to the
// target of a symbolic link.
bool isReplacement(std::string const& file, std::string const& mainFile)
{
    char real[PATH_MAX];
    std::string const path = realpath(mainFile.c_str(), real) != nullptr ? real : mainFile;
    return nameOf(file) == "." + nameOf(path) + ".new";
}

// Returns why --replace could not rename a new file over `mainFile`; empty if the failure has
// another cause.
std::string explainReplaceError(std::string const& file, std::string const& api, int error,
                                std::string const& mainFile)
{
    bool const isRefused =
        error == EACCES || error == EPERM || error == EROFS || error == ENAMETOOLONG;
    if (api == "rename()" && file == mainFile)
        return (error == EBUSY ? "another file is mounted there" : strerror(error)) +
               std::string("; leave out --replace");
    if (!isReplacement(file, mainFile))
        return "";
    if (api == "fchown()" || api == "fsetxattr()")
        return "a new file cannot have its owner, group or attributes; leave out --replace, or run "
               "as its owner or as root";
    if (api == "open()" && isRefused)
        return "its directory allows no new file; leave out --replace, or check the permissions of "
               "the directory";
    return "";
}

Failure describeAccess(ZPropertiesIOException_6_0 const& e, std::string const& mainFile)
{
    struct Row {
        char const* api;
        char const* what;
        char const* advice;
    };
    static constexpr Row kRows[] = {
        {"fopen(r)", "cannot open ", "check the path and its permissions"},
        {"fopen(r+)", "cannot write ", "check the path and its permissions"},
        {"fopen(wt)", "cannot write ", "check the path and its permissions"},
        {"fopen(w)", "cannot write ", "check the permissions of its folder"},
        {"read()", "cannot read ", "check the disk that it is on"},
        {"open()", "cannot open ", "check its permissions and the room there"},
    };
    std::string const file = toStdString(e.propFile());
    std::string const api = toStdString(e.api());
    int const error = e.excerrno();
    if (api == "fcntl()" && (error == EAGAIN || error == EACCES || error == EDEADLK))
        return {exitLocked, file + " is in use by another process; try again in a moment"};

    if (api == "mapFile()")
        return describeCompanion(file, error, mainFile);
    if (api == "access()" && isJournal(file))
        return {exitNoAccess, file +
                                  ": is the journal of a store that was interrupted, but its owner "
                                  "may not write " +
                                  mainFile +
                                  "; compare both, then make it the "
                                  "owner's (chown) or remove it"};
    if (api == "access()")
        return describeCompanionRefusal(file, error, mainFile);
    std::string const why = explainReplaceError(file, api, error, mainFile);
    if (!why.empty())
        return {exitNoAccess, mainFile + " cannot be replaced: " + why};
    if (api == "fchown()" && error == EPERM)
        return {exitNoAccess, "only the owner of " + mainFile + " may make its companion file " +
                                  file + "; store the value as that user"};
    if (isJournal(file) && api == "open()" && error == EACCES)
        return {exitNoAccess, file +
                                  ": is the journal of a store that was interrupted, and cannot be "
                                  "read; have its owner, or root, change " +
                                  mainFile + " with zstz, and do not remove the journal before"};
    if ((isHiddenSibling(file) && error == EEXIST) ||
        (isJournal(file) && (error == EPERM || error == EISDIR)))
        return {exitNoAccess, file + ": is in the way of a file that " + mainFile +
                                  " needs while it is stored; remove or rename it as its owner"};
    if (error == EFBIG && api == "read()")
        return {exitNoAccess, file + ": is larger than a configuration file may be; split it"};
    if (error == ESTALE)
        return {exitNoAccess, file + ": was replaced by another program; try again"};
    if (char const* const kind = irregularKind(file))
        return {exitNoAccess, file + " is " + kind + "; name a regular file"};

    char const* what = "cannot write ";
    char const* advice = "check the room and the permissions there";
    for (Row const& row : kRows) {
        if (api == row.api) {
            what = row.what;
            advice = row.advice;
        }
    }
    if (error == EFBIG)
        advice = "check the limit of file sizes (ulimit -f); a configuration file may have 1 GiB";
    return {exitNoAccess, what + file + ": " + strerror(error) + "; " + advice};
}

Failure describeValue(ZPropertiesInvalidValueException_6_0 const& e)
{
    int const kBoolean = 41;
    std::string const value = quote(toStdString(e.value()));
    return {exitInvalidValue,
            toStdString(e.propFile()) + ": the value " + value + " of key " + toStdString(e.key()) +
                " in [" + toStdString(e.category()) + "] is no " +
                (e.messageNumber() == kBoolean ? "truth value; write yes or no"
                                               : "number; write a decimal, 0x or 0 octal number")};
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

std::string formatCount(size_t number, char const* singular, char const* plural)
{
    return std::to_string(number) + " " + (number == 1 ? singular : plural);
}

int report(Failure const& failure)
{
    // Keeps the order of the lines if standard output and standard error are the same file.
    fflush(stdout);
    fprintf(stderr, "zstz: %s\n", toPrintable(failure.text).c_str());
    return failure.code;
}

Failure describe(std::exception_ptr exception, std::string const& file)
{
    try {
        std::rethrow_exception(exception);
    } catch (Failure const& failure) {
        return failure;
    } catch (ZPropertiesInvalidDataException_6_0 const& e) {
        return describeData(e, file);
    } catch (ZPropertiesIOException_6_0 const& e) {
        return describeAccess(e, file);
    } catch (ZPropertiesInvalidValueException_6_0 const& e) {
        return describeValue(e);
    } catch (ZUnexpectedEndOfFile_6_0 const&) {
        char const* const kind = irregularKind(file);
        return {exitNoAccess, kind != nullptr
                                  ? file + " is " + kind + "; name a regular file"
                                  : "cannot read " + file + "; check the disk that it is on"};
    } catch (ZOutOfMemoryException_6_0 const&) {
        return {exitInternal, "memory is exhausted; free some and try again"};
    } catch (std::bad_alloc const&) {
        return {exitInternal, "memory is exhausted; free some and try again"};
    } catch (ZException_6_0 const& e) {
        return {exitInternal, std::string("unexpected failure ") + e.exceptionName() + " " +
                                  std::to_string(e.messageNumber()) + " in " +
                                  (e.who() == nullptr ? "?" : e.who()) + ":" +
                                  std::to_string(e.where()) + "; please report it"};
    } catch (std::exception const& e) {
        return {exitInternal,
                std::string("unexpected failure: ") + e.what() + "; please report it"};
    }
}
