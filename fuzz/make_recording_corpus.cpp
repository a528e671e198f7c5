// SPDX-License-Identifier: BSD-3-Clause
// Seeds of the recording fuzzer, written with the recorder's own encoder: a
// recording of every record type (a snapshot, events of every family and of
// no family, literal event names, values of every kind, the connection,
// the daemon's presence, the end), the same cut short at several points,
// and a header with a line this reader does not know. One file per seed,
// written into DIR.
#include <sys/stat.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "recording.h"
#include "wire/keys.h"

namespace {

const mac_addr OUI{0x00, 0xe0, 0xbb, 0x00, 0x00, 0x00};
const mac_addr MASK{0xff, 0xff, 0xff, 0x00, 0x00, 0x00};
const mac_addr PHONE{0x00, 0xe0, 0xbb, 0x12, 0x34, 0x56};

rec::record at(int64_t ms, rec::record_type type) {
    rec::record r;
    r.type = type;
    r.mono_us = 5000000 + ms * 1000;
    r.wall_us = 1795000000000000 + ms * 1000;
    return r;
}

rec::record keyed(int64_t ms, rec::record_type type, int db, const std::string &event,
                  const std::string &key, const std::string &value, int64_t ttl = rec::NO_TTL) {
    rec::record r = at(ms, type);
    r.db = db;
    r.event = event;
    r.key = key;
    r.kind = event == "del" ? rec::value_kind::absent : rec::value_kind::string;
    r.value = r.kind == rec::value_kind::absent ? "" : value;
    r.ttl_ms = ttl;
    return r;
}

rec::record with_state(int64_t ms, rec::record_type type, uint8_t state, std::string text = "") {
    rec::record r = at(ms, type);
    r.state = state;
    r.text = std::move(text);
    return r;
}

rec::record counted(int64_t ms, rec::record_type type, uint64_t count) {
    rec::record r = at(ms, type);
    r.count = count;
    return r;
}

std::vector<rec::record> every_type() {
    using rec::record_type;
    const std::string port = port_oper_key(5, 2).c_str();
    const std::string learning = mac_learning_key(100, 6, PHONE).c_str();
    const std::string join = join_request_key(5).c_str();
    std::vector<rec::record> out = {
        with_state(0, record_type::snapshot_begin, 0),
        keyed(0, record_type::snapshot_key, 0, "", oui_echo_key(OUI, MASK, 0).c_str(), ""),
        keyed(0, record_type::snapshot_key, 0, "", port, ""),
        keyed(0, record_type::snapshot_key, 1, "", join, ""),
        keyed(0, record_type::snapshot_key, 0, "", learning, ""),
        counted(1, record_type::snapshot_end, 4),
        with_state(2, record_type::presence, 0, "id=7 name=tukredis"),
        keyed(3, record_type::event, 0, "expire", port, "", 3600000),
        keyed(4, record_type::event, 0, "del", port, ""),
        keyed(5, record_type::event, 0, "del", learning, ""),
        keyed(6, record_type::event, 1, "del", join, ""),
        with_state(7, record_type::presence, 1),
        keyed(8, record_type::event, 0, "set", learning, ""),
        keyed(9, record_type::event, 1, "set", vid_key(100).c_str(), std::string("\x00\x64", 2)),
        keyed(10, record_type::event, 1, "set", family_key(key_family::cos_dscp).c_str(),
              std::string("\x05\x2e", 2)),
        keyed(11, record_type::event, 0, "set", mac_vlan_key(256).c_str(), std::string(16, '\x01')),
        keyed(12, record_type::event, 1, "set", family_key(key_family::data_end).c_str(), "1002"),
        keyed(13, record_type::event, 0, "hset", "/outside/any/family", "x", -2),
        with_state(14, record_type::link, 0, "Connection reset by peer"),
        with_state(15, record_type::link, 1),
        with_state(15, record_type::snapshot_begin, 2),
        counted(15, record_type::snapshot_end, 0),
        with_state(16, record_type::presence, 2),
        with_state(17, record_type::presence, 3, "CLIENT LIST denied"),
        counted(18, record_type::end, 9),
    };
    // A key of another type than a string, after the event of its type.
    rec::record other = keyed(13, record_type::event, 0, "set", "/outside/any/hash", "hash");
    other.kind = rec::value_kind::other_type;
    out.insert(out.begin() + 18, other);
    return out;
}

} // namespace

int main(int argc, char **argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s DIR\n", argv[0]);
        return 2;
    }
    rec::segment_header h;
    h.tool = "vvlanctl seeds";
    h.server = "unix:/run/redis/redis.sock";
    h.start_wall_us = 1795000000000000;
    h.start_mono_us = 5000000;
    h.families = rec::current_families();
    rec::encoder e(h);
    std::string whole = e.header();
    const std::size_t header_end = whole.size();
    for (const rec::record &r : every_type()) {
        e.append(r, &whole);
    }
    std::vector<std::string> seeds = {whole, whole.substr(0, header_end)};
    for (const std::size_t cut :
         {header_end + 1, header_end + 7, whole.size() / 2, whole.size() - 1}) {
        seeds.push_back(whole.substr(0, cut));
    }
    // A newer writer's header line, and a newer writer's field after the
    // end record's own.
    std::string newer = whole;
    const std::string line = "vvlanctl flight recording\n";
    newer.insert(16 + line.size(), "compression none\n");
    const uint32_t length = static_cast<uint32_t>(header_end - 16 + 17);
    for (int i = 0; i < 4; ++i) {
        newer[12 + i] = static_cast<char>(length >> (8 * (3 - i)));
    }
    newer += std::string("\x07\x05\x00\x00\x00\x00\x2a", 7);
    seeds.push_back(newer);
    mkdir(argv[1], 0755);
    int n = 0;
    for (const std::string &seed : seeds) {
        std::ofstream out(std::string(argv[1]) + "/seed-" + std::to_string(n++), std::ios::binary);
        out << seed;
        if (!out) {
            std::fprintf(stderr, "cannot write into %s\n", argv[1]);
            return 1;
        }
    }
    std::printf("%d seeds\n", n);
    return 0;
}
