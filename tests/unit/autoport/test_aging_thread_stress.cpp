// SPDX-License-Identifier: BSD-3-Clause
// Stopping and restarting the aging thread many times while ports age and
// the thread writes: no stop may leave g_flag_lock held or a bus write half
// made. Meant for the ThreadSanitizer build as much as for the plain one.
#include <pthread.h>

#include <chrono>
#include <thread>

#include "autoport/aging_thread_control.h"
#include "autoport/auto_port.h"
#include "autoport/mac_learning.h"
#include "daemon_test.h"
#include "oui/oui_table.h"
#include "records.h"
#include "settings/age_timer.h"
#include "settings/vid.h"
#include "settings/vvlan_table.h"
#include "trace/debug_level.h"

using namespace fake;

namespace {

constexpr int ROUNDS = 300;
constexpr int PORTS = 8;

class AgeThreadStressTest : public DaemonTest {
  protected:
    void SetUp() override {
        DaemonTest::SetUp();
        sleep_control::get().reset(sleep_mode::INSTANT);
        dov_vvlan_set_dbg(0);
        g_vvlan_table.aging_minutes = 0;
        g_vvlan_oui_table[0] =
            vvlan_oui_oper{{0x00, 0xe0, 0xbb, 0, 0, 0}, {0xff, 0xff, 0xff, 0, 0, 0}, 1, {}};
        g_vvlan_table.oui_num = 1;
        for (int ifx = 0; ifx < PORTS; ++ifx) {
            g_vvlan_auto_port[static_cast<std::size_t>(ifx)].enable = 1;
        }
    }
    int32_t handle(int32_t (*handler)(tukredis_pmsg *), int32_t db, const std::string &key,
                   int32_t cmd, const std::string &value = "") {
        message m(db, key, cmd, value);
        return handler(&m.pmsg);
    }
    // NA then AA on a port: joins it, then marks it for aging.
    void learn_and_age(int phyid) {
        const std::string key = "/bri/mac/macTblDyn_vvlan/100/" + std::to_string(phyid) +
                                "/00e0bb0000" + std::to_string(10 + phyid);
        EXPECT_EQ(handle(get_mac_notify_pmsg_f, 0, key, TUKREDIS_CMD_NEW_ADDR), 0);
        EXPECT_EQ(handle(get_mac_notify_pmsg_f, 0, key, TUKREDIS_CMD_DEL), 0);
    }
};

TEST_F(AgeThreadStressTest, StopAndRestartWhilePortsAgeAndWritesAreInFlight) {
    ASSERT_EQ(handle(get_vid_pmsg_f, 1, "/bridge/vvlan/vid/100", TUKREDIS_CMD_SET), 0);
    for (int round = 0; round < ROUNDS; ++round) {
        for (int phyid = 1; phyid <= PORTS; ++phyid) {
            learn_and_age(phyid);
        }
        // Let the running thread remove at least the first port, so that the
        // restart below lands while it is busy with the others.
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (g_vvlan_auto_port[0].add_vvlan_flag != 0 &&
               std::chrono::steady_clock::now() < deadline) {
            std::this_thread::yield();
        }
        ASSERT_EQ(g_vvlan_auto_port[0].add_vvlan_flag, 0) << "round " << round;
        if (round % 3 == 2) {
            // Disable and enable: stop steps of the vid handler.
            ASSERT_EQ(handle(get_vid_pmsg_f, 1, "/bridge/vvlan/vid/100", TUKREDIS_CMD_DEL), 0);
            ASSERT_EQ(g_vvlan_table.is_running, 0);
            ASSERT_EQ(handle(get_vid_pmsg_f, 1, "/bridge/vvlan/vid/100", TUKREDIS_CMD_SET), 0);
        } else {
            // A new aging time: stop then start.
            ASSERT_EQ(handle(get_age_timer_pmsg_f, 1, "/bridge/vvlan/age_timer/1", TUKREDIS_CMD_SET,
                             bytes({0, 0})),
                      0);
        }
        ASSERT_EQ(g_vvlan_table.is_running, 1);
    }
    ASSERT_EQ(handle(get_vid_pmsg_f, 1, "/bridge/vvlan/vid/100", TUKREDIS_CMD_DEL), 0);
    EXPECT_FALSE(vvlan_timer_thread.live);
    ASSERT_EQ(pthread_mutex_trylock(&g_flag_lock), 0) << "a stop left g_flag_lock held";
    pthread_mutex_unlock(&g_flag_lock);
    EXPECT_EQ(posix_faults::pthread_create_calls(), ROUNDS + 1);
    // The aging thread did remove ports in between.
    int removals = 0;
    for (const db_write &w : bus().writes()) {
        removals += w.db == 1 && w.argv[0] == "DEL" ? 1 : 0;
    }
    EXPECT_GT(removals, 0);
    EXPECT_EQ(bus().check_write_convention(), "");
}

} // namespace
