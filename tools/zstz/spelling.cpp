#include "spelling.h"

#include <Z/ZException.h>
#include <Z/dialects/line_rules.h>

#include <algorithm>
#include <vector>

#include "failures.h"
#include "key_lines.h"

namespace {

using zdialects::LineRules;
using zlines::Line;
using zlines::Outline;

// Returns the text with another spelling of a value, or without the value and the separator.
std::string respell(std::string_view text, Line const& line, Request const& request)
{
    std::string after(text);
    uint32_t const first = request.bare ? line.nameEnd : line.valueBegin;
    return after.replace(first, line.valueEnd - first, request.bare ? "" : request.value);
}

bool isAsRequested(KeyLine const& line, Request const& request)
{
    return request.bare ? line.line.kind == zlines::keyOnlyLine : line.raw == request.value;
}

// Returns the lines that have the name: the key lines, or the headers of the stanza.
std::vector<uint32_t> linesWithName(Outline& outline, Request const& request)
{
    std::vector<uint32_t> lines;
    if (!request.key.empty()) {
        for (KeyLine const& line : findKeyLines(outline, request.stanza, request.key))
            lines.push_back(line.index);
        return lines;
    }
    uint32_t const stanza =
        outline.find(LineRules(outline.dialect()).stanzaIdentity(request.stanza), 0);
    for (uint32_t at = stanza == zlines::kNone ? zlines::kNone
                                               : outline.stanzas()[stanza].firstSection;
         at != zlines::kNone; at = outline.sections()[at].next)
        lines.push_back(outline.sections()[at].header);
    return lines;
}

// Returns the new spelling of a name in a line. A subsection is exact, and keeps its quotes.
std::string spellName(std::string_view spelled, Request const& request,
                      zdialects::Switches const& switches)
{
    size_t const quote = spelled.find('"');
    if (!request.key.empty() || switches.heads != zdialects::Heads::subsection ||
        quote == spelled.npos)
        return request.newName;
    size_t const end = std::min(spelled.find_first_of(" \t\""), quote);
    return request.newName.substr(0, request.newName.find('.')) + std::string(spelled.substr(end));
}

}  // namespace

void respellValue(EditedFile& file, Request const& request, std::string const& placeholder)
{
    std::string const text = file.text();
    zlines::Dialect const& dialect = keptText(file.store())->dialect;
    Outline outline(text, dialect);
    std::vector<KeyLine> const lines = findKeyLines(outline, request.stanza, request.key);
    for (size_t i = 0; i < lines.size(); ++i) {
        if (lines[i].value != placeholder)
            continue;
        std::string const after = respell(text, lines[i].line, request);
        Outline changed(after, dialect);
        std::vector<KeyLine> const found = findKeyLines(changed, request.stanza, request.key);
        if (changed.lines().size() == outline.lines().size() && found.size() == lines.size() &&
            isAsRequested(found[i], request))
            return file.setText(after);
    }
    std::string const name = nameKey(request.key, request.stanza);
    if (request.bare)
        throw Failure{exitInvalidValue,
                      request.file,
                      {name + " would not read back without a value", "set a value"}};
    throw Failure{exitInvalidValue,
                  request.file,
                  {name + ": " + quote(request.value) + " would not read back as it is spelled",
                   "leave out --raw, so that zstz spells the value"}};
}

bool isSameName(Store const& store, Request const& request)
{
    zlines::SharedDialect const dialect = lineDialectOf(store.dialect());
    LineRules const rules(*dialect);
    return request.key.empty()
               ? rules.stanzaIdentity(request.stanza) == rules.stanzaIdentity(request.newName)
               : rules.keyIdentity(request.key) == rules.keyIdentity(request.newName);
}

void respellName(EditedFile& file, Request const& request)
{
    std::string const text = file.text();
    zlines::Dialect const& dialect = keptText(file.store())->dialect;
    Outline outline(text, dialect);
    std::vector<uint32_t> const lines = linesWithName(outline, request);
    std::string after;
    size_t done = 0;
    zdialects::Switches const switches = file.store().switches();
    for (uint32_t const index : lines) {
        Line const& line = outline.lines()[index];
        after.append(text, done, line.nameBegin() - done);
        after += spellName(outline.spelledName(index), request, switches);
        done = line.nameEnd;
    }
    after.append(text, done);
    Outline changed(after, dialect);
    bool const isRead = changed.lines().size() == outline.lines().size() &&
                        linesWithName(changed, request) == lines &&
                        differOnlyIn(outline, nullptr, changed, nullptr);
    if (!isRead)
        throw Failure{
            exitInvalidValue,
            request.file,
            {"the name " + quote(request.newName) + " would not read back", "choose another name"}};
    file.willChange(request.stanza, request.key, true);
    file.setText(after);
}
