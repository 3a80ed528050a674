// switches: the rules of a dialect, a byte each. The reader and the writer of dialects follow them
// and know no dialect by name.
//
// The fields are in the order of ZStanzaSwitch, and the numbers of the enumerators are public.
// Append only; 0 in an appended field must mean the behaviour before it.
#pragma once

#include <stdint.h>

namespace zdialects {

// Bits of `marks` and `trailing`. A line that starts with a directive mark is passed over.
enum Mark : uint8_t { markHash = 1, markSemicolon = 2, markDirective = 4 };

// The position of a mark that starts a comment after a value.
enum class TrailingNeeds : uint8_t {
    nothing,            // anywhere outside quotes
    blankBefore,        // after a space or tab, also on a header's line
    blankBeforeInValue  // after a space or tab, but not in a key or as the first of a value
};

enum class Heads : uint8_t {
    none,             // a bracket has no meaning
    toBracket,        // the name ends at the first ']'; the rest of the line is ignored
    endsLine,         // ']' ends the line, and the name has no quotes, backslashes or controls
    alone,            // ']' ends the line; no brackets or controls in the name, which is not empty
    subsection,       // [a "B"] is a.B; [a.B] is a.b; a key can follow on the line
    toLastBracket,    // the name ends at the last ']' and is not empty
    bracketedGroups,  // [A][B] is A][B
    toBracketTrimmed  // as toBracket, without the spaces at the end of the name
};

// Keys above the first header.
enum class Top : uint8_t { refused, passedOver, stanza };

enum class RepeatedHead : uint8_t { refused, joined, separate };

// Bits of `separators`. With separatorTight, spaces next to a separator are not allowed.
enum Separator : uint8_t { separatorEquals = 1, separatorColon = 2, separatorTight = 4 };

// A key without a separator, or a separator without a key.
enum class KeyAlone : uint8_t {
    refused,             // both
    passedOver,          // both
    passedOverOrNoName,  // a separator without a key is refused
    option               // a key without values; a separator without a key is passed over
};

// Bits of `join`.
enum Join : uint8_t {
    joinAsBlank = 1,      // an odd number of backslashes at the end of any line, read as a space
    joinAsNothing = 2,    // a backslash at the end of any line, read as nothing
    joinInsideValue = 4,  // a backslash at the end of a line of a value
    joinOpenQuote = 8,    // a newline inside quotes belongs to the value
    joinIndented = 16     // lines that are indented deeper than the line of the key
};
constexpr uint8_t kLineJoins = joinAsBlank | joinAsNothing;

// Bits of `quotes`.
enum Quote : uint8_t { quoteDouble = 1, quoteSingle = 2 };

enum class Quoting : uint8_t {
    none,
    anywhere,          // quotes are dropped
    anywhereSkipping,  // quotes are dropped, and the spaces after a closing quote
    whole,             // quotes are around the whole value
    ends               // as whole, but further quotes between the two do not matter
};

enum class Escapes : uint8_t { none, desktop, git, php, mysql, c, kconfig, environment };

enum class UnknownEscape : uint8_t {
    kept,
    keptInQuotes,  // outside double quotes, the backslash is dropped
    dropped,
    refused
};

enum class FoldStanzas : uint8_t { none, all, beforeSubsection };

// Bits of `markers`: characters next to a key that do not belong to it.
enum Marker : uint8_t { markerDollarSuffix = 1, markerMinusPrefix = 2, markerExportPrefix = 4 };

// The lines of a key that count.
enum class RepeatedKey : uint8_t {
    values,
    last,
    first,
    lastOrList,    // all if the key ends with "[]"
    lastOrPhpList  // also of "extension" and "zend_extension"
};

enum class EmptyValues : uint8_t {
    none,   // "key =" is a key without values
    value,  // "key =" has an empty value
    reset   // and the values above it are ignored
};

enum class SeparatorStyle : uint8_t { spaced, tightEquals };
enum class IndentStyle : uint8_t { none, tab };

// Bits of `notPlain`: values that read back plainly, but that programs of the format read as
// something else. They are written with escapes or in quotes, or refused.
enum NotPlain : uint8_t {
    notPlainReturns = 1,       // a carriage return ends a line, or is a space
    notPlainTabs = 2,          // a tab is read as a space
    notPlainControls = 4,      // a vertical tab or form feed at an end is dropped
    notPlainUnicode = 8,       // so are all spaces of Unicode
    notPlainBackslashes = 16,  // a backslash that starts no escape is an error
    notPlainCommas = 32,       // a comma makes a list
    notPlainShell = 64,        // a shell would split, expand or run it
    notPlainConstants = 128    // operators, variables and words such as "null" are evaluated
};

// The names that a new key can have. A key of the file can have any.
enum class NewKeys : uint8_t { any, shell, php };

// The mark of a new comment, if the dialect has both.
enum class CommentStyle : uint8_t { hash, semicolon };

// The length of a written line.
enum class LineLimit : uint8_t { mebibyte, bytes4094 };

// Bits of `refusals`: lines that a load accepts, although programs of the format refuse the whole
// file because of them.
enum Refusal : uint8_t {
    refusalRepeatedHeads = 1,  // except of the stanza DEFAULT
    refusalRepeatedKeys = 2,   // in a stanza
    refusalPassedOver = 4,     // lines that the dialect passes over, except directives
    refusalNotUtf8 = 8,        // other lines than comments that are not valid UTF-8
    refusalPhp = 16            // lines that PHP cannot parse
};

// The spelling of names, except in headers with subsections.
enum class Names : uint8_t {
    plain,
    percent,  // "%20" and "%U20AC" are characters, and a backslash is "/"
    escaped   // "\n" and "\x5b" are characters
};

// A carriage return that is not before a newline. For programs that end the line there, such a file
// would have another meaning: `lineEnd` refuses it, except in a quoted value. Any dialect refuses a
// file that has carriage returns, but no newline.
enum class Returns : uint8_t { text, lineEnd };

// The names that a new stanza can have. A stanza of the file can have any.
enum class NewStanzas : uint8_t {
    any,
    php,
    trimmed  // programs of the format drop spaces at the end
};

// Bits of `notPlainMore`: as `notPlain`.
enum NotPlainMore : uint8_t {
    notPlainLatinSpace = 1,  // the byte A0 at an end is dropped: a space of Latin-1
    notPlainLineSeparators =
        2  // a vertical tab, form feed or line separator of Unicode ends a line
};

// The spelling of characters that are not ASCII in new values, with escapes of C. Programs that use
// `escaped` files disagree on the encoding of bytes.
enum class NonAscii : uint8_t { bytes, escaped };

// A run of whitespace in a value without quotes. `first`: it reads as its first character.
enum class BlankRuns : uint8_t { kept, first };

// Keys that are paths. `dotsOrSlashes`: in a key whose first separator is a slash, slashes are
// compared as dots, and dots as slashes.
enum class Paths : uint8_t { none, dotsOrSlashes };

// The joined stanzas of a name that programs of the format may read.
enum class JoinedHeads : uint8_t { all, last, first };

struct Switches {
    uint8_t marks = markHash;
    uint8_t trailing = 0;
    TrailingNeeds trailingNeeds = TrailingNeeds::nothing;
    Heads heads = Heads::toBracket;
    Top top = Top::refused;
    RepeatedHead repeatedHead = RepeatedHead::joined;
    uint8_t separators = separatorEquals;
    KeyAlone keyAlone = KeyAlone::passedOver;
    uint8_t join = 0;
    bool joinSkipsComments = false;
    bool commentsJoin = false;
    uint8_t quotes = 0;
    Quoting quoting = Quoting::none;
    Escapes escapes = Escapes::none;
    UnknownEscape unknownEscape = UnknownEscape::kept;
    FoldStanzas foldStanzas = FoldStanzas::none;
    bool foldKeys = false;
    bool dropBlanks = false;
    bool dashes = false;
    uint8_t markers = 0;
    RepeatedKey repeatedKey = RepeatedKey::last;
    EmptyValues emptyValues = EmptyValues::value;
    bool blanksAtEnd = false;
    bool byteOrderMark = false;
    SeparatorStyle separatorStyle = SeparatorStyle::spaced;
    IndentStyle indentStyle = IndentStyle::none;
    uint8_t notPlain = 0;
    NewKeys newKeys = NewKeys::any;
    CommentStyle commentStyle = CommentStyle::hash;
    LineLimit lineLimit = LineLimit::mebibyte;
    uint8_t refusals = 0;
    Names names = Names::plain;
    Returns returns = Returns::text;
    NewStanzas newStanzas = NewStanzas::any;
    uint8_t notPlainMore = 0;
    NonAscii nonAscii = NonAscii::bytes;
    BlankRuns blankRuns = BlankRuns::kept;
    Paths paths = Paths::none;
    JoinedHeads joinedHeads = JoinedHeads::all;

    bool operator==(Switches const&) const = default;

    /// Returns whether these are the rules of stanza files, which have a reader of their own.
    bool isStanzaFormat() const { return emptyValues == EmptyValues::none; }
};
constexpr int kSwitchCount = 39;
static_assert(sizeof(Switches) == kSwitchCount);

}  // namespace zdialects
