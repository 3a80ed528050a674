// translate_errors: turns the failures of a journaled file, and std::bad_alloc, into exceptions of
// the library.
#pragma once

#include "../memory/out_of_memory.h"
#include "journaled_file.h"

namespace zstore {

/// Runs `body`. `raise` gets an IoError and throws the exception of the library in its place.
/// throws  ZOutOfMemoryException_6_0 from `site` in place of std::bad_alloc; any other exception of
///         `body`.
template <class Raise, class Body>
void translateErrors(char const* source, int site, Raise raise, Body body)
{
    try {
        zmemory::translateBadAlloc(source, site, body);
    } catch (JournaledFile::IoError const& failure) {
        raise(failure);
    }
}

}  // namespace zstore
