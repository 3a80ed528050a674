// JavaStore: helpers for the tests of ZJavaProperties.
#pragma once

#include <Z/ZJavaProperties.h>
#include <Z/ZUTF8String.h>

#include <functional>
#include <string>

#include "JavaEntries.h"

namespace java_store {

inline constexpr char kSource[] = "src/Z/ZJavaProperties";

using Store = ZJavaProperties_6_0;

inline std::string get(Store const& store, char const* key)
{
    ZUTF8String_6_0 value;
    store.getValue(ZUTF8String_6_0(key), value);
    return bytesOf(value);
}

// A counted string that runs an action during a call.
class HookedString final : public ZUTF8String_6_0 {
public:
    explicit HookedString(char const* text) : ZUTF8String_6_0(text) { ++alive; }
    HookedString(HookedString const& other)
        : ZUTF8String_6_0(other), onClone(other.onClone), onChars(other.onChars)
    {
        ++alive;
    }
    HookedString& operator=(HookedString const&) = delete;
    ~HookedString() override { --alive; }

    ZUTF8String_6_0* clone() const override
    {
        if (onClone)
            onClone();
        return new HookedString(*this);
    }
    char const* getChars() const override
    {
        if (onChars)
            onChars();
        return ZUTF8String_6_0::getChars();
    }

    std::function<void()> onClone;
    std::function<void()> onChars;
    static inline int alive = 0;
};

}  // namespace java_store
