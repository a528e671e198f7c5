// SPDX-License-Identifier: BSD-3-Clause
// The voice VLAN id handler: enable, disable, publishing, MAC-VLAN messages
// and the aging thread's start and stop.
#include <cerrno>

#include "autoport/aging_thread_control.h"
#include "daemon_test.h"
#include "oui/mvlan_table.h"
#include "settings/vid.h"
#include "settings/vvlan_table.h"

using namespace fake;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class VidTest : public DaemonTest {
  protected:
    void SetUp() override {
        DaemonTest::SetUp();
        g_vvlan_table.aging_minutes = 1440;
    }
    int32_t vid(int32_t cmd, const std::string &key = "/bridge/vvlan/vid/100") {
        message m(1, key, cmd);
        return get_vid_pmsg_f(&m.pmsg);
    }
    void fill_mvlan(std::size_t i, uint16_t mvlan_vid, uint16_t oui_idx) {
        g_mvlan_table[i].mvlan_vid = mvlan_vid;
        g_mvlan_table[i].oui_fill = 1;
        g_mvlan_table[i].oui_idx = oui_idx;
        g_mvlan_table[i].mvlan_oui.reset(static_cast<mac_addr *>(std::malloc(sizeof(mac_addr))));
        *g_mvlan_table[i].mvlan_oui = mac_addr{0x00, 0xe0, 0xbb, 0, 0, 0};
    }
};

TEST_F(VidTest, NullRecord) {
    EXPECT_EQ(get_vid_pmsg_f(nullptr), -4);
    EXPECT_THAT(trace_lines(), ElementsAre(info_line("get_vid_pmsg_f", "get_vid_pmsg_f start"),
                                           err_line("get_vid_pmsg_f", "pmsg is null")));
}

// The published value is the OUI index, high byte first, not the id.
TEST_F(VidTest, SetPublishesTheKeyWithTheOuiIndexAndStartsTheThread) {
    g_vvlan_table.oui_idx = 5;
    EXPECT_EQ(vid(TUKREDIS_CMD_SET), 0);
    EXPECT_EQ(g_vvlan_table.vid, 100);
    EXPECT_EQ(g_vvlan_table.status, 1);
    EXPECT_EQ(g_vvlan_table.is_running, 1);
    EXPECT_TRUE(vvlan_timer_thread.live);
    EXPECT_EQ(posix_faults::pthread_create_calls(), 1);
    EXPECT_THAT(bus().writes(),
                ElementsAre(del_write(0, "/bridge/vvlan/secu_mode/"),
                            set_write(0, "/bridge/vvlan/vid/100", bytes({0x00, 0x05}))));
    EXPECT_THAT(
        trace_lines_here(),
        ElementsAre(info_line("get_vid_pmsg_f", "get_vid_pmsg_f start"),
                    info_line("get_vid_pmsg_f", "pmsg db=1 key=/bridge/vvlan/vid/100 cmd=0"),
                    info_line("get_vid_pmsg_f", "vid=100, status=1"),
                    info_line("set_secu_mode_redis", "set_secu_mode_redis start"),
                    info_line("set_secu_mode_redis", "key=/bridge/vvlan/secu_mode/"),
                    info_line("set_secu_mode_redis", "secu_mode_en=0"),
                    info_line("set_secu_mode_redis", "set_secu_mode_redis end"),
                    info_line("set_mvlan_oui", "set_mvlan_oui start"),
                    info_line("set_mvlan_oui", "set_mvlan_oui end"),
                    info_line("set_vid_redis", "key=/bridge/vvlan/vid/100"),
                    info_line("get_vid_pmsg_f", "age_thread is not exist"),
                    info_line("get_vid_pmsg_f", "VVLAN enable the aging thread"),
                    info_line("get_vid_pmsg_f", "is_running=1, age_time_thread start"),
                    info_line("get_vid_pmsg_f", "get_vid_pmsg_f end")));
    unsigned seconds = 0;
    ASSERT_TRUE(sleep_control::get().wait_sleeping(&seconds));
    EXPECT_EQ(seconds, 5u);
    EXPECT_THAT(trace_lines_elsewhere(),
                ElementsAre(info_line("age_time_thread", "aging_time=86400")));
}

