// SPDX-License-Identifier: BSD-3-Clause
// The load-complete marker: the configuration side writes an integer under
// "/bridge/vvlan/data/end" in database 1 when it has finished a batch, and the
// daemon copies it to database 0 once everything before it has been applied.
#pragma once

#include <cstdint>

#include "tukredis.h"

// "/bridge/vvlan/data/end", database 1
int32_t get_data_end_pmsg_f(tukredis_pmsg *pmsg);
void set_data_end_redis(int32_t value);
