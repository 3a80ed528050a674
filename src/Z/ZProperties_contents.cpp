// Visits of all contents in the order of the file, and the contents that snapshots share.
#include <memory>
#include <string_view>

#include "ZDialectData.h"
#include "ZException.h"
#include "ZPropertiesImpl_p.h"
#include "ZProperties_p.h"
#include "cache/file_order.h"

using namespace zproperties;

namespace {

[[noreturn, gnu::noinline]] void throwVisitException(char const* file)
{
    ZPropertiesIteratorException_6_0(file).throwException(kSource, raiseInVisit);
}

// Passes entries to a visitor until its result is not 0, or until `check` throws.
template <class Check>
class Visit {
public:
    Visit(ZPropertiesVisitor_6_0 visitor, void* context, Check check)
        : visitor_(visitor), context_(context), check_(check)
    {
    }

    bool stanza(std::string_view name)
    {
        entry_ = {name.data(), nullptr, nullptr, name.size(), 0, 0, 0};
        return pass();
    }

    bool key(std::string_view name)
    {
        entry_.key = name.data();
        entry_.keyLength = name.size();
        return true;
    }

    bool value(std::string_view text, zcache::Contents::Kind kind)
    {
        entry_.value = text.data();
        entry_.valueLength = text.size();
        entry_.isObfuscated = kind == zcache::Contents::obfuscated;
        return pass();
    }

    bool keyWithValue(std::string_view name, std::string_view text)
    {
        key(name);
        return value(text, zcache::Contents::plain);
    }

    int result() const { return result_; }

private:
    bool pass()
    {
        if (int const result = visitor_(entry_, context_); result != 0) {
            result_ = result;
            return false;
        }
        check_();
        return true;
    }

    ZPropertiesVisitor_6_0 visitor_;
    void* context_;
    Check check_;
    ZPropertiesEntry_6_0 entry_ = {};
    int result_ = 0;
};

std::string_view textAt(ZArrayList_6_0 const& list, unsigned index)
{
    auto const& text = static_cast<ZLCString_6_0 const&>(*list.get(index));
    return {text.getChars(), text.getLength()};
}

// Visits a cache whose class overrides lookups.
template <class Visitor>
bool visitDerived(ZPCache_6_0& cache, Visitor& visitor)
{
    ZArrayList_6_0 names(1, 1);
    cache.getNames(names);
    for (unsigned i = 0; i < names.size(); ++i) {
        std::string_view const category = textAt(names, i);
        if (!visitor.stanza(category))
            return false;
        ZArrayList_6_0 keys(1, 1);
        cache.getNames(category.data(), keys);
        for (unsigned k = 0; k < keys.size(); ++k) {
            std::string_view const key = textAt(keys, k);
            visitor.key(key);
            auto kind = zcache::Contents::plain;
            ZArrayList_6_0* values =
                cache.get(category.data(), key.data(), ZPCache_6_0::plainValues);
            if ((values == nullptr || values->size() == 0) &&
                cache.isObfuscated(category.data(), key.data()) != 0) {
                kind = zcache::Contents::obfuscated;
                values = cache.get(category.data(), key.data(), ZPCache_6_0::obfuscatedValues);
            }
            if ((values == nullptr || values->size() == 0) && !visitor.value({}, kind))
                return false;
            for (unsigned v = 0; values != nullptr && v < values->size(); ++v)
                if (!visitor.value(textAt(*values, v), kind))
                    return false;
        }
    }
    return true;
}

}  // namespace

int ZProperties_6_0::Rep::visit(ZPCategoryBasedCache_6_0 const& direct,
                                ZPropertiesVisitor_6_0 visitor, void* context)
{
    Visit visit(visitor, context, [] {});
    zcache::FileOrder(ZPCategoryBasedCache_6_0::Visit::contentsOf(direct), visit).visit();
    return visit.result();
}

int ZProperties_6_0::visit(ZPropertiesVisitor_6_0 visitor, void* context) const
{
    if (visitor == nullptr)
        ZInvalidParameterException_6_0().throwException(kSource, raiseInVisit);
    Hold const hold(*this);
    ZPCategoryBasedCache_6_0 const* const direct = rep_->direct;
    ZPCache_6_0 const* const cache = cache_;
    unsigned long const generation = cache->generation();
    unsigned long const replaced = rep_->replaced;
    // After another cache has replaced the cache, it must not be used.
    auto const isReplaced = [=, rep = rep_] {
        return rep->replaced != replaced || cache->generation() != generation;
    };
    auto const visitAll = [&](auto isChanged, auto pass) {
        Visit visit(visitor, context, [=, this] {
            if (isChanged())
                throwVisitException(fileName_.getChars());
        });
        pass(visit);
        return visit.result();
    };
    if (direct == nullptr)
        return visitAll(isReplaced, [&](auto& visit) { visitDerived(*cache_, visit); });
    unsigned long const changes = direct->changes();
    return visitAll(
        [=] { return isReplaced() || direct->changes() != changes; },
        [&](auto& visit) {
            zcache::FileOrder(ZPCategoryBasedCache_6_0::Visit::contentsOf(*direct), visit).visit();
        });
}

namespace {

// Copies the contents that a visit passes.
class Copier {
public:
    explicit Copier(ZPCategoryBasedCache_6_0& target) : target_(target) {}

    bool stanza(std::string_view name)
    {
        category_ = name.data();
        target_.add(category_, nullptr, 0);
        return true;
    }

    bool key(std::string_view name)
    {
        key_ = name.data();
        target_.add(category_, key_, 0);
        return true;
    }

    bool value(std::string_view text, zcache::Contents::Kind kind)
    {
        target_.add(category_, key_, text.data(), kind == zcache::Contents::obfuscated);
        return true;
    }

private:
    ZPCategoryBasedCache_6_0& target_;
    char const* category_ = nullptr;
    char const* key_ = nullptr;
};

}  // namespace

std::shared_ptr<ZProperties_6_0::Rep::Frozen const> ZProperties_6_0::Rep::freeze(
    ZProperties_6_0 const& store)
{
    Hold const hold(store);
    Rep& rep = *store.rep_;
    ZPCategoryBasedCache_6_0 const* const direct = rep.direct;
    unsigned long const changes =
        direct == nullptr ? 0 : ZPCategoryBasedCache_6_0::Visit::changesOf(*direct);
    // The holder of a list of values can change them at any time.
    if (direct != nullptr && rep.frozen != nullptr && rep.frozenAt == changes &&
        rep.frozenGeneration == generation(store) && rep.frozen->file == store.fileName_ &&
        ZPCategoryBasedCache_6_0::Visit::contentsOf(*direct).hasListsOf(
            ZPCategoryBasedCache_6_0::Visit::contentsOf(*rep.frozen->cache)))
        return rep.frozen;

    std::unique_ptr<ZPCategoryBasedCache_6_0> cache;
    if (direct != nullptr) {
        cache.reset(static_cast<ZPCategoryBasedCache_6_0*>(direct->clone()));
        ZPCategoryBasedCache_6_0::Visit::dropKeptText(*cache);
    } else {
        cache = std::make_unique<ZPCategoryBasedCache_6_0>();
        Copier copier(*cache);
        visitDerived(*store.cache_, copier);
    }
    auto* const dialect = dynamic_cast<ZDialectData_6_0 const*>(cache.get());
    auto const frozen =
        std::make_shared<Frozen const>(Frozen{std::move(cache), dialect, store.fileName_});
    rep.frozen = direct != nullptr ? frozen : nullptr;
    rep.frozenAt = changes;
    rep.frozenGeneration = generation(store);
    return frozen;
}
