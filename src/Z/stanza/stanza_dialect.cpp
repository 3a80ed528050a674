#include "stanza_dialect.h"

#include "limits.h"
#include "line_parts.h"
#include "line_splitter.h"
#include "whitespace.h"

namespace zstanza {

namespace {

using zlines::Line;

class StanzaDialect final : public zlines::Dialect {
public:
    bool split(std::string_view text, std::vector<Line>& lines) const override;
    std::string_view commentText(std::string_view comment) const override;
    bool hasEmptyValues() const override { return false; }
    bool refusesRepeatedHeaders() const override { return true; }
    bool hasCommentsAfterValues() const override { return false; }
    std::string_view ownSeparator() const override { return " = "; }
    std::string_view ownComment() const override { return "#"; }
    std::string_view separatorBytes() const override { return "="; }
    size_t maxLineLength() const override { return kMaxLineLength; }

    void appendHeader(std::string_view name, std::string& out) const override
    {
        out += '[';
        out += name;
        out += ']';
    }

    std::string keyOnlyEnd(std::string_view separator) const override
    {
        return std::string(separator.substr(0, separator.find('=') + 1));
    }
};

// Classifies a line of `text` without whitespace at its ends. It starts at `start` with whitespace.
Line classify(std::string_view text, uint32_t start, std::string_view line,
              WhitespaceTable const& whitespace)
{
    auto const position = [&](char const* at) { return static_cast<uint32_t>(at - text.data()); };
    auto const end = position(line.data() + line.size());
    auto const make = [&](zlines::LineKind kind, std::string_view name, uint32_t value) {
        return Line{start,
                    kind,
                    (position(name.data()) - start) & 0x1FFFFFFF,
                    position(name.data() + name.size()),
                    value,
                    end};
    };
    if (line.empty())
        return make(zlines::blankLine, line, end);
    if (line.front() == '#')
        return make(zlines::commentLine, line.substr(0, 1),
                    position(whitespace.trimStart(line.substr(1)).data()));
    if (line.front() == '[') {
        auto const name = findHeaderName(line);
        return name ? make(zlines::headerLine, *name, end)
                    : make(zlines::otherLine, line.substr(0, 0), end);
    }
    auto const parts = splitKeyLine(line, whitespace);
    if (!parts)
        return make(zlines::otherLine, line.substr(0, 0), end);
    return make(parts->value.empty() ? zlines::keyOnlyLine : zlines::valueLine, parts->key,
                position(parts->value.data()));
}

bool StanzaDialect::split(std::string_view text, std::vector<Line>& lines) const
{
    if (text.empty())
        return true;
    WhitespaceTable const whitespace;
    bool isValid = true;
    LineSplitter splitter(text.data(), text.size());
    char const* bytes;
    for (size_t length; splitter.next(bytes, length);) {
        std::string_view const line(bytes, length);
        std::string_view const trimmed = whitespace.trimStart(whitespace.trimEnd(line));
        lines.push_back(
            classify(text, static_cast<uint32_t>(bytes - text.data()), trimmed, whitespace));
        isValid = isValid && lines.back().kind != zlines::otherLine;
        // The spaces after "key =" belong to the separator: a new value follows them.
        if (lines.back().kind == zlines::keyOnlyLine) {
            char const* end = trimmed.data() + trimmed.size();
            while (end != bytes + length && (*end == ' ' || *end == '\t'))
                ++end;
            lines.back().valueBegin = lines.back().valueEnd =
                static_cast<uint32_t>(end - text.data());
        }
    }
    return isValid;
}

std::string_view StanzaDialect::commentText(std::string_view comment) const
{
    if (comment.starts_with('#'))
        comment.remove_prefix(1);
    while (!comment.empty() && isSpace(comment.back()))
        comment.remove_suffix(1);
    while (!comment.empty() && isSpace(comment.front()))
        comment.remove_prefix(1);
    return comment;
}

}  // namespace

zlines::Dialect const& stanzaDialect()
{
    static StanzaDialect const dialect;
    return dialect;
}

zlines::SharedDialect sharedStanzaDialect()
{
    return zlines::withoutOwner(stanzaDialect());
}

}  // namespace zstanza
