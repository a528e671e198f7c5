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
    const std::string ifx = std::to_string(p.ifx);
    const std::string aging = std::to_string(s.cfg_aging.value_or(DEFAULT_AGING_MINUTES)) + " min";
    // A specified-OUI message joins a port without a mode 2 key: only a
    // join that came from a learning must have one.
    if (p.join_request && !p.joined && p.specified.empty()) {
        out->push_back(
            {"join_key_missing", severity::critical, p.ifx,
             "join request " + join_key + " in database 1 but no " + mode2_key + " in database 0",
             "vvlanctl unset auto " + ifx + "; vvlanctl set auto " + ifx +
                 "; then let the phone be learned again"});
    }
    if (p.join_request && p.voice.empty() && p.specified.empty()) {
        const auto vid = s.voice_vid();
        out->push_back(
            {"joined_without_voice_address", severity::info, p.ifx,
             "join request " + join_key + " but no voice-OUI address learned on the port in " +
                 (vid ? "VLAN " + std::to_string(*vid) : std::string("the voice VLAN (none)")) +
                 " and no specified-OUI message for it (normal within one aging period, " + aging +
                 ", after its last voice address aged)",
             "nothing within " + aging + "; if it outlasts that, vvlanctl unset auto " + ifx +
                 "; vvlanctl set auto " + ifx});
    }
    if (!p.join_request && p.auto_mode && !p.voice.empty()) {
        const voice_address &a = p.voice.front();
        const std::string learn = std::to_string(s.voice_vid().value_or(0)) + " " +
                                  std::to_string(a.phyid) + " " + mac_colon(a.mac).data();
        out->push_back({"voice_address_not_joined", severity::critical, p.ifx,
                        "voice-OUI address " + std::string(mac_colon(a.mac).data()) +
                            " learned on automatic port " + ifx +
                            " in the voice VLAN, but no join request " + join_key,
                        // The port's count in the daemon may still hold the
                        // address (a server restart): it starts from zero
                        // again when the port leaves automatic mode.
                        "vvlanctl age " + learn + "; vvlanctl unset auto " + ifx +
                            "; vvlanctl set auto " + ifx + "; vvlanctl learn " + learn});
    }
    if (!p.auto_mode && (p.join_request || p.joined)) {
        std::string what;
        if (p.join_request) {
            what = "join request " + join_key;
        }
        if (p.joined) {
            what += (what.empty() ? "" : " and ") + mode2_key;
        }
        // Withdrawing a specified-OUI message does not make the daemon delete
        // the join request (only a mode 1 delete or an aging does): the port
        // is made automatic, which the message's join then agrees with.
        const std::string advice =
            "vvlanctl set auto " + ifx + "; then leave it so until the port's addresses have aged";
        out->push_back({"joined_not_auto", severity::warning, p.ifx,
                        what + " on port " + ifx + ", which has no " +
                            port_oper_key(p.ifx, PORT_MODE_AUTO).c_str() + " in database 1",
                        advice});
    }
    // The aging thread removes the mode 2 key with the join request; a mode
    // 2 key alone was left by a daemon that is gone or restarted.
    if (p.joined && !p.join_request) {
        out->push_back(
            {"join_key_without_join", severity::warning, p.ifx,
             mode2_key + " in database 0 but no join request " + join_key + " in database 1",
             "vvlanctl unset auto " + ifx + "; vvlanctl set auto " + ifx});
    }
}

constexpr const char *REWRITE = "write the setting again with vvlanctl, then vvlanctl sync";

void differs(std::vector<finding> *out, std::optional<int32_t> ifx, std::string detail,
             std::string advice = REWRITE) {
    out->push_back(
        {"published_differs", severity::warning, ifx, std::move(detail), std::move(advice)});
}

// A copy in database 0 that no configuration produces any more: the daemon
// withdraws a copy only on the delete of its configuration.
void stale(std::vector<finding> *out, std::optional<int32_t> ifx, std::string detail,
           std::string advice) {
    out->push_back({"applied_without_configuration", severity::warning, ifx, std::move(detail),
                    std::move(advice)});
}

