// SPDX-License-Identifier: BSD-3-Clause
#include "check.h"

#include <algorithm>

#include "json_writer.h"
#include "port_view.h"
#include "printable.h"
#include "show.h"
#include "wire/keys.h"

namespace {

// A port with a join request and no reason to be joined.
void port_findings(const snapshot &s, const port_view &p, std::vector<finding> *out) {
    const std::string join_key = join_request_key(p.ifx).c_str();
    const std::string mode2_key = port_oper_key(p.ifx, PORT_MODE_JOINED).c_str();
    // A specified-OUI message joins a port without a mode 2 key: only a
    // join that came from a learning must have one.
    if (p.join_request && !p.joined && p.specified.empty()) {
        out->push_back(
            {"join_key_missing", p.ifx,
             "join request " + join_key + " in database 1 but no " + mode2_key + " in database 0"});
    }
    if (p.join_request && p.voice.empty() && p.specified.empty()) {
        const auto vid = s.voice_vid();
        out->push_back(
            {"joined_without_voice_address", p.ifx,
             "join request " + join_key + " but no voice-OUI address learned on the port in " +
                 (vid ? "VLAN " + std::to_string(*vid) : std::string("the voice VLAN (none)")) +
                 " and no specified-OUI message for it (normal only within one aging period, " +
                 std::to_string(s.cfg_aging.value_or(DEFAULT_AGING_MINUTES)) +
                 " min, after its last voice address aged)"});
    }
    if (!p.join_request && p.auto_mode && !p.voice.empty()) {
        out->push_back({"voice_address_not_joined", p.ifx,
                        "voice-OUI address " + std::string(mac_colon(p.voice.front().mac).data()) +
                            " learned on automatic port " + std::to_string(p.ifx) +
                            " in the voice VLAN, but no join request " + join_key});
    }
    if (!p.auto_mode && (p.join_request || p.joined)) {
        std::string what;
        if (p.join_request) {
            what = "join request " + join_key;
        }
        if (p.joined) {
            what += (what.empty() ? "" : " and ") + mode2_key;
        }
        out->push_back({"joined_not_auto", p.ifx,
                        what + " on port " + std::to_string(p.ifx) + ", which has no " +
                            port_oper_key(p.ifx, PORT_MODE_AUTO).c_str() + " in database 1"});
    }
}

void differs(std::vector<finding> *out, std::optional<int32_t> ifx, std::string detail) {
    out->push_back({"published_differs", ifx, std::move(detail)});
}

void vid_findings(const snapshot &s, std::vector<finding> *out) {
    for (const auto &[vid, idx] : s.applied_vids) {
        if (!std::binary_search(s.cfg_vids.begin(), s.cfg_vids.end(), vid)) {
            differs(out, std::nullopt,
                    std::string(vid_key(vid).c_str()) +
                        " in database 0, but database 1 configures no voice VLAN " +
                        std::to_string(vid));
        }
    }
    for (const uint16_t vid : s.cfg_vids) {
        if (s.applied_vids.count(vid) == 0) {
            differs(out, std::nullopt,
                    "voice VLAN " + std::to_string(vid) + " configured, but no " +
                        vid_key(vid).c_str() + " in database 0");
        }
    }
}

void security_findings(const snapshot &s, std::vector<finding> *out) {
    // Published only while both the voice VLAN and the security mode are on.
    const bool expected = s.cfg_security && s.voice_vid().has_value();
    const std::string key = prefix_of(key_family::secu_mode);
    if (expected && !s.applied_security) {
        differs(out, std::nullopt,
                "security mode configured on with the voice VLAN enabled, but no " + key +
                    " in database 0");
    } else if (!expected && s.applied_security) {
        differs(out, std::nullopt,
                key + " published in database 0, but database 1 configures the security mode " +
                    (s.cfg_security ? "on with no voice VLAN" : "off"));
    }
}

void cos_findings(const snapshot &s, std::vector<finding> *out) {
    const std::string key = prefix_of(key_family::cos_dscp);
    if (s.cfg_cos_present && !s.applied_cos_present) {
        differs(out, std::nullopt, "CoS/DSCP configured, but no " + key + " in database 0");
    } else if (!s.cfg_cos_present && s.applied_cos_present) {
        differs(out, std::nullopt,
                key + " published in database 0, but database 1 configures no CoS/DSCP");
    } else if (s.cfg_cos && s.applied_cos &&
               (s.cfg_cos->cos != s.applied_cos->cos || s.cfg_cos->dscp != s.applied_cos->dscp)) {
        differs(out, std::nullopt,
                key + " publishes cos " + std::to_string(s.applied_cos->cos) + " dscp " +
                    std::to_string(s.applied_cos->dscp) + ", database 1 configures cos " +
                    std::to_string(s.cfg_cos->cos) + " dscp " + std::to_string(s.cfg_cos->dscp));
    }
}

// The echo key the daemon writes for a configured OUI: the record's masked
// address and its mask, under any slot.
bool produces(const configured_oui &c, const oui_slot &o) {
    if (!c.record) {
        return false;
    }
    return mac_and(c.record->mac, c.record->mask) == o.key_mac && c.record->mask == o.key_mask;
}

void oui_findings(const snapshot &s, std::vector<finding> *out) {
    for (const oui_slot &o : s.oui_slots) {
        const bool configured =
            std::any_of(s.cfg_ouis.begin(), s.cfg_ouis.end(),
                        [&](const configured_oui &c) { return produces(c, o); });
        if (!configured) {
            differs(out, std::nullopt,
                    std::string(oui_echo_key(o.key_mac, o.key_mask, o.slot).c_str()) +
                        " in database 0, but database 1 configures no such OUI");
        }
    }
    for (const configured_oui &c : s.cfg_ouis) {
        const bool echoed = std::any_of(s.oui_slots.begin(), s.oui_slots.end(),
                                        [&](const oui_slot &o) { return produces(c, o); });
        if (!echoed) {
            differs(out, std::nullopt,
                    std::string(oui_oper_key(c.key_mac, c.key_mask).c_str()) +
                        (c.record ? " configured, but no echo of it in database 0 (a full "
                                    "table refuses the 125th OUI)"
                                  : " configured with a value shorter than a record"));
        }
    }
}

void port_echo_findings(const snapshot &s, std::vector<finding> *out) {
    const auto auto_mode = static_cast<int32_t>(PORT_MODE_AUTO);
    for (const auto &[ifx, modes] : s.applied_port_modes) {
        if (modes.count(auto_mode) != 0 && !s.is_auto(ifx)) {
            differs(out, ifx,
                    std::string(port_oper_key(ifx, auto_mode).c_str()) +
                        " in database 0, but port " + std::to_string(ifx) +
                        " is not configured automatic in database 1");
        }
    }
    for (const auto &[ifx, modes] : s.cfg_port_modes) {
        if (modes.count(auto_mode) != 0 && !s.has_mode(ifx, auto_mode)) {
            differs(out, ifx,
                    "port " + std::to_string(ifx) + " configured automatic, but no " +
                        port_oper_key(ifx, auto_mode).c_str() + " in database 0");
        }
    }
}

} // namespace

std::vector<finding> audit(const snapshot &s) {
    std::vector<finding> out;
    for (const port_view &p : port_views(s)) {
        port_findings(s, p, &out);
    }
    vid_findings(s, &out);
    security_findings(s, &out);
    cos_findings(s, &out);
    oui_findings(s, &out);
    port_echo_findings(s, &out);
    return out;
}

std::string findings_text(const std::vector<finding> &f) {
    std::string out;
    for (const finding &x : f) {
        out += x.kind;
        if (x.ifx) {
            out += " port " + std::to_string(*x.ifx);
        }
        out += ": " + printable(x.detail) + "\n";
    }
    return out;
}

std::string findings_json(const std::vector<finding> &f) {
    json_writer j;
    j.begin_array();
    for (const finding &x : f) {
        j.begin_object();
        j.key("kind").string(x.kind);
        if (x.ifx) {
            j.key("ifx").number(*x.ifx);
        }
        j.key("detail").string(x.detail);
        j.end_object();
    }
    j.end_array();
    return j.text();
}
