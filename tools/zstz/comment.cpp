// comment: the verb comment, which sets comments and turns key lines into comments and back.
#include <Z/ZLCString.h>
#include <Z/stanza/limits.h>

#include "commands.h"
#include "edited_file.h"
#include "failures.h"
#include "key_lines.h"

namespace {

using zlines::Line;
using zlines::Outline;

// Returns the mark that starts a comment in the format of the file.
std::string commentMark(Store const& store)
{
    zlines::SharedText const kept = keptText(store);
    return kept != nullptr ? std::string(kept->dialect.ownComment()) : "#";
}

// Returns a comment with a mark at the start of each line.
std::string markLines(std::string const& text, std::string const& mark, Request const& request)
{
    std::string comment;
    for (size_t at = 0; at <= text.size();) {
        size_t const end = std::min(text.find('\n', at), text.size());
        std::string const line = text.substr(at, end - at);
        std::string const marked = line.starts_with(mark) ? line
                                   : line.empty()         ? mark
                                                          : mark + ' ' + line;
        if (marked.size() > zstanza::kMaxLineLength)
            throw Failure{exitInvalidValue,
                          request.file,
                          {"a line of the comment is too long", "use several lines"}};
        comment += (at == 0 ? "" : "\n") + marked;
        at = end + 1;
    }
    return comment;
}

// Returns the index of the line that the comment of a request is above.
uint32_t findCommentedLine(Outline& outline, Request const& request)
{
    if (!request.key.empty()) {
        std::vector<KeyLine> const lines = findKeyLines(outline, request.stanza, request.key);
        return lines.empty() ? 0 : lines.front().index;
    }
    std::string space;
    uint32_t const stanza =
        outline.find(outline.dialect().comparableStanza(request.stanza, space), 0);
    return request.stanza.empty() || stanza == zlines::kNone
               ? 0
               : outline.sections()[outline.stanzas()[stanza].firstSection].header;
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
    std::string const indent(zlines::slice(text, line.begin, line.nameBegin()));
    std::string const lineEnding(outline.lineEndingOf(index));
    std::string inserted = indent;
    for (char const c : comment)
        inserted += c == '\n' ? lineEnding + indent : std::string(1, c);
    std::string after = text;
    after.insert(line.begin, inserted + lineEnding);
    file.setText(after);
}

void setComment(EditedFile& file, Request const& request)
{
    Store& store = file.store();
    char const* const stanza = request.stanza.empty() ? nullptr : request.stanza.c_str();
    char const* const key = request.key.empty() ? nullptr : request.key.c_str();
    if (key != nullptr)
        requireKey(store, request);
    else if (stanza != nullptr)
        requireStanza(store, request.file, request.stanza);
    if (stanza != nullptr)
        file.willChange(request.stanza, request.key, false);
    ZLCString_6_0 old;
    bool const keepsOld = request.above && store.getComment(stanza, key, old) != 0;
    if (request.text.empty()) {
        if (!request.above)
            store.setComment(stanza, key, nullptr);
        return;
    }
    std::string comment = markLines(request.text, commentMark(store), request);
    if (keepsOld && !request.normalise)
        return insertAbove(file, request, comment);
    if (keepsOld)
        comment += '\n' + toStdString(old);
    store.setComment(stanza, key, comment.c_str());
}

// ---- Lines of keys as comments -----------------------------------------------------------------

// Returns whether a comment is a key line with a mark before it.
bool isMarkedLine(Outline const& outline, uint32_t index, std::string const& key)
{
    std::string_view comment = outline.comment(index);
    if (outline.lines()[index].kind != zlines::commentLine || !comment.starts_with(key))
        return false;
    comment.remove_prefix(key.size());
    size_t const separator = comment.find_first_not_of(" \t");
    return separator != comment.npos &&
           outline.dialect().separatorBytes().find(comment[separator]) != std::string_view::npos;
}

// Returns the last group of adjacent comments that are lines of the key.
std::vector<uint32_t> findMarkedLines(Outline& outline, Request const& request)
{
    std::vector<uint32_t> found;
    std::string space;
    std::string key;
    outline.dialect().appendKey(request.key, key);
    uint32_t const stanza =
        outline.find(outline.dialect().comparableStanza(request.stanza, space), 0);
    for (uint32_t at = stanza == zlines::kNone ? zlines::kNone
                                               : outline.stanzas()[stanza].firstSection;
         at != zlines::kNone; at = outline.sections()[at].next)
        for (uint32_t i = outline.sections()[at].first; i < outline.sections()[at].end; ++i)
            if (isMarkedLine(outline, i, key)) {
                if (!found.empty() && found.back() + 1 != i)
                    found.clear();
                found.push_back(i);
            }
    return found;
}

void turnOff(EditedFile& file, Request const& request)
{
    requireKey(file.store(), request);
    std::string text = file.text();
    Outline outline(text, keptText(file.store())->dialect);
    std::vector<KeyLine> const lines = findKeyLines(outline, request.stanza, request.key);
    std::string const name = nameKey(request.key, request.stanza);
    if (lines.empty())
        throw Failure{exitRefused,
                      request.file,
                      {name + " has obfuscated values, which cannot be in a comment",
                       "remove the key with 'zstz unset'"}};
    std::string const mark = std::string(outline.dialect().ownComment()) + ' ';
    std::string after = text;
    for (size_t i = lines.size(); i-- > 0;) {
        Line const& line = lines[i].line;
        if (lines[i].raw.find('\n') != std::string_view::npos)
            throw Failure{exitRefused,
                          request.file,
                          {name + " has a value of several lines",
                           "turn these lines into comments with an editor"}};
        after.insert(line.nameBegin(), mark);
    }
    file.willChange(request.stanza, request.key, false);
    file.setText(after);
}

void turnOn(EditedFile& file, Request const& request)
{
    std::string const text = file.text();
    zlines::Dialect const& dialect = keptText(file.store())->dialect;
    Outline outline(text, dialect);
    std::string const name = nameKey(request.key, request.stanza);
    std::vector<uint32_t> const marked = findMarkedLines(outline, request);
    if (marked.empty())
        throw Failure{exitNotFound,
                      request.file,
                      {"no comment has a line of " + name, "set the key with 'zstz set'"}};
    std::string after = text;
    for (size_t i = marked.size(); i-- > 0;) {
        Line const& line = outline.lines()[marked[i]];
        after.erase(line.nameBegin(), line.valueBegin - line.nameBegin());
    }
    size_t const count = findKeyLines(outline, request.stanza, request.key).size();
    Outline changed(after, dialect);
    if (findKeyLines(changed, request.stanza, request.key).size() != count + marked.size())
        throw Failure{exitRefused,
                      request.file,
                      {"the comment with a line of " + name + " is not valid as a line",
                       "set the key with 'zstz set'"}};
    file.willChange(request.stanza, request.key, false);
    file.setText(after);
}

}  // namespace

void prepareComment(Request& request)
{
    if (Store(chooseDialect(request, request.file)).isStanzaFile())
        checkReserved(request.file, request.stanza);
}

void applyComment(EditedFile& file, Request const& request)
{
    if (request.off)
        turnOff(file, request);
    else if (request.on)
        turnOn(file, request);
    else
        setComment(file, request);
}
