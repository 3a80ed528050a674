#include "dialect_style.h"

#include <Z/dialects/line_rules.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

using zlines::Line;

constexpr char kBlanks[] = " \t";

std::string_view trimEnd(std::string_view text)
{
    return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

// Returns a line without the spaces at its end. They stay after a backslash, which would join the
// next line without them.
std::string_view cutBlanks(std::string_view line)
{
    std::string_view const cut = trimEnd(line);
    return cut.ends_with('\\') ? line : cut;
}

// Returns a value or comment of several lines without the spaces at the ends of its lines.
std::string cutLines(std::string_view lines)
{
    std::string cut;
    for (size_t at = 0; at <= lines.size();) {
        size_t const end = std::min(lines.find('\n', at), lines.size());
        std::string_view line = lines.substr(at, end - at);
        bool const hasReturn = end < lines.size() && line.ends_with('\r');
        line.remove_suffix(hasReturn ? 1 : 0);
        ((cut += cutBlanks(line)) += hasReturn ? "\r" : "") += end < lines.size() ? "\n" : "";
        at = end + 1;
    }
    return cut;
}

class Styler {
public:
    Styler(std::string_view text, zlines::Dialect const& dialect, bool keepsBlanksAtEnd)
        : text_(text), dialect_(dialect), keepsBlanksAtEnd_(keepsBlanksAtEnd)
    {
        dialect.split(text, lines_);
    }

    std::string format()
    {
        std::string out(text_.substr(0, lines_.empty() ? text_.size() : lines_.front().begin));
        for (size_t i = 0; i < lines_.size(); ++i)
            if (lines_[i].kind != zlines::blankLine || i == 0 ||
                lines_[i - 1].kind != zlines::blankLine)
                appendLine(i, out);
        return out;
    }

private:
    void appendLine(size_t index, std::string& out) const
    {
        Line const& line = lines_[index];
        size_t const end = index + 1 < lines_.size() ? lines_[index + 1].begin : text_.size();
        std::string_view const whole = text_.substr(line.begin, end - line.begin);
        std::string_view body = whole;
        if (body.ends_with('\n'))
            body.remove_suffix(body.ends_with("\r\n") ? 2 : 1);
        std::string_view const lineEnding = whole.substr(body.size());
        bool const isShared = lineEnding.empty() && index + 1 < lines_.size();
        if (line.kind == zlines::otherLine || isShared)
            out += whole;
        else if (line.kind == zlines::valueLine)
            appendValue(line, body, lineEnding, out);
        else
            (out += cutLines(body)) += lineEnding;
    }

    // Returns the value of a key line, which can have several lines.
    std::string valueOf(std::string_view line) const
    {
        zdialects::LoneText const lone(dialect_, line);
        if (!lone.isOneLine() || lone.lines.back().kind != zlines::valueLine)
            return "";
        std::string space;
        return std::string(dialect_.value(lone.text, lone.lines.back(), space)) + '=';
    }

    // Returns the value of a key line and the rest of the line, without the spaces at the ends of
    // lines, unless they belong to the value.
    std::string cutValue(std::string_view body, size_t valueBegin) const
    {
        std::string_view const rest = body.substr(valueBegin);
        if (keepsBlanksAtEnd_)
            return std::string(rest);
        if (body.find('\n') == body.npos)
            return std::string(cutBlanks(rest));
        std::string const key(body.substr(0, valueBegin));
        std::string const value = valueOf(body);
        size_t const last = rest.find_last_of('\n') + 1;
        for (std::string const& cut :
             {cutLines(rest), std::string(rest.substr(0, last)) + cutLines(rest.substr(last))})
            if (!value.empty() && valueOf(key + cut) == value)
                return cut;
        return std::string(rest);
    }

    void appendValue(Line const& line, std::string_view body, std::string_view lineEnding,
                     std::string& out) const
    {
        std::string_view const separator = zlines::slice(text_, line.nameEnd, line.valueBegin);
        size_t const sign = separator.find_first_of(dialect_.separatorBytes());
        bool const isPlain =
            sign != separator.npos && separator.find_first_of("\n\\") == separator.npos;
        bool const isEmpty = line.valueBegin == line.valueEnd;
        std::string const rest = cutValue(body, line.valueBegin - line.begin);
        std::string_view own = dialect_.ownSeparator();
        if (rest.empty() || rest.starts_with('\n') || rest.starts_with('\r'))
            own = trimEnd(own);
        out += body.substr(0, line.nameEnd - line.begin);
        // A marker may be between the key and the separator.
        if (isPlain && !(isEmpty && !rest.empty()))
            (out += trimEnd(separator.substr(0, sign))) += own;
        else
            out += separator;
        (out += rest) += lineEnding;
    }

    std::string_view const text_;
    zlines::Dialect const& dialect_;
    bool const keepsBlanksAtEnd_;
    std::vector<Line> lines_;
};

}  // namespace

std::string formatStyle(std::string_view text, zlines::Dialect const& dialect,
                        bool keepsBlanksAtEnd)
{
    return Styler(text, dialect, keepsBlanksAtEnd).format();
}
