#include "help.h"

#include <ctype.h>
#include <stdio.h>

#include <algorithm>

#include "commands.h"
#include "failures.h"

namespace {

// Each verb is in a line of its group: NAME ARGUMENTS, purpose.
constexpr char kHelp[] =
    R"(zstz: read, change, compare and check configuration files
usage: zstz VERB [OPTION...] FILE [STANZA [KEY [VALUE]]]         FILE - is standard input, and output for changes

read    get FILE STANZA KEY        the value that counts; --all, --raw, --as number|boolean|text, --default V, --line
        list FILE [STANZA [KEY]]   everything; stanzas FILE, keys FILE STANZA: names alone
        check FILE...              can it be read, and what is in it        lint FILE...  every bad line; --template T
change  set FILE S K V             the one value; --old V or --nth N of several, --all to replace all, --only new|existing;
                                   without V, --bare: the key alone, as in skip-networking
        add FILE S K V             one more; --first, --before V, --behind V
        unset FILE S [K [V]]       a value, --all of a key, --stanza a stanza
        rename FILE S [K] NEW      a key or stanza, in its place
        comment FILE [S [K]] TEXT  the comment above; --above: one more; of S K --off: the lines as comments, --on
        edit FILE [SCRIPT]         these verbs without FILE, one a line, from SCRIPT or standard input: all or nothing
        fmt FILE                   one style; --check                       convert FILE S --from JAVA | --to JAVA
compare diff A B                   by stanza and key; --text: unified       watch FILE [S [K]]          changes as they happen
        merge BASE OURS THEIRS     into OURS; as a git merge driver:  zstz merge %O %A %B --path %P
other   doc TEMPLATE | dialects [FILE] | lock | java | hexdump | completion bash|zsh|fish | help [VERB]

stanzas         . is the part above the first header, or a file without headers; [a] twice in networkd: a]1 and a]2;
                [remote "o"] in git: remote.o or 'remote "o"'
options         --dialect D    --wait SECONDS    -q          lock, java, hexdump, completion and help have their own
for reading     --format plain|json|sh|lines    -0, --null   also for compare, doc and dialects; not each verb has each form
for changes     --create    -n, --dry-run: print a unified diff    --backup[=SUFFIX]    --normalise    --replace
exit            0 done, 1 not found, 2 usage, 3 invalid data, 4 cannot open, read or write, 5 locked by another process,
                6 invalid value, 7 change refused, 8 differs or conflicts, 9 internal
zstz VERB --help has examples; zstz(1), zstz-dialects(5)
)";

// Returns the name of an option with its value, as in "--wait SECONDS".
std::string spellOption(Verb const& verb, Option const& option)
{
    std::string text =
        option.shortName != 0 ? std::string("-") + option.shortName + ", " : std::string();
    text += option.name;
    if (option.value == nullptr)
        return text;
    if (*option.value == '[')
        return text + "[=" + (option.value + 1);
    return text + ' ' + (option.name == std::string_view("--format") ? verb.formats : option.value);
}

void appendOption(Verb const& verb, Option const& option, std::string& help)
{
    constexpr size_t kPurposeColumn = 31;
    std::string line = "  " + spellOption(verb, option) + ' ';
    if (line.size() < kPurposeColumn)
        line.resize(kPurposeColumn, ' ');
    else
        line += '\n' + std::string(kPurposeColumn, ' ');
    help += line + option.purpose + '\n';
}

std::string formatExamples(std::string_view commands)
{
    std::string text = "Example:\n  ";
    for (char const c : commands) {
        text += c;
        if (c == '\n')
            text += "  ";
    }
    return text + '\n';
}

// Describes names of stanzas that are not spelled as in their headers.
constexpr char kStanzaNames[] =
    R"(STANZA is . for the keys above the first header or of a file without headers; a]2 for the second of several
stanzas [a], where a dialect has them; and remote.o or 'remote "o"' for [remote "o"] of git. See zstz-dialects(5).

)";

}  // namespace

int runHelp(Request const& request)
{
    Verb const* const verb = request.text.empty() ? nullptr : findVerb(request.text);
    if (!request.text.empty() && verb == nullptr)
        throw Failure{
            exitUsage,
            "help",
            {"unknown command " + quote(request.text),
             similarVerbRemedy("zstz help", request.text) + "run 'zstz help' for a list"}};
    fputs(verb == nullptr ? kHelp : formatHelp(*verb).c_str(), stdout);
    return exitDone;
}

std::string formatHelp()
{
    return kHelp;
}

std::string formatHelp(Verb const& verb)
{
    std::string help = std::string(verb.purpose) + ".\n";
    std::string_view lines = verb.arguments;
    for (char const* start = "Usage: "; !lines.empty(); start = "       ") {
        std::string_view const line = lines.substr(0, lines.find('\n'));
        help += start + std::string(toolName()) + ' ' + std::string(verb.name) + " [OPTIONS] " +
                std::string(line) + '\n';
        lines.remove_prefix(std::min(line.size() + 1, lines.size()));
    }
    help += "\nOptions:\n";
    help[0] = static_cast<char>(toupper(static_cast<unsigned char>(help[0])));
    bool hasDialects = false;
    forEachOption(verb, [&](Option const& option) {
        appendOption(verb, option, help);
        hasDialects = hasDialects || option.name == std::string_view("--dialect");
    });
    bool const hasStanza = std::string_view(verb.arguments).find("STANZA") != std::string::npos;
    return help + "  -h, --help                   print this help\n\n" +
           (hasStanza && hasDialects ? kStanzaNames : "") + formatExamples(verb.examples);
}
