// Hot loops get an AVX2 clone beside the plain one on x86-64 ELF builds with
// GCC, the loader choosing one at start. Other builds compile the plain loop
// only, and so do the sanitizer builds (FLAIRIZE_NO_CLONES): the loader runs the
// chooser before a sanitizer's run-time is ready.
#pragma once

#if defined(__GNUC__) && !defined(__clang__) && defined(__x86_64__) && defined(__ELF__) && !defined(FLAIRIZE_NO_CLONES)
#define FLAIRIZE_CLONES __attribute__((target_clones("avx2", "default")))
#else
#define FLAIRIZE_CLONES
#endif
