// SPDX-License-Identifier: BSD-3-Clause
// The subscription table and the dispatch rules common to every handler.
#include <fnmatch.h>

#include "app/subscription_table.h"
#include "autoport/aging_thread_control.h"
#include "daemon_test.h"

using namespace fake;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

struct row_case {
    uint32_t db;
    const char *pattern;
    const char *handler_name;
    const char *sample_key;
};

const row_case ROWS[SUB_TABLE_ROWS] = {
    {1, "/bridge/vvlan/vid/*", "get_vid_pmsg_f", "/bridge/vvlan/vid/100"},
    {1, "/bridge/vvlan/secu_mode/*", "get_secu_mode_pmsg_f", "/bridge/vvlan/secu_mode/1"},
    {1, "/bridge/vvlan/cos_dscp/*", "get_cos_dscp_pmsg_f", "/bridge/vvlan/cos_dscp/x"},
    {1, "/bridge/vvlan/age_timer/*", "get_age_timer_pmsg_f", "/bridge/vvlan/age_timer/1"},
    {1, "/bridge/vvlan/port_oper/*", "get_port_oper_pmsg_f", "/bridge/vvlan/port_oper/5/1"},
    {1, "/bridge/vvlan/oui_oper/*", "get_oui_oper_pmsg_f",
     "/bridge/vvlan/oui_oper/00e0bb000000/ffffff000000"},
    {0, "/bri/mac/macTblDyn_vvlan/*", "get_mac_notify_pmsg_f",
     "/bri/mac/macTblDyn_vvlan/100/6/00e0bb123456"},
    {0, "/bridge/vvlan/spec_oui_msg/*", "get_spec_oui_pmsg_f",
     "/bridge/vvlan/spec_oui_msg/00e0bb000000/3"},
    {0, "/bridge/mac_vlan/table/*", "get_mac_vlan_pmsg_f", "/bridge/mac_vlan/table/256"},
    {1, "/bridge/vvlan/data/end", "get_data_end_pmsg_f", "/bridge/vvlan/data/end"},
    {0, "debugDovVVlan", "dov_vvlan_dbg_pmsg_f", "debugDovVVlan"},
};

class SubscriptionTableTest : public DaemonTest {};

TEST_F(SubscriptionTableTest, ElevenRowsInOrder) {
    ASSERT_EQ(g_sub_table.size(), 11u);
    for (std::size_t i = 0; i < g_sub_table.size(); ++i) {
        EXPECT_EQ(g_sub_table[i].db, ROWS[i].db) << i;
        EXPECT_STREQ(g_sub_table[i].pattern, ROWS[i].pattern) << i;
        EXPECT_EQ(g_sub_table[i].reserved, 0u) << i;
        ASSERT_NE(g_sub_table[i].handler, nullptr) << i;
    }
}

// Each row is wired to its own handler: a null record is reported under the
// handler's own name.
TEST_F(SubscriptionTableTest, EachRowCallsItsHandler) {
    for (std::size_t i = 0; i < g_sub_table.size(); ++i) {
        clear_trace();
        EXPECT_EQ(g_sub_table[i].handler(nullptr), -4) << i;
        const std::vector<trace_line> lines = trace();
        ASSERT_FALSE(lines.empty()) << i;
        EXPECT_EQ(lines.back().func, ROWS[i].handler_name) << i;
        EXPECT_EQ(lines.back().text, "pmsg is null") << i;
        EXPECT_EQ(lines.back().level, 2) << i;
    }
    EXPECT_THAT(bus().writes(), IsEmpty());
}

// The library picks the row whose pattern matches in the event's database;
// no key of one row can match another row's pattern there, and a key that
// matches no row has no handler.
TEST_F(SubscriptionTableTest, PatternsDoNotOverlap) {
    for (std::size_t i = 0; i < g_sub_table.size(); ++i) {
        for (std::size_t j = 0; j < g_sub_table.size(); ++j) {
            const bool match = g_sub_table[j].db == ROWS[i].db &&
                               fnmatch(g_sub_table[j].pattern, ROWS[i].sample_key, 0) == 0;
            EXPECT_EQ(match, i == j) << ROWS[i].sample_key << " vs " << g_sub_table[j].pattern;
        }
    }
    for (const char *stray : {"/bridge/vvlan/other/1", "/bridge/vvlan/data/end2", "debugDovVVlan2",
                              "/bri/mac/macTblDyn/1"}) {
        for (const tukredis_sub_row &row : g_sub_table) {
            EXPECT_NE(fnmatch(row.pattern, stray, 0), 0) << stray;
        }
    }
}

// CMD_EXPIRE on rows 0 to 8 is ignored with one error line and result 0;
// rows 9 and 10 refuse it with -4. Nothing is written either way.
TEST_F(SubscriptionTableTest, ExpireChangesNothing) {
    for (std::size_t i = 0; i < g_sub_table.size(); ++i) {
        clear_trace();
        message m(static_cast<int32_t>(ROWS[i].db), ROWS[i].sample_key, TUKREDIS_CMD_EXPIRE, "1");
        const int32_t rv = g_sub_table[i].handler(&m.pmsg);
        EXPECT_EQ(m.rep.reads, 0) << i;
        if (i <= 8) {
            EXPECT_EQ(rv, 0) << i;
            EXPECT_THAT(trace_lines(), ::testing::Contains(err_line(ROWS[i].handler_name,
                                                                    "not care CMD_EXPIRE event")))
                << i;
        } else {
            EXPECT_EQ(rv, -4) << i;
        }
    }
    EXPECT_THAT(bus().writes(), IsEmpty());
    EXPECT_FALSE(vvlan_timer_thread.live);
}

#if defined(__SIZEOF_POINTER__) && __SIZEOF_POINTER__ == 4
TEST_F(SubscriptionTableTest, RowAndRecordAre140BytesOnTheTarget) {
    EXPECT_EQ(sizeof(tukredis_sub_row), 140u);
    EXPECT_EQ(sizeof(tukredis_pmsg), 140u);
}
#endif

} // namespace
