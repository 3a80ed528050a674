#include "ZDialectData.h"

#include <charconv>
#include <iterator>
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
        rep().setPolicy(zcache::policyOf(*rep().dialect));
    });
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

// Gives the categories of one name other numbers. The constructor reserves the memory, so that the
// changes of the cache that follow cannot fail after the first.
class ZDialectData_6_0::Renumbering {
public:
    // `first` is the number of the first category that gets another number. `spare` are further
    // bytes of names to reserve.
    Renumbering(ZDialectData_6_0& cache, NumberedName const& name, unsigned long first,
                size_t spare = 0)
        : cache_(cache), base_(name.base), first_(first), end_(first)
    {
        for (std::string* const buffer : {&from_, &to_})
            buffer->reserve(base_.size() + 1 + NumberedName::kMaxDigits);
        for (; cache_.contains(write(end_, from_)) != 0; ++end_)
            cache_.rep().keepOldCategoryName(from_);
        cache_.rep().reserveNames(bytes() + spare);
    }

    // Returns the size of the new names at most.
    size_t bytes() const { return (end_ - first_) * (base_.size() + 2 + NumberedName::kMaxDigits); }

    void increase()
    {
        for (unsigned long number = end_; number-- > first_;)
            rename(number, number + 1);
    }

    void decrease()
    {
        for (unsigned long number = first_; number < end_; ++number)
            rename(number, number - 1);
    }

private:
    char const* write(unsigned long number, std::string& buffer)
    {
        buffer.assign(base_);
        if (number == 1)
            return buffer.c_str();
        char digits[NumberedName::kMaxDigits + 1];
        auto const written = std::to_chars(digits, std::end(digits), number);
        buffer += ']';
        return buffer.append(digits, written.ptr).c_str();
    }

    void rename(unsigned long from, unsigned long to)
    {
        write(from, from_);
        write(to, to_);
        cache_.rep().renameCategory(from_, to_);
    }

    ZDialectData_6_0& cache_;
    std::string const base_;
    unsigned long const first_;
    unsigned long end_;  // the first number that no category has
    std::string from_;
    std::string to_;
};

void ZDialectData_6_0::delLine(char const* category)
{
    if (rep().dialect->joinsHeaders() || category == nullptr || contains(category) == 0) {
        ZSCFData_6_0::delLine(category);
        return;
    }
    translateErrors(raiseInCheck, [&] {
        NumberedName const name(category);
        Renumbering following(*this, name, name.number + 1);
        ZSCFData_6_0::delLine(category);
        following.decrease();
    });
}

void ZDialectData_6_0::renameStanza(char const* category, char const* name)
{
    if (rep().dialect->joinsHeaders()) {
        renameCategory(category, name);
        return;
    }
    translateErrors(raiseInCheck, [&] {
        NumberedName const before(category);
        NumberedName const after(name);
        std::string const renamed = after.withNumber(after.number);
        Renumbering old(*this, before, before.number + 1);
        Renumbering following(*this, after, after.number, old.bytes() + renamed.size() + 1);
        rep().keepOldCategoryName(category);
        following.increase();
        rep().renameCategory(category, renamed);
        old.decrease();
        changed();
    });
}

int ZDialectData_6_0::isOption(char const* category, char const* key) const
{
    return rep().dialect->switches().keyAlone == zdialects::KeyAlone::option &&
                   contains(category, key) != 0 && values(category, key, plainValues).count() == 0
               ? 1
               : 0;
}

int ZDialectData_6_0::isRespelled(char const* category, char const* key, char const* name) const
{
    zcache::Policy const& policy = rep().policy();
    if (key == nullptr)
        return policy.categories.matches(category, name) &&
                       rep().name(rep().category(rep().liveCategory(category))) != name
                   ? 1
                   : 0;
    return policy.keys.matches(key, name) &&
                   rep().name(rep().key(rep().liveKey(category, key))) != name
               ? 1
               : 0;
}

int ZDialectData_6_0::validNewName(char const* category, char const* name) const
{
    zcache::NameRule const& rule = rep().policy().categories;
    if (rep().dialect->joinsHeaders()) {
        // Callers get names of git folded: a header has no other spelling of its name.
        bool const isRespelled = !rule.foldsUpToDot && rule.matches(category, name);
        return contains(name) == 0 || isRespelled ? 1 : 0;
    }
    return translateErrors(raiseInCheck, [&] {
        NumberedName const wanted(name);
        if (rule.matches(category, name) || (!wanted.hasNumber && contains(name) != 0))
            return 0;
        zcache::Id const renamed = rep().liveCategory(category);
        unsigned long position = 1;
        for (zcache::Id id = rep().firstHeader(); id != 0 && id != renamed;
             id = rep().category(id).nextHeader)
            position += rep().category(id).isLive &&
                        NumberedName(rep().name(rep().category(id))).base == wanted.base;
        bool const isSameName = NumberedName(category).base == wanted.base;
        return !isSameName && wanted.number == position ? 1 : 0;
    });
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
        // The file has names that no new line could have.
        bool const isThere = contains(category) != 0;
        if (isThere && isRespelled(category, nullptr, category) == 0)
            return 1;
        SampleLine const line(*rep().dialect);
        if (!line.canBeNewStanza(category) && !isThere)
            return 0;
        if (rep().dialect->joinsHeaders())
            return line.isValidStanza(category) ? 1 : 0;
        NumberedName const name(category);
        if (!line.isValidStanza(name.base) || NumberedName(name.base).hasNumber)
            return 0;
        bool const isNext =
            name.number > 1 && contains(name.withNumber(name.number - 1).c_str()) != 0;
        return !name.hasNumber || isNext || isThere ? 1 : 0;
    });
}

int ZDialectData_6_0::validKey(char const* category, char const* key) const
{
    return translateErrors(raiseInCheck, [&] {
        if (key == nullptr || validCategory(category) == 0 || isAmbiguous(category) != 0)
            return 0;
        bool const isThere = contains(category, key) != 0;
        if (isThere && isRespelled(category, key, key) == 0)
            return 1;
        SampleLine const line(*rep().dialect);
        return line.isValidKey(key) && (line.canBeNew(key) || isThere) ? 1 : 0;
    });
}

int ZDialectData_6_0::validValue(char const* key, char const* value) const
{
    return translateErrors(raiseInCheck, [&] {
        SampleLine const line(*rep().dialect);
        std::string_view const name = key == nullptr ? "" : key;
        bool const isValid =
            value == nullptr ? line.canStandAlone() : line.isValidValue(name, value);
        // A line of the file can have a name that no new line could have.
        if (!isValid && value != nullptr && !name.empty() && !line.isValidKey(name))
            return line.isValidValue("k", value) ? 1 : 0;
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
    rep().keep(std::move(read));
    changed();
}
