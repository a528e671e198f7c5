// SPDX-License-Identifier: BSD-3-Clause
// Per-port state of the automatic voice VLAN, indexed by ifx (0..52), and
// the one lock shared with the aging thread.
//
// Division of work between the two threads, kept as designed:
//   - refresh_flag is the only handshake: both threads write it, always
//     under g_flag_lock.
//   - The aging thread holds g_flag_lock for its whole judging pass and reads
//     enable, aging_flag and refresh_flag; for an aged port it clears
//     add_vvlan_flag and aging_flag.
//   - The main thread writes enable, aging_flag and add_vvlan_flag without
//     the lock. Those three are relaxed atomics: plain loads and stores on
//     the target, but defined behaviour for the compiler and the race
//     detector.
//   - pri_oui_num and the per-OUI tables are the main thread's alone.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <pthread.h>

#include "oui/oui_table.h"

inline constexpr std::size_t VVLAN_PORT_MAX = 53;

inline constexpr uint8_t OUI_FLAG_NONE = 0;
inline constexpr uint8_t OUI_FLAG_LEARNED = 1;   // an address of the OUI was learned on the port
inline constexpr uint8_t OUI_FLAG_SPECIFIED = 2; // marked by a specified-OUI message

// A byte shared between the threads without a lock.
class shared_u8 {
  public:
    operator uint8_t() const { return value_.load(std::memory_order_relaxed); }
    shared_u8 &operator=(uint8_t v) {
        value_.store(v, std::memory_order_relaxed);
        return *this;
    }

  private:
    std::atomic<uint8_t> value_{0};
};

struct vvlan_auto_port {
    shared_u8 enable;         // 1 = port in automatic mode                 (main)
    uint32_t pri_oui_num;     // voice-OUI learnings outstanding             (main)
    shared_u8 aging_flag;     // 1 = last voice address aged, remove on the
                              // next aging pass                             (main, aging)
    uint8_t refresh_flag;     // 1 = learned during the period; spares the
                              // port for one pass                           (both, g_flag_lock)
    shared_u8 add_vvlan_flag; // 1 = joined: mode 2 key and join request set (main, aging)
};

struct auto_add_vvlan {
    std::array<uint8_t, VVLAN_OUI_MAX> oui_flag;      // OUI_FLAG_*                  (main)
    std::array<uint8_t, VVLAN_OUI_MAX> oui_aged_flag; // 0 after NA, 1 after AA      (main)
};

extern std::array<vvlan_auto_port, VVLAN_PORT_MAX> g_vvlan_auto_port;
extern std::array<auto_add_vvlan, VVLAN_PORT_MAX> g_auto_add_vvlan_table;
extern std::array<uint8_t, VVLAN_OUI_MAX> g_auto_oui_flag; // specified-OUI set in force (main)

// Initialised by pthread_mutex_init at start-up.
extern pthread_mutex_t g_flag_lock;

class flag_lock_guard {
  public:
    flag_lock_guard() { pthread_mutex_lock(&g_flag_lock); }
    ~flag_lock_guard() { pthread_mutex_unlock(&g_flag_lock); }
    flag_lock_guard(const flag_lock_guard &) = delete;
    flag_lock_guard &operator=(const flag_lock_guard &) = delete;
};

// An ifx from a key, a value or the device manager indexes the tables only
// when it is one of the switch's ports.
inline bool ifx_valid(int64_t ifx) {
    return ifx >= 0 && ifx < static_cast<int64_t>(VVLAN_PORT_MAX);
}
