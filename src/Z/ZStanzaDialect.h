// ZStanzaDialect: how configuration files of a format are read and written.
//
// Subsystem: properties.  Stands on: ZException.
//
// A dialect is a name and a set of switches. Stanza files are one dialect; the others are formats
// of other programs, such as unit files or desktop entries. docs/file-formats.md describes them.
//
// Ownership: a value; copies are independent. Names are constants of the library.
//
// Threads: unsynchronised; callers serialise access to one object. Any thread can call the static
// functions.
#pragma once

#include <stddef.h>

/// The switches of a dialect. Each has a small number or a set of bits as its value, and a name in
/// named(): the name of the enumerator without its prefix, starting in lower case. The words in the
/// table are the words of named(). Append only; 0 in an appended switch means the behaviour
/// before.
///
///     zDialectMarks            marks of comment lines: 1 hash "#", 2 semicolon ";", 4 directive
///                              "!"; lines that start with a directive are passed over
///     zDialectTrailing         marks of comments after a value: 1 hash, 2 semicolon
///     zDialectTrailingNeeds    0 nothing; 1 blankBefore; 2 blankBeforeInValue: as 1, but not in
///                              keys, and not as the first character of a value
///     zDialectHeads            headers: 0 none; 1 toBracket: the name ends at the first "]", and
///                              the rest of the line is ignored; 2 endsLine: "]" ends the line;
///                              3 alone: as 2, without brackets in the name; 4 subsection: [a "B"];
///                              5 toLastBracket; 6 bracketedGroups: [A][B]; 7 toBracketTrimmed:
///                              as 1, without the spaces at the end of the name
///     zDialectTop              keys above the first header: 0 refused; 1 passedOver; 2 stanza "."
///     zDialectRepeatedHead     0 refused; 1 joined; 2 separate: each is a stanza of its own
///     zDialectSeparators       1 equals "="; 2 colon ":"; 4 tight: no space next to a separator
///     zDialectKeyAlone         a line without a separator or without a key: 0 refused;
///                              1 passedOver; 2 passedOverOrNoName: refused without a key;
///                              3 option: a key without values
///     zDialectJoin             lines that continue: 1 asBlank: after a backslash, read as a space;
///                              2 asNothing: after a backslash, read as nothing; 4 insideValue: as
///                              2, in values alone; 8 openQuote; 16 indented
///     zDialectJoinSkipsComments  0 no; 1 yes: comment lines between joined lines are skipped
///     zDialectCommentsJoin     0 no; 1 yes: comments continue, too
///     zDialectQuotes           1 double; 2 single
///     zDialectQuoting          0 none; 1 anywhere; 2 anywhereSkipping: also drops spaces after a
///                              closing quote; 3 whole; 4 ends: quotes at both ends of a value
///     zDialectEscapes          0 none; 1 desktop; 2 git; 3 php; 4 mysql; 5 c; 6 kconfig;
///                              7 environment
///     zDialectUnknownEscape    0 kept; 1 keptInQuotes; 2 dropped; 3 refused
///     zDialectFoldStanzas      names of stanzas ignore case: 0 none; 1 all; 2 beforeSubsection
///     zDialectFoldKeys         0 no; 1 yes: keys ignore case
///     zDialectDropBlanks       0 no; 1 yes: keys ignore spaces
///     zDialectDashes           0 no; 1 yes: "-" and "_" are the same in keys
///     zDialectMarkers          next to a key: 1 dollarSuffix "[$e]"; 2 minusPrefix "-";
///                              4 exportPrefix "export"
///     zDialectRepeatedKey      lines of a key that count: 0 values: all; 1 last; 2 first;
///                              3 lastOrList: all if the key ends with "[]", else the last;
///                              4 lastOrPhpList: as 3, and all of extension and zend_extension
///     zDialectEmptyValues      "key =": 0 none: a key without values; 1 value: an empty value;
///                              2 reset: an empty value, above which no value counts
///     zDialectBlanksAtEnd      0 no; 1 yes: spaces at the end belong to the value
///     zDialectByteOrderMark    0 no: refused; 1 yes: skipped
///     zDialectSeparatorStyle   in new lines: 0 spaced " = "; 1 tightEquals "="
///     zDialectIndentStyle      in new lines: 0 none; 1 tab
///     zDialectNotPlain         values that would read back plainly, but that programs of the
///                              format read as something else; they are written with escapes or
///                              quotes, or refused: 1 returns; 2 tabs; 4 controls: vertical tabs
///                              and form feeds at an end; 8 unicode: spaces of Unicode at an end;
///                              16 backslashes; 32 commas; 64 shell: all but letters, digits and
///                              "_./:,+@%=-"; 128 constants: operators and words of PHP, unless a
///                              constant replaces a constant
///     zDialectNewKeys          names that a setter can give to a key; a key of the file can have
///                              any: 0 any; 1 shell: letters, digits and "_", no digit first;
///                              2 php: no tab and none of !"$&();=^{|}~, "[" only as an index at
///                              the end, and before it no word such as "null". Bits of
///                              zDialectNotPlain exclude carriage returns and spaces at an end, if
///                              names are plain; zDialectRefusals 8 excludes invalid UTF-8
///     zDialectCommentStyle     mark of new comments, if both are marks: 0 hash; 1 semicolon
///     zDialectLineLimit        length of written lines: 0 mebibyte; 1 bytes4094
///     zDialectRefusals         lines that load() accepts, although programs of the format refuse
///                              the whole file because of them; findProblems() lists them as
///                              errors: 1 repeatedHeads: headers of a stanza above, except
///                              [DEFAULT]; 2 repeatedKeys: further lines of a key in its stanza;
///                              4 passedOver: lines that the dialect passes over, except
///                              directives; 8 notUtf8: invalid UTF-8 outside comments, which
///                              setters refuse; 16 php: lines that PHP cannot parse. Values that
///                              PHP cannot parse are written unless zDialectNotPlain has 128
///     zDialectNames            0 plain; 1 percent: "%20" and "%U20AC" are characters in names, and
///                              a backslash is "/"; 2 escaped: "\n" and "\x5b" are characters;
///                              not in headers with zDialectHeads 4
///     zDialectReturns          a carriage return without a newline after it: 0 text; 1 lineEnd:
///                              refused except in quotes, since programs of the format end the line
///                              there. A file that has carriage returns, but no newline, is refused
///                              in either case
///     zDialectNewStanzas       names that a setter can give to a stanza; a stanza of the file can
///                              have any: 0 any; 1 php: no quotes, carriage returns, ";" and "${",
///                              and no backslash or "$" that would belong to the bracket after the
///                              name; 2 trimmed: no spaces at the end. zDialectRefusals 8 excludes
///                              invalid UTF-8
///     zDialectNotPlainMore     as zDialectNotPlain: 1 latinSpace: the byte A0 at an end;
///                              2 lineSeparators: vertical tabs, form feeds and line separators of
///                              Unicode anywhere
///     zDialectNonAscii         characters beyond ASCII in values that are written: 0 bytes: as
///                              they are; 1 escaped: as "\xe9", with zDialectEscapes 5. A value
///                              that is not UTF-8 is written as it is
///     zDialectBlankRuns        a run of whitespace in a value: 0 kept; 1 first: it reads as its
///                              first character, with zDialectQuoting 0 and without join 16
///     zDialectPaths            keys that are paths: 0 none; 1 dotsOrSlashes: "a/b.c" is "a.b/c":
///                              in a key whose first separator is a slash, both are exchanged
///     zDialectJoinedHeads      joined stanzas of a name that programs of the format may read:
///                              0 all; 1 last; 2 first. Unless all, findProblems() reports
///                              each header that repeats a name
enum ZStanzaSwitch : int {
    zDialectMarks,
    zDialectTrailing,
    zDialectTrailingNeeds,
    zDialectHeads,
    zDialectTop,
    zDialectRepeatedHead,
    zDialectSeparators,
    zDialectKeyAlone,
    zDialectJoin,
    zDialectJoinSkipsComments,
    zDialectCommentsJoin,
    zDialectQuotes,
    zDialectQuoting,
    zDialectEscapes,
    zDialectUnknownEscape,
    zDialectFoldStanzas,
    zDialectFoldKeys,
    zDialectDropBlanks,
    zDialectDashes,
    zDialectMarkers,
    zDialectRepeatedKey,
    zDialectEmptyValues,
    zDialectBlanksAtEnd,
    zDialectByteOrderMark,
    zDialectSeparatorStyle,
    zDialectIndentStyle,
    zDialectNotPlain,
    zDialectNewKeys,
    zDialectCommentStyle,
    zDialectLineLimit,
    zDialectRefusals,
    zDialectNames,
    zDialectReturns,
    zDialectNewStanzas,
    zDialectNotPlainMore,
    zDialectNonAscii,
    zDialectBlankRuns,
    zDialectPaths,
    zDialectJoinedHeads
};

