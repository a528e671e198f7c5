// SPDX-License-Identifier: BSD-3-Clause
// Every key family of the voice VLAN, declared once: its prefix, the
// database and position of its subscription row, whether and where the
// re-synchronisation re-reads it, and whether its database-0 copies are
// marked and swept. The daemon's subscription table and re-synchronisation
// lists, the key builders, the tools and the key reference are all derived
// from this one table; only the handlers are bound elsewhere (at the top of
// the daemon, which is the one place that knows them).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

inline constexpr int32_t DB_STATE = 0;  // published state: forwarding layer, this daemon's copies
inline constexpr int32_t DB_CONFIG = 1; // configuration, and the join requests to the MAC layer

enum class key_family : uint8_t {
    vid,           // "/bridge/vvlan/vid/<id>"
    secu_mode,     // "/bridge/vvlan/secu_mode/<any>"
    cos_dscp,      // "/bridge/vvlan/cos_dscp/<any>"
    age_timer,     // "/bridge/vvlan/age_timer/<any>"
    port_oper,     // "/bridge/vvlan/port_oper/<ifx>/<mode>"
    oui_oper,      // "/bridge/vvlan/oui_oper/<mac>/<mask>[/<slot>]"
    mac_learning,  // "/bri/mac/macTblDyn_vvlan/<vlan>/<phyid>/<mac>"; join requests "<ifx>"
    spec_oui_msg,  // "/bridge/vvlan/spec_oui_msg/<oui>/<phyid>"
    mac_vlan,      // "/bridge/mac_vlan/table/<n>"
    data_end,      // "/bridge/vvlan/data/end"
    debug_level,   // "debugDovVVlan"
    mvlan_oui_msg, // "/bridge/vvlan/mvlan_oui_msg/<slot>"
};

inline constexpr int NO_ROW = -1;
inline constexpr int NOT_REREAD = 0;

struct key_family_decl {
    key_family id;
    const char *name;   // short name, for tools and the key reference
    const char *prefix; // a key is the prefix and a tail; for an exact key, the key itself
    bool exact;         // the pattern is the key itself, not the prefix and "*"
    int32_t sub_db;     // database of the subscription row
    int sub_row;        // row of the subscription table, or NO_ROW
    int reread;         // 1-based position in the re-synchronisation's re-read, or NOT_REREAD
    int32_t reread_db;  // database the re-read scans
    bool swept;         // database-0 copies marked before the re-read and swept after it
};

// The MAC-VLAN table is re-read from database 1 although its row listens in
// database 0: kept as it has always been. The specified-OUI messages, the
// MAC-learning keys and the debug key are not re-read.
inline constexpr std::array<key_family_decl, 12> KEY_FAMILIES = {{
    // id                      name             prefix                          exact  db row reread
    // db swept
    {key_family::vid, "vid", "/bridge/vvlan/vid/", false, DB_CONFIG, 0, 4, DB_CONFIG, true},
    {key_family::secu_mode, "secu_mode", "/bridge/vvlan/secu_mode/", false, DB_CONFIG, 1, 2,
     DB_CONFIG, true},
    {key_family::cos_dscp, "cos_dscp", "/bridge/vvlan/cos_dscp/", false, DB_CONFIG, 2, 1, DB_CONFIG,
     true},
    {key_family::age_timer, "age_timer", "/bridge/vvlan/age_timer/", false, DB_CONFIG, 3, 3,
     DB_CONFIG, true},
    {key_family::port_oper, "port_oper", "/bridge/vvlan/port_oper/", false, DB_CONFIG, 4, 5,
     DB_CONFIG, true},
    {key_family::oui_oper, "oui_oper", "/bridge/vvlan/oui_oper/", false, DB_CONFIG, 5, 6, DB_CONFIG,
     true},
    {key_family::mac_learning, "mac_learning", "/bri/mac/macTblDyn_vvlan/", false, DB_STATE, 6,
     NOT_REREAD, DB_STATE, false},
    {key_family::spec_oui_msg, "spec_oui_msg", "/bridge/vvlan/spec_oui_msg/", false, DB_STATE, 7,
     NOT_REREAD, DB_STATE, false},
    {key_family::mac_vlan, "mac_vlan", "/bridge/mac_vlan/table/", false, DB_STATE, 8, 7, DB_CONFIG,
     false},
    {key_family::data_end, "data_end", "/bridge/vvlan/data/end", true, DB_CONFIG, 9, 8, DB_CONFIG,
     false},
    {key_family::debug_level, "debug_level", "debugDovVVlan", true, DB_STATE, 10, NOT_REREAD,
     DB_STATE, false},
    {key_family::mvlan_oui_msg, "mvlan_oui_msg", "/bridge/vvlan/mvlan_oui_msg/", false, DB_STATE,
     NO_ROW, NOT_REREAD, DB_STATE, false},
}};

