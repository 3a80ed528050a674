// check: what a fuzz target expects; a broken expectation ends the process.
#pragma once

#include <stdio.h>
#include <stdlib.h>

inline void check(bool holds, char const* expectation)
{
    if (holds)
        return;
    fprintf(stderr, "broken: %s\n", expectation);
    abort();
}
