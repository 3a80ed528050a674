// converter_p: ICU converter objects, one per thread and codeset.
//
// Subsystem: text services.  Stands on: codeset_p.
//
// A converter object is not for two threads at once, and making one takes memory. Each thread
// keeps the few it used last until it ends.
#pragma once

#include <unicode/ucnv.h>

#include <cstdint>

#include "codeset_p.h"

namespace qvr {

// Makes `converter` strict: a character that has no counterpart stops it.
bool makeStrict(UConverter* converter);

// The calling thread's converter for a codeset, reset, for as long as this object lives. One
// object per codeset and thread at a time.
class ThreadConverter {
public:
    explicit ThreadConverter(Codeset const& codeset);
    ThreadConverter(ThreadConverter const&) = delete;
    ThreadConverter& operator=(ThreadConverter const&) = delete;
    ~ThreadConverter();

    UConverter* get() const { return converter_; }  // null when there is no memory

private:
    UConverter* converter_;
    bool kept_;  // by the thread; otherwise closed with this object
};

// What a few bytes, taken alone, are to a converter: the code point of the one character they are,
// or kManyCodePoints, kNoCharacter, or kLonger when they only begin one.
uint32_t judge(UConverter* converter, char const* bytes, size_t n);

}  // namespace qvr
