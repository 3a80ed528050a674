#include "complaint.h"

#include "../lines/columns.h"
#include "../stanza/limits.h"

namespace zproblems {

namespace {

constexpr size_t kMaxQuotedLength = 60;  // bytes of a quoted text

struct Row {
    Cause cause;
    char const* one;   // "@": the detail in quotes, "$": without them, "#": the number of lines,
                       // "~": the line limit, "^": the reason
    char const* many;  // for several lines; null if the cause is not listed once for a file
    char const* help;
    bool isForeign = false;  // the text for a file of another dialect, if it has one of its own
};

constexpr Row kRows[] = {
    {unclosedHeader, "no \"]\" after the stanza name", nullptr, "add it"},
    {duplicateStanza, "duplicate stanza", nullptr, "merge it with the earlier one of that name"},
    {notAnEntry, "neither a stanza header, a comment nor KEY = VALUE", nullptr,
     "add \"=\", or \"#\" at the start"},
    {missingKey, "no key before \"=\"", nullptr, "add one"},
    {keyOutsideStanza, "key before the first stanza", nullptr, "move it below a [stanza] header"},
    {byteOrderMark, "the file starts with a byte order mark", nullptr,
     "save it as UTF-8 without one"},
    {utf16, "the file is UTF-16", nullptr, "save it as UTF-8 without a byte order mark"},
    {unreadableCompanion, "cannot read the companion file $", nullptr,
     "restore it, or remove this line to give up its values"},
    {damagedCompanion, "damaged companion file $", nullptr,
     "restore it, or remove this line to give up its values"},
    {splitLine, "the line exceeds ~ bytes and would be split", nullptr,
     "shorten it or use a line per value"},
    {zeroByte, "the line has a zero byte and is ignored after it", nullptr, "remove the zero byte"},
    {droppedLine, "key @ has no value here but values elsewhere, and storing drops this line",
     nullptr, "remove it, or give it a value"},
    {movedLine, "key @ has values in other lines, and storing moves this line up to them", nullptr,
     "move it there"},
    {textAfterHeader, "the text after \"]\" is ignored, and storing drops it", nullptr,
     "remove it, or make it a comment line"},
    {spacing, "storing changes the whitespace of this line",
     "storing changes the whitespace of # lines, this one first",
     "write \"key = value\" and \"[stanza]\" without indentation"},
    {lineEnding, "the line has CR LF at its end, and storing writes LF",
     "# lines have CR LF at their ends, this one first, and storing writes LF",
     "convert the line endings"},
    {missingNewline, "the last line has no newline, and storing adds it", nullptr, "add it"},
    {looksContinued, "key @ looks like a continuation of the line above, but is a key of its own",
     nullptr, "remove the indentation, or write one line"},
    {loneReturn, "the line has a carriage return without a newline, and does not end there",
     "# lines have carriage returns without a newline, this one first, and do not end there",
     "end each line with a newline, and remove other carriage returns"},
    {reservedEntry, "storing changes this entry: the companion file $", nullptr,
     "store the file once to correct the entry"},
    {omitted, "one more problem is not listed", "# more problems are not listed",
     "correct the others first"},
    {notAnEntry, "neither a header, a comment nor a key with a separator", nullptr,
     "add the separator, or make it a comment", true},
    {missingKey, "no key before the separator", nullptr, "add one", true},
    {keyOutsideStanza, "key above the first header", nullptr, "move it below a header", true},
    {unclosedHeader, "no \"]\" after the name in the header", nullptr, "add it", true},
    {zeroByte, "the line has a zero byte", nullptr, "remove it", true},
    {invalidHead, "the name in the header has characters that the format does not allow", nullptr,
     "write another name", true},
    {invalidKey, "the key has characters that the format does not allow", nullptr,
     "write another key, or correct the characters after it", true},
    {openQuote, "a quote is not closed", nullptr, "close it", true},
    {unknownEscape, "the format does not have this escape", nullptr,
     "write two backslashes for one", true},
    {loneReturn, "a carriage return is not followed by a newline", nullptr,
     "end each line with a newline, and remove other carriage returns", true},
    {lineTooLong, "the line is longer than 1 MiB", nullptr, "split it", true},
    {noHeadOrKey, "the file has neither a header nor a key of this format", nullptr,
     "choose another dialect", true},
    {passedOver, "programs that read this format ignore the line: ^", nullptr,
     "correct it, or make it a comment", true},
    {shadowed, "another line with key @ counts, and this one is ignored", nullptr,
     "remove one of them", true},
    {directive, "directives are kept, but not followed", nullptr,
     "read the other file as well if its values matter", true},
    {refusedLine, "programs that read this format refuse the file: ^", nullptr, "correct the line",
     true},
    {refusedRepetition, "programs that read this format refuse the file: ^", nullptr,
     "join it with the earlier one", true},
    {quotedInPart, "programs that read this format drop the quotes within the value", nullptr,
     "write quotes around the whole value", true},
    {continuedComment, "the comment above continues here, but programs may read this line", nullptr,
     "remove the backslash above, or the line", true},
    {repeatedHeader, "programs may read only the ^ of the stanzas with this name", nullptr,
     "join it with the earlier one", true},
    {mixedLines,
     "key @ has lines with and without a value, and programs that expect one value use the last",
     nullptr, "write a value in each, or remove the others", true},
};

Row const& rowOf(Cause cause, bool isForeign)
{
    Row const* found = kRows;
    for (Row const& row : kRows)
        if (row.cause == cause && (isForeign || !row.isForeign))
            found = &row;
    return *found;
}

}  // namespace

std::string quote(std::string_view text)
{
    if (text.size() <= kMaxQuotedLength)
        return '"' + std::string(text) + '"';
    size_t end = kMaxQuotedLength;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80)
        --end;
    return '"' + std::string(text.substr(0, end)) + "...\"";
}

std::string textOf(Complaint const& complaint)
{
    Row const& row = rowOf(complaint.cause, complaint.isForeign);
    std::string_view const what = row.many != nullptr && complaint.count > 1 ? row.many : row.one;
    bool const hasMark = what.find_first_of("@$") != what.npos;
    std::string text;
    if (!hasMark && !complaint.detail.empty())
        text = quote(complaint.detail) + ": ";
    for (char const c : what) {
        if (c == '@')
            text += quote(complaint.detail);
        else if (c == '$')
            text += complaint.detail;
        else if (c == '#')
            text += std::to_string(complaint.count);
        else if (c == '^')
            text += complaint.reason;
        else if (c == '~')
            text += std::to_string(zstanza::kMaxLineLength);
        else
            text += c;
    }
    return text + "; " + row.help;
}

}  // namespace zproblems
