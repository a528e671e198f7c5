// SPDX-License-Identifier: BSD-3-Clause
// One keyspace event of either database, told in the voice VLAN's own
// terms ("learn vlan 100 phyid 6 (port 5) 00:e0:bb:12:34:56 voice slot 0",
// "join port 5", "oui add slot 3 00e0bb000000/ffffff000000").
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "wire/mac_addr.h"

struct event_context {
    // The daemon's OUI table as its echoes show it: slot -> (address, mask).
    // Kept current by the echo events themselves.
    std::map<uint16_t, std::pair<mac_addr, mac_addr>> slots;
    // Reads a key's value now (values do not travel with events).
    std::function<std::optional<std::string>(int db, const std::string &key)> fetch;
};

// The line for an event ("set", "del", "expire", "expired", ...) on key in
// database db.
std::string event_line(event_context &ctx, int db, std::string_view event, std::string_view key);
