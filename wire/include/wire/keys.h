// SPDX-License-Identifier: BSD-3-Clause
// Every key the voice VLAN's actors write, built one way for all of them:
// the daemon's publishers, the tests and the tools. Each is built as the
// daemon has always built it (the format is named beside each builder) in a
// zeroed 128-byte buffer, from its family's prefix.
#pragma once

#include <cstdint>

#include "wire/key_buf.h"
#include "wire/key_families.h"
#include "wire/mac_addr.h"

// "%s%hu": "/bridge/vvlan/vid/<id>", both databases.
key_buf vid_key(uint16_t vid);
// "%s%d/%d": "/bridge/vvlan/port_oper/<ifx>/<mode>", both databases.
key_buf port_oper_key(int32_t ifx, int32_t mode);
// "/bridge/vvlan/oui_oper/<mac>/<mask>": a configured OUI (database 1).
key_buf oui_oper_key(const mac_addr &mac, const mac_addr &mask);
// "%s%02x%02x%02x%02x%02x%02x/%02x%02x%02x%02x%02x%02x/%hu": its echo under
// the slot it took (database 0).
key_buf oui_echo_key(const mac_addr &mac, const mac_addr &mask, uint16_t slot);
// "%s%02x%02x%02x%02x%02x%02x/%d": "/bridge/vvlan/spec_oui_msg/<oui>/<phyid>".
key_buf spec_oui_msg_key(const mac_addr &oui, int32_t phyid);
// "%s%d": the join request "/bri/mac/macTblDyn_vvlan/<ifx>" (database 1).
key_buf join_request_key(int32_t ifx);
// "/bri/mac/macTblDyn_vvlan/<vlan>/<phyid>/<mac>": a learned address
// (database 0), as the forwarding layer writes it.
key_buf mac_learning_key(int32_t vlan, int32_t phyid, const mac_addr &mac);
// "/bridge/mac_vlan/table/<n>" (database 0); entries are numbered from 256.
key_buf mac_vlan_key(int32_t number);
// "%s%hu": "/bridge/vvlan/mvlan_oui_msg/<slot>" (database 0).
key_buf mvlan_oui_msg_key(uint16_t slot);
// The bare prefix ("/bridge/vvlan/secu_mode/", "/bridge/vvlan/cos_dscp/",
// any other family's), or an exact family's key ("/bridge/vvlan/data/end",
// "debugDovVVlan").
key_buf family_key(key_family f);

// Key numbers 256 to 383 of the MAC-VLAN table are the daemon's entries 0
// to 127.
inline constexpr int32_t MAC_VLAN_KEY_BASE = 256;
inline constexpr int32_t MAC_VLAN_ENTRIES = 128;

// Port operation modes: 1 = automatic mode (configured), 2 = joined (the
// daemon's own).
inline constexpr uint32_t PORT_MODE_AUTO = 1;
inline constexpr uint32_t PORT_MODE_JOINED = 2;
