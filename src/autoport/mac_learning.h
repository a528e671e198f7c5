// SPDX-License-Identifier: BSD-3-Clause
// MAC-learning notifications of the forwarding layer,
// "/bri/mac/macTblDyn_vvlan/<brg_id>/<phyid>/<mac>" in database 0, and the
// automatic join of a port in automatic mode.
#pragma once

#include <cstdint>
#include <string_view>

#include "tukredis.h"
#include "wire/mac_addr.h"

enum class fw_check { proceed, ignore, fail, bad_key };

// "/bri/mac/macTblDyn_vvlan/*", database 0
int32_t get_mac_notify_pmsg_f(tukredis_pmsg *pmsg);
fw_check oui_fw_check(std::string_view key, uint32_t *ifx, mac_addr *mac);
bool is_vvlan_oui(const mac_addr &mac, uint16_t *idx);
void set_oui_msg(uint32_t ifx, uint16_t idx, bool learned);
void set_oui_aged_flag(uint32_t ifx, uint16_t idx, bool learned);
