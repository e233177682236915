// VISTREL_SANITIZED_HEAP is 1 when AddressSanitizer or ThreadSanitizer owns the heap (g++ and
// clang spell the check differently): malloc statistics and malloc interposition do not apply.
#pragma once

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define VISTREL_SANITIZED_HEAP 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define VISTREL_SANITIZED_HEAP 1
#endif
#endif
#ifndef VISTREL_SANITIZED_HEAP
#define VISTREL_SANITIZED_HEAP 0
#endif
