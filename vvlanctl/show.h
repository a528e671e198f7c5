// SPDX-License-Identifier: BSD-3-Clause
// vvlanctl show: the voice VLAN as configured and as applied, whole or one
// part of it (a port, the OUI table, the MAC-VLAN entries).
#pragma once

#include <optional>
#include <string>

#include "json_writer.h"
#include "snapshot.h"

// The aging time the daemon uses when no age_timer key was ever written.
inline constexpr uint16_t DEFAULT_AGING_MINUTES = 1440;

enum class show_part { all, port, ouis, mac_vlan };

struct show_request {
    show_part part = show_part::all;
    int32_t ifx = 0; // show_part::port
};

std::string show_text(const snapshot &s, const show_request &r = {});
std::string show_json(const snapshot &s, const show_request &r = {});
// The daemon's presence as the JSON documents give it.
void presence_json(json_writer &j, const daemon_presence &p);
// The daemon's presence as the first lines of show.
std::string presence_text(const daemon_presence &p);
