/* The library that library.cpp loads. */
#include <stdio.h>

char const* greeting(char const* name);

char const* greeting(char const* name)
{
    static char text[100];
    snprintf(text, sizeof text, "hello, %s", name);
    return text;
}
