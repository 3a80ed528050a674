#include "shell_words.h"

bool splitShellWords(std::string_view line, std::vector<std::string>& words)
{
    constexpr std::string_view kBlanks = " \t\r";
    constexpr std::string_view kQuotedByBackslash = "\"\\$`";  // in double quotes
    char quote = 0;
    bool isInWord = false;
    for (size_t at = 0; at < line.size(); ++at) {
        char const c = line[at];
        if (quote == 0 && kBlanks.find(c) != kBlanks.npos) {
            isInWord = false;
            continue;
        }
        if (quote == 0 && !isInWord && c == '#')
            return true;
        if (!isInWord)
            words.emplace_back();
        isInWord = true;
        bool const isBackslash =
            c == '\\' && quote != '\'' &&
            (quote == 0 || (at + 1 < line.size() &&
                            kQuotedByBackslash.find(line[at + 1]) != std::string_view::npos));
        if (isBackslash && at + 1 == line.size())
            return false;
        if (isBackslash)
            words.back() += line[++at];
        else if (c == quote)
            quote = 0;
        else if (quote == 0 && (c == '\'' || c == '"'))
            quote = c;
        else
            words.back() += c;
    }
    return quote == 0;
}
