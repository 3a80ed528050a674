#include "plain_values.h"

#include <algorithm>

#include "characters.h"
#include "escaped_names.h"
#include "escapes.h"

namespace zdialects {

namespace {

// Spaces that only some readers know, the second in UTF-8.
constexpr std::string_view kControlSpaces[] = {"\v", "\f"};
constexpr std::string_view kUnicodeSpaces[] = {
    "\x1c",         "\x1d",         "\x1e",         "\x1f",         "\xc2\x85",     "\xc2\xa0",
    "\xe1\x9a\x80", "\xe2\x80\x80", "\xe2\x80\x81", "\xe2\x80\x82", "\xe2\x80\x83", "\xe2\x80\x84",
    "\xe2\x80\x85", "\xe2\x80\x86", "\xe2\x80\x87", "\xe2\x80\x88", "\xe2\x80\x89", "\xe2\x80\x8a",
    "\xe2\x80\xa8", "\xe2\x80\xa9", "\xe2\x80\xaf", "\xe2\x81\x9f", "\xe3\x80\x80",
};

constexpr std::string_view kLatinSpaces[] = {"\xa0"};
constexpr std::string_view kLineSeparators[] = {
    "\v", "\f", "\x1c", "\x1d", "\x1e", "\xc2\x85", "\xe2\x80\xa8", "\xe2\x80\xa9",
};

// Words of PHP for true, false and null.
constexpr std::string_view kConstantWords[] = {"null",  "none", "no", "off",
                                               "false", "yes",  "on", "true"};

bool isWord(char c)
{
    return isLetter(c) || isDigit(c) || c == '_';
}

template <size_t kCount>
bool hasAtAnEnd(std::string_view line, std::string_view const (&spaces)[kCount])
{
    return std::any_of(spaces, spaces + kCount, [line](std::string_view space) {
        return line.starts_with(space) || line.ends_with(space);
    });
}

// Returns whether a line of the value has such spaces at an end, next to others or not.
template <size_t kCount>
bool hasLineWithin(std::string_view value, std::string_view const (&spaces)[kCount])
{
    for (;;) {
        size_t const end = std::min(value.find('\n'), value.size());
        std::string_view line = value.substr(0, end);
        line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
        line = line.substr(0, line.find_last_not_of(" \t") + 1);
        if (hasAtAnEnd(line, spaces))
            return true;
        if (end == value.size())
            return false;
        value.remove_prefix(end + 1);
    }
}

// Returns whether programs of the format refuse a file with the bytes outside comments.
bool isRefused(Switches const& switches, std::string_view text)
{
    return (switches.refusals & refusalNotUtf8) != 0 && !isUtf8(text);
}

// Returns whether programs of the format read a line of text up to both ends.
bool isReadWhole(Switches const& switches, std::string_view text)
{
    unsigned const bits = switches.notPlain;
    return !((bits & notPlainReturns) && text.find('\r') != text.npos) &&
           !((bits & notPlainControls) && hasLineWithin(text, kControlSpaces)) &&
           !((bits & notPlainUnicode) && hasLineWithin(text, kUnicodeSpaces)) &&
           !((switches.notPlainMore & notPlainLatinSpace) && hasLineWithin(text, kLatinSpaces));
}

bool isShellWord(std::string_view spelled)
{
    constexpr std::string_view kSafe = "_./:,+@%=-";
    return std::all_of(spelled.begin(), spelled.end(), [=](char c) {
        return isLetter(c) || isDigit(c) || kSafe.find(c) != kSafe.npos;
    });
}

bool isConstantWord(std::string_view word)
{
    auto const isSame = [](char a, char b) { return foldedCase(a) == b; };
    return std::any_of(
        std::begin(kConstantWords), std::end(kConstantWords), [&](std::string_view constant) {
            return std::equal(word.begin(), word.end(), constant.begin(), constant.end(), isSame);
        });
}

bool hasConstantWord(std::string_view spelled)
{
    for (size_t at = 0; at < spelled.size();) {
        size_t end = at;
        while (end < spelled.size() && isWord(spelled[end]))
            ++end;
        if (isConstantWord(spelled.substr(at, end - at)))
            return true;
        at = end + 1;
    }
    return false;
}

// Reads expressions of PHP: numbers and names in upper case with operators between them.
class ConstantExpression {
public:
    explicit ConstantExpression(std::string_view text) : rest_(text) { skipBlanks(); }

    bool isValid()
    {
        size_t open = 0;  // brackets
        for (;;) {
            while (take("!~(") != 0)
                open += last_ == '(' ? 1 : 0;
            if (!takeOperand())
                return false;
            while (open > 0 && take(")") != 0)
                --open;
            if (rest_.empty())
                return open == 0;
            if (take("|&^") == 0)
                return false;
        }
    }

    // Returns whether the operands that isValid() read are error levels, at least one by its name.
    bool isLevel() const { return hasLevel_ && !hasOtherName_; }

private:
    void skipBlanks()
    {
        while (rest_.starts_with(' ') || rest_.starts_with('\t'))
            rest_.remove_prefix(1);
    }

