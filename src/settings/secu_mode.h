// SPDX-License-Identifier: BSD-3-Clause
// Security mode: configured by the presence of a key under
// "/bridge/vvlan/secu_mode/" in database 1, published as "1" under the bare
// prefix in database 0 while both it and the voice VLAN are on.
#pragma once

#include <cstdint>

#include "tukredis.h"

// "/bridge/vvlan/secu_mode/*", database 1
int32_t get_secu_mode_pmsg_f(tukredis_pmsg *pmsg);
void set_secu_mode_redis();
