// FLAIRIZE_SANITIZED is 1 in builds under AddressSanitizer, ThreadSanitizer or
// MemorySanitizer: there address-space limits and peak-memory figures mean
// nothing, and the tests that rely on them skip.
#pragma once

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define FLAIRIZE_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define FLAIRIZE_SANITIZED 1
#endif
#endif
