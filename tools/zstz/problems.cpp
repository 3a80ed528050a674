#include "problems.h"

#include <Z/ZStanzaDialect_p.h>
#include <Z/ZStanzaFileProperties.h>
#include <Z/problems/dialect_inspector.h>
#include <Z/problems/inspector.h>
#include <Z/templates/template_check.h>

#include <algorithm>
#include <exception>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <utility>

#include "busy.h"
#include "commands.h"
#include "dialect_choice.h"
#include "json.h"
#include "key_lines.h"
#include "output.h"
#include "raw_file.h"
#include "stanza_file.h"
#include "template_file.h"

namespace {

std::string formatPlain(std::string const& path, ZStanzaProblem_6_0 const& problem,
                        std::string const& text)
{
    std::string const line = nameLine(path, problem.line(), problem.column()) + ": " +
                             (problem.kind() == ZStanzaProblem_6_0::note ? "note: " : "") + text;
    return toPrintable(line);
}

}  // namespace

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
        {"old", "null"},
        {"new", "null"},
        {"text", toJson(text)},
    };
    std::string json;
    for (Field const& field : fields)
        json += std::string(json.empty() ? "{\"" : ", \"") + field.name + "\": " + field.value;
    return json + '}';
}

ExitCode codeOf(ZStanzaProblem_6_0 const& problem)
{
    if (problem.kind() == ZStanzaProblem_6_0::note)
        return exitDone;
    return problem.cause() == ZStanzaProblem_6_0::unreadableCompanion ? exitNoAccess
                                                                      : exitInvalidData;
}

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

bool isAboutCompanion(ZStanzaProblem_6_0 const& problem)
{
    return problem.cause() == ZStanzaProblem_6_0::unreadableCompanion ||
           problem.cause() == ZStanzaProblem_6_0::damagedCompanion;
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

// Returns the index of the last error that another dialect could read; the number of problems
// without one.
unsigned findLastError(Problems const& problems)
{
    for (unsigned i = problems.size(); i > 0; --i)
        if (problems[i - 1].messageNumber() != 0 && !isAboutCompanion(problems[i - 1]))
            return i - 1;
    return problems.size();
}

std::string format(Request const& request, std::string const& path,
                   ZStanzaProblem_6_0 const& problem, std::string const& text)
{
    return request.format == "json" ? formatJson(path, problem, text)
                                    : formatPlain(path, problem, text);
}

// A template that is read when the first file needs it, in the dialect of the file. Standard input
// is read once.
class TemplateSource {
public:
    explicit TemplateSource(Request const& request) : request_(request) {}

    bool exists() const { return !request_.templateFile.empty(); }

    Template const& in(ZStanzaDialect_6_0 const& fileDialect)
    {
        ZStanzaDialect_6_0 const dialect = chooseTemplateDialect(request_, fileDialect);
        if (!text_)
            text_ = readText(request_.templateFile, request_.wait);
        auto& schema = schemas_[spell(dialect)];
        if (schema == nullptr)
            schema =
                std::make_unique<Template>(parseTemplate(request_.templateFile, *text_, dialect));
        return *schema;
    }

private:
    Request const& request_;
    std::optional<std::string> text_;
    std::map<std::string, std::unique_ptr<Template>> schemas_;  // by dialect
};

// Returns the differences from a template. A key of a companion file exists if the file can be
// loaded.
std::vector<std::unique_ptr<ZStanzaProblem_6_0>> findDifferences(Request const& request,
                                                                 std::string const& path,
                                                                 std::string const& text,
                                                                 ZStanzaDialect_6_0 const& dialect,
                                                                 Template const& schema)
{
    std::unique_ptr<Store> store;
    auto const hasHiddenValue = [&](std::string const& stanza, std::string const& key) {
        if (path == kStandardInput)
            return false;
        try {
            if (store == nullptr) {
                store = std::make_unique<Store>(dialect);
                loadFile(path, request.wait, *store);
            }
            return store->contents().contains(stanza.c_str(), key.c_str()) != 0;
        } catch (...) {
            return false;  // the problems of the file have the reason
        }
    };
    std::vector<std::unique_ptr<ZStanzaProblem_6_0>> differences;
    zlines::SharedDialect const lines = lineDialectOf(dialect);
    for (ztemplates::Difference const& found :
         ztemplates::checkTemplate(text, *lines, schema, hasHiddenValue))
        differences.push_back(std::make_unique<ZStanzaProblem_6_0>(
            found.place.line, found.place.column, ZStanzaProblem_6_0::error,
            static_cast<ZStanzaProblem_6_0::Cause>(found.cause), found.stanza.c_str(),
            found.key.c_str(), found.text.c_str()));
    return differences;
}

// Prints the problems of a file, and its differences from a template, in file order. Returns the
// highest code.
int lintFile(Request const& request, std::string const& path, TemplateSource& source)
{
    ZStanzaDialect_6_0 const dialect = chooseDialect(request, path);
    bool const isInput = path == kStandardInput;
    std::string const text = isInput ? readStandardInput() : "";
    Problems const problems =
        isInput ? Problems::ofText(text, dialect) : Problems(path, request.wait, dialect);
    std::vector<std::unique_ptr<ZStanzaProblem_6_0>> differences;
    if (source.exists())
        differences = findDifferences(request, path, isInput ? text : readText(path, request.wait),
                                      dialect, source.in(dialect));
    unsigned const lastError = findLastError(problems);
    std::vector<ZStanzaProblem_6_0 const*> all;
    for (unsigned i = 0; i < problems.size(); ++i)
        all.push_back(&problems[i]);
    for (auto const& difference : differences)
        all.push_back(difference.get());
    ZStanzaProblem_6_0 const* const suggesting =
        lastError < problems.size() ? &problems[lastError] : nullptr;
    std::stable_sort(all.begin(), all.end(), [](auto const* left, auto const* right) {
        return std::pair(left->line(), left->column()) < std::pair(right->line(), right->column());
    });
    int worst = exitDone;
    for (ZStanzaProblem_6_0 const* const problem : all) {
        worst = std::max<int>(worst, codeOf(*problem));
        std::string described = textOf(*problem);
        if (problem == suggesting)
            addSuggestion(path, isInput ? text : readContents(path), dialect, described);
        printLine(request, format(request, path, *problem, described));
    }
    return worst;
}

}  // namespace

