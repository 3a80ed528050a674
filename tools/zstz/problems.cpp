#include "problems.h"

#include <Z/ZStanzaFileProperties.h>
#include <Z/stanza/columns.h>
#include <stdio.h>

#include <algorithm>
#include <exception>
#include <string_view>

#include "commands.h"

namespace {

// Returns `text` as a string of JSON. A byte that is not part of a valid character of UTF-8 is
// written as the lone surrogate U+DC00 plus the byte.
std::string toJson(std::string_view text)
{
    std::string json = "\"";
    while (!text.empty()) {
        size_t const length = zstanza::characterLength(text);
        auto const byte = static_cast<unsigned char>(text.front());
        char escaped[8];
        if (byte == '"' || byte == '\\') {
            json += '\\';
            json += text.front();
        } else if (byte < 0x20 || byte == 0x7F || (length == 1 && byte >= 0x80)) {
            snprintf(escaped, sizeof escaped, "\\u%s%02x", byte < 0x80 ? "00" : "dc", byte);
            json += escaped;
        } else {
            json += text.substr(0, length);
        }
        text.remove_prefix(length);
    }
    return json + '"';
}

void printPlain(std::string const& path, ZStanzaProblem_6_0 const& problem)
{
    std::string const line =
        nameLine(path, problem.line()) + ":" + std::to_string(problem.column()) + ": " +
        (problem.kind() == ZStanzaProblem_6_0::note ? "note: " : "") + toStdString(problem.text());
    puts(toPrintable(line).c_str());
}

void printJson(std::string const& path, ZStanzaProblem_6_0 const& problem)
{
    struct Field {
        char const* name;
        std::string value;
    };
    Field const fields[] = {
        {"file", toJson(path)},
        {"line", std::to_string(problem.line())},
        {"column", std::to_string(problem.column())},
        {"kind", problem.kind() == ZStanzaProblem_6_0::note ? "\"note\"" : "\"error\""},
        {"stanza", toJson(toStdString(problem.stanza()))},
        {"key", toJson(toStdString(problem.key()))},
        {"text", toJson(toStdString(problem.text()))},
    };
    char const* separator = "{";
    for (Field const& field : fields) {
        printf("%s\"%s\": %s", separator, field.name, field.value.c_str());
        separator = ", ";
    }
    puts("}");
}

// Returns the exit code that the problem is worth.
int codeOf(ZStanzaProblem_6_0 const& problem)
{
    if (problem.kind() == ZStanzaProblem_6_0::note)
        return exitDone;
    return problem.cause() == ZStanzaProblem_6_0::unreadableCompanion ? exitNoAccess
                                                                      : exitInvalidData;
}

}  // namespace

Problems::Problems(std::string const& path) : list_(16, 1)
{
    ZStanzaFileProperties_6_0::findProblems(path.c_str(), list_);
}

Problem splitText(std::string const& text)
{
    size_t const end = text.rfind("; ");
    return {text.substr(0, end), text.substr(end + 2)};
}

int runLint(Request const& request)
{
    int worst = exitDone;
    for (std::string const& path : request.files) {
        try {
            Problems const problems(path);
            for (unsigned i = 0; i < problems.size(); ++i) {
                worst = std::max(worst, codeOf(problems[i]));
                request.format == "json" ? printJson(path, problems[i])
                                         : printPlain(path, problems[i]);
            }
        } catch (...) {
            worst = std::max(worst, report(describe(std::current_exception(), path)));
        }
    }
    return worst;
}
