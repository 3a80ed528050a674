#include "shell_words.h"

namespace {

// Returns the length of the line ending at this position, or 0.
size_t lineEndingAt(std::string_view text, size_t at)
{
    text = text.substr(at < text.size() ? at : text.size());
    return text.starts_with('\n') ? 1 : text.starts_with("\r\n") ? 2 : 0;
}

}  // namespace

ShellLine readShellLine(std::string_view text, size_t begin)
{
    constexpr std::string_view kBlanks = " \t\r";
    constexpr std::string_view kQuotedByBackslash = "\"\\$`";  // in double quotes
    ShellLine line;
    char quote = 0;
    size_t quoteAt = 0;
    bool isInWord = false;
    size_t at = begin;
    for (; at < text.size(); ++at) {
        char const c = text[at];
        if (quote == 0 && c == '\n')
            break;
        if (quote == 0 && kBlanks.find(c) != kBlanks.npos) {
            isInWord = false;
            continue;
        }
        if (quote == 0 && !isInWord && c == '#') {
            at = text.find('\n', at);
            break;
        }
        if (!isInWord)
            line.words.emplace_back();
        isInWord = true;
        if (c == '\\' && quote != '\'') {
            size_t const ending = lineEndingAt(text, at + 1);
            bool const isAtEnd = at + 1 == text.size() || ending > 0;
            if (quote == 0 && isAtEnd && line.fault == ShellLine::Fault::none) {
                line.fault = ShellLine::Fault::backslashAtEnd;
                line.faultAt = at;
            }
            if (quote == '"' && ending > 0) {
                at += ending;
                continue;
            }
            bool const quotes = !isAtEnd && (quote == 0 || kQuotedByBackslash.find(text[at + 1]) !=
                                                               std::string_view::npos);
            line.words.back() += quotes ? text[++at] : c;
        } else if (c == quote) {
            quote = 0;
        } else if (quote == 0 && (c == '\'' || c == '"')) {
            quote = c;
            quoteAt = at;
        } else if (c != '\r' || lineEndingAt(text, at) == 0) {
            line.words.back() += c;
        }
    }
    if (quote != 0 && line.fault == ShellLine::Fault::none) {
        line.fault = ShellLine::Fault::openQuote;
        line.faultAt = quoteAt;
    }
    line.end = at < text.size() ? at + 1 : text.size();
    return line;
}
