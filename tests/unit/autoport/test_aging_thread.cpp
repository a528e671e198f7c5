// SPDX-License-Identifier: BSD-3-Clause
// The aging thread, stepped sleep by sleep on the test clock.
#include <pthread.h>

#include "autoport/aging_thread.h"
#include "autoport/aging_thread_control.h"
#include "autoport/auto_port.h"
#include "daemon_test.h"
#include "settings/vvlan_table.h"

using namespace fake;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

namespace {

class AgeThreadTest : public DaemonTest {
  protected:
    void SetUp() override {
        DaemonTest::SetUp();
        g_vvlan_table.aging_minutes = 1;
    }
    void TearDown() override {
        if (vvlan_timer_thread.live) {
            stop();
        }
        DaemonTest::TearDown();
    }
    void start() { ASSERT_EQ(vvlan_timer_start(), 0); }
    // The seconds of the next sleep the thread enters.
    unsigned next_sleep() {
        unsigned seconds = 0;
        EXPECT_TRUE(sleep_control::get().wait_sleeping(&seconds)) << "the thread did not sleep";
        return seconds;
    }
    void release() { sleep_control::get().release(); }
    void stop() {
        EXPECT_EQ(vvlan_timer_cancel(), 0);
        EXPECT_EQ(vvlan_timer_join(), 0);
    }
    void joined(std::size_t ifx, bool ageing) {
        g_vvlan_auto_port[ifx].enable = 1;
        g_vvlan_auto_port[ifx].add_vvlan_flag = 1;
        g_vvlan_auto_port[ifx].aging_flag = ageing ? 1 : 0;
    }
    // g_flag_lock is free: a stop never leaves it held.
    bool lock_is_free() {
        if (pthread_mutex_trylock(&g_flag_lock) != 0) {
            return false;
        }
        pthread_mutex_unlock(&g_flag_lock);
        return true;
    }
};

// One period after the first look that sees the flag, the port's join
// request and then its mode 2 key are deleted.
TEST_F(AgeThreadTest, AgedPortIsRemovedOnePeriodAfterThePreCheck) {
    joined(5, true);
    start();
    EXPECT_EQ(next_sleep(), 5u);
    EXPECT_THAT(trace_lines_elsewhere(),
                ElementsAre(info_line("age_time_thread", "aging_time=60")));
    release();
    EXPECT_EQ(next_sleep(), 60u);
    EXPECT_THAT(bus().writes(), IsEmpty());
    clear_trace();
    release();
    EXPECT_EQ(next_sleep(), 5u);
    EXPECT_THAT(bus().writes(), ElementsAre(del_write(1, "/bri/mac/macTblDyn_vvlan/5"),
                                            del_write(0, "/bridge/vvlan/port_oper/5/2")));
    EXPECT_EQ(g_vvlan_auto_port[5].add_vvlan_flag, 0);
    EXPECT_EQ(g_vvlan_auto_port[5].aging_flag, 0);
    EXPECT_EQ(g_vvlan_auto_port[5].enable, 1);
    EXPECT_THAT(trace_lines_elsewhere(),
                ElementsAre(info_line("age_time_thread", "aging time end!"),
                            info_line("age_time_thread",
                                      "determined whether the auto port 5 should be aged"),
                            info_line("age_time_thread", "del auto mode port msg to PI"),
                            info_line("set_mac2ce_global", "set_mac2ce_global start"),
                            info_line("set_mac2ce_global", "ifx=5"),
                            info_line("set_mac2ce_global", "key=/bri/mac/macTblDyn_vvlan/5"),
                            info_line("set_mac2ce_global", "TUKREDIS_DEL end"),
                            info_line("set_mac2ce_global", "set_mac2ce_global end"),
                            info_line("del_port_oper_redis", "del_port_oper_redis start"),
                            info_line("del_port_oper_redis", "ifx=5, mode=2"),
                            info_line("del_port_oper_redis", "key=/bridge/vvlan/port_oper/5/2"),
                            info_line("del_port_oper_redis", "del_port_oper_redis end"),
                            info_line("age_time_thread", "the 5 port is aged")));
    // Nothing ages any more: back to 5-second passes.
    release();
    EXPECT_EQ(next_sleep(), 5u);
    EXPECT_EQ(bus().writes().size(), 2u);
}

TEST_F(AgeThreadTest, PreCheckTracesThePeriodAroundItsSleep) {
    joined(5, true);
    start();
    next_sleep();
    clear_trace();
    release();
    EXPECT_EQ(next_sleep(), 60u);
    EXPECT_THAT(trace_lines_elsewhere(),
                ElementsAre(info_line("age_time_thread", "check_time end!"),
                            info_line("age_time_thread", "aging time start!")));
}

// A learning during the period spares the port for that pass; it is judged
// again after the next period.
TEST_F(AgeThreadTest, RefreshedPortIsSparedOnce) {
    joined(5, true);
    start();
    next_sleep();
    release();
    EXPECT_EQ(next_sleep(), 60u);
    {
        const flag_lock_guard lock;
        g_vvlan_auto_port[5].refresh_flag = 1;
    }
    release();
    EXPECT_EQ(next_sleep(), 5u);
    EXPECT_THAT(bus().writes(), IsEmpty());
    EXPECT_EQ(g_vvlan_auto_port[5].refresh_flag, 0);
    EXPECT_EQ(g_vvlan_auto_port[5].add_vvlan_flag, 1);
    release();
    EXPECT_EQ(next_sleep(), 60u);
    release();
    EXPECT_EQ(next_sleep(), 5u);
    EXPECT_EQ(bus().writes().size(), 2u);
    EXPECT_EQ(g_vvlan_auto_port[5].add_vvlan_flag, 0);
}

// Without an ageing port the thread wakes every 5 seconds, clears every auto
// port's refresh_flag and writes nothing. A port not in automatic mode is
// never traced or touched, whatever its flags.
TEST_F(AgeThreadTest, FiveSecondPassesClearRefreshFlagsAndWriteNothing) {
    g_vvlan_auto_port[1].enable = 1;
    g_vvlan_auto_port[1].refresh_flag = 1;
    g_vvlan_auto_port[3].enable = 1;
    g_vvlan_auto_port[3].refresh_flag = 1;
    g_vvlan_auto_port[4].enable = 0;
    g_vvlan_auto_port[4].aging_flag = 1;
    g_vvlan_auto_port[4].refresh_flag = 1;
    g_vvlan_auto_port[4].add_vvlan_flag = 1;
    start();
    next_sleep();
    clear_trace();
    release();
    EXPECT_EQ(next_sleep(), 5u);
    EXPECT_EQ(g_vvlan_auto_port[1].refresh_flag, 0);
    EXPECT_EQ(g_vvlan_auto_port[3].refresh_flag, 0);
    EXPECT_EQ(g_vvlan_auto_port[4].refresh_flag, 1);
    EXPECT_EQ(g_vvlan_auto_port[4].aging_flag, 1);
    EXPECT_THAT(bus().writes(), IsEmpty());
    EXPECT_THAT(
        trace_lines_elsewhere(),
        ElementsAre(
            info_line("age_time_thread", "check_time end!"),
            info_line("age_time_thread", "determined whether the auto port 1 should be aged"),
            info_line("age_time_thread", "determined whether the auto port 3 should be aged")));
    EXPECT_THAT(sleep_control::get().requests(), ElementsAre(5u, 5u));
}

// Every auto port is judged in the pass, also one whose flag rose late in
// the period.
TEST_F(AgeThreadTest, FlagRaisedDuringThePeriodIsJudgedInThatPass) {
    joined(5, true);
    joined(9, false);
    start();
    next_sleep();
    release();
    EXPECT_EQ(next_sleep(), 60u);
    g_vvlan_auto_port[9].aging_flag = 1;
    release();
    EXPECT_EQ(next_sleep(), 5u);
    EXPECT_THAT(bus().writes(), ElementsAre(del_write(1, "/bri/mac/macTblDyn_vvlan/5"),
                                            del_write(0, "/bridge/vvlan/port_oper/5/2"),
                                            del_write(1, "/bri/mac/macTblDyn_vvlan/9"),
                                            del_write(0, "/bridge/vvlan/port_oper/9/2")));
}

// The period is read once, when the thread starts.
TEST_F(AgeThreadTest, ARunningThreadNeverRereadsTheAgingTime) {
    joined(5, true);
    start();
    next_sleep();
    g_vvlan_table.aging_minutes = 30;
    release();
    EXPECT_EQ(next_sleep(), 60u);
}

TEST_F(AgeThreadTest, ZeroMinutesSleepsZeroSeconds) {
    g_vvlan_table.aging_minutes = 0;
    joined(5, true);
    start();
    next_sleep();
    release();
    EXPECT_EQ(next_sleep(), 0u);
    release();
    EXPECT_EQ(next_sleep(), 5u);
    EXPECT_EQ(bus().writes().size(), 2u);
}

TEST_F(AgeThreadTest, LongestPeriodDoesNotOverflow) {
    g_vvlan_table.aging_minutes = 0xFFFF;
    joined(5, true);
    start();
    next_sleep();
    release();
    EXPECT_EQ(next_sleep(), 0xFFFFu * 60u);
}

TEST_F(AgeThreadTest, StopDuringTheFiveSecondSleep) {
    start();
    next_sleep();
    stop();
    EXPECT_FALSE(vvlan_timer_thread.live);
    EXPECT_TRUE(lock_is_free());
}

TEST_F(AgeThreadTest, StopDuringThePeriodSleep) {
    joined(5, true);
    start();
    next_sleep();
    release();
    EXPECT_EQ(next_sleep(), 60u);
    stop();
    EXPECT_TRUE(lock_is_free());
    EXPECT_THAT(bus().writes(), IsEmpty());
    EXPECT_EQ(g_vvlan_auto_port[5].add_vvlan_flag, 1);
}

// A stop requested while the thread is inside a bus write of its pass waits
// for the pass to finish: both writes are made whole, the lock is released,
// and the thread ends at its next sleep.
TEST_F(AgeThreadTest, StopDuringAPassWaitsForThePassToFinish) {
    joined(5, true);
    start();
    next_sleep();
    release();
    EXPECT_EQ(next_sleep(), 60u);
    bus().arm_command_gate();
    release();
    ASSERT_TRUE(bus().wait_command_gate(std::chrono::seconds(10)));
    EXPECT_FALSE(lock_is_free()) << "the pass holds the lock";
    EXPECT_EQ(vvlan_timer_cancel(), 0);
    bus().open_command_gate();
    EXPECT_EQ(vvlan_timer_join(), 0);
    EXPECT_TRUE(lock_is_free());
    EXPECT_THAT(bus().writes(), ElementsAre(del_write(1, "/bri/mac/macTblDyn_vvlan/5"),
                                            del_write(0, "/bridge/vvlan/port_oper/5/2")));
    EXPECT_EQ(bus().check_write_convention(), "");
    EXPECT_EQ(trace_lines_elsewhere().back(), info_line("age_time_thread", "the 5 port is aged"));
}

// The main thread's refresh_flag write waits for a pass in progress.
TEST_F(AgeThreadTest, PassHoldsTheLockForItsWholeLength) {
    joined(5, true);
    start();
    next_sleep();
    release();
    next_sleep();
    bus().arm_command_gate();
    release();
    ASSERT_TRUE(bus().wait_command_gate(std::chrono::seconds(10)));
    EXPECT_EQ(pthread_mutex_trylock(&g_flag_lock), EBUSY);
    bus().open_command_gate();
    EXPECT_EQ(next_sleep(), 5u);
    EXPECT_TRUE(lock_is_free());
}

TEST_F(AgeThreadTest, CancelAndJoinOfNoThreadFailWithEsrch) {
    EXPECT_EQ(vvlan_timer_cancel(), ESRCH);
    EXPECT_EQ(vvlan_timer_join(), ESRCH);
    start();
    next_sleep();
    stop();
    EXPECT_EQ(vvlan_timer_cancel(), ESRCH) << "a joined handle names no thread";
    EXPECT_EQ(vvlan_timer_join(), ESRCH);
}

} // namespace
