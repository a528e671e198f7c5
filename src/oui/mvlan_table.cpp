// SPDX-License-Identifier: BSD-3-Clause
#include "oui/mvlan_table.h"

#include "bus/bus_write.h"
#include "handler/handler_steps.h"
#include "oui/oui_table.h"
#include "settings/vvlan_table.h"
#include "wire/key_scan.h"

std::array<mvlan_entry, MVLAN_TABLE_MAX> g_mvlan_table{};

namespace {

// The key number, or -1 when it cannot be read or addresses no entry.
int32_t mvlan_index(std::string_view key) {
    key_scan scan(key);
    int32_t number = 0;
    if (!scan.literal(prefix_of(key_family::mac_vlan)) || !scan.int32(&number)) {
        return -1;
    }
    if (number < MAC_VLAN_KEY_BASE || number >= MAC_VLAN_KEY_BASE + MAC_VLAN_ENTRIES) {
        return -1;
    }
    return number - MAC_VLAN_KEY_BASE;
}

} // namespace

// The message key is per OUI slot, not per entry: entries sharing an OUI
// share it, and unlinking any one of them deletes it. Kept so.
void set_mvlan_redis(uint16_t slot, int add) {
    TRACE_INFO("set_mvlan_redis start");
    const key_buf key = mvlan_oui_msg_key(slot);
    TRACE_INFO("key=%s", key.c_str());
    if (add != 0) {
        bus_set_u16(DB_STATE, key.c_str(), slot);
        TRACE_INFO("add mvlan oui entry msg to yem");
    } else {
        bus_del(DB_STATE, key.c_str());
        TRACE_INFO("del mvlan oui entry msg to yem");
    }
    TRACE_INFO("set_mvlan_redis end");
}

// Re-announces the MAC-VLAN OUI messages of filled entries for the voice VLAN
// and withdraws the others. Disabling only lowers the flags: no message is
// withdrawn then, as it always has been.
void set_mvlan_oui() {
    TRACE_INFO("set_mvlan_oui start");
    if (g_vvlan_table.status == 0) {
        for (mvlan_entry &entry : g_mvlan_table) {
            entry.oui_flag = 0;
        }
        return;
    }
    for (std::size_t i = 0; i < g_mvlan_table.size(); ++i) {
        mvlan_entry &entry = g_mvlan_table[i];
        if (entry.oui_fill == 0) {
            continue;
        }
        TRACE_INFO("g_mvlan_table %d entry fill the vvlan oui", static_cast<int>(i));
        if (entry.mvlan_vid == g_vvlan_table.vid) {
            set_mvlan_redis(entry.oui_idx, 1);
            entry.oui_flag = 1;
        } else {
            TRACE_INFO("This mvlan entry vid is not fill");
            set_mvlan_redis(entry.oui_idx, 0);
        }
    }
    TRACE_INFO("set_mvlan_oui end");
}

// A filled entry is not replaced by a re-written key: it keeps its VLAN id
// and address until its key is deleted. Kept so.
bool maintain_mvlan_table(mac_vlan_value *value, int32_t index) {
    if (value == nullptr) {
        TRACE_INFO("mvlan is NULL!");
        return false;
    }
    mvlan_entry &entry = g_mvlan_table[static_cast<std::size_t>(index)];
    if (entry.mvlan_oui) {
        TRACE_INFO("The idx %d of g_mvlan_table is exist entry", index);
        return true;
    }
    entry.mvlan_vid = value->vid;
    mvlan_oui_ptr copy(static_cast<mac_addr *>(std::malloc(sizeof(mac_addr))));
    if (!copy) {
        TRACE_INFO("malloc failed");
        return false;
    }
    value->mac = mac_and(value->mac, value->mask);
    TRACE_INFO("mvlan->entry.mac=0x%02x%02x%02x", value->mac[0], value->mac[1], value->mac[2]);
    *copy = value->mac;
    entry.mvlan_oui = std::move(copy);
    TRACE_INFO("g_mvlan_table[%d].mvlan_oui=0x%02x%02x%02x%02x%02x%02x, mvlan_vid = %d", index,
               MAC_ARGS(*entry.mvlan_oui), entry.mvlan_vid);
    return true;
}

