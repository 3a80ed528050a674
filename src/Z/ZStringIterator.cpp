#include "ZStringIterator.h"

#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "qvr.h"

#include "ZException.h"
#include "ZLCString.h"
#include "ZStringIterator_p.h"
#include "ZUTF8String.h"
#include "zqvrutil.h"

using namespace zcharacters;

namespace {

constexpr char kSource[] = "src/Z/ZStringIterator";

// Stable ids in reports; log scanners match them. See docs/failures.md.
enum RaiseSite { raiseInGetNext = 113, raiseInNext = 152 };

int localWidth()
{
    return static_cast<int>(MB_CUR_MAX);
}

}  // namespace

ZStringIterator_6_0::ZStringIterator_6_0(ZUTF8String_6_0 const& source, ZUTF8String_6_0& target)
    : cursor_(source), source_(&source), target_(&target), charWidth_(kUtf8 | flagsOf(source))
{
}

ZStringIterator_6_0::ZStringIterator_6_0(ZUTF8ConstString_6_0 const& source,
                                         ZUTF8String_6_0& target)
    : cursor_(source), source_(&source), target_(&target), charWidth_(kUtf8)
{
}

ZStringIterator_6_0::ZStringIterator_6_0(ZLCString_6_0 const& source, ZLCString_6_0& target)
    : cursor_(source),
      source_(&source),
      target_(&target),
      charWidth_(localWidth() | flagsOf(source))
{
}

ZStringIterator_6_0::ZStringIterator_6_0(ZLCConstString_6_0 const& source, ZLCString_6_0& target)
    : cursor_(source), source_(&source), target_(&target), charWidth_(localWidth())
{
}

ZStringIterator_6_0::~ZStringIterator_6_0() = default;

ZStringIterator_6_0* ZStringIterator_6_0::clone() const
{
    return new ZStringIterator_6_0(*this);
}

int ZStringIterator_6_0::flagsOf(ZUTF8String_6_0 const& source)
{
    return isExactly<ZUTF8String_6_0>(source) ? kAsciiIsWhole | kIsUtf8 : 0;
}

int ZStringIterator_6_0::flagsOf(ZLCString_6_0 const& source)
{
    if (!isExactly<ZLCString_6_0>(source))
        return 0;
    switch (localCodeset()) {
        case LocalCodeset::utf8:
            return MB_CUR_MAX == kEachByte ? kAsciiIsWhole : kAsciiIsWhole | kIsUtf8;
        case LocalCodeset::asciiIsWhole:
            return kAsciiIsWhole;
        default:
            return 0;
    }
}

// Writes `length` bytes into the target and advances. The compiler knows the usual lengths, and
// copies the bytes without a call.
inline ZAbstractMutableString_6_0* ZStringIterator_6_0::step(unsigned int length)
{
    target_->setChars(cursor_, length);
    cursor_ += length;
    return target_;
}

ZAbstractMutableString_6_0* ZStringIterator_6_0::getNextLonger()
{
    if (cursor_ == nullptr)
        return nullptr;
    if ((charWidth_ & kIsUtf8) != 0) {
        if (ZCharacterViews_6_0::isTwoBytes(cursor_))
            return step(2);
        if (ZCharacterViews_6_0::isThreeBytes(cursor_))
            return step(3);
    }
    return getNextMeasured();
}

ZAbstractMutableString_6_0* ZStringIterator_6_0::getNextMeasured()
{
    if (*cursor_ == 0)
        return step(0);
    int const width = charWidth_ & ~(kAsciiIsWhole | kIsUtf8);
    if (width == kEachByte ||
        (isWhole(*cursor_, kAscii) && highestWhole(*source_, width, cursor_) != 0))
        return step(1);
    size_t const length = source_->getLength();
    auto const past = static_cast<size_t>(cursor_ - source_->getChars());
    size_t const left = length - std::min(past, length);
    int const measured = zmblen_6_0(source_->getCodesetHandle(), cursor_, left);
    if (measured < 1 || static_cast<size_t>(measured) > left)
        ZQVRMBLenException_6_0().throwException(kSource, raiseInGetNext);
    if (measured == 2)
        return step(2);
    if (measured == 3)
        return step(3);
    return step(static_cast<unsigned int>(measured));
}

void ZStringIterator_6_0::reset()
{
    cursor_ = *source_;
}

// ---- Views of characters -----------------------------------------------------------------------

unsigned int ZCharacterViews_6_0::highestWhole(qvr_cs const* codeset)
{
    if (codeset == ZAbstractString_6_0::utf8_handle_)
        return kAscii;
    if (codeset != ZAbstractString_6_0::lcs_handle_)
        return 0;
    if (MB_CUR_MAX == kEachByte)
        return kAllBytes;
    return localCodeset() != LocalCodeset::other ? kAscii : 0;
}

bool ZCharacterViews_6_0::isUtf8(qvr_cs const* codeset)
{
    return codeset == ZAbstractString_6_0::utf8_handle_ ||
           (codeset == ZAbstractString_6_0::lcs_handle_ && localCodeset() == LocalCodeset::utf8);
}

unsigned int ZCharacterViews_6_0::measure(qvr_cs const* codeset, char const* at, char const* end)
{
    size_t const left = at < end ? static_cast<size_t>(end - at) : 0;
    int const measured = zmblen_6_0(codeset, at, left);
    if (measured < 1 || static_cast<size_t>(measured) > left)
        ZQVRMBLenException_6_0().throwException(kSource, raiseInNext);
    return static_cast<unsigned int>(measured);
}

// ---- The local codeset -------------------------------------------------------------------------

namespace zcharacters {

constinit std::atomic<LocalCodeset> localCodeset_ = LocalCodeset::unknown;

// Asks the text services for each character: the local codeset of a process never changes.
LocalCodeset findLocalCodeset()
{
    qvr_cs_t const local = zgetLCSHandle_6_0();
    bool isWhole = true;
    for (int byte = 1; byte < 0x80 && isWhole; ++byte) {
        char const character = static_cast<char>(byte);
        isWhole = qvr_mblen(local, &character, 1) == 1;
    }
    char const* const name = zgetLocalCodesetName_6_0();
    LocalCodeset const found = !isWhole ? LocalCodeset::other
                               : name != nullptr && strcmp(name, "UTF-8") == 0
                                   ? LocalCodeset::utf8
                                   : LocalCodeset::asciiIsWhole;
    localCodeset_.store(found, std::memory_order_relaxed);
    return found;
}

}  // namespace zcharacters
