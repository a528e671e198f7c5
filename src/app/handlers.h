// SPDX-License-Identifier: BSD-3-Clause
// The one place that binds each key family to the handler that serves it.
// Everything below the top of the daemon knows only its own keys; the
// subscription table and the re-synchronisation are built from this binding
// and the key family declarations.
#pragma once

#include "app/load_complete_marker.h"
#include "autoport/mac_learning.h"
#include "autoport/port_oper.h"
#include "autoport/spec_oui_msg.h"
#include "oui/mvlan_table.h"
#include "oui/oui_add.h"
#include "settings/age_timer.h"
#include "settings/cos_dscp.h"
#include "settings/secu_mode.h"
#include "settings/vid.h"
#include "trace/debug_level.h"
#include <optional>

#include "tukredis.h"
#include "wire/key_families.h"

// No handler for a family that is only written. Taking the handler of such
// a family while building a table at compile time does not compile, so the
// tables cannot hold a row without one. (An optional rather than a null
// pointer: a sanitizer build does not fold a function's address compared
// with null into a constant.)
constexpr std::optional<tukredis_handler> handler_of(key_family f) {
    switch (f) {
    case key_family::vid:
        return get_vid_pmsg_f;
    case key_family::secu_mode:
        return get_secu_mode_pmsg_f;
    case key_family::cos_dscp:
        return get_cos_dscp_pmsg_f;
    case key_family::age_timer:
        return get_age_timer_pmsg_f;
    case key_family::port_oper:
        return get_port_oper_pmsg_f;
    case key_family::oui_oper:
        return get_oui_oper_pmsg_f;
    case key_family::mac_learning:
        return get_mac_notify_pmsg_f;
    case key_family::spec_oui_msg:
        return get_spec_oui_pmsg_f;
    case key_family::mac_vlan:
        return get_mac_vlan_pmsg_f;
    case key_family::data_end:
        return get_data_end_pmsg_f;
    case key_family::debug_level:
        return dov_vvlan_dbg_pmsg_f;
    case key_family::mvlan_oui_msg:
        return std::nullopt; // written only
    }
    return std::nullopt;
}
