// The lines and spellings of values in the text that a store writes.
#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ZException.h"
#include "ZPropertiesImpl_p.h"
#include "ZProperties_p.h"
#include "ZStanzaFileProperties.h"
#include "ZStanzaFileProperties_p.h"
#include "lines/spelled_value.h"

using namespace zproperties;

namespace {

// The text that a store writes, and the line of a plain value in it.
class SpelledValue {
public:
    SpelledValue(ZPCache_6_0 const& cache, char const* stanza, char const* key, unsigned index)
        : text_(
              ZPCategoryBasedCache_6_0::KeptLines::spelled(static_cast<ZSCFData_6_0 const&>(cache)))
    {
        auto values =
            static_cast<ZSCFData_6_0 const&>(cache).values(stanza, key, ZPCache_6_0::plainValues);
        std::vector<std::string_view> views;
        for (Text value; values.next(value);)
            views.emplace_back(value.chars, value.length);
        line_ = text_->lineOf(stanza, key, views, index);
    }

    std::string const& text() const { return text_->text(); }
    zlines::Outline const& outline() const { return text_->outline(); }

    // Returns the index of the line that has the value, or kNone.
    uint32_t line() const { return line_; }

    // Returns the number of that line, or 0.
    unsigned long number() const { return line_ == zlines::kNone ? 0 : text_->numberOf(line_); }

    // Returns whether that line has a value.
    bool isSpelled() const
    {
        return line_ != zlines::kNone && outline().lines()[line_].kind == zlines::valueLine;
    }

private:
    std::shared_ptr<zlines::SpelledText> const text_;
    uint32_t line_;
};

// Checks that a key has a value at `index`, or no values if `index` is 0.
void requireValueAt(ZStanzaFileProperties_6_0 const& store, char const* stanza, char const* key,
                    unsigned index)
{
    int const count = store.numValues(stanza, key);
    if (store.exists(stanza, key) == 0 || index >= static_cast<unsigned>(std::max(count, 1)))
        throwMissing(store, stanza, key);
}

}  // namespace

unsigned long ZStanzaFileProperties_6_0::lineOf(char const* stanza, char const* key,
                                                unsigned index) const
{
    Hold const hold(*this);
    requireValueAt(*this, stanza, key, index);
    if (isObfuscated(stanza, key) != 0)
        return 0;
    unsigned long number = 0;
    translateErrors(raiseInLineOf,
                    [&] { number = SpelledValue(cache(), stanza, key, index).number(); });
    return number;
}

void ZStanzaFileProperties_6_0::getSpelling(char const* stanza, char const* key, unsigned index,
                                            ZLCString_6_0& out) const
{
    Hold const hold(*this);
    requireValueAt(*this, stanza, key, index);
    translateErrors(raiseInLineOf, [&] {
        SpelledValue const spelled(cache(), stanza, key, index);
        if (isObfuscated(stanza, key) != 0 || !spelled.isSpelled())
            throwMissing(*this, stanza, key);
        zlines::Line const& line = spelled.outline().lines()[spelled.line()];
        out =
            ZLCString_6_0(spelled.text().data() + line.valueBegin, line.valueEnd - line.valueBegin);
    });
}

void ZStanzaFileProperties_6_0::setSpelling(char const* stanza, char const* key, unsigned index,
                                            char const* spelling)
{
    if (spelling == nullptr)
        refuseText();
    auto notice = Rep::makeNotice(ZPropertyChanged_6_0::set, stanza, key);
    Hold const hold(*this);
    requireValueAt(*this, stanza, key, index);
    translateErrors(raiseInLineOf, [&] {
        SpelledValue const spelled(cache(), stanza, key, index);
        if (isObfuscated(stanza, key) != 0 || !spelled.isSpelled())
            throwMissing(*this, stanza, key);
        std::string text;
        std::string value;
        if (!zlines::respell(spelled.outline(), spelled.line(), spelling, text, value))
            refuseText();
        if (text == spelled.text())
            return;
        // In a dialect, the writer would choose a spelling of its own for the value.
        if (rep_->dialect != nullptr) {
            loadText(text.data(), text.size());
            Rep::recordChange(*this, std::move(notice));
            return;
        }
        if (cache().validValue(key, value.c_str()) == 0)
            refuseText();
        ZLCString_6_0 const changed(value.data(), static_cast<unsigned>(value.size()));
        cache().get(stanza, key, ZPCache_6_0::plainValues)->set(index, &changed);
        Rep::recordChange(*this, std::move(notice));
    });
}
