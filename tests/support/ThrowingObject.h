// ThrowingObject: an object whose destructor raises, as a guard's does that cannot let go.
#pragma once

#include <exception>
#include <stdexcept>

#include "CountedObject.h"

class ThrowingObject : public CountedObject {
public:
    using CountedObject::CountedObject;
    ~ThrowingObject() noexcept(false) override
    {
        if (std::uncaught_exceptions() == 0)
            throw std::runtime_error("cannot let go");
    }
};
