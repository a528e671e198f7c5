// SPDX-License-Identifier: BSD-3-Clause
// Re-synchronisation: mark, re-read in a fixed order, sweep.
#include "app/load_complete_marker.h"
#include "app/resync_scan.h"
#include "autoport/port_oper.h"
#include "daemon_test.h"
#include "oui/mvlan_table.h"
#include "oui/oui_add.h"
#include "settings/age_timer.h"
#include "settings/cos_dscp.h"
#include "settings/secu_mode.h"
#include "settings/vid.h"

using namespace fake;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

const std::vector<std::string> PUBLISHED = {
    "/bridge/vvlan/cos_dscp/*", "/bridge/vvlan/secu_mode/*", "/bridge/vvlan/age_timer/*",
    "/bridge/vvlan/vid/*",      "/bridge/vvlan/port_oper/*", "/bridge/vvlan/oui_oper/*",
};

class CheckDbValidateTest : public DaemonTest {
  protected:
    std::vector<bus_call> pattern_calls() {
        std::vector<bus_call> out;
        for (const bus_call &c : bus().calls()) {
            if (c.op == "pexpire" || c.op == "scan" || c.op == "del_expire") {
                out.push_back(c);
            }
        }
        return out;
    }
};

TEST_F(CheckDbValidateTest, CodesTwoAndAboveDoNothing) {
    for (unsigned code : {2u, 3u, 100u, static_cast<unsigned>(-1), static_cast<unsigned>(-11)}) {
        EXPECT_EQ(check_db_validate(code), 0) << code;
    }
    EXPECT_THAT(bus().calls(), IsEmpty());
    EXPECT_THAT(raw_trace(), IsEmpty());
}

TEST_F(CheckDbValidateTest, MarkRereadSweepInExactOrder) {
    for (unsigned code : {0u, 1u}) {
        bus().clear_calls();
        clear_trace();
        EXPECT_EQ(check_db_validate(code), 0);
        const std::vector<bus_call> calls = pattern_calls();
        ASSERT_EQ(calls.size(), 6u + 8u + 6u);
        for (std::size_t i = 0; i < 6; ++i) {
            EXPECT_EQ(calls[i].op, "pexpire");
            EXPECT_EQ(calls[i].db, 0);
            EXPECT_EQ(calls[i].key, PUBLISHED[i]);
            EXPECT_EQ(calls[i].args, (std::vector<int32_t>{3600000, 100}));
        }
        const std::vector<std::pair<std::string, tukredis_handler>> reread = {
            {"/bridge/vvlan/cos_dscp/*", get_cos_dscp_pmsg_f},
            {"/bridge/vvlan/secu_mode/*", get_secu_mode_pmsg_f},
            {"/bridge/vvlan/age_timer/*", get_age_timer_pmsg_f},
            {"/bridge/vvlan/vid/*", get_vid_pmsg_f},
            {"/bridge/vvlan/port_oper/*", get_port_oper_pmsg_f},
            {"/bridge/vvlan/oui_oper/*", get_oui_oper_pmsg_f},
            {"/bridge/mac_vlan/table/*", get_mac_vlan_pmsg_f},
            {"/bridge/vvlan/data/end", get_data_end_pmsg_f},
        };
        for (std::size_t i = 0; i < 8; ++i) {
            const bus_call &c = calls[6 + i];
            EXPECT_EQ(c.op, "scan");
            EXPECT_EQ(c.db, 1) << c.key;
            EXPECT_EQ(c.key, reread[i].first);
            EXPECT_EQ(c.handler, reread[i].second) << c.key;
            EXPECT_EQ(c.args, (std::vector<int32_t>{100, 0, 0}));
        }
        for (std::size_t i = 0; i < 6; ++i) {
            const bus_call &c = calls[14 + i];
            EXPECT_EQ(c.op, "del_expire");
            EXPECT_EQ(c.db, 0);
            EXPECT_EQ(c.key, PUBLISHED[i]);
            EXPECT_EQ(c.args, std::vector<int32_t>{100});
        }
        EXPECT_THAT(trace_lines(),
                    ElementsAre(info_line("check_db_validate", "check_db_validate start"),
                                info_line("check_db_validate", "check_db_validate end")));
    }
}

