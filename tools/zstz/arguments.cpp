#include "arguments.h"

#include <Z/ZStanzaDialect_p.h>
#include <stdlib.h>

#include <algorithm>

#include "dialect_choice.h"
#include "failures.h"
#include "nearest_name.h"
#include "stanza_file.h"

namespace {

constexpr double kMaxWait = 1e9;  // seconds
constexpr char kDashesRemedy[] = "put -- before names and values that start with \"-\"";
constexpr char kMoveRemedy[] = "to move a key, use unset and set in a script of zstz edit";

// Calls `visit` for each part of `list`.
template <class Visit>
void forEachPart(std::string_view list, char separator, Visit visit)
{
    while (!list.empty()) {
        size_t const end = std::min(list.find(separator), list.size());
        std::string_view part = list.substr(0, end);
        list.remove_prefix(std::min(end + 1, list.size()));
        while (part.starts_with(' '))
            part.remove_prefix(1);
        if (!part.empty())
            visit(part);
    }
}

// Returns "a, b or c".
std::string joinWords(std::string_view words)
{
    std::string list;
    size_t const last = words.rfind('|');
    for (size_t i = 0; i < words.size(); ++i)
        list += words[i] != '|' ? std::string(1, words[i]) : i == last ? " or " : ", ";
    return list;
}

// Returns whether the value of an option is one of several words.
bool hasWords(Option const& option)
{
    return option.value != nullptr && std::string_view(option.value).find('|') != std::string::npos;
}

bool hasOptionalValue(Option const& option)
{
    return option.value != nullptr && *option.value == '[';
}

double parseSeconds(std::string const& text)
{
    char* end = nullptr;
    double const seconds = strtod(text.c_str(), &end);
    if (text.empty() || *end != 0 || !(seconds >= 0 && seconds <= kMaxWait))
        throw UsageError{"--wait: " + quote(text) +
                         " is not a number of seconds from 0 to 1000000000"};
    return seconds;
}

// Returns the name of an argument in reports.
std::string nameOf(Argument const& argument)
{
    return std::string(argument.name.substr(0, argument.name.find('.')));
}

// The arguments of a usage line such as "FILE [STANZA [KEY]] TEXT".
struct UsageLine {
    struct Place {
        Argument const* argument;
        bool isOptional;
        bool isRepeated;
    };

    explicit UsageLine(std::string_view usage, bool hasFixedFile)
    {
        int depth = 0;
        forEachPart(usage, ' ', [&](std::string_view word) {
            bool const isOptional = depth > 0 || word.front() == '[';
            depth += static_cast<int>(std::count(word.begin(), word.end(), '[')) -
                     static_cast<int>(std::count(word.begin(), word.end(), ']'));
            std::string_view name = word;
            while (name.starts_with('['))
                name.remove_prefix(1);
            name = name.substr(0, name.find(']'));
            if (name.starts_with("--") || (name == "FILE" && hasFixedFile))
                return;
            places.push_back({findArgument(name), isOptional, name.ends_with("...")});
        });
    }

    size_t requiredCount() const
    {
        return static_cast<size_t>(std::count_if(
            places.begin(), places.end(), [](Place const& place) { return !place.isOptional; }));
    }

    std::vector<Place> places;
};

class Parser {
public:
    Parser(Verb const& verb, Request& request, bool hasFixedFile)
        : verb_(verb), request_(request), hasFixedFile_(hasFixedFile)
    {
    }

    bool parse(std::vector<std::string> const& words);

private:
    template <class Visit>
    void forEachAllowedOption(Visit visit) const;
    Option const* findOption(std::string_view name, char shortName) const;
    [[noreturn]] void throwUnknownOption(std::string const& name) const;
    bool takesArgument() const;
    char const* wordsRemedy() const;
    void parseOption(std::string const& word, std::vector<std::string> const& words, size_t& at);
    void parseShortOptions(std::string const& word);
    void setFlag(Option const& option);
    void setValue(Option const& option, std::string const& value);
    std::string_view chooseUsage() const;
    void assignArguments();
    void setArgument(Argument const& argument, std::string const& text);
    void checkExclusions() const;
    void checkStandardInput() const;

