// SPDX-License-Identifier: BSD-3-Clause
#include "autoport/port_oper.h"

#include "autoport/auto_port.h"
#include "bus/bus_write.h"
#include "handler/handler_steps.h"
#include "settings/vvlan_table.h"
#include "wire/key_scan.h"

// Mode 1 puts the port in automatic mode whatever the record's own enable
// byte says; mode 2 was already applied by the join. Either way the key is
// echoed into database 0 with the current OUI index.
void set_port_oper_redis(const vvlan_port_oper &rec) {
    TRACE_INFO("set_port_oper_redis start");
    TRACE_INFO("vvlan_port_oper->ifx=%d, vvlan_port_oper->mode=%d, vvlan_port_oper->enable=%d",
               static_cast<int>(rec.ifx), static_cast<int>(rec.mode), rec.enable);
    if (!ifx_valid(rec.ifx)) {
        TRACE_ERR("ifx=%u is not a port, dropped", rec.ifx);
        return;
    }
    if (rec.mode == PORT_MODE_AUTO) {
        g_vvlan_auto_port[rec.ifx].enable = 1;
    }
    const key_buf key =
        port_oper_key(static_cast<int32_t>(rec.ifx), static_cast<int32_t>(rec.mode));
    TRACE_INFO("key=%s", key.c_str());
    const auto value = pre_entry_idx_codec::encode(g_vvlan_table.oui_idx);
    bus_set_raw(DB_STATE, key.c_str(), value.data(), value.size());
    TRACE_INFO("set_port_oper_redis end");
}

// Leaving automatic mode takes a joined port out of the voice VLAN (its mode
// 2 key), but leaves its MAC-table join key, its per-OUI flags and its
// refresh_flag alone, and takes no lock: only aging deletes the join key.
// That asymmetry is kept as designed.
void del_port_oper_redis(int32_t ifx, int32_t mode) {
    TRACE_INFO("del_port_oper_redis start");
    TRACE_INFO("ifx=%d, mode=%d", ifx, mode);
    if (!ifx_valid(ifx)) {
        TRACE_ERR("ifx=%d is not a port, dropped", ifx);
        return;
    }
    vvlan_auto_port &port = g_vvlan_auto_port[static_cast<std::size_t>(ifx)];
    if (mode == static_cast<int32_t>(PORT_MODE_AUTO)) {
        port.pri_oui_num = 0;
        port.enable = 0;
        TRACE_INFO("ifx=%d: pri_oui_num=%d, auto mode enable=%d", ifx,
                   static_cast<int>(port.pri_oui_num), static_cast<int>(port.enable));
    } else if (mode == static_cast<int32_t>(PORT_MODE_JOINED)) {
        port.add_vvlan_flag = 0;
        port.aging_flag = 0;
    }
    const key_buf key = port_oper_key(ifx, mode);
    TRACE_INFO("key=%s", key.c_str());
    bus_del(DB_STATE, key.c_str());

    if (mode == static_cast<int32_t>(PORT_MODE_AUTO) && port.add_vvlan_flag != 0) {
        // exit_auto_port, inlined
        TRACE_INFO("exit_auto_port start");
        TRACE_INFO("ifx=%d, mode=%d", ifx, static_cast<int>(PORT_MODE_JOINED));
        const key_buf joined = port_oper_key(ifx, static_cast<int32_t>(PORT_MODE_JOINED));
        TRACE_INFO("key=%s", joined.c_str());
        bus_del(DB_STATE, joined.c_str());
        TRACE_INFO("exit_auto_port end");
        port.add_vvlan_flag = 0;
        port.aging_flag = 0;
        TRACE_INFO("ifx=%d: add_vvlan_flag=%d", ifx, static_cast<int>(port.add_vvlan_flag));
    }
    TRACE_INFO("del_port_oper_redis end");
}

// A set reads the 12-byte record; a removal parses ifx and mode from the key.
// An ifx that is not a port, a short record or an unreadable key is dropped
// with a trace before any table is touched.
int32_t get_port_oper_pmsg_f(tukredis_pmsg *pmsg) {
    if (const auto done = handler_open(TRACE_SITE, pmsg)) {
        return *done;
    }
    if (pmsg->cmd == TUKREDIS_CMD_SET) {
        vvlan_port_oper rec{};
        const value_read r =
            read_record<port_oper_codec>(TRACE_SITE, pmsg, "vvlan_port_oper", &rec);
        if (r != value_read::ok) {
            return read_failure_result(r);
        }
        TRACE_INFO("vvlan_port_oper->ifx=%d, vvlan_port_oper->mode=%d, vvlan_port_oper->enable=%d",
                   static_cast<int>(rec.ifx), static_cast<int>(rec.mode), rec.enable);
        if (!ifx_valid(rec.ifx)) {
            TRACE_ERR("ifx=%u is not a port, dropped", rec.ifx);
            return -4;
        }
        set_port_oper_redis(rec);
    } else {
        key_scan scan(pmsg_key(pmsg));
        int32_t ifx = 0;
        int32_t mode = 0;
        if (!scan.literal(prefix_of(key_family::port_oper)) || !scan.int32(&ifx) ||
            !scan.literal("/") || !scan.int32(&mode)) {
            TRACE_ERR("key %.128s has no ifx/mode, dropped", pmsg->key);
            return -4;
        }
        TRACE_INFO("ifx=%d, mode=%d", ifx, mode);
        if (!ifx_valid(ifx)) {
            TRACE_ERR("ifx=%d is not a port, dropped", ifx);
            return -4;
        }
        del_port_oper_redis(ifx, mode);
        TRACE_INFO("del_port_oper_redis end");
    }
    TRACE_INFO("get_port_oper_pmsg_f end");
    return 0;
}
