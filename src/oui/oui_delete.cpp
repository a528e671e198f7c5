// SPDX-License-Identifier: BSD-3-Clause
#include "oui/oui_delete.h"

#include "autoport/auto_port.h"
#include "bus/bus_write.h"
#include "libsdm.h"
#include "oui/mvlan_table.h"
#include "oui/oui_table.h"
#include "settings/vvlan_table.h"
#include "trace/trace.h"
#include "wire/key_scan.h"
#include "wire/keys.h"

// The address component is read with "%s", which stops only at white space,
// so it holds the rest of the key ("00e0bb000000/ffffff000000"); only its
// first 12 characters count. A pair that is not hexadecimal gives 0.
void get_oui_key(std::string_view key, mac_addr *mac, mac_addr *mask) {
    mac->fill(0);
    mask->fill(0);
    const std::string_view addr_text = key_rest_bounded(key, 4);
    TRACE_INFO("tmp_mac=%.*s", static_cast<int>(addr_text.size()), addr_text.data());
    mac_from_hex(addr_text, mac);
    mac_from_hex(key_rest_bounded(key, 5), mask);
    TRACE_INFO("mac=0x%02x%02x%02x%02x%02x%02x", MAC_ARGS(*mac));
    TRACE_INFO("mask=0x%02x%02x%02x%02x%02x%02x", MAC_ARGS(*mask));
}

void del_oui_oper_redis(const mac_addr &tmp_mac, const mac_addr &mask, uint16_t slot) {
    const key_buf key = oui_echo_key(tmp_mac, mask, slot);
    TRACE_INFO("key=%s", key.c_str());
    bus_del(DB_STATE, key.c_str());
}

// The specified-OUI message is named by the address as the deleted key wrote
// it, unmasked, and the port's physical id.
int32_t del_spec_oui_msg_key(uint32_t ifx, const mac_addr &mac) {
    uint32_t phyid = 0;
    if (libsdm_get_phyid_by_ifx(ifx, &phyid, 2) != 0) {
        TRACE_INFO("libsdm_get_phyid_by_ifx() failed");
        return -11;
    }
    TRACE_INFO("phyid = %u", phyid);
    const key_buf key = spec_oui_msg_key(mac, static_cast<int32_t>(phyid));
    TRACE_INFO("key=%s", key.c_str());
    bus_del(DB_STATE, key.c_str());
    return 0;
}

// The record is found under its own mask, not the key's. There is no
// rollback: a device-manager failure on one port leaves the slot freed and
// the echo deleted, and skips the remaining ports and the MAC-VLAN entries.
// Ports keep their voice VLAN membership until aging removes them.
bool del_oui(const mac_addr &mac, const mac_addr &mask) {
    const trace_site here = TRACE_SITE;
    mac_addr tmp_mac{};
    const std::size_t slot =
        for_each_enabled_oui(here, [&](std::size_t, const vvlan_oui_oper &entry) {
            tmp_mac = mac_and(mac, entry.mask);
            TRACE_INFO_AT(here, "tmp_mac=0x%02x%02x%02x%02x%02x%02x", MAC_ARGS(tmp_mac));
            return mac_equal(entry.mac, tmp_mac);
        });
    if (slot == VVLAN_OUI_MAX) {
        TRACE_INFO("can't find oui in g_vvlan_oui_table, something wrong!");
        return false;
    }
    TRACE_INFO("i=%d", static_cast<int>(slot));
    g_vvlan_oui_table[slot] = vvlan_oui_oper{};
    g_vvlan_table.oui_idx = static_cast<uint16_t>(slot);
    --g_vvlan_table.oui_num;
    TRACE_INFO("oui_num=%d", g_vvlan_table.oui_num);
    TRACE_INFO("oui_del_idx=%d", g_vvlan_table.oui_idx);
    del_oui_oper_redis(tmp_mac, mask, static_cast<uint16_t>(slot));

    for (std::size_t ifx = 0; ifx < VVLAN_PORT_MAX; ++ifx) {
        auto_add_vvlan &seen = g_auto_add_vvlan_table[ifx];
        vvlan_auto_port &port = g_vvlan_auto_port[ifx];
        if (seen.oui_flag[slot] == OUI_FLAG_LEARNED) {
            seen.oui_flag[slot] = OUI_FLAG_NONE;
            --port.pri_oui_num; // unsigned, no floor: 0 wraps, as it always has
            TRACE_INFO("g_vvlan_auto_port[%d].pri_oui_num = %d", static_cast<int>(ifx),
                       static_cast<int>(port.pri_oui_num));
            TRACE_INFO("g_auto_add_vvlan_table[%d].oui_flag[%d] = %d", static_cast<int>(ifx),
                       static_cast<int>(slot), seen.oui_flag[slot]);
        } else if (seen.oui_flag[slot] == OUI_FLAG_SPECIFIED && seen.oui_aged_flag[slot] != 0) {
            // The deletion comes back to the specified-OUI handler as a
            // removal; the port's flags stay as they are here.
            const int32_t rv = del_spec_oui_msg_key(static_cast<uint32_t>(ifx), mac);
            if (rv != 0) {
                TRACE_INFO("del_spec_oui_msg_key failed, error code =%d", rv);
                return false;
            }
        }
    }

    for (std::size_t i = 0; i < g_mvlan_table.size(); ++i) {
        mvlan_entry &entry = g_mvlan_table[i];
        if (entry.oui_flag == 0 || !entry.mvlan_oui || !mac_equal(*entry.mvlan_oui, tmp_mac)) {
            continue;
        }
        set_mvlan_redis(static_cast<uint16_t>(slot), 0);
        entry.oui_flag = 0;
        entry.oui_fill = 0;
        TRACE_INFO("g_mvlan_table[%d].oui_flag=%d", static_cast<int>(i), entry.oui_flag);
        TRACE_INFO("This mvlan entry is invalid.");
    }
    return true;
}

bool del_oui_oper(std::string_view key) {
    mac_addr mac{};
    mac_addr mask{};
    get_oui_key(key, &mac, &mask);
    if (!del_oui(mac, mask)) {
        TRACE_INFO("del_oui failed");
        return false;
    }
    return true;
}
