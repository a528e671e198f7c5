// SPDX-License-Identifier: BSD-3-Clause
// Port numbers as the device manager converts them: the forwarding layer's
// keys carry a physical port id (phyid), the voice VLAN's per-port keys an
// interface index (ifx). Through libsdm, so the host build honours
// LIBSDM_PORT_MAP exactly as the daemon does, and a switch build asks the
// vendor's device manager.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

// The largest interface index of the switch: the daemon's per-port tables
// hold ifx 0 to 52.
inline constexpr int32_t MAX_IFX = 52;

// libsdm_init, once; false (with why) when the device manager refuses.
bool ports_init(std::string *why);
std::optional<uint32_t> ifx_of_phyid(uint32_t phyid);
std::optional<uint32_t> phyid_of_ifx(uint32_t ifx);
