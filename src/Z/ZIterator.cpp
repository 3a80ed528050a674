#include "ZIterator.h"

ZAbstractIterator_6_0::~ZAbstractIterator_6_0() = default;

ZObject_6_0* ZAbstractIterator_6_0::findNext(ZObject_6_0 const& target)
{
    while (hasMore()) {
        ZObject_6_0* const object = getNext();
        if (object != nullptr && target.equals(*object))
            return object;
    }
    return nullptr;
}
