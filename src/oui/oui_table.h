// The voice OUI table: 124 slots. A record's slot is the OUI's identity in
// every other table and message.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "oui/mac_addr.h"

inline constexpr std::size_t VVLAN_OUI_MAX = 124;
inline constexpr uint32_t VVLAN_OUI_OPER_LEN = 44; // the configured value
inline constexpr uint32_t VVLAN_OUI_ECHO_LEN = 46; // pre_entry_idx + the record
inline constexpr std::size_t VVLAN_OUI_EXTRA_LEN = 31;

// vvlan_oui_oper, also the wire layout of the configured value:
//   0-5 mac, 6-11 mask, 12 enable, 13-43 extra (carried, not interpreted)
struct vvlan_oui_oper {
    mac_addr mac; // in the table: always ANDed with mask
    mac_addr mask;
    uint8_t enable; // in the table: 1 = slot in use; in a value: ignored
    std::array<uint8_t, VVLAN_OUI_EXTRA_LEN> extra;
};

vvlan_oui_oper oui_oper_decode(const uint8_t *bytes);          // reads 44 bytes
void oui_oper_encode(const vvlan_oui_oper &rec, uint8_t *out); // writes 44 bytes

// Written by the main thread only; never touched by the aging thread.
extern std::array<vvlan_oui_oper, VVLAN_OUI_MAX> g_vvlan_oui_table;
