#include "ZArrayStack.h"

#include <typeinfo>

void ZAbstractStack_6_0::popall()
{
    // KEPT: a null on the stack looks like its end, so the objects below it stay. A program that
    // pushes a null as a mark would lose the objects below the mark.
    // Test: ZArrayStack.KeepsObjectsBelowANull
    while (pop() != nullptr) {
    }
}

ZArrayStack_6_0::ZArrayStack_6_0(unsigned int initialCapacity) : ZArrayList_6_0(initialCapacity, 0)
{
}

ZArrayStack_6_0::ZArrayStack_6_0(ZArrayStack_6_0 const& source) = default;

ZArrayStack_6_0& ZArrayStack_6_0::operator=(ZArrayStack_6_0 const& source)
{
    if (typeid(*this) == typeid(ZArrayStack_6_0))
        assign(source);
    else
        ZArrayList_6_0::operator=(source);
    return *this;
}

ZArrayStack_6_0::~ZArrayStack_6_0() = default;

ZObject_6_0* ZArrayStack_6_0::clone() const
{
    return new ZArrayStack_6_0(*this);
}

void ZArrayStack_6_0::push(ZObject_6_0* obj)
{
    add(obj);
}

ZObject_6_0* ZArrayStack_6_0::pop()
{
    if (isEmpty())
        return nullptr;
    unsigned int const top = size() - 1;
    ZObject_6_0* const obj = get(top);
    remove(top);
    return obj;
}
