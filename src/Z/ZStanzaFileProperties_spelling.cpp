// The lines and spellings of values in the text that a store writes.
#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ZBuffer.h"
#include "ZException.h"
#include "ZPropertiesImpl_p.h"
#include "ZProperties_p.h"
#include "ZStanzaFileProperties.h"
#include "lines/spelled_value.h"

using namespace zproperties;

namespace {

// The text that a store writes, and the line of a plain value in it.
class SpelledText {
public:
    SpelledText(ZStanzaFileProperties_6_0 const& store, ZPCache_6_0 const& cache,
                char const* stanza, char const* key, unsigned index)
        : text_(textOf(store)),
          dialect_(ZPCategoryBasedCache_6_0::KeptLines::dialectOf(
              static_cast<ZSCFData_6_0 const&>(cache))),
          outline_(text_, *dialect_)
    {
        auto values =
            static_cast<ZSCFData_6_0 const&>(cache).values(stanza, key, ZPCache_6_0::plainValues);
        std::vector<std::string_view> views;
        for (Text value; values.next(value);)
            views.emplace_back(value.chars, value.length);
        line_ = zlines::lineOfValue(outline_, stanza, key, views, index);
    }

    std::string const& text() const { return text_; }
    zlines::Outline const& outline() const { return outline_; }

    // Returns the index of the line that has the value, or kNone.
    uint32_t line() const { return line_; }

    // Returns whether that line has a value.
    bool isSpelled() const
    {
        return line_ != zlines::kNone && outline_.lines()[line_].kind == zlines::valueLine;
    }

private:
    static std::string textOf(ZStanzaFileProperties_6_0 const& store)
    {
        ZBuffer_6_0 buffer;
        store.storeText(buffer);
        return {static_cast<char const*>(buffer.getBuffer()), buffer.getLength()};
    }

    std::string const text_;
    zlines::SharedDialect const dialect_;
    zlines::Outline outline_;
    uint32_t line_;
};

[[noreturn]] void refuseText()
{
    ZInvalidParameterException_6_0().throwException(kSource, raiseForNewText);
}

[[noreturn]] void throwMissing(ZStanzaFileProperties_6_0 const& store, char const* stanza,
                               char const* key)
{
    ZPropertiesMissingPropertyException_6_0(store.fileName().getChars(), stanza, key)
        .throwException(kSource, raiseForMissing);
}

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
    translateErrors(raiseInLineOf, [&] {
        SpelledText const spelled(*this, cache(), stanza, key, index);
        if (spelled.line() == zlines::kNone)
            return;
        auto const begin = spelled.text().begin();
        uint32_t const position = spelled.outline().lines()[spelled.line()].begin;
        number = 1 + static_cast<unsigned long>(std::count(begin, begin + position, '\n'));
    });
    return number;
}

void ZStanzaFileProperties_6_0::getSpelling(char const* stanza, char const* key, unsigned index,
                                            ZLCString_6_0& out) const
{
    Hold const hold(*this);
    requireValueAt(*this, stanza, key, index);
    translateErrors(raiseInLineOf, [&] {
        SpelledText const spelled(*this, cache(), stanza, key, index);
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
        SpelledText const spelled(*this, cache(), stanza, key, index);
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
