// SPDX-License-Identifier: BSD-3-Clause
// 6-byte MAC addresses and OUIs. An OUI is kept as a full address already
// ANDed with its mask, and written in keys as 12 lower-case hex digits.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

using mac_addr = std::array<uint8_t, 6>;

inline mac_addr mac_and(const mac_addr &a, const mac_addr &mask) {
    mac_addr out{};
    for (std::size_t k = 0; k < out.size(); ++k) {
        out[k] = static_cast<uint8_t>(a[k] & mask[k]);
    }
    return out;
}

// Two addresses byte for byte. An equality test of a constant six bytes,
// which the compiler expands into two loads per side: it runs for every OUI
// slot of every learning, where a general comparison of std::array may end up
// as a call to memcmp.
inline bool mac_equal(const mac_addr &a, const mac_addr &b) {
    return std::memcmp(a.data(), b.data(), sizeof(mac_addr)) == 0;
}

// The six bytes as one word, for masking and comparing a whole address at
// once (only equality is ever asked of it, so the host's byte order does
// not matter). Built from a 4-byte and a 2-byte load in registers: copying
// six bytes into a zeroed word on the stack and reading it back whole
// defeats store forwarding, and that stall per slot made a learning's walk
// of the OUI table the daemon's costliest step.
inline uint64_t mac_bits(const mac_addr &m) {
    uint32_t head = 0;
    uint16_t tail = 0;
    std::memcpy(&head, m.data(), sizeof head);
    std::memcpy(&tail, m.data() + sizeof head, sizeof tail);
    return static_cast<uint64_t>(head) | static_cast<uint64_t>(tail) << 32;
}

// The six bytes as printf arguments, for "%02x%02x%02x%02x%02x%02x".
#define MAC_ARGS(m) (m)[0], (m)[1], (m)[2], (m)[3], (m)[4], (m)[5]

// "00e0bb123456": the form keys carry, zero-terminated.
std::array<char, 13> mac_hex12(const mac_addr &mac);
// "00:e0:bb:12:34:56": the form people read.
std::array<char, 18> mac_colon(const mac_addr &mac);

// An address as a person types it: 12 hexadecimal digits, or six pairs
// separated by ':' or '-' (one separator throughout). Upper or lower case.
// False, and *mac untouched, for anything else.
bool mac_parse(std::string_view text, mac_addr *mac);
