// SPDX-License-Identifier: BSD-3-Clause
// Every raw value of the voice VLAN, encoded and decoded in one place.
//
// Raw values are the switch processor's records as they lie in its memory:
// integers big-endian. Each layout is a codec: its record type, its size
// (what a reader needs at least; further bytes are ignored), its fields for
// the key reference, and explicit byte-by-byte encode and decode, so a PC
// writes and reads exactly the bytes the switch does. The daemon, the tests,
// the fuzzer's corpus, the benchmarks and the tools all use these.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "wire/byte_order.h"
#include "wire/mac_addr.h"

// One field of a layout, as the key reference lists it.
struct field_desc {
    const char *name;
    uint8_t offset;
    uint8_t size;
    const char *type; // "u8", "u16", "u32", "i32", "u8[6]", ... ("" for padding)
    const char *meaning;
};

// vvlan_port_oper: a port operation as the configuration side writes it
// under "/bridge/vvlan/port_oper/<ifx>/1", and as the daemon builds it when
// it joins a port (mode 2).
struct vvlan_port_oper {
    uint32_t ifx;
    uint8_t enable; // carried and traced only
    uint32_t mode;  // 1 = automatic mode, 2 = joined
};

struct port_oper_codec {
    using value_type = vvlan_port_oper;
    static constexpr const char *name = "vvlan_port_oper";
    static constexpr std::size_t size = 12;
    static constexpr std::array<field_desc, 4> fields = {{
        {"ifx", 0, 4, "u32", "interface index of the port"},
        {"enable", 4, 1, "u8", "carried and traced only"},
        {"(padding)", 5, 3, "", "ignored"},
        {"mode", 8, 4, "u32", "1 = automatic voice VLAN mode, 2 = joined"},
    }};
    static value_type decode(const uint8_t *bytes);
    static std::array<uint8_t, size> encode(const value_type &v);
};

inline constexpr std::size_t VVLAN_OUI_EXTRA_LEN = 31;

// vvlan_oui_oper: a voice OUI as configured, and the record of the OUI
// table (where mac is always ANDed with mask and enable marks a slot in use).
struct vvlan_oui_oper {
    mac_addr mac;
    mac_addr mask;
    uint8_t enable;
    std::array<uint8_t, VVLAN_OUI_EXTRA_LEN> extra; // carried, not interpreted
};

struct oui_oper_codec {
    using value_type = vvlan_oui_oper;
    static constexpr const char *name = "vvlan_oui_oper";
    static constexpr std::size_t size = 44;
    static constexpr std::array<field_desc, 4> fields = {{
        {"mac", 0, 6, "u8[6]", "the OUI as an address (the daemon ANDs it with mask)"},
        {"mask", 6, 6, "u8[6]", "significant bits of mac"},
        {"enable", 12, 1, "u8", "ignored when configured; in the table 1 = slot in use"},
        {"extra", 13, 31, "u8[31]", "carried and echoed unchanged, not interpreted"},
    }};
    static value_type decode(const uint8_t *bytes);
    static std::array<uint8_t, size> encode(const value_type &v);
};

// The database-0 echo of a configured OUI: the current OUI index
// ("pre_entry_idx") and the record after masking.
struct oui_echo {
    uint16_t pre_entry_idx;
    vvlan_oui_oper record;
};

struct oui_echo_codec {
    using value_type = oui_echo;
    static constexpr const char *name = "oui_oper echo";
    static constexpr std::size_t size = 46;
    static constexpr std::array<field_desc, 2> fields = {{
        {"pre_entry_idx", 0, 2, "u16", "the OUI index last deleted (0 if none), not the slot"},
        {"record", 2, 44, "vvlan_oui_oper", "the configured record, mac masked"},
    }};
    static value_type decode(const uint8_t *bytes);
    static std::array<uint8_t, size> encode(const value_type &v);
};

// mac_vlan_value: an entry of the switch's MAC-VLAN table.
struct mac_vlan_value {
    int32_t ifx;
    int32_t type;
    int32_t oper;
    mac_addr mac;
    mac_addr mask;
    uint16_t vid;
    uint8_t priority;
    uint8_t flag;
    uint8_t field;
};

