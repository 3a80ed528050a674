// kept_text: the bytes of a file as last read or stored.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "dialect.h"

namespace zlines {

// Copies of a cache share the text: it never changes.
struct KeptText {
    KeptText(std::string bytes, Dialect const& spelling) : text(std::move(bytes)), dialect(spelling)
    {
    }

    std::string const text;
    Dialect const& dialect;
    bool isOneFile = true;  // else several files were read, one after another
};

using SharedText = std::shared_ptr<KeptText const>;

}  // namespace zlines
