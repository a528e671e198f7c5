// SPDX-License-Identifier: BSD-3-Clause
#include "wire/key_parse.h"

#include <limits>

#include "wire/key_scan.h"

namespace {

// Plain decimal digits, at most max; no sign, no blanks.
std::optional<uint32_t> decimal(std::string_view text, uint32_t max) {
    if (text.empty() || text.size() > 10) {
        return std::nullopt;
    }
    uint64_t value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') {
            return std::nullopt;
        }
        value = value * 10 + static_cast<uint64_t>(c - '0');
    }
    if (value > max) {
        return std::nullopt;
    }
    return static_cast<uint32_t>(value);
}

constexpr uint32_t INT32_TOP = static_cast<uint32_t>(std::numeric_limits<int32_t>::max());

std::optional<mac_addr> hex12(std::string_view text) {
    mac_addr mac{};
    if (text.size() != 12 || !mac_from_hex(text, &mac)) {
        return std::nullopt;
    }
    return mac;
}

// The tail after a family's prefix, split at '/' into exactly n parts.
template <std::size_t N>
bool split_tail(std::string_view key, key_family f, std::array<std::string_view, N> *parts) {
    const std::string_view prefix = prefix_of(f);
    if (!key.starts_with(prefix)) {
        return false;
    }
    std::string_view tail = key.substr(prefix.size());
    for (std::size_t i = 0; i < N; ++i) {
        const std::size_t slash = tail.find('/');
        if (i + 1 < N) {
            if (slash == std::string_view::npos) {
                return false;
            }
            (*parts)[i] = tail.substr(0, slash);
            tail = tail.substr(slash + 1);
        } else {
            if (slash != std::string_view::npos) {
                return false;
            }
            (*parts)[i] = tail;
        }
    }
    return true;
}

// A key of f whose one component after the prefix is a number up to max,
// as T (every such number fits its T).
template <typename T>
std::optional<T> single_number_tail(std::string_view key, key_family f, uint32_t max) {
    std::array<std::string_view, 1> p;
    if (!split_tail(key, f, &p)) {
        return std::nullopt;
    }
    const auto n = decimal(p[0], max);
    return n ? std::optional<T>(static_cast<T>(*n)) : std::nullopt;
}

} // namespace

std::optional<key_family> family_of_key(std::string_view key) {
    for (const key_family_decl &d : KEY_FAMILIES) {
        if (d.exact ? key == d.prefix : key.starts_with(d.prefix)) {
            return d.id;
        }
    }
    return std::nullopt;
}

std::optional<uint16_t> parse_vid_key(std::string_view key) {
    return single_number_tail<uint16_t>(key, key_family::vid, 0xffff);
}

std::optional<port_oper_key_parts> parse_port_oper_key(std::string_view key) {
    std::array<std::string_view, 2> p;
    if (!split_tail(key, key_family::port_oper, &p)) {
        return std::nullopt;
    }
    const auto ifx = decimal(p[0], INT32_TOP);
    const auto mode = decimal(p[1], INT32_TOP);
    if (!ifx || !mode) {
        return std::nullopt;
    }
    return port_oper_key_parts{static_cast<int32_t>(*ifx), static_cast<int32_t>(*mode)};
}

std::optional<oui_key_parts> parse_oui_key(std::string_view key) {
    std::array<std::string_view, 3> with_slot;
    std::array<std::string_view, 2> plain;
    std::optional<uint16_t> slot;
    std::string_view mac_text;
    std::string_view mask_text;
    if (split_tail(key, key_family::oui_oper, &with_slot)) {
        const auto s = decimal(with_slot[2], 0xffff);
        if (!s) {
            return std::nullopt;
        }
        slot = static_cast<uint16_t>(*s);
        mac_text = with_slot[0];
        mask_text = with_slot[1];
    } else if (split_tail(key, key_family::oui_oper, &plain)) {
        mac_text = plain[0];
        mask_text = plain[1];
    } else {
        return std::nullopt;
    }
    const auto mac = hex12(mac_text);
    const auto mask = hex12(mask_text);
    if (!mac || !mask) {
        return std::nullopt;
    }
    return oui_key_parts{*mac, *mask, slot};
}

std::optional<learning_key_parts> parse_mac_learning_key(std::string_view key) {
    std::array<std::string_view, 3> p;
    if (!split_tail(key, key_family::mac_learning, &p)) {
        return std::nullopt;
    }
    const auto vlan = decimal(p[0], INT32_TOP);
    const auto phyid = decimal(p[1], INT32_TOP);
    const auto mac = hex12(p[2]);
    if (!vlan || !phyid || !mac) {
        return std::nullopt;
    }
    return learning_key_parts{static_cast<int32_t>(*vlan), static_cast<int32_t>(*phyid), *mac};
}

std::optional<int32_t> parse_join_request_key(std::string_view key) {
    return single_number_tail<int32_t>(key, key_family::mac_learning, INT32_TOP);
}

std::optional<spec_oui_key_parts> parse_spec_oui_msg_key(std::string_view key) {
    std::array<std::string_view, 2> p;
    if (!split_tail(key, key_family::spec_oui_msg, &p)) {
        return std::nullopt;
    }
    const auto oui = hex12(p[0]);
    const auto phyid = decimal(p[1], INT32_TOP);
    if (!oui || !phyid) {
        return std::nullopt;
    }
    return spec_oui_key_parts{*oui, static_cast<int32_t>(*phyid)};
}

std::optional<int32_t> parse_mac_vlan_key(std::string_view key) {
    return single_number_tail<int32_t>(key, key_family::mac_vlan, INT32_TOP);
}

std::optional<uint16_t> parse_mvlan_oui_msg_key(std::string_view key) {
    return single_number_tail<uint16_t>(key, key_family::mvlan_oui_msg, 0xffff);
}
