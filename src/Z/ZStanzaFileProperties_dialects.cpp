// Files of dialects.
#include <memory>
#include <new>
#include <string_view>

#include "ZArrayList.h"
#include "ZDialectData.h"
#include "ZException.h"
#include "ZProperties_p.h"
#include "ZStanzaDialect_p.h"
#include "ZStanzaFileProperties.h"
#include "dialects/counting.h"

using namespace zproperties;

namespace {

ZPCache_6_0* newCache(ZStanzaDialect_6_0 const& dialect)
{
    if (zdialects::switchesOf(dialect).isStanzaFormat())
        return new ZSCFData_6_0;
    return new ZDialectData_6_0(dialect);
}

}  // namespace

ZStanzaFileProperties_6_0::ZStanzaFileProperties_6_0(int keepComments,
                                                     ZStanzaDialect_6_0 const& dialect)
    : ZProperties_6_0(newCache(dialect))
{
    getFactory();
    if (keepComments != 0)
        setAttributes(ZPCache_6_0::keepComments, nullptr);
}

ZStanzaFileProperties_6_0::ZStanzaFileProperties_6_0(char const* path, int keepComments,
                                                     ZStanzaDialect_6_0 const& dialect)
    : ZStanzaFileProperties_6_0(keepComments, dialect)
{
    load(path);
}

ZStanzaDialect_6_0 ZStanzaFileProperties_6_0::dialect() const
{
    Hold const hold(*this);
    return rep_->dialect == nullptr ? ZStanzaDialect_6_0() : rep_->dialect->dialect();
}

int ZStanzaFileProperties_6_0::isAmbiguous(char const* stanza) const
{
    Hold const hold(*this);
    return rep_->dialect == nullptr ? 0 : rep_->dialect->isAmbiguous(stanza);
}

void ZStanzaFileProperties_6_0::countingValues(char const* stanza, char const* key,
                                               ZArrayList_6_0& out) const
{
    requireNames(stanza, key);
    if (out.ownsMembers() == 0)
        ZInvalidParameterException_6_0().throwException(kSource, raiseInGetValues);
    Hold const hold(*this);
    if (rep_->dialect == nullptr) {
        getValues(stanza, key, out, zPropLocalStrings);
        return;
    }
    zdialects::Switches const switches = zdialects::switchesOf(rep_->dialect->dialect());
    auto values = rep_->dialect->values(stanza, key, ZPCache_6_0::plainValues);
    int const count = values.count();
    auto const [first, end] = zdialects::countingRange(switches, key, count, [&] {
        auto scanned = values;
        int past = 0;
        Text value;
        for (int i = 0; scanned.next(value); ++i)
            if (value.length == 0)
                past = i + 1;
        return past;
    });
    Rep::Strings fresh;
    if (first > 0 && first < count)
        values.skipTo(first);
    Text value;
    for (int i = first; i < end && values.next(value); ++i)
        fresh.add(value.chars, zPropLocalStrings);
    fresh.reserveIn(out, 0);
    out.removeAll();
    fresh.moveTo(out);
}

ZStanzaDialectFactory_6_0::ZStanzaDialectFactory_6_0(ZStanzaDialect_6_0 const& dialect)
    : dialect_(dialect)
{
}

ZStanzaDialectFactory_6_0::~ZStanzaDialectFactory_6_0() = default;

ZProperties_6_0* ZStanzaDialectFactory_6_0::makePropertiesInstance()
{
    return new ZStanzaFileProperties_6_0(1, dialect_);
}
