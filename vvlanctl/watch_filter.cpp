// SPDX-License-Identifier: BSD-3-Clause
#include "watch_filter.h"

#include "args.h"
#include "ports.h"
#include "wire/key_parse.h"

namespace {

// A learned address or a specified OUI is of a voice OUI by its first three
// bytes, as the daemon's default mask reads it.
const mac_addr OUI_MASK{0xff, 0xff, 0xff, 0x00, 0x00, 0x00};

std::optional<int32_t> ifx_of(int32_t phyid) {
    const auto ifx = ifx_of_phyid(static_cast<uint32_t>(phyid));
    if (!ifx) {
        return std::nullopt;
    }
    return static_cast<int32_t>(*ifx);
}

bool oui_matches(const mac_addr &oui, std::string_view key) {
    if (const auto o = parse_oui_key(key)) {
        return mac_and(oui, o->mask) == mac_and(o->mac, o->mask);
    }
    if (const auto l = parse_mac_learning_key(key)) {
        return mac_and(l->mac, OUI_MASK) == mac_and(oui, OUI_MASK);
    }
    if (const auto m = parse_spec_oui_msg_key(key)) {
        return mac_and(m->oui, OUI_MASK) == mac_and(oui, OUI_MASK);
    }
    return false;
}

std::string family_names() {
    std::string out;
    for (const key_family_decl &d : KEY_FAMILIES) {
        out += (out.empty() ? "" : ", ") + std::string(d.name);
    }
    return out;
}

} // namespace

std::optional<int32_t> port_of_key(std::string_view key) {
    if (const auto p = parse_port_oper_key(key)) {
        return p->ifx;
    }
    if (const auto ifx = parse_join_request_key(key)) {
        return *ifx;
    }
    if (const auto l = parse_mac_learning_key(key)) {
        return ifx_of(l->phyid);
    }
    if (const auto m = parse_spec_oui_msg_key(key)) {
        return ifx_of(m->phyid);
    }
    return std::nullopt;
}

bool watch_filter::matches(std::string_view key) const {
    if (family && family_of_key(key) != *family) {
        return false;
    }
    if (ifx && port_of_key(key) != *ifx) {
        return false;
    }
    if (oui && !oui_matches(*oui, key)) {
        return false;
    }
    return true;
}

bool parse_watch_filter(const std::vector<std::string> &args, watch_filter *f,
                        std::vector<std::string> *rest, std::string *why) {
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string &a = args[i];
        if (a != "port" && a != "oui" && a != "family") {
            rest->push_back(a);
            continue;
        }
        if (i + 1 >= args.size()) {
            *why = "missing arguments; usage: watch ... " + a +
                   (a == "port"  ? " IFX"
                    : a == "oui" ? " OUI"
                                 : " NAME");
            return false;
        }
        const std::string &value = args[++i];
        if ((a == "port" && f->ifx) || (a == "oui" && f->oui) || (a == "family" && f->family)) {
            *why = "filter " + a + " given twice";
            return false;
        }
        if (a == "port") {
            uint32_t ifx = 0;
            if (!arg_number("IFX", value, 0, MAX_IFX, &ifx, why)) {
                return false;
            }
            f->ifx = static_cast<int32_t>(ifx);
        } else if (a == "oui") {
            mac_addr oui{};
            if (!arg_mac("OUI", value, &oui, why)) {
                return false;
            }
            f->oui = oui;
        } else {
            for (const key_family_decl &d : KEY_FAMILIES) {
                if (value == d.name) {
                    f->family = d.id;
                }
            }
            if (!f->family) {
                *why = "NAME \"" + value + "\" is not one of " + family_names();
                return false;
            }
        }
    }
    return true;
}
