// A do-nothing platform for the benchmarks (see null_platform.cpp).
#pragma once

#include <cstdint>

namespace null_platform {

// What a benchmark hands in as a notification's reply.
struct value {
    const char *bytes;
    uint32_t len;
};

extern long g_commands; // commands issued, to check a benchmark did its work

} // namespace null_platform