/// A dialect: a name and 64 bytes of switches.
class ZStanzaDialect_6_0 {
public:
    /// Creates the dialect "stanza".
    ZStanzaDialect_6_0();

    /// Stores the dialect of this name in `out` and returns 1; returns 0 if no dialect has it.
    /// Switches can follow the name, as in "python,trailing=#;,trailingNeeds=blankBefore" or
    /// "php,join=openQuote+insideValue": words with "+" between them make a set, as do the
    /// characters of marks, separators and quotes; "none" is the empty set.
    /// codes   0 also for an unknown switch or value, and for switches that set() refuses as a
    ///         whole; `out` is unchanged then.
    /// range   null is no name.
    static int named(char const* name, ZStanzaDialect_6_0& out);

    /// Stores the dialect of the file in `out` and returns 1 if only one format uses such a name;
    /// returns 0 otherwise, with `out` unchanged. Some switches of the dialect can differ from the
    /// dialect of that name(). Opens no file. A relative path starts at the working
    /// directory; symbolic links are not resolved. A copy has the dialect of the original: names
    /// with an ending such as "~", ".bak", ".orig", ".dpkg-old", ".rpmnew" or ".example".
    /// range   `text` has the contents of the file, at least up to the first header. It matters
    ///         for names ending with ".service" alone, and for their copies; it can be null if
    ///         `length` is 0.
    /// throws  ZOutOfMemoryException_6_0.
    static int recognised(char const* path, char const* text, size_t length,
                          ZStanzaDialect_6_0& out);

