// Scripts of `zstz edit` on files of any dialect. A refused script changes nothing; after the
// others the file is valid, has the values that were set, and every line that no step names.
//
// An input is the number of a dialect, the file, a line "---" and the script.
#include <Z/ZStanzaDialect_p.h>
#include <Z/dialects/switched_dialect.h>
#include <Z/lines/merge_side.h>
#include <Z/stanza/stanza_dialect.h>
#include <stdio.h>

#include <exception>
#include <set>
#include <string>
#include <vector>

#include "ScratchDirectory.h"
#include "arguments.h"
#include "check.h"
#include "commands.h"
#include "failures.h"
#include "shell_words.h"
#include "stanza_file.h"

namespace {

constexpr char kSeparator[] = "\n---\n";

// Runs `edit` and returns its exit code.
int runScript(std::string const& dialect, std::string const& file, std::string const& script,
              bool isDryRun)
{
    Verb const* const verb = findVerb("edit");
    Request request;
    std::vector<std::string> words = {"-q", "--dialect", dialect, file, script};
    if (isDryRun)
        words.insert(words.begin(), "-n");
    try {
        check(parseArguments(*verb, words, request), "a script is run");
        return verb->run(request);
    } catch (...) {
        Failure const failure = describe(std::current_exception(), file);
        if (failure.code == exitInternal)
            report(failure);
        return failure.code;
    }
}

// Returns the changes of a script that was run.
std::vector<Request> readSteps(std::string const& script, std::string const& file)
{
    std::vector<Request> steps;
    for (size_t at = 0; at < script.size();) {
        ShellLine const line = readShellLine(script, at);
        std::vector<std::string> const& words = line.words;
        check(line.fault == ShellLine::Fault::none, "a script that was run has words");
        at = line.end;
        if (words.empty())
            continue;
        Verb const* const verb = findVerb(words.front());
        Request step;
        check(
            verb != nullptr && parseArguments(*verb, {words.begin() + 1, words.end()}, step, &file),
            "a script that was run has verbs");
        step.verb = verb->name;
        steps.push_back(step);
    }
    return steps;
}

// The keys that the steps of a script name, as a dialect compares them.
class NamedKeys {
public:
    NamedKeys(std::vector<Request> const& steps, zlines::Dialect const& dialect) : dialect_(dialect)
    {
        for (Request const& step : steps) {
            bool const isWhole = step.wholeStanza || step.key.empty();
            isWhole ? stanzas_.insert(stanza(step.stanza))
                    : keys_.insert(key(step.stanza, step.key));
        }
    }

    std::string stanza(std::string const& name) const
    {
        std::string space;
        return name == dialect_.topStanza() ? zlines::kTopOfText
                                            : std::string(dialect_.comparableStanza(name, space));
    }

    std::string key(std::string const& stanzaName, std::string const& name) const
    {
        std::string space;
        return stanza(stanzaName) + '\n' + std::string(dialect_.comparableKey(name, space));
    }

