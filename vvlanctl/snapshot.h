// SPDX-License-Identifier: BSD-3-Clause
// Both databases of the voice VLAN read at once and decoded: the
// configuration (database 1) and what is applied and learned (database 0).
// show and check are built on this; nothing here writes.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "connection.h"
#include "presence.h"
#include "wire/mac_addr.h"
#include "wire/values.h"

// Slots of the daemon's voice OUI table.
inline constexpr std::size_t OUI_SLOTS = 124;

struct configured_oui {
    mac_addr key_mac; // as the key names it
    mac_addr key_mask;
    std::optional<vvlan_oui_oper> record; // nullopt: value shorter than a record
};

// An OUI echo in database 0: a slot of the daemon's OUI table.
struct oui_slot {
    uint16_t slot;
    mac_addr key_mac;
    mac_addr key_mask;
    std::optional<oui_echo> value;
    // The record as the daemon matches addresses against it: the echo's
    // masked address and mask, or the key's when the value is unreadable.
    mac_addr mac() const { return value ? value->record.mac : key_mac; }
    mac_addr mask() const { return value ? value->record.mask : key_mask; }
};

struct learned_address {
    int32_t vlan;
    int32_t phyid;
    mac_addr mac;
    std::optional<uint32_t> ifx; // nullopt: the device manager knows no such phyid
};

struct specified_message {
    mac_addr oui;
    int32_t phyid;
    std::optional<uint32_t> ifx;
};

struct mac_vlan_entry {
    int32_t number; // key number, MAC_VLAN_KEY_BASE + index
    std::optional<mac_vlan_value> value;
};

class snapshot {
  public:
    // Database 1: configuration and join requests.
    std::vector<uint16_t> cfg_vids; // sorted
    bool cfg_security = false;
    std::vector<std::string> cfg_security_keys;
    std::optional<vvlan_cos_dscp> cfg_cos;
    bool cfg_cos_present = false; // a key exists, even with a short value
    std::optional<uint16_t> cfg_aging;
    bool cfg_aging_present = false;
    std::vector<configured_oui> cfg_ouis;
    std::map<int32_t, std::set<int32_t>> cfg_port_modes; // ifx -> modes
    std::set<int32_t> join_requests;
    std::optional<std::string> cfg_marker;

    // Database 0: applied copies, learnings, messages.
    std::map<uint16_t, std::optional<uint16_t>> applied_vids; // id -> pre_entry_idx
    std::optional<std::string> applied_security;
    bool applied_cos_present = false;
    std::optional<cos_dscp_echo> applied_cos;
    std::vector<oui_slot> oui_slots; // sorted by slot
    std::map<int32_t, std::set<int32_t>> applied_port_modes;
    std::vector<learned_address> learned;
    std::vector<specified_message> specified;
    std::vector<mac_vlan_entry> mac_vlans; // sorted by number
    std::set<uint16_t> mvlan_messages;
    std::optional<std::string> applied_marker;
    std::optional<std::string> debug_level;

    // The server's client list: whether the daemon still follows any of it.
    daemon_presence presence;

    // The voice VLAN the daemon applies, from its copy in database 0: the
    // one vid key there, or, while an old key waits for its delete, the one
    // of them still configured. None when that does not settle it.
    std::optional<uint16_t> voice_vid() const;
    // The voice VLAN the management plane configures: the one vid key of
    // database 1 (none when there are none or several).
    std::optional<uint16_t> configured_vid() const;
    // The lowest slot whose record matches the address under its mask, as
    // the daemon matches a learned address.
    std::optional<uint16_t> voice_slot(const mac_addr &mac) const;
    // The slot whose record's address equals the OUI exactly, as the daemon
    // matches specified-OUI messages and MAC-VLAN entries.
    std::optional<uint16_t> exact_slot(const mac_addr &oui) const;
    bool is_auto(int32_t ifx) const;
    bool has_mode(int32_t ifx, int32_t mode) const; // in database 0
    // Builds the index voice_slot uses; read_snapshot calls it.
    void index_ouis();

  private:
    // Per distinct mask (few: usually one), masked address -> lowest slot.
    std::vector<std::pair<mac_addr, std::map<mac_addr, uint16_t>>> oui_index_;
};

// Reads both databases. False with conn's error on a failed read.
bool read_snapshot(connection &conn, snapshot *out);
