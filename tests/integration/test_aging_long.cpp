// SPDX-License-Identifier: BSD-3-Clause
// The aging time in real minutes: kept apart, labelled "long", so that a
// quick run can leave it out (ctest -LE long); the full test run includes it.
#include "voice_vlan_fixture.h"

namespace integration {
namespace {

using testcommon::be32_bytes;

class AgingLongTest : public VoiceVlanTest {};

// The port leaves one period after the first 5-second look that sees its
// flag: 60 to about 65 seconds after the last address aged. As on a switch,
// where an address ages minutes after it was learned, a pass has cleared the
// port's refresh_flag before the address ages; otherwise the port would be
// spared for one more period.
TEST_F(AgingLongTest, PortLeavesSixtyToSeventySecondsAfterTheFlagRose) {
    start_daemon();
    set_aging_minutes(1);
    set_vid(100);
    add_oui(OUI_A);
    auto_port(5);
    learn(100, 6, "00e0bb123456");
    ASSERT_TRUE(wait_db(1, join_key(5), be32_bytes(5), patience(5s)));
    const std::size_t learned = daemon().mark();
    ASSERT_TRUE(testsupport::eventually(
        [&] {
            return daemon().output_since(learned).find(
                       "determined whether the auto port 5 should be aged") != std::string::npos;
        },
        patience(10s)));
    age(100, 6, "00e0bb123456");
    ASSERT_TRUE(wait_line("set_oui_msg", 1, "g_vvlan_auto_port[5].aging_flag=1", patience(5s)));
    const auto flagged = std::chrono::steady_clock::now();
    ASSERT_TRUE(wait_db(1, join_key(5), std::nullopt, patience(90s)));
    const auto elapsed = std::chrono::steady_clock::now() - flagged;
    // The mode 2 key goes right after the join request, in the same pass.
    EXPECT_TRUE(wait_db(0, port_key(5, 2), std::nullopt, patience(5s)));
    EXPECT_GE(elapsed, 59s);
    EXPECT_LE(elapsed, daemon_config::get().emulator.empty() ? 70s : 75s);
    EXPECT_TRUE(saw_line("age_time_thread", 1, "aging time start!"));
    EXPECT_TRUE(saw_line("age_time_thread", 1, "the 5 port is aged"));
}

// A phone learned again during the period spares the port for that pass.
TEST_F(AgingLongTest, LearningDuringThePeriodSparesThePort) {
    start_daemon();
    set_aging_minutes(1);
    set_vid(100);
    add_oui(OUI_A);
    auto_port(5);
    learn(100, 6, "00e0bb123456");
    ASSERT_TRUE(wait_db(1, join_key(5), be32_bytes(5), patience(5s)));
    age(100, 6, "00e0bb123456");
    ASSERT_TRUE(wait_line("age_time_thread", 1, "aging time start!", patience(10s)));
    learn(100, 6, "00e0bb123456");
    barrier();
    ASSERT_TRUE(wait_line("age_time_thread", 1, "aging time end!", patience(70s)));
    barrier();
    EXPECT_EQ(db1(join_key(5)), be32_bytes(5));
    EXPECT_EQ(db0(port_key(5, 2)), bytes({0, 0}));
    EXPECT_FALSE(has_line("age_time_thread", 1, "the 5 port is aged"));
}

} // namespace
} // namespace integration