    bool has(std::string const& side, std::string_view name) const
    {
        return stanzas_.contains(side) || keys_.contains(side + '\n' + std::string(name));
    }

private:
    zlines::Dialect const& dialect_;
    std::set<std::string> stanzas_;
    std::set<std::string> keys_;
};

// Returns the lines of a key, each without its line ending. The last line of a file may get one.
std::vector<std::string> linesOf(zlines::MergeSide const& side, zlines::SideKey const& key)
{
    std::vector<std::string> lines;
    for (std::vector<uint32_t> const& indexes : {key.valueLines(), key.otherLines()})
        for (uint32_t const index : indexes) {
            zlines::Outline const& outline = side.outline();
            std::string line(
                zlines::slice(outline.text(), outline.lines()[index].begin, outline.endOf(index)));
            line.resize(line.find_last_not_of("\r\n") + 1);
            lines.push_back(line);
        }
    return lines;
}

void checkOtherLines(std::string const& before, std::string const& after,
                     std::vector<Request> const& steps, zlines::Dialect const& dialect)
{
    NamedKeys const named(steps, dialect);
    zlines::MergeSide const old(before, dialect);
    zlines::MergeSide const changed(after, dialect);
    for (std::string const& stanza : old.stanzas())
        for (uint32_t const index : old.find(stanza)->keys) {
            zlines::SideKey const key = old.key(index);
            if (named.has(stanza, key.name()))
                continue;
            zlines::SideKey const found = changed.find(stanza, key.name());
            check(!!found, "a key that no step names stays");
            check(found.values() == key.values(), "the values that no step names stay");
            check(linesOf(old, key) == linesOf(changed, found), "lines that no step names stay");
        }
}

// Checks the values of the steps `set` that no later step changes.
void checkSetValues(std::string const& after, std::vector<Request> const& steps,
                    ZStanzaDialect_6_0 const& dialect, zlines::Dialect const& reader)
{
    Store store(dialect);
    store.loadText(after.data(), after.size());
    for (size_t i = 0; i < steps.size(); ++i) {
        Request const& step = steps[i];
        if (step.verb != "set" || step.raw || step.hasOldValue || !step.nth.empty())
            continue;
        NamedKeys const later({steps.begin() + static_cast<ptrdiff_t>(i) + 1, steps.end()}, reader);
        std::string const key = later.key(step.stanza, step.key);
        if (later.has(later.stanza(step.stanza), key.substr(key.rfind('\n') + 1)))
            continue;
        check(countingValue(store, step.stanza, step.key) == step.value, "a set value reads back");
    }
}

bool isEdit(Request const& step)
{
    return step.verb == "set" || step.verb == "add" || step.verb == "unset";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    static ScratchDirectory const directory;
    // A dry run prints a difference.
    [[maybe_unused]] static FILE* const ignored =
        isReplay ? nullptr : freopen("/dev/null", "w", stdout);
    Choices choices(data, size);
    int count = 0;
    while (ZStanzaDialect_6_0::nameAt(count) != nullptr)
        ++count;
    std::string const name =
        ZStanzaDialect_6_0::nameAt(static_cast<int>(choices.below(static_cast<unsigned>(count))));
    std::string const input = choices.rest();
    size_t const cut = input.find(kSeparator);
    if (cut == input.npos)
        return 0;
    std::string const before = input.substr(0, cut + 1);
    std::string const script = input.substr(cut + sizeof kSeparator - 1);
    // A companion would be a file that the input names.
    if (before.find("configuration-database") != before.npos ||
        script.find("configuration-database") != script.npos ||
        script.find("--obfuscated") != script.npos)
        return 0;
    directory.clear();
    directory.write("file", before);
    directory.write("script", script);
    std::string const file = directory.at("file");
    int const dry = runScript(name, file, directory.at("script"), true);
    check(directory.read("file") == before, "a dry run changes nothing");
    int const code = runScript(name, file, directory.at("script"), false);
    check(code == dry, "a dry run has the same result");
    check(code != exitInternal && code != exitNoAccess && code != exitLocked,
          "a script is run or refused");
    std::string const after = directory.read("file");
    if (code != exitDone) {
        check(after == before, "a refused script changes nothing");
        return 0;
    }
    std::vector<Request> const steps = readSteps(script, file);
    ZStanzaDialect_6_0 dialect;
    check(ZStanzaDialect_6_0::named(name.c_str(), dialect) != 0, "the table has its names");
    zdialects::Switches const switches = zdialects::switchesOf(dialect);
    auto const other = switches.isStanzaFormat() ? nullptr : zdialects::dialectWith(switches);
    zlines::Dialect const& reader =
        other == nullptr ? zstanza::stanzaDialect() : static_cast<zlines::Dialect const&>(*other);
    Store store(dialect);
    store.loadText(after.data(), after.size());
    // The numbers of repeated headers change with the headers.
    if (!reader.joinsHeaders() || !std::all_of(steps.begin(), steps.end(), isEdit))
        return 0;
    checkOtherLines(before, after, steps, reader);
    checkSetValues(after, steps, dialect, reader);
    return 0;
}
