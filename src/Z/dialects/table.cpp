#include "table.h"

#include <algorithm>
#include <array>
#include <bit>
#include <iterator>

namespace zdialects {

namespace {

constexpr Switches kSystemd = {
    .marks = markHash | markSemicolon,
    .heads = Heads::endsLine,
    .top = Top::passedOver,
    .join = joinAsBlank,
    .joinSkipsComments = true,
    .repeatedKey = RepeatedKey::values,
    .emptyValues = EmptyValues::reset,
    .byteOrderMark = true,
    .separatorStyle = SeparatorStyle::tightEquals,
    .notPlain = notPlainReturns,
    .refusals = refusalNotUtf8,
    .returns = Returns::lineEnd,
};

constexpr Switches networkd()
{
    Switches switches = kSystemd;
    switches.repeatedHead = RepeatedHead::separate;
    return switches;
}

constexpr Switches kPython = {
    .marks = markHash | markSemicolon,
    .heads = Heads::toLastBracket,
    .separators = separatorEquals | separatorColon,
    .join = joinIndented,
    .foldKeys = true,
    .notPlain = notPlainReturns | notPlainControls | notPlainUnicode,
    .refusals = refusalRepeatedHeads | refusalRepeatedKeys | refusalPassedOver,
    .returns = Returns::lineEnd,
};

constexpr Switches pythonInline()
{
    Switches switches = kPython;
    switches.refusals = refusalPassedOver;  // its programs read with strict=False
    switches.trailing = markHash | markSemicolon;
    switches.trailingNeeds = TrailingNeeds::blankBefore;
    return switches;
}

constexpr Switches kIni = {
    .marks = markHash | markSemicolon,
    .top = Top::stanza,
    .byteOrderMark = true,
    .notPlain = notPlainReturns,
    .commentStyle = CommentStyle::semicolon,
};

constexpr Switches windows()
{
    Switches switches = kIni;
    switches.foldStanzas = FoldStanzas::all;
    switches.foldKeys = true;
    switches.repeatedKey = RepeatedKey::first;
    switches.separatorStyle = SeparatorStyle::tightEquals;
    switches.joinedHeads = JoinedHeads::first;
    return switches;
}

// In the order of RowIndex.
constexpr Row kRows[] = {
    {"stanza",
     {
         .repeatedHead = RepeatedHead::refused,
         .keyAlone = KeyAlone::refused,
         .repeatedKey = RepeatedKey::values,
         .emptyValues = EmptyValues::none,
     }},
    {"systemd", kSystemd},
    {"networkd", networkd()},
    {"desktop",
     {
         .heads = Heads::alone,
         .keyAlone = KeyAlone::refused,
         .escapes = Escapes::desktop,
         .blanksAtEnd = true,
         .separatorStyle = SeparatorStyle::tightEquals,
         .notPlain = notPlainReturns | notPlainControls | notPlainBackslashes,
     }},
    {"git",
     {
         .marks = markHash | markSemicolon,
         .trailing = markHash | markSemicolon,
         .heads = Heads::subsection,
         .top = Top::stanza,
         .keyAlone = KeyAlone::option,
         .join = joinInsideValue,
         .quotes = quoteDouble,
         .quoting = Quoting::anywhere,
         .escapes = Escapes::git,
         .unknownEscape = UnknownEscape::refused,
         .foldStanzas = FoldStanzas::beforeSubsection,
         .foldKeys = true,
         .repeatedKey = RepeatedKey::values,
         .byteOrderMark = true,
         .indentStyle = IndentStyle::tab,
         .notPlain = notPlainReturns | notPlainTabs,
     }},
    {"php",
     {
         .marks = markSemicolon,
         .trailing = markSemicolon,
         .top = Top::stanza,
         .keyAlone = KeyAlone::passedOverOrNoName,
         .join = joinOpenQuote,
         .quotes = quoteDouble | quoteSingle,
         .quoting = Quoting::whole,
         .escapes = Escapes::php,
         .repeatedKey = RepeatedKey::lastOrPhpList,
         .byteOrderMark = true,
         .notPlain = notPlainReturns | notPlainConstants,
         .newKeys = NewKeys::php,
         .refusals = refusalPhp,
         .returns = Returns::lineEnd,
         .newStanzas = NewStanzas::php,
         .joinedHeads = JoinedHeads::last,
     }},
    {"samba",
     {
         .marks = markHash | markSemicolon,
         .top = Top::stanza,
         .keyAlone = KeyAlone::passedOverOrNoName,
         .join = joinAsNothing,
         .commentsJoin = true,
         .foldStanzas = FoldStanzas::all,
         .foldKeys = true,
         .dropBlanks = true,
         .byteOrderMark = true,
         .notPlain = notPlainReturns | notPlainControls,
         .blankRuns = BlankRuns::first,
     }},
    {"mysql",
     {
         .marks = markHash | markSemicolon | markDirective,
         .trailing = markHash,
         .heads = Heads::toBracketTrimmed,
         .keyAlone = KeyAlone::option,
         .quotes = quoteDouble | quoteSingle,
         .quoting = Quoting::ends,
         .escapes = Escapes::mysql,
         .dashes = true,
         .repeatedKey = RepeatedKey::values,
         .notPlain = notPlainReturns | notPlainControls,
         .lineLimit = LineLimit::bytes4094,
         .newStanzas = NewStanzas::trimmed,
         .notPlainMore = notPlainLatinSpace,
     }},
    {"python", kPython},
    {"python-inline", pythonInline()},
    {"qt",
     {
         .marks = markHash | markSemicolon,
         .trailing = markSemicolon,
         .top = Top::stanza,
         .join = joinInsideValue | joinOpenQuote,
         .quotes = quoteDouble,
         .quoting = Quoting::anywhereSkipping,
         .escapes = Escapes::c,
         .unknownEscape = UnknownEscape::dropped,
         .byteOrderMark = true,
         .separatorStyle = SeparatorStyle::tightEquals,
         .notPlain = notPlainReturns | notPlainCommas,
         .commentStyle = CommentStyle::semicolon,
         .names = Names::percent,
         .returns = Returns::lineEnd,
         .nonAscii = NonAscii::escaped,
     }},
    {"kconfig",
     {
         .heads = Heads::bracketedGroups,
         .top = Top::stanza,
         .escapes = Escapes::kconfig,
         .markers = markerDollarSuffix,
         .separatorStyle = SeparatorStyle::tightEquals,
         .notPlain = notPlainReturns | notPlainBackslashes,
         .names = Names::escaped,
     }},
    {"editorconfig",
     {
         .marks = markHash | markSemicolon,
         .trailing = markHash | markSemicolon,
         .trailingNeeds = TrailingNeeds::blankBeforeInValue,
         .heads = Heads::toLastBracket,
         .top = Top::stanza,
         .separators = separatorEquals | separatorColon,
         .keyAlone = KeyAlone::refused,
         .foldKeys = true,
         .byteOrderMark = true,
         .notPlain = notPlainReturns | notPlainControls | notPlainUnicode,
         .returns = Returns::lineEnd,
         .notPlainMore = notPlainLineSeparators,
     }},
    {"ini", kIni},
    {"windows", windows()},
    {"sysctl",
     {
         .marks = markHash | markSemicolon,
         .heads = Heads::none,
         .top = Top::stanza,
         .markers = markerMinusPrefix,
         .notPlain = notPlainReturns | notPlainControls,
         .returns = Returns::lineEnd,
         .paths = Paths::dotsOrSlashes,
     }},
    {"env",
     {
         .trailing = markHash,
         .trailingNeeds = TrailingNeeds::blankBefore,
         .heads = Heads::none,
         .top = Top::stanza,
         .separators = separatorEquals | separatorTight,
         .join = joinInsideValue | joinOpenQuote,
         .quotes = quoteDouble | quoteSingle,
         .quoting = Quoting::whole,
         .escapes = Escapes::environment,
         .unknownEscape = UnknownEscape::keptInQuotes,
         .markers = markerExportPrefix,
         .separatorStyle = SeparatorStyle::tightEquals,
         .notPlain = notPlainShell,
         .newKeys = NewKeys::shell,
         .returns = Returns::lineEnd,
     }},
};
static_assert(std::size(kRows) == kRowCount);

// A switch in variations. Words are separated by spaces, in the order of their numbers, or of their
// bits if it is a set; characters are in the order of the bits.
struct Form {
    std::string_view name;
    bool isSet;
    std::string_view words;
    std::string_view characters = {};
};

constexpr std::string_view kYes = "no yes";

// In the order of the fields of Switches.
constexpr Form kForms[] = {
    {"marks", true, "hash semicolon directive", "#;!"},
    {"trailing", true, "hash semicolon", "#;"},
    {"trailingNeeds", false, "nothing blankBefore blankBeforeInValue"},
    {"heads", false,
     "none toBracket endsLine alone subsection toLastBracket bracketedGroups "
     "toBracketTrimmed"},
    {"top", false, "refused passedOver stanza"},
    {"repeatedHead", false, "refused joined separate"},
    {"separators", true, "equals colon tight", "=:"},
    {"keyAlone", false, "refused passedOver passedOverOrNoName option"},
    {"join", true, "asBlank asNothing insideValue openQuote indented"},
    {"joinSkipsComments", false, kYes},
    {"commentsJoin", false, kYes},
    {"quotes", true, "double single", "\"'"},
    {"quoting", false, "none anywhere anywhereSkipping whole ends"},
    {"escapes", false, "none desktop git php mysql c kconfig environment"},
    {"unknownEscape", false, "kept keptInQuotes dropped refused"},
    {"foldStanzas", false, "none all beforeSubsection"},
    {"foldKeys", false, kYes},
    {"dropBlanks", false, kYes},
    {"dashes", false, kYes},
    {"markers", true, "dollarSuffix minusPrefix exportPrefix"},
    {"repeatedKey", false, "values last first lastOrList lastOrPhpList"},
    {"emptyValues", false, "none value reset"},
    {"blanksAtEnd", false, kYes},
    {"byteOrderMark", false, kYes},
    {"separatorStyle", false, "spaced tightEquals"},
    {"indentStyle", false, "none tab"},
    {"notPlain", true, "returns tabs controls unicode backslashes commas shell constants"},
    {"newKeys", false, "any shell php"},
    {"commentStyle", false, "hash semicolon"},
    {"lineLimit", false, "mebibyte bytes4094"},
    {"refusals", true, "repeatedHeads repeatedKeys passedOver notUtf8 php"},
    {"names", false, "plain percent escaped"},
    {"returns", false, "text lineEnd"},
    {"newStanzas", false, "any php trimmed"},
    {"notPlainMore", true, "latinSpace lineSeparators"},
    {"nonAscii", false, "bytes escaped"},
    {"blankRuns", false, "kept first"},
    {"paths", false, "none dotsOrSlashes"},
    {"joinedHeads", false, "all last first"},
};
static_assert(std::size(kForms) == kSwitchCount);

// Returns the text up to `end`, and removes both from `text`.
std::string_view takeUntil(char end, std::string_view& text)
{
    std::string_view const taken = text.substr(0, text.find(end));
    text.remove_prefix(std::min(taken.size() + 1, text.size()));
    return taken;
}

int wordCount(Form const& form)
{
    return 1 + static_cast<int>(std::count(form.words.begin(), form.words.end(), ' '));
}

// Returns the position of a word in the form, or -1.
int findWord(Form const& form, std::string_view word)
{
    std::string_view words = form.words;
    for (int index = 0; !words.empty(); ++index)
        if (takeUntil(' ', words) == word)
            return index;
    return -1;
}

// Returns the set of words and characters, or -1. "none" and the empty text are the empty set.
int parseSet(Form const& form, std::string_view text)
{
    int bits = 0;
    if (text == "none")
        return bits;
    while (!text.empty()) {
        std::string_view const token = takeUntil('+', text);
        int const word = findWord(form, token);
        if (word >= 0) {
            bits |= 1 << word;
            continue;
        }
        for (char const c : token) {
            size_t const index = form.characters.find(c);
            if (index == form.characters.npos)
                return -1;
            bits |= 1 << index;
        }
    }
    return bits;
}

using Bytes = std::array<uint8_t, kSwitchCount>;

}  // namespace

Row const& rowAt(int index)
{
    return kRows[index];
}

Row const* findRow(std::string_view name)
{
    auto const* const row = std::find_if(std::begin(kRows), std::end(kRows),
                                         [name](Row const& r) { return r.name == name; });
    return row == std::end(kRows) ? nullptr : row;
}

bool isValue(int index, int value)
{
    if (index < 0 || index >= kSwitchCount || value < 0)
        return false;
    Form const& form = kForms[index];
    return value < (form.isSet ? 1 << wordCount(form) : wordCount(form));
}

namespace {

// Returns whether the reader of dialects can follow the switches.
bool isReadable(Switches const& switches)
{
    if (switches.isStanzaFormat() || !(switches.separators & (separatorEquals | separatorColon)))
        return false;
    bool const isOnLines =
        switches.quoting == Quoting::anywhere || switches.quoting == Quoting::anywhereSkipping;
    if (isOnLines || switches.quoting == Quoting::whole) {
        // These values are read line by line, and joined lines from a copy.
        if (switches.join & (kLineJoins | joinIndented))
            return false;
    } else if (switches.join & (joinInsideValue | joinOpenQuote)) {
        return false;
    }
    if (switches.unknownEscape == UnknownEscape::refused && !isOnLines)
        return false;
    if ((switches.join & kLineJoins) != 0 &&
        ((switches.join & kLineJoins) == kLineJoins || switches.blanksAtEnd))
        return false;
    if ((switches.join & joinIndented) != 0 &&
        (switches.join != joinIndented || switches.quoting != Quoting::none ||
         switches.escapes != Escapes::none))
        return false;
    if (switches.trailing != 0 && switches.trailingNeeds != TrailingNeeds::nothing &&
        switches.quoting != Quoting::none &&
        (switches.quoting != Quoting::whole ||
         switches.trailingNeeds != TrailingNeeds::blankBefore))
        return false;
    return switches.heads != Heads::subsection ||
           (switches.keyAlone == KeyAlone::option && !(switches.separators & separatorTight) &&
            switches.markers == 0 && !(switches.join & joinIndented));
}

}  // namespace

bool isVariation(Switches const& original, Switches const& varied)
{
    return varied == original || (!original.isStanzaFormat() && isReadable(varied));
}

bool applyVariations(std::string_view text, Switches& switches)
{
    auto bytes = std::bit_cast<Bytes>(switches);
    while (!text.empty()) {
        std::string_view value = takeUntil(',', text);
        std::string_view const name = takeUntil('=', value);
        auto const* const form = std::find_if(std::begin(kForms), std::end(kForms),
                                              [name](Form const& f) { return f.name == name; });
        if (form == std::end(kForms) || value.data() == name.data() + name.size())
            return false;  // no such name, or no "="
        int const number = form->isSet ? parseSet(*form, value) : findWord(*form, value);
        if (number < 0)
            return false;
        bytes[static_cast<size_t>(form - std::begin(kForms))] = static_cast<uint8_t>(number);
    }
    auto const varied = std::bit_cast<Switches>(bytes);
    if (!isVariation(switches, varied))
        return false;
    switches = varied;
    return true;
}

std::string spellDialect(Row const& row, Switches const& switches)
{
    auto const before = std::bit_cast<Bytes>(row.switches);
    auto const now = std::bit_cast<Bytes>(switches);
    std::string spelled = row.name;
    for (size_t i = 0; i < now.size(); ++i) {
        if (now[i] == before[i])
            continue;
        Form const& form = kForms[i];
        spelled += ',';
        spelled += form.name;
        spelled += '=';
        std::string_view words = form.words;
        std::string value;
        for (int index = 0; !words.empty(); ++index) {
            std::string_view const word = takeUntil(' ', words);
            if (form.isSet ? (now[i] >> index & 1) == 0 : now[i] != index)
                continue;
            value += value.empty() ? "" : "+";
            value += word;
        }
        spelled += value.empty() ? "none" : value;
    }
    return spelled;
}

}  // namespace zdialects
