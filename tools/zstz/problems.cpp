#include "problems.h"

#include <Z/ZStanzaFileProperties.h>
#include <Z/problems/inspector.h>

#include <algorithm>
#include <exception>

#include "busy.h"
#include "commands.h"
#include "json.h"
#include "output.h"
#include "stanza_file.h"

namespace {

std::string formatPlain(std::string const& path, ZStanzaProblem_6_0 const& problem)
{
    std::string const line =
        nameLine(path, problem.line()) + ":" + std::to_string(problem.column()) + ": " +
        (problem.kind() == ZStanzaProblem_6_0::note ? "note: " : "") + toStdString(problem.text());
    return toPrintable(line);
}

std::string formatJson(std::string const& path, ZStanzaProblem_6_0 const& problem)
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
    std::string json;
    for (Field const& field : fields)
        json += std::string(json.empty() ? "{\"" : ", \"") + field.name + "\": " + field.value;
    return json + '}';
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

Problems::Problems(std::string const& path, double wait) : list_(16, 1)
{
    retryWhileBusy(Deadline(wait),
                   [&] { ZStanzaFileProperties_6_0::findProblems(path.c_str(), list_); });
}

Problems Problems::ofText(std::string const& text)
{
    Problems problems;
    zproblems::Inspector inspector(text);
    inspector.inspect();
    for (zproblems::Complaint const& complaint : inspector.complaints())
        problems.list_.addNoCopy(new ZStanzaProblem_6_0(
            complaint.place.line, complaint.place.column,
            complaint.isError ? ZStanzaProblem_6_0::error : ZStanzaProblem_6_0::note,
            static_cast<ZStanzaProblem_6_0::Cause>(complaint.cause),
            std::string(complaint.stanza).c_str(), std::string(complaint.key).c_str(),
            zproblems::textOf(complaint).c_str()));
    return problems;
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
            Problems const problems = path == kStandardInput ? Problems::ofText(readStandardInput())
                                                             : Problems(path, request.wait);
            for (unsigned i = 0; i < problems.size(); ++i) {
                worst = std::max(worst, codeOf(problems[i]));
                printLine(request, request.format == "json" ? formatJson(path, problems[i])
                                                            : formatPlain(path, problems[i]));
            }
        } catch (...) {
            worst = std::max(worst, report(describe(std::current_exception(), path)));
        }
    }
    return worst;
}
