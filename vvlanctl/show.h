// SPDX-License-Identifier: BSD-3-Clause
// vvlanctl show: the voice VLAN as configured and as applied.
#pragma once

#include <string>

#include "snapshot.h"

// The aging time the daemon uses when no age_timer key was ever written.
inline constexpr uint16_t DEFAULT_AGING_MINUTES = 1440;

std::string show_text(const snapshot &s);
std::string show_json(const snapshot &s);
