// SPDX-License-Identifier: BSD-3-Clause
#include "autoport/auto_port.h"

std::array<vvlan_auto_port, VVLAN_PORT_MAX> g_vvlan_auto_port{};
std::array<auto_add_vvlan, VVLAN_PORT_MAX> g_auto_add_vvlan_table{};
std::array<uint8_t, VVLAN_OUI_MAX> g_auto_oui_flag{};
pthread_mutex_t g_flag_lock;
