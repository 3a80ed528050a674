// completion: the verb completion. The scripts of the shells ask zstz for the candidates.
#include <stdio.h>

#include <algorithm>

#include "arguments.h"
#include "commands.h"
#include "contents.h"
#include "failures.h"
#include "verbs.h"

namespace {

// Each script passes the words of the command line up to the cursor. Exit code 1 means that the
// word is a file name.

constexpr char kBash[] = R"script(# Completion of zstz for bash: source <(zstz completion bash)
_zstz()
{
    local -a words=()
    local word candidates
    for word in "${COMP_WORDS[@]:1:COMP_CWORD}"; do
        word=${word//\\/}
        words+=("${word//[\"\']/}")
    done
    COMPREPLY=()
    if candidates=$("${COMP_WORDS[0]}" completion candidates -- "${words[@]}" 2>/dev/null); then
        while IFS= read -r word; do
            [ -z "$word" ] || COMPREPLY+=("$(printf %q "$word")")
        done <<<"$candidates"
    else
        compopt -o default 2>/dev/null
    fi
}
complete -F _zstz zstz
)script";

constexpr char kZsh[] = R"script(#compdef zstz
# Completion of zstz for zsh: zstz completion zsh >DIRECTORY/_zstz, with DIRECTORY in $fpath
_zstz()
{
    local candidates
    if candidates=$("${(Q)words[1]}" completion candidates -- "${(@Q)words[2,CURRENT]}" 2>/dev/null); then
        local -a found
        found=("${(@f)candidates}")
        [[ -z $candidates ]] || compadd -- "${found[@]}"
    else
        _files
    fi
}
if [ "$funcstack[1]" = "_zstz" ]; then
    _zstz "$@"
elif (( $+functions[compdef] )); then
    compdef _zstz zstz
fi
)script";

constexpr char kFish[] =
    R"script(# Completion of zstz for fish: zstz completion fish >~/.config/fish/completions/zstz.fish
function __zstz_complete
    set -l words (commandline -opc)
    set -l command $words[1]
    set -e words[1]
    set -l candidates ($command completion candidates -- $words (commandline -ct) 2>/dev/null)
    if test $status -eq 0
        printf '%s\n' $candidates
    else
        __fish_complete_path (commandline -ct)
    end
end
complete -c zstz -f -a '(__zstz_complete)'
)script";

using Words = std::vector<std::string>;

