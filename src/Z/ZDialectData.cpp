#include "ZDialectData.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "ZBuffer.h"
#include "ZException.h"
#include "ZPropertiesImpl_p.h"
#include "ZStanzaDialect_p.h"
#include "cache/dialect_loader.h"
#include "dialects/sample_line.h"
#include "dialects/switched_dialect.h"
#include "memory/out_of_memory.h"

using zdialects::SampleLine;
using zdialects::SwitchedDialect;
using zlines::KeptText;

namespace {

constexpr char kSource[] = "src/Z/ZDialectData";

// Stable ids in reports; log scanners match them. See docs/failures.md.
enum RaiseSite { raiseInConstructor = 41, raiseInCopy = 51, raiseInRead = 61, raiseInCheck = 71 };

// The name of a stanza of a dialect in which each header starts another stanza.
struct NumberedName {
    explicit NumberedName(std::string_view name) : base(name)
    {
        size_t const bracket = name.find_last_not_of("0123456789");
        if (bracket == name.npos || name[bracket] != ']' || bracket + 1 == name.size() ||
            name.size() - bracket > kMaxDigits)
            return;
        base = name.substr(0, bracket);
        number = std::stoul(std::string(name.substr(bracket + 1)));
        hasNumber = true;
    }

    std::string withNumber(unsigned long n) const
    {
        return n == 1 ? base : base + ']' + std::to_string(n);
    }

    static constexpr size_t kMaxDigits = 10;
    std::string base;
    unsigned long number = 1;
    bool hasNumber = false;
};

template <class Action>
auto translateErrors(RaiseSite site, Action action)
{
    return zmemory::translateBadAlloc(kSource, site, action);
}

}  // namespace

bool ZPCategoryBasedCache_6_0::KeptLines::isDialectData(std::type_info const& type)
{
    return type == typeid(ZDialectData_6_0);
}

ZDialectData_6_0::ZDialectData_6_0(ZStanzaDialect_6_0 const& dialect) : dialect_(dialect)
{
    zdialects::Switches const switches = zdialects::switchesOf(dialect);
    if (switches.isStanzaFormat())
        ZInvalidParameterException_6_0().throwException(kSource, raiseInConstructor);
    translateErrors(raiseInConstructor, [&] {
        rep().dialect = zdialects::dialectWith(switches);
        rep().kept = std::make_shared<KeptText>(std::string(), rep().dialect);
    });
    rep().setPolicy(zcache::policyOf(*rep().dialect));
    ZSCFData_6_0::setAttributes(keepComments | keepLines, nullptr);
}

ZDialectData_6_0::ZDialectData_6_0(ZDialectData_6_0 const& other) = default;

ZDialectData_6_0::~ZDialectData_6_0() = default;

ZPCache_6_0* ZDialectData_6_0::clone() const
{
    return zmemory::makeRep<ZDialectData_6_0>(kSource, raiseInCopy, *this);
}

void ZDialectData_6_0::be_read(char const* path, FILE* file)
{
    zcache::Arena::Block block;
    size_t const length = zstanza::readAll(path, file, block);
    readText(path, block.chars(), length);
}

void ZDialectData_6_0::be_read_obfuscated(ZBuffer_6_0&)
{
}

void ZDialectData_6_0::be_write_obfuscated(ZBuffer_6_0& buffer)
{
    buffer.setLength(0);
}

void ZDialectData_6_0::clear()
{
    zlines::SharedText empty = translateErrors(
        raiseInCopy, [&] { return std::make_shared<KeptText>(std::string(), rep().dialect); });
    ZSCFData_6_0::clear();
    rep().kept.swap(empty);
}

void ZDialectData_6_0::setAttributes(unsigned long attributes, void* argument)
{
    ZSCFData_6_0::setAttributes(attributes | keepComments | keepLines, argument);
}

ZPCache_6_0* ZDialectData_6_0::makeEmpty() const
{
    auto* const made = zmemory::makeRep<ZDialectData_6_0>(kSource, raiseInCopy, dialect_);
    made->setAttributes(attributes(), attributeArgument());
    return made;
}

