// MeasuredLength: makes the text services return a wrong character length, as another
// implementation of them might, in a test program whose row has WRAP;qvr_mblen.
//
//     MeasuredLength const wrong(5);
#pragma once

#include <stddef.h>

#include "qvr.h"

inline thread_local int measuredLength = 0;  // result of qvr_mblen(), unless 0

// Sets the length of characters in this scope.
class MeasuredLength {
public:
    explicit MeasuredLength(int length) { measuredLength = length; }
    MeasuredLength(MeasuredLength const&) = delete;
    MeasuredLength& operator=(MeasuredLength const&) = delete;
    ~MeasuredLength() { measuredLength = 0; }
};

extern "C" {
int __real_qvr_mblen(qvr_cs_t, char const*, size_t);

[[gnu::used]] inline int __wrap_qvr_mblen(qvr_cs_t cs, char const* s, size_t n)
{
    return measuredLength != 0 ? measuredLength : __real_qvr_mblen(cs, s, n);
}
}
