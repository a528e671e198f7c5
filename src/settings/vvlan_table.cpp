// SPDX-License-Identifier: BSD-3-Clause
#include "settings/vvlan_table.h"

vvlan_table g_vvlan_table{};
