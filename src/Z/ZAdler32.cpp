#include "ZAdler32.h"

#include <stddef.h>
#include <stdint.h>

#if defined(__x86_64__)
#include <cpuid.h>
#include <immintrin.h>
#endif

namespace {

// The two sums of the checksum: `low` sums the bytes, `high` sums every value of `low`.
struct Sums {
    uint32_t low;
    uint32_t high;

    void reduce()
    {
        constexpr uint32_t kModulus = 65521;  // the largest prime below 2^16
        low %= kModulus;
        high %= kModulus;
    }
};

// The size of the data that can be added before `high` may overflow 32 bits.
constexpr size_t kReduceEvery = 5552;

void add(Sums& sums, unsigned char const* buf, size_t len)
{
    for (; len >= 16; len -= 16, buf += 16) {
        for (int i = 0; i < 16; ++i) {
            sums.low += buf[i];
            sums.high += sums.low;
        }
    }
    for (; len > 0; --len, ++buf) {
        sums.low += *buf;
        sums.high += sums.low;
    }
}

void addPortable(Sums& sums, unsigned char const* buf, size_t len)
{
    while (len > 0) {
        size_t const part = len < kReduceEvery ? len : kReduceEvery;
        add(sums, buf, part);
        sums.reduce();
        buf += part;
        len -= part;
    }
}

#if defined(__x86_64__)

// Returns whether the processor has AVX2 and the system saves its registers.
// __builtin_cpu_supports() would add code that runs when the library is loaded.
bool detectAvx2()
{
    unsigned int a, b, c, d;
    if (!__get_cpuid(1, &a, &b, &c, &d) || (c & bit_OSXSAVE) == 0)
        return false;
    unsigned int saved, unused;
    asm("xgetbv" : "=a"(saved), "=d"(unused) : "c"(0));
    constexpr unsigned int kVectorRegisters = 6;
    return (saved & kVectorRegisters) == kVectorRegisters &&
           __get_cpuid_count(7, 0, &a, &b, &c, &d) && (b & bit_AVX2) != 0;
}

bool hasAvx2()
{
    static bool const has = detectAvx2();
    return has;
}

__attribute__((target("avx2"))) uint32_t sumOfLanes(__m256i lanes)
{
    __m128i sum = _mm_add_epi32(_mm256_castsi256_si128(lanes), _mm256_extracti128_si256(lanes, 1));
    sum = _mm_add_epi32(sum, _mm_shuffle_epi32(sum, _MM_SHUFFLE(1, 0, 3, 2)));
    sum = _mm_add_epi32(sum, _mm_shuffle_epi32(sum, _MM_SHUFFLE(2, 3, 0, 1)));
    return static_cast<uint32_t>(_mm_cvtsi128_si32(sum));
}

// Adds groups of 64 bytes. A group increases `high` by 64 times the preceding `low`, and by each
// byte times its weight: 64 for the first byte, 1 for the last. `lowBefore` sums the preceding
// values of `low`, multiplied at the end of a part; `weighted` sums the weighted bytes.
__attribute__((target("avx2"))) void addAvx2(Sums& sums, unsigned char const* buf, size_t len)
{
    constexpr size_t kGroup = 64;
    __m256i const firstWeights =
        _mm256_setr_epi8(64, 63, 62, 61, 60, 59, 58, 57, 56, 55, 54, 53, 52, 51, 50, 49, 48, 47, 46,
                         45, 44, 43, 42, 41, 40, 39, 38, 37, 36, 35, 34, 33);
    __m256i const lastWeights =
        _mm256_setr_epi8(32, 31, 30, 29, 28, 27, 26, 25, 24, 23, 22, 21, 20, 19, 18, 17, 16, 15, 14,
                         13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1);
    __m256i const ones = _mm256_set1_epi16(1);
    __m256i const zero = _mm256_setzero_si256();

    while (len >= kGroup) {
        size_t groups = (len < kReduceEvery ? len : kReduceEvery) / kGroup;
        len -= groups * kGroup;
        sums.high += sums.low * static_cast<uint32_t>(groups * kGroup);
        __m256i low = zero;
        __m256i lowBefore = zero;
        __m256i weighted = zero;
        for (; groups > 0; --groups, buf += kGroup) {
            __m256i const first = _mm256_loadu_si256(reinterpret_cast<__m256i const*>(buf));
            __m256i const last = _mm256_loadu_si256(reinterpret_cast<__m256i const*>(buf + 32));
            lowBefore = _mm256_add_epi32(lowBefore, low);
            low = _mm256_add_epi32(low, _mm256_sad_epu8(first, zero));
            low = _mm256_add_epi32(low, _mm256_sad_epu8(last, zero));
            // At most 255 * (64 + 63) = 32385 for a pair: the sum fits into 16 signed bits.
            __m256i const firstPairs = _mm256_maddubs_epi16(first, firstWeights);
            __m256i const lastPairs = _mm256_maddubs_epi16(last, lastWeights);
            weighted = _mm256_add_epi32(weighted, _mm256_madd_epi16(firstPairs, ones));
            weighted = _mm256_add_epi32(weighted, _mm256_madd_epi16(lastPairs, ones));
        }
        sums.low += sumOfLanes(low);
        sums.high += sumOfLanes(lowBefore) * static_cast<uint32_t>(kGroup) + sumOfLanes(weighted);
        sums.reduce();
    }
    addPortable(sums, buf, len);
}

#endif

}  // namespace

unsigned long ZAdler32_6_0::adler32(unsigned long adler, unsigned char const* buf, unsigned int len)
{
    if (buf == nullptr)
        return 1;
    if (len == 0)
        return adler;
    Sums sums{static_cast<uint32_t>(adler & 0xffff), static_cast<uint32_t>(adler >> 16 & 0xffff)};
#if defined(__x86_64__)
    if (len >= 64 && hasAvx2())
        addAvx2(sums, buf, len);
    else
#endif
        addPortable(sums, buf, len);
    return static_cast<unsigned long>(sums.high) << 16 | sums.low;
}
