// SPDX-License-Identifier: BSD-3-Clause
// Why a port is where it is: the per-port view that show prints and check
// audits, derived from a snapshot.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "snapshot.h"

struct voice_address {
    mac_addr mac;
    int32_t phyid;
    uint16_t slot; // the OUI slot it matches
};

struct port_view {
    int32_t ifx;
    std::optional<uint32_t> phyid;
    bool auto_mode;    // "/bridge/vvlan/port_oper/<ifx>/1" configured (database 1)
    bool joined;       // "/bridge/vvlan/port_oper/<ifx>/2" present (database 0)
    bool join_request; // "/bri/mac/macTblDyn_vvlan/<ifx>" present (database 1)
    // Voice-OUI addresses learned on the port now, in the voice VLAN.
    std::vector<voice_address> voice;
    // OUIs of the specified-OUI messages that name the port.
    std::vector<mac_addr> specified;
};

// Every port that is automatic, joined or has a join request, by ifx.
std::vector<port_view> port_views(const snapshot &s);
