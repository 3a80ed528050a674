// converter_p: ICU converter objects, one per thread and codeset.
//
// Subsystem: text services.  Stands on: codeset_p.
//
// A converter object serves one thread at a time, and creating one takes memory. Each thread keeps
// the few that it used last until it ends.
#pragma once

#include <unicode/ucnv.h>

#include <cstdint>

#include "codeset_p.h"

namespace qvr {

// Makes `converter` strict: it stops at a character that has no counterpart.
bool makeStrict(UConverter* converter);

// The calling thread's converter for a codeset, reset. Valid while this object exists; a thread has
// at most one such object per codeset.
class ThreadConverter {
public:
    explicit ThreadConverter(Codeset const& codeset);
    ThreadConverter(ThreadConverter const&) = delete;
    ThreadConverter& operator=(ThreadConverter const&) = delete;
    ~ThreadConverter();

    UConverter* get() const { return converter_; }  // null if memory is short

private:
    UConverter* converter_;
    bool cached_;  // the thread keeps it; else this object closes it
};

// Decodes `n` bytes, without regard to any before them, as one character. Returns its code point,
// or kManyCodePoints, kNoCharacter, or kNeedsConverter if they are only the start of a character.
uint32_t classify(UConverter* converter, char const* bytes, size_t n);

}  // namespace qvr
