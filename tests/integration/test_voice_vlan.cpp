// SPDX-License-Identifier: BSD-3-Clause
// The daemon's main job end to end: a phone joins an automatic port to the
// voice VLAN and the port leaves again after the aging time; the global
// settings it publishes on the way.
#include "voice_vlan_fixture.h"

namespace integration {
namespace {

using testcommon::be32_bytes;
using testcommon::oui_value;

class MainJobTest : public VoiceVlanTest {
  protected:
    // Voice VLAN 100, OUI 00:e0:bb/ff:ff:ff:00:00:00, port 5 (phyid 6)
    // in automatic mode, aging time in minutes.
    void configure(uint16_t aging_minutes) {
        set_aging_minutes(aging_minutes);
        set_vid(100);
        add_oui(OUI_A);
        auto_port(5);
        barrier();
        ASSERT_EQ(db0("/bridge/vvlan/vid/100"), bytes({0, 0}));
        ASSERT_EQ(db0(echo_key(OUI_A, MASK_24, 0)), bytes({0, 0}) + oui_value(OUI_A, MASK_24));
        ASSERT_EQ(db0(port_key(5, 1)), bytes({0, 0}));
    }
};

TEST_F(MainJobTest, PhoneJoinsItsPortAndThePortLeavesAfterAgingTimeZero) {
    start_daemon();
    configure(0);
    ASSERT_TRUE(saw_line("age_time_thread", 1, "aging_time=0"));

    learn(100, 6, "00e0bb123456");
    ASSERT_TRUE(wait_db(0, port_key(5, 2), bytes({0, 0}), patience(5s)));
    ASSERT_TRUE(wait_db(1, join_key(5), be32_bytes(5), patience(5s)));
    EXPECT_TRUE(saw_line("set_oui_msg", 1, "ifx=5, mode=2"));

    age(100, 6, "00e0bb123456");
    ASSERT_TRUE(wait_line("set_oui_msg", 1, "g_vvlan_auto_port[5].aging_flag=1", patience(5s)));
    const auto flagged = std::chrono::steady_clock::now();
    ASSERT_TRUE(wait_db(1, join_key(5), std::nullopt, patience(15s)));
    ASSERT_TRUE(wait_db(0, port_key(5, 2), std::nullopt, patience(5s)));
    const auto elapsed = std::chrono::steady_clock::now() - flagged;
    EXPECT_LT(elapsed, patience(11s)) << "a pass every 5 seconds, no period";
    EXPECT_TRUE(saw_line("age_time_thread", 1, "the 5 port is aged"));
    // Still in automatic mode: the next phone joins again.
    EXPECT_EQ(db0(port_key(5, 1)), bytes({0, 0}));
    learn(100, 6, "00e0bb654321");
    EXPECT_TRUE(wait_db(1, join_key(5), be32_bytes(5), patience(5s)));
}

// The join key and the port operation are written in this order, once.
TEST_F(MainJobTest, SecondPhoneOnTheSamePortWritesNothingMore) {
    start_daemon();
    configure(1440);
    learn(100, 6, "00e0bb123456");
    ASSERT_TRUE(wait_db(1, join_key(5), be32_bytes(5), patience(5s)));
    barrier(); // the join's last lines come after its writes
    const std::size_t mark = daemon().mark();
    learn(100, 6, "00e0bb000001");
    barrier();
    bool counted = false;
    for (const testcommon::trace_line &t : traces_since(mark)) {
        EXPECT_NE(t.func, "set_mac2ce_global");
        counted |= t.text == "This auto mode port has add to VVLAN";
    }
    EXPECT_TRUE(counted);
}

TEST_F(MainJobTest, LearningInAnotherVlanOrOnAPortNotInAutoModeChangesNothing) {
    start_daemon();
    configure(1440);
    learn(200, 6, "00e0bb123456"); // another VLAN
    learn(100, 8, "00e0bb123456"); // ifx 7: not in automatic mode
    learn(100, 6, "00e0bc123456"); // no voice OUI
    barrier();
    EXPECT_EQ(db0(port_key(5, 2)), std::nullopt);
    EXPECT_EQ(db0(port_key(7, 2)), std::nullopt);
    EXPECT_TRUE(redis().keys(1, "/bri/mac/*").empty());
    EXPECT_TRUE(saw_line("oui_fw_check", 1, "g_vvlan_table.vid=100, op_args.key.brg_id=200"));
    EXPECT_TRUE(saw_line("oui_fw_check", 1, "!g_vvlan_auto_port[7].enable=0"));
    EXPECT_TRUE(saw_line("is_vvlan_oui", 1, "isn't vvlan  oui start"));
}

// Disabling stops the thread and removes the vid and security-mode keys;
// the CoS/DSCP value stays published.
TEST_F(MainJobTest, DisablingTheVoiceVlanStopsTheThreadAndWithdrawsItsKeys) {
    start_daemon();
    cfg_set("/bridge/vvlan/secu_mode/1", "");
    cfg_set("/bridge/vvlan/cos_dscp/1", bytes({5, 0x2e}));
    configure(1440);
    EXPECT_EQ(db0("/bridge/vvlan/secu_mode/"), "1");
    del_vid(100);
    ASSERT_TRUE(wait_line("get_vid_pmsg_f", 1, "age_thread has been exit", patience(5s)));
    barrier();
    EXPECT_EQ(db0("/bridge/vvlan/vid/100"), std::nullopt);
    EXPECT_EQ(db0("/bridge/vvlan/secu_mode/"), std::nullopt);
    EXPECT_EQ(db0("/bridge/vvlan/cos_dscp/"), bytes({0, 0, 5, 0x2e}));
}

TEST_F(MainJobTest, NewAgingTimeRestartsTheThread) {
    start_daemon();
    configure(1440);
    ASSERT_TRUE(saw_line("age_time_thread", 1, "aging_time=86400"));
    set_aging_minutes(2);
    ASSERT_TRUE(wait_line("age_time_thread", 1, "aging_time=120", patience(5s)));
    EXPECT_TRUE(saw_line("get_age_timer_pmsg_f", 1, "vvlan_timer_thread has been exit"));
    EXPECT_TRUE(saw_line("get_age_timer_pmsg_f", 1, "is_running=1, age_time_thread start"));
}

// Leaving automatic mode takes a joined port out of the voice VLAN but
// leaves its join request for the aging path.
TEST_F(MainJobTest, LeavingAutomaticModeKeepsTheJoinRequest) {
    start_daemon();
    configure(1440);
    learn(100, 6, "00e0bb123456");
    ASSERT_TRUE(wait_db(0, port_key(5, 2), bytes({0, 0}), patience(5s)));
    leave_auto(5);
    ASSERT_TRUE(wait_db(0, port_key(5, 1), std::nullopt, patience(5s)));
    ASSERT_TRUE(wait_db(0, port_key(5, 2), std::nullopt, patience(5s)));
    EXPECT_EQ(db1(join_key(5)), be32_bytes(5));
}

// The published bytes carry the slot of the OUI deleted last.
TEST_F(MainJobTest, PublishedValuesCarryTheOuiIndexBigEndian) {
    start_daemon();
    for (int n = 0; n < 4; ++n) {
        add_oui(mac6{0x02, 0, static_cast<uint8_t>(n), 0, 0, 0});
    }
    // Values are read when the handler runs: the adds must have been
    // handled before the delete removes the last one's value.
    barrier();
    del_oui(mac6{0x02, 0, 3, 0, 0, 0});
    cfg_set("/bridge/vvlan/cos_dscp/1", bytes({0x05, 0x2e}));
    set_vid(100);
    auto_port(52);
    barrier();
    EXPECT_EQ(db0("/bridge/vvlan/cos_dscp/"), bytes({0x00, 0x03, 0x05, 0x2e}));
    EXPECT_EQ(db0("/bridge/vvlan/vid/100"), bytes({0x00, 0x03}));
    EXPECT_EQ(db0(port_key(52, 1)), bytes({0x00, 0x03}));
    add_oui(OUI_A);
    barrier();
    EXPECT_EQ(db0(echo_key(OUI_A, MASK_24, 3)), bytes({0x00, 0x03}) + oui_value(OUI_A, MASK_24));
}

TEST_F(MainJobTest, SecurityModeFollowsTheVoiceVlan) {
    start_daemon();
    cfg_set("/bridge/vvlan/secu_mode/1", "");
    barrier();
    EXPECT_EQ(db0("/bridge/vvlan/secu_mode/"), std::nullopt);
    set_vid(100);
    ASSERT_TRUE(wait_db(0, "/bridge/vvlan/secu_mode/", "1", patience(5s)));
    cfg_del("/bridge/vvlan/secu_mode/1");
    ASSERT_TRUE(wait_db(0, "/bridge/vvlan/secu_mode/", std::nullopt, patience(5s)));
}

// A configured port map may hand back an interface index the daemon has no
// port for: dropped with an error line, nothing written.
TEST_F(MainJobTest, DeviceManagerIfxOutsideThePortsIsDropped) {
    const std::string map = server().dir() + "/ports.map";
    std::ofstream(map) << "6 5\n9 60\n";
    start_daemon(true, {{"LIBSDM_PORT_MAP", map}});
    configure(1440);
    learn(100, 9, "00e0bb123456");
    ASSERT_TRUE(
        wait_line("oui_fw_check", 2, "phyid=9 maps to ifx=60, not a port, dropped", patience(5s)));
    learn(100, 6, "00e0bb123456");
    EXPECT_TRUE(wait_db(1, join_key(5), be32_bytes(5), patience(5s)));
}

} // namespace
} // namespace integration
