// SPDX-License-Identifier: BSD-3-Clause
#include "oui/oui_table.h"

std::array<vvlan_oui_oper, VVLAN_OUI_MAX> g_vvlan_oui_table{};
