// fmt: the verb fmt, which stores a file in one style.
#include "busy.h"
#include "commands.h"
#include "dialect_style.h"
#include "edited_file.h"
#include "failures.h"
#include "key_lines.h"

namespace {

// Puts a file of another dialect than "stanza" into one style.
void applyStyle(EditedFile& file, Request const& request)
{
    zlines::SharedDialect const dialect = lineDialectOf(file.store().dialect());
    std::string const before = file.text();
    std::string const after =
        formatStyle(before, *dialect, file.store().dialect().get(zDialectBlanksAtEnd) != 0);
    if (after == before)
        return;
    zlines::Outline oldLines(before, *dialect);
    zlines::Outline newLines(after, *dialect);
    if (!differOnlyIn(oldLines, nullptr, newLines, nullptr))
        throw Failure{exitRefused,
                      request.file,
                      {"the file would read otherwise in one style", "format it with an editor"}};
    file.setText(after);
}

}  // namespace

int runFmt(Request const& request)
{
    Request change = request;
    change.normalise = Store(chooseDialect(request, request.file)).isStanzaFile();
    auto const apply = [](EditedFile& file, Request const& formatted) {
        if (!formatted.normalise)
            applyStyle(file, formatted);
    };
    if (!request.check)
        return runChange(change, apply);
    bool const differs = retryWhileBusy(Deadline(request.wait), [&] {
        EditedFile file(change);
        apply(file, change);
        return file.isChanged();
    });
    if (!differs)
        return exitDone;
    Failure const failure = {
        exitDiffers,
        request.file,
        {"is not in the style of fmt", "run 'zstz fmt " + shellWord(request.file) + "'"}};
    return request.quiet ? failure.code : report(failure);
}