void vid_findings(const snapshot &s, std::vector<finding> *out) {
    for (const auto &[vid, idx] : s.applied_vids) {
        if (!std::binary_search(s.cfg_vids.begin(), s.cfg_vids.end(), vid)) {
            const std::string v = std::to_string(vid);
            stale(out, std::nullopt,
                  std::string(vid_key(vid).c_str()) +
                      " in database 0, but database 1 configures no voice VLAN " + v,
                  s.cfg_vids.empty() ? "vvlanctl set vid " + v + "; vvlanctl unset vid " + v
                                     : "vvlanctl sync (a pending delete), else restart the daemon");
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
                    " in database 0",
                "vvlanctl set security off; vvlanctl set security on");
    } else if (!expected && s.applied_security) {
        stale(out, std::nullopt,
              key + " published in database 0, but database 1 configures the security mode " +
                  (s.cfg_security ? "on with no voice VLAN" : "off"),
              s.cfg_security ? "vvlanctl set security off; vvlanctl set security on"
                             : "vvlanctl set security on; vvlanctl set security off");
    }
}

void cos_findings(const snapshot &s, std::vector<finding> *out) {
    const std::string key = prefix_of(key_family::cos_dscp);
    if (s.cfg_cos_present && !s.applied_cos_present) {
        differs(out, std::nullopt, "CoS/DSCP configured, but no " + key + " in database 0");
    } else if (!s.cfg_cos_present && s.applied_cos_present) {
        stale(out, std::nullopt,
              key + " published in database 0, but database 1 configures no CoS/DSCP",
              "the daemon never withdraws it: vvlanctl set cos with the values the forwarding "
              "layer should keep");
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
            const std::string oui =
                std::string(mac_hex12(o.key_mac).data()) + " " + mac_hex12(o.key_mask).data();
            stale(out, std::nullopt,
                  std::string(oui_echo_key(o.key_mac, o.key_mask, o.slot).c_str()) +
                      " in database 0, but database 1 configures no such OUI",
                  "vvlanctl add oui " + oui + "; vvlanctl del oui " + oui);
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
                                  : " configured with a value shorter than a record"),
                    c.record && s.oui_slots.size() >= OUI_SLOTS
                        ? "vvlanctl del oui for one no longer needed, then add this one again"
                        : REWRITE);
        }
    }
}

void port_echo_findings(const snapshot &s, std::vector<finding> *out) {
    const auto auto_mode = static_cast<int32_t>(PORT_MODE_AUTO);
    for (const auto &[ifx, modes] : s.applied_port_modes) {
        if (modes.count(auto_mode) != 0 && !s.is_auto(ifx)) {
            const std::string n = std::to_string(ifx);
            stale(out, ifx,
                  std::string(port_oper_key(ifx, auto_mode).c_str()) + " in database 0, but port " +
                      n + " is not configured automatic in database 1",
                  "vvlanctl set auto " + n + "; vvlanctl unset auto " + n);
        }
    }
    for (const auto &[ifx, modes] : s.cfg_port_modes) {
        if (modes.count(auto_mode) != 0 && !s.has_mode(ifx, auto_mode)) {
            differs(out, ifx,
                    "port " + std::to_string(ifx) + " configured automatic, but no " +
                        port_oper_key(ifx, auto_mode).c_str() + " in database 0",
                    "vvlanctl unset auto " + std::to_string(ifx) + "; vvlanctl set auto " +
                        std::to_string(ifx));
        }
    }
}

// Findings of the configuration alone, true whether the daemon runs or not.
void config_findings(const snapshot &s, std::vector<finding> *out) {
    if (s.cfg_vids.size() > 1) {
        std::string ids;
        for (const uint16_t v : s.cfg_vids) {
            ids += (ids.empty() ? "" : ", ") + std::to_string(v);
        }
        const auto applied = s.voice_vid();
        out->push_back(
            {"several_voice_vlans", severity::warning, std::nullopt,
             "database 1 configures voice VLANs " + ids +
                 "; the daemon follows the last one written" +
                 (applied ? " (VLAN " + std::to_string(*applied) + " in database 0)" : ""),
             "vvlanctl set vid " + std::to_string(applied.value_or(s.cfg_vids.back())) +
                 " --replace"});
    }
}

