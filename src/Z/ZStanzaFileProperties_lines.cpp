// Comments that are read and replaced.
#include "ZException.h"
#include "ZPropertiesImpl_p.h"
#include "ZProperties_p.h"
#include "ZStanzaFileProperties.h"
#include "ZStanzaFileProperties_p.h"

using namespace zproperties;

namespace {

// Checks that the file, the stanza or the key exists.
void requireCommented(ZStanzaFileProperties_6_0 const& store, char const* stanza, char const* key)
{
    if (stanza == nullptr && key == nullptr)
        return;
    if (key == nullptr ? store.exists(stanza) == 0 : store.exists(stanza, key) == 0)
        throwMissing(store, stanza, key != nullptr ? key : "");
}

}  // namespace

int ZStanzaFileProperties_6_0::getComment(char const* stanza, char const* key,
                                          ZLCString_6_0& out) const
{
    Hold const hold(*this);
    requireCommented(*this, stanza, key);
    return static_cast<ZSCFData_6_0 const&>(cache()).getComment(stanza, key, out);
}

void ZStanzaFileProperties_6_0::setComment(char const* stanza, char const* key, char const* comment)
{
    Hold const hold(*this);
    requireCommented(*this, stanza, key);
    rep_->requireUnambiguous(stanza);
    // An obfuscated value has no line that the comment could be above.
    if (comment != nullptr && key != nullptr && isObfuscated(stanza, key) != 0)
        ZInvalidParameterException_6_0().throwException(kSource, raiseForComment);
    auto const set = [&](ZPCache_6_0& cache, char const* text) {
        static_cast<ZSCFData_6_0&>(cache).setComment(stanza, key, text);
    };
    if (comment != nullptr) {
        Rep::addComment(*this, comment, set);
        return;
    }
    ZLCString_6_0 old;
    if (getComment(stanza, key, old) == 0)
        return;
    set(cache(), nullptr);
    Rep::setModified(*this, 1);
}
