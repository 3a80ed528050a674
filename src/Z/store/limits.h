// limits: the size limit of the files that a store reads and writes.
#pragma once

#include <stddef.h>

namespace zstore {

constexpr size_t kDefaultMaxFileSize = size_t{1} << 30;

/// Returns the limit of a configuration file, in bytes.
/// threads any.
size_t maxFileSize();
void setMaxFileSize(size_t size);

/// Returns the limit of a journal: it contains at most the old and new text and a companion.
size_t maxJournalSize();

}  // namespace zstore
