// SPDX-License-Identifier: BSD-3-Clause
#include "wire/keys.h"

key_buf vid_key(uint16_t vid) {
    return key_printf("%s%hu", prefix_of(key_family::vid), static_cast<unsigned short>(vid));
}

key_buf port_oper_key(int32_t ifx, int32_t mode) {
    return key_printf("%s%d/%d", prefix_of(key_family::port_oper), ifx, mode);
}

key_buf oui_oper_key(const mac_addr &mac, const mac_addr &mask) {
    return key_printf("%s%02x%02x%02x%02x%02x%02x/%02x%02x%02x%02x%02x%02x",
                      prefix_of(key_family::oui_oper), MAC_ARGS(mac), MAC_ARGS(mask));
}

key_buf oui_echo_key(const mac_addr &mac, const mac_addr &mask, uint16_t slot) {
    return key_printf("%s%02x%02x%02x%02x%02x%02x/%02x%02x%02x%02x%02x%02x/%hu",
                      prefix_of(key_family::oui_oper), MAC_ARGS(mac), MAC_ARGS(mask),
                      static_cast<unsigned short>(slot));
}

key_buf spec_oui_msg_key(const mac_addr &oui, int32_t phyid) {
    return key_printf("%s%02x%02x%02x%02x%02x%02x/%d", prefix_of(key_family::spec_oui_msg),
                      MAC_ARGS(oui), phyid);
}

key_buf join_request_key(int32_t ifx) {
    return key_printf("%s%d", prefix_of(key_family::mac_learning), ifx);
}

key_buf mac_learning_key(int32_t vlan, int32_t phyid, const mac_addr &mac) {
    return key_printf("%s%d/%d/%02x%02x%02x%02x%02x%02x", prefix_of(key_family::mac_learning), vlan,
                      phyid, MAC_ARGS(mac));
}

key_buf mac_vlan_key(int32_t number) {
    return key_printf("%s%d", prefix_of(key_family::mac_vlan), number);
}

key_buf mvlan_oui_msg_key(uint16_t slot) {
    return key_printf("%s%hu", prefix_of(key_family::mvlan_oui_msg),
                      static_cast<unsigned short>(slot));
}

key_buf family_key(key_family f) {
    return key_printf("%s", prefix_of(f));
}
