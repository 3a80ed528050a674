// new_string: string objects for callers.
#pragma once

#include <string_view>

#include "../ZArrayList.h"
#include "../ZLCString.h"

namespace zcache {

// Returns a new string object with a copy of `text`, owned by the caller.
inline ZLCString_6_0* newString(std::string_view text)
{
    return new ZLCString_6_0(text.data(), static_cast<unsigned>(text.size()));
}

// A string object that a list will take over.
class NewString {
public:
    NewString() = default;
    NewString(NewString const&) = delete;
    NewString& operator=(NewString const&) = delete;
    ~NewString() { delete string_; }

    void make(std::string_view text) { string_ = newString(text); }

    void appendTo(ZArrayList_6_0& list)
    {
        list.addNoCopy(string_);
        string_ = nullptr;
    }

private:
    ZLCString_6_0* string_ = nullptr;
};

}  // namespace zcache
