// SPDX-License-Identifier: BSD-3-Clause
#include "alloc_counter.h"

#include <cstddef>

// glibc's own entry points, which its malloc family forwards to.
extern "C" {
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *pointer, size_t size);
void __libc_free(void *pointer);
}

namespace {

// Initial-exec TLS of the executable: reading it never allocates.
thread_local uint64_t t_allocations = 0;

} // namespace

extern "C" {

void *malloc(size_t size) {
    ++t_allocations;
    return __libc_malloc(size);
}

void *calloc(size_t count, size_t size) {
    ++t_allocations;
    return __libc_calloc(count, size);
}

void *realloc(void *pointer, size_t size) {
    ++t_allocations;
    return __libc_realloc(pointer, size);
}

void free(void *pointer) {
    __libc_free(pointer);
}

} // extern "C"

namespace platformtest {

uint64_t allocations_on_this_thread() noexcept {
    return t_allocations;
}

} // namespace platformtest
