// SPDX-License-Identifier: BSD-3-Clause
#include "autoport/spec_oui_msg.h"

#include "autoport/auto_port.h"
#include "autoport/join_request.h"
#include "handler/handler_steps.h"
#include "libsdm.h"
#include "oui/oui_table.h"
#include "settings/vvlan_table.h"
#include "wire/key_scan.h"

// The OUI part is read with "%s" (the rest of the key), of which the first 12
// characters are the address. Anything shorter or not hexadecimal is
// refused, so a port is never joined for an address nobody wrote.
bool get_auto_oui_key(std::string_view key, mac_addr *mac, int32_t *phyid) {
    const std::string_view text = key_rest_bounded(key, 4);
    TRACE_INFO("tmp_mac=%.*s", static_cast<int>(text.size()), text.data());
    if (!mac_from_hex(text, mac)) {
        TRACE_ERR("oui=%.*s is not 12 hex digits, dropped", static_cast<int>(text.size()),
                  text.data());
        return false;
    }
    TRACE_INFO("mac=0x%02x%02x%02x%02x%02x%02x", MAC_ARGS(*mac));
    *phyid = atoi32(key_component_bounded(key, 5));
    TRACE_INFO("phyid=%d", *phyid);
    return true;
}

// g_auto_oui_flag is global, not per port: while a set for an OUI is in
// force, a second set for it on any port is refused. The walk does not stop
// at a match, so with equal records every one is flagged and the last is the
// one used. A delete works on g_vvlan_table.oui_idx, not on the record found:
// when the delete is the one issued while removing an OUI record, that index
// is the removed record's slot, which the walk can no longer find. No port
// operation key is written and the port's enable is not checked on this
// path; a delete never takes the port out. All kept as designed.
spec_oui_result set_spec_oui(bool is_set, const mac_addr &mac, int32_t phyid) {
    TRACE_INFO("set_spec_oui start");
    const trace_site here = TRACE_SITE;
    int found = -1;
    bool refused = false;
    for_each_enabled_oui(here, [&](std::size_t i, const vvlan_oui_oper &entry) {
        if (!mac_equal(entry.mac, mac)) {
            return false;
        }
        TRACE_INFO_AT(here, "find oui in oui buffer!");
        found = static_cast<int>(i);
        if (!is_set) {
            g_auto_oui_flag[i] = 0;
            return false;
        }
        TRACE_INFO_AT(here, "g_auto_oui_flag[%d]=%d", found, g_auto_oui_flag[i]);
        if (g_auto_oui_flag[i] != 0) {
            TRACE_INFO_AT(here, "This oui has received mac learning msg");
            refused = true;
            return true;
        }
        g_auto_oui_flag[i] = 1;
        TRACE_INFO_AT(here, "g_auto_oui_flag[%d]=%d", found, g_auto_oui_flag[i]);
        return false;
    });
    if (refused) {
        return spec_oui_result::refused;
    }
    uint32_t ifx = 0;
    if (libsdm_get_ifx_by_phyid(static_cast<uint32_t>(phyid), &ifx, 2) != 0) {
        TRACE_INFO("libsdm_get_ifx_by_phyid failed");
        return spec_oui_result::fail;
    }
    if (!ifx_valid(ifx)) {
        TRACE_ERR("phyid=%d maps to ifx=%u, not a port, dropped", phyid, ifx);
        return spec_oui_result::fail;
    }
    TRACE_INFO("ifx=%d", static_cast<int>(ifx));
    vvlan_auto_port &port = g_vvlan_auto_port[ifx];
    auto_add_vvlan &seen = g_auto_add_vvlan_table[ifx];
    if (is_set) {
        if (found < 0) {
            TRACE_INFO("can't find oui in g_vvlan_oui_table, something wrong!");
            return spec_oui_result::fail;
        }
        set_mac2ce_global(ifx, 1);
        seen.oui_flag[static_cast<std::size_t>(found)] = OUI_FLAG_SPECIFIED;
        ++port.pri_oui_num;
        port.add_vvlan_flag = 1;
        TRACE_INFO("g_auto_add_vvlan_table[%d].oui_flag[%d] = %d", static_cast<int>(ifx), found,
                   seen.oui_flag[static_cast<std::size_t>(found)]);
        TRACE_INFO("pri_oui_num=%u", port.pri_oui_num);
        TRACE_INFO("add_vvlan_flag=%d", static_cast<int>(port.add_vvlan_flag));
        TRACE_INFO("set_spec_oui end");
        return spec_oui_result::done;
    }
    const std::size_t j = g_vvlan_table.oui_idx;
    if (j >= VVLAN_OUI_MAX) {
        TRACE_ERR("oui_idx=%d is not a slot, dropped", static_cast<int>(j));
        return spec_oui_result::fail;
    }
    seen.oui_flag[j] = OUI_FLAG_NONE;
    TRACE_INFO("g_auto_add_vvlan_table[%d].oui_flag[%d] = %d", static_cast<int>(ifx),
               static_cast<int>(j), seen.oui_flag[j]);
    if (seen.oui_aged_flag[j] != 0) {
        TRACE_INFO("This mac address has been aged");
        return spec_oui_result::done;
    }
    if (port.pri_oui_num == 0) {
        TRACE_INFO("pri_oui_num for this auto mode port is 0!");
        return spec_oui_result::done;
    }
    --port.pri_oui_num;
    TRACE_INFO("pri_oui_num=%u", port.pri_oui_num);
    TRACE_INFO("set_spec_oui end");
    return spec_oui_result::done;
}

// 0 sets, 9 is ignored, anything else deletes. The value is never read.
int32_t get_spec_oui_pmsg_f(tukredis_pmsg *pmsg) {
    if (const auto done = handler_open(TRACE_SITE, pmsg, expiry_test::before_record)) {
        return *done;
    }
    const bool is_set = pmsg->cmd == TUKREDIS_CMD_SET;
    mac_addr mac{};
    int32_t phyid = 0;
    if (!get_auto_oui_key(pmsg_key(pmsg), &mac, &phyid)) {
        return -4;
    }
    const spec_oui_result result = set_spec_oui(is_set, mac, phyid);
    if (result == spec_oui_result::fail) {
        TRACE_INFO("set_spec_oui failed");
        return -11;
    }
    if (result == spec_oui_result::refused) {
        return 0; // a second set for an OUI already in force: nothing changes
    }
    TRACE_INFO("get_spec_oui_pmsg_f end");
    return 0;
}
