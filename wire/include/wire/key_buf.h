// SPDX-License-Identifier: BSD-3-Clause
// Keys are built in 128-byte buffers cleared to zero and cut at 127
// characters, so no key this daemon writes can exceed what a notification
// record carries.
#pragma once

#include <array>
#include <cstdarg>
#include <cstddef>
#include <cstdio>

struct key_buf {
    static constexpr std::size_t SIZE = 128;
    std::array<char, SIZE> text{};

    const char *c_str() const { return text.data(); }
};

// snprintf into a fresh zeroed buffer, limited to its 128 bytes.
key_buf key_printf(const char *format, ...) __attribute__((format(printf, 1, 2)));
