// SPDX-License-Identifier: BSD-3-Clause
// The tools' key parsers: each accepts exactly what its builder writes.
#include <gtest/gtest.h>

#include "wire/key_parse.h"
#include "wire/keys.h"

namespace {

const mac_addr OUI{0x00, 0xe0, 0xbb, 0x00, 0x00, 0x00};
const mac_addr MASK{0xff, 0xff, 0xff, 0x00, 0x00, 0x00};
const mac_addr PHONE{0x00, 0xe0, 0xbb, 0x12, 0x34, 0x56};

TEST(FamilyOfKey, NamesTheFamilyOfEveryBuiltKey) {
    EXPECT_EQ(family_of_key(vid_key(100).c_str()), key_family::vid);
    EXPECT_EQ(family_of_key(port_oper_key(5, 2).c_str()), key_family::port_oper);
    EXPECT_EQ(family_of_key(oui_echo_key(OUI, MASK, 3).c_str()), key_family::oui_oper);
    EXPECT_EQ(family_of_key(join_request_key(5).c_str()), key_family::mac_learning);
    EXPECT_EQ(family_of_key(mac_learning_key(100, 6, PHONE).c_str()), key_family::mac_learning);
    EXPECT_EQ(family_of_key(spec_oui_msg_key(OUI, 3).c_str()), key_family::spec_oui_msg);
    EXPECT_EQ(family_of_key(mac_vlan_key(256).c_str()), key_family::mac_vlan);
    EXPECT_EQ(family_of_key(mvlan_oui_msg_key(3).c_str()), key_family::mvlan_oui_msg);
    EXPECT_EQ(family_of_key("/bridge/vvlan/data/end"), key_family::data_end);
    EXPECT_EQ(family_of_key("debugDovVVlan"), key_family::debug_level);
    EXPECT_EQ(family_of_key("/bridge/vvlan/secu_mode/"), key_family::secu_mode);
}

TEST(FamilyOfKey, ExactKeysMustMatchWhole) {
    EXPECT_EQ(family_of_key("/bridge/vvlan/data/end2"), std::nullopt);
    EXPECT_EQ(family_of_key("debugDovVVlanX"), std::nullopt);
    EXPECT_EQ(family_of_key("/bridge/other/1"), std::nullopt);
}

TEST(ParseVidKey, RoundTripsAndRefusesOthers) {
    EXPECT_EQ(parse_vid_key(vid_key(100).c_str()), 100);
    EXPECT_EQ(parse_vid_key(vid_key(65535).c_str()), 65535);
    EXPECT_EQ(parse_vid_key("/bridge/vvlan/vid/65536"), std::nullopt);
    EXPECT_EQ(parse_vid_key("/bridge/vvlan/vid/abc"), std::nullopt);
    EXPECT_EQ(parse_vid_key("/bridge/vvlan/vid/"), std::nullopt);
    EXPECT_EQ(parse_vid_key("/bridge/vvlan/vid/-1"), std::nullopt);
    EXPECT_EQ(parse_vid_key("/bridge/vvlan/vid/1/2"), std::nullopt);
}

TEST(ParsePortOperKey, GivesIfxAndMode) {
    const auto p = parse_port_oper_key(port_oper_key(52, 2).c_str());
    ASSERT_TRUE(p.has_value());
    EXPECT_EQ(p->ifx, 52);
    EXPECT_EQ(p->mode, 2);
    EXPECT_EQ(parse_port_oper_key("/bridge/vvlan/port_oper/5"), std::nullopt);
    EXPECT_EQ(parse_port_oper_key("/bridge/vvlan/port_oper/5/1/0"), std::nullopt);
    EXPECT_EQ(parse_port_oper_key("/bridge/vvlan/port_oper/ 5/1"), std::nullopt);
    EXPECT_EQ(parse_port_oper_key("/bridge/vvlan/port_oper/2147483648/1"), std::nullopt);
}

TEST(ParseOuiKey, ConfigurationKeyHasNoSlotEchoHasOne) {
    const auto cfg = parse_oui_key(oui_oper_key(PHONE, MASK).c_str());
    ASSERT_TRUE(cfg.has_value());
    EXPECT_EQ(cfg->mac, PHONE);
    EXPECT_EQ(cfg->mask, MASK);
    EXPECT_EQ(cfg->slot, std::nullopt);
    const auto echo = parse_oui_key(oui_echo_key(OUI, MASK, 123).c_str());
    ASSERT_TRUE(echo.has_value());
    EXPECT_EQ(echo->mac, OUI);
    EXPECT_EQ(echo->slot, 123);
    EXPECT_EQ(parse_oui_key("/bridge/vvlan/oui_oper/00e0bb00000/ffffff000000"), std::nullopt);
    EXPECT_EQ(parse_oui_key("/bridge/vvlan/oui_oper/00e0bb00000g/ffffff000000"), std::nullopt);
    EXPECT_EQ(parse_oui_key("/bridge/vvlan/oui_oper/00e0bb000000/ffffff000000/x"), std::nullopt);
    EXPECT_EQ(parse_oui_key("/bridge/vvlan/oui_oper/00e0bb000000"), std::nullopt);
}

TEST(ParseMacLearningKey, GivesVlanPhyidAndAddress) {
    const auto p = parse_mac_learning_key(mac_learning_key(100, 6, PHONE).c_str());
    ASSERT_TRUE(p.has_value());
    EXPECT_EQ(p->vlan, 100);
    EXPECT_EQ(p->phyid, 6);
    EXPECT_EQ(p->mac, PHONE);
    EXPECT_EQ(parse_mac_learning_key(join_request_key(5).c_str()), std::nullopt);
    EXPECT_EQ(parse_mac_learning_key("/bri/mac/macTblDyn_vvlan/100/6/00e0bb1234"), std::nullopt);
}

TEST(ParseJoinRequestKey, IsTheOneComponentForm) {
    EXPECT_EQ(parse_join_request_key(join_request_key(5).c_str()), 5);
    EXPECT_EQ(parse_join_request_key(mac_learning_key(100, 6, PHONE).c_str()), std::nullopt);
    EXPECT_EQ(parse_join_request_key("/bri/mac/macTblDyn_vvlan/x"), std::nullopt);
}

TEST(ParseSpecOuiMsgKey, GivesOuiAndPhyid) {
    const auto p = parse_spec_oui_msg_key(spec_oui_msg_key(OUI, 3).c_str());
    ASSERT_TRUE(p.has_value());
    EXPECT_EQ(p->oui, OUI);
    EXPECT_EQ(p->phyid, 3);
    EXPECT_EQ(parse_spec_oui_msg_key("/bridge/vvlan/spec_oui_msg/00e0bb000000/"), std::nullopt);
}

TEST(ParseMacVlanAndMessageKeys, GiveTheirNumbers) {
    EXPECT_EQ(parse_mac_vlan_key(mac_vlan_key(383).c_str()), 383);
    EXPECT_EQ(parse_mac_vlan_key("/bridge/mac_vlan/table/x"), std::nullopt);
    EXPECT_EQ(parse_mvlan_oui_msg_key(mvlan_oui_msg_key(7).c_str()), 7);
    EXPECT_EQ(parse_mvlan_oui_msg_key("/bridge/vvlan/mvlan_oui_msg/"), std::nullopt);
}

} // namespace
