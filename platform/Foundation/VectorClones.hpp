#pragma once

#include <cstddef>  // which says whose C library this is

// TAVLO_VECTOR_CLONES before a function with a hot loop has the compiler make two of it: one for every processor of the
// kind, one for those with AVX2, and the dynamic linker takes the one that fits. On arm64 every processor has what such
// loops need. The thread sanitizer is not yet awake when the linker asks.
#if defined(__has_feature)
#define TAVLO_HAS_FEATURE(feature) __has_feature(feature)
#else
#define TAVLO_HAS_FEATURE(feature) 0
#endif
#if !defined(__x86_64__) || !defined(__GLIBC__) || defined(__SANITIZE_THREAD__) || TAVLO_HAS_FEATURE(thread_sanitizer)
#define TAVLO_VECTOR_CLONES
#elif defined(__clang__)
#define TAVLO_VECTOR_CLONES __attribute__((target_clones("avx2", "default")))
#else
#define TAVLO_VECTOR_CLONES __attribute__((target_clones("arch=x86-64-v3", "default")))
#endif
#undef TAVLO_HAS_FEATURE
