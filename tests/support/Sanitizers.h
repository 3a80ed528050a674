// Sanitizers: whether a sanitizer checks the test program.
#pragma once

// Programs with AddressSanitizer or ThreadSanitizer are about ten times slower, so tests with many
// inputs try a share of them.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kHasSanitizer = true;
#elif defined(__has_feature)
inline constexpr bool kHasSanitizer =
    __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
inline constexpr bool kHasSanitizer = false;
#endif
