// SPDX-License-Identifier: BSD-3-Clause
// The debug level word, its start-up marker file and the handler of the
// "debugDovVVlan" key.
#pragma once

#include <cstdint>

#include "tukredis.h"

void dov_vvlan_set_dbg(uint32_t level);
int dov_vvlan_dbg_init();

// "debugDovVVlan", database 0
int32_t dov_vvlan_dbg_pmsg_f(tukredis_pmsg *pmsg);