TEST_F(VidTest, DeleteUnpublishesAndStopsTheThread) {
    ASSERT_EQ(vid(TUKREDIS_CMD_SET), 0);
    ASSERT_TRUE(sleep_control::get().wait_sleeping(nullptr));
    bus().clear_calls();
    clear_trace();
    EXPECT_EQ(vid(TUKREDIS_CMD_DEL), 0);
    EXPECT_EQ(g_vvlan_table.status, 0);
    EXPECT_EQ(g_vvlan_table.vid, 100);
    EXPECT_EQ(g_vvlan_table.is_running, 0);
    EXPECT_FALSE(vvlan_timer_thread.live);
    EXPECT_THAT(bus().writes(), ElementsAre(del_write(0, "/bridge/vvlan/secu_mode/"),
                                            del_write(0, "/bridge/vvlan/vid/100")));
    EXPECT_THAT(
        trace_lines_here(),
        ElementsAre(info_line("get_vid_pmsg_f", "get_vid_pmsg_f start"),
                    info_line("get_vid_pmsg_f", "pmsg db=1 key=/bridge/vvlan/vid/100 cmd=1"),
                    info_line("get_vid_pmsg_f", "vid=100, status=0"),
                    info_line("set_secu_mode_redis", "set_secu_mode_redis start"),
                    info_line("set_secu_mode_redis", "key=/bridge/vvlan/secu_mode/"),
                    info_line("set_secu_mode_redis", "secu_mode_en=0"),
                    info_line("set_secu_mode_redis", "set_secu_mode_redis end"),
                    info_line("set_mvlan_oui", "set_mvlan_oui start"),
                    info_line("set_vid_redis", "key=/bridge/vvlan/vid/100"),
                    info_line("get_vid_pmsg_f", "age_thread has been exit"),
                    info_line("get_vid_pmsg_f", "get_vid_pmsg_f end")));
}

// With nothing to join, the cancel and the join are still attempted and
// fail with ESRCH; the handler returns -11 after publishing the delete.
TEST_F(VidTest, DeleteWhileOffReportsTheFailedJoin) {
    EXPECT_EQ(vid(TUKREDIS_CMD_DEL), -11);
    EXPECT_THAT(bus().writes(), ElementsAre(del_write(0, "/bridge/vvlan/secu_mode/"),
                                            del_write(0, "/bridge/vvlan/vid/100")));
    const std::vector<expected_line> lines = trace_lines();
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines[lines.size() - 2], info_line("get_vid_pmsg_f", "send cancel signal failed"));
    EXPECT_EQ(lines.back(), info_line("get_vid_pmsg_f",
                                      "pthread_join failed, error code=" + std::to_string(ESRCH)));
    EXPECT_EQ(g_vvlan_table.is_running, 0);
}

TEST_F(VidTest, EveryCodeButZeroAndNineIsADelete) {
    for (int32_t cmd : {1, 2, 10, 3, -1}) {
        ASSERT_EQ(vid(TUKREDIS_CMD_SET), 0);
        EXPECT_EQ(vid(cmd), 0) << cmd;
        EXPECT_EQ(g_vvlan_table.status, 0) << cmd;
        EXPECT_FALSE(vvlan_timer_thread.live) << cmd;
    }
}

TEST_F(VidTest, ExpireChangesNothing) {
    EXPECT_EQ(vid(TUKREDIS_CMD_EXPIRE), 0);
    EXPECT_EQ(g_vvlan_table.status, 0);
    EXPECT_EQ(g_vvlan_table.vid, 0);
    EXPECT_THAT(bus().writes(), IsEmpty());
    EXPECT_EQ(trace_lines().back(), err_line("get_vid_pmsg_f", "not care CMD_EXPIRE event"));
}

TEST_F(VidTest, TwoSetsStartTheThreadOnce) {
    ASSERT_EQ(vid(TUKREDIS_CMD_SET), 0);
    clear_trace();
    ASSERT_EQ(vid(TUKREDIS_CMD_SET), 0);
    EXPECT_EQ(posix_faults::pthread_create_calls(), 1);
    EXPECT_THAT(trace_texts(), ::testing::Not(::testing::Contains("age_thread is not exist")));
    EXPECT_THAT(trace_texts(),
                ::testing::Not(::testing::Contains("VVLAN enable the aging thread")));
}

// A new id does not delete the old key: its own delete notification (or the
// next re-synchronisation) does.
TEST_F(VidTest, AnotherIdPublishesTheNewKeyAndKeepsTheOld) {
    ASSERT_EQ(vid(TUKREDIS_CMD_SET, "/bridge/vvlan/vid/100"), 0);
    bus().clear_calls();
    ASSERT_EQ(vid(TUKREDIS_CMD_SET, "/bridge/vvlan/vid/200"), 0);
    EXPECT_EQ(g_vvlan_table.vid, 200);
    EXPECT_THAT(bus().writes(), ElementsAre(del_write(0, "/bridge/vvlan/secu_mode/"),
                                            set_write(0, "/bridge/vvlan/vid/200", bytes({0, 0}))));
}

TEST_F(VidTest, NonNumericTailKeepsThePreviousIdAndStillEnables) {
    ASSERT_EQ(vid(TUKREDIS_CMD_SET, "/bridge/vvlan/vid/100"), 0);
    ASSERT_EQ(vid(TUKREDIS_CMD_DEL, "/bridge/vvlan/vid/100"), 0);
    bus().clear_calls();
    clear_trace();
    EXPECT_EQ(vid(TUKREDIS_CMD_SET, "/bridge/vvlan/vid/abc"), 0);
    EXPECT_EQ(g_vvlan_table.vid, 100);
    EXPECT_EQ(g_vvlan_table.status, 1);
    EXPECT_EQ(g_vvlan_table.is_running, 1);
    EXPECT_THAT(bus().writes(), ElementsAre(del_write(0, "/bridge/vvlan/secu_mode/"),
                                            set_write(0, "/bridge/vvlan/vid/100", bytes({0, 0}))));
    EXPECT_THAT(trace_lines_here(),
                ::testing::Contains(info_line("get_vid_pmsg_f", "vid=100, status=1")));
}

