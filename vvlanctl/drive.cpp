// SPDX-License-Identifier: BSD-3-Clause
// The writing commands: each writes the keys that the management plane,
// the forwarding layer or another component would write, encoded with the
// shared codec. Every argument is checked before the connection is opened,
// so a bad one writes nothing.
// How the plan is written, coherently, is in write_apply.
#include <optional>
#include <span>
#include <utility>

#include "args.h"
#include "commands.h"
#include "ports.h"
#include "wire/key_families.h"
#include "wire/keys.h"
#include "wire/values.h"
#include "write_apply.h"

namespace {

template <std::size_t N>
std::string text_of(const std::array<uint8_t, N> &bytes) {
    return std::string(reinterpret_cast<const char *>(bytes.data()), bytes.size());
}

// The tail under which the tool writes the settings whose key name is not
// used: one key per setting, like the management plane.
constexpr const char *SETTING_TAIL = "1";

std::string setting_key(key_family f) {
    return std::string(prefix_of(f)) + SETTING_TAIL;
}

bool plan_vid(const std::vector<std::string> &a, bool set, plan *p, std::string *why) {
    uint32_t vid = 0;
    if (!arg_count(a.size(), 2, 2, set ? "set vid VLAN" : "unset vid VLAN", why) ||
        !arg_number("VLAN", a[1], VLAN_MIN, VLAN_MAX, &vid, why)) {
        return false;
    }
    write_op op{DB_CONFIG, !set, vid_key(static_cast<uint16_t>(vid)).c_str(), ""};
    if (set) {
        op.single = key_family::vid;
    }
    op.what = "voice VLAN " + std::to_string(vid);
    p->push_back(op);
    return true;
}

bool plan_auto(const std::vector<std::string> &a, bool set, plan *p, std::string *why) {
    uint32_t ifx = 0;
    if (!arg_count(a.size(), 2, 2, set ? "set auto IFX" : "unset auto IFX", why) ||
        !arg_number("IFX", a[1], 0, MAX_IFX, &ifx, why)) {
        return false;
    }
    const std::string key =
        port_oper_key(static_cast<int32_t>(ifx), static_cast<int32_t>(PORT_MODE_AUTO)).c_str();
    write_op op{DB_CONFIG, !set, key,
                set ? text_of(port_oper_codec::encode({ifx, 1, PORT_MODE_AUTO})) : ""};
    op.what = "automatic mode of port " + std::to_string(ifx);
    p->push_back(op);
    return true;
}

bool plan_set(const std::vector<std::string> &a, plan *p, std::string *why) {
    if (a.empty()) {
        *why = "missing arguments; usage: set vid|aging|cos|security|auto VALUE... [--replace]";
        return false;
    }
    const std::string &what = a[0];
    if (what == "vid") {
        return plan_vid(a, true, p, why);
    }
    if (what == "auto") {
        return plan_auto(a, true, p, why);
    }
    if (what == "aging") {
        uint32_t minutes = 0;
        if (!arg_count(a.size(), 2, 2, "set aging MINUTES", why) ||
            !arg_number("MINUTES", a[1], 0, 0xffff, &minutes, why)) {
            return false;
        }
        write_op op{DB_CONFIG, false, setting_key(key_family::age_timer),
                    text_of(aging_time_codec::encode(static_cast<uint16_t>(minutes)))};
        op.single = key_family::age_timer;
        p->push_back(op);
        return true;
    }
    if (what == "cos") {
        uint32_t cos = 0;
        uint32_t dscp = 0;
        if (!arg_count(a.size(), 3, 3, "set cos COS DSCP", why) ||
            !arg_number("COS", a[1], 0, 7, &cos, why) ||
            !arg_number("DSCP", a[2], 0, 63, &dscp, why)) {
            return false;
        }
        write_op op{DB_CONFIG, false, setting_key(key_family::cos_dscp),
                    text_of(cos_dscp_codec::encode(
                        {static_cast<uint8_t>(cos), static_cast<uint8_t>(dscp)}))};
        op.single = key_family::cos_dscp;
        p->push_back(op);
        return true;
    }
    if (what == "security") {
        if (!arg_count(a.size(), 2, 2, "set security on|off", why)) {
            return false;
        }
        if (a[1] != "on" && a[1] != "off") {
            *why = "STATE \"" + a[1] + "\" is neither on nor off";
            return false;
        }
        write_op op{DB_CONFIG, a[1] == "off", setting_key(key_family::secu_mode), ""};
        op.all_under_prefix = op.del;
        if (!op.del) {
            op.single = key_family::secu_mode;
        }
        op.what = "security mode";
        p->push_back(op);
        return true;
    }
    *why = "WHAT \"" + what + "\" is not one of vid, aging, cos, security, auto";
    return false;
}

bool plan_unset(const std::vector<std::string> &a, plan *p, std::string *why) {
    if (a.empty()) {
        *why = "missing arguments; usage: unset vid VLAN | unset auto IFX";
        return false;
    }
    const std::string &what = a[0];
    if (what == "vid") {
        return plan_vid(a, false, p, why);
    }
    if (what == "auto") {
        return plan_auto(a, false, p, why);
    }
    *why = "WHAT \"" + what + "\" is not one of vid, auto";
    return false;
}

bool plan_oui(const std::vector<std::string> &a, bool add, plan *p, std::string *why) {
    mac_addr oui{};
    mac_addr mask{0xff, 0xff, 0xff, 0x00, 0x00, 0x00};
    if (!arg_count(a.size(), 2, 3, add ? "add oui OUI [MASK]" : "del oui OUI [MASK]", why) ||
        !arg_mac("OUI", a[1], &oui, why) || (a.size() == 3 && !arg_mac("MASK", a[2], &mask, why))) {
        return false;
    }
    if (!arg_oui_mask(a[1], a.size() == 3 ? a[2] : "ffffff000000", oui, mask, why)) {
        return false;
    }
    // The key carries the OUI already masked, so add and del of the same
    // OUI name the same key however it was typed.
    const mac_addr masked = mac_and(oui, mask);
    vvlan_oui_oper record{};
    record.mac = masked;
    record.mask = mask;
    record.enable = 1;
    write_op op{DB_CONFIG, !add, oui_oper_key(masked, mask).c_str(),
                add ? text_of(oui_oper_codec::encode(record)) : ""};
    op.what = std::string("OUI ") + mac_hex12(masked).data() + "/" + mac_hex12(mask).data();
    p->push_back(op);
    return true;
}

bool plan_mvlan(const std::vector<std::string> &a, bool add, plan *p, std::string *why) {
    uint32_t index = 0;
    if (!add) {
        if (!arg_count(a.size(), 2, 2, "del mvlan INDEX", why) ||
            !arg_number("INDEX", a[1], 0, MAC_VLAN_ENTRIES - 1, &index, why)) {
            return false;
        }
        write_op op{DB_STATE, true,
                    mac_vlan_key(MAC_VLAN_KEY_BASE + static_cast<int32_t>(index)).c_str(), ""};
        op.what = "MAC-VLAN entry " + std::to_string(index);
        p->push_back(op);
        return true;
    }
    mac_vlan_value v{};
    uint32_t vlan = 0;
    if (!arg_count(a.size(), 5, 5, "add mvlan INDEX MAC MASK VLAN", why) ||
        !arg_number("INDEX", a[1], 0, MAC_VLAN_ENTRIES - 1, &index, why) ||
        !arg_mac("MAC", a[2], &v.mac, why) || !arg_mac("MASK", a[3], &v.mask, why) ||
        !arg_number("VLAN", a[4], VLAN_MIN, VLAN_MAX, &vlan, why)) {
        return false;
    }
    v.vid = static_cast<uint16_t>(vlan);
    p->push_back({DB_STATE, false,
                  mac_vlan_key(MAC_VLAN_KEY_BASE + static_cast<int32_t>(index)).c_str(),
                  text_of(mac_vlan_codec::encode(v))});
    return true;
}

bool plan_add_del(const std::vector<std::string> &a, bool add, plan *p, std::string *why) {
    if (a.empty()) {
        *why = std::string("missing arguments; usage: ") + (add ? "add" : "del") +
               " oui OUI [MASK] | " + (add ? "add mvlan INDEX MAC MASK VLAN" : "del mvlan INDEX");
        return false;
    }
    const std::string &what = a[0];
    if (what == "oui") {
        return plan_oui(a, add, p, why);
    }
    if (what == "mvlan") {
        return plan_mvlan(a, add, p, why);
    }
    *why = "WHAT \"" + what + "\" is not one of oui, mvlan";
    return false;
}

// learn/age VLAN PHYID MAC: the forwarding layer's MAC-learning key.
bool plan_learning(const std::string &cmd, const std::vector<std::string> &a, plan *p,
                   std::string *why) {
    uint32_t vlan = 0;
    uint32_t phyid = 0;
    uint32_t ifx = 0;
    mac_addr mac{};
    if (!arg_count(a.size(), 3, 3, cmd + " VLAN PHYID MAC", why) ||
        !arg_number("VLAN", a[0], VLAN_MIN, VLAN_MAX, &vlan, why) ||
        !arg_phyid("PHYID", a[1], &phyid, &ifx, why) || !arg_mac("MAC", a[2], &mac, why)) {
        return false;
    }
    write_op op{
        DB_STATE, cmd == "age",
        mac_learning_key(static_cast<int32_t>(vlan), static_cast<int32_t>(phyid), mac).c_str(), ""};
    op.what = std::string("address ") + mac_colon(mac).data() + " learned in VLAN " +
              std::to_string(vlan) + " on phyid " + std::to_string(phyid);
    p->push_back(op);
    return true;
}

bool plan_specify(const std::string &cmd, const std::vector<std::string> &a, plan *p,
                  std::string *why) {
    mac_addr oui{};
    uint32_t phyid = 0;
    uint32_t ifx = 0;
    if (!arg_count(a.size(), 2, 2, cmd + " OUI PHYID", why) || !arg_mac("OUI", a[0], &oui, why) ||
        !arg_phyid("PHYID", a[1], &phyid, &ifx, why)) {
        return false;
    }
    write_op op{DB_STATE, cmd == "unspecify",
                spec_oui_msg_key(oui, static_cast<int32_t>(phyid)).c_str(), ""};
    op.what = std::string("specified-OUI message ") + mac_hex12(oui).data() + " for phyid " +
              std::to_string(phyid);
    p->push_back(op);
    return true;
}

bool plan_debug(const std::vector<std::string> &a, plan *p, std::string *why) {
    uint32_t level = 0;
    if (!arg_count(a.size(), 1, 1, "debug LEVEL", why) ||
        !arg_number("LEVEL", a[0], 0, 0x7fffffff, &level, why)) {
        return false;
    }
    p->push_back(
        {DB_STATE, false, family_key(key_family::debug_level).c_str(), std::to_string(level)});
    return true;
}

bool make_plan(const tool_context &t, plan *p, std::string *why) {
    const std::string &c = t.command;
    if (c == "set") {
        return plan_set(t.args, p, why);
    }
    if (c == "unset") {
        return plan_unset(t.args, p, why);
    }
    if (c == "add" || c == "del") {
        return plan_add_del(t.args, c == "add", p, why);
    }
    if (c == "learn" || c == "age") {
        return plan_learning(c, t.args, p, why);
    }
    if (c == "specify" || c == "unspecify") {
        return plan_specify(c, t.args, p, why);
    }
    if (c == "debug") {
        return plan_debug(t.args, p, why);
    }
    *why = "not a writing command";
    return false;
}

// "--replace" anywhere after the command; the rest are the arguments.
std::vector<std::string> without_replace(const std::vector<std::string> &args, bool *replace) {
    std::vector<std::string> rest;
    for (const std::string &a : args) {
        if (a == "--replace") {
            *replace = true;
        } else {
            rest.push_back(a);
        }
    }
    return rest;
}

} // namespace

int cmd_write(const tool_context &t) {
    plan p;
    std::string why;
    bool replace = false;
    tool_context planned = t;
    planned.args = without_replace(t.args, &replace);
    if (replace && t.command != "set") {
        return fail(t, EXIT_USAGE, "--replace applies to set only");
    }
    if (!make_plan(planned, &p, &why)) {
        return fail(t, EXIT_USAGE, why);
    }
    const auto conn = connect_or_report(t);
    if (!conn) {
        return EXIT_CONNECT;
    }
    return apply_plan(t, *conn, p, replace);
}