int ZDialectData_6_0::swapContents(ZPCache_6_0& other)
{
    auto* const peer = dynamic_cast<ZDialectData_6_0*>(&other);
    if (peer == nullptr ||
        !(zdialects::switchesOf(dialect_) == zdialects::switchesOf(peer->dialect_)))
        return 0;
    return ZSCFData_6_0::swapContents(other);
}

void ZDialectData_6_0::delLine(char const* category)
{
    changeNumbered(category,
                   [&](ZDialectData_6_0& cache) { cache.ZSCFData_6_0::delLine(category); });
}

void ZDialectData_6_0::renameStanza(char const* category, char const* name)
{
    changeNumbered(category,
                   [&](ZDialectData_6_0& cache) { cache.renameCategory(category, name); });
}

// Removes a name by `change(cache)`. If that changes the numbers of other stanzas, a copy of the
// cache is changed first, so that a failure changes nothing.
template <class Change>
void ZDialectData_6_0::changeNumbered(char const* category, Change change)
{
    bool const isNumbered = !rep().dialect->joinsHeaders() && category != nullptr &&
                            contains(category) != 0 && translateErrors(raiseInCheck, [&] {
                                NumberedName const name(category);
                                return contains(name.withNumber(name.number + 1).c_str()) != 0;
                            });
    if (!isNumbered) {
        change(*this);
        return;
    }
    ZDialectData_6_0 copy(*this);
    change(copy);
    translateErrors(raiseInCheck, [&] { copy.removeNumber(category); });
    swapContents(copy);
}

// Gives the stanzas after `category`, which has been removed, the numbers before their own. The
// difference writer finds the stanzas of the text by their contents.
void ZDialectData_6_0::removeNumber(char const* category)
{
    NumberedName const name(category);
    for (unsigned long number = name.number;; ++number) {
        std::string const next = name.withNumber(number + 1);
        if (contains(next.c_str()) == 0)
            return;
        renameCategory(next.c_str(), name.withNumber(number).c_str());
    }
}

int ZDialectData_6_0::isAmbiguous(char const* category) const
{
    if (rep().dialect->joinsHeaders() || category == nullptr)
        return 0;
    return translateErrors(raiseInCheck, [&] {
        NumberedName const name(category);
        return name.hasNumber ? 0 : contains(name.withNumber(2).c_str());
    });
}

int ZDialectData_6_0::validCategory(char const* category) const
{
    return translateErrors(raiseInCheck, [&] {
        if (category == nullptr)
            return 0;
        SampleLine const line(*rep().dialect);
        if (rep().dialect->joinsHeaders())
            return line.isValidStanza(category) ? 1 : 0;
        NumberedName const name(category);
        if (!line.isValidStanza(name.base) || NumberedName(name.base).hasNumber)
            return 0;
        bool const isNext =
            name.number > 1 && contains(name.withNumber(name.number - 1).c_str()) != 0;
        return !name.hasNumber || isNext || contains(category) != 0 ? 1 : 0;
    });
}

int ZDialectData_6_0::validKey(char const* category, char const* key) const
{
    return translateErrors(raiseInCheck, [&] {
        if (key == nullptr || validCategory(category) == 0 || isAmbiguous(category) != 0)
            return 0;
        SampleLine const line(*rep().dialect);
        bool const isValid =
            line.isValidKey(key) && (line.canBeNew(key) || contains(category, key) != 0);
        return isValid ? 1 : 0;
    });
}

int ZDialectData_6_0::validValue(char const* key, char const* value) const
{
    return translateErrors(raiseInCheck, [&] {
        SampleLine const line(*rep().dialect);
        std::string_view const name = key == nullptr ? "" : key;
        bool const isValid =
            value == nullptr ? line.canStandAlone() : line.isValidValue(name, value);
        return isValid ? 1 : 0;
    });
}

void ZDialectData_6_0::readText(char const* path, char const* text, size_t length)
{
    if (rep().lineCount() != 0 || rep().categoryCount() != 0 || !rep().kept->text.empty())
        ZUnsupportedException_6_0().throwException(kSource, raiseInRead);
    zlines::SharedText read = translateErrors(raiseInRead, [&] {
        auto kept = std::make_shared<KeptText>(
            length == 0 ? std::string() : std::string(text, length), rep().dialect);
        zcache::load(*rep().dialect, path, kept->text, rep());
        return kept;
    });
    rep().kept.swap(read);
    changed();
}
