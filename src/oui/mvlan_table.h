// The MAC-VLAN linkage table: follows "/bridge/mac_vlan/table/<n>" in
// database 0 and publishes "/bridge/vvlan/mvlan_oui_msg/<slot>" for the peer
// component yem while an entry of the voice VLAN carries a voice OUI.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "oui/mac_addr.h"
#include "tukredis.h"

inline constexpr std::size_t MVLAN_TABLE_MAX = 128;
inline constexpr int32_t MVLAN_KEY_BASE = 256; // key numbers 256..383 are entries 0..127
inline constexpr uint32_t MAC_VLAN_VALUE_LEN = 29;

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

// mac_vlan_value, big-endian on the wire:
//   0-3 ifx, 4-7 type, 8-11 oper (traced only), 12-17 entry.mac,
//   18-23 entry.mask, 24-25 entry.vid, 26 priority, 27 flag, 28 field
struct mac_vlan_value {
    int32_t ifx;
    int32_t type;
    int32_t oper;
    mac_addr mac;
    mac_addr mask;
    uint16_t vid;
    uint8_t priority;
    uint8_t flag;
    uint8_t field;
};

mac_vlan_value mac_vlan_value_decode(const uint8_t *bytes); // reads 29 bytes

// "/bridge/mac_vlan/table/*", database 0
int32_t get_mac_vlan_pmsg_f(tukredis_pmsg *pmsg);
bool add_mvlan(mac_vlan_value *value, int32_t index);
bool maintain_mvlan_table(mac_vlan_value *value, int32_t index);
void del_mvlan(int32_t index);
void set_mvlan_redis(uint16_t slot, int add);
