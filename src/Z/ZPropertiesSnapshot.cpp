#include "ZPropertiesSnapshot.h"

#include <memory>
#include <utility>

#include "ZDialectData.h"
#include "ZException.h"
#include "ZProperties_p.h"

using namespace zproperties;

// The share of a snapshot in its contents.
struct __attribute__((visibility("hidden"))) ZPropertiesSnapshot_6_0::Rep {
    using Store = ZProperties_6_0::Rep;

    std::shared_ptr<Store::Frozen const> contents;
};

ZPropertiesSnapshot_6_0::ZPropertiesSnapshot_6_0(ZProperties_6_0 const& store)
{
    translateErrors(raiseInSnapshot, [&] { rep_ = new Rep{Rep::Store::freeze(store)}; });
    cache_ = rep_->contents->cache.get();
    dialect_ = rep_->contents->dialect;
}

ZPropertiesSnapshot_6_0::ZPropertiesSnapshot_6_0(ZPropertiesSnapshot_6_0 const& other)
    : cache_(other.cache_), dialect_(other.dialect_)
{
    translateErrors(raiseInSnapshot, [&] { rep_ = new Rep(*other.rep_); });
}

ZPropertiesSnapshot_6_0& ZPropertiesSnapshot_6_0::operator=(ZPropertiesSnapshot_6_0 const& other)
{
    ZPropertiesSnapshot_6_0 copy(other);
    swap(copy);
    return *this;
}

ZPropertiesSnapshot_6_0::~ZPropertiesSnapshot_6_0()
{
    delete rep_;
}

void ZPropertiesSnapshot_6_0::swap(ZPropertiesSnapshot_6_0& other)
{
    std::swap(rep_, other.rep_);
    std::swap(cache_, other.cache_);
    std::swap(dialect_, other.dialect_);
}

int ZPropertiesSnapshot_6_0::isShared(ZPropertiesSnapshot_6_0 const& other) const
{
    return cache_ == other.cache_;
}

int ZPropertiesSnapshot_6_0::exists(char const* category, char const* key) const
{
    requireNames(category, key);
    return cache_->contains(category, key);
}

int ZPropertiesSnapshot_6_0::exists(char const* category) const
{
    requireName(category);
    return cache_->contains(category);
}

void ZPropertiesSnapshot_6_0::getValue(char const* category, char const* key,
                                       ZAbstractMutableString_6_0& out, int required,
                                       char const* defaultValue) const
{
    Rep::Store::requireParameters(category, key, required, defaultValue != nullptr);
    Rep::Store::getValue({Rep::Store::lastValue(*cache_, dialect_, category, key),
                          rep_->contents->file, category, key},
                         out, required, defaultValue);
}

unsigned int ZPropertiesSnapshot_6_0::getIntegerValue(char const* category, char const* key,
                                                      int required, unsigned int defaultValue) const
{
    Rep::Store::requireParameters(category, key, required, defaultValue != 0);
    return Rep::Store::getIntegerValue({Rep::Store::lastValue(*cache_, dialect_, category, key),
                                        rep_->contents->file, category, key},
                                       required, defaultValue);
}

int ZPropertiesSnapshot_6_0::getBooleanValue(char const* category, char const* key, int required,
                                             int defaultValue) const
{
    Rep::Store::requireParameters(category, key, required, defaultValue != 0);
    if (dialect_ != nullptr && dialect_->isOption(category, key) != 0)
        return 1;
    return Rep::Store::getBooleanValue({Rep::Store::lastValue(*cache_, dialect_, category, key),
                                        rep_->contents->file, category, key},
                                       required, defaultValue);
}

int ZPropertiesSnapshot_6_0::numValues(char const* category, char const* key) const
{
    requireNames(category, key);
    int const count = cache_->values(category, key, ZPCache_6_0::anyValues).count();
    return count < 0 ? 0 : count;
}

int ZPropertiesSnapshot_6_0::count() const
{
    return cache_->count();
}

int ZPropertiesSnapshot_6_0::count(char const* category) const
{
    requireName(category);
    return cache_->keyCount(category);
}

char const* ZPropertiesSnapshot_6_0::getValue(char const* category, char const* key) const
{
    requireNames(category, key);
    std::optional<Text> const value = Rep::Store::lastValue(*cache_, dialect_, category, key);
    return value ? value->chars : nullptr;
}

char const* ZPropertiesSnapshot_6_0::getValue(char const* category, char const* key,
                                              int index) const
{
    requireNames(category, key);
    auto values = cache_->values(category, key, ZPCache_6_0::anyValues);
    Text value;
    return index >= 0 && values.skipTo(index) && values.next(value) ? value.chars : nullptr;
}

int ZPropertiesSnapshot_6_0::visit(ZPropertiesVisitor_6_0 visitor, void* context) const
{
    if (visitor == nullptr)
        ZInvalidParameterException_6_0().throwException(kSource, raiseInVisit);
    return Rep::Store::visit(*cache_, visitor, context);
}

char const* ZPropertiesSnapshot_6_0::fileName() const
{
    return rep_->contents->file.getChars();
}
