// SPDX-License-Identifier: BSD-3-Clause
// The three orders the daemon depends on, pinned: the subscription table's
// rows, the re-synchronisation's re-read, and its marked-and-swept
// patterns. All three are derived from the key family declarations.
#include <span>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "wire/key_families.h"
#include "wire/keys.h"

namespace {

using testing::ElementsAre;

std::vector<std::string> patterns(std::span<const key_family> families) {
    std::vector<std::string> out;
    for (key_family f : families) {
        out.emplace_back(pattern_of(f).data());
    }
    return out;
}

TEST(KeyFamilies, SubscriptionRowsInOrder) {
    EXPECT_THAT(patterns(SUBSCRIPTION_ORDER),
                ElementsAre("/bridge/vvlan/vid/*", "/bridge/vvlan/secu_mode/*",
                            "/bridge/vvlan/cos_dscp/*", "/bridge/vvlan/age_timer/*",
                            "/bridge/vvlan/port_oper/*", "/bridge/vvlan/oui_oper/*",
                            "/bri/mac/macTblDyn_vvlan/*", "/bridge/vvlan/spec_oui_msg/*",
                            "/bridge/mac_vlan/table/*", "/bridge/vvlan/data/end", "debugDovVVlan"));
    std::vector<int32_t> dbs;
    for (key_family f : SUBSCRIPTION_ORDER) {
        dbs.push_back(family_decl(f).sub_db);
    }
    EXPECT_THAT(dbs, ElementsAre(1, 1, 1, 1, 1, 1, 0, 0, 0, 1, 0));
}

TEST(KeyFamilies, ReReadInOrder) {
    EXPECT_THAT(patterns(REREAD_ORDER),
                ElementsAre("/bridge/vvlan/cos_dscp/*", "/bridge/vvlan/secu_mode/*",
                            "/bridge/vvlan/age_timer/*", "/bridge/vvlan/vid/*",
                            "/bridge/vvlan/port_oper/*", "/bridge/vvlan/oui_oper/*",
                            "/bridge/mac_vlan/table/*", "/bridge/vvlan/data/end"));
    for (key_family f : REREAD_ORDER) {
        EXPECT_EQ(family_decl(f).reread_db, DB_CONFIG) << family_decl(f).name;
    }
}

TEST(KeyFamilies, MarkedAndSweptInOrder) {
    EXPECT_THAT(patterns(SWEPT_ORDER),
                ElementsAre("/bridge/vvlan/cos_dscp/*", "/bridge/vvlan/secu_mode/*",
                            "/bridge/vvlan/age_timer/*", "/bridge/vvlan/vid/*",
                            "/bridge/vvlan/port_oper/*", "/bridge/vvlan/oui_oper/*"));
}

TEST(Keys, EveryFormAsTheDaemonWritesIt) {
    const mac_addr oui{0x00, 0xe0, 0xbb, 0x00, 0x00, 0x00};
    const mac_addr mask{0xff, 0xff, 0xff, 0x00, 0x00, 0x00};
    const mac_addr phone{0x00, 0xe0, 0xbb, 0x12, 0x34, 0x56};
    EXPECT_STREQ(vid_key(100).c_str(), "/bridge/vvlan/vid/100");
    EXPECT_STREQ(port_oper_key(5, 2).c_str(), "/bridge/vvlan/port_oper/5/2");
    EXPECT_STREQ(oui_oper_key(oui, mask).c_str(),
                 "/bridge/vvlan/oui_oper/00e0bb000000/ffffff000000");
    EXPECT_STREQ(oui_echo_key(oui, mask, 3).c_str(),
                 "/bridge/vvlan/oui_oper/00e0bb000000/ffffff000000/3");
    EXPECT_STREQ(spec_oui_msg_key(oui, 3).c_str(), "/bridge/vvlan/spec_oui_msg/00e0bb000000/3");
    EXPECT_STREQ(join_request_key(5).c_str(), "/bri/mac/macTblDyn_vvlan/5");
    EXPECT_STREQ(mac_learning_key(100, 6, phone).c_str(),
                 "/bri/mac/macTblDyn_vvlan/100/6/00e0bb123456");
    EXPECT_STREQ(mac_vlan_key(256).c_str(), "/bridge/mac_vlan/table/256");
    EXPECT_STREQ(mvlan_oui_msg_key(7).c_str(), "/bridge/vvlan/mvlan_oui_msg/7");
    EXPECT_STREQ(family_key(key_family::secu_mode).c_str(), "/bridge/vvlan/secu_mode/");
    EXPECT_STREQ(family_key(key_family::data_end).c_str(), "/bridge/vvlan/data/end");
    EXPECT_STREQ(family_key(key_family::debug_level).c_str(), "debugDovVVlan");
}

TEST(MacAddr, TextForms) {
    mac_addr m{};
    EXPECT_TRUE(mac_parse("00e0BB123456", &m));
    EXPECT_EQ(m, (mac_addr{0x00, 0xe0, 0xbb, 0x12, 0x34, 0x56}));
    EXPECT_TRUE(mac_parse("00:e0:bb:12:34:57", &m));
    EXPECT_EQ(m[5], 0x57);
    EXPECT_TRUE(mac_parse("00-e0-bb-12-34-58", &m));
    EXPECT_EQ(m[5], 0x58);
    for (const char *bad : {"", "00e0bb12345", "00e0bb1234567", "00:e0-bb:12:34:56",
                            "00:e0:bb:12:34:5g", "0g:e0:bb:12:34:56", "00e0bb12345z"}) {
        EXPECT_FALSE(mac_parse(bad, &m)) << bad;
    }
    EXPECT_EQ(m[5], 0x58); // untouched by a refused text
    EXPECT_STREQ(mac_hex12(m).data(), "00e0bb123458");
    EXPECT_STREQ(mac_colon(m).data(), "00:e0:bb:12:34:58");
}

} // namespace
