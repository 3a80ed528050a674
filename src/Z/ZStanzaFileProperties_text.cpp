// loadText() and storeText(): the contents of a stanza file in memory.
#include <errno.h>

#include <memory>

#include "ZBuffer.h"
#include "ZException.h"
#include "ZPropertiesImpl.h"
#include "ZProperties_p.h"
#include "ZStanzaFileProperties.h"
#include "reporting/cancellation.h"

using namespace zproperties;

void ZStanzaFileProperties_6_0::loadText(char const* text, size_t length)
{
    zreporting::CancelGuard const uncancelled;
    Hold const hold(*this);
    translateErrors(raiseInLoadText, [&] {
        if (length > maxFileSize())
            throw zfiles::IoError{"", zfiles::FailedCall::read, EFBIG};
        auto const* const cache = static_cast<ZSCFData_6_0 const*>(&this->cache());
        std::unique_ptr<ZPCache_6_0> fresh(cache->makeEmpty());
        static_cast<ZSCFData_6_0&>(*fresh).readText("", text, length);
        if (!fresh->companionFile().isEmpty())
            ZUnsupportedException_6_0().throwException(kSource, raiseInLoadText);
        Rep::exchange(*this, fresh);
        rep_->companions.setAllUnloaded();
    });
    Rep::setModified(*this, 1);
}

void ZStanzaFileProperties_6_0::storeText(ZBuffer_6_0& buffer) const
{
    Hold const hold(*this);
    static_cast<ZSCFData_6_0 const&>(cache()).writeText(buffer);
}
