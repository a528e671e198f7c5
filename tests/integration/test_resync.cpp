// SPDX-License-Identifier: BSD-3-Clause
// Re-synchronisation after every connection, the load-complete marker, and
// the daemon's behaviour when the server goes away and comes back.
#include <fstream>
#include <sstream>

#include "daemon_fixture.h"

namespace integration {
namespace {

const std::vector<std::string> PUBLISHED_SAMPLES = {
    "/bridge/vvlan/cos_dscp/",     "/bridge/vvlan/secu_mode/",
    "/bridge/vvlan/age_timer/1",   "/bridge/vvlan/vid/100",
    "/bridge/vvlan/port_oper/5/1", "/bridge/vvlan/oui_oper/00e0bb000000/ffffff000000/0",
};

class ResyncTest : public DaemonTest {};

TEST_F(ResyncTest, MarkerIsCopiedToDatabase0) {
    start_daemon();
    cfg_set("/bridge/vvlan/data/end", "17");
    ASSERT_EVENTUALLY(patience(5s), db0("/bridge/vvlan/data/end") == "17");
    EXPECT_TRUE(saw_line("get_data_end_pmsg_f", 1, "pmsg db=1 key=/bridge/vvlan/data/end cmd=0"));
    EXPECT_TRUE(saw_line("set_data_end_redis", 1, "key=/bridge/vvlan/data/end"));
    EXPECT_TRUE(saw_line("get_data_end_pmsg_f", 1, "dov_vvlan_set_data_end_pmsg_f end"));
}

TEST_F(ResyncTest, MarkerDeleteIsRefusedAndTheCopyStays) {
    start_daemon();
    cfg_set("/bridge/vvlan/data/end", "17");
    ASSERT_EVENTUALLY(patience(5s), db0("/bridge/vvlan/data/end") == "17");
    cfg_del("/bridge/vvlan/data/end");
    ASSERT_TRUE(wait_line("get_data_end_pmsg_f", 2, "cmd=1", patience(5s)));
    EXPECT_EQ(db0("/bridge/vvlan/data/end"), "17");
}

TEST_F(ResyncTest, NonNumericMarkerWritesNothing) {
    start_daemon();
    cfg_set("/bridge/vvlan/data/end", "17");
    ASSERT_EVENTUALLY(patience(5s), db0("/bridge/vvlan/data/end") == "17");
    cfg_set("/bridge/vvlan/data/end", "abc");
    ASSERT_TRUE(
        wait_line("get_data_end_pmsg_f", 2, "tukredis_get_key_reply_intval error", patience(5s)));
    EXPECT_EQ(db0("/bridge/vvlan/data/end"), "17");
}

// A database-0 vid key of an earlier configuration is swept; the configured
// one is published.
TEST_F(ResyncTest, StaleVidKeyIsSweptAtStart) {
    fwd_set("/bridge/vvlan/vid/100", bytes({0, 0}));
    cfg_set("/bridge/vvlan/vid/200", "");
    start_daemon();
    EXPECT_EQ(db0("/bridge/vvlan/vid/100"), std::nullopt);
    EXPECT_EQ(db0("/bridge/vvlan/vid/200"), bytes({0, 0}));
    EXPECT_EQ(redis().pttl(0, "/bridge/vvlan/vid/200"), -1) << "re-published keys carry no TTL";
}

// An empty database 1 re-reads nothing and sweeps all six patterns; the
// marker's copy and keys under other names survive.
TEST_F(ResyncTest, EmptyConfigurationSweepsEveryPublishedPattern) {
    for (const std::string &key : PUBLISHED_SAMPLES) {
        fwd_set(key, "stale");
    }
    fwd_set("/bridge/vvlan/data/end", "5");
    fwd_set("/bridge/vvlan/mvlan_oui_msg/3", "3");
    fwd_set("/bri/mac/macTblDyn_vvlan/100/6/00e0bb123456", "x");
    start_daemon();
    for (const std::string &key : PUBLISHED_SAMPLES) {
        EXPECT_EQ(db0(key), std::nullopt) << key;
    }
    EXPECT_EQ(db0("/bridge/vvlan/data/end"), "5");
    EXPECT_EQ(redis().pttl(0, "/bridge/vvlan/data/end"), -1);
    EXPECT_EQ(db0("/bridge/vvlan/mvlan_oui_msg/3"), "3");
    EXPECT_TRUE(db0("/bri/mac/macTblDyn_vvlan/100/6/00e0bb123456").has_value());
}

// The re-read goes through the ordinary handlers, the marker last.
TEST_F(ResyncTest, ConfigurationWrittenBeforeStartIsApplied) {
    cfg_set("/bridge/vvlan/cos_dscp/1", bytes({5, 0x2e}));
    cfg_set("/bridge/vvlan/secu_mode/1", "");
    cfg_set("/bridge/vvlan/vid/100", "");
    cfg_set("/bridge/vvlan/data/end", "42");
    start_daemon();
    EXPECT_EQ(db0("/bridge/vvlan/cos_dscp/"), bytes({0, 0, 5, 0x2e}));
    EXPECT_EQ(db0("/bridge/vvlan/secu_mode/"), "1");
    EXPECT_EQ(db0("/bridge/vvlan/vid/100"), bytes({0, 0}));
    EXPECT_EQ(db0("/bridge/vvlan/data/end"), "42");
    // The marker's copy is the scan's last write.
    std::size_t marker_at = 0;
    std::size_t last_key_at = 0;
    const std::vector<testcommon::trace_line> lines = traces();
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (lines[i].text == "key=/bridge/vvlan/data/end") {
            marker_at = i;
        } else if (lines[i].text.rfind("key=", 0) == 0) {
            last_key_at = i;
        }
    }
    EXPECT_GT(marker_at, last_key_at);
}

// The server stops and starts again (empty): the daemon does not exit, it
// reconnects, re-subscribes and re-synchronises.
TEST_F(ResyncTest, DaemonSurvivesAServerRestartAndResynchronises) {
    start_daemon();
    const std::size_t mark = daemon().mark();
    server().restart();
    ASSERT_TRUE(testsupport::eventually(
        [&] {
            return daemon().output_since(mark).find("check_db_validate end") != std::string::npos;
        },
        patience(15s)));
    EXPECT_TRUE(daemon().running());
    barrier();
    cfg_set("/bridge/vvlan/vid/300", "");
    ASSERT_EVENTUALLY(patience(5s), db0("/bridge/vvlan/vid/300") == bytes({0, 0}));
}

// Events lost while notifications were off are recovered by the scan that
// follows the next connection; the connection turns them on again.
TEST_F(ResyncTest, LostEventsAreRecoveredAfterTheNextConnection) {
    start_daemon();
    redis().config_set("notify-keyspace-events", "");
    cfg_set("/bridge/vvlan/vid/300", "");
    const std::size_t mark = daemon().mark();
    EXPECT_GE(redis().client_kill_pubsub(), 1);
    ASSERT_TRUE(testsupport::eventually(
        [&] {
            return daemon().output_since(mark).find("check_db_validate end") != std::string::npos;
        },
        patience(15s)));
    EXPECT_EQ(db0("/bridge/vvlan/vid/300"), bytes({0, 0}));
    const std::string flags = redis().config_get("notify-keyspace-events");
    for (char f : std::string("Kg$xe")) {
        EXPECT_NE(flags.find(f), std::string::npos) << flags;
    }
    barrier();
}

// While the server is down the daemon waits without spinning: a few seconds
// of outage cost it well under a second of CPU.
TEST_F(ResyncTest, NoBusyLoopWhileTheServerIsDown) {
    start_daemon();
    auto cpu_ticks = [&] {
        std::ifstream in("/proc/" + std::to_string(daemon().pid()) + "/stat");
        std::string field;
        long ticks = 0;
        for (int i = 1; i <= 15 && in >> field; ++i) {
            if (i == 14 || i == 15) {
                ticks += std::stol(field);
            }
        }
        return ticks;
    };
    server().stop();
    const long before = cpu_ticks();
    const auto window = std::chrono::seconds(3);
    const auto until = std::chrono::steady_clock::now() + window;
    while (std::chrono::steady_clock::now() < until) {
        ASSERT_TRUE(daemon().running());
        std::this_thread::sleep_for(100ms);
    }
    const long used = cpu_ticks() - before;
    EXPECT_LT(used, sysconf(_SC_CLK_TCK) / 2) << "CPU ticks used while the server was down";
    server().start();
    // Written before or after the daemon is back: the scan or the
    // notification copies it either way.
    cfg_set("/bridge/vvlan/data/end", "77");
    ASSERT_EVENTUALLY(patience(15s), db0("/bridge/vvlan/data/end") == "77");
}

} // namespace
} // namespace integration
