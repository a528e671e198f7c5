// SPDX-License-Identifier: BSD-3-Clause
// The voice OUI table: 124 slots. A record's slot is the OUI's identity in
// every other table and message.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "trace/trace.h"
#include "wire/values.h"

inline constexpr std::size_t VVLAN_OUI_MAX = 124;

// Written by the main thread only; never touched by the aging thread. In the
// table a record's mac is always ANDed with its mask and enable 1 marks a
// slot in use.
extern std::array<vvlan_oui_oper, VVLAN_OUI_MAX> g_vvlan_oui_table;

// Walks the slots in use in slot order, tracing "entry(%d) is ENABLED" for
// each under the caller's name, and stops at the first one for which
// fn(slot, record) returns true. Returns that slot, or VVLAN_OUI_MAX when
// the walk went through. Every walk runs on the main thread, which is also
// the only writer of the trace level, so the level is looked at once per
// walk rather than once per slot: a learning of a non-voice address walks
// all 124 slots.
template <typename Fn>
std::size_t for_each_enabled_oui(trace_site site, Fn &&fn) {
    const bool traced = dov_vvlan_trace_on(DBG_INFO);
    for (std::size_t i = 0; i < VVLAN_OUI_MAX; ++i) {
        vvlan_oui_oper &record = g_vvlan_oui_table[i];
        if (record.enable == 0) {
            continue;
        }
        if (traced) {
            TRACE_INFO_AT(site, "entry(%d) is ENABLED", static_cast<int>(i));
        }
        if (fn(i, record)) {
            return i;
        }
    }
    return VVLAN_OUI_MAX;
}

// The lowest enabled slot whose mac equals address under the slot's mask, or
// VVLAN_OUI_MAX: the walk a learning makes, without its traces. Each slot is
// read as two overlapping 8-byte words (mac with the mask's first bytes, and
// the mask with enable), so a slot costs two loads and one rarely taken
// branch; a non-voice address walks all 124 slots on every learning.
std::size_t oui_first_match(const mac_addr &address) noexcept;
