// SPDX-License-Identifier: BSD-3-Clause
// Who reads and writes each key, in which database, and with which value:
// the part of the key declarations that only people and tools need (the key
// reference, vvlanctl). Keys are the family's prefix and the tail given
// here; values are one of the codec's layouts, or decimal text.
#pragma once

#include <array>
#include <cstdint>

#include "wire/key_families.h"

enum class value_layout : uint8_t {
    none,    // the value is never read: only the key and the event count
    decimal, // an integer as decimal text
    port_oper,
    oui_oper,
    oui_echo,
    mac_vlan,
    cos_dscp,
    cos_dscp_echo,
    aging_time,
    join_request,
    pre_entry_idx,
};

struct key_use {
    key_family family;
    int32_t db;
    const char *tail;   // after the prefix; "" for an exact key or the bare prefix
    const char *writer; // who writes it
    const char *reader; // who reads it
    value_layout layout;
    const char *meaning;
};

inline constexpr const char *DAEMON = "dov_vvlan";
inline constexpr const char *MGMT = "management plane";
inline constexpr const char *FWD = "forwarding layer";

inline constexpr std::array<key_use, 20> KEY_USES = {{
    {key_family::vid, DB_CONFIG, "<id>", MGMT, DAEMON, value_layout::none,
     "present: the voice VLAN is on with this id; deleted: off"},
    {key_family::vid, DB_STATE, "<id>", DAEMON, "forwarding layer", value_layout::pre_entry_idx,
     "the applied voice VLAN id (in the key; the value is the OUI index)"},
    {key_family::secu_mode, DB_CONFIG, "<any>", MGMT, DAEMON, value_layout::none,
     "present: security mode on"},
    {key_family::secu_mode, DB_STATE, "", DAEMON, FWD, value_layout::decimal,
     "\"1\" while the voice VLAN and the security mode are both on; absent otherwise"},
    {key_family::cos_dscp, DB_CONFIG, "<any>", MGMT, DAEMON, value_layout::cos_dscp,
     "CoS and DSCP of voice traffic (further bytes ignored)"},
    {key_family::cos_dscp, DB_STATE, "", DAEMON, FWD, value_layout::cos_dscp_echo,
     "the last configured CoS and DSCP; never deleted by the daemon"},
    {key_family::age_timer, DB_CONFIG, "<any>", MGMT, DAEMON, value_layout::aging_time,
     "the aging time; not published (database-0 keys here are swept)"},
    {key_family::port_oper, DB_CONFIG, "<ifx>/1", MGMT, DAEMON, value_layout::port_oper,
     "present: the port is in automatic mode"},
    {key_family::port_oper, DB_STATE, "<ifx>/1", DAEMON, FWD, value_layout::pre_entry_idx,
     "echo of an automatic port"},
    {key_family::port_oper, DB_STATE, "<ifx>/2", DAEMON, FWD, value_layout::pre_entry_idx,
     "the port has joined the voice VLAN"},
    {key_family::oui_oper, DB_CONFIG, "<mac>/<mask>", MGMT, DAEMON, value_layout::oui_oper,
     "a voice OUI (12 lower-case hex digits each)"},
    {key_family::oui_oper, DB_STATE, "<mac>/<mask>/<slot>", DAEMON, FWD, value_layout::oui_echo,
     "echo of a voice OUI under the slot it took (mac masked)"},
    {key_family::mac_learning, DB_STATE, "<vlan>/<phyid>/<mac>", FWD, DAEMON, value_layout::none,
     "a learned address: written = learned, removed = aged"},
    {key_family::mac_learning, DB_CONFIG, "<ifx>", DAEMON, FWD, value_layout::join_request,
     "join request: the port is to be a member of the voice VLAN"},
    {key_family::spec_oui_msg, DB_STATE, "<oui>/<phyid>", "another component", DAEMON,
     value_layout::none,
     "a device of this voice OUI is behind the port; the daemon deletes these when the OUI goes"},
    {key_family::mac_vlan, DB_STATE, "<n>", "MAC-VLAN configuration", DAEMON,
     value_layout::mac_vlan,
     "MAC-VLAN entry n (256 to 383 are followed); re-read from database 1 after a reconnection"},
    {key_family::mvlan_oui_msg, DB_STATE, "<slot>", DAEMON, "yem", value_layout::decimal,
     "a MAC-VLAN entry of the voice VLAN carries the OUI of this slot (value: the slot)"},
    {key_family::data_end, DB_CONFIG, "", MGMT, DAEMON, value_layout::decimal,
     "load-complete marker: written after a batch of configuration"},
    {key_family::data_end, DB_STATE, "", DAEMON, MGMT, value_layout::decimal,
     "its copy, written once everything before it has been applied"},
    {key_family::debug_level, DB_STATE, "", "an operator", DAEMON, value_layout::decimal,
     "the trace level: 1 info, 2 error, 3 or 32 both, 0 none"},
}};
