// SPDX-License-Identifier: BSD-3-Clause
#include "show.h"

#include <string_view>

#include "port_view.h"
#include "ports.h"
#include "printable.h"
#include "text_table.h"
#include "vendor_names.h"
#include "wire/keys.h"

namespace {

std::string hex12(const mac_addr &m) {
    return mac_hex12(m).data();
}

std::string colon(const mac_addr &m) {
    return mac_colon(m).data();
}

std::string yes_no(bool b) {
    return b ? "yes" : "no";
}

std::string opt_number(const std::optional<uint16_t> &v) {
    return v ? std::to_string(*v) : "-";
}

template <typename T>
void opt_json(json_writer &j, const std::optional<T> &v) {
    if (v) {
        j.number(static_cast<int64_t>(*v));
    } else {
        j.null();
    }
}

void opt_json(json_writer &j, const std::optional<std::string> &v) {
    if (v) {
        j.string(*v);
    } else {
        j.null();
    }
}

// The slot a MAC-VLAN entry's masked address names, if it is a voice OUI.
std::optional<uint16_t> mvlan_slot(const snapshot &s, const mac_vlan_value &v) {
    return s.exact_slot(mac_and(v.mac, v.mask));
}

bool mvlan_message(const snapshot &s, const mac_vlan_entry &e) {
    if (!e.value) {
        return false;
    }
    const auto slot = mvlan_slot(s, *e.value);
    return slot && s.mvlan_messages.count(*slot) != 0;
}

std::string vids_text(const std::vector<uint16_t> &vids) {
    if (vids.empty()) {
        return "-";
    }
    std::string out;
    for (const uint16_t vid : vids) {
        if (!out.empty()) {
            out += ',';
        }
        out += std::to_string(vid);
    }
    return out;
}

std::vector<uint16_t> applied_ids(const snapshot &s) {
    std::vector<uint16_t> out;
    for (const auto &[vid, idx] : s.applied_vids) {
        out.push_back(vid);
    }
    return out;
}

std::string cos_text(const std::optional<uint8_t> &cos, const std::optional<uint8_t> &dscp,
                     bool present) {
    if (!present) {
        return "-";
    }
    if (!cos) {
        return "(short value)";
    }
    return std::to_string(*cos) + "/" + std::to_string(*dscp);
}

vendor_names vendors_of(const snapshot &s) {
    std::vector<mac_addr> wanted;
    for (const oui_slot &o : s.oui_slots) {
        wanted.push_back(o.mac());
    }
    return vendor_names(wanted);
}

std::vector<port_view> ports_of(const snapshot &s, const show_request &r) {
    std::vector<port_view> all = port_views(s);
    if (r.part != show_part::port) {
        return all;
    }
    for (port_view &v : all) {
        if (v.ifx == r.ifx) {
            return {std::move(v)};
        }
    }
    // A port with nothing to show is still a port: say so, not nothing.
    port_view v{};
    v.ifx = r.ifx;
    v.phyid = r.ifx >= 0 ? phyid_of_ifx(static_cast<uint32_t>(r.ifx)) : std::nullopt;
    return {v};
}

std::string settings_text(const snapshot &s) {
    std::string out = "voice VLAN\n";
    const auto cfg = s.configured_vid();
    text_table g({"", "CONFIGURED", "APPLIED"});
    g.row({"id", s.cfg_vids.size() > 1 ? vids_text(s.cfg_vids) + " (several)" : opt_number(cfg),
           s.applied_vids.size() > 1 ? vids_text(applied_ids(s)) + " (several)"
                                     : opt_number(s.voice_vid())});
    g.row({"state", s.cfg_vids.empty() ? "disabled" : "enabled",
           s.applied_vids.empty() ? "disabled" : "enabled"});
    g.row({"security", s.cfg_security ? "on" : "off", s.applied_security ? "on" : "off"});
    g.row({"cos/dscp",
           cos_text(s.cfg_cos ? std::optional<uint8_t>(s.cfg_cos->cos) : std::nullopt,
                    s.cfg_cos ? std::optional<uint8_t>(s.cfg_cos->dscp) : std::nullopt,
                    s.cfg_cos_present),
           cos_text(s.applied_cos ? std::optional<uint8_t>(s.applied_cos->cos) : std::nullopt,
                    s.applied_cos ? std::optional<uint8_t>(s.applied_cos->dscp) : std::nullopt,
                    s.applied_cos_present)});
    g.row({"aging (min)",
           s.cfg_aging ? std::to_string(*s.cfg_aging)
                       : std::to_string(DEFAULT_AGING_MINUTES) + " (the daemon's default)",
           "(not published)"});
    g.row({"load marker", s.cfg_marker.value_or("-"), s.applied_marker.value_or("-")});
    g.row({"debug level", "", s.debug_level.value_or("-")});
    return out + g.render();
}

std::string ouis_text(const snapshot &s) {
    const vendor_names vendors = vendors_of(s);
    std::string out = "voice OUIs (" + std::to_string(s.oui_slots.size()) + " of " +
                      std::to_string(OUI_SLOTS) + " slots)\n";
    text_table o({"SLOT", "OUI", "MASK", "VENDOR"});
    for (const oui_slot &slot : s.oui_slots) {
        o.row({std::to_string(slot.slot), hex12(slot.mac()), hex12(slot.mask()),
               vendors.of(slot.mac()).value_or("-")});
    }
    return out + o.render();
}

std::string ports_text(const snapshot &s, const show_request &r) {
    std::string out = "ports\n";
    text_table p({"IFX", "PHYID", "AUTO", "JOINED", "REQUEST", "VOICE ADDRESSES (PHYID, SLOT)",
                  "SPECIFIED OUIS"});
    // One row per voice address; the port's own columns on its first row.
    for (const port_view &v : ports_of(s, r)) {
        std::string spec;
        for (const mac_addr &m : v.specified) {
            if (!spec.empty()) {
                spec += ' ';
            }
            spec += hex12(m);
        }
        std::vector<std::string> row{
            std::to_string(v.ifx),    v.phyid ? std::to_string(*v.phyid) : "?",
            yes_no(v.auto_mode),      yes_no(v.joined),
            yes_no(v.join_request),   "-",
            spec.empty() ? "-" : spec};
        if (v.voice.empty()) {
            p.row(row);
        }
        for (std::size_t i = 0; i < v.voice.size(); ++i) {
            const voice_address &a = v.voice[i];
            row[5] =
                colon(a.mac) + " (" + std::to_string(a.phyid) + ", " + std::to_string(a.slot) + ")";
            if (i > 0) {
                row = {"", "", "", "", "", row[5], ""};
            }
            p.row(row);
        }
    }
    return out + p.render();
}

std::string mac_vlan_text(const snapshot &s) {
    std::string out = "MAC-VLAN entries\n";
    text_table m({"INDEX", "MAC", "MASK", "VLAN", "OUI SLOT", "OUI MESSAGE"});
    for (const mac_vlan_entry &e : s.mac_vlans) {
        const std::string index = std::to_string(e.number - MAC_VLAN_KEY_BASE);
        if (!e.value) {
            m.row({index, "(short value)", "", "", "", ""});
            continue;
        }
        const auto slot = mvlan_slot(s, *e.value);
        m.row({index, colon(e.value->mac), colon(e.value->mask), std::to_string(e.value->vid),
               slot ? std::to_string(*slot) : "-", yes_no(mvlan_message(s, e))});
    }
    return out + m.render();
}

void pair_json(json_writer &j, std::string_view name, const std::optional<uint16_t> &configured,
               const std::optional<uint16_t> &applied) {
    j.key(name).begin_object();
    j.key("configured");
    opt_json(j, configured);
    j.key("applied");
    opt_json(j, applied);
    j.end_object();
}

void pair_json(json_writer &j, std::string_view name, bool configured, bool applied) {
    j.key(name).begin_object();
    j.key("configured").boolean(configured);
    j.key("applied").boolean(applied);
    j.end_object();
}

void settings_json(json_writer &j, const snapshot &s) {
    j.key("voice_vlan").begin_object();
    pair_json(j, "vid", s.configured_vid(), s.voice_vid());
    j.key("configured_vids").begin_array();
    for (const uint16_t v : s.cfg_vids) {
        j.number(v);
    }
    j.end_array();
    j.key("applied_vids").begin_array();
    for (const uint16_t v : applied_ids(s)) {
        j.number(v);
    }
    j.end_array();
    pair_json(j, "enabled", !s.cfg_vids.empty(), !s.applied_vids.empty());
    pair_json(j, "security", s.cfg_security, s.applied_security.has_value());
    pair_json(j, "cos", s.cfg_cos ? std::optional<uint16_t>(s.cfg_cos->cos) : std::nullopt,
              s.applied_cos ? std::optional<uint16_t>(s.applied_cos->cos) : std::nullopt);
    pair_json(j, "dscp", s.cfg_cos ? std::optional<uint16_t>(s.cfg_cos->dscp) : std::nullopt,
              s.applied_cos ? std::optional<uint16_t>(s.applied_cos->dscp) : std::nullopt);
    // The daemon publishes no copy of the aging time.
    j.key("aging_minutes").begin_object();
    j.key("configured");
    opt_json(j, s.cfg_aging);
    j.key("applied").null();
    j.key("default").number(DEFAULT_AGING_MINUTES);
    j.end_object();
    j.key("load_marker").begin_object();
    j.key("configured");
    opt_json(j, s.cfg_marker);
    j.key("applied");
    opt_json(j, s.applied_marker);
    j.end_object();
    j.key("debug_level").begin_object();
    j.key("configured").null();
    j.key("applied");
    opt_json(j, s.debug_level);
    j.end_object();
    j.end_object();
}

void ouis_json(json_writer &j, const snapshot &s) {
    const vendor_names vendors = vendors_of(s);
    j.key("oui_table").begin_object();
    j.key("used").number(static_cast<int64_t>(s.oui_slots.size()));
    j.key("slots").number(static_cast<int64_t>(OUI_SLOTS));
    j.key("entries").begin_array();
    for (const oui_slot &o : s.oui_slots) {
        j.begin_object();
        j.key("slot").number(o.slot);
        j.key("oui").string(colon(o.mac()));
        j.key("mask").string(colon(o.mask()));
        j.key("vendor");
        opt_json(j, vendors.of(o.mac()));
        j.end_object();
    }
    j.end_array();
    j.end_object();
}

void ports_json(json_writer &j, const snapshot &s, const show_request &r) {
    j.key("ports").begin_array();
    for (const port_view &v : ports_of(s, r)) {
        j.begin_object();
        j.key("ifx").number(v.ifx);
        j.key("phyid");
        opt_json(j, v.phyid);
        j.key("auto").boolean(v.auto_mode);
        j.key("joined").boolean(v.joined);
        j.key("join_request").boolean(v.join_request);
        j.key("voice_addresses").begin_array();
        for (const voice_address &a : v.voice) {
            j.begin_object();
            j.key("mac").string(colon(a.mac));
            j.key("phyid").number(a.phyid);
            j.key("oui_slot").number(a.slot);
            j.end_object();
        }
        j.end_array();
        j.key("specified_ouis").begin_array();
        for (const mac_addr &m : v.specified) {
            j.string(colon(m));
        }
        j.end_array();
        j.end_object();
    }
    j.end_array();
}

void mac_vlan_json(json_writer &j, const snapshot &s) {
    j.key("mac_vlan").begin_array();
    for (const mac_vlan_entry &e : s.mac_vlans) {
        j.begin_object();
        j.key("index").number(e.number - MAC_VLAN_KEY_BASE);
        // A value shorter than a record: the entry is there, its fields not.
        j.key("readable").boolean(e.value.has_value());
        const auto slot = e.value ? mvlan_slot(s, *e.value) : std::nullopt;
        j.key("mac");
        e.value ? j.string(colon(e.value->mac)) : j.null();
        j.key("mask");
        e.value ? j.string(colon(e.value->mask)) : j.null();
        j.key("vlan");
        e.value ? j.number(e.value->vid) : j.null();
        j.key("oui_slot");
        opt_json(j, slot);
        j.key("oui_message").boolean(mvlan_message(s, e));
        j.end_object();
    }
    j.end_array();
}

} // namespace

