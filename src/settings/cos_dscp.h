// SPDX-License-Identifier: BSD-3-Clause
// CoS/DSCP of voice traffic: passed through from any key under
// "/bridge/vvlan/cos_dscp/" in database 1 to the bare prefix key in
// database 0, prefixed with the current OUI index. Nothing is kept.
#pragma once

#include <cstdint>

#include "tukredis.h"
#include "wire/values.h"

// "/bridge/vvlan/cos_dscp/*", database 1
int32_t get_cos_dscp_pmsg_f(tukredis_pmsg *pmsg);
void set_cos_dscp_redis(const vvlan_cos_dscp &value);
