// SPDX-License-Identifier: BSD-3-Clause
// The aging thread: removes automatically joined ports from the voice VLAN
// one aging period after their last voice address aged out. It exists while
// the voice VLAN is enabled and ends only by cancel and join.
#pragma once

#include <cstdint>

inline constexpr unsigned AGE_CHECK_SECONDS = 5;

void *age_time_thread(void *arg);
void age_sleep(unsigned seconds);
bool any_port_ageing();
