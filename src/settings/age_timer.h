// SPDX-License-Identifier: BSD-3-Clause
// The aging time: the first two bytes (big-endian minutes) of any key under
// "/bridge/vvlan/age_timer/" in database 1. Not published. The aging thread
// reads it once when it starts, so a new time takes effect by a restart.
#pragma once

#include <cstdint>

#include "tukredis.h"

// "/bridge/vvlan/age_timer/*", database 1
int32_t get_age_timer_pmsg_f(tukredis_pmsg *pmsg);
