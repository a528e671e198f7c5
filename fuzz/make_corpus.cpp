// SPDX-License-Identifier: BSD-3-Clause
// Writes the fuzzer's seed corpus: a well-formed notification of every row,
// built from the daemon's own key builders and value codec, so that fuzzing
// starts from inputs that reach deep into each handler.
//
//   dov_vvlan_fuzz_corpus DIR
#include <cstdio>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "fuzz_input.h"
#include "wire/key_families.h"
#include "wire/keys.h"
#include "wire/values.h"

namespace {

struct seed {
    const char *name;
    std::string bytes;
};

template <std::size_t N>
std::string bytes_of(const std::array<uint8_t, N> &a) {
    return std::string(a.begin(), a.end());
}

std::string input(key_family f, int32_t code, const std::string &key, const std::string &value) {
    std::string out;
    out.push_back(static_cast<char>(family_decl(f).sub_row));
    out.push_back(static_cast<char>(fuzz_code_byte(code)));
    out.push_back(static_cast<char>(key.size()));
    return out + key + value;
}

const mac_addr OUI{0x00, 0xe0, 0xbb, 0x00, 0x00, 0x00};
const mac_addr MASK{0xff, 0xff, 0xff, 0x00, 0x00, 0x00};
const mac_addr PHONE{0x00, 0xe0, 0xbb, 0x12, 0x34, 0x56};

std::vector<seed> seeds() {
    const std::string vid = vid_key(100).c_str();
    const std::string port = port_oper_key(5, 1).c_str();
    const std::string oui = oui_oper_key(OUI, MASK).c_str();
    const std::string learned = mac_learning_key(100, 6, PHONE).c_str();
    const std::string spec = spec_oui_msg_key(OUI, 3).c_str();
    const std::string entry = mac_vlan_key(256).c_str();
    const std::string any = "1";
    const std::string no_value(1, static_cast<char>(FUZZ_NO_VALUE));
    return {
        {"vid_set", input(key_family::vid, 0, vid, "")},
        {"vid_del", input(key_family::vid, 1, vid, "")},
        {"secu_set", input(key_family::secu_mode, 0, prefix_of(key_family::secu_mode) + any, "")},
        {"cos_set", input(key_family::cos_dscp, 0, prefix_of(key_family::cos_dscp) + any,
                          bytes_of(cos_dscp_codec::encode({5, 46})))},
        {"age_set", input(key_family::age_timer, 0, prefix_of(key_family::age_timer) + any,
                          bytes_of(aging_time_codec::encode(1)))},
        {"port_set", input(key_family::port_oper, 0, port,
                           bytes_of(port_oper_codec::encode({5, 1, PORT_MODE_AUTO})))},
        {"port_del", input(key_family::port_oper, 1, port, "")},
        {"oui_set",
         input(key_family::oui_oper, 0, oui, bytes_of(oui_oper_codec::encode({OUI, MASK, 1, {}})))},
        {"oui_del", input(key_family::oui_oper, 1, oui_oper_key(PHONE, MASK).c_str(), "")},
        {"mac_na", input(key_family::mac_learning, 2, learned, "")},
        {"mac_aa", input(key_family::mac_learning, 1, learned, "")},
        {"mac_bad_ifx",
         input(key_family::mac_learning, 2, mac_learning_key(100, 61, PHONE).c_str(), "")},
        {"spec_set", input(key_family::spec_oui_msg, 0, spec, "")},
        {"spec_del", input(key_family::spec_oui_msg, 1, spec, "")},
        {"mvlan_set",
         input(key_family::mac_vlan, 0, entry,
               bytes_of(mac_vlan_codec::encode({4, 1, 2, PHONE, MASK, 100, 6, 7, 8})))},
        {"mvlan_del", input(key_family::mac_vlan, 1, entry, "")},
        {"end_set", input(key_family::data_end, 0, prefix_of(key_family::data_end), "17")},
        {"dbg_set", input(key_family::debug_level, 0, prefix_of(key_family::debug_level), "32")},
        {"short_values", input(key_family::port_oper, 0, port, std::string(2, '\0'))},
        {"no_value", input(key_family::oui_oper, 0, oui, no_value)},
    };
}

} // namespace

int main(int argc, char **argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s DIR\n", argv[0]);
        return 2;
    }
    const std::string dir = argv[1];
    mkdir(dir.c_str(), 0755);
    const std::vector<seed> all = seeds();
    for (const seed &s : all) {
        const std::string path = dir + "/" + s.name;
        std::FILE *f = std::fopen(path.c_str(), "wb");
        if (f == nullptr || std::fwrite(s.bytes.data(), 1, s.bytes.size(), f) != s.bytes.size() ||
            std::fclose(f) != 0) {
            std::fprintf(stderr, "cannot write %s\n", path.c_str());
            return 1;
        }
    }
    std::printf("%zu seeds in %s\n", all.size(), dir.c_str());
    return 0;
}
