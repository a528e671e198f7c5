// SPDX-License-Identifier: BSD-3-Clause
#include "snapshot.h"

#include <algorithm>
#include <span>

#include "ports.h"
#include "wire/key_families.h"
#include "wire/key_parse.h"
#include "wire/keys.h"

namespace {

std::span<const uint8_t> bytes_of(const std::string &s) {
    return {reinterpret_cast<const uint8_t *>(s.data()), s.size()};
}

template <typename Codec>
std::optional<typename Codec::value_type> decode(const std::optional<std::string> &v) {
    if (!v) {
        return std::nullopt;
    }
    return decode_value<Codec>(bytes_of(*v));
}

// Every family's keys start with "/bri" ("/bridge/..." and "/bri/mac/..."),
// so one scan per database finds them all.
constexpr const char *SCAN_MATCH = "/bri*";

// Calls f(family, key) for every key of db under a declared family, in key
// order (so that "the last by name" is well defined). False when the scan
// failed.
template <typename F>
bool for_each_family_key(connection &conn, int db, F f) {
    std::vector<std::string> keys;
    if (!conn.scan(db, SCAN_MATCH, &keys)) {
        return false;
    }
    std::sort(keys.begin(), keys.end());
    for (const std::string &key : keys) {
        if (const auto family = family_of_key(key)) {
            f(*family, key);
        }
    }
    return true;
}

struct pending {
    std::vector<std::string> keys;
    std::vector<std::optional<std::string>> values;
    std::size_t add(std::string key) {
        keys.push_back(std::move(key));
        return keys.size() - 1;
    }
};

} // namespace

std::optional<uint16_t> snapshot::voice_vid() const {
    if (applied_vids.size() == 1) {
        return applied_vids.begin()->first;
    }
    std::optional<uint16_t> found;
    for (const auto &[vid, idx] : applied_vids) {
        if (std::binary_search(cfg_vids.begin(), cfg_vids.end(), vid)) {
            if (found) {
                return std::nullopt;
            }
            found = vid;
        }
    }
    return found;
}

std::optional<uint16_t> snapshot::configured_vid() const {
    if (cfg_vids.size() != 1) {
        return std::nullopt;
    }
    return cfg_vids.front();
}

void snapshot::index_ouis() {
    oui_index_.clear();
    for (const oui_slot &o : oui_slots) {
        auto group = std::find_if(oui_index_.begin(), oui_index_.end(),
                                  [&](const auto &g) { return g.first == o.mask(); });
        if (group == oui_index_.end()) {
            group = oui_index_.insert(oui_index_.end(), {o.mask(), {}});
        }
        // Slots are visited in order: the first one in keeps its place.
        group->second.emplace(o.mac(), o.slot);
    }
}

// As the daemon matches: the lowest slot whose address equals the learned
// address under the slot's own mask.
std::optional<uint16_t> snapshot::voice_slot(const mac_addr &mac) const {
    std::optional<uint16_t> best;
    for (const auto &[mask, slots] : oui_index_) {
        const auto it = slots.find(mac_and(mac, mask));
        if (it != slots.end() && (!best || it->second < *best)) {
            best = it->second;
        }
    }
    return best;
}

std::optional<uint16_t> snapshot::exact_slot(const mac_addr &oui) const {
    for (const oui_slot &o : oui_slots) {
        if (o.mac() == oui) {
            return o.slot;
        }
    }
    return std::nullopt;
}

bool snapshot::is_auto(int32_t ifx) const {
    const auto it = cfg_port_modes.find(ifx);
    return it != cfg_port_modes.end() && it->second.count(static_cast<int32_t>(PORT_MODE_AUTO));
}

bool snapshot::has_mode(int32_t ifx, int32_t mode) const {
    const auto it = applied_port_modes.find(ifx);
    return it != applied_port_modes.end() && it->second.count(mode) != 0;
}

