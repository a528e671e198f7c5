// SPDX-License-Identifier: BSD-3-Clause
// The switch the fault tests run: a voice VLAN, several voice OUIs,
// automatic ports with phones joined, MAC-VLAN entries. Every key and value
// comes from the shared key builders and codecs, never typed by hand.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "wire/key_families.h"
#include "wire/keys.h"
#include "wire/mac_addr.h"
#include "wire/values.h"

namespace faults {

inline constexpr uint16_t VOICE_VLAN = 100;
inline constexpr uint16_t OTHER_VLAN = 200;
inline constexpr uint16_t AGING_MINUTES = 60; // no port ages out during a test

struct voice_oui {
    mac_addr oui;
    mac_addr mask;
};

inline constexpr mac_addr MASK_24{0xff, 0xff, 0xff, 0x00, 0x00, 0x00};
// Added in this order, so they take slots 0, 1, 2 and 3; the last one is
// the one a test may remove, so the slots of the others never depend on it.
inline constexpr voice_oui OUI_A{{0x00, 0xe0, 0xbb, 0x00, 0x00, 0x00}, MASK_24};
inline constexpr voice_oui OUI_B{{0x00, 0x04, 0x0d, 0x00, 0x00, 0x00}, MASK_24};
inline constexpr voice_oui OUI_C{{0x00, 0x1b, 0x4f, 0x00, 0x00, 0x00}, MASK_24};
inline constexpr voice_oui OUI_LAST{{0x00, 0x90, 0x7a, 0x00, 0x00, 0x00}, MASK_24};
inline constexpr std::array<voice_oui, 4> VOICE_OUIS{OUI_A, OUI_B, OUI_C, OUI_LAST};
// Not a voice OUI: a PC behind a phone.
inline constexpr mac_addr PC_PREFIX{0x02, 0x11, 0x22, 0x00, 0x00, 0x00};

// Ports in automatic mode. 2, 4 and 6 get a phone in the configuration;
// the others wait for what a test does.
inline constexpr std::array<int32_t, 6> AUTO_PORTS{2, 4, 6, 8, 10, 12};
inline constexpr std::array<int32_t, 3> PHONE_PORTS{2, 4, 6};
inline constexpr int32_t MANUAL_PORT = 20; // never automatic

// The device manager's default map: phyid p is ifx p-1.
inline constexpr int32_t phyid_of(int32_t ifx) {
    return ifx + 1;
}

// A device of an OUI: its prefix with n in the last three bytes.
inline mac_addr device(const mac_addr &prefix, uint32_t n) {
    mac_addr m = prefix;
    m[3] = static_cast<uint8_t>(n >> 16);
    m[4] = static_cast<uint8_t>(n >> 8);
    m[5] = static_cast<uint8_t>(n);
    return m;
}

inline std::string key_text(const key_buf &key) {
    return key.c_str();
}

template <std::size_t N>
std::string value_text(const std::array<uint8_t, N> &bytes) {
    return std::string(bytes.begin(), bytes.end());
}

inline std::string oui_value(const voice_oui &o) {
    vvlan_oui_oper record{};
    record.mac = o.oui;
    record.mask = o.mask;
    record.enable = 1;
    return value_text(oui_oper_codec::encode(record));
}

inline std::string port_value(int32_t ifx, uint32_t mode) {
    return value_text(port_oper_codec::encode({static_cast<uint32_t>(ifx), 1, mode}));
}

inline std::string mac_vlan_value_of(const mac_addr &mac, const mac_addr &mask, uint16_t vlan) {
    mac_vlan_value v{};
    v.ifx = 3;
    v.type = 1;
    v.oper = 1;
    v.mac = mac;
    v.mask = mask;
    v.vid = vlan;
    return value_text(mac_vlan_codec::encode(v));
}

// What the daemon publishes as the 2-byte index while no OUI was ever
// deleted (live) in its lifetime.
inline std::string pre_entry_idx_value(uint16_t idx = 0) {
    return value_text(pre_entry_idx_codec::encode(idx));
}

inline std::string join_request_value(int32_t ifx) {
    return value_text(join_request_codec::encode(static_cast<uint32_t>(ifx)));
}

} // namespace faults
