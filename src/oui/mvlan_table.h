// SPDX-License-Identifier: BSD-3-Clause
// The MAC-VLAN linkage table: follows "/bridge/mac_vlan/table/<n>" in
// database 0 and publishes "/bridge/vvlan/mvlan_oui_msg/<slot>" for the peer
// component yem while an entry of the voice VLAN carries a voice OUI.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "tukredis.h"
#include "wire/keys.h"
#include "wire/values.h"

inline constexpr std::size_t MVLAN_TABLE_MAX = MAC_VLAN_ENTRIES;

struct malloc_free {
    void operator()(mac_addr *p) const { std::free(p); }
};

// The table's only heap memory: the masked address, owned by the entry.
using mvlan_oui_ptr = std::unique_ptr<mac_addr, malloc_free>;

struct mvlan_entry {
    uint16_t mvlan_vid;      // VLAN id of the MAC-VLAN entry
    mvlan_oui_ptr mvlan_oui; // null = the entry is free
    uint8_t oui_fill;        // 1 = the address is an in-use voice OUI
    uint16_t oui_idx;        // that OUI's slot
    uint8_t oui_flag;        // 1 = linked: its message key is written
};

// Main thread only.
extern std::array<mvlan_entry, MVLAN_TABLE_MAX> g_mvlan_table;

// "/bridge/mac_vlan/table/*", database 0
int32_t get_mac_vlan_pmsg_f(tukredis_pmsg *pmsg);
bool add_mvlan(mac_vlan_value *value, int32_t index);
bool maintain_mvlan_table(mac_vlan_value *value, int32_t index);
void del_mvlan(int32_t index);
void set_mvlan_redis(uint16_t slot, int add);
// The MAC-VLAN OUI messages after a voice VLAN id notification: announced for
// linked entries of the voice VLAN, withdrawn for the others.
void set_mvlan_oui();
