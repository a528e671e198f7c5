// SPDX-License-Identifier: BSD-3-Clause
#include "autoport/mac_learning.h"

#include <algorithm>

#include "autoport/auto_port.h"
#include "autoport/join_request.h"
#include "autoport/port_oper.h"
#include "handler/handler_steps.h"
#include "libsdm.h"
#include "oui/oui_table.h"
#include "settings/vvlan_table.h"
#include "wire/key_scan.h"

// Only the VLAN id is compared, not whether the voice VLAN is enabled: the
// id of the last vid key stays after a disable, so learnings in that VLAN
// are still handled then (and before any vid key, vid is 0).
fw_check oui_fw_check(std::string_view key, uint32_t *ifx, mac_addr *mac) {
    // "/bri/mac/macTblDyn_vvlan/<brg_id>/<phyid>/<mac>", read in one pass that
    // stops at the VLAN when it is not the voice VLAN.
    key_walk walk(key);
    walk.next();
    walk.next();
    walk.next();
    const int32_t brg_id = atoi32(walk.next());
    if (brg_id != g_vvlan_table.vid) {
        TRACE_INFO("g_vvlan_table.vid=%d, op_args.key.brg_id=%d", g_vvlan_table.vid, brg_id);
        return fw_check::ignore;
    }
    const int32_t phyid = atoi32(walk.next());
    if (libsdm_get_ifx_by_phyid(static_cast<uint32_t>(phyid), ifx, 2) != 0) {
        TRACE_INFO("libsdm_get_ifx_by_phyid failed");
        return fw_check::fail;
    }
    if (!ifx_valid(*ifx)) {
        TRACE_ERR("phyid=%d maps to ifx=%u, not a port, dropped", phyid, *ifx);
        return fw_check::fail;
    }
    if (g_vvlan_auto_port[*ifx].enable == 0) {
        TRACE_INFO("!g_vvlan_auto_port[%d].enable=%d", static_cast<int>(*ifx),
                   static_cast<int>(g_vvlan_auto_port[*ifx].enable));
        return fw_check::ignore;
    }
    const std::string_view mac_text = walk.rest();
    if (!mac_from_hex(mac_text, mac)) {
        TRACE_ERR("mac=%.*s is not 12 hex digits, dropped",
                  static_cast<int>(std::min(mac_text.size(), KEY_COMPONENT_MAX)), mac_text.data());
        return fw_check::bad_key;
    }
    return fw_check::proceed;
}

// The lowest enabled record whose mac equals the address under the record's
// mask (all six bytes, not only the first three). Untraced, the walk is
// oui_first_match's: this is every learning's cost.
bool is_vvlan_oui(const mac_addr &mac, uint16_t *idx) {
    std::size_t i = VVLAN_OUI_MAX;
    if (dov_vvlan_trace_on(DBG_INFO)) {
        const uint64_t address = mac_bits(mac);
        i = for_each_enabled_oui(TRACE_SITE, [&](std::size_t, const vvlan_oui_oper &e) {
            return (address & mac_bits(e.mask)) == mac_bits(e.mac);
        });
    } else {
        i = oui_first_match(mac);
    }
    if (i == VVLAN_OUI_MAX) {
        TRACE_INFO("isn't vvlan  oui start");
        return false;
    }
    TRACE_INFO("i=%d", static_cast<int>(i));
    *idx = static_cast<uint16_t>(i);
    return true;
}

void set_oui_aged_flag(uint32_t ifx, uint16_t idx, bool learned) {
    uint8_t &aged = g_auto_add_vvlan_table[ifx].oui_aged_flag[idx];
    aged = learned ? 0 : 1;
    TRACE_INFO("g_auto_add_vvlan_table[%d].oui_aged_flag[%d]=%d", static_cast<int>(ifx), idx, aged);
}

// The counter is per port, not per address or per OUI: every learning counts
// and every ageing uncounts, however often an address repeats. Only
// refresh_flag is written under g_flag_lock; that is the handshake with the
// aging thread.
void set_oui_msg(uint32_t ifx, uint16_t idx, bool learned) {
    TRACE_INFO("set oui msg start");
    vvlan_auto_port &port = g_vvlan_auto_port[ifx];
    uint8_t &oui_flag = g_auto_add_vvlan_table[ifx].oui_flag[idx];
    set_oui_aged_flag(ifx, idx, learned);
    if (learned) {
        ++port.pri_oui_num;
        TRACE_INFO("pri_oui_num=%u", port.pri_oui_num);
        if (oui_flag != OUI_FLAG_SPECIFIED) { // a specified-OUI mark is kept
            oui_flag = OUI_FLAG_LEARNED;
        }
        TRACE_INFO("g_auto_add_vvlan_table[%d].oui_flag[%d] = %d", static_cast<int>(ifx), idx,
                   oui_flag);
        {
            const flag_lock_guard lock;
            port.refresh_flag = 1;
        }
        port.aging_flag = 0;
        if (port.add_vvlan_flag == 1) {
            TRACE_INFO("This auto mode port has add to VVLAN");
        } else {
            port.add_vvlan_flag = 1;
            const vvlan_port_oper rec{ifx, 1, PORT_MODE_JOINED};
            TRACE_INFO("ifx=%d, mode=%d", static_cast<int>(rec.ifx), static_cast<int>(rec.mode));
            set_port_oper_redis(rec);
            set_mac2ce_global(ifx, 1);
        }
    } else {
        if (port.pri_oui_num == 0) {
            return; // nothing outstanding: not even the end line
        }
        --port.pri_oui_num;
        TRACE_INFO("pri_oui_num=%u", port.pri_oui_num);
        if (port.pri_oui_num == 0) {
            if (g_vvlan_table.status == 0 && port.add_vvlan_flag == 1) {
                // With the voice VLAN off there is no aging thread: leave at
                // once. The join key stays; only aging deletes it.
                del_port_oper_redis(static_cast<int32_t>(ifx), PORT_MODE_JOINED);
            } else {
                port.aging_flag = 1;
                TRACE_INFO("g_vvlan_auto_port[%d].aging_flag=%d", static_cast<int>(ifx),
                           static_cast<int>(port.aging_flag));
            }
        }
    }
    TRACE_INFO("set oui msg end");
}

// Code 2 is a learned address (NA), 9 is ignored, anything else is an aged
// one (AA). Only the key and the code are used; the value is never read.
int32_t get_mac_notify_pmsg_f(tukredis_pmsg *pmsg) {
    if (const auto done = handler_open(TRACE_SITE, pmsg, expiry_test::before_record)) {
        return *done;
    }
    const bool learned = pmsg->cmd == TUKREDIS_CMD_NEW_ADDR;
    if (learned) {
        TRACE_INFO("It is NA notification");
    } else {
        TRACE_INFO("It is AA notification");
    }
    uint32_t ifx = 0;
    mac_addr mac{};
    const fw_check check = oui_fw_check(pmsg_key(pmsg), &ifx, &mac);
    if (check == fw_check::fail) {
        TRACE_INFO("oui_fw_check failed");
        return -11;
    }
    if (check != fw_check::proceed) {
        return check == fw_check::ignore ? 0 : -4; // another VLAN or port; a bad key
    }
    uint16_t idx = 0;
    if (!is_vvlan_oui(mac, &idx)) {
        return 0;
    }
    set_oui_msg(ifx, idx, learned);
    TRACE_INFO("get_mac_notify_pmsg_f end");
    return 0;
}