    /// Returns the name of a dialect that reads the contents of a file with a key, and without a
    /// line that it refuses or passes over; null if no dialect does. "stanza" is not tried. Several
    /// may read them. Contents that differ from a stanza file only by a byte order mark, a long
    /// line or a repeated header are of "ini", or of "networkd" if stanzas of one name repeat a
    /// key. For others, strict formats are tried first. This is a suggestion for a user, who may
    /// prefer the dialect that the name of the file implies.
    /// cost    O(length).
    static char const* readsAs(char const* text, size_t length);

    /// Returns the name of a dialect, counted from 0, which is "stanza"; null past the last.
    static char const* nameAt(int index);

    /// Returns the name of the dialect, without switches that were set since.
    char const* name() const { return name_; }

    /// Returns the value of a switch.
    /// throws  ZInvalidParameterException_6_0 for an invalid number.
    int get(ZStanzaSwitch which) const;

    /// Sets a switch. The switches must fit together after each call:
    ///
    ///  - There is a separator. Trailing comments need a space only with quoting 0, or with quoting
    ///    3 as blankBefore.
    ///  - Values in quotes continue (join 4 and 8) with quoting 1 to 3, which exclude join 1, 2 and
    ///    16. Unknown escapes are refused with quoting 1 and 2 alone.
    ///  - Join 1 and 2 exclude each other and blanksAtEnd. Join 16 excludes the rest of join,
    ///    quoting and escapes.
    ///  - Heads 4 needs keyAlone 3, and excludes markers, tight and join 16.
    ///  - "stanza" allows no change, and the other dialects do not allow emptyValues 0.
    ///
    /// throws  ZInvalidParameterException_6_0 if they do not, and for an invalid number or value.
    ///         Nothing has changed then.
    void set(ZStanzaSwitch which, int value);

private:
    char const* name_;
    unsigned char switches_[64];  // the rest is 0
};
