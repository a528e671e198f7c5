// SPDX-License-Identifier: BSD-3-Clause
// vvlanctl's writing commands write the keys and bytes that the management
// plane and the forwarding layer write (compared with the tests' own
// encoders, not the codec the tool uses), and the daemon acts on them.
#include "ctl_fixture.h"

namespace ctltest {
namespace {

using integration::bytes;
using integration::MASK_24;
using integration::OUI_A;

class DriveTest : public CtlTest {};

TEST_F(DriveTest, SettingsAreWrittenAsTheManagementPlaneWritesThem) {
    start_daemon(false);
    ok({"set", "vid", "100"});
    ok({"set", "aging", "30"});
    ok({"set", "cos", "5", "46"});
    ok({"set", "security", "on"});
    ok({"set", "auto", "52"});
    ok({"add", "oui", "00:E0:BB:12:34:56"});
    ok({"add", "oui", "0004f2000000", "ffff00000000"});
    sync();
    EXPECT_EQ(db1("/bridge/vvlan/vid/100"), "");
    EXPECT_EQ(db1("/bridge/vvlan/age_timer/1"), testcommon::be16_bytes(30));
    EXPECT_EQ(db1("/bridge/vvlan/cos_dscp/1"), bytes({5, 46}));
    EXPECT_EQ(db1("/bridge/vvlan/secu_mode/1"), "");
    EXPECT_EQ(db1(port_key(52, 1)), testcommon::port_oper_value(52, 1, 1));
    // The OUI is written masked, with zero extra bytes.
    EXPECT_EQ(db1(oui_key(OUI_A, MASK_24)),
              testcommon::oui_value(OUI_A, MASK_24, 1, 0).substr(0, 13) + std::string(31, '\0'));
    const testcommon::mac6 oui_b{0x00, 0x04, 0, 0, 0, 0};
    const testcommon::mac6 mask_16{0xff, 0xff, 0, 0, 0, 0};
    EXPECT_TRUE(db1(oui_key(oui_b, mask_16)).has_value());
    // And the daemon applied them.
    EXPECT_EQ(db0("/bridge/vvlan/vid/100"), bytes({0, 0}));
    EXPECT_EQ(db0("/bridge/vvlan/secu_mode/"), "1");
    EXPECT_EQ(db0("/bridge/vvlan/cos_dscp/"), bytes({0, 0, 5, 46}));
    EXPECT_TRUE(db0(echo_key(OUI_A, MASK_24, 0)).has_value());
    EXPECT_TRUE(db0(port_key(52, 1)).has_value());

    ok({"set", "security", "off"});
    ok({"unset", "auto", "52"});
    ok({"del", "oui", "00e0bb000000"});
    ok({"unset", "vid", "100"});
    sync();
    EXPECT_TRUE(redis().keys(1, "/bridge/vvlan/secu_mode/*").empty());
    EXPECT_FALSE(db1(port_key(52, 1)).has_value());
    EXPECT_FALSE(db1(oui_key(OUI_A, MASK_24)).has_value());
    EXPECT_FALSE(db0(echo_key(OUI_A, MASK_24, 0)).has_value());
    EXPECT_FALSE(db0("/bridge/vvlan/vid/100").has_value());
}

TEST_F(DriveTest, SecurityOffDeletesEveryKeyOfTheMode) {
    start_daemon(false);
    ok({"set", "security", "on"});
    // Another management plane's key of the same mode.
    cfg_set("/bridge/vvlan/secu_mode/other", "");
    ok({"set", "security", "off"});
    EXPECT_TRUE(redis().keys(1, "/bridge/vvlan/secu_mode/*").empty());
}

TEST_F(DriveTest, ForwardingLayerAndComponentsAreWrittenInDatabase0) {
    start_daemon(false);
    configure();
    ok({"learn", "100", "6", "00-e0-bb-12-34-56"});
    ok({"specify", "00e0bb000000", "8"});
    ok({"add", "mvlan", "127", "00e0bb010203", "ffffff000000", "100"});
    ok({"debug", "34"});
    sync();
    EXPECT_EQ(db0(learning_key(100, 6, "00e0bb123456")), "");
    EXPECT_EQ(db0("/bridge/vvlan/spec_oui_msg/00e0bb000000/8"), "");
    const testcommon::mac6 mac{0x00, 0xe0, 0xbb, 0x01, 0x02, 0x03};
    EXPECT_EQ(db0(mvlan_key(383)), testcommon::mac_vlan_bytes(mac, MASK_24, 100, 0, 0, 0, 0, 0, 0));
    EXPECT_EQ(db0("debugDovVVlan"), "34");
    EXPECT_EQ(db1(join_key(5)), bytes({0, 0, 0, 5}));
    EXPECT_EQ(db1(join_key(7)), bytes({0, 0, 0, 7}));
    EXPECT_EQ(db0(oui_msg_key(0)), "0");

    ok({"age", "100", "6", "00e0bb123456"});
    ok({"unspecify", "00e0bb000000", "8"});
    ok({"del", "mvlan", "127"});
    sync();
    EXPECT_FALSE(db0(learning_key(100, 6, "00e0bb123456")).has_value());
    EXPECT_FALSE(db0("/bridge/vvlan/spec_oui_msg/00e0bb000000/8").has_value());
    EXPECT_FALSE(db0(mvlan_key(383)).has_value());
    EXPECT_FALSE(db0(oui_msg_key(0)).has_value());
}

TEST_F(DriveTest, SyncWithoutADaemonTimesOut) {
    const tool_result r = ctl({"sync", "--timeout", "1"});
    EXPECT_EQ(r.status, 1) << r.err;
    EXPECT_NE(r.err.find("did not copy the load-complete marker"), std::string::npos) << r.err;
}

} // namespace
} // namespace ctltest
