// SPDX-License-Identifier: BSD-3-Clause
// Counts the heap allocations each thread makes, by standing in for the C
// library's allocator in the whole process (the bus library and hiredis
// included). Only for builds without sanitizers, which bring their own.
#pragma once

#include <cstdint>

namespace platformtest {

// Allocations (malloc, calloc, realloc, and so operator new) made by the
// calling thread since it started.
uint64_t allocations_on_this_thread() noexcept;

} // namespace platformtest