constexpr bool families_in_enum_order() {
    for (std::size_t i = 0; i < KEY_FAMILIES.size(); ++i) {
        if (static_cast<std::size_t>(KEY_FAMILIES[i].id) != i) {
            return false;
        }
    }
    return true;
}
static_assert(families_in_enum_order(), "KEY_FAMILIES is indexed by key_family");

constexpr const key_family_decl &family_decl(key_family f) {
    return KEY_FAMILIES[static_cast<std::size_t>(f)];
}

constexpr const char *prefix_of(key_family f) {
    return family_decl(f).prefix;
}

// A pattern in the 128 bytes a subscription row holds: the prefix and "*",
// or the exact key.
inline constexpr std::size_t PATTERN_LEN = 128;
using pattern_text = std::array<char, PATTERN_LEN>;

constexpr pattern_text pattern_of(key_family f) {
    const key_family_decl &d = family_decl(f);
    pattern_text out{};
    std::size_t n = 0;
    for (const char *p = d.prefix; *p != '\0' && n + 2 < PATTERN_LEN; ++p) {
        out[n++] = *p;
    }
    if (!d.exact) {
        out[n] = '*';
    }
    return out;
}

namespace key_family_detail {

template <typename Pred>
constexpr std::size_t count(Pred pred) {
    std::size_t n = 0;
    for (const key_family_decl &d : KEY_FAMILIES) {
        n += pred(d) ? 1 : 0;
    }
    return n;
}

// The families that pass pred, ordered by rank (ranks are unique).
template <std::size_t N, typename Pred, typename Rank>
constexpr std::array<key_family, N> ordered(Pred pred, Rank rank) {
    std::array<key_family, N> out{};
    std::size_t n = 0;
    for (int r = -1; r < 64 && n < N; ++r) {
        for (const key_family_decl &d : KEY_FAMILIES) {
            if (pred(d) && rank(d) == r) {
                out[n++] = d.id;
            }
        }
    }
    return out;
}

constexpr bool subscribed(const key_family_decl &d) {
    return d.sub_row != NO_ROW;
}
constexpr bool reread(const key_family_decl &d) {
    return d.reread != NOT_REREAD;
}
constexpr bool swept(const key_family_decl &d) {
    return d.swept && d.reread != NOT_REREAD;
}
constexpr int row_rank(const key_family_decl &d) {
    return d.sub_row;
}
constexpr int reread_rank(const key_family_decl &d) {
    return d.reread;
}

} // namespace key_family_detail

// A table with one element per family of an order, made at compile time.
template <typename T, std::size_t N, typename Fn>
constexpr std::array<T, N> map_families(const std::array<key_family, N> &order, Fn make) {
    std::array<T, N> out{};
    for (std::size_t i = 0; i < N; ++i) {
        out[i] = make(order[i]);
    }
    return out;
}

// The subscription table's rows, in row order.
inline constexpr std::size_t SUBSCRIBED_FAMILIES =
    key_family_detail::count(key_family_detail::subscribed);
inline constexpr auto SUBSCRIPTION_ORDER = key_family_detail::ordered<SUBSCRIBED_FAMILIES>(
    key_family_detail::subscribed, key_family_detail::row_rank);

// The re-synchronisation's re-read: the settings first, then the VLAN id,
// ports, OUIs, the MAC-VLAN table, and the load-complete marker last.
inline constexpr std::size_t REREAD_FAMILIES = key_family_detail::count(key_family_detail::reread);
inline constexpr auto REREAD_ORDER = key_family_detail::ordered<REREAD_FAMILIES>(
    key_family_detail::reread, key_family_detail::reread_rank);

// What the daemon publishes in database 0 under configuration names, marked
// and swept around the re-read in the re-read's order.
inline constexpr std::size_t SWEPT_FAMILIES = key_family_detail::count(key_family_detail::swept);
inline constexpr auto SWEPT_ORDER = key_family_detail::ordered<SWEPT_FAMILIES>(
    key_family_detail::swept, key_family_detail::reread_rank);
