// fmt: the verb fmt, which stores a file in one style.
#include "commands.h"
#include "edited_file.h"
#include "failures.h"

int runFmt(Request const& request)
{
    Request change = request;
    change.normalise = true;
    if (!request.check)
        return runChange(change, [](EditedFile&, Request const&) {});
    if (!EditedFile(change).isChanged())
        return exitDone;
    Failure const differs = {
        exitDiffers,
        request.file,
        {"is not in the style of fmt", "run 'zstz fmt " + shellWord(request.file) + "'"}};
    return request.quiet ? differs.code : report(differs);
}
