// SPDX-License-Identifier: BSD-3-Clause
#include "event_text.h"

#include <span>

#include "ports.h"
#include "wire/key_families.h"
#include "wire/key_parse.h"
#include "wire/keys.h"
#include "wire/values.h"

namespace {

enum class change { WRITTEN, REMOVED, MARKED, OTHER };

// As the bus library maps the events to the daemon's codes.
change change_of(std::string_view event) {
    if (event == "set" || event == "rename_to") {
        return change::WRITTEN;
    }
    if (event == "del" || event == "rename_from" || event == "evicted" || event == "expired") {
        return change::REMOVED;
    }
    if (event == "expire") {
        return change::MARKED;
    }
    return change::OTHER;
}

std::string hex12(const mac_addr &m) {
    return mac_hex12(m).data();
}

std::string port_of_phyid(int32_t phyid) {
    const auto ifx = ifx_of_phyid(static_cast<uint32_t>(phyid));
    return "phyid " + std::to_string(phyid) + " (port " + (ifx ? std::to_string(*ifx) : "?") + ")";
}

template <typename Codec>
std::optional<typename Codec::value_type> fetch_value(event_context &ctx, int db,
                                                      std::string_view key) {
    if (!ctx.fetch) {
        return std::nullopt;
    }
    const auto v = ctx.fetch(db, std::string(key));
    if (!v) {
        return std::nullopt;
    }
    return decode_value<Codec>(
        std::span<const uint8_t>(reinterpret_cast<const uint8_t *>(v->data()), v->size()));
}

std::string fetch_text(event_context &ctx, int db, std::string_view key) {
    const auto v = ctx.fetch ? ctx.fetch(db, std::string(key)) : std::nullopt;
    return v ? *v : "(gone)";
}

std::string voice_of(const event_context &ctx, const mac_addr &mac) {
    for (const auto &[slot, rec] : ctx.slots) {
        if (mac_and(mac, rec.second) == rec.first) {
            return "voice slot " + std::to_string(slot);
        }
    }
    return "not a voice address";
}

std::string learning_line(event_context &ctx, change c, std::string_view key) {
    if (const auto l = parse_mac_learning_key(key)) {
        return std::string(c == change::WRITTEN ? "learn" : "age") + " vlan " +
               std::to_string(l->vlan) + " " + port_of_phyid(l->phyid) + " " +
               mac_colon(l->mac).data() + " " + voice_of(ctx, l->mac);
    }
    if (const auto ifx = parse_join_request_key(key)) {
        return std::string(c == change::WRITTEN ? "join request port "
                                                : "join request withdrawn port ") +
               std::to_string(*ifx);
    }
    return "";
}

std::string port_oper_line(int db, change c, std::string_view key) {
    const auto p = parse_port_oper_key(key);
    if (!p) {
        return "";
    }
    const bool w = c == change::WRITTEN;
    const std::string port = "port " + std::to_string(p->ifx);
    if (p->mode == static_cast<int32_t>(PORT_MODE_JOINED) && db == DB_STATE) {
        return (w ? "join " : "leave ") + port;
    }
    if (p->mode == static_cast<int32_t>(PORT_MODE_AUTO)) {
        if (db == DB_CONFIG) {
            return (w ? "set auto " : "unset auto ") + port;
        }
        return "auto " + port + (w ? " applied" : " withdrawn");
    }
    return std::string(db == DB_CONFIG ? "config " : "") + "port_oper " + port + " mode " +
           std::to_string(p->mode) + (w ? " set" : " deleted");
}

std::string oui_line(event_context &ctx, int db, change c, std::string_view key) {
    const auto o = parse_oui_key(key);
    if (!o) {
        return "";
    }
    const std::string text = hex12(o->mac) + "/" + hex12(o->mask);
    const bool w = c == change::WRITTEN;
    if (db == DB_CONFIG) {
        return (w ? "add oui " : "del oui ") + text;
    }
    if (!o->slot) {
        return "";
    }
    if (w) {
        ctx.slots[*o->slot] = {o->mac, o->mask};
    } else {
        ctx.slots.erase(*o->slot);
    }
    return std::string(w ? "oui add slot " : "oui del slot ") + std::to_string(*o->slot) + " " +
           text;
}

std::string config_line(event_context &ctx, key_family f, change c, std::string_view key) {
    const bool w = c == change::WRITTEN;
    switch (f) {
    case key_family::vid:
        if (const auto v = parse_vid_key(key)) {
            return (w ? "set vid " : "unset vid ") + std::to_string(*v);
        }
        return "";
    case key_family::secu_mode:
        return w ? "set security on" : "set security off";
    case key_family::cos_dscp:
        if (!w) {
            return "unset cos";
        }
        if (const auto v = fetch_value<cos_dscp_codec>(ctx, DB_CONFIG, key)) {
            return "set cos " + std::to_string(v->cos) + " dscp " + std::to_string(v->dscp);
        }
        return "set cos (value gone or short)";
    case key_family::age_timer:
        if (!w) {
            return "unset aging";
        }
        if (const auto v = fetch_value<aging_time_codec>(ctx, DB_CONFIG, key)) {
            return "set aging " + std::to_string(*v) + " min";
        }
        return "set aging (value gone or short)";
    case key_family::data_end:
        return w ? "marker " + fetch_text(ctx, DB_CONFIG, key) : "marker deleted";
    default:
        return "";
    }
}

std::string state_line(event_context &ctx, key_family f, change c, std::string_view key) {
    const bool w = c == change::WRITTEN;
    switch (f) {
    case key_family::vid:
        if (const auto v = parse_vid_key(key)) {
            return "vid " + std::to_string(*v) + (w ? " applied" : " withdrawn");
        }
        return "";
    case key_family::secu_mode:
        return w ? "security applied on" : "security withdrawn";
    case key_family::cos_dscp:
        if (!w) {
            return "cos withdrawn";
        }
        if (const auto v = fetch_value<cos_dscp_echo_codec>(ctx, DB_STATE, key)) {
            return "cos " + std::to_string(v->cos) + " dscp " + std::to_string(v->dscp) +
                   " applied";
        }
        return "cos applied (value gone or short)";
    case key_family::spec_oui_msg:
        if (const auto m = parse_spec_oui_msg_key(key)) {
            return std::string(w ? "specify " : "unspecify ") + hex12(m->oui) + " " +
                   port_of_phyid(m->phyid);
        }
        return "";
    case key_family::mac_vlan:
        if (const auto n = parse_mac_vlan_key(key)) {
            const std::string entry = "entry " + std::to_string(*n - MAC_VLAN_KEY_BASE);
            if (!w) {
                return "mvlan del " + entry;
            }
            if (const auto v = fetch_value<mac_vlan_codec>(ctx, DB_STATE, key)) {
                return "mvlan add " + entry + " " + mac_colon(v->mac).data() + "/" +
                       mac_colon(v->mask).data() + " vlan " + std::to_string(v->vid);
            }
            return "mvlan add " + entry + " (value gone or short)";
        }
        return "";
    case key_family::mvlan_oui_msg:
        if (const auto slot = parse_mvlan_oui_msg_key(key)) {
            return std::string(w ? "mvlan oui message slot "
                                 : "mvlan oui message withdrawn slot ") +
                   std::to_string(*slot);
        }
        return "";
    case key_family::data_end:
        return w ? "marker " + fetch_text(ctx, DB_STATE, key) + " copied" : "marker copy deleted";
    case key_family::debug_level:
        return w ? "debug level " + fetch_text(ctx, DB_STATE, key) : "debug key deleted";
    default:
        return "";
    }
}

} // namespace

std::string event_line(event_context &ctx, int db, std::string_view event, std::string_view key) {
    const change c = change_of(event);
    const std::string where = "db" + std::to_string(db) + " " + std::string(key);
    if (c == change::MARKED) {
        // The re-synchronisation marks what it may sweep with a time to live.
        return "marked " + where;
    }
    if (c == change::OTHER) {
        return std::string(event) + " " + where;
    }
    const auto f = family_of_key(key);
    std::string line;
    if (f == key_family::mac_learning) {
        line = learning_line(ctx, c, key);
    } else if (f == key_family::port_oper) {
        line = port_oper_line(db, c, key);
    } else if (f == key_family::oui_oper) {
        line = oui_line(ctx, db, c, key);
    } else if (f) {
        line = db == DB_CONFIG ? config_line(ctx, *f, c, key) : state_line(ctx, *f, c, key);
    }
    if (line.empty()) {
        return std::string(c == change::WRITTEN ? "set " : "del ") + where;
    }
    return line;
}
