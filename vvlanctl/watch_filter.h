// SPDX-License-Identifier: BSD-3-Clause
// Which events vvlanctl watch prints: those of one port, one OUI or one key
// family, or every event. A filter reads the key alone (values do not travel
// with events), with the key parsers the other commands use.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "wire/key_families.h"
#include "wire/mac_addr.h"

struct watch_filter {
    std::optional<int32_t> ifx;       // port: its per-port keys, and phyid keys of its phyid
    std::optional<mac_addr> oui;      // OUI keys of it, and addresses and messages under it
    std::optional<key_family> family; // keys of the family (join requests are mac_learning)

    bool matches(std::string_view key) const;
};

// The port (ifx) a key names, directly or by its phyid; nullopt for none.
std::optional<int32_t> port_of_key(std::string_view key);

// "port IFX", "oui OUI", "family NAME" (each at most once) out of args; the
// arguments that are none of these are left in *rest. False with why for a
// bad value.
bool parse_watch_filter(const std::vector<std::string> &args, watch_filter *f,
                        std::vector<std::string> *rest, std::string *why);
