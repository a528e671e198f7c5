// SPDX-License-Identifier: BSD-3-Clause
// Configured voice OUIs: "/bridge/vvlan/oui_oper/<mac>/<mask>" in database 1
// with a 44-byte vvlan_oui_oper value. A write adds the OUI (here), any
// removal deletes it (oui_delete).
#pragma once

#include <cstdint>

#include "oui/oui_table.h"
#include "tukredis.h"

// "/bridge/vvlan/oui_oper/*", database 1
int32_t get_oui_oper_pmsg_f(tukredis_pmsg *pmsg);
bool set_oui_oper(tukredis_pmsg *pmsg);
bool add_oui(const vvlan_oui_oper *rec, uint16_t *slot);
void set_oui_oper_redis(const vvlan_oui_oper &rec, uint16_t slot);
void find_mvlan_oui(const vvlan_oui_oper &rec, uint16_t slot);