TEST_F(VidTest, IdsThatDoNotFitAreTakenAsTheParseGivesThem) {
    ASSERT_EQ(vid(TUKREDIS_CMD_SET, "/bridge/vvlan/vid/70000"), 0);
    EXPECT_EQ(g_vvlan_table.vid, 70000 & 0xffff);
    EXPECT_EQ(bus().writes().back(), set_write(0, "/bridge/vvlan/vid/4464", bytes({0, 0})));
}

TEST_F(VidTest, SecurityModeFollowsTheVoiceVlan) {
    g_vvlan_table.secu_mode_en = 1;
    ASSERT_EQ(vid(TUKREDIS_CMD_SET), 0);
    EXPECT_EQ(bus().writes().front(), set_write(0, "/bridge/vvlan/secu_mode/", "1"));
    bus().clear_calls();
    ASSERT_EQ(vid(TUKREDIS_CMD_DEL), 0);
    EXPECT_EQ(bus().writes().front(), del_write(0, "/bridge/vvlan/secu_mode/"));
}

TEST_F(VidTest, EnableAnnouncesMatchingMvlanEntriesAndWithdrawsOthers) {
    fill_mvlan(0, 100, 3);
    fill_mvlan(1, 200, 7);
    g_mvlan_table[1].oui_flag = 1;
    ASSERT_EQ(vid(TUKREDIS_CMD_SET), 0);
    EXPECT_THAT(bus().writes(), ElementsAre(del_write(0, "/bridge/vvlan/secu_mode/"),
                                            set_write(0, "/bridge/vvlan/mvlan_oui_msg/3", "3"),
                                            del_write(0, "/bridge/vvlan/mvlan_oui_msg/7"),
                                            set_write(0, "/bridge/vvlan/vid/100", bytes({0, 0}))));
    EXPECT_EQ(g_mvlan_table[0].oui_flag, 1);
    EXPECT_EQ(g_mvlan_table[1].oui_flag, 1) << "left as it was";
    const std::vector<expected_line> lines = trace_lines_here();
    EXPECT_THAT(lines, ::testing::Contains(
                           info_line("set_mvlan_oui", "g_mvlan_table 0 entry fill the vvlan oui")));
    EXPECT_THAT(lines, ::testing::Contains(
                           info_line("set_mvlan_oui", "g_mvlan_table 1 entry fill the vvlan oui")));
    EXPECT_THAT(
        lines, ::testing::Contains(info_line("set_mvlan_oui", "This mvlan entry vid is not fill")));
}

// Disabling only lowers the flags; no MAC-VLAN message is withdrawn.
TEST_F(VidTest, DisableClearsEveryLinkFlagAndWithdrawsNothing) {
    fill_mvlan(0, 100, 3);
    ASSERT_EQ(vid(TUKREDIS_CMD_SET), 0);
    ASSERT_EQ(g_mvlan_table[0].oui_flag, 1);
    g_mvlan_table[127].oui_flag = 1;
    bus().clear_calls();
    ASSERT_EQ(vid(TUKREDIS_CMD_DEL), 0);
    for (const mvlan_entry &e : g_mvlan_table) {
        EXPECT_EQ(e.oui_flag, 0);
    }
    EXPECT_EQ(g_mvlan_table[0].oui_fill, 1);
    EXPECT_THAT(bus().writes(), ElementsAre(del_write(0, "/bridge/vvlan/secu_mode/"),
                                            del_write(0, "/bridge/vvlan/vid/100")));
}

TEST_F(VidTest, EntriesWithoutAnOuiAreSkippedSilently) {
    g_mvlan_table[4].mvlan_vid = 100;
    ASSERT_EQ(vid(TUKREDIS_CMD_SET), 0);
    EXPECT_THAT(trace_texts(),
                ::testing::Not(::testing::Contains("g_mvlan_table 4 entry fill the vvlan oui")));
}

// The record, the keys and the messages have changed already and stay so;
// is_running stays 0 so that the next enable tries again.
TEST_F(VidTest, ThreadCreationFailure) {
    posix_faults::fail_pthread_create(EAGAIN);
    EXPECT_EQ(vid(TUKREDIS_CMD_SET), -11);
    EXPECT_EQ(g_vvlan_table.status, 1);
    EXPECT_EQ(g_vvlan_table.is_running, 0);
    EXPECT_EQ(trace_lines().back(), info_line("get_vid_pmsg_f", "pthread_create failed"));
    EXPECT_EQ(bus().writes().back(), set_write(0, "/bridge/vvlan/vid/100", bytes({0, 0})));
    posix_faults::fail_pthread_create(0);
    EXPECT_EQ(vid(TUKREDIS_CMD_SET), 0);
    EXPECT_EQ(g_vvlan_table.is_running, 1);
    EXPECT_EQ(posix_faults::pthread_create_calls(), 2);
}

} // namespace
