// SPDX-License-Identifier: BSD-3-Clause
#include "oui/oui_add.h"

#include "bus/bus_write.h"
#include "handler/handler_steps.h"
#include "oui/mvlan_table.h"
#include "oui/oui_delete.h"
#include "settings/vvlan_table.h"
#include "wire/keys.h"

// The echo carries g_vvlan_table.oui_idx, the slot last deleted, not the slot
// just filled: adding never updates it. Kept so.
void set_oui_oper_redis(const vvlan_oui_oper &rec, uint16_t slot) {
    const key_buf key = oui_echo_key(rec.mac, rec.mask, slot);
    const auto value = oui_echo_codec::encode(oui_echo{g_vvlan_table.oui_idx, rec});
    TRACE_INFO("key=%s", key.c_str());
    bus_set_raw(DB_STATE, key.c_str(), value.data(), value.size());
}

// Links every MAC-VLAN entry of the voice VLAN's id that carries the new
// OUI. Only the id is compared, not whether the voice VLAN is enabled.
void find_mvlan_oui(const vvlan_oui_oper &rec, uint16_t slot) {
    for (std::size_t i = 0; i < g_mvlan_table.size(); ++i) {
        mvlan_entry &entry = g_mvlan_table[i];
        if (entry.mvlan_vid != g_vvlan_table.vid || !entry.mvlan_oui ||
            !mac_equal(*entry.mvlan_oui, rec.mac)) {
            continue;
        }
        set_mvlan_redis(slot, 1);
        entry.oui_flag = 1;
        entry.oui_fill = 1;
        entry.oui_idx = slot;
        TRACE_INFO("g_mvlan_table[%d] : oui_flag=%d, oui_idx=%d", static_cast<int>(i),
                   entry.oui_flag, entry.oui_idx);
        TRACE_INFO("This mvlan entry is valid.");
    }
}

bool add_oui(const vvlan_oui_oper *rec, uint16_t *slot_out) {
    if (rec == nullptr) {
        TRACE_INFO("vvlan_oui_oper is NULL, error return");
        return false;
    }
    // An empty table reuses the slot freed last (slot 0 at start-up) without
    // a scan. Otherwise the OUI keeps the slot of an equal address (masks are
    // not compared), or takes the lowest free slot.
    std::size_t slot = VVLAN_OUI_MAX;
    bool is_new = true;
    if (g_vvlan_table.oui_num == 0) {
        slot = g_vvlan_table.oui_idx;
    } else {
        const trace_site here = TRACE_SITE;
        slot = for_each_enabled_oui(here, [&](std::size_t i, const vvlan_oui_oper &entry) {
            if (!mac_equal(entry.mac, rec->mac)) {
                return false;
            }
            TRACE_INFO_AT(here, "This oui is already exist , i=%d", static_cast<int>(i));
            is_new = false;
            return true;
        });
        for (std::size_t i = 0; is_new && i < VVLAN_OUI_MAX; ++i) {
            if (g_vvlan_oui_table[i].enable == 0) {
                TRACE_INFO("This idx of oui buffer is available :i=%d", static_cast<int>(i));
                slot = i;
                break;
            }
        }
    }
    if (slot >= VVLAN_OUI_MAX) {
        TRACE_INFO("Too much oui!");
        return false;
    }
    TRACE_INFO("oui_idx = %d", static_cast<int>(slot));
    // A re-written OUI is overwritten whole: a new mask and new extra bytes.
    vvlan_oui_oper &entry = g_vvlan_oui_table[slot];
    entry = *rec;
    entry.enable = 1;
    if (is_new) {
        ++g_vvlan_table.oui_num;
    }
    TRACE_INFO("oui=%02x%02x%02x%02x%02x%02x", MAC_ARGS(entry.mac));
    TRACE_INFO("mask=%02x%02x%02x%02x%02x%02x", MAC_ARGS(entry.mask));
    TRACE_INFO("oui enable=%d", entry.enable);
    TRACE_INFO("oui_num=%d", g_vvlan_table.oui_num);
    set_oui_oper_redis(*rec, static_cast<uint16_t>(slot));
    find_mvlan_oui(*rec, static_cast<uint16_t>(slot));
    *slot_out = static_cast<uint16_t>(slot);
    return true;
}

// A value shorter than the 44-byte record is refused like an unreadable one.
bool set_oui_oper(tukredis_pmsg *pmsg) {
    vvlan_oui_oper rec{};
    if (read_record<oui_oper_codec>(TRACE_SITE, pmsg, "vvlan_oui_oper", &rec) != value_read::ok) {
        return false;
    }
    TRACE_INFO("oui=%02x%02x%02x%02x%02x%02x", MAC_ARGS(rec.mac));
    TRACE_INFO("mask=%02x%02x%02x%02x%02x%02x", MAC_ARGS(rec.mask));
    rec.mac = mac_and(rec.mac, rec.mask);
    TRACE_INFO("oui=%02x%02x%02x%02x%02x%02x", MAC_ARGS(rec.mac));
    TRACE_INFO("mask=%02x%02x%02x%02x%02x%02x", MAC_ARGS(rec.mask));
    uint16_t slot = 0;
    if (!add_oui(&rec, &slot)) {
        TRACE_INFO("add_oui failed");
        return false;
    }
    return true;
}

// 0 adds, 9 is ignored, every other code deletes.
int32_t get_oui_oper_pmsg_f(tukredis_pmsg *pmsg) {
    if (const auto done = handler_open(TRACE_SITE, pmsg)) {
        return *done;
    }
    if (pmsg->cmd == TUKREDIS_CMD_SET) {
        if (!set_oui_oper(pmsg)) {
            TRACE_INFO("set_oui_oper failed");
            return -11;
        }
    } else if (!del_oui_oper(pmsg_key(pmsg))) {
        TRACE_INFO("del_oui_oper failed");
        return -11;
    }
    TRACE_INFO("get_oui_oper_pmsg_f end");
    return 0;
}
