// Stanza files: a file that was read is written so that it reads the same and writes itself.
#include <Z/ZArrayList.h>
#include <Z/ZBuffer.h>
#include <Z/ZException.h>
#include <Z/ZPropertiesImpl.h>
#include <stdint.h>
#include <string.h>

#include "check.h"

namespace {

bool read(ZSCFData_6_0& cache, char const* text, size_t length)
{
    cache.setAttributes(ZPCache_6_0::keepComments, nullptr);
    try {
        cache.readText("fuzz.conf", text, length);
        return true;
    } catch (ZPropertiesInvalidDataException_6_0 const&) {
        return false;
    }
}

bool sameLines(ZSCFData_6_0 const& one, ZSCFData_6_0 const& other)
{
    ZArrayList_6_0 ones(16, 1);
    ZArrayList_6_0 others(16, 1);
    one.getLines(ones);
    other.getLines(others);
    if (ones.size() != others.size())
        return false;
    for (unsigned i = 0; i < ones.size(); ++i)
        if (!ones.get(i)->equals(*others.get(i)))
            return false;
    return true;
}

// Lines that long are split, and a NUL byte cuts a line: such text need not read back.
bool readsBack(char const* text, size_t length)
{
    size_t const kLongest = 8000;
    if (memchr(text, 0, length) != nullptr)
        return false;
    size_t line = 0;
    for (size_t i = 0; i < length; ++i) {
        line = text[i] == '\n' ? 0 : line + 1;
        if (line > kLongest)
            return false;
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    char const* const text = reinterpret_cast<char const*>(data);
    ZSCFData_6_0 first;
    if (!read(first, text, size) || !readsBack(text, size))
        return 0;
    ZBuffer_6_0 written;
    first.writeText(written);
    char const* const again = static_cast<char const*>(written.getBuffer());

    ZSCFData_6_0 second;
    check(read(second, again, written.getLength()), "the written file can be read");
    check(sameLines(first, second), "it has the same lines");
    ZBuffer_6_0 writtenAgain;
    second.writeText(writtenAgain);
    check(written.getLength() == writtenAgain.getLength() &&
              (written.getLength() == 0 ||
               memcmp(again, writtenAgain.getBuffer(), written.getLength()) == 0),
          "it is written unchanged");
    return 0;
}
