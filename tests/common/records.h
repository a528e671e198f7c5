// Raw values as the management plane and the forwarding layer write them,
// encoded here by hand (big-endian) and independently of the daemon's own
// codec, so that a codec bug cannot hide behind itself.
#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace testcommon {

using mac6 = std::array<uint8_t, 6>;

inline void put_be32(std::string &out, uint32_t v) {
    out.push_back(static_cast<char>(v >> 24));
    out.push_back(static_cast<char>(v >> 16));
    out.push_back(static_cast<char>(v >> 8));
    out.push_back(static_cast<char>(v));
}

inline void put_be16(std::string &out, uint16_t v) {
    out.push_back(static_cast<char>(v >> 8));
    out.push_back(static_cast<char>(v));
}

inline void put_mac(std::string &out, const mac6 &m) {
    for (uint8_t b : m) {
        out.push_back(static_cast<char>(b));
    }
}

// vvlan_oui_oper: mac, mask, enable, 31 extra bytes (0x40 + i unless given).
inline std::string oui_value(const mac6 &mac, const mac6 &mask, uint8_t enable = 1,
                             uint8_t extra_base = 0x40) {
    std::string out;
    put_mac(out, mac);
    put_mac(out, mask);
    out.push_back(static_cast<char>(enable));
    for (int i = 0; i < 31; ++i) {
        out.push_back(static_cast<char>(extra_base + i));
    }
    return out;
}

// vvlan_port_oper: ifx, enable, 3 bytes padding, mode.
inline std::string port_oper_value(uint32_t ifx, uint8_t enable, uint32_t mode) {
    std::string out;
    put_be32(out, ifx);
    out.push_back(static_cast<char>(enable));
    out.append(3, '\0');
    put_be32(out, mode);
    return out;
}

// mac_vlan_value: ifx, type, oper, entry.mac, entry.mask, entry.vid,
// priority, flag, field.
inline std::string mac_vlan_bytes(const mac6 &mac, const mac6 &mask, uint16_t vid, int32_t ifx = 4,
                                  int32_t type = 1, int32_t oper = 2, uint8_t priority = 6,
                                  uint8_t flag = 7, uint8_t field = 8) {
    std::string out;
    put_be32(out, static_cast<uint32_t>(ifx));
    put_be32(out, static_cast<uint32_t>(type));
    put_be32(out, static_cast<uint32_t>(oper));
    put_mac(out, mac);
    put_mac(out, mask);
    put_be16(out, vid);
    out.push_back(static_cast<char>(priority));
    out.push_back(static_cast<char>(flag));
    out.push_back(static_cast<char>(field));
    return out;
}

inline std::string be16_bytes(uint16_t v) {
    std::string out;
    put_be16(out, v);
    return out;
}

inline std::string be32_bytes(uint32_t v) {
    std::string out;
    put_be32(out, v);
    return out;
}

} // namespace testcommon
