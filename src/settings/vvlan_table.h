// SPDX-License-Identifier: BSD-3-Clause
// The one process-wide record of global voice VLAN settings.
#pragma once

#include <cstdint>

struct vvlan_table {
    uint16_t vid;           // last vid key notified, set or delete        (main thread)
    uint8_t status;         // 1 = voice VLAN enabled                      (main thread)
    uint8_t secu_mode_en;   // 1 = security mode configured on             (main thread)
    uint16_t aging_minutes; // 1440 from start-up; read by the aging
                            // thread once, when it starts: that read and
                            // the handler's store are atomic_ref          (main thread)
    uint8_t is_running;     // 1 = aging thread created and not joined     (main thread)
    uint16_t oui_num;       // voice OUI records in use                    (main thread)
    uint16_t oui_idx;       // slot of the OUI record last deleted; also
                            // the "pre_entry_idx" of every echo           (main thread)
};

extern vvlan_table g_vvlan_table;
