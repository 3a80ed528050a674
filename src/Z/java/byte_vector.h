// byte_vector: 16 bytes that are compared together.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <bit>

namespace zjava {

using ByteVector [[gnu::vector_size(16)]] = signed char;

inline ByteVector loadVector(char const* bytes)
{
    ByteVector vector;
    memcpy(&vector, bytes, sizeof vector);
    return vector;
}

/// Returns the position of the first byte of `found` that is not 0; the size of a vector if all
/// are. Each byte is 0 or -1: the result of a comparison.
inline ptrdiff_t firstFound(ByteVector found)
{
    uint64_t halves[2];
    memcpy(halves, &found, sizeof halves);
    if ((halves[0] | halves[1]) == 0)
        return sizeof found;
    if constexpr (std::endian::native == std::endian::little)
        return halves[0] != 0 ? std::countr_zero(halves[0]) / 8
                              : 8 + std::countr_zero(halves[1]) / 8;
    return halves[0] != 0 ? std::countl_zero(halves[0]) / 8 : 8 + std::countl_zero(halves[1]) / 8;
}

}  // namespace zjava
