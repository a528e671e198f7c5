// SPDX-License-Identifier: BSD-3-Clause
// Port operations: "/bridge/vvlan/port_oper/<ifx>/<mode>". Mode 1 keys put a
// port in automatic mode (set and deleted by the configuration side in
// database 1, echoed into database 0); mode 2 keys say that the daemon has
// joined the port to the voice VLAN (database 0).
#pragma once

#include <cstdint>

#include "tukredis.h"
#include "wire/keys.h"
#include "wire/values.h"

// "/bridge/vvlan/port_oper/*", database 1
int32_t get_port_oper_pmsg_f(tukredis_pmsg *pmsg);
void set_port_oper_redis(const vvlan_port_oper &rec);
void del_port_oper_redis(int32_t ifx, int32_t mode);