    char take(std::string_view characters)
    {
        last_ = !rest_.empty() && characters.find(rest_[0]) != characters.npos ? rest_[0] : '\0';
        if (last_ != 0) {
            rest_.remove_prefix(1);
            skipBlanks();
        }
        return last_;
    }

    bool takeOperand()
    {
        auto const isOfName = [](char c) {
            return isDigit(c) || c == '_' || (c >= 'A' && c <= 'Z');
        };
        bool const hasSign = rest_.starts_with('-');
        rest_.remove_prefix(hasSign ? 1 : 0);
        auto const end = std::find_if_not(rest_.begin(), rest_.end(), isOfName);
        std::string_view const operand = rest_.substr(0, static_cast<size_t>(end - rest_.begin()));
        bool const isNumber = std::all_of(operand.begin(), operand.end(), isDigit);
        if (operand.empty() || (!isNumber && (hasSign || isDigit(operand[0]))) ||
            isConstantWord(operand))
            return false;
        if (!isNumber)
            (operand.starts_with("E_") ? hasLevel_ : hasOtherName_) = true;
        rest_.remove_prefix(operand.size());
        skipBlanks();
        return true;
    }

    std::string_view rest_;
    bool hasLevel_ = false;
    bool hasOtherName_ = false;
    char last_ = 0;
};

bool isConstant(std::string_view text)
{
    return isConstantWord(text) || ConstantExpression(text).isValid();
}

// PHP would read such an expression in quotes as the level 0.
bool isErrorLevel(std::string_view text)
{
    ConstantExpression expression(text);
    return expression.isValid() && expression.isLevel();
}

// Returns whether PHP reads the bytes as they are.
bool isPlainText(std::string_view spelled)
{
    return spelled.find_first_of("!\"&'();=^|~\r\n") == spelled.npos && !spelled.ends_with('$') &&
           spelled.find(kVariableStart) == spelled.npos && !hasConstantWord(spelled);
}

}  // namespace

bool isPlainSafe(Switches const& switches, std::string_view spelled, std::string_view before)
{
    unsigned const bits = switches.notPlain;
    if (isNumbered(switches, spelled) || !isReadWhole(switches, spelled))
        return false;
    if ((bits & notPlainTabs) && spelled.find('\t') != spelled.npos)
        return false;
    if ((bits & notPlainCommas) && spelled.find(',') != spelled.npos &&
        before.find(',') == before.npos)
        return false;
    if ((bits & notPlainShell) && !isShellWord(spelled))
        return false;
    if ((switches.notPlainMore & notPlainLineSeparators) &&
        std::any_of(
            std::begin(kLineSeparators), std::end(kLineSeparators),
            [=](std::string_view separator) { return spelled.find(separator) != spelled.npos; }))
        return false;
    if (isRefused(switches, spelled))
        return false;
    return !(bits & notPlainConstants) || isPlainText(spelled) || isErrorLevel(spelled) ||
           (isConstant(spelled) && isConstant(before));
}

bool isQuotedSafe(Switches const& switches, std::string_view value)
{
    return !(switches.notPlain & notPlainConstants) || value.find(kVariableStart) == value.npos ||
           value.find('\'') != value.npos;
}

bool isNewStanzaSafe(Switches const& switches, std::string_view name)
{
    if (isRefused(switches, name))
        return false;
    switch (switches.newStanzas) {
        case NewStanzas::any:
            return true;
        case NewStanzas::trimmed:
            return trimmedName(name).size() == name.size();
        case NewStanzas::php:
            break;
    }
    if (name.find_first_of("\r\n\"';") != name.npos || name.find("${") != name.npos)
        return false;
    // For PHP, a backslash or dollar sign belongs to the next character, which can be the bracket.
    size_t at = 0;
    while (at < name.size())
        at += name[at] == '\\' || name[at] == '$' ? 2 : 1;
    return at == name.size();
}

bool isNewKeySafe(Switches const& switches, std::string_view name)
{
    if (isRefused(switches, name) ||
        (switches.names == Names::plain && !isReadWhole(switches, name)))
        return false;
    if (switches.names == Names::escaped && hasBackslash(name))
        return false;
    switch (switches.newKeys) {
        case NewKeys::any:
            break;
        case NewKeys::shell:
            return std::all_of(name.begin(), name.end(), isWord) && !name.empty() &&
                   !isDigit(name[0]);
        case NewKeys::php: {
            std::string_view const base = name.substr(0, name.find('['));
            std::string_view const index = name.substr(base.size());
            bool const isIndexValid =
                index.empty() ||
                (index.ends_with(']') && index.find_first_of("[]", 1) == index.size() - 1);
            return name.find_first_of("\t\r\n!\"$&();=^{|}~") == name.npos && isIndexValid &&
                   !isConstantWord(base);
        }
    }
    return true;
}

}  // namespace zdialects