namespace {

Failure describeError(ZStanzaProblem_6_0 const& error, std::string const& path)
{
    return {codeOf(error), nameLine(path, error.line(), error.column()), splitText(textOf(error))};
}

}  // namespace

std::vector<Failure> describeErrors(Problems const& problems, std::string const& path,
                                    std::string const& contents, ZStanzaDialect_6_0 const& dialect)
{
    std::vector<Failure> errors;
    unsigned const last = findLastError(problems);
    for (unsigned i = 0; i < problems.size(); ++i) {
        if (problems[i].messageNumber() == 0)
            continue;
        errors.push_back(describeError(problems[i], path));
        if (i == last)
            addSuggestion(path, contents, dialect, errors.back().problem.remedy);
    }
    return errors;
}

std::vector<Failure> describeRefusals(Problems const& problems, std::string const& path)
{
    std::vector<Failure> refusals;
    for (unsigned i = 0; i < problems.size(); ++i)
        if (problems[i].kind() == ZStanzaProblem_6_0::error && problems[i].messageNumber() == 0)
            refusals.push_back(describeError(problems[i], path));
    return refusals;
}

std::optional<Failure> describeFailedLoad(Problems const& problems, std::string const& path,
                                          std::string const& contents,
                                          ZStanzaDialect_6_0 const& dialect)
{
    std::vector<Failure> errors = describeErrors(problems, path, contents, dialect);
    if (errors.empty())
        return {};
    Failure first = std::move(errors.front());
    std::copy_if(std::make_move_iterator(errors.begin() + 1), std::make_move_iterator(errors.end()),
                 std::back_inserter(first.further),
                 [&](Failure const& error) { return error.code == first.code; });
    return first;
}

int runLint(Request const& request)
{
    TemplateSource source(request);
    if (source.exists())
        source.in(chooseDialect(request, request.files.front()));
    int worst = exitDone;
    for (std::string const& path : request.files) {
        try {
            worst = std::max(worst, lintFile(request, path, source));
        } catch (...) {
            worst = std::max(worst, report(describe(std::current_exception(), path)));
        }
    }
    return worst;
}
