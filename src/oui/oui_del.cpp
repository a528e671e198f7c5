#include "oui/oui_del.h"

#include <algorithm>

#include "autoport/auto_port.h"
#include "bus/bus_write.h"
#include "bus/key_buf.h"
#include "bus/key_scan.h"
#include "libsdm.h"
#include "oui/mvlan_table.h"
#include "oui/oui_table.h"
#include "settings/vvlan_table.h"
#include "trace/trace.h"

namespace {

// The key components were read into 64-byte buffers; only the first 12
// characters are ever used, and a trace shows at most 63.
constexpr std::size_t COMPONENT_MAX = 63;

std::string_view bounded(std::string_view text) {
    return text.substr(0, std::min(text.size(), COMPONENT_MAX));
}

} // namespace

// The address component is read with "%s", which stops only at white space,
// so it holds the rest of the key ("00e0bb000000/ffffff000000"); only its
// first 12 characters count. A pair that is not hexadecimal gives 0.
void get_oui_key(std::string_view key, mac_addr *mac, mac_addr *mask) {
    mac->fill(0);
    mask->fill(0);
    const std::string_view addr_text = bounded(key_rest(key, 4));
    TRACE_INFO("tmp_mac=%.*s", static_cast<int>(addr_text.size()), addr_text.data());
    mac_from_hex(addr_text, mac);
    mac_from_hex(bounded(key_rest(key, 5)), mask);
    TRACE_INFO("mac=0x%02x%02x%02x%02x%02x%02x", MAC_ARGS(*mac));
    TRACE_INFO("mask=0x%02x%02x%02x%02x%02x%02x", MAC_ARGS(*mask));
}

void del_oui_oper_redis(const mac_addr &tmp_mac, const mac_addr &mask, uint16_t slot) {
    const key_buf key = key_printf("%s%02x%02x%02x%02x%02x%02x/%02x%02x%02x%02x%02x%02x/%hu",
                                   "/bridge/vvlan/oui_oper/", MAC_ARGS(tmp_mac), MAC_ARGS(mask),
                                   static_cast<unsigned short>(slot));
    TRACE_INFO("key=%s", key.c_str());
    bus_del(BUS_DB_STATE, key.c_str());
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
    const key_buf key = key_printf("%s%02x%02x%02x%02x%02x%02x/%d", "/bridge/vvlan/spec_oui_msg/",
                                   MAC_ARGS(mac), static_cast<int>(phyid));
    TRACE_INFO("key=%s", key.c_str());
    bus_del(BUS_DB_STATE, key.c_str());
    return 0;
}

// The record is found under its own mask, not the key's. There is no
// rollback: a device-manager failure on one port leaves the slot freed and
// the echo deleted, and skips the remaining ports and the MAC-VLAN entries.
// Ports keep their voice VLAN membership until aging removes them.
bool del_oui(const mac_addr &mac, const mac_addr &mask) {
    mac_addr tmp_mac{};
    std::size_t slot = VVLAN_OUI_MAX;
    for (std::size_t i = 0; i < VVLAN_OUI_MAX; ++i) {
        const vvlan_oui_oper &entry = g_vvlan_oui_table[i];
        if (entry.enable == 0) {
            continue;
        }
        TRACE_INFO("entry(%d) is ENABLED", static_cast<int>(i));
        tmp_mac = mac_and(mac, entry.mask);
        TRACE_INFO("tmp_mac=0x%02x%02x%02x%02x%02x%02x", MAC_ARGS(tmp_mac));
        if (entry.mac == tmp_mac) {
            slot = i;
            break;
        }
    }
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
        if (entry.oui_flag == 0 || !entry.mvlan_oui || *entry.mvlan_oui != tmp_mac) {
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
