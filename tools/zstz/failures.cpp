#include "failures.h"

#include <Z/ZException.h>
#include <errno.h>
#include <string.h>

namespace {

std::string text(ZLCString_6_0 const& string)
{
    return std::string(string.getChars(), string.getLength());
}

bool begins(std::string const& line, char c)
{
    return !line.empty() && line[0] == c;
}

// What is wrong with a line that a stanza file does not admit, judged by the line itself.
char const* reason(std::string const& line)
{
    if (begins(line, '['))
        return line.find(']') == std::string::npos
                   ? "the stanza head has no \"]\"; end the name with one"
                   : "a stanza of this name stands further up; join the two";
    if (line.find('=') == std::string::npos)
        return "neither a stanza head, a comment nor KEY = VALUE; add the \"=\" or a leading \"#\"";
    if (begins(line, '='))
        return "there is no key before the \"=\"; give it one";
    return "a key before the first stanza; put it below a [stanza] head";
}

Failure describeData(ZPropertiesInvalidDataException_6_0 const& e)
{
    std::string const file = text(e.propFile());
    if (e.badline() == 0)
        return {exitInvalidData, file + ": the companion file of obfuscated values is damaged; " +
                                     "put back a copy of it, or take its entry out of " +
                                     "[configuration-database]"};
    std::string const line = text(e.baddata());
    return {exitInvalidData,
            file + ":" + std::to_string(e.badline()) + ": " + quoted(line) + ": " + reason(line)};
}

Failure describeAccess(ZPropertiesIOException_6_0 const& e)
{
    struct Row {
        char const* api;
        char const* what;
        char const* advice;
    };
    static constexpr Row kRows[] = {
        {"fopen(r)", "cannot open ", "check the path and its permissions"},
        {"fopen(r+)", "cannot write ", "check the path and its permissions"},
        {"fopen(w)", "cannot write ", "check the permissions of its folder"},
        {"fgets()", "cannot read ", "check that it is a text file"},
        {"mapFile()", "cannot read the companion file ",
         "put it back, or take its entry out of [configuration-database]"},
        {"access()", "may not use ", "check its owner and permissions"},
    };
    std::string const file = text(e.propFile());
    std::string const api = text(e.api());
    int const error = e.excerrno();
    if (api == "fcntl()" && (error == EAGAIN || error == EACCES || error == EDEADLK))
        return {exitLocked, file + " is in use by another process; try again in a moment"};

    char const* what = "cannot write ";
    char const* advice = "check the room and the permissions there";
    for (Row const& row : kRows) {
        if (api == row.api) {
            what = row.what;
            advice = row.advice;
        }
    }
    return {exitNoAccess, what + file + ": " + strerror(error) + "; " + advice};
}

Failure describeValue(ZPropertiesInvalidValueException_6_0 const& e)
{
    int const kBoolean = 41;
    std::string const value = quoted(text(e.value()));
    return {exitInvalidValue,
            text(e.propFile()) + ": the value " + value + " of key " + text(e.key()) + " in [" +
                text(e.category()) + "] is no " +
                (e.messageNumber() == kBoolean ? "truth value; write yes or no"
                                               : "number; write a decimal, 0x or 0 octal number")};
}

}  // namespace

std::string quoted(std::string const& text)
{
    std::string line = "\"";
    for (char const c : text) {
        auto const byte = static_cast<unsigned char>(c);
        line += byte < 0x20 || byte == 0x7F ? '?' : c;
    }
    return line + "\"";
}

Failure describe(std::exception_ptr exception)
{
    try {
        std::rethrow_exception(exception);
    } catch (Failure const& failure) {
        return failure;
    } catch (ZPropertiesInvalidDataException_6_0 const& e) {
        return describeData(e);
    } catch (ZPropertiesIOException_6_0 const& e) {
        return describeAccess(e);
    } catch (ZPropertiesInvalidValueException_6_0 const& e) {
        return describeValue(e);
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
