// SPDX-License-Identifier: BSD-3-Clause
// The fuzzer's input layout, shared by the fuzzer and its seed corpus:
// byte 0 picks the subscription row, byte 1 the event code, byte 2 the key
// length; then the key; the rest is the value, or no value at all when its
// first byte is FUZZ_NO_VALUE.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

inline constexpr std::size_t FUZZ_HEADER_LEN = 3;
inline constexpr uint8_t FUZZ_NO_VALUE = 0xFF;

// Codes 0, 1, 2, 9, 10 mostly; -2 to 5 now and then.
inline constexpr std::array<int32_t, 8> FUZZ_CODES = {0, 1, 2, 9, 10, 0, 2, 1};

constexpr int32_t fuzz_code(uint8_t b) {
    return b < 248 ? FUZZ_CODES[b % FUZZ_CODES.size()] : static_cast<int32_t>(b) - 250;
}

// The byte that selects a code of FUZZ_CODES.
constexpr uint8_t fuzz_code_byte(int32_t code) {
    for (std::size_t i = 0; i < FUZZ_CODES.size(); ++i) {
        if (FUZZ_CODES[i] == code) {
            return static_cast<uint8_t>(i);
        }
    }
    return 0;
}
static_assert(fuzz_code(fuzz_code_byte(10)) == 10);
