// SPDX-License-Identifier: BSD-3-Clause
#include "wire/values.h"

#include <algorithm>

namespace {

void put_mac(uint8_t *out, const mac_addr &mac) {
    std::copy(mac.begin(), mac.end(), out);
}

mac_addr get_mac(const uint8_t *in) {
    mac_addr mac{};
    std::copy_n(in, mac.size(), mac.begin());
    return mac;
}

} // namespace

vvlan_port_oper port_oper_codec::decode(const uint8_t *bytes) {
    return vvlan_port_oper{be32_get(bytes), bytes[4], be32_get(bytes + 8)};
}

std::array<uint8_t, port_oper_codec::size> port_oper_codec::encode(const vvlan_port_oper &v) {
    std::array<uint8_t, size> out{};
    be32_put(out.data(), v.ifx);
    out[4] = v.enable;
    be32_put(out.data() + 8, v.mode);
    return out;
}

vvlan_oui_oper oui_oper_codec::decode(const uint8_t *bytes) {
    vvlan_oui_oper rec{};
    rec.mac = get_mac(bytes);
    rec.mask = get_mac(bytes + 6);
    rec.enable = bytes[12];
    std::copy_n(bytes + 13, rec.extra.size(), rec.extra.begin());
    return rec;
}

std::array<uint8_t, oui_oper_codec::size> oui_oper_codec::encode(const vvlan_oui_oper &v) {
    std::array<uint8_t, size> out{};
    put_mac(out.data(), v.mac);
    put_mac(out.data() + 6, v.mask);
    out[12] = v.enable;
    std::copy(v.extra.begin(), v.extra.end(), out.data() + 13);
    return out;
}

oui_echo oui_echo_codec::decode(const uint8_t *bytes) {
    return oui_echo{be16_get(bytes), oui_oper_codec::decode(bytes + 2)};
}

std::array<uint8_t, oui_echo_codec::size> oui_echo_codec::encode(const oui_echo &v) {
    std::array<uint8_t, size> out{};
    be16_put(out.data(), v.pre_entry_idx);
    uint8_t *record = out.data() + 2;
    put_mac(record, v.record.mac);
    put_mac(record + 6, v.record.mask);
    record[12] = v.record.enable;
    std::copy(v.record.extra.begin(), v.record.extra.end(), record + 13);
    return out;
}

mac_vlan_value mac_vlan_codec::decode(const uint8_t *bytes) {
    mac_vlan_value v{};
    v.ifx = static_cast<int32_t>(be32_get(bytes));
    v.type = static_cast<int32_t>(be32_get(bytes + 4));
    v.oper = static_cast<int32_t>(be32_get(bytes + 8));
    v.mac = get_mac(bytes + 12);
    v.mask = get_mac(bytes + 18);
    v.vid = be16_get(bytes + 24);
    v.priority = bytes[26];
    v.flag = bytes[27];
    v.field = bytes[28];
    return v;
}

std::array<uint8_t, mac_vlan_codec::size> mac_vlan_codec::encode(const mac_vlan_value &v) {
    std::array<uint8_t, size> out{};
    be32_put(out.data(), static_cast<uint32_t>(v.ifx));
    be32_put(out.data() + 4, static_cast<uint32_t>(v.type));
    be32_put(out.data() + 8, static_cast<uint32_t>(v.oper));
    put_mac(out.data() + 12, v.mac);
    put_mac(out.data() + 18, v.mask);
    be16_put(out.data() + 24, v.vid);
    out[26] = v.priority;
    out[27] = v.flag;
    out[28] = v.field;
    return out;
}

vvlan_cos_dscp cos_dscp_codec::decode(const uint8_t *bytes) {
    return vvlan_cos_dscp{bytes[0], bytes[1]};
}

std::array<uint8_t, cos_dscp_codec::size> cos_dscp_codec::encode(const vvlan_cos_dscp &v) {
    return {v.cos, v.dscp};
}

cos_dscp_echo cos_dscp_echo_codec::decode(const uint8_t *bytes) {
    return cos_dscp_echo{be16_get(bytes), bytes[2], bytes[3]};
}

std::array<uint8_t, cos_dscp_echo_codec::size> cos_dscp_echo_codec::encode(const cos_dscp_echo &v) {
    std::array<uint8_t, size> out{};
    be16_put(out.data(), v.pre_entry_idx);
    out[2] = v.cos;
    out[3] = v.dscp;
    return out;
}

std::array<uint8_t, aging_time_codec::size> aging_time_codec::encode(uint16_t v) {
    std::array<uint8_t, size> out{};
    be16_put(out.data(), v);
    return out;
}

std::array<uint8_t, join_request_codec::size> join_request_codec::encode(uint32_t v) {
    std::array<uint8_t, size> out{};
    be32_put(out.data(), v);
    return out;
}

std::array<uint8_t, pre_entry_idx_codec::size> pre_entry_idx_codec::encode(uint16_t v) {
    std::array<uint8_t, size> out{};
    be16_put(out.data(), v);
    return out;
}
