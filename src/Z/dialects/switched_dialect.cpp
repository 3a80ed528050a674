#include "switched_dialect.h"

#include "escaped_names.h"
#include "heads.h"
#include "line_reader.h"
#include "logical_line.h"
#include "percent_names.h"
#include "table.h"
#include "values.h"

namespace zdialects {

using zlines::Line;
using zlines::slice;

SwitchedDialect::SwitchedDialect(Switches const& switches)
    : switches_(switches), characters_(switches)
{
}

bool SwitchedDialect::split(std::string_view text, std::vector<Line>& lines) const
{
    return LineReader(switches_, characters_, text, lines, nullptr).read();
}

void SwitchedDialect::read(std::string_view text, std::vector<Line>& lines, FindingSink& sink) const
{
    LineReader(switches_, characters_, text, lines, &sink).read();
}

std::string_view SwitchedDialect::writtenStanza(std::string_view text, Line const& header,
                                                std::string& space) const
{
    std::string_view const spelled = slice(text, header.nameBegin(), header.nameEnd);
    LineJoining const joining(switches_, characters_);
    std::string lines;
    std::string_view const joined = joining.joined(spelled, lines);
    std::string_view const name = decodeHead(switches_, joined, space);
    return name.data() == lines.data() && !lines.empty() ? std::string_view(space = name) : name;
}

std::string_view SwitchedDialect::writtenKey(std::string_view text, Line const& line,
                                             std::string& space) const
{
    std::string_view const spelled =
        LineJoining(switches_, characters_)
            .joined(slice(text, line.nameBegin(), line.nameEnd), space);
    switch (switches_.names) {
        case Names::plain:
            break;
        case Names::percent:
            return decodePercents(spelled, space);
        case Names::escaped:
            return decodeEscapedKey(spelled, space);
    }
    return spelled;
}

std::string_view SwitchedDialect::stanzaName(std::string_view text, Line const& header,
                                             std::string& space) const
{
    return comparableStanza(writtenStanza(text, header, space), space);
}

std::string_view SwitchedDialect::keyName(std::string_view text, Line const& line,
                                          std::string& space) const
{
    return comparableKey(writtenKey(text, line, space), space);
}

std::string_view SwitchedDialect::comparableStanza(std::string_view name, std::string& space) const
{
    return foldStanza(switches_, name, space);
}

std::string_view SwitchedDialect::comparableKey(std::string_view name, std::string& space) const
{
    bool const exchanges = switches_.paths == Paths::dotsOrSlashes && isSlashPath(name);
    if (!switches_.dropBlanks && !switches_.dashes && !switches_.foldKeys && !exchanges)
        return name;
    constexpr char kDropped = '\0';
    auto const folded = [this, exchanges](char c) {
        if (exchanges)
            c = exchangedSeparator(c);
        if (switches_.dropBlanks && characters_.isBlank(c))
            return kDropped;
        if (switches_.dashes && c == '-')
            return '_';
        return switches_.foldKeys ? foldedCase(c) : c;
    };
    size_t same = 0;
    while (same < name.size() && folded(name[same]) == name[same])
        ++same;
    if (same == name.size())
        return name;
    size_t const size = name.size();
    if (name.data() != space.data())
        space = name;
    size_t end = same;
    for (size_t at = same; at < size; ++at)
        if (char const c = folded(space[at]); c != kDropped)
            space[end++] = c;
    space.resize(end);
    return space;
}

std::string_view SwitchedDialect::value(std::string_view text, Line const& line,
                                        std::string& space) const
{
    LineJoining const joining(switches_, characters_);
    return ValueDecoder(joining).decode(text, line.begin, line.valueBegin, line.valueEnd, space);
}

bool SwitchedDialect::isQuotedInPart(std::string_view text, Line const& line) const
{
    LineJoining const joining(switches_, characters_);
    ValueDecoder decoder(joining);
    std::string space;
    decoder.decode(text, line.begin, line.valueBegin, line.valueEnd, space);
    return decoder.isQuotedInPart();
}

std::string_view SwitchedDialect::commentText(std::string_view comment) const
{
    comment.remove_prefix(characters_.afterBlanks(comment, 0));
    if (!comment.empty() &&
        (characters_.isMark(comment.front()) || characters_.isTrailingMark(comment.front())))
        comment.remove_prefix(1);
    size_t const begin = characters_.afterBlanks(comment, 0);
    return comment.substr(begin, characters_.withoutBlanksAtEnd(comment, begin) - begin);
}

std::string_view SwitchedDialect::topStanza() const
{
    return switches_.top == Top::stanza ? "." : "";
}

std::shared_ptr<SwitchedDialect const> dialectWith(Switches const& switches)
{
    static auto const* const rows = [] {
        auto* const made = new std::shared_ptr<SwitchedDialect const>[kRowCount];
        for (int row = 0; row < kRowCount; ++row)
            if (!rowAt(row).switches.isStanzaFormat())
                made[row] = std::make_shared<SwitchedDialect const>(rowAt(row).switches);
        return made;
    }();
    for (int row = 0; row < kRowCount; ++row)
        if (rowAt(row).switches == switches)
            return rows[row];
    return std::make_shared<SwitchedDialect const>(switches);
}

}  // namespace zdialects
