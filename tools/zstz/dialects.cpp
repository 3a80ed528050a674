// dialects: the verb dialects.
#include <Z/ZStanzaDialect.h>

#include "commands.h"
#include "dialect_choice.h"
#include "failures.h"
#include "json.h"
#include "output.h"

int runDialects(Request const& request)
{
    if (!request.file.empty()) {
        char const* reason = nullptr;
        std::string const name = spell(chooseDialect(request, request.file, &reason));
        if (request.format == "json")
            printLine(request, "{\"file\": " + toJson(request.file) + ", \"dialect\": " +
                                   toJson(name) + ", \"text\": " + toJson(reason) + '}');
        else if (request.format == "lines")
            printLine(request, escapeField(request.file) + '\t' + name);
        else
            printLine(request, name + ": " + reason);
        return exitDone;
    }
    std::vector<std::string> names;
    for (int i = 0; char const* const name = ZStanzaDialect_6_0::nameAt(i); ++i)
        names.emplace_back(name);
    printNames(request, names);
    return exitDone;
}
