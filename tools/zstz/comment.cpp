// comment: the verb comment, which sets comments, or turns key lines into comments and back.
#include <Z/ZLCString.h>
#include <Z/dialects/line_rules.h>
#include <Z/stanza/limits.h>

#include <algorithm>

#include "commands.h"
#include "commented_lines.h"
#include "edited_file.h"
#include "failures.h"
#include "key_lines.h"

namespace {

using zlines::Line;
using zlines::Outline;

// Returns the mark that starts a new comment in the format of the file.
std::string commentMark(Store const& store)
{
    zlines::SharedText const kept = keptText(store);
    return kept != nullptr ? std::string(kept->dialect.ownComment()) : "#";
}

// Returns a comment with a mark of the format of the file at the start of each line.
std::string markLines(std::string const& text, Store const& store, Request const& request)
{
    zlines::SharedText const kept = keptText(store);
    std::string const mark = commentMark(store);
    auto const isMarked = [&](std::string const& line) {
        return line.starts_with(mark) ||
               (kept != nullptr &&
                zdialects::LineRules(kept->dialect).startsComment(line.substr(0, 1)));
    };
    std::string comment;
    for (size_t at = 0; at <= text.size();) {
        size_t const end = std::min(text.find('\n', at), text.size());
        std::string const line = text.substr(at, end - at);
        std::string const marked = isMarked(line) ? line : line.empty() ? mark : mark + ' ' + line;
        if (marked.size() > zstanza::kMaxLineLength)
            throw Failure{exitInvalidValue,
                          request.file,
                          {"a line of the comment is too long", "use several lines"}};
        comment += (at == 0 ? "" : "\n") + marked;
        at = end + 1;
    }
    return comment;
}

// Requires that each line of a comment reads as a comment.
void requireComments(Store const& store, std::string const& comment, Request const& request)
{
    if (store.isStanzaFile())
        return;
    std::vector<Line> lines;
    // A line below shows whether the last line of the comment continues.
    std::string const text = comment + "\nk=v\n";
    lineDialectOf(store.dialect())->split(text, lines);
    size_t const count = static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
    bool const isRead =
        lines.size() == count && std::all_of(lines.begin(), lines.end() - 1, [](Line const& line) {
            return line.kind == zlines::commentLine;
        });
    if (!isRead)
        throw Failure{
            exitInvalidValue,
            request.file,
            {"the comment " + quote(request.text) +
                 " would not read back, because a line of it ends with a backslash, or has a "
                 "carriage return or other bytes of no comment",
             "use another text"}};
}

// Returns the index of the line that the comment of a request is above.
uint32_t findCommentedLine(Outline& outline, Request const& request)
{
    if (!request.key.empty()) {
        std::vector<KeyLine> const lines = findKeyLines(outline, request.stanza, request.key);
        return lines.empty() ? 0 : lines.front().index;
    }
    uint32_t const stanza =
        outline.find(zdialects::LineRules(outline.dialect()).stanzaIdentity(request.stanza), 0);
    return request.stanza.empty() || stanza == zlines::kNone
               ? 0
               : outline.sections()[outline.stanzas()[stanza].firstSection].header;
}

// Returns whether the key has an indentation, and no comment that has one of its own.
bool isIndentedKey(EditedFile& file, Request const& request)
{
    if (file.store().isStanzaFile() || request.key.empty())
        return false;
    std::string const text = file.text();
    Outline outline(text, keptText(file.store())->dialect);
    std::vector<KeyLine> const lines = findKeyLines(outline, request.stanza, request.key);
    if (lines.empty() || outline.sharesLine(lines.front().index))
        return false;
    char const first = text[lines.front().line.begin];
    return first == ' ' || first == '\t';
}

// Inserts a comment above the existing comment, in its style.
void insertAbove(EditedFile& file, Request const& request, std::string const& comment)
{
    std::string const text = file.text();
    Outline outline(text, keptText(file.store())->dialect);
    uint32_t index = findCommentedLine(outline, request);
    while (index > 0 && outline.lines()[index - 1].kind == zlines::commentLine)
        --index;
    Line const& line = outline.lines()[index];
    std::string_view indent = zlines::slice(text, line.begin, line.nameBegin());
    indent = indent.substr(0, indent.find_first_not_of(" \t"));
    std::string const lineEnding(outline.lineEndingOf(index));
    std::string inserted(indent);
    for (char const c : comment)
        inserted += c == '\n' ? lineEnding + std::string(indent) : std::string(1, c);
    std::string after = text;
    after.insert(line.begin, inserted + lineEnding);
    file.setText(after);
}

// Refuses TEXT if it is the name of a stanza of the file, or of a key of the stanza: then the user
// forgot TEXT.
void requireText(Store const& store, Request const& request)
{
    if (!request.key.empty() || request.text.empty())
        return;
    std::string const stanza = request.stanza.empty() ? "." : request.stanza;
    std::string const name = resolveStanza(store.dialect(), request.text);
    bool const isStanza = request.stanza.empty() && store.contents().contains(name.c_str()) != 0;
    if (!isStanza && store.contents().contains(stanza.c_str(), request.text.c_str()) == 0)
        return;
    std::string const meaning =
        isStanza ? "a stanza" : "a key of " + formatHeading(store.dialect(), stanza);
    throw Failure{exitUsage,
                  request.file,
                  {"TEXT is missing, because " + quote(request.text) + " is " + meaning,
                   "add TEXT, or pass " + quote(commentMark(store) + ' ' + request.text) +
                       " for this comment; --off turns a key into a comment"}};
}

void setComment(EditedFile& file, Request const& request)
{
    Store& store = file.store();
    char const* const stanza = request.stanza.empty() ? nullptr : request.stanza.c_str();
    char const* const key = request.key.empty() ? nullptr : request.key.c_str();
    if (key != nullptr)
        requireKey(store, request);
    if (key != nullptr && store.isObfuscated(stanza, key) != 0)
        throw Failure{exitRefused,
                      request.file,
                      {nameKey(request.key, request.stanza) +
                           " has obfuscated values, so it has no line for a comment",
                       "comment the stanza"}};
    if (key == nullptr && stanza != nullptr)
        requireStanza(store, request.file, request.stanza);
    requireText(store, request);
    if (stanza != nullptr)
        file.willChange(request.stanza, request.key, false);
    ZLCString_6_0 old;
    bool const keepsOld = request.above && store.getComment(stanza, key, old) != 0;
    if (request.text.empty()) {
        if (!request.above)
            store.setComment(stanza, key, nullptr);
        return;
    }
    std::string comment = markLines(request.text, store, request);
    requireComments(store, comment, request);
    bool const isFirst = store.getComment(stanza, key, old) == 0;
    if ((keepsOld && !request.normalise) || (isFirst && isIndentedKey(file, request)))
        return insertAbove(file, request, comment);
    if (keepsOld)
        comment += '\n' + toStdString(old);
    store.setComment(stanza, key, comment.c_str());
}

}  // namespace

void prepareComment(Request& request)
{
    if (Store(chooseDialect(request, request.file)).isStanzaFile())
        checkReserved(request.file, request.stanza);
}

void applyComment(EditedFile& file, Request const& request)
{
    requireUnambiguous(file.store(), request);
    if (request.off)
        turnOff(file, request);
    else if (request.on)
        turnOn(file, request);
    else
        setComment(file, request);
}
