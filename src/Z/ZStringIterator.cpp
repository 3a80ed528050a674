#include "ZStringIterator.h"

#include <stdlib.h>

#include <algorithm>

#include "ZException.h"
#include "ZLCString.h"
#include "ZUTF8String.h"
#include "zqvrutil.h"

namespace {

constexpr char kSource[] = "src/Z/ZStringIterator";

// Stable ids in reports; log scanners match them. See docs/failures.md.
enum RaiseSite { raiseInGetNext = 113 };

constexpr int kMeasured = 0;

}  // namespace

ZStringIterator_6_0::ZStringIterator_6_0(ZUTF8String_6_0 const& source, ZUTF8String_6_0& target)
    : cursor_(source), source_(&source), target_(&target), charWidth_(kMeasured)
{
}

ZStringIterator_6_0::ZStringIterator_6_0(ZUTF8ConstString_6_0 const& source,
                                         ZUTF8String_6_0& target)
    : cursor_(source), source_(&source), target_(&target), charWidth_(kMeasured)
{
}

ZStringIterator_6_0::ZStringIterator_6_0(ZLCString_6_0 const& source, ZLCString_6_0& target)
    : cursor_(source), source_(&source), target_(&target), charWidth_(static_cast<int>(MB_CUR_MAX))
{
}

ZStringIterator_6_0::ZStringIterator_6_0(ZLCConstString_6_0 const& source, ZLCString_6_0& target)
    : cursor_(source), source_(&source), target_(&target), charWidth_(static_cast<int>(MB_CUR_MAX))
{
}

ZStringIterator_6_0::~ZStringIterator_6_0() = default;

ZStringIterator_6_0* ZStringIterator_6_0::clone() const
{
    return new ZStringIterator_6_0(*this);
}

bool ZStringIterator_6_0::hasMore()
{
    return cursor_ != nullptr && *cursor_ != 0;
}

ZAbstractMutableString_6_0* ZStringIterator_6_0::getNext()
{
    if (cursor_ == nullptr)
        return nullptr;
    size_t length = 0;
    if (*cursor_ != 0 && charWidth_ == 1) {
        length = 1;
    } else if (*cursor_ != 0) {
        auto const past = static_cast<size_t>(cursor_ - source_->getChars());
        size_t const left = source_->getLength() - std::min<size_t>(past, source_->getLength());
        int const measured = zmblen_6_0(source_->getCodesetHandle(), cursor_, left);
        if (measured < 1 || static_cast<size_t>(measured) > left)
            ZQVRMBLenException_6_0().throwException(kSource, raiseInGetNext);
        length = static_cast<size_t>(measured);
    }
    target_->setChars(cursor_, static_cast<unsigned int>(length));
    cursor_ += length;
    return target_;
}

void ZStringIterator_6_0::reset()
{
    cursor_ = *source_;
}
