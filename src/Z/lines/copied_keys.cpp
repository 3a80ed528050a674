#include "copied_keys.h"

#include <algorithm>

#include "difference.h"
#include "edits.h"
#include "style.h"

namespace zlines {

namespace {

class Copier {
public:
    Copier(std::string_view text, Dialect const& dialect, std::vector<std::string> const& names,
           MergedContents const& contents, MergeSide const& theirs)
        : text_(text),
          dialect_(dialect),
          names_(names),
          contents_(contents),
          theirs_(theirs),
          merged_(text, dialect, names)
    {
    }

    std::string copy()
    {
        for (Spelling const spelling : {asInTheirs, asNewLines}) {
            std::string copied = copyAs(spelling);
            if (readsBack(MergeSide(copied, dialect_, names_)))
                return copied;
        }
        throw refusal_;
    }

private:
    enum Spelling { asInTheirs, asNewLines };

    Outline const& outline() const { return merged_.outline(); }

    std::string copyAs(Spelling spelling)
    {
        Edits edits(text_);
        for (auto const& [stanza, contents] : contents_.stanzas())
            for (MergedKey const& key : contents.keys)
                if (key.takesAll)
                    copyLines(stanza, key, spelling, edits);
        TextHistory history;
        return edits.compose(history);
    }

    // Replaces the first line of a key by all lines of `theirs`, and removes its other lines.
    void copyLines(std::string const& stanza, MergedKey const& key, Spelling spelling, Edits& edits)
    {
        refusal_ = {stanza, std::string(key.name), {}};
        SideKey const found = merged_.find(stanza, key.name);
        if (!found)
            throw refusal_;
        std::vector<uint32_t> const lines = found.lines();
        std::vector<uint32_t> const values = found.valueLines();
        uint32_t const first = lines.front();
        std::string copied;
        for (uint32_t const line : key.side.lines())
            if (spelling == asNewLines)
                copied += newLine(line, values.empty() ? first : values.front());
            else
                theirs_.appendLines(theirs_.rangeOfLine(line), outline().lineEndingOf(first),
                                    copied);
        if (outline().sharesLine(first))
            copied.erase(0, copied.find_first_not_of(" \t"));
        for (uint32_t const line : lines) {
            auto const [begin, end] = merged_.rangeOfLine(line);
            edits.replace({begin, end, copied});
            copied.clear();
        }
    }

    // Returns a new line for a line of `theirs`, in the style of the line `model` of the text.
    std::string newLine(uint32_t line, uint32_t model)
    {
        Outline const& theirs = theirs_.outline();
        Style const style = styleOf(outline(), model);
        std::string key;
        std::string space;
        dialect_.appendKey(dialect_.writtenKey(theirs.text(), theirs.lines()[line], space), key);
        std::string const separator = separatorFor(style, key);
        key.insert(0, style.indent);
        if (theirs.lines()[line].kind != valueLine)
            return key + dialect_.keyOnlyEnd(separator) + std::string(style.lineEnding);
        std::string const value(theirs.value(line, space));
        for (unsigned spelling = 0; spelling < dialect_.spellingCount(); ++spelling) {
            std::string spelled = key + separator;
            if (!dialect_.appendValue(value, spelling, {style.indent, style.lineEnding}, spelled))
                continue;
            spelled += style.lineEnding;
            if (readsTwice(spelled, value, model))
                return spelled;
        }
        refusal_.value = value;
        throw refusal_;
    }

    // Returns whether a new line reads as a value, also above another line.
    bool readsTwice(std::string_view line, std::string_view value, uint32_t model) const
    {
        uint32_t const header = outline().sectionOf(model).header;
        std::string sample;
        if (header != kNone)
            merged_.appendLines(merged_.rangeOfLine(header), "\n", sample);
        size_t const begin = sample.size();
        (sample += line) += line;
        std::vector<Line> lines;
        dialect_.split(sample, lines);
        auto const last = lines.end();
        std::string space;
        return lines.size() >= 2 && last[-2].begin == begin && last[-2].kind == valueLine &&
               last[-1].begin == begin + line.size() && last[-1].kind == valueLine &&
               dialect_.value(sample, last[-2], space) == value &&
               !dialect_.isAmbiguous(sample, last[-2]);
    }

    // Returns whether `copied` has the merged keys, and no other.
    bool readsBack(MergeSide const& copied) const
    {
        return copied.stanzas() == merged_.stanzas() &&
               std::all_of(copied.stanzas().begin(), copied.stanzas().end(),
                           [&](std::string const& stanza) { return hasKeys(copied, stanza); });
    }

    bool hasKeys(MergeSide const& copied, std::string const& stanza) const
    {
        std::vector<uint32_t> const& keys = merged_.find(stanza)->keys;
        auto const isSame = [&](uint32_t index) {
            SideKey const key = merged_.key(index);
            MergedKey const* const merged = contents_.find(stanza, key.name());
            SideKey const& wanted = merged != nullptr && merged->takesAll ? merged->side : key;
            return wanted.hasSameLineValues(copied.find(stanza, key.name()));
        };
        return copied.find(stanza)->keys.size() == keys.size() &&
               std::all_of(keys.begin(), keys.end(), isSame);
    }

    std::string_view const text_;
    Dialect const& dialect_;
    std::vector<std::string> const& names_;
    MergedContents const& contents_;
    MergeSide const& theirs_;
    MergeSide const merged_;
    Refusal refusal_;  // of the key that was copied last
};

}  // namespace

std::string copyKeys(std::string_view text, Dialect const& dialect,
                     std::vector<std::string> const& names, MergedContents const& contents,
                     MergeSide const& theirs)
{
    return Copier(text, dialect, names, contents, theirs).copy();
}

}  // namespace zlines
