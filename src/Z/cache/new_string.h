// new_string: creates the string objects that callers see.
#pragma once

#include <string_view>

#include "../ZArrayList.h"
#include "../ZLCString.h"

namespace zcache {

/// Returns a copy of `text`.
/// owns    owned by the caller; released with delete.
inline ZLCString_6_0* newString(std::string_view text)
{
    return new ZLCString_6_0(text.data(), static_cast<unsigned>(text.size()));
}

// Owns a string object until a list takes it over.
class NewString {
public:
    NewString() = default;
    NewString(NewString const&) = delete;
    NewString& operator=(NewString const&) = delete;
    ~NewString() { delete string_; }

    void create(std::string_view text) { string_ = newString(text); }

    void appendTo(ZArrayList_6_0& list)
    {
        list.addNoCopy(string_);
        string_ = nullptr;
    }

private:
    ZLCString_6_0* string_ = nullptr;
};

}  // namespace zcache
