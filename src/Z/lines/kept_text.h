// kept_text: the bytes of a file as last read or stored.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "dialect.h"

namespace zlines {

// Copies of a cache share the text: it never changes.
struct KeptText {
    KeptText(std::string bytes, SharedDialect spelling)
        : text(std::move(bytes)), sharedDialect(std::move(spelling)), dialect(*sharedDialect)
    {
    }

    std::string const text;
    SharedDialect const sharedDialect;
    Dialect const& dialect;
    TextHistory history = {};
};

using SharedText = std::shared_ptr<KeptText const>;

}  // namespace zlines
