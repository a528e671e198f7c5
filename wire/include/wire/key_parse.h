// SPDX-License-Identifier: BSD-3-Clause
// Recognising the keys of the voice VLAN by their parts, for the tools that
// read both databases back (vvlanctl's show, check and watch).
//
// Each parser is the inverse of its builder in keys.h: it accepts exactly
// the keys that builder can produce (decimal numbers without sign or
// leading blanks, addresses as 12 hexadecimal digits) and gives nullopt for
// anything else, so a tool never mistakes a foreign or malformed key for
// one of the system's. The daemon's own, more forgiving, conversions are in
// key_scan.h.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "wire/key_families.h"
#include "wire/mac_addr.h"

// The family whose prefix (or exact key) the key carries. Learned addresses
// and join requests share the MAC-learning prefix.
std::optional<key_family> family_of_key(std::string_view key);

// "/bridge/vvlan/vid/<id>", id 0..65535.
std::optional<uint16_t> parse_vid_key(std::string_view key);

struct port_oper_key_parts {
    int32_t ifx;
    int32_t mode;
};
// "/bridge/vvlan/port_oper/<ifx>/<mode>".
std::optional<port_oper_key_parts> parse_port_oper_key(std::string_view key);

struct oui_key_parts {
    mac_addr mac;
    mac_addr mask;
    std::optional<uint16_t> slot; // present in the database-0 echo only
};
// "/bridge/vvlan/oui_oper/<mac>/<mask>" or its echo ".../<slot>".
std::optional<oui_key_parts> parse_oui_key(std::string_view key);

struct learning_key_parts {
    int32_t vlan;
    int32_t phyid;
    mac_addr mac;
};
// "/bri/mac/macTblDyn_vvlan/<vlan>/<phyid>/<mac>": a learned address.
std::optional<learning_key_parts> parse_mac_learning_key(std::string_view key);

// "/bri/mac/macTblDyn_vvlan/<ifx>": a port's join request.
std::optional<int32_t> parse_join_request_key(std::string_view key);

struct spec_oui_key_parts {
    mac_addr oui;
    int32_t phyid;
};
// "/bridge/vvlan/spec_oui_msg/<oui>/<phyid>".
std::optional<spec_oui_key_parts> parse_spec_oui_msg_key(std::string_view key);

// "/bridge/mac_vlan/table/<n>": the key number n (the daemon's entries are
// MAC_VLAN_KEY_BASE to MAC_VLAN_KEY_BASE + 127).
std::optional<int32_t> parse_mac_vlan_key(std::string_view key);

// "/bridge/vvlan/mvlan_oui_msg/<slot>".
std::optional<uint16_t> parse_mvlan_oui_msg_key(std::string_view key);