    Verb const& verb_;
    Request& request_;
    bool const hasFixedFile_;
    std::vector<std::string> arguments_;
    PassedNames passed_;
};

bool Parser::parse(std::vector<std::string> const& words)
{
    bool isAfterDashes = false;
    for (size_t at = 0; at < words.size(); ++at) {
        std::string const& word = words[at];
        if (isAfterDashes || word.size() < 2 || word[0] != '-')
            arguments_.push_back(word);
        else if (word == "--")
            isAfterDashes = true;
        else if (word == "--help" || word == "-h")
            return false;
        else if (word[1] == '-')
            parseOption(word, words, at);
        else
            parseShortOptions(word);
    }
    assignArguments();
    checkExclusions();
    checkStandardInput();
    ZStanzaDialect_6_0 dialect;
    if (!request_.dialect.empty() &&
        ZStanzaDialect_6_0::named(request_.dialect.c_str(), dialect) == 0)
        throw UsageError{"--dialect: unknown dialect " + quote(request_.dialect),
                         "run 'zstz dialects' for a list"};
    if (verb_.check != nullptr)
        verb_.check(request_, passed_);
    return true;
}

template <class Visit>
void Parser::forEachAllowedOption(Visit visit) const
{
    // The options of an edit script apply to the whole script.
    if (hasFixedFile_)
        std::for_each(verb_.options.begin(), verb_.options.end(), visit);
    else
        forEachOption(verb_, visit);
}

Option const* Parser::findOption(std::string_view name, char shortName) const
{
    Option const* found = nullptr;
    forEachAllowedOption([&](Option const& option) {
        if (found == nullptr &&
            (shortName != 0 ? option.shortName == shortName : option.name == name))
            found = &option;
    });
    return found;
}

void Parser::throwUnknownOption(std::string const& name) const
{
    NearestName nearest(name);
    forEachAllowedOption([&](Option const& option) { nearest.compare(option.name); });
    UsageError error = {"unknown option " + quote(name)};
    if (!nearest.found().empty())
        error.remedy = "use " + nearest.found();
    else if (takesArgument())
        error.remedy = kDashesRemedy;
    else if (hasFixedFile_)  // a line of a script has few options, but values of several words
        error.remedy = wordsRemedy();
    throw error;
}

// Returns whether the verb takes another argument after arguments_.
bool Parser::takesArgument() const
{
    UsageLine const usage(chooseUsage(), hasFixedFile_);
    return usage.places.size() > arguments_.size() ||
           (!usage.places.empty() && usage.places.back().isRepeated);
}

// Returns the remedy for a word after the last argument; empty if that is a name.
char const* Parser::wordsRemedy() const
{
    UsageLine const usage(chooseUsage(), hasFixedFile_);
    std::string const last = usage.places.empty() ? "" : nameOf(*usage.places.back().argument);
    return last == "VALUE"  ? "put a value of several words in quotes"
           : last == "TEXT" ? "put a comment of several words in quotes"
                            : "";
}

void Parser::parseOption(std::string const& word, std::vector<std::string> const& words, size_t& at)
{
    size_t const sign = word.find('=');
    std::string const name = word.substr(0, sign);
    Option const* const option = findOption(name, 0);
    if (option == nullptr)
        throwUnknownOption(name);
    if (option->value == nullptr) {
        if (sign != word.npos)
            throw UsageError{name + " takes no value"};
        setFlag(*option);
    } else if (sign != word.npos) {
        setValue(*option, word.substr(sign + 1));
    } else if (hasOptionalValue(*option)) {
        setValue(*option, option->defaultValue);
    } else if (at + 1 < words.size()) {
        setValue(*option, words[++at]);
    } else {
        throw UsageError{name + ": a value is required"};
    }
}

void Parser::parseShortOptions(std::string const& word)
{
    for (size_t i = 1; i < word.size(); ++i) {
        Option const* const option = findOption("", word[i]);
        if (option == nullptr)
            throwUnknownOption(word);
        setFlag(*option);
    }
}

void Parser::setFlag(Option const& option)
{
    request_.*std::get<bool Request::*>(option.target) = true;
    passed_.add(option.name);
}

void Parser::setValue(Option const& option, std::string const& value)
{
    std::string_view const words = option.name == std::string_view("--format") ? verb_.formats
                                   : hasWords(option)                          ? option.value
                                                                               : "";
    if (!words.empty() && !isOneOf(value, words))
        throw UsageError{std::string(option.name) + ": " + quote(value) + " is not " +
                         joinWords(words)};
    if (auto const* const seconds = std::get_if<double Request::*>(&option.target)) {
        request_.** seconds = parseSeconds(value);
    } else {
        if (value.empty() && option.isPassed == nullptr)
            throw UsageError{std::string(option.name) + ": must not be empty"};
        request_.*std::get<std::string Request::*>(option.target) = value;
    }
    if (option.isPassed != nullptr)
        request_.*option.isPassed = true;
    passed_.add(option.name);
}

// Returns the usage line: the second one if it ends with an option that was passed.
std::string_view Parser::chooseUsage() const
{
    std::string_view const lines = verb_.arguments;
    std::string_view const first = lines.substr(0, lines.find('\n'));
    if (first.size() == lines.size())
        return first;
    std::string_view const second = lines.substr(first.size() + 1);
    bool isChosen = false;
    forEachPart(second.substr(second.rfind(' ') + 1), '|',
                [&](std::string_view option) { isChosen = isChosen || passed_.has(option); });
    return isChosen ? second : first;
}

// Assigns the arguments to their names. Optional names, from the left, take the arguments that the
// required names do not need.
void Parser::assignArguments()
{
    UsageLine const usage(chooseUsage(), hasFixedFile_);
    size_t const required = usage.requiredCount();
    size_t surplus = arguments_.size() - std::min(arguments_.size(), required);
    size_t next = 0;
    for (UsageLine::Place const& place : usage.places) {
        if (place.isOptional && surplus == 0)
            continue;
        surplus -= place.isOptional ? 1 : 0;
        if (next == arguments_.size())
            throw missingArgument(request_, nameOf(*place.argument));
        setArgument(*place.argument, arguments_[next++]);
        for (; place.isRepeated && surplus > 0; --surplus)
            setArgument(*place.argument, arguments_[next++]);
    }
    bool const isMove = verb_.name == std::string_view("rename");
    if (next < arguments_.size())
        throw UsageError{"unexpected argument " + quote(arguments_[next]),
                         isMove ? kMoveRemedy : wordsRemedy()};
}

// An empty file, stanza or key name is a mistake, often an unset shell variable.
void Parser::setArgument(Argument const& argument, std::string const& text)
{
    std::string const name = nameOf(argument);
    if (text.empty() && !argument.mayBeEmpty && !(verb_.takesEmptyKey && name == "KEY"))
        throw UsageError{name + ": must not be empty" +
                         (name == "STANZA" ? "; the keys above the first header are in ." : "")};
    if (!argument.words.empty() && !isOneOf(text, argument.words))
        throw UsageError{name + ": " + quote(text) + " is not " + joinWords(argument.words)};
    if (auto const* const list = std::get_if<std::vector<std::string> Request::*>(&argument.target))
        (request_.**list).push_back(text);
    else
        request_.*std::get<std::string Request::*>(argument.target) = text;
    if (argument.isPassed != nullptr)
        request_.*argument.isPassed = true;
    passed_.add(argument.name);
}

void Parser::checkExclusions() const
{
    forEachPart(verb_.excludes, ';', [this](std::string_view pair) {
        std::string_view const left = pair.substr(0, pair.find(' '));
        std::string_view const right = pair.substr(left.size() + 1);
        if (passed_.has(left) && passed_.has(right))
            throw UsageError{std::string(left) + " excludes " +
                             std::string(right.substr(0, right.find('.')))};
    });
}

// Standard input can be read once.
void Parser::checkStandardInput() const
{
    auto count = std::count(request_.files.begin(), request_.files.end(), kStandardInput);
    for (std::string const* const path : {&request_.file, &request_.other, &request_.base,
                                          &request_.script, &request_.templateFile})
        count += *path == kStandardInput ? 1 : 0;
    if (count > 1)
        throw UsageError{"only one file can be standard input"};
    if (request_.file == kStandardInput && !request_.backupSuffix.empty())
        throw UsageError{"--backup: standard input has no copy"};
}

}  // namespace

bool parseArguments(Verb const& verb, std::vector<std::string> const& words, Request& request,
                    std::string const* fixedFile)
{
    request.verb = verb.name;
    if (fixedFile != nullptr)
        request.file = *fixedFile;
    return Parser(verb, request, fixedFile != nullptr).parse(words);
}

UsageError missingArgument(Request const& request, std::string const& name)
{
    UsageError error = {name + " is required"};
    bool const isInStanza = !request.stanza.empty() || name == "STANZA";
    if (request.file.empty() || request.stanza == "." || !isInStanza)
        return error;
    ZStanzaDialect_6_0 const dialect = chooseDialect(request, request.file);
    if (zdialects::switchesOf(dialect).top == zdialects::Top::stanza)
        error.remedy = "the stanza of keys without a header is \".\"";
    return error;
}

bool isOneOf(std::string_view word, std::string_view words)
{
    bool isFound = false;
    forEachPart(words, '|', [&](std::string_view part) { isFound = isFound || part == word; });
    return isFound;
}
