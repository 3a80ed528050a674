// Compression: every block comes back as it was, and any block may be taken for a compressed one.
#include <Z/ZSqueeze.h>
#include <stdint.h>
#include <string.h>

#include <vector>

#include "check.h"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    ZSqueeze_6_0 squeeze;
    squeeze.setSource(const_cast<uint8_t*>(data), size);

    std::vector<unsigned char> packed(size + size / 100 + 64);
    int const length = squeeze.squeeze(packed.data(), packed.size());
    check(length > 0, "room for the worst case is enough");
    std::vector<unsigned char> unpacked(size + 1);
    squeeze.setSource(packed.data(), static_cast<unsigned long>(length));
    check(squeeze.unsqueeze(unpacked.data(), unpacked.size()) == static_cast<int>(size),
          "it expands to its length");
    check(size == 0 || memcmp(data, unpacked.data(), size) == 0, "and to its bytes");

    squeeze.setSource(const_cast<uint8_t*>(data), size);
    unsigned char room[4096];
    check(squeeze.unsqueeze(room, sizeof room) <= static_cast<int>(sizeof room),
          "no more is reported than there is room for");
    return 0;
}