std::string presence_text(const daemon_presence &p) {
    std::string out = "daemon: ";
    switch (p.state) {
    case daemon_state::subscribed:
        out += "subscribed";
        if (p.since_unix) {
            out += " since " + iso_utc(*p.since_unix);
        }
        break;
    case daemon_state::connected:
        out += "connected but NOT subscribed: the applied values below are what it last "
               "published";
        break;
    case daemon_state::absent:
        out += "NOT connected: the applied values below are what it last published";
        break;
    case daemon_state::unknown:
        out += "unknown (the server refused its client list: " + printable(p.refusal) + ")";
        break;
    }
    if (p.name) {
        out += " (" + printable(*p.name) + ")";
    }
    return out + "\n";
}

void presence_json(json_writer &j, const daemon_presence &p) {
    j.begin_object();
    j.key("state").string(daemon_state_name(p.state));
    j.key("subscribed").boolean(p.state == daemon_state::subscribed);
    j.key("since");
    p.since_unix ? j.string(iso_utc(*p.since_unix)) : j.null();
    j.key("client_name");
    opt_json(j, p.name);
    j.end_object();
}

namespace {

// The daemon's line, then whether it has caught up: a marker whose copy
// differs is a write it has not handled yet.
std::string opening_text(const snapshot &s) {
    std::string out = presence_text(s.presence);
    out += "load marker: configured ";
    out += printable(s.cfg_marker.value_or("-"));
    out += ", applied ";
    out += printable(s.applied_marker.value_or("-"));
    return out + "\n";
}

} // namespace

std::string show_text(const snapshot &s, const show_request &r) {
    switch (r.part) {
    case show_part::port:
        return opening_text(s) + "\n" + ports_text(s, r);
    case show_part::ouis:
        return ouis_text(s);
    case show_part::mac_vlan:
        return mac_vlan_text(s);
    case show_part::all:
        break;
    }
    return opening_text(s) + "\n" + settings_text(s) + "\n" + ouis_text(s) + "\n" +
           ports_text(s, r) + "\n" + mac_vlan_text(s);
}

std::string show_json(const snapshot &s, const show_request &r) {
    json_writer j;
    j.begin_object();
    j.key("schema_version").number(JSON_SCHEMA_VERSION);
    j.key("daemon");
    presence_json(j, s.presence);
    if (r.part == show_part::all) {
        settings_json(j, s);
    }
    if (r.part == show_part::all || r.part == show_part::ouis) {
        ouis_json(j, s);
    }
    if (r.part == show_part::all || r.part == show_part::port) {
        ports_json(j, s, r);
    }
    if (r.part == show_part::all || r.part == show_part::mac_vlan) {
        mac_vlan_json(j, s);
    }
    j.end_object();
    return j.text();
}
