// The companion file: a file that can be read is written with the same values.
#include <Z/ZBuffer.h>
#include <Z/ZException.h>
#include <Z/ZPropertiesImpl.h>
#include <Z/ZSqueeze.h>
#include <stdint.h>
#include <string.h>

#include <vector>

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

void tryAsCompanion(ZBuffer_6_0& bytes)
{
    ZSCFData_6_0 first;
    if (!read(first, bytes)) {
        check(first.count() == 0, "a refused companion leaves the cache unchanged");
        return;
    }
    ZBuffer_6_0 written;
    first.be_write_obfuscated(written);
    if (written.getLength() == 0)
        return;
    ZSCFData_6_0 second;
    check(read(second, written), "the written companion can be read");
    // A record with an empty value makes a key that has none and is not written.
    check(first.obfuscatedItemCount() == second.obfuscatedItemCount(), "it has the same keys");
    ZBuffer_6_0 writtenAgain;
    second.be_write_obfuscated(writtenAgain);
    check(written.getLength() == writtenAgain.getLength() &&
              memcmp(written.getBuffer(), writtenAgain.getBuffer(), written.getLength()) == 0,
          "and is written unchanged");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    ZBuffer_6_0 bytes(size, const_cast<uint8_t*>(data));
    tryAsCompanion(bytes);

    // Few inputs are a stream by chance: take them as records, too.
    ZSqueeze_6_0 squeeze;
    squeeze.setSource(const_cast<uint8_t*>(data), size);
    std::vector<unsigned char> packed(size + size / 100 + 64);
    int const length = squeeze.squeeze(packed.data(), packed.size());
    check(length > 0, "the capacity for the worst case suffices");
    ZBuffer_6_0 stream(static_cast<unsigned long>(length), packed.data());
    tryAsCompanion(stream);
    return 0;
}
