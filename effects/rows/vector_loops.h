// Marks the plain byte loops of the row effects: kept out of line so their
// callers stay small, and on x86-64 ELF builds with GCC cloned for AVX2 with
// the choice made at load time. Other builds compile plain code.
#pragma once

#if defined(__GNUC__) && !defined(__clang__) && defined(__x86_64__) && defined(__ELF__)
#define FLR_VECTOR_LOOP __attribute__((target_clones("avx2", "default"), noinline))
#elif defined(__GNUC__)
#define FLR_VECTOR_LOOP __attribute__((noinline))
#else
#define FLR_VECTOR_LOOP
#endif