struct mac_vlan_codec {
    using value_type = mac_vlan_value;
    static constexpr const char *name = "mac_vlan_value";
    static constexpr std::size_t size = 29;
    static constexpr std::array<field_desc, 9> fields = {{
        {"ifx", 0, 4, "i32", "traced only"},
        {"type", 4, 4, "i32", "traced only"},
        {"oper", 8, 4, "i32", "traced only"},
        {"entry.mac", 12, 6, "u8[6]", "address (ANDed with entry.mask)"},
        {"entry.mask", 18, 6, "u8[6]", "mask of entry.mac"},
        {"entry.vid", 24, 2, "u16", "VLAN of the entry"},
        {"entry.priority", 26, 1, "u8", "traced only"},
        {"entry.flag", 27, 1, "u8", "traced only"},
        {"entry.field", 28, 1, "u8", "traced only"},
    }};
    static value_type decode(const uint8_t *bytes);
    static std::array<uint8_t, size> encode(const value_type &v);
};

// vvlan_cos_dscp: CoS and DSCP of voice traffic as configured.
struct vvlan_cos_dscp {
    uint8_t cos;
    uint8_t dscp;
};

struct cos_dscp_codec {
    using value_type = vvlan_cos_dscp;
    static constexpr const char *name = "vvlan_cos_dscp";
    static constexpr std::size_t size = 2;
    static constexpr std::array<field_desc, 2> fields = {{
        {"cos", 0, 1, "u8", "802.1p priority of voice traffic (not range-checked)"},
        {"dscp", 1, 1, "u8", "DSCP of voice traffic (not range-checked)"},
    }};
    static value_type decode(const uint8_t *bytes);
    static std::array<uint8_t, size> encode(const value_type &v);
};

// The published CoS/DSCP: the current OUI index before the two bytes.
struct cos_dscp_echo {
    uint16_t pre_entry_idx;
    uint8_t cos;
    uint8_t dscp;
};

struct cos_dscp_echo_codec {
    using value_type = cos_dscp_echo;
    static constexpr const char *name = "cos_dscp echo";
    static constexpr std::size_t size = 4;
    static constexpr std::array<field_desc, 3> fields = {{
        {"pre_entry_idx", 0, 2, "u16", "the current OUI index"},
        {"cos", 2, 1, "u8", "byte 0 of the configured value"},
        {"dscp", 3, 1, "u8", "byte 1 of the configured value"},
    }};
    static value_type decode(const uint8_t *bytes);
    static std::array<uint8_t, size> encode(const value_type &v);
};

// The aging time in minutes.
struct aging_time_codec {
    using value_type = uint16_t;
    static constexpr const char *name = "aging time";
    static constexpr std::size_t size = 2;
    static constexpr std::array<field_desc, 1> fields = {{
        {"minutes", 0, 2, "u16", "aging time in minutes (0 accepted)"},
    }};
    static value_type decode(const uint8_t *bytes) { return be16_get(bytes); }
    static std::array<uint8_t, size> encode(value_type v);
};

// A port's join request to the MAC layer: its ifx.
struct join_request_codec {
    using value_type = uint32_t;
    static constexpr const char *name = "join request";
    static constexpr std::size_t size = 4;
    static constexpr std::array<field_desc, 1> fields = {{
        {"ifx", 0, 4, "u32", "interface index of the port"},
    }};
    static value_type decode(const uint8_t *bytes) { return be32_get(bytes); }
    static std::array<uint8_t, size> encode(value_type v);
};

// The 2-byte echo of the vid and port operation keys: the current OUI index,
// not the VLAN id or the port.
struct pre_entry_idx_codec {
    using value_type = uint16_t;
    static constexpr const char *name = "pre_entry_idx";
    static constexpr std::size_t size = 2;
    static constexpr std::array<field_desc, 1> fields = {{
        {"pre_entry_idx", 0, 2, "u16", "the current OUI index"},
    }};
    static value_type decode(const uint8_t *bytes) { return be16_get(bytes); }
    static std::array<uint8_t, size> encode(value_type v);
};

// A value of at least the codec's size, decoded; nullopt when it is shorter.
template <typename Codec>
std::optional<typename Codec::value_type> decode_value(std::span<const uint8_t> bytes) {
    if (bytes.size() < Codec::size) {
        return std::nullopt;
    }
    return Codec::decode(bytes.data());
}
