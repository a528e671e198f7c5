// SPDX-License-Identifier: BSD-3-Clause
#include "args.h"

#include "ports.h"

bool arg_number(std::string_view name, const std::string &text, uint32_t min, uint32_t max,
                uint32_t *out, std::string *why) {
    const std::string range = std::to_string(min) + ".." + std::to_string(max);
    uint64_t value = 0;
    bool digits = !text.empty() && text.size() <= 10;
    for (const char c : text) {
        if (c < '0' || c > '9') {
            digits = false;
            break;
        }
        value = value * 10 + static_cast<uint64_t>(c - '0');
    }
    if (!digits) {
        *why = std::string(name) + " \"" + text + "\" is not a number (" + range + ")";
        return false;
    }
    if (value < min || value > max) {
        *why = std::string(name) + " \"" + text + "\" is out of range " + range;
        return false;
    }
    *out = static_cast<uint32_t>(value);
    return true;
}

namespace {

// "aabb.ccdd.eeff": three groups of four hexadecimal digits.
bool dotted_mac(const std::string &text, mac_addr *out) {
    if (text.size() != 14 || text[4] != '.' || text[9] != '.') {
        return false;
    }
    const std::string bare = text.substr(0, 4) + text.substr(5, 4) + text.substr(10, 4);
    return bare.find('.') == std::string::npos && mac_parse(bare, out);
}

} // namespace

bool arg_mac(std::string_view name, const std::string &text, mac_addr *out, std::string *why) {
    if (!mac_parse(text, out) && !dotted_mac(text, out)) {
        *why = std::string(name) + " \"" + text +
               "\" is not an address (12 hexadecimal digits, six pairs separated by ':' or "
               "'-', or aabb.ccdd.eeff)";
        return false;
    }
    return true;
}

bool arg_oui_mask(const std::string &oui_text, const std::string &mask_text, const mac_addr &oui,
                  const mac_addr &mask, std::string *why) {
    if (mask == mac_addr{}) {
        *why = "MASK \"" + mask_text + "\" is zero: it would make every address a voice address";
        return false;
    }
    const mac_addr masked = mac_and(oui, mask);
    if (masked == mac_addr{}) {
        *why = "OUI \"" + oui_text + "\" is zero under its mask: no phone has that address";
        return false;
    }
    if ((masked[0] & 0x01) != 0) {
        *why = "OUI \"" + oui_text + "\" is a group (multicast) address: no phone sends from one";
        return false;
    }
    return true;
}

bool arg_phyid(std::string_view name, const std::string &text, uint32_t *phyid, uint32_t *ifx,
               std::string *why) {
    if (!arg_number(name, text, 0, 0xffffffffu, phyid, why)) {
        return false;
    }
    if (!ports_init(why)) {
        return false;
    }
    const auto port = ifx_of_phyid(*phyid);
    if (!port) {
        *why = std::string(name) + " \"" + text + "\" is no port the device manager knows";
        return false;
    }
    *ifx = *port;
    return true;
}

bool arg_count(std::size_t have, std::size_t min, std::size_t max, const std::string &usage,
               std::string *why) {
    if (have < min || have > max) {
        *why = (have < min ? "missing arguments; usage: " : "too many arguments; usage: ") + usage;
        return false;
    }
    return true;
}
