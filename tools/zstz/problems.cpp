#include "problems.h"

#include <Z/ZStanzaFileProperties.h>
#include <Z/problems/inspector.h>

#include <algorithm>
#include <exception>
#include <optional>

#include "busy.h"
#include "commands.h"
#include "json.h"
#include "output.h"
#include "stanza_file.h"
#include "template.h"
#include "template_check.h"

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

namespace {

std::string format(Request const& request, std::string const& path,
                   ZStanzaProblem_6_0 const& problem)
{
    return request.format == "json" ? formatJson(path, problem) : formatPlain(path, problem);
}

// Prints the problems of a file, and its differences from a template if it has no errors. Returns
// the highest code.
int lintFile(Request const& request, std::string const& path, Template const* schema)
{
    bool const isText = path == kStandardInput;
    std::string const text = isText ? readStandardInput() : std::string();
    Problems const problems = isText ? Problems::ofText(text) : Problems(path, request.wait);
    int worst = exitDone;
    for (unsigned i = 0; i < problems.size(); ++i) {
        worst = std::max(worst, codeOf(problems[i]));
        printLine(request, format(request, path, problems[i]));
    }
    if (schema == nullptr || worst != exitDone)
        return worst;
    Store store;
    store.setAttributes(ZPCache_6_0::keepComments | ZPCache_6_0::keepLines, nullptr);
    if (isText)
        store.loadText(text.data(), text.size());
    else
        loadFile(path, request.wait, store);
    checkTemplate(store, *schema, [&](ZStanzaProblem_6_0 const& problem) {
        worst = exitInvalidData;
        printLine(request, format(request, path, problem));
    });
    return worst;
}

}  // namespace

int runLint(Request const& request)
{
    std::optional<Template> schema;
    if (!request.templateFile.empty())
        schema.emplace(request.templateFile, request.wait);
    int worst = exitDone;
    for (std::string const& path : request.files) {
        try {
            worst = std::max(worst, lintFile(request, path, schema ? &*schema : nullptr));
        } catch (...) {
            worst = std::max(worst, report(describe(std::current_exception(), path)));
        }
    }
    return worst;
}
