// The companion file: whatever is read as one is written as one that holds the same values.
#include <Z/ZBuffer.h>
#include <Z/ZException.h>
#include <Z/ZPropertiesImpl.h>
#include <stdint.h>
#include <string.h>

#include "check.h"

namespace {

bool read(ZSCFData_6_0& cache, ZBuffer_6_0& bytes)
{
    try {
        cache.be_read_obfuscated(bytes);
        return true;
    } catch (ZPropertiesInvalidDataException_6_0 const&) {
        return false;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    ZBuffer_6_0 bytes(size, const_cast<uint8_t*>(data));
    ZSCFData_6_0 first;
    if (!read(first, bytes)) {
        check(first.count() == 0, "a companion that is refused leaves the cache as it was");
        return 0;
    }
    ZBuffer_6_0 written;
    first.be_write_obfuscated(written);
    if (written.getLength() == 0)
        return 0;
    ZSCFData_6_0 second;
    check(read(second, written), "what is written can be read");
    check(first.count() == second.count(), "it has the same stanzas");
    check(first.obfuscatedItemCount() == second.obfuscatedItemCount(), "and the same keys");
    ZBuffer_6_0 writtenAgain;
    second.be_write_obfuscated(writtenAgain);
    check(written.getLength() == writtenAgain.getLength() &&
              memcmp(written.getBuffer(), writtenAgain.getBuffer(), written.getLength()) == 0,
          "and is written as it was read");
    return 0;
}
