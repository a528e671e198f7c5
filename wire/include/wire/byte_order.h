// SPDX-License-Identifier: BSD-3-Clause
// Raw values on the bus are the switch processor's records: integers
// big-endian. They are read and written byte by byte, whatever the host's
// own byte order, so a PC build writes exactly the bytes the switch does.
#pragma once

#include <cstdint>

inline constexpr uint16_t be16_get(const uint8_t *p) {
    return static_cast<uint16_t>((static_cast<uint16_t>(p[0]) << 8) | p[1]);
}

inline constexpr uint32_t be32_get(const uint8_t *p) {
    return (static_cast<uint32_t>(p[0]) << 24) | (static_cast<uint32_t>(p[1]) << 16) |
           (static_cast<uint32_t>(p[2]) << 8) | static_cast<uint32_t>(p[3]);
}

inline constexpr void be16_put(uint8_t *p, uint16_t v) {
    p[0] = static_cast<uint8_t>(v >> 8);
    p[1] = static_cast<uint8_t>(v);
}

inline constexpr void be32_put(uint8_t *p, uint32_t v) {
    p[0] = static_cast<uint8_t>(v >> 24);
    p[1] = static_cast<uint8_t>(v >> 16);
    p[2] = static_cast<uint8_t>(v >> 8);
    p[3] = static_cast<uint8_t>(v);
}
