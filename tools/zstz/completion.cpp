// completion: the verb completion. The scripts of the shells ask zstz for the candidates.
#include <Z/dialects/line_rules.h>
#include <stdio.h>

#include <algorithm>

#include "arguments.h"
#include "commands.h"
#include "contents.h"
#include "dialect_choice.h"
#include "failures.h"
#include "key_lines.h"
#include "verbs.h"

namespace {

// Each script passes the words of the command line up to the cursor. Exit code 1 means that the
// word is a file name.

constexpr char kBash[] = R"script(# Completion of zstz for bash: source <(zstz completion bash)

# Sets REPLY to a word of the command line without its quotes.
_zstz_unquote()
{
    local text=$1 quote='' c
    REPLY=''
    if [[ $text == \~ || $text == \~/* ]]; then
        REPLY=$HOME text=${text:1}
    fi
    while [ -n "$text" ]; do
        c=${text:0:1} text=${text:1}
        case $quote$c in
            \\) REPLY+=${text:0:1} text=${text:1} ;;
            \"\\) [[ ${text:0:1} == [\"\\\$\`] ]] && c=${text:0:1} text=${text:1}
                  REPLY+=$c ;;
            \'|\") quote=$c ;;
            \'\'|\"\") quote='' ;;
            *) REPLY+=$c ;;
        esac
    done
}

_zstz()
{
    local -a words=()
    local word candidates last=${COMP_WORDS[COMP_CWORD]} REPLY
    for word in "${COMP_WORDS[@]:1:COMP_CWORD}"; do
        _zstz_unquote "$word"
        words+=("$REPLY")
    done
    COMPREPLY=()
    if candidates=$("${COMP_WORDS[0]}" completion candidates -- "${words[@]}" 2>/dev/null); then
        while IFS= read -r word; do
            case $last in
                '') ;;
                \'*) word=${word//\'/\'\\\'\'} ;;
                \"*) word=${word//\\/\\\\} word=${word//\"/\\\"}
                     word=${word//\$/\\\$} word=${word//\`/\\\`} ;;
            esac
            [[ $last == [\'\"]* ]] || printf -v word %q "$word"
            [ -z "$word" ] || [ "$word" = "''" ] || COMPREPLY+=("$word")
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
    local -a typed
    typed=("${(@Q)words[2,CURRENT]}")
    typed=("${(@)typed/#\~\//$HOME/}")
    typed[-1]=${typed[-1]#[\"\']}
    if candidates=$("${(Q)words[1]}" completion candidates -- "${typed[@]}" 2>/dev/null); then
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
    set words (string replace -r '^~/' "$HOME/" -- $words)
    set -l typed (commandline -ct | string replace -r '^["\']' '' | string replace -r '^~/' "$HOME/")
    set -l candidates ($command completion candidates -- $words "$typed" 2>/dev/null)
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
        request_.verb = verb.name;
        bool isAfterDashes = false;
        for (size_t i = 1; i < words.size(); ++i) {
            bool const isLast = i + 1 == words.size();
            std::string const& word = words[i];
            isOption_ = !isAfterDashes && word.starts_with('-') && word != "-";
            valueOf_ = i > 1 && !isAfterDashes ? optionBefore(words[i - 1]) : nullptr;
            size_t const sign = word.find('=');
            if (isOption_ && sign != word.npos && optionBefore(word.substr(0, sign)) != nullptr) {
                valueOf_ = optionBefore(word.substr(0, sign));
                valueBegin_ = sign + 1;
            }
            if (valueOf_ != nullptr && valueOf_->name == std::string_view("--dialect"))
                request_.dialect = word.substr(valueBegin_);
            if (isLast)
                break;
            valueBegin_ = 0;
            if (word == "--")
                isAfterDashes = true;
            else if (!isOption_ && valueOf_ == nullptr)
                arguments_.push_back(word);
        }
    }

    bool isOption() const { return isOption_ && valueOf_ == nullptr; }

    /// Returns the option whose value the last word is or ends with; null if it is an argument.
    Option const* valueOf() const { return valueOf_; }

    /// Returns the position of this value in the last word.
    size_t valueBegin() const { return valueBegin_; }

    /// Returns the verb, and the dialect that was passed.
    Request const& request() const { return request_; }

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
    size_t valueBegin_ = 0;
    Request request_;
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
    ZStanzaDialect_6_0 const dialect = chooseDialect(line.request(), *file);
    zlines::SharedDialect const lines = lineDialectOf(dialect);
    zdialects::LineRules const rules(*lines);
    auto const isStanza = [&](std::string const& stanza) {
        return line.argument(1) != nullptr &&
               rules.stanzaIdentity(stanza) ==
                   rules.stanzaIdentity(resolveStanza(dialect, *line.argument(1)));
    };
    auto const isKey = [&](std::string const& key) {
        return line.argument(2) != nullptr &&
               rules.keyIdentity(key) == rules.keyIdentity(*line.argument(2));
    };
    Store store(dialect);
    loadFile(*file, 0, store);
    for (StanzaContents const& stanza : contentsOf(store).stanzas) {
        if (name == "STANZA")  // of several stanzas with the name, a change needs the number
            candidates.push_back(stanza.name +
                                 (store.isAmbiguous(stanza.name.c_str()) != 0 ? "]1" : ""));
        else if (isStanza(stanza.name))
            for (KeyContents const& key : stanza.keys) {
                if (name == "KEY")
                    candidates.push_back(key.name);
                else if (isKey(key.name) && !key.isObfuscated)
                    for (ValueState const& state : key.values)
                        if (state.kind == ValueState::withValue)
                            candidates.push_back(state.value);
            }
    }
}

// Adds the candidates for the value of an option. Returns false if it is a file name.
bool addOptionValues(CommandLine const& line, Verb const& verb, Words& candidates)
{
    Option const& option = *line.valueOf();
    std::string_view const name = option.name;
    if (name == "--dialect") {
        for (int i = 0; char const* const dialect = ZStanzaDialect_6_0::nameAt(i); ++i)
            candidates.emplace_back(dialect);
        return true;
    }
    if (name == "--old" || name == "--before" || name == "--behind") {
        addContents(line, "VALUE", candidates);
        return true;
    }
    std::string_view const values = name == "--format" ? verb.formats : option.value;
    bool const isList = values.find('|') != values.npos || name == "--format";
    if (isList)
        candidates = splitAt(values, '|');
    return isList || (values != "TEMPLATE" && values != "JAVA" && values != "DIR");
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
    if (line.valueOf() != nullptr) {
        if (!addOptionValues(line, *verb, candidates))
            return false;
        for (std::string& candidate : candidates)
            candidate.insert(0, words.back(), 0, line.valueBegin());
        return true;
    }
    std::string const name = line.argumentName();
    Argument const* const argument = findArgument(name);
    if (argument != nullptr && !argument->words.empty()) {
        candidates = splitAt(argument->words, '|');
        std::erase(candidates, "candidates");
        return true;
    }
    if (name == "VERB") {
        addVerbs(candidates);
        return true;
    }
    if (name == "STANZA" || name == "KEY" || name == "VALUE") {
        addContents(line, name, candidates);
        return true;
    }
    constexpr char const* kOthers[] = {"NEW", "TEXT", "NAME", ""};
    return std::find(std::begin(kOthers), std::end(kOthers), name) != std::end(kOthers);
}

// Removes "=" between an option and its value, which bash passes as words of their own.
Words joinOptions(Words words)
{
    for (size_t i = 1; i + 1 < words.size(); ++i)
        if (words[i] == "=" && words[i - 1].starts_with("--"))
            words.erase(words.begin() + static_cast<ptrdiff_t>(i));
    if (words.size() > 1 && words.back() == "=" && words[words.size() - 2].starts_with("--"))
        words.back().clear();
    return words;
}

int printCandidates(Words const& given)
{
    Words const words = joinOptions(given);
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
