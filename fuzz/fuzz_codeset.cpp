// Codesets: text that converts to UTF-8 round-trips, and measuring agrees with converting.
#include <qvr.h>
#include <stdint.h>
#include <string.h>

#include <vector>

#include "check.h"

namespace {

// Measures character by character; -1 if a character is invalid.
ptrdiff_t measure(qvr_cs_t cs, char const* text, size_t size)
{
    size_t at = 0;
    while (at < size) {
        int const length = qvr_mblen(cs, text + at, size - at);
        if (length < 0)
            return -1;
        check(static_cast<size_t>(length) <= size - at, "a character ends within the text");
        at += length == 0 ? 1 : static_cast<size_t>(length);
    }
    return static_cast<ptrdiff_t>(at);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    static char const* const kNames[] = {"UTF-8",  "US-ASCII", "ISO-8859-1", "windows-1252",
                                         "KOI8-R", "IBM-1047", "ISO-8859-15"};
    if (size == 0)
        return 0;
    qvr_cs_t const cs = qvr_cs_new(kNames[data[0] % (sizeof kNames / sizeof *kNames)]);
    check(cs != nullptr, "the codeset is known");
    char const* const text = reinterpret_cast<char const*>(data + 1);
    size_t const length = size - 1;

    std::vector<char> utf8(length * 4 + 4);
    ptrdiff_t const converted = qvr_to_utf8(cs, text, length, utf8.data(), utf8.size());
    ptrdiff_t const measured = measure(cs, text, length);
    if (converted >= 0) {
        check(measured == static_cast<ptrdiff_t>(length), "converted text can be measured");
        std::vector<char> back(length + 4);
        ptrdiff_t const returned = qvr_from_utf8(cs, utf8.data(), static_cast<size_t>(converted),
                                                 back.data(), back.size());
        check(returned == static_cast<ptrdiff_t>(length),
              "converting back gives the original length");
        check(length == 0 || memcmp(text, back.data(), length) == 0,
              "converting back gives the original bytes");
        // One byte too few is always reported and never overrun.
        if (converted > 0) {
            std::vector<char> tight(static_cast<size_t>(converted) - 1);
            check(qvr_to_utf8(cs, text, length, tight.data(), tight.size()) < 0,
                  "a short buffer is reported");
        }
    }
    qvr_cs_free(cs);
    return 0;
}
