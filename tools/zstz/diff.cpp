// diff: the verb diff.
#include <Z/lines/unified_diff.h>

#include "commands.h"
#include "contents.h"
#include "dialect_choice.h"
#include "failures.h"
#include "key_lines.h"
#include "output.h"
#include "problems.h"
#include "raw_file.h"

#include <stdio.h>

namespace {

std::string nameOf(std::string const& path)
{
    return path == kStandardInput ? kStandardInputName : patchPath(path);
}

// Returns the dialect of a file. A name that determines none, such as a copy's, gets the dialect of
// the other file.
ZStanzaDialect_6_0 dialectOf(Request const& request, std::string const& path,
                             std::string const& other)
{
    ZStanzaDialect_6_0 const dialect = chooseDialect(request, path);
    return dialect.name() == std::string_view("stanza") ? chooseDialect(request, other) : dialect;
}

// Prints the first line with a zero byte: bytes after it, such as the text of a file in UTF-16, are
// not compared.
void noteZeroByte(std::string const& path, std::string const& text)
{
    if (text.find('\0') == text.npos)
        return;
    Problems const problems = Problems::ofText(text);
    for (unsigned i = 0; i < problems.size(); ++i) {
        if (problems[i].cause() != ZStanzaProblem_6_0::Cause::zeroByte)
            continue;
        fprintf(stderr,
                "zstz: %s: note: the line has a zero byte and is not compared after it; %s\n",
                toPrintable(nameLine(path, problems[i].line(), problems[i].column())).c_str(),
                "pass --text to compare all bytes");
        return;
    }
}

FileContents load(Request const& request, std::string const& path, std::string const& other)
{
    Store store(dialectOf(request, path, other));
    if (store.isStanzaFile())
        store.setAttributes(ZPCache_6_0::keepComments | ZPCache_6_0::keepLines, nullptr);
    try {
        loadFile(path, request.wait, store);
    } catch (...) {
        Failure const failure = describe(std::current_exception(), path);
        throw failure;
    }
    FileContents const contents = contentsOf(store);
    if (store.isStanzaFile() && contents.text != nullptr && !request.quiet)
        noteZeroByte(path, contents.text->kept->text);
    return contents;
}

// Returns the line of a value after the key, as the dialect of its file spells it.
std::string formatValue(Change const& change, ValueState const& state, FileContents const& file)
{
    if (state.kind == ValueState::withoutValue)
        return file.isStanzaFile ? " =" : "";
    std::string const value = shownValue(change, state);
    return value.empty() && !file.isStanzaFile ? " =" : " = " + value;
}

void printPlain(Request const& request, std::vector<Change> const& changes,
                FileContents const& before, FileContents const& after)
{
    std::string stanza;
    bool isFirst = true;
    bool isRemoved = false;
    for (Change const& change : changes) {
        // A removed stanza may have the name of another one.
        bool const isSame = change.stanza == stanza && change.isOfRemovedStanza == isRemoved;
        if (isFirst || !isSame) {
            if (!isFirst && !request.null)
                printLine(request, "");
            char const* const sign = !change.key.empty()                        ? ""
                                     : change.before.kind == ValueState::absent ? "+ "
                                                                                : "- ";
            FileContents const& file = *sign == '-' ? before : after;
            printLine(request, sign + formatHeading(file.dialect, change.stanza));
        }
        isFirst = false;
        stanza = change.stanza;
        isRemoved = change.isOfRemovedStanza;
        if (change.key.empty())
            continue;
        if (change.before.kind != ValueState::absent)
            printLine(request, "- " + change.key + formatValue(change, change.before, before));
        if (change.after.kind != ValueState::absent)
            printLine(request, "+ " + change.key + formatValue(change, change.after, after));
    }
}

void printJson(Request const& request, std::vector<Change> const& changes,
               FileContents const& before, FileContents const& after)
{
    for (Change const& change : changes) {
        bool const isRemoved = change.after.kind == ValueState::absent;
        printLine(request, isRemoved
                               ? formatJson(change, request.file, &before, change.before.line)
                               : formatJson(change, request.other, &after, change.after.line));
    }
}

int diffTexts(Request const& request)
{
    std::string const diff = zlines::formatUnifiedDiff(readText(request.file, request.wait),
                                                       readText(request.other, request.wait),
                                                       nameOf(request.file), nameOf(request.other));
    if (!request.quiet)
        fwrite(diff.data(), 1, diff.size(), stdout);
    return diff.empty() ? exitDone : exitDiffers;
}

}  // namespace

int runDiff(Request const& request)
{
    if (request.asText)
        return diffTexts(request);
    FileContents const before = load(request, request.file, request.other);
    FileContents const after = load(request, request.other, request.file);
    std::vector<Change> const changes = compareContents(before, after);
    if (request.format == "json")
        printJson(request, changes, before, after);
    else if (request.format == "plain")
        printPlain(request, changes, before, after);
    else
        for (Change const& change : changes)
            printLine(request, formatFields(change));
    return changes.empty() ? exitDone : exitDiffers;
}
