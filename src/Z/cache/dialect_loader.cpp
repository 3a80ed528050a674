#include "dialect_loader.h"

#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

#include "../ZException.h"
#include "../dialects/finding.h"
#include "../lines/columns.h"
#include "../lines/name_hash.h"
#include "../stanza/raise_sites.h"
#include "reader.h"

namespace zcache {

namespace {

using zdialects::Finding;
using zdialects::FoldStanzas;
using zdialects::RepeatedHead;
using zdialects::SwitchedDialect;
using zdialects::Switches;

// Refuses the text at its first invalid line.
class RefusingSink final : public zdialects::FindingSink {
public:
    RefusingSink(char const* path, std::string_view text) : path_(path), text_(text) {}

    void found(Finding const& finding) override
    {
        if (!finding.isError)
            return;
        size_t const end = std::min(text_.find('\n', finding.line), text_.size());
        std::string line(text_.substr(finding.line, end - finding.line));
        if (line.ends_with('\r'))
            line.pop_back();
        std::string_view const before = text_.substr(finding.line, finding.at - finding.line);
        auto const number = 1 + std::count(text_.begin(), text_.begin() + finding.line, '\n');
        ZPropertiesInvalidDataException_6_0(path_, line.c_str(), static_cast<int>(number),
                                            static_cast<int>(zlines::countCharacters(before)) + 1)
            .throwException(zstanza::kSource, zstanza::raiseAtLine);
    }

private:
    char const* const path_;
    std::string_view const text_;
};

// Passes lines to a reader. Names and values that are spelled as they read are views of a copy of
// the text, in which a zero byte is written after each.
class Loader {
public:
    Loader(SwitchedDialect const& dialect, std::string_view text, Contents& contents)
        : dialect_(dialect), text_(text), reader_(contents)
    {
        Arena::Block block;
        block.setCapacity(text.size() + 1);
        bytes_ = block.chars();
        memcpy(bytes_, text.data(), text.size());
        bytes_[text.size()] = '\0';
        reader_.adopt(block, text.size() + 1);
    }

    void load(std::vector<zlines::Line> const& lines)
    {
        reader_.reserve(countLines(lines));
        for (zlines::Line const& line : lines)
            add(line);
        reader_.finish();
    }

private:
    static zstanza::LineCounts countLines(std::vector<zlines::Line> const& lines)
    {
        zstanza::LineCounts counts = {};
        for (zlines::Line const& line : lines) {
            counts.headers += line.kind == zlines::headerLine;
            counts.keys += line.isKey();
            counts.comments += line.kind == zlines::commentLine;
            counts.blanks += line.kind == zlines::blankLine;
        }
        return counts;
    }

    void add(zlines::Line const& line)
    {
        switch (line.kind) {
            case zlines::blankLine:
                reader_.addBlank();
                break;
            case zlines::commentLine:
                reader_.addComment(inArena(zlines::slice(text_, line.nameBegin(), line.valueEnd)));
                break;
            case zlines::headerLine:
                addHeader(line);
                break;
            case zlines::valueLine:
            case zlines::keyOnlyLine:
                addKey(line);
                break;
            default:
                reader_.addGap();  // kept in the text alone
                break;
        }
    }

    void addHeader(zlines::Line const& line)
    {
        hasStanza_ = true;
        std::string_view const name = dialect_.writtenStanza(text_, line, space_);
        if (dialect_.switches().repeatedHead == RepeatedHead::separate) {
            std::string identity;
            unsigned const count =
                ++counts_[std::string(dialect_.stanzaName(text_, line, identity))];
            if (count > 1)
                return reader_.addHeader(
                    reader_.copy(std::string(name) + ']' + std::to_string(count)), 0, 0);
        }
        reader_.addHeader(inArena(name), 0, 0);
    }

    void addKey(zlines::Line const& line)
    {
        if (!hasStanza_)
            reader_.addHeader(reader_.copy(dialect_.topStanza()), 0, 0);
        hasStanza_ = true;
        std::string_view const name = inArena(dialect_.writtenKey(text_, line, space_));
        std::string_view value;
        if (line.kind == zlines::valueLine)
            value = inArena(dialect_.value(text_, line, space_));
        reader_.addKey(name, value);
    }

    // Returns the same string in the arena, with a zero byte after it.
    std::string_view inArena(std::string_view view)
    {
        auto const offset =
            reinterpret_cast<uintptr_t>(view.data()) - reinterpret_cast<uintptr_t>(text_.data());
        if (view.data() == nullptr || offset > text_.size() || offset + view.size() > text_.size())
            return reader_.copy(view.data() == nullptr ? "" : view);
        bytes_[offset + view.size()] = '\0';
        return {bytes_ + offset, view.size()};
    }

    SwitchedDialect const& dialect_;
    std::string_view const text_;
    Reader reader_;
    char* bytes_;  // the copy
    bool hasStanza_ = false;
    std::string space_;
    // Headers, by the name as compared.
    std::unordered_map<std::string, unsigned, zlines::NameHash, std::equal_to<>> counts_;
};

// Returns whether a line is a comment: a mark of comments after values can start a line, too.
bool isComment(SwitchedDialect const& dialect, std::string_view line)
{
    std::vector<zlines::Line> lines;
    dialect.split(line, lines);
    return !lines.empty() && lines.front().kind == zlines::commentLine;
}

}  // namespace

Policy policyOf(SwitchedDialect const& dialect)
{
    Switches const& switches = dialect.switches();
    Policy policy;
    policy.keepsEmpty = true;
    policy.joinsHeads = switches.repeatedHead == RepeatedHead::joined;
    policy.hasGaps = true;
    policy.hasTop = !dialect.topStanza().empty();
    // foldStanza() folds nothing if headers have no subsections.
    policy.categories.foldsUpToDot = switches.foldStanzas == FoldStanzas::beforeSubsection &&
                                     switches.heads == zdialects::Heads::subsection;
    policy.categories.foldsCase =
        switches.foldStanzas == FoldStanzas::all || policy.categories.foldsUpToDot;
    policy.categories.dropsFirstNumber = !dialect.joinsHeaders();
    policy.keys.foldsCase = switches.foldKeys;
    policy.keys.dropsBlanks = switches.dropBlanks;
    policy.keys.dashIsUnderscore = switches.dashes;
    policy.keys.exchangesSlashes = switches.paths == zdialects::Paths::dotsOrSlashes;
    bool const hasHash = isComment(dialect, "#");
    bool const hasSemicolon = isComment(dialect, ";");
    policy.comments.marks = hasHash && hasSemicolon ? "#;" : hasSemicolon ? ";" : "#";
    policy.comments.separators =
        (switches.separators & zdialects::separatorColon) != 0 ? "=:" : "=";
    policy.comments.maxLength = dialect.maxLineLength();
    return policy;
}

void load(SwitchedDialect const& dialect, char const* path, std::string_view text,
          Contents& contents)
{
    std::vector<zlines::Line> lines;
    RefusingSink sink(path, text);
    dialect.read(text, lines, sink);
    Loader(dialect, text, contents).load(lines);
}

}  // namespace zcache