bool read_snapshot(connection &conn, snapshot *out) {
    snapshot s;
    // Thousands of addresses sit on a few dozen ports: ask the device
    // manager once per phyid.
    std::map<int32_t, std::optional<uint32_t>> ifx_cache;
    auto ifx_of = [&](int32_t phyid) {
        const auto it = ifx_cache.find(phyid);
        if (it != ifx_cache.end()) {
            return it->second;
        }
        return ifx_cache[phyid] = ifx_of_phyid(static_cast<uint32_t>(phyid));
    };
    const std::string marker_key = family_key(key_family::data_end).c_str();
    const std::string debug_key = family_key(key_family::debug_level).c_str();

    // Database 1.
    pending p1;
    std::optional<std::size_t> cos_at;
    std::optional<std::size_t> aging_at;
    std::optional<std::size_t> marker_at;
    std::vector<std::pair<oui_key_parts, std::size_t>> ouis_at;
    const bool scanned1 =
        for_each_family_key(conn, DB_CONFIG, [&](key_family family, const std::string &key) {
            switch (family) {
            case key_family::vid:
                if (const auto v = parse_vid_key(key)) {
                    s.cfg_vids.push_back(*v);
                }
                break;
            case key_family::secu_mode:
                s.cfg_security = true;
                s.cfg_security_keys.push_back(key);
                break;
            case key_family::cos_dscp:
                // Every configured key publishes to the one copy; the last one
                // written wins, which a reader cannot know: the last by name.
                cos_at = p1.add(key);
                break;
            case key_family::age_timer:
                aging_at = p1.add(key);
                break;
            case key_family::port_oper:
                if (const auto p = parse_port_oper_key(key)) {
                    s.cfg_port_modes[p->ifx].insert(p->mode);
                }
                break;
            case key_family::oui_oper:
                if (const auto o = parse_oui_key(key); o && !o->slot) {
                    ouis_at.emplace_back(*o, p1.add(key));
                }
                break;
            case key_family::mac_learning:
                if (const auto ifx = parse_join_request_key(key)) {
                    s.join_requests.insert(*ifx);
                }
                break;
            case key_family::data_end:
                marker_at = p1.add(key);
                break;
            default:
                break;
            }
        });
    if (!scanned1 || !conn.get_many(DB_CONFIG, p1.keys, &p1.values)) {
        return false;
    }
    std::sort(s.cfg_vids.begin(), s.cfg_vids.end());
    if (cos_at) {
        s.cfg_cos_present = true;
        s.cfg_cos = decode<cos_dscp_codec>(p1.values[*cos_at]);
    }
    if (aging_at) {
        s.cfg_aging_present = true;
        s.cfg_aging = decode<aging_time_codec>(p1.values[*aging_at]);
    }
    if (marker_at) {
        s.cfg_marker = p1.values[*marker_at];
    }
    for (const auto &[parts, at] : ouis_at) {
        s.cfg_ouis.push_back({parts.mac, parts.mask, decode<oui_oper_codec>(p1.values[at])});
    }

    // Database 0.
    pending p0;
    std::vector<std::pair<uint16_t, std::size_t>> vids_at;
    std::optional<std::size_t> secu_at;
    std::optional<std::size_t> cos0_at;
    std::vector<std::pair<oui_key_parts, std::size_t>> echoes_at;
    std::vector<std::pair<int32_t, std::size_t>> mvlans_at;
    const bool scanned0 =
        for_each_family_key(conn, DB_STATE, [&](key_family family, const std::string &key) {
            switch (family) {
            case key_family::vid:
                if (const auto v = parse_vid_key(key)) {
                    vids_at.emplace_back(*v, p0.add(key));
                }
                break;
            case key_family::secu_mode:
                if (key == prefix_of(key_family::secu_mode)) {
                    secu_at = p0.add(key);
                }
                break;
            case key_family::cos_dscp:
                if (key == prefix_of(key_family::cos_dscp)) {
                    cos0_at = p0.add(key);
                }
                break;
            case key_family::port_oper:
                if (const auto p = parse_port_oper_key(key)) {
                    s.applied_port_modes[p->ifx].insert(p->mode);
                }
                break;
            case key_family::oui_oper:
                if (const auto o = parse_oui_key(key); o && o->slot) {
                    echoes_at.emplace_back(*o, p0.add(key));
                }
                break;
            case key_family::mac_learning:
                if (const auto l = parse_mac_learning_key(key)) {
                    s.learned.push_back({l->vlan, l->phyid, l->mac, ifx_of(l->phyid)});
                }
                break;
            case key_family::spec_oui_msg:
                if (const auto m = parse_spec_oui_msg_key(key)) {
                    s.specified.push_back({m->oui, m->phyid, ifx_of(m->phyid)});
                }
                break;
            case key_family::mac_vlan:
                if (const auto n = parse_mac_vlan_key(key)) {
                    mvlans_at.emplace_back(*n, p0.add(key));
                }
                break;
            case key_family::mvlan_oui_msg:
                if (const auto slot = parse_mvlan_oui_msg_key(key)) {
                    s.mvlan_messages.insert(*slot);
                }
                break;
            default:
                break;
            }
        });
    if (!scanned0) {
        return false;
    }
    const std::size_t marker0_at = p0.add(marker_key);
    const std::size_t debug_at = p0.add(debug_key);
    if (!conn.get_many(DB_STATE, p0.keys, &p0.values)) {
        return false;
    }
    for (const auto &[vid, at] : vids_at) {
        s.applied_vids[vid] = decode<pre_entry_idx_codec>(p0.values[at]);
    }
    if (secu_at) {
        s.applied_security = p0.values[*secu_at];
    }
    if (cos0_at) {
        s.applied_cos_present = true;
        s.applied_cos = decode<cos_dscp_echo_codec>(p0.values[*cos0_at]);
    }
    for (const auto &[parts, at] : echoes_at) {
        s.oui_slots.push_back(
            {*parts.slot, parts.mac, parts.mask, decode<oui_echo_codec>(p0.values[at])});
    }
    std::sort(s.oui_slots.begin(), s.oui_slots.end(),
              [](const oui_slot &a, const oui_slot &b) { return a.slot < b.slot; });
    s.index_ouis();
    for (const auto &[number, at] : mvlans_at) {
        s.mac_vlans.push_back({number, decode<mac_vlan_codec>(p0.values[at])});
    }
    std::sort(s.mac_vlans.begin(), s.mac_vlans.end(),
              [](const mac_vlan_entry &a, const mac_vlan_entry &b) { return a.number < b.number; });
    s.applied_marker = p0.values[marker0_at];
    s.debug_level = p0.values[debug_at];
    s.presence = read_presence(conn);
    if (conn.failed()) {
        return false;
    }
    *out = std::move(s);
    return true;
}