// A MAC-VLAN OUI message names a voice OUI slot; the daemon withdraws it
// only when it unlinks a MAC-VLAN entry it remembers, so one that outlived
// its entry (a server restart, then a daemon restart) stays for good.
void mvlan_message_findings(const snapshot &s, std::vector<finding> *out) {
    for (const uint16_t slot : s.mvlan_messages) {
        const oui_slot *o = nullptr;
        for (const oui_slot &x : s.oui_slots) {
            if (x.slot == slot) {
                o = &x;
            }
        }
        const bool linked =
            o != nullptr &&
            std::any_of(s.mac_vlans.begin(), s.mac_vlans.end(), [&](const mac_vlan_entry &e) {
                return e.value && mac_and(e.value->mac, e.value->mask) == o->mac();
            });
        if (linked) {
            continue;
        }
        std::string key = family_key(key_family::mvlan_oui_msg).c_str();
        key += std::to_string(slot);
        // Linking an entry in the voice VLAN and unlinking it makes the
        // daemon delete the message: its only way to withdraw one.
        std::string advice = "vvlanctl add oui for an OUI, whose slot becomes " +
                             std::to_string(slot) + ", then follow the advice check gives";
        const auto vid = s.voice_vid();
        if (o != nullptr && vid) {
            int32_t index = 0;
            for (const mac_vlan_entry &e : s.mac_vlans) {
                index += e.number - MAC_VLAN_KEY_BASE == index ? 1 : 0;
            }
            const std::string n = std::to_string(index);
            advice = "vvlanctl add mvlan " + n + " " + mac_hex12(o->mac()).data() + " " +
                     mac_hex12(o->mask()).data() + " " + std::to_string(*vid) +
                     "; vvlanctl del mvlan " + n;
        }
        out->push_back({"oui_message_without_entry", severity::warning, std::nullopt,
                        key + " in database 0, but no MAC-VLAN entry " +
                            (o != nullptr ? "matches OUI slot " + std::to_string(slot)
                                          : "and no OUI in slot " + std::to_string(slot)),
                        advice});
    }
}

void presence_findings(const snapshot &s, std::vector<finding> *out) {
    const daemon_presence &p = s.presence;
    if (p.state == daemon_state::unknown) {
        out->push_back({"daemon_presence_unknown", severity::warning, std::nullopt,
                        "the server refused its client list (" + p.refusal +
                            "): whether the daemon runs is not known",
                        "give this user CLIENT LIST (ACL +client|list)"});
        return;
    }
    if (p.state != daemon_state::subscribed) {
        out->push_back({"daemon_not_subscribed", severity::critical, std::nullopt,
                        std::string("no connection to the server holds the daemon's ") +
                            std::to_string(DAEMON_PATTERNS) + " patterns" +
                            (p.state == daemon_state::connected
                                 ? " (the bus library is connected as " + p.name.value_or("?") +
                                       " but not subscribed)"
                                 : "") +
                            "; database 0 holds what it last published, which nothing follows",
                        "start the daemon (systemctl start dov_vvlan), then vvlanctl sync"});
    }
}

} // namespace

std::vector<finding> audit(const snapshot &s) {
    std::vector<finding> out;
    presence_findings(s, &out);
    config_findings(s, &out);
    if (!out.empty() && out.front().kind == "daemon_not_subscribed") {
        return out;
    }
    for (const port_view &p : port_views(s)) {
        port_findings(s, p, &out);
    }
    vid_findings(s, &out);
    security_findings(s, &out);
    cos_findings(s, &out);
    oui_findings(s, &out);
    port_echo_findings(s, &out);
    mvlan_message_findings(s, &out);
    return out;
}

const char *severity_name(severity s) {
    switch (s) {
    case severity::info:
        return "info";
    case severity::warning:
        return "warning";
    case severity::critical:
        break;
    }
    return "critical";
}

int check_status(const std::vector<finding> &f) {
    int status = CHECK_OK;
    for (const finding &x : f) {
        if (x.level == severity::critical) {
            return CHECK_CRITICAL;
        }
        if (x.level == severity::warning) {
            status = CHECK_WARNING;
        }
    }
    return status;
}

std::string findings_text(const std::vector<finding> &f) {
    std::string out;
    for (const finding &x : f) {
        out += x.kind;
        if (x.ifx) {
            out += " port " + std::to_string(*x.ifx);
        }
        out += ": ";
        out += severity_name(x.level);
        out += ": " + printable(x.detail) + "\n";
        out += "  advice: " + printable(x.advice) + "\n";
    }
    return out;
}

std::string findings_json(const std::vector<finding> &f, const snapshot &s) {
    static const char *const STATUS[] = {"OK", "WARNING", "CRITICAL", "UNKNOWN"};
    json_writer j;
    j.begin_object();
    j.key("schema_version").number(JSON_SCHEMA_VERSION);
    const int status = check_status(f);
    j.key("status").string(STATUS[status]);
    j.key("exit_code").number(status);
    j.key("daemon");
    presence_json(j, s.presence);
    j.key("findings").begin_array();
    for (const finding &x : f) {
        j.begin_object();
        j.key("kind").string(x.kind);
        j.key("severity").string(severity_name(x.level));
        j.key("ifx");
        x.ifx ? j.number(*x.ifx) : j.null();
        j.key("detail").string(x.detail);
        j.key("advice").string(x.advice);
        j.end_object();
    }
    j.end_array();
    j.end_object();
    return j.text();
}
