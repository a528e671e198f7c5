#include "settings/vvlan_table.h"

vvlan_table g_vvlan_table{};
