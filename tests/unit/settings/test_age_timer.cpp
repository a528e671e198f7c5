// SPDX-License-Identifier: BSD-3-Clause
// The aging time and the restart of the aging thread.
#include <cerrno>

#include "autoport/aging_thread_control.h"
#include "daemon_test.h"
#include "settings/age_timer.h"
#include "settings/vid.h"
#include "settings/vvlan_table.h"

using namespace fake;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

namespace {

class AgeTimerTest : public DaemonTest {
  protected:
    void SetUp() override {
        DaemonTest::SetUp();
        g_vvlan_table.aging_minutes = 1440;
    }
    int32_t age(const std::string &value, int32_t cmd = TUKREDIS_CMD_SET) {
        message m(1, "/bridge/vvlan/age_timer/1", cmd, value);
        return get_age_timer_pmsg_f(&m.pmsg);
    }
    int32_t vid(int32_t cmd) {
        message m(1, "/bridge/vvlan/vid/100", cmd);
        return get_vid_pmsg_f(&m.pmsg);
    }
    // The aging thread's first line: its period in seconds.
    std::string started_period() {
        EXPECT_TRUE(sleep_control::get().wait_sleeping(nullptr));
        const std::vector<expected_line> lines = trace_lines_elsewhere();
        return lines.empty() ? std::string() : lines.back().text;
    }
};

TEST_F(AgeTimerTest, NullRecord) {
    EXPECT_EQ(get_age_timer_pmsg_f(nullptr), -4);
    EXPECT_THAT(trace_lines(),
                ElementsAre(info_line("get_age_timer_pmsg_f", "get_age_timer_pmsg_f start"),
                            err_line("get_age_timer_pmsg_f", "pmsg is null")));
}

TEST_F(AgeTimerTest, ValueIsBigEndianMinutes) {
    EXPECT_EQ(age(bytes({0x00, 0x1E})), 0);
    EXPECT_EQ(g_vvlan_table.aging_minutes, 30);
    EXPECT_EQ(age(bytes({0x05, 0xA0, 0x99})), 0);
    EXPECT_EQ(g_vvlan_table.aging_minutes, 1440);
}

// With the voice VLAN off only the time changes; the next enable starts the
// thread with it. Nothing is published.
TEST_F(AgeTimerTest, WhileOffOnlyTheTimeChanges) {
    EXPECT_EQ(age(bytes({0x00, 0x1E})), 0);
    EXPECT_EQ(posix_faults::pthread_create_calls(), 0);
    EXPECT_THAT(bus().writes(), IsEmpty());
    EXPECT_THAT(trace_lines(),
                ElementsAre(info_line("get_age_timer_pmsg_f", "get_age_timer_pmsg_f start"),
                            info_line("get_age_timer_pmsg_f",
                                      "pmsg db=1 key=/bridge/vvlan/age_timer/1 cmd=0"),
                            info_line("get_age_timer_pmsg_f", "aging_minutes=30")));
    ASSERT_EQ(vid(TUKREDIS_CMD_SET), 0);
    EXPECT_EQ(started_period(), "aging_time=1800");
}

TEST_F(AgeTimerTest, VoiceVlanOnWithoutThreadCreatesWithoutStop) {
    g_vvlan_table.status = 1;
    EXPECT_EQ(age(bytes({0x00, 0x02})), 0);
    EXPECT_EQ(g_vvlan_table.is_running, 1);
    EXPECT_EQ(posix_faults::pthread_create_calls(), 1);
    EXPECT_THAT(
        trace_lines_here(),
        ElementsAre(
            info_line("get_age_timer_pmsg_f", "get_age_timer_pmsg_f start"),
            info_line("get_age_timer_pmsg_f", "pmsg db=1 key=/bridge/vvlan/age_timer/1 cmd=0"),
            info_line("get_age_timer_pmsg_f", "aging_minutes=2"),
            info_line("get_age_timer_pmsg_f", "is_running=0"),
            info_line("get_age_timer_pmsg_f", "timer func enable the aging thread"),
            info_line("get_age_timer_pmsg_f", "is_running=1, age_time_thread start"),
            info_line("get_age_timer_pmsg_f", "get_age_timer_pmsg_f end")));
    EXPECT_EQ(started_period(), "aging_time=120");
}

// A running thread is stopped and a new one starts a fresh period.
TEST_F(AgeTimerTest, RunningThreadIsRestartedWithTheNewPeriod) {
    ASSERT_EQ(vid(TUKREDIS_CMD_SET), 0);
    EXPECT_EQ(started_period(), "aging_time=86400");
    clear_trace();
    sleep_control::get().reset(sleep_mode::CONTROLLED);
    EXPECT_EQ(age(bytes({0x00, 0x01})), 0);
    EXPECT_EQ(posix_faults::pthread_create_calls(), 2);
    EXPECT_THAT(
        trace_lines_here(),
        ElementsAre(
            info_line("get_age_timer_pmsg_f", "get_age_timer_pmsg_f start"),
            info_line("get_age_timer_pmsg_f", "pmsg db=1 key=/bridge/vvlan/age_timer/1 cmd=0"),
            info_line("get_age_timer_pmsg_f", "aging_minutes=1"),
            info_line("get_age_timer_pmsg_f", "is_running=1"),
            info_line("get_age_timer_pmsg_f", "vvlan_timer_thread has been exit"),
            info_line("get_age_timer_pmsg_f", "timer func enable the aging thread"),
            info_line("get_age_timer_pmsg_f", "is_running=1, age_time_thread start"),
            info_line("get_age_timer_pmsg_f", "get_age_timer_pmsg_f end")));
    EXPECT_EQ(started_period(), "aging_time=60");
    unsigned seconds = 0;
    ASSERT_TRUE(sleep_control::get().wait_sleeping(&seconds));
    EXPECT_EQ(seconds, 5u) << "a restart begins with the 5-second wait";
}

TEST_F(AgeTimerTest, ZeroMinutesIsAccepted) {
    g_vvlan_table.status = 1;
    EXPECT_EQ(age(bytes({0, 0})), 0);
    EXPECT_EQ(g_vvlan_table.aging_minutes, 0);
    EXPECT_EQ(started_period(), "aging_time=0");
}

// A delete is treated like a set: the value is read again.
TEST_F(AgeTimerTest, DeleteReadsTheValue) {
    EXPECT_EQ(age(bytes({0, 9}), TUKREDIS_CMD_DEL), 0);
    EXPECT_EQ(g_vvlan_table.aging_minutes, 9);
}

TEST_F(AgeTimerTest, DeleteWithNoValueLeftIsNull) {
    message m(1, "/bridge/vvlan/age_timer/1", TUKREDIS_CMD_DEL);
    EXPECT_EQ(get_age_timer_pmsg_f(&m.pmsg), -4);
    EXPECT_EQ(trace_lines().back(), err_line("get_age_timer_pmsg_f", "vvlan_timer is NULL\n"));
    EXPECT_EQ(g_vvlan_table.aging_minutes, 1440);
}

TEST_F(AgeTimerTest, UnreadableValueChangesNothing) {
    message m(1, "/bridge/vvlan/age_timer/1", TUKREDIS_CMD_DEL);
    m.fail_read();
    EXPECT_EQ(get_age_timer_pmsg_f(&m.pmsg), -11);
    EXPECT_EQ(trace_lines().back(), err_line("get_age_timer_pmsg_f", "get value fail"));
    EXPECT_EQ(g_vvlan_table.aging_minutes, 1440);
}

TEST_F(AgeTimerTest, ShortValueIsTakenAsNoValue) {
    EXPECT_EQ(age(bytes({0x05})), -4);
    EXPECT_EQ(age(""), -4);
    EXPECT_EQ(g_vvlan_table.aging_minutes, 1440);
}

TEST_F(AgeTimerTest, ExpireChangesNothing) {
    g_vvlan_table.status = 1;
    EXPECT_EQ(age(bytes({0, 1}), TUKREDIS_CMD_EXPIRE), 0);
    EXPECT_EQ(g_vvlan_table.aging_minutes, 1440);
    EXPECT_EQ(posix_faults::pthread_create_calls(), 0);
}

// A creation failure after the join leaves is_running at 1: the next enable
// creates nothing and the next disable reports the stale handle. Kept so.
TEST_F(AgeTimerTest, CreationFailureAfterTheJoinLeavesIsRunningSet) {
    ASSERT_EQ(vid(TUKREDIS_CMD_SET), 0);
    ASSERT_TRUE(sleep_control::get().wait_sleeping(nullptr));
    posix_faults::fail_pthread_create(EAGAIN);
    EXPECT_EQ(age(bytes({0, 1})), -11);
    EXPECT_EQ(trace_lines_here().back(),
              info_line("get_age_timer_pmsg_f", "pthread_create failed"));
    EXPECT_EQ(g_vvlan_table.is_running, 1);
    EXPECT_FALSE(vvlan_timer_thread.live);
    posix_faults::fail_pthread_create(0);

    clear_trace();
    ASSERT_EQ(vid(TUKREDIS_CMD_SET), 0);
    EXPECT_EQ(posix_faults::pthread_create_calls(), 2) << "no new creation";
    EXPECT_THAT(trace_texts(), Not(Contains("age_thread is not exist")));

    EXPECT_EQ(vid(TUKREDIS_CMD_DEL), -11);
    EXPECT_THAT(trace_lines_here(),
                Contains(info_line("get_vid_pmsg_f", "send cancel signal failed")));
    EXPECT_EQ(
        trace_lines_here().back(),
        info_line("get_vid_pmsg_f", "pthread_join failed, error code=" + std::to_string(ESRCH)));
    EXPECT_EQ(g_vvlan_table.is_running, 1);
}

TEST_F(AgeTimerTest, JoinFailureOnAStaleHandle) {
    g_vvlan_table.status = 1;
    g_vvlan_table.is_running = 1; // no live thread behind it
    EXPECT_EQ(age(bytes({0, 1})), -11);
    const std::vector<expected_line> lines = trace_lines();
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines[lines.size() - 2],
              info_line("get_age_timer_pmsg_f", "send cancel signal failed"));
    EXPECT_EQ(lines.back(), info_line("get_age_timer_pmsg_f",
                                      "pthread_join failed, rv=" + std::to_string(ESRCH)));
    EXPECT_EQ(posix_faults::pthread_create_calls(), 0);
}

} // namespace
