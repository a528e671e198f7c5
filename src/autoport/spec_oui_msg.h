// SPDX-License-Identifier: BSD-3-Clause
// Specified-OUI messages: "/bridge/vvlan/spec_oui_msg/<oui>/<phyid>" in
// database 0. Another component says that a device of a voice OUI sits
// behind a port; a set joins the port at once, a delete undoes the count.
#pragma once

#include <cstdint>
#include <string_view>

#include "tukredis.h"
#include "wire/mac_addr.h"

enum class spec_oui_result { done, refused, fail };

// "/bridge/vvlan/spec_oui_msg/*", database 0
int32_t get_spec_oui_pmsg_f(tukredis_pmsg *pmsg);
bool get_auto_oui_key(std::string_view key, mac_addr *mac, int32_t *phyid);
spec_oui_result set_spec_oui(bool is_set, const mac_addr &mac, int32_t phyid);
