// SPDX-License-Identifier: BSD-3-Clause
// Raw values as the management plane and the forwarding layer write them,
// for the tests: thin wrappers that hand the daemon's own codec's bytes out
// as strings. The codec itself is pinned byte by byte against hand-written
// values in tests/unit/wire, so a codec bug cannot hide behind it here.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "wire/values.h"

namespace testcommon {

using mac6 = mac_addr;

template <std::size_t N>
std::string as_string(const std::array<uint8_t, N> &bytes) {
    return std::string(bytes.begin(), bytes.end());
}

// vvlan_oui_oper: mac, mask, enable, 31 extra bytes (0x40 + i unless given).
inline std::string oui_value(const mac6 &mac, const mac6 &mask, uint8_t enable = 1,
                             uint8_t extra_base = 0x40) {
    vvlan_oui_oper rec{mac, mask, enable, {}};
    for (std::size_t i = 0; i < rec.extra.size(); ++i) {
        rec.extra[i] = static_cast<uint8_t>(extra_base + i);
    }
    return as_string(oui_oper_codec::encode(rec));
}

// vvlan_port_oper: ifx, enable, 3 bytes padding, mode.
inline std::string port_oper_value(uint32_t ifx, uint8_t enable, uint32_t mode) {
    return as_string(port_oper_codec::encode({ifx, enable, mode}));
}

// mac_vlan_value: ifx, type, oper, entry.mac, entry.mask, entry.vid,
// priority, flag, field.
inline std::string mac_vlan_bytes(const mac6 &mac, const mac6 &mask, uint16_t vid, int32_t ifx = 4,
                                  int32_t type = 1, int32_t oper = 2, uint8_t priority = 6,
                                  uint8_t flag = 7, uint8_t field = 8) {
    return as_string(
        mac_vlan_codec::encode({ifx, type, oper, mac, mask, vid, priority, flag, field}));
}

inline std::string be16_bytes(uint16_t v) {
    return as_string(pre_entry_idx_codec::encode(v));
}

inline std::string be32_bytes(uint32_t v) {
    return as_string(join_request_codec::encode(v));
}

} // namespace testcommon
