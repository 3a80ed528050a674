#include "problems.h"

#include <Z/ZStanzaDialect_p.h>
#include <Z/ZStanzaFileProperties.h>
#include <Z/problems/dialect_inspector.h>
#include <Z/problems/inspector.h>
#include <Z/templates/template_check.h>

#include <algorithm>
#include <exception>
#include <optional>

#include "busy.h"
#include "commands.h"
#include "dialect_choice.h"
#include "json.h"
#include "key_lines.h"
#include "output.h"
#include "stanza_file.h"
#include "template_file.h"

namespace {

std::string formatPlain(std::string const& path, ZStanzaProblem_6_0 const& problem,
                        std::string const& text)
{
    std::string const line = nameLine(path, problem.line()) + ":" +
                             std::to_string(problem.column()) + ": " +
                             (problem.kind() == ZStanzaProblem_6_0::note ? "note: " : "") + text;
    return toPrintable(line);
}

std::string formatJson(std::string const& path, ZStanzaProblem_6_0 const& problem,
                       std::string const& text)
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
        {"text", toJson(text)},
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

Problems::Problems(std::string const& path, double wait, ZStanzaDialect_6_0 const& dialect)
    : list_(16, 1)
{
    retryWhileBusy(Deadline(wait),
                   [&] { ZStanzaFileProperties_6_0::findProblems(path.c_str(), dialect, list_); });
}

namespace {

void append(std::vector<zproblems::Complaint> const& complaints, ZArrayList_6_0& list)
{
    for (zproblems::Complaint const& complaint : complaints)
        list.addNoCopy(new ZStanzaProblem_6_0(
            complaint.place.line, complaint.place.column,
            complaint.isError ? ZStanzaProblem_6_0::error : ZStanzaProblem_6_0::note,
            static_cast<ZStanzaProblem_6_0::Cause>(complaint.cause),
            std::string(complaint.stanza).c_str(), std::string(complaint.key).c_str(),
            zproblems::textOf(complaint).c_str()));
}

}  // namespace

Problems Problems::ofText(std::string const& text, ZStanzaDialect_6_0 const& dialect)
{
    Problems problems;
    zdialects::Switches const switches = zdialects::switchesOf(dialect);
    if (switches.isStanzaFormat()) {
        zproblems::Inspector inspector(text);
        inspector.inspect();
        append(inspector.complaints(), problems.list_);
    } else {
        auto const reader = zdialects::dialectWith(switches);
        zproblems::DialectInspector inspector(text, *reader);
        inspector.inspect();
        append(inspector.complaints(), problems.list_);
    }
    return problems;
}

std::string textOf(ZStanzaProblem_6_0 const& problem)
{
    constexpr std::string_view kStart = "storing ", kMiddle = ", and storing ";
    constexpr std::string_view kOption = "--normalise ";
    std::string text = toStdString(problem.text());
    size_t const middle = text.rfind(kMiddle);
    if (problem.kind() != ZStanzaProblem_6_0::note ||
        problem.cause() == ZStanzaProblem_6_0::reservedEntry)
        return text;
    if (text.starts_with(kStart))
        text.replace(0, kStart.size(), kOption);
    else if (middle != text.npos)
        text.replace(middle + kMiddle.size() - kStart.size(), kStart.size(), kOption);
    return text;
}

Problem splitText(std::string const& text)
{
    size_t const end = text.rfind("; ");
    return {text.substr(0, end), text.substr(end + 2)};
}

namespace {

// Returns the index of the last error; the number of problems without one.
unsigned findLastError(Problems const& problems)
{
    for (unsigned i = problems.size(); i > 0; --i)
        if (problems[i - 1].kind() == ZStanzaProblem_6_0::error)
            return i - 1;
    return problems.size();
}

std::string format(Request const& request, std::string const& path,
                   ZStanzaProblem_6_0 const& problem, std::string const& text)
{
    return request.format == "json" ? formatJson(path, problem, text)
                                    : formatPlain(path, problem, text);
}

// Prints the differences of a file from a template, and returns the exit code that they are worth.
// range   `text` is standard input, if `path` is its name.
int lintByTemplate(Request const& request, std::string const& path, std::string const& text,
                   Template const& schema)
{
    Store store;
    store.setAttributes(ZPCache_6_0::keepComments | ZPCache_6_0::keepLines, nullptr);
    if (path == kStandardInput)
        loadText(text, store);
    else
        loadFile(path, request.wait, store);
    int worst = exitDone;
    zlines::SharedText const kept = keptText(store);
    for (ztemplates::Difference const &found : ztemplates::checkTemplate(
             kept->text, kept->dialect, schema,
             [&](std::string const&stanza, std::string const&key) {
                 return store.contents().contains(stanza.c_str(), key.c_str()) != 0;
             })) {
        ZStanzaProblem_6_0 const problem(
            found.place.line, found.place.column, ZStanzaProblem_6_0::error,
            static_cast<ZStanzaProblem_6_0::Cause>(found.cause), found.stanza.c_str(),
            found.key.c_str(), found.text.c_str());
        worst = exitInvalidData;
        printLine(request, format(request, path, problem, textOf(problem)));
    }
    return worst;
}

// Prints the problems of a file, and its differences from a template if it has no errors. Returns
// the highest code.
int lintFile(Request const& request, std::string const& path, Template const* schema)
{
    ZStanzaDialect_6_0 const dialect = chooseDialect(request, path);
    bool const isInput = path == kStandardInput;
    std::string const text = isInput ? readStandardInput() : "";
    Problems const problems =
        isInput ? Problems::ofText(text, dialect) : Problems(path, request.wait, dialect);
    bool const isStanza = dialect.name() == std::string_view("stanza");
    unsigned const lastError = isStanza ? findLastError(problems) : problems.size();
    int worst = exitDone;
    for (unsigned i = 0; i < problems.size(); ++i) {
        ZStanzaProblem_6_0 const& problem = problems[i];
        worst = std::max(worst, codeOf(problem));
        std::string described = textOf(problem);
        if (i == lastError)
            addSuggestion(isInput ? text : readContents(path), described);
        printLine(request, format(request, path, problem, described));
    }
    if (schema == nullptr || worst != exitDone)
        return worst;
    if (!isStanza)
        throw Failure{exitRefused,
                      path,
                      {"templates support only the dialect stanza", "leave out --template"}};
    worst = lintByTemplate(request, path, text, *schema);
    return worst;
}

}  // namespace

int runLint(Request const& request)
{
    std::optional<Template> schema;
    if (!request.templateFile.empty())
        schema = readTemplate(request.templateFile, request.wait);
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
