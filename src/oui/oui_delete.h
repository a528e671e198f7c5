// SPDX-License-Identifier: BSD-3-Clause
// Deleting a voice OUI: everything is derived from the deleted key's name,
// since its value is gone.
#pragma once

#include <cstdint>
#include <string_view>

#include "wire/mac_addr.h"

bool del_oui_oper(std::string_view key);
void get_oui_key(std::string_view key, mac_addr *mac, mac_addr *mask);
bool del_oui(const mac_addr &mac, const mac_addr &mask);
void del_oui_oper_redis(const mac_addr &tmp_mac, const mac_addr &mask, uint16_t slot);
int32_t del_spec_oui_msg_key(uint32_t ifx, const mac_addr &mac);
