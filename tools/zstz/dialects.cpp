// dialects: the verb dialects.
#include <Z/ZStanzaDialect.h>
#include <unistd.h>

#include "commands.h"
#include "failures.h"
#include "json.h"
#include "output.h"
#include "raw_file.h"

namespace {

// A dialect, and the reason for its choice.
struct Choice {
    std::string name;
    std::string reason;
};

Choice choose(std::string const& path, double wait)
{
    // Two formats share names such as *.service, and the first header decides.
    constexpr std::string_view kShared = ".service";
    bool const isShared = path.ends_with(kShared) && access(path.c_str(), F_OK) == 0;
    std::string const text = isShared ? readText(path, wait) : std::string();
    ZStanzaDialect_6_0 dialect;
    if (ZStanzaDialect_6_0::recognised(path.c_str(), text.data(), text.size(), dialect) == 0)
        return {"stanza", "no other format is the only user of such a name"};
    return {dialect.name(),
            isShared ? "by the name of the file and its first header" : "by the name of the file"};
}

}  // namespace

int runDialects(Request const& request)
{
    if (!request.file.empty()) {
        Choice const choice = choose(request.file, request.wait);
        if (request.format == "json")
            printLine(request, "{\"file\": " + toJson(request.file) +
                                   ", \"dialect\": " + toJson(choice.name) +
                                   ", \"text\": " + toJson(choice.reason) + '}');
        else if (request.format == "lines")
            printLine(request, escapeField(request.file) + '\t' + choice.name);
        else
            printLine(request, choice.name + ": " + choice.reason);
        return exitDone;
    }
    std::vector<std::string> names;
    for (int i = 0; char const* const name = ZStanzaDialect_6_0::nameAt(i); ++i)
        names.emplace_back(name);
    printNames(request, names);
    return exitDone;
}