// A stale database-0 VLAN id key is swept; the configured one is published.
TEST_F(CheckDbValidateTest, StaleVidKeyIsSweptAndTheConfiguredOnePublished) {
    bus().put(0, "/bridge/vvlan/vid/100", bytes({0, 0}));
    bus().put(1, "/bridge/vvlan/vid/200", "");
    EXPECT_EQ(check_db_validate(0), 0);
    EXPECT_EQ(bus().value(0, "/bridge/vvlan/vid/100"), std::nullopt);
    EXPECT_EQ(bus().value(0, "/bridge/vvlan/vid/200"), bytes({0, 0}));
    EXPECT_FALSE(bus().has_ttl(0, "/bridge/vvlan/vid/200"));
}

// An empty database 1 calls no handler and sweeps everything published;
// the load-complete marker's copy is not among the swept patterns.
TEST_F(CheckDbValidateTest, EmptyConfigurationSweepsAllSixPatterns) {
    const std::vector<std::string> stale = {
        "/bridge/vvlan/cos_dscp/",     "/bridge/vvlan/secu_mode/",
        "/bridge/vvlan/age_timer/x",   "/bridge/vvlan/vid/100",
        "/bridge/vvlan/port_oper/5/1", "/bridge/vvlan/oui_oper/00e0bb000000/ffffff000000/0",
    };
    for (const std::string &key : stale) {
        bus().put(0, key, "v");
    }
    bus().put(0, "/bridge/vvlan/data/end", "17");
    bus().put(0, "/bridge/vvlan/mvlan_oui_msg/3", "3");
    EXPECT_EQ(check_db_validate(1), 0);
    EXPECT_THAT(bus().keys(0),
                ElementsAre("/bridge/vvlan/data/end", "/bridge/vvlan/mvlan_oui_msg/3"));
    EXPECT_THAT(trace_lines(),
                ElementsAre(info_line("check_db_validate", "check_db_validate start"),
                            info_line("check_db_validate", "check_db_validate end")));
    EXPECT_THAT(bus().writes(), IsEmpty());
}

// Nothing re-publishes under "/bridge/vvlan/age_timer/": swept every time,
// even while an aging time is configured.
TEST_F(CheckDbValidateTest, AgeTimerCopiesAreAlwaysSwept) {
    bus().put(1, "/bridge/vvlan/age_timer/1", bytes({0, 30}));
    bus().put(0, "/bridge/vvlan/age_timer/1", bytes({0, 30}));
    EXPECT_EQ(check_db_validate(0), 0);
    EXPECT_EQ(bus().value(0, "/bridge/vvlan/age_timer/1"), std::nullopt);
}

// Handlers that fail do not stop the scan: later patterns are still read
// and the sweep still runs.
TEST_F(CheckDbValidateTest, FailingHandlersDoNotStopTheScan) {
    bus().put(1, "/bridge/vvlan/cos_dscp/1", bytes({5, 46}));
    bus().put(1, "/bridge/vvlan/data/end", "9");
    bus().put(0, "/bridge/vvlan/vid/7", "x");
    bus().set_scan_reply_fails(true);
    EXPECT_EQ(check_db_validate(0), 0);
    EXPECT_THAT(trace_texts(), ::testing::Contains("get value fail"));
    EXPECT_THAT(trace_texts(), ::testing::Contains("tukredis_get_key_reply_intval error"));
    EXPECT_EQ(bus().value(0, "/bridge/vvlan/vid/7"), std::nullopt);
    EXPECT_EQ(trace_texts().back(), "check_db_validate end");
}

// The whole configuration comes back through the ordinary handlers, the
// marker's copy last.
TEST_F(CheckDbValidateTest, RereadRepublishesTheConfigurationMarkerLast) {
    bus().put(1, "/bridge/vvlan/cos_dscp/1", bytes({5, 0x2e}));
    bus().put(1, "/bridge/vvlan/secu_mode/1", "");
    bus().put(1, "/bridge/vvlan/vid/100", "");
    bus().put(1, "/bridge/vvlan/data/end", "4");
    EXPECT_EQ(check_db_validate(0), 0);
    const std::vector<db_write> w = bus().writes();
    ASSERT_FALSE(w.empty());
    EXPECT_EQ(w.front(), set_write(0, "/bridge/vvlan/cos_dscp/", bytes({0, 0, 5, 0x2e})));
    EXPECT_EQ(w.back(), set_write(0, "/bridge/vvlan/data/end", "4"));
    EXPECT_EQ(bus().value(0, "/bridge/vvlan/secu_mode/"), "1");
    EXPECT_EQ(bus().value(0, "/bridge/vvlan/vid/100"), bytes({0, 0}));
}

} // namespace
