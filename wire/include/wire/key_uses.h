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
    NONE,    // the value is never read: only the key and the event count
    DECIMAL, // an integer as decimal text
    PORT_OPER,
    OUI_OPER,
    OUI_ECHO,
    MAC_VLAN,
    COS_DSCP,
    COS_DSCP_ECHO,
    AGING_TIME,
    JOIN_REQUEST,
    PRE_ENTRY_IDX,
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
    {key_family::vid, DB_CONFIG, "<id>", MGMT, DAEMON, value_layout::NONE,
     "present: the voice VLAN is on with this id; deleted: off"},
    {key_family::vid, DB_STATE, "<id>", DAEMON, "forwarding layer", value_layout::PRE_ENTRY_IDX,
     "the applied voice VLAN id (in the key; the value is the OUI index)"},
    {key_family::secu_mode, DB_CONFIG, "<any>", MGMT, DAEMON, value_layout::NONE,
     "present: security mode on"},
    {key_family::secu_mode, DB_STATE, "", DAEMON, FWD, value_layout::DECIMAL,
     "\"1\" while the voice VLAN and the security mode are both on; absent otherwise"},
    {key_family::cos_dscp, DB_CONFIG, "<any>", MGMT, DAEMON, value_layout::COS_DSCP,
     "CoS and DSCP of voice traffic (further bytes ignored)"},
    {key_family::cos_dscp, DB_STATE, "", DAEMON, FWD, value_layout::COS_DSCP_ECHO,
     "the last configured CoS and DSCP; never deleted by the daemon"},
    {key_family::age_timer, DB_CONFIG, "<any>", MGMT, DAEMON, value_layout::AGING_TIME,
     "the aging time; not published (database-0 keys here are swept)"},
    {key_family::port_oper, DB_CONFIG, "<ifx>/1", MGMT, DAEMON, value_layout::PORT_OPER,
     "present: the port is in automatic mode"},
    {key_family::port_oper, DB_STATE, "<ifx>/1", DAEMON, FWD, value_layout::PRE_ENTRY_IDX,
     "echo of an automatic port"},
    {key_family::port_oper, DB_STATE, "<ifx>/2", DAEMON, FWD, value_layout::PRE_ENTRY_IDX,
     "the port has joined the voice VLAN"},
    {key_family::oui_oper, DB_CONFIG, "<mac>/<mask>", MGMT, DAEMON, value_layout::OUI_OPER,
     "a voice OUI (12 lower-case hex digits each)"},
    {key_family::oui_oper, DB_STATE, "<mac>/<mask>/<slot>", DAEMON, FWD, value_layout::OUI_ECHO,
     "echo of a voice OUI under the slot it took (mac masked)"},
    {key_family::mac_learning, DB_STATE, "<vlan>/<phyid>/<mac>", FWD, DAEMON, value_layout::NONE,
     "a learned address: written = learned, removed = aged"},
    {key_family::mac_learning, DB_CONFIG, "<ifx>", DAEMON, FWD, value_layout::JOIN_REQUEST,
     "join request: the port is to be a member of the voice VLAN"},
    {key_family::spec_oui_msg, DB_STATE, "<oui>/<phyid>", "another component", DAEMON,
     value_layout::NONE,
     "a device of this voice OUI is behind the port; the daemon deletes these when the OUI goes"},
    {key_family::mac_vlan, DB_STATE, "<n>", "MAC-VLAN configuration", DAEMON,
     value_layout::MAC_VLAN,
     "MAC-VLAN entry n (256 to 383 are followed); re-read from database 1 after a reconnection"},
    {key_family::mvlan_oui_msg, DB_STATE, "<slot>", DAEMON, "yem", value_layout::DECIMAL,
     "a MAC-VLAN entry of the voice VLAN carries the OUI of this slot (value: the slot)"},
    {key_family::data_end, DB_CONFIG, "", MGMT, DAEMON, value_layout::DECIMAL,
     "load-complete marker: written after a batch of configuration"},
    {key_family::data_end, DB_STATE, "", DAEMON, MGMT, value_layout::DECIMAL,
     "its copy, written once everything before it has been applied"},
    {key_family::debug_level, DB_STATE, "", "an operator", DAEMON, value_layout::DECIMAL,
     "the trace level: 1 info, 2 error, 3 or 32 both, 0 none"},
}};
