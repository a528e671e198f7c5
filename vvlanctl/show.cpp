// SPDX-License-Identifier: BSD-3-Clause
#include "show.h"

#include <string_view>

#include "json_writer.h"
#include "port_view.h"
#include "text_table.h"
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

std::string applied_vid_text(const snapshot &s) {
    if (s.applied_vids.empty()) {
        return "-";
    }
    std::string out;
    for (const auto &[vid, idx] : s.applied_vids) {
        if (!out.empty()) {
            out += ',';
        }
        out += std::to_string(vid);
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

} // namespace

std::string show_text(const snapshot &s) {
    std::string out;
    const auto vid = s.voice_vid();
    out += "voice VLAN\n";
    text_table g({"", "CONFIGURED", "APPLIED"});
    g.row({"id", opt_number(vid), applied_vid_text(s)});
    g.row({"state", vid ? "enabled" : "disabled", s.applied_vids.empty() ? "disabled" : "enabled"});
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
                       : std::to_string(DEFAULT_AGING_MINUTES) + " (default)",
           "(not published)"});
    g.row({"load marker", s.cfg_marker.value_or("-"), s.applied_marker.value_or("-")});
    g.row({"debug level", "", s.debug_level.value_or("-")});
    out += g.render();

    out += "\nvoice OUIs (" + std::to_string(s.oui_slots.size()) + " of 124 slots)\n";
    text_table o({"SLOT", "OUI", "MASK"});
    for (const oui_slot &slot : s.oui_slots) {
        o.row({std::to_string(slot.slot), hex12(slot.mac()), hex12(slot.mask())});
    }
    out += o.render();

    out += "\nports\n";
    text_table p({"IFX", "PHYID", "AUTO", "JOINED", "REQUEST", "VOICE ADDRESSES (PHYID, SLOT)",
                  "SPECIFIED OUIS"});
    // One row per voice address; the port's own columns on its first row.
    for (const port_view &v : port_views(s)) {
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
    out += p.render();

    out += "\nMAC-VLAN entries\n";
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
    out += m.render();
    return out;
}

std::string show_json(const snapshot &s) {
    json_writer j;
    j.begin_object();

    j.key("voice_vlan").begin_object();
    const auto vid = s.voice_vid();
    j.key("configured_vid");
    vid ? j.number(*vid) : j.null();
    j.key("applied_vid");
    s.applied_vids.empty() ? j.null() : j.number(s.applied_vids.begin()->first);
    j.key("enabled").boolean(vid.has_value());
    j.key("security").boolean(s.cfg_security);
    j.key("cos");
    s.cfg_cos ? j.number(s.cfg_cos->cos) : j.null();
    j.key("dscp");
    s.cfg_cos ? j.number(s.cfg_cos->dscp) : j.null();
    j.key("aging_minutes").number(s.cfg_aging.value_or(DEFAULT_AGING_MINUTES));
    j.end_object();

    j.key("ouis").begin_array();
    for (const oui_slot &o : s.oui_slots) {
        j.begin_object();
        j.key("slot").number(o.slot);
        j.key("oui").string(hex12(o.mac()));
        j.key("mask").string(hex12(o.mask()));
        j.end_object();
    }
    j.end_array();

    j.key("ports").begin_array();
    for (const port_view &v : port_views(s)) {
        j.begin_object();
        j.key("ifx").number(v.ifx);
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
            j.string(hex12(m));
        }
        j.end_array();
        j.end_object();
    }
    j.end_array();

    j.key("mac_vlan").begin_array();
    for (const mac_vlan_entry &e : s.mac_vlans) {
        if (!e.value) {
            continue;
        }
        j.begin_object();
        j.key("index").number(e.number - MAC_VLAN_KEY_BASE);
        j.key("mac").string(colon(e.value->mac));
        j.key("mask").string(colon(e.value->mask));
        j.key("vlan").number(e.value->vid);
        j.key("oui_message").boolean(mvlan_message(s, e));
        j.end_object();
    }
    j.end_array();

    j.end_object();
    return j.text();
}
