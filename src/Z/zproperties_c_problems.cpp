// The plain functions that find the problems of a file, and its differences from a template.
#include <string>
#include <vector>

#include "ZArrayList.h"
#include "ZException.h"
#include "ZPropertiesImpl.h"
#include "ZStanzaDialect_p.h"
#include "ZStanzaProblem.h"
#include "dialects/switched_dialect.h"
#include "stanza/stanza_dialect.h"
#include "store/journaled_file.h"
#include "store/translate_errors.h"
#include "templates/template_check.h"
#include "zproperties_c.h"
#include "zproperties_c_p.h"

using namespace zhandles;
using ztemplates::Difference;

namespace {

constexpr char kSource[] = "src/Z/zproperties_c";

// Stable ids in reports; log scanners match them. See docs/failures.md.
enum RaiseSite { raiseInCheckTemplate = 471 };

// Passes problems to the callback of a caller, until that ends the search.
class Reporter {
public:
    Reporter(ZPROPProblemCallback callback, void* context) : callback_(callback), context_(context)
    {
    }

    void report(ZStanzaProblem_6_0 const& problem)
    {
        pass({sizeof(ZPROPProblem), problem.kind(), problem.cause(), problem.messageNumber(),
              problem.line(), problem.column(), problem.text().getChars()});
    }

    void report(Difference const& difference)
    {
        pass({sizeof(ZPROPProblem), zpropProblemError, difference.cause, 0, difference.place.line,
              difference.place.column, difference.text.c_str()});
    }

private:
    void pass(ZPROPProblem const& problem)
    {
        isStopped_ = isStopped_ || callback_(&problem, context_) != 0;
    }

    ZPROPProblemCallback const callback_;
    void* const context_;
    bool isStopped_ = false;
};

std::string readText(char const* file)
{
    std::string text;
    auto const raise = [](zfiles::IoError const& failure) {
        ZPropertiesIOException_6_0(failure.file.c_str(), failure.callName(), failure.error)
            .throwException(kSource, raiseInCheckTemplate);
    };
    zstore::translateErrors(kSource, raiseInCheckTemplate, raise, [&] {
        text = zstore::JournaledFile(file, zstore::JournaledFile::Mode::load).text();
    });
    return text;
}

// Returns the differences of a file from a template. The values that are in the companion only are
// read if the file is valid.
std::vector<Difference> compare(char const* file, ZStanzaDialect_6_0 const& dialect,
                                ztemplates::Template const& schema)
{
    zdialects::Switches const switches = zdialects::switchesOf(dialect);
    std::string const text = readText(file);
    if (!switches.isStanzaFormat())
        return ztemplates::checkTemplate(text, *zdialects::dialectWith(switches), schema, {});
    Store companion(dialect);
    try {
        companion.load(file);
    } catch (ZPropertiesException_6_0 const&) {
        // Its problems are in the list of the file.
    }
    return ztemplates::checkTemplate(text, zstanza::stanzaDialect(), schema,
                                     [&](std::string const& stanza, std::string const& key) {
                                         return !stanza.empty() &&
                                                companion.exists(stanza.c_str(), key.c_str()) != 0;
                                     });
}

bool isBelow(ZStanzaProblem_6_0 const& problem, zproblems::Place const& place)
{
    return problem.line() != place.line ? problem.line() > place.line
                                        : problem.column() > place.column;
}

// Reports the problems of a file and its differences from a template, in file order.
void reportAll(ZArrayList_6_0 const& problems, std::vector<Difference> const& differences,
               Reporter& reporter)
{
    auto next = differences.begin();
    for (unsigned i = 0; i < problems.size(); ++i) {
        auto const& problem = *static_cast<ZStanzaProblem_6_0 const*>(problems.get(i));
        for (; next != differences.end() && isBelow(problem, next->place); ++next)
            reporter.report(*next);
        reporter.report(problem);
    }
    for (; next != differences.end(); ++next)
        reporter.report(*next);
}

}  // namespace

int zstzPropFindProblems_6_0(char const* file, char const* dialect, ZPROPProblemCallback callback,
                             void* context)
{
    if (file == nullptr || *file == '\0' || callback == nullptr)
        return missingArgument(file);
    ZStanzaDialect_6_0 chosen;
    if (int const code = findDialect(dialect, file, chosen); code != zpropOk)
        return code;
    return codeOf(openStoreCode, {{nullptr, nullptr, file}}, nullptr, [&] {
        ZArrayList_6_0 problems(1, 1);
        waitWhileBusy(threadOptions().waitMilliseconds,
                      [&] { Store::findProblems(file, chosen, problems); });
        Reporter reporter(callback, context);
        reportAll(problems, {}, reporter);
    });
}

int zstzPropCheckTemplate_6_0(char const* file, char const* dialect, char const* schema,
                              ZPROPProblemCallback callback, void* context)
{
    if (file == nullptr || *file == '\0' || schema == nullptr || *schema == '\0' ||
        callback == nullptr)
        return missingArgument(file);
    ZStanzaDialect_6_0 chosen;
    if (int const code = findDialect(dialect, file, chosen); code != zpropOk)
        return code;
    bool isTemplate = true;
    int const code = codeOf(openStoreCode, {{nullptr, nullptr, file}}, nullptr, [&] {
        ZArrayList_6_0 problems(1, 1);
        std::vector<Difference> differences;
        waitWhileBusy(threadOptions().waitMilliseconds, [&] {
            ztemplates::Template const read(readText(schema));
            isTemplate = !read.keys().empty();
            if (!isTemplate)
                return;
            differences = compare(file, chosen, read);
            problems.removeAll();
            Store::findProblems(file, chosen, problems);
        });
        Reporter reporter(callback, context);
        reportAll(problems, differences, reporter);
    });
    if (code != zpropOk || isTemplate)
        return code;
    return recordFailure(zpropOpenStoreFailed,
                         "The template has no comment of the form \"# key = default\".",
                         {nullptr, nullptr, schema});
}
