// ThrowingObject: an object whose destructor throws, like a guard whose release fails.
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
            throw std::runtime_error("release failed");
    }
};
