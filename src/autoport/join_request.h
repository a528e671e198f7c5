// SPDX-License-Identifier: BSD-3-Clause
// The join request of a port: "/bri/mac/macTblDyn_vvlan/<ifx>" in database 1,
// holding the 4-byte big-endian ifx. Its presence tells the
// platform-independent layer that the port is a member of the voice VLAN.
#pragma once

#include <cstdint>

void set_mac2ce_global(uint32_t ifx, int add);
