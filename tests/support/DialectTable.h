// DialectTable: the switches of a configuration dialect, and a row of them for each dialect.
//
// A switch has the name of its enumerator in the library without the prefix. Sets of bits are
// unsigned, everything else is an enumeration. If the format leaves a case open, the row has a
// comment with the behaviour of the format's own reader.
#pragma once

#include <string_view>

namespace dialect_model {

// Bits of `marks` and `trailing`. A line that starts with a directive mark is passed over.
enum Mark : unsigned { noMark = 0, hash = 1, semicolon = 2, directive = 4 };

// Condition for a mark after a value to start a comment.
enum class TrailingNeeds {
    nothing,            // any mark outside quotes
    blankBefore,        // a mark outside quotes, after a space or a tab
    blankBeforeInValue  // the same, but in keys and as the first of a value, it is text
};

enum class Heads {
    none,        // a bracket has no meaning
    toBracket,   // name up to the first ']'; the rest of the line is ignored
    endsLine,    // ']' must be the last character; a ']' before it belongs to the name; no quotes,
                 // backslashes or control characters in a name
    alone,       // as endsLine; neither brackets nor control characters in a name, not empty
    subsection,  // [a "B"] is a.B; [a.B] is a.b; a key can follow on the same line
    toLastBracket,    // name up to the last ']', not empty; without it the line is a key line
    bracketedGroups,  // [A][B] is A][B; without a ']' the line is passed over
    toBracketTrimmed  // as toBracket, without the whitespace at the end of the name
};

// Key lines before the first header.
enum class Top {
    refused,
    passedOver,
    stanza  // they form the stanza "."
};

enum class RepeatedHead { refused, joined, separate };

// Bits of `separators`.
enum Separator : unsigned {
    equals = 1,
    colon = 2,
    tight = 4  // a space before or after the separator makes the line no key line
};

enum class KeyAlone {
    refused,             // also a separator without a key
    passedOver,          // also a separator without a key
    passedOverOrNoName,  // a key without a separator is passed over, the reverse is refused
    option               // a key without values; a separator without a key is passed over
};

// Bits of `join`.
enum Join : unsigned {
    never = 0,
    asBlank = 1,      // an odd number of backslashes ends the line: any line, read as a space
    asNothing = 2,    // a backslash ends the line: any line, read as nothing
    insideValue = 4,  // as asNothing, but only in values and not in comments
    openQuote = 8,    // a quoted value continues after a newline, which belongs to it
    indented = 16     // lines that are indented deeper than the key's line
};

// Bits of `quotes`.
enum Quote : unsigned { noQuote = 0, doubleQuote = 1, singleQuote = 2 };

enum class Quoting {
    none,
    anywhere,          // quotes are dropped, spaces around them are kept
    anywhereSkipping,  // quotes are dropped, and the spaces after a closing quote
    whole,             // from the first character of the value to the last
    ends               // as whole, but a quote between the two does not matter
};

enum class Escapes {
    none,
    desktop,     // s n t r backslash
    git,         // n t b " backslash
    php,         // " backslash $, between double quotes
    mysql,       // n t r b s backslash " '
    c,           // a b f n r t v " ? ' backslash, octal digits, x and hexadecimal digits
    kconfig,     // s n t r backslash, x and two hexadecimal digits
    environment  // " backslash $ ` between double quotes; a newline after a backslash is dropped
};

enum class UnknownEscape {
    kept,          // both characters
    keptInQuotes,  // both characters in double quotes; elsewhere the backslash is dropped
    dropped,       // both characters
    refused
};

enum class FoldStanzas { none, all, beforeSubsection };

// The meaning of a line without a value.
enum class EmptyValues {
    none,   // it adds no value
    value,  // an empty value
    reset   // an empty value, which makes earlier values not count
};

enum class RepeatedKey {
    values,
    last,
    first,
    lastOrList,    // values if the key ends in "[]", otherwise the last
    lastOrPhpList  // also values of "extension" and "zend_extension"
};

// Bits of `markers`: characters next to a key that do not belong to it.
enum Marker : unsigned {
    noMarker = 0,
    dollarSuffix = 1,  // [$e] and the like, also in headers
    minusPrefix = 2,
    exportPrefix = 4
};

enum class SeparatorStyle { spaced, tightEquals };
enum class IndentStyle { none, tab };

// Bits of `notPlain`: values that only quotes or escapes protect from the readers of the format.
enum NotPlain : unsigned {
    returns = 1,
    tabs = 2,
    controls = 4,
    unicode = 8,
    backslashes = 16,
    commas = 32,
    shellWords = 64,
    constants = 128
};

// Bits of `refusals`: lines that the readers of the format refuse, although the model reads them.
enum Refusal : unsigned {
    repeatedHeads = 1,
    repeatedKeys = 2,
    passedOverLines = 4,
    notUtf8 = 8,
    phpSyntax = 16
};

enum class NewKeys { any, shell, php };
enum class CommentStyle { hash, semicolon };
enum class LineLimit { mebibyte, bytes4094 };

// percent: %20 is a space, %U20AC is a euro sign, and a backslash is a slash. escaped: \\x5b is a
// bracket.
enum class Names { plain, percent, escaped };

// lineEnd: a carriage return without a newline is refused outside quotes.
enum class Returns { text, lineEnd };

enum class NewStanzas { any, php, trimmed };

// Bits of `notPlainMore`: as `notPlain`.
enum NotPlainMore : unsigned { latinSpace = 1, lineSeparators = 2 };

// Characters beyond ASCII in written values.
enum class NonAscii { bytes, escaped };

// A run of whitespace in a value reads as its first character, or is kept.
enum class BlankRuns { kept, first };

// Keys that are paths: "a/b.c" is "a.b/c", or not.
enum class Paths { none, dotsOrSlashes };

// The joined stanzas of a name that programs may read.
enum class JoinedHeads { all, last, first };

struct Switches {
    unsigned marks = hash;
    unsigned trailing = noMark;
    TrailingNeeds trailingNeeds = TrailingNeeds::nothing;
    Heads heads = Heads::toBracket;
    Top top = Top::refused;
    RepeatedHead repeatedHead = RepeatedHead::joined;
    unsigned separators = equals;
    KeyAlone keyAlone = KeyAlone::passedOver;
    unsigned join = never;
    bool joinSkipsComments = false;  // comment lines between continued lines are skipped
    bool commentsJoin = false;       // comments continue, too
    unsigned quotes = noQuote;
    Quoting quoting = Quoting::none;
    Escapes escapes = Escapes::none;
    UnknownEscape unknownEscape = UnknownEscape::kept;
    FoldStanzas foldStanzas = FoldStanzas::none;
    bool foldKeys = false;
    bool dropBlanks = false;  // in keys
    bool dashes = false;      // '-' and '_' are the same in keys
    unsigned markers = noMarker;
    RepeatedKey repeatedKey = RepeatedKey::last;
    EmptyValues emptyValues = EmptyValues::value;
    bool blanksAtEnd = false;    // spaces at the end belong to the value
    bool byteOrderMark = false;  // a byte order mark is skipped, not refused
    SeparatorStyle separatorStyle = SeparatorStyle::spaced;
    IndentStyle indentStyle = IndentStyle::none;
    unsigned notPlain = 0;
    NewKeys newKeys = NewKeys::any;
    CommentStyle commentStyle = CommentStyle::hash;  // of new comments
    LineLimit lineLimit = LineLimit::mebibyte;       // of written lines
    unsigned refusals = 0;
    Names names = Names::plain;
    Returns lone = Returns::text;  // carriage returns without a newline
    NewStanzas newStanzas = NewStanzas::any;
    unsigned notPlainMore = 0;
    NonAscii nonAscii = NonAscii::bytes;
    BlankRuns blankRuns = BlankRuns::kept;
    Paths paths = Paths::none;
    JoinedHeads joinedHeads = JoinedHeads::all;
};

struct Dialect {
    std::string_view name;
    Switches rules;
};

inline constexpr Switches kStanza = {
    .heads = Heads::toBracket,
    .repeatedHead = RepeatedHead::refused,
    .keyAlone = KeyAlone::refused,
    .repeatedKey = RepeatedKey::values,
    .emptyValues = EmptyValues::none,
};

// Two backslashes at the end of a line do not continue it. The spaces before the backslash and at
// the start of the next line belong to the value. "=x" is passed over, and so are keys before the
// first header. "[]" is a stanza without a name; quotes, backslashes and control characters in a
// header are refused.
inline constexpr Switches kSystemd = {
    .marks = hash | semicolon,
    .heads = Heads::endsLine,
    .top = Top::passedOver,
    .join = asBlank,
    .joinSkipsComments = true,
    .repeatedKey = RepeatedKey::values,
    .emptyValues = EmptyValues::reset,
    .byteOrderMark = true,
    .separatorStyle = SeparatorStyle::tightEquals,
    .notPlain = returns,
    .refusals = notUtf8,
    .lone = Returns::lineEnd,
};

constexpr Switches networkd()
{
    Switches rules = kSystemd;
    rules.repeatedHead = RepeatedHead::separate;
    return rules;
}

// Refused: a name in a header that is empty or has a bracket or a control character; a key with a
// bracket, except a locale in brackets at its end. An unknown escape keeps its backslash, and so
// does a backslash at the end, although the format's reader also reports an error then.
inline constexpr Switches kDesktop = {
    .heads = Heads::alone,
    .keyAlone = KeyAlone::refused,
    .escapes = Escapes::desktop,
    .blanksAtEnd = true,
    .separatorStyle = SeparatorStyle::tightEquals,
    .notPlain = returns | controls | backslashes,
};

// Spaces before a backslash that continues the line belong to the value, also at its end; spaces
// after it do, unless the value is still empty. A quote that is open at the end of its line is
// refused. A tab in a value stays a tab: releases of the format's reader before 2.45 read a space.
inline constexpr Switches kGit = {
    .marks = hash | semicolon,
    .trailing = hash | semicolon,
    .heads = Heads::subsection,
    .top = Top::stanza,
    .keyAlone = KeyAlone::option,
    .join = insideValue,
    .quotes = doubleQuote,
    .quoting = Quoting::anywhere,
    .escapes = Escapes::git,
    .unknownEscape = UnknownEscape::refused,
    .foldStanzas = FoldStanzas::beforeSubsection,
    .foldKeys = true,
    .repeatedKey = RepeatedKey::values,
    .byteOrderMark = true,
    .indentStyle = IndentStyle::tab,
    .notPlain = returns | tabs,
};

// "=x" is refused. A value that is quoted in part is as spelled, and no writer writes one: readers
// join its parts, or do not. A quote opens anywhere in a value, and hides comment marks and
// newlines; a quote that never closes is refused at the line where it opens.
inline constexpr Switches kPhp = {
    .marks = semicolon,
    .trailing = semicolon,
    .heads = Heads::toBracket,
    .top = Top::stanza,
    .keyAlone = KeyAlone::passedOverOrNoName,
    .join = openQuote,
    .quotes = doubleQuote | singleQuote,
    .quoting = Quoting::whole,
    .escapes = Escapes::php,
    .repeatedKey = RepeatedKey::lastOrPhpList,
    .byteOrderMark = true,
    .notPlain = returns | constants,
    .newKeys = NewKeys::php,
    .refusals = phpSyntax,
    .lone = Returns::lineEnd,
    .newStanzas = NewStanzas::php,
    .joinedHeads = JoinedHeads::last,
};

// Names of stanzas are folded, but their spaces are kept; only keys drop them. Any line continues,
// a header, too; of two backslashes at the end of a line, the second continues it. Spaces can
// follow the backslash. A backslash stays if nothing follows it, not even a newline. "=x" is
// refused.
inline constexpr Switches kSamba = {
    .marks = hash | semicolon,
    .heads = Heads::toBracket,
    .top = Top::stanza,
    .keyAlone = KeyAlone::passedOverOrNoName,
    .join = asNothing,
    .commentsJoin = true,
    .foldStanzas = FoldStanzas::all,
    .foldKeys = true,
    .dropBlanks = true,
    .byteOrderMark = true,
    .notPlain = returns | controls,
    .blankRuns = BlankRuns::first,
};

// A value is quoted if its first and its last character are the same quote. Escapes are read in
// values without quotes, too, and include both quotes; an unknown one keeps its backslash. For the
// end of a line, a quote anywhere in it opens and closes; an open quote hides the mark. Lines that
// start with '!' are passed over, also before the first header.
inline constexpr Switches kMysql = {
    .marks = hash | semicolon | directive,
    .trailing = hash,
    .heads = Heads::toBracketTrimmed,
    .keyAlone = KeyAlone::option,
    .quotes = doubleQuote | singleQuote,
    .quoting = Quoting::ends,
    .escapes = Escapes::mysql,
    .dashes = true,
    .repeatedKey = RepeatedKey::values,
    .notPlain = returns | controls,
    .lineLimit = LineLimit::bytes4094,
    .newStanzas = NewStanzas::trimmed,
    .notPlainMore = latinSpace,
};

// A key alone is an error that the format's reader reports after it has read the whole file, with
// everything else in place: passed over. An indented line after it still belongs to the key before
// it. "[]" and a bracket that never closes are keys alone. Blank lines at the end of a value do
// not belong to it. Comments are skipped at any indentation.
inline constexpr Switches kPython = {
    .marks = hash | semicolon,
    .heads = Heads::toLastBracket,
    .separators = equals | colon,
    .join = indented,
    .foldKeys = true,
    .notPlain = returns | controls | unicode,
    .refusals = repeatedHeads | repeatedKeys | passedOverLines,
    .lone = Returns::lineEnd,
};

// Comments end headers and continuation lines, too; a line that has only such a comment is a
// comment.
constexpr Switches pythonInline()
{
    Switches rules = kPython;
    rules.refusals = passedOverLines;
    rules.trailing = hash | semicolon;
    rules.trailingNeeds = TrailingNeeds::blankBefore;
    return rules;
}

// A quoted value continues after a newline. Unknown escapes are dropped whole. Escapes above 0x7f
// give UTF-8. Refused: a quote that never closes, and a header without ']'; the format's reader
// reports both and continues.
inline constexpr Switches kQt = {
    .marks = hash | semicolon,
    .trailing = semicolon,
    .heads = Heads::toBracket,
    .top = Top::stanza,
    .join = insideValue | openQuote,
    .quotes = doubleQuote,
    .quoting = Quoting::anywhereSkipping,
    .escapes = Escapes::c,
    .unknownEscape = UnknownEscape::dropped,
    .byteOrderMark = true,
    .separatorStyle = SeparatorStyle::tightEquals,
    .notPlain = returns | commas,
    .commentStyle = CommentStyle::semicolon,
    .names = Names::percent,
    .lone = Returns::lineEnd,
    .nonAscii = NonAscii::escaped,
};

// "[]" and "[$i]" alone are a stanza without a name. A line with '[' and without ']' is
// passed over: the keys after it belong to the header before it.
inline constexpr Switches kKconfig = {
    .heads = Heads::bracketedGroups,
    .top = Top::stanza,
    .escapes = Escapes::kconfig,
    .markers = dollarSuffix,
    .separatorStyle = SeparatorStyle::tightEquals,
    .notPlain = returns | backslashes,
    .names = Names::escaped,
};

// A header without ']' is a key alone, and refused as such.
inline constexpr Switches kEditorconfig = {
    .marks = hash | semicolon,
    .trailing = hash | semicolon,
    .trailingNeeds = TrailingNeeds::blankBeforeInValue,
    .heads = Heads::toLastBracket,
    .top = Top::stanza,
    .separators = equals | colon,
    .keyAlone = KeyAlone::refused,
    .foldKeys = true,
    .byteOrderMark = true,
    .notPlain = returns | controls | unicode,
    .lone = Returns::lineEnd,
    .notPlainMore = lineSeparators,
};

// A header without ']' is refused: otherwise its keys would belong to the header before it.
inline constexpr Switches kIni = {
    .marks = hash | semicolon,
    .heads = Heads::toBracket,
    .top = Top::stanza,
    .byteOrderMark = true,
    .notPlain = returns,
    .commentStyle = CommentStyle::semicolon,
};

constexpr Switches windows()
{
    Switches rules = kIni;
    rules.foldStanzas = FoldStanzas::all;
    rules.foldKeys = true;
    rules.repeatedKey = RepeatedKey::first;
    rules.separatorStyle = SeparatorStyle::tightEquals;
    rules.joinedHeads = JoinedHeads::first;
    return rules;
}

inline constexpr Switches kSysctl = {
    .marks = hash | semicolon,
    .heads = Heads::none,
    .top = Top::stanza,
    .markers = minusPrefix,
    .notPlain = returns | controls,
    .lone = Returns::lineEnd,
    .paths = Paths::dotsOrSlashes,
};

// Shells define it. A backslash before a newline is dropped with it, except between single quotes;
// outside quotes a backslash before any other character is dropped. "A = x", "A= x", "export A"
// and "=x" are no assignments: passed over. "A= " is one, and so is "A= # c". Values that are
// quoted in part, and quotes that never close, are treated as in php.
inline constexpr Switches kEnv = {
    .marks = hash,
    .trailing = hash,
    .trailingNeeds = TrailingNeeds::blankBefore,
    .heads = Heads::none,
    .top = Top::stanza,
    .separators = equals | tight,
    .join = insideValue | openQuote,
    .quotes = doubleQuote | singleQuote,
    .quoting = Quoting::whole,
    .escapes = Escapes::environment,
    .unknownEscape = UnknownEscape::keptInQuotes,
    .markers = exportPrefix,
    .separatorStyle = SeparatorStyle::tightEquals,
    .notPlain = shellWords,
    .newKeys = NewKeys::shell,
    .lone = Returns::lineEnd,
};

inline constexpr Dialect kDialects[] = {
    {"stanza", kStanza},
    {"systemd", kSystemd},
    {"networkd", networkd()},
    {"desktop", kDesktop},
    {"git", kGit},
    {"php", kPhp},
    {"samba", kSamba},
    {"mysql", kMysql},
    {"python", kPython},
    {"python-inline", pythonInline()},
    {"qt", kQt},
    {"kconfig", kKconfig},
    {"editorconfig", kEditorconfig},
    {"ini", kIni},
    {"windows", windows()},
    {"sysctl", kSysctl},
    {"env", kEnv},
};

// The row of a dialect, or null.
inline Dialect const* findDialect(std::string_view name)
{
    for (Dialect const& dialect : kDialects)
        if (dialect.name == name)
            return &dialect;
    return nullptr;
}

}  // namespace dialect_model
