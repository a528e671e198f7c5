// SPDX-License-Identifier: BSD-3-Clause
#include "port_view.h"

#include <map>
#include <set>

#include "ports.h"
#include "wire/keys.h"

std::vector<port_view> port_views(const snapshot &s) {
    std::set<int32_t> ifxs;
    for (const auto &[ifx, modes] : s.cfg_port_modes) {
        if (modes.count(static_cast<int32_t>(PORT_MODE_AUTO)) != 0) {
            ifxs.insert(ifx);
        }
    }
    for (const auto &[ifx, modes] : s.applied_port_modes) {
        if (modes.count(static_cast<int32_t>(PORT_MODE_JOINED)) != 0) {
            ifxs.insert(ifx);
        }
    }
    ifxs.insert(s.join_requests.begin(), s.join_requests.end());

    const std::optional<uint16_t> vid = s.voice_vid();
    // The voice addresses of each port, in one pass over the learnings.
    std::map<int64_t, std::vector<voice_address>> voice;
    for (const learned_address &l : s.learned) {
        if (!vid || l.vlan != *vid || !l.ifx || ifxs.count(static_cast<int32_t>(*l.ifx)) == 0) {
            continue;
        }
        if (const auto slot = s.voice_slot(l.mac)) {
            voice[static_cast<int64_t>(*l.ifx)].push_back({l.mac, l.phyid, *slot});
        }
    }
    std::vector<port_view> out;
    for (const int32_t ifx : ifxs) {
        port_view p{};
        p.ifx = ifx;
        p.phyid = ifx >= 0 ? phyid_of_ifx(static_cast<uint32_t>(ifx)) : std::nullopt;
        p.auto_mode = s.is_auto(ifx);
        p.joined = s.has_mode(ifx, static_cast<int32_t>(PORT_MODE_JOINED));
        p.join_request = s.join_requests.count(ifx) != 0;
        if (const auto it = voice.find(ifx); it != voice.end()) {
            p.voice = std::move(it->second);
        }
        for (const specified_message &m : s.specified) {
            if (m.ifx && static_cast<int64_t>(*m.ifx) == ifx) {
                p.specified.push_back(m.oui);
            }
        }
        out.push_back(std::move(p));
    }
    return out;
}