// The OUI match runs on every set, also for an entry that was already
// filled, so a linked entry writes its message key once more. Without a
// match the entry's earlier link state stays as it was.
bool add_mvlan(mac_vlan_value *value, int32_t index) {
    if (!maintain_mvlan_table(value, index)) {
        TRACE_INFO("maintain_mvlan_table failed");
        return false;
    }
    mvlan_entry &entry = g_mvlan_table[static_cast<std::size_t>(index)];
    if (!entry.mvlan_oui) {
        TRACE_INFO("g_mvlan_table[%d].mvlan_oui is NULL, error return!", index);
        return false;
    }
    const bool voice_vid = entry.mvlan_vid == g_vvlan_table.vid;
    if (voice_vid) {
        TRACE_INFO("the vid of mvlan entry is fill");
    }
    // The first in-use voice OUI with the entry's address; the OUI's mask is
    // not applied to the MAC-VLAN address.
    const std::size_t slot =
        for_each_enabled_oui(TRACE_SITE, [&](std::size_t, const vvlan_oui_oper &oui) {
            return mac_equal(oui.mac, *entry.mvlan_oui);
        });
    if (slot == VVLAN_OUI_MAX) {
        return true;
    }
    entry.oui_idx = static_cast<uint16_t>(slot);
    entry.oui_fill = 1;
    if (voice_vid) {
        set_mvlan_redis(entry.oui_idx, 1);
        entry.oui_flag = 1;
        TRACE_INFO("This mvlan entry is valid.");
    }
    TRACE_INFO("g_mvlan_table[%d].oui_flag=%d, oui_idx=%d, oui_fill=%d", index, entry.oui_flag,
               entry.oui_idx, entry.oui_fill);
    return true;
}

// Unlinks through every OUI slot with the entry's address, then frees the
// copy. mvlan_vid and oui_idx stay, and so does oui_fill of an unlinked
// entry.
void del_mvlan(int32_t index) {
    mvlan_entry &entry = g_mvlan_table[static_cast<std::size_t>(index)];
    if (!entry.mvlan_oui) {
        TRACE_INFO("g_mvlan_table[%d].mvlan_oui is NULL, error return!", index);
        return;
    }
    if (entry.oui_flag != 0) {
        const trace_site here = TRACE_SITE;
        for_each_enabled_oui(here, [&](std::size_t i, const vvlan_oui_oper &oui) {
            if (mac_equal(oui.mac, *entry.mvlan_oui)) {
                TRACE_INFO_AT(here, "find oui in g_vvlan_oui_table[%d].mac", static_cast<int>(i));
                set_mvlan_redis(static_cast<uint16_t>(i), 0);
                entry.oui_flag = 0;
                entry.oui_fill = 0;
            }
            return false; // every slot with the address, not only the first
        });
    }
    entry.mvlan_oui.reset();
    TRACE_INFO("free g_mvlan_table[%d] entry end", index);
}

// Key numbers start at 256. A number that cannot be read or addresses no
// entry is refused before the table is touched. 1 and 10 delete (exactly
// these two), 9 is ignored, anything else is a set.
int32_t get_mac_vlan_pmsg_f(tukredis_pmsg *pmsg) {
    if (const auto done = handler_open(TRACE_SITE, pmsg)) {
        return *done;
    }
    const int32_t index = mvlan_index(pmsg_key(pmsg));
    if (index < 0) {
        TRACE_ERR("mac_vlan key %.128s is not an entry of 256..383, dropped", pmsg->key);
        return -4;
    }
    TRACE_INFO("index: %d", index);
    if (pmsg->cmd == TUKREDIS_CMD_DEL || pmsg->cmd == TUKREDIS_CMD_EXPIRED) {
        del_mvlan(index);
        TRACE_ERR("get_mac_vlan_pmsg_f del end!"); // error level, as it always has been
        return 0;
    }
    mac_vlan_value value{};
    const value_read r = read_record<mac_vlan_codec>(TRACE_SITE, pmsg, "mac_vlan_value", &value);
    if (r != value_read::ok) {
        return read_failure_result(r);
    }
    TRACE_INFO("mac_vlan_value->ifx = %d, mac_vlan_value->type = %d, mac_vlan_value->oper = %d",
               value.ifx, value.type, value.oper);
    TRACE_INFO("mac_vlan_value->entry.mac=%02x%02x.%02x%02x.%02x%02x mac_vlan_value->entry.mask = "
               "%02x%02x.%02x%02x.%02x%02xmac_vlan_value->entry.vid = %d, "
               "mac_vlan_value->entry.priority = %d, mac_vlan_value->entry.flag = %d, "
               "mac_vlan_value->entry.field = %d",
               MAC_ARGS(value.mac), MAC_ARGS(value.mask), value.vid, value.priority, value.flag,
               value.field);
    if (!add_mvlan(&value, index)) {
        TRACE_INFO("add_mvlan failed");
        return -11;
    }
    TRACE_INFO("get_mac_vlan_pmsg_f end");
    return 0;
}
