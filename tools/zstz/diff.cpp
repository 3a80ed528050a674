// diff: the verb diff.
#include <Z/lines/merge_side.h>
#include <Z/lines/unified_diff.h>

#include <algorithm>

#include "commands.h"
#include "contents.h"
#include "failures.h"
#include "json.h"
#include "key_lines.h"
#include "output.h"
#include "raw_file.h"

#include <stdio.h>

namespace {

std::string nameOf(std::string const& path)
{
    return path == kStandardInput ? kStandardInputName : path;
}

void load(std::string const& path, Request const& request, Store& store)
{
    store.setAttributes(ZPCache_6_0::keepComments | ZPCache_6_0::keepLines, nullptr);
    try {
        loadFile(path, request.wait, store);
    } catch (...) {
        Failure const failure = describe(std::current_exception(), path);
        throw failure;
    }
}

// The numbers of the lines of a file.
class LineNumbers {
public:
    explicit LineNumbers(Store const& store)
        : kept_(keptText(store)), side_(kept_->text, kept_->dialect)
    {
        for (size_t at = 0; (at = kept_->text.find('\n', at)) != std::string::npos; ++at)
            ends_.push_back(at);
    }

    /// Returns the line with a value of a key; 0 if it has none.
    size_t find(Change const& change, ValueState const& state) const
    {
        std::string space;
        std::string const stanza(kept_->dialect.comparableStanza(change.stanza, space));
        if (change.key.empty()) {
            zlines::SideStanza const* const found = side_.find(stanza);
            return found == nullptr || found->header == zlines::kNone ? 0 : number(found->header);
        }
        zlines::SideKey const* const key =
            side_.find(stanza, kept_->dialect.comparableKey(change.key, space));
        if (key == nullptr)
            return 0;
        for (size_t i = 0; i < key->values.size(); ++i)
            if (key->values[i] == state.value)
                return number(key->valueLines[i]);
        return key->otherLines.empty() ? 0 : number(key->otherLines.front());
    }

private:
    size_t number(uint32_t line) const
    {
        uint32_t const begin = side_.outline().lines()[line].begin;
        return static_cast<size_t>(std::lower_bound(ends_.begin(), ends_.end(), begin) -
                                   ends_.begin()) +
               1;
    }

    zlines::SharedText const kept_;
    zlines::MergeSide const side_;
    std::vector<size_t> ends_;
};

void printPlain(Request const& request, std::vector<Change> const& changes)
{
    std::string stanza;
    bool isFirst = true;
    for (Change const& change : changes) {
        if (isFirst || change.stanza != stanza) {
            if (!isFirst && !request.null)
                printLine(request, "");
            char const* const sign = !change.key.empty()                        ? ""
                                     : change.before.kind == ValueState::absent ? "+ "
                                                                                : "- ";
            printLine(request, sign + ('[' + change.stanza + ']'));
        }
        isFirst = false;
        stanza = change.stanza;
        for (ValueState const* state : {&change.before, &change.after})
            if (!change.key.empty() && state->kind != ValueState::absent)
                printLine(request, (state == &change.before ? "- " : "+ ") + change.key +
                                       (state->kind == ValueState::withoutValue
                                            ? " ="
                                            : " = " + shownValue(change, *state)));
    }
}

void printJson(Request const& request, std::vector<Change> const& changes, Store const& before,
               Store const& after)
{
    LineNumbers const oldLines(before);
    LineNumbers const newLines(after);
    for (Change const& change : changes) {
        bool const isRemoved = change.after.kind == ValueState::absent;
        size_t const line =
            isRemoved ? oldLines.find(change, change.before) : newLines.find(change, change.after);
        printLine(request, "{\"file\": " + toJson(isRemoved ? request.file : request.other) +
                               ", \"line\": " + std::to_string(line) + ", " +
                               formatMembers(change) + '}');
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
    Store before;
    Store after;
    load(request.file, request, before);
    load(request.other, request, after);
    std::vector<Change> const changes = compareContents(contentsOf(before), contentsOf(after));
    if (request.format == "json")
        printJson(request, changes, before, after);
    else if (request.format == "plain")
        printPlain(request, changes);
    else
        for (Change const& change : changes)
            printLine(request, formatFields(change));
    return changes.empty() ? exitDone : exitDiffers;
}
