// SPDX-License-Identifier: BSD-3-Clause
// The voice VLAN id: "/bridge/vvlan/vid/<id>" in database 1. Writing the key
// turns the voice VLAN on with that id, deleting it turns it off.
#pragma once

#include <cstdint>

#include "tukredis.h"

// "/bridge/vvlan/vid/*", database 1
int32_t get_vid_pmsg_f(tukredis_pmsg *pmsg);
void set_vid_redis();