Words splitAt(std::string_view text, char separator)
{
    Words parts;
    while (!text.empty()) {
        size_t const end = std::min(text.find(separator), text.size());
        if (end > 0)
            parts.emplace_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return parts;
}

// The arguments of the command line so far, and its last word.
class CommandLine {
public:
    CommandLine(Verb const& verb, Words const& words) : verb_(verb)
    {
        bool isAfterDashes = false;
        for (size_t i = 1; i < words.size(); ++i) {
            bool const isLast = i + 1 == words.size();
            std::string const& word = words[i];
            isOption_ = !isAfterDashes && word.starts_with('-') && word != "-";
            valueOf_ = i > 1 && !isAfterDashes ? optionBefore(words[i - 1]) : nullptr;
            if (isLast)
                break;
            if (word == "--")
                isAfterDashes = true;
            else if (!isOption_ && valueOf_ == nullptr)
                arguments_.push_back(word);
        }
    }

    bool isOption() const { return isOption_ && valueOf_ == nullptr; }

    /// Returns the option whose value the last word is; null if it is an argument.
    Option const* valueOf() const { return valueOf_; }

    /// Returns the name of the argument that the last word is; empty past the last.
    std::string argumentName() const
    {
        Words names = splitAt(verb_.arguments, ' ');
        std::erase_if(names, [](std::string const& name) { return name.ends_with("--"); });
        if (names.empty())
            return {};
        size_t index = arguments_.size();
        if (index >= names.size() && names.back().find("...") == std::string::npos)
            return {};
        std::string name = names[std::min(index, names.size() - 1)];
        std::erase_if(name, [](char c) { return c == '[' || c == ']'; });
        return name;
    }

    std::string const* argument(size_t index) const
    {
        return index < arguments_.size() ? &arguments_[index] : nullptr;
    }

private:
    Option const* optionBefore(std::string const& word) const
    {
        Option const* found = nullptr;
        forEachOption(verb_, [&](Option const& option) {
            bool const hasValue = option.value != nullptr && *option.value != '[';
            if (word == option.name && hasValue)
                found = &option;
        });
        return found;
    }

    Verb const& verb_;
    Words arguments_;
    bool isOption_ = false;
    Option const* valueOf_ = nullptr;
};

void addVerbs(Words& candidates)
{
    for (Verb const& verb : verbs())
        candidates.push_back(verb.name);
    candidates.push_back("--help");
    candidates.push_back("--version");
}

void addOptions(Verb const& verb, Words& candidates)
{
    forEachOption(verb, [&](Option const& option) { candidates.push_back(option.name); });
    candidates.push_back("--help");
}

// Adds the stanzas of the file, the keys of the stanza, or the values of the key. Obfuscated values
// are left out.
void addContents(CommandLine const& line, std::string const& name, Words& candidates)
{
    std::string const* const file = line.argument(0);
    if (file == nullptr || *file == kStandardInput)
        return;
    Store store;
    loadFile(*file, 0, store);
    for (StanzaContents const& stanza : contentsOf(store).stanzas) {
        if (name == "STANZA")
            candidates.push_back(stanza.name);
        if (line.argument(1) == nullptr || stanza.name != *line.argument(1))
            continue;
        for (KeyContents const& key : stanza.keys) {
            if (name == "KEY")
                candidates.push_back(key.name);
            else if (name == "VALUE" && line.argument(2) != nullptr &&
                     key.name == *line.argument(2) && !key.isObfuscated)
                for (ValueState const& state : key.values)
                    if (state.kind == ValueState::withValue)
                        candidates.push_back(state.value);
        }
    }
}

// Adds the candidates for the last word. Returns false if it is a file name.
bool addCandidates(Words const& words, Words& candidates)
{
    Verb const* const verb = words.empty() ? nullptr : findVerb(words.front());
    if (words.size() < 2) {
        addVerbs(candidates);
        return true;
    }
    if (verb == nullptr)
        return true;
    CommandLine const line(*verb, words);
    if (line.isOption()) {
        addOptions(*verb, candidates);
        return true;
    }
    if (Option const* const option = line.valueOf()) {
        std::string_view const values =
            option->name == std::string_view("--format") ? verb->formats : option->value;
        bool const isList =
            values.find('|') != values.npos || option->name == std::string_view("--format");
        if (isList)
            candidates = splitAt(values, '|');
        return isList || (values != "TEMPLATE" && values != "JAVA" && values != "DIR");
    }
    std::string const name = line.argumentName();
    Argument const* const argument = findArgument(name);
    if (argument != nullptr && !argument->words.empty()) {
        candidates = splitAt(argument->words, '|');
        std::erase(candidates, "candidates");
        return true;
    }
    if (name == "STANZA" || name == "KEY" || name == "VALUE") {
        addContents(line, name, candidates);
        return true;
    }
    constexpr char const* kOthers[] = {"NEW", "TEXT", "NAME", ""};
    return std::find(std::begin(kOthers), std::end(kOthers), name) != std::end(kOthers);
}

int printCandidates(Words const& words)
{
    Words candidates;
    try {
        if (!addCandidates(words, candidates))
            return exitNotFound;
    } catch (...) {
        return exitDone;  // a file that cannot be read has no candidates
    }
    std::string const typed = words.empty() ? "" : words.back();
    for (std::string const& candidate : candidates)
        if (candidate.starts_with(typed) && candidate.find('\n') == std::string::npos)
            puts(candidate.c_str());
    return exitDone;
}

}  // namespace

int runCompletion(Request const& request)
{
    if (request.shell == "candidates")
        return printCandidates(request.command);
    fputs(request.shell == "bash" ? kBash : request.shell == "zsh" ? kZsh : kFish, stdout);
    return exitDone;
}
