// SPDX-License-Identifier: BSD-3-Clause
#include "metrics.h"

#include <map>

#include "port_view.h"

namespace {

// A label value as the exposition format quotes it.
std::string label(const std::string &v) {
    std::string out;
    for (const char c : v) {
        if (c == '\\' || c == '"') {
            out += '\\';
            out += c;
        } else if (c == '\n') {
            out += "\\n";
        } else {
            out += c;
        }
    }
    return out;
}

class exposition {
  public:
    void family(const char *name, const char *help) {
        out_ += "# HELP ";
        out_ += name;
        out_ += ' ';
        out_ += help;
        out_ += "\n# TYPE ";
        out_ += name;
        out_ += " gauge\n";
    }
    void sample(const char *name, const std::string &labels, int64_t value) {
        out_ += name;
        if (!labels.empty()) {
            out_ += '{';
            out_ += labels;
            out_ += '}';
        }
        out_ += ' ';
        out_ += std::to_string(value);
        out_ += '\n';
    }
    const std::string &text() const { return out_; }

  private:
    std::string out_;
};

} // namespace

std::string metrics_text(const snapshot &s, const std::vector<finding> &found) {
    exposition e;
    e.family("dov_vvlan_daemon_subscribed",
             "1 while a client of the server holds the daemon's subscription patterns.");
    e.sample("dov_vvlan_daemon_subscribed", "",
             s.presence.state == daemon_state::subscribed ? 1 : 0);

    e.family("dov_vvlan_voice_vlan_enabled",
             "1 while the voice VLAN is enabled, as configured (database 1) and as applied "
             "(database 0).");
    e.sample("dov_vvlan_voice_vlan_enabled", "state=\"configured\"", s.cfg_vids.empty() ? 0 : 1);
    e.sample("dov_vvlan_voice_vlan_enabled", "state=\"applied\"", s.applied_vids.empty() ? 0 : 1);
    e.family("dov_vvlan_voice_vlan_id", "The voice VLAN id, as configured and as applied.");
    if (const auto v = s.configured_vid()) {
        e.sample("dov_vvlan_voice_vlan_id", "state=\"configured\"", *v);
    }
    if (const auto v = s.voice_vid()) {
        e.sample("dov_vvlan_voice_vlan_id", "state=\"applied\"", *v);
    }
    e.family("dov_vvlan_voice_vlans_configured", "Voice VLAN id keys in database 1 (1 at most).");
    e.sample("dov_vvlan_voice_vlans_configured", "", static_cast<int64_t>(s.cfg_vids.size()));

    e.family("dov_vvlan_oui_slots_used", "Slots of the daemon's voice OUI table in use.");
    e.sample("dov_vvlan_oui_slots_used", "", static_cast<int64_t>(s.oui_slots.size()));
    e.family("dov_vvlan_oui_slots", "Slots of the daemon's voice OUI table.");
    e.sample("dov_vvlan_oui_slots", "", static_cast<int64_t>(OUI_SLOTS));

    const std::vector<port_view> ports = port_views(s);
    int64_t auto_ports = 0;
    int64_t joined = 0;
    for (const port_view &p : ports) {
        auto_ports += p.auto_mode ? 1 : 0;
        joined += p.joined || p.join_request ? 1 : 0;
    }
    e.family("dov_vvlan_ports_auto", "Ports in automatic mode.");
    e.sample("dov_vvlan_ports_auto", "", auto_ports);
    e.family("dov_vvlan_ports_joined", "Ports joined to the voice VLAN.");
    e.sample("dov_vvlan_ports_joined", "", joined);
    e.family("dov_vvlan_voice_addresses",
             "Voice-OUI addresses learned in the voice VLAN, per automatic or joined port.");
    for (const port_view &p : ports) {
        e.sample("dov_vvlan_voice_addresses", "ifx=\"" + std::to_string(p.ifx) + "\"",
                 static_cast<int64_t>(p.voice.size()));
    }

    std::map<std::string, int64_t> count;
    for (const finding &f : found) {
        ++count[f.kind];
    }
    e.family("dov_vvlan_findings", "Findings of vvlanctl check, by kind and severity.");
    for (const finding_kind &k : FINDING_KINDS) {
        e.sample("dov_vvlan_findings",
                 "kind=\"" + label(k.kind) + "\",severity=\"" + severity_name(k.level) + "\"",
                 count[k.kind]);
    }
    e.family("dov_vvlan_check_status", "vvlanctl check's status: 0 OK, 1 WARNING, 2 CRITICAL.");
    e.sample("dov_vvlan_check_status", "", check_status(found));
    return e.text();
}
