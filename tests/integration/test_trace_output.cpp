// SPDX-License-Identifier: BSD-3-Clause
// What the daemon prints: nothing by default, everything from "vvlan_init
// end" on with the marker file, and what the debug key selects.
#include "daemon_fixture.h"

namespace integration {
namespace {

class TraceOutputTest : public DaemonTest {
  protected:
    // A delete of the marker key: one info line ("... start") and one error
    // line ("cmd=1"), and no write. Returns what was printed for it.
    struct probe_result {
        bool info = false;
        bool error = false;
    };
    probe_result probe_lines(std::size_t mark) {
        probe_result r;
        for (const testcommon::trace_line &t : traces_since(mark)) {
            r.info |= t.func == "get_data_end_pmsg_f" && t.level == 1 &&
                      t.text == "get_data_end_pmsg_f start";
            r.error |= t.func == "get_data_end_pmsg_f" && t.level == 2 && t.text == "cmd=1";
        }
        return r;
    }
    // Bytes the daemon has written can still be on their way through the
    // terminal when the barrier returns, so the lines expected are waited
    // for. A line expected to be absent cannot be waited for; one arriving
    // late could only hide a failure, never make one.
    probe_result probe(const probe_result &expected) {
        const std::size_t mark = daemon().mark();
        cfg_del("/bridge/vvlan/data/end");
        barrier();
        probe_result r;
        testsupport::eventually(
            [&] {
                r = probe_lines(mark);
                return (r.info || !expected.info) && (r.error || !expected.error);
            },
            std::chrono::seconds(5));
        return r;
    }
    void set_level(const std::string &level) {
        fwd_set("debugDovVVlan", level);
        barrier();
    }
};

TEST_F(TraceOutputTest, MarkerFileShowsEverythingFromVvlanInitEndOn) {
    start_daemon(true);
    const std::vector<testcommon::trace_line> lines = traces();
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines[0].func, "vvlan_init");
    EXPECT_EQ(lines[0].text, "vvlan_init end");
    EXPECT_EQ(lines[0].level, 1);
    for (const testcommon::trace_line &t : lines) {
        EXPECT_TRUE(t.well_formed);
        EXPECT_EQ(t.pid, daemon().pid());
        EXPECT_NE(t.text, "vvlan_init start");
    }
    EXPECT_TRUE(saw_line("check_db_validate", 1, "check_db_validate start"));
    EXPECT_TRUE(saw_line("check_db_validate", 1, "check_db_validate end"));
}

TEST_F(TraceOutputTest, WithoutMarkerAndKeyNothingIsPrinted) {
    start_daemon(false);
    cfg_set("/bridge/vvlan/vid/100", "");
    cfg_set("/bridge/vvlan/cos_dscp/1", bytes({5, 0x2e}));
    cfg_del("/bridge/vvlan/vid/100");
    barrier();
    EXPECT_EQ(db0("/bridge/vvlan/cos_dscp/"), bytes({0, 0, 5, 0x2e}));
    EXPECT_EQ(daemon().output(), "");
}

TEST_F(TraceOutputTest, DebugKeyLevels) {
    start_daemon(false);
    struct level_case {
        const char *level;
        bool info;
        bool error;
    };
    for (const level_case &c :
         {level_case{"32", true, true}, level_case{"34", false, true},
          level_case{"48", false, false}, level_case{"3", true, true}, level_case{"1", true, false},
          level_case{"2", false, true}, level_case{"0", false, false}}) {
        set_level(c.level);
        const probe_result r = probe({c.info, c.error});
        EXPECT_EQ(r.info, c.info) << "level " << c.level;
        EXPECT_EQ(r.error, c.error) << "level " << c.level;
    }
}

// A non-numeric value keeps the level and reports, at error level, under
// the words the daemon has always used.
TEST_F(TraceOutputTest, NonNumericDebugValueKeepsTheLevel) {
    start_daemon(false);
    set_level("2");
    const std::size_t mark = daemon().mark();
    set_level("abc");
    bool reported = false;
    for (const testcommon::trace_line &t : traces_since(mark)) {
        reported |=
            t.func == "dov_vvlan_dbg_pmsg_f" && t.level == 2 && t.text == "get mac_vlan failed";
    }
    EXPECT_TRUE(reported) << daemon().output_since(mark);
    const probe_result r = probe({false, true});
    EXPECT_FALSE(r.info);
    EXPECT_TRUE(r.error);
}

TEST_F(TraceOutputTest, DeletingTheDebugKeyKeepsTheLevelAndPrintsNothing) {
    start_daemon(false);
    set_level("1");
    const std::size_t mark = daemon().mark();
    fwd_del("debugDovVVlan");
    const probe_result r = probe({true, false});
    EXPECT_TRUE(r.info);
    EXPECT_FALSE(r.error);
    for (const testcommon::trace_line &t : traces_since(mark)) {
        EXPECT_NE(t.func, "dov_vvlan_dbg_pmsg_f");
    }
}

// Only database 0 carries the debug key.
TEST_F(TraceOutputTest, DebugKeyInTheOtherDatabaseIsNotSeen) {
    start_daemon(false);
    cfg_set("debugDovVVlan", "32");
    barrier();
    EXPECT_EQ(daemon().output(), "");
}

} // namespace
} // namespace integration
