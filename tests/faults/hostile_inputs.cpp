// SPDX-License-Identifier: BSD-3-Clause
#include "hostile_inputs.h"

#include <cstdint>

#include "world.h"

namespace faults {
namespace {

constexpr std::size_t TEN_MB = 10u * 1024u * 1024u;

std::string prefix(key_family f) {
    return prefix_of(f);
}

class builder {
  public:
    std::vector<hostile_input> out;

    void set(int db, const std::string &key, const std::string &value) {
        out.push_back({db, {"SET", key, value}});
    }
    void del(int db, const std::string &key) { out.push_back({db, {"DEL", key}}); }
    // Written, then removed: the daemon gets both notifications.
    void set_del(int db, const std::string &key, const std::string &value) {
        set(db, key, value);
        del(db, key);
    }
    void raw(int db, std::vector<std::string> argv) { out.push_back({db, std::move(argv)}); }
};

// Where the daemon listens or re-reads: each family in the database of its
// subscription row, and the MAC-VLAN table also in the database it is
// re-read from.
struct target {
    int db;
    key_family family;
};

std::vector<target> targets() {
    std::vector<target> t;
    for (key_family f : SUBSCRIPTION_ORDER) {
        t.push_back({family_decl(f).sub_db, f});
    }
    for (key_family f : REREAD_ORDER) {
        if (family_decl(f).reread_db != family_decl(f).sub_db) {
            t.push_back({family_decl(f).reread_db, f});
        }
    }
    return t;
}

// A key of the family's form that its handler accepts, and a value of the
// right layout for it (empty where the handler reads none).
struct sample {
    std::string key;
    std::string value;
};

sample well_formed(key_family f) {
    switch (f) {
    case key_family::vid:
        return {key_text(vid_key(VOICE_VLAN)), ""};
    case key_family::secu_mode:
    case key_family::debug_level:
    case key_family::data_end:
        return {key_text(key_printf("%s1", prefix_of(f))), "1"};
    case key_family::cos_dscp:
        return {key_text(key_printf("%s1", prefix_of(f))),
                value_text(cos_dscp_codec::encode({5, 46}))};
    case key_family::age_timer:
        return {key_text(key_printf("%s1", prefix_of(f))),
                value_text(aging_time_codec::encode(AGING_MINUTES))};
    case key_family::port_oper:
        return {key_text(port_oper_key(30, 1)), port_value(30, 1)};
    case key_family::oui_oper: {
        const voice_oui o{{0x00, 0x0a, 0x95, 0, 0, 0}, MASK_24};
        return {key_text(oui_oper_key(o.oui, o.mask)), oui_value(o)};
    }
    case key_family::mac_learning:
        return {key_text(mac_learning_key(VOICE_VLAN, phyid_of(30), device(OUI_A.oui, 0x4242))),
                ""};
    case key_family::spec_oui_msg:
        return {key_text(spec_oui_msg_key(OUI_A.oui, 31)), ""};
    case key_family::mac_vlan:
        return {key_text(mac_vlan_key(MAC_VLAN_KEY_BASE + 100)),
                mac_vlan_value_of(device(OUI_A.oui, 9), MASK_24, VOICE_VLAN)};
    case key_family::mvlan_oui_msg:
        break;
    }
    return {key_text(family_key(f)), ""};
}

// The key of an exact family is the key itself; hostile tails go after it.
std::string key_of_length(key_family f, std::size_t length) {
    std::string key = prefix(f);
    if (key.size() < length) {
        key.append(length - key.size(), '7');
    }
    return key;
}

void odd_keys(builder &b) {
    const std::vector<std::string> tails = {"a\nb",
                                            "%n%n%s%s%x%p",
                                            std::string("x\0y", 3),
                                            "\xff\xfe\x80\xc0",
                                            "",
                                            "/",
                                            "//",
                                            "../..",
                                            " ",
                                            "\t\r",
                                            "1/2/3/4/5/6/7/8",
                                            "-1"};
    for (const target &t : targets()) {
        for (std::size_t length : {127u, 128u, 129u, 4096u}) {
            b.set_del(t.db, key_of_length(t.family, length), well_formed(t.family).value);
        }
        for (const std::string &tail : tails) {
            b.set_del(t.db, prefix(t.family) + tail, well_formed(t.family).value);
        }
    }
}

void odd_values(builder &b) {
    for (const target &t : targets()) {
        const sample s = well_formed(t.family);
        std::vector<std::string> values = {
            "", "abc", "-1", "99999999999999999999", "\xff\xff\xff", std::string(3, '\0')};
        if (!s.value.empty()) {
            values.push_back(s.value.substr(0, s.value.size() - 1)); // one byte short
            values.push_back(s.value + "+");                         // one byte long
        }
        for (const std::string &v : values) {
            b.set_del(t.db, s.key, v);
        }
    }
    // Values the daemon reads and copies, 10 MB each.
    for (key_family f : {key_family::oui_oper, key_family::cos_dscp, key_family::mac_vlan}) {
        const sample s = well_formed(f);
        b.set_del(family_decl(f).sub_db, s.key, s.value + std::string(TEN_MB, '7'));
    }
}

void limits(builder &b) {
    const std::vector<std::string> ints = {
        "0",          "1",          "52",         "53",         "54",    "-1",     "255",
        "383",        "384",        "4094",       "4095",       "65535", "65536",  "2147483647",
        "2147483648", "4294967295", "4294967296", "4294967396", "abc",   "100abc", "0x10"};
    const std::string phone = mac_hex12(device(OUI_A.oui, 0x4343)).data();
    for (const std::string &n : ints) {
        // phyid and VLAN of a learned address.
        b.set_del(DB_STATE,
                  prefix(key_family::mac_learning) + std::to_string(VOICE_VLAN) + "/" + n + "/" +
                      phone,
                  "");
        b.set_del(DB_STATE, prefix(key_family::mac_learning) + n + "/7/" + phone, "");
        // Interface and mode of a port operation, in the key and the value.
        b.set_del(DB_CONFIG, prefix(key_family::port_oper) + n + "/1", port_value(30, 1));
        b.set_del(DB_CONFIG, prefix(key_family::port_oper) + "30/" + n, port_value(30, 1));
        // VLAN id.
        b.set_del(DB_CONFIG, prefix(key_family::vid) + n, "");
        // MAC-VLAN number, in both databases.
        for (int db : {DB_STATE, DB_CONFIG}) {
            b.set_del(db, prefix(key_family::mac_vlan) + n,
                      well_formed(key_family::mac_vlan).value);
        }
        // phyid of a specified-OUI message.
        b.set_del(DB_STATE, prefix(key_family::spec_oui_msg) + std::string("00e0bb000000/") + n,
                  "");
    }
    for (uint32_t ifx : {53u, 0x7fffffffu, 0x80000000u, 0xffffffffu}) {
        for (uint32_t mode : {0u, 1u, 2u, 7u}) {
            b.set_del(DB_CONFIG, key_text(port_oper_key(30, static_cast<int32_t>(mode))),
                      value_text(port_oper_codec::encode({ifx, 1, mode})));
        }
    }
    // Address parts too short, too long, not hexadecimal, upper case.
    for (const std::string mac :
         {"00e0bb12345", "00e0bb1234567", "zzzzzzzzzzzz", "00E0BB123456", "00e0bb12345g", ""}) {
        b.set_del(DB_STATE,
                  prefix(key_family::mac_learning) + std::to_string(VOICE_VLAN) + "/7/" + mac, "");
        b.set_del(DB_STATE, prefix(key_family::spec_oui_msg) + mac + "/7", "");
        b.set_del(DB_CONFIG, prefix(key_family::oui_oper) + mac + "/ffffff000000",
                  oui_value(OUI_B));
    }
    // MAC-VLAN entries with odd VLANs and masks; an OUI that matches everything.
    for (uint16_t vlan : {uint16_t{0}, uint16_t{4095}, uint16_t{65535}}) {
        b.set_del(DB_STATE, key_text(mac_vlan_key(MAC_VLAN_KEY_BASE + 127)),
                  mac_vlan_value_of(device(OUI_A.oui, 5), mac_addr{}, vlan));
    }
    const voice_oui everything{mac_addr{}, mac_addr{}};
    b.set_del(DB_CONFIG, key_text(oui_oper_key(everything.oui, everything.mask)),
              oui_value(everything));
}

void too_many_ouis(builder &b) {
    constexpr uint32_t N = 125; // the table has 124 slots
    for (uint32_t i = 0; i < N; ++i) {
        const voice_oui o{device({0x0c, 0, 0, 0, 0, 0}, i << 8), MASK_24};
        b.set(DB_CONFIG, key_text(oui_oper_key(o.oui, o.mask)), oui_value(o));
    }
    for (uint32_t i = 0; i < N; ++i) {
        const voice_oui o{device({0x0c, 0, 0, 0, 0, 0}, i << 8), MASK_24};
        b.del(DB_CONFIG, key_text(oui_oper_key(o.oui, o.mask)));
    }
}

void renames_expiries_types(builder &b) {
    for (const target &t : targets()) {
        const std::string base = prefix(t.family) + std::string("typed");
        const sample s = well_formed(t.family);
        b.raw(t.db, {"LPUSH", base + "-list", "x"});
        b.raw(t.db, {"HSET", base + "-hash", "f", "v"});
        b.raw(t.db, {"SADD", base + "-set", "m"});
        b.raw(t.db, {"ZADD", base + "-zset", "1", "m"});
        // A list renamed onto the well-formed key: a "set" of a key that
        // holds no string.
        b.raw(t.db, {"RENAME", base + "-list", s.key});
        b.raw(t.db, {"DEL", s.key, base + "-hash", base + "-set", base + "-zset"});
        // A good value renamed in and out, an expiry set and reached.
        b.raw(t.db, {"SET", base + "-good", s.value});
        b.raw(t.db, {"RENAME", base + "-good", s.key});
        b.raw(t.db, {"RENAME", s.key, base + "-moved"});
        b.raw(t.db, {"PEXPIRE", base + "-moved", "1"});
        b.raw(t.db, {"SET", s.key, s.value, "PX", "1"});
        b.raw(t.db, {"SET", base + "-kept", s.value, "EX", "3600"});
        b.raw(t.db, {"PERSIST", base + "-kept"});
        b.raw(t.db, {"DEL", base + "-kept"});
    }
}

} // namespace

std::vector<hostile_input> hostile_inputs() {
    builder b;
    odd_keys(b);
    odd_values(b);
    limits(b);
    too_many_ouis(b);
    renames_expiries_types(b);
    return b.out;
}

} // namespace faults
