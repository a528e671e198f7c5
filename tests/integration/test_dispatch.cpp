// SPDX-License-Identifier: BSD-3-Clause
// Dispatch rules and bad input against the real daemon: keys that match no
// row, expiry events, malformed keys and short values. The daemon reports,
// writes nothing outside its tables and keeps serving.
#include "daemon_fixture.h"

namespace integration {
namespace {

class DispatchTest : public DaemonTest {
  protected:
    // Lines printed for what was written since mark, leaving out the
    // barrier's own.
    std::vector<testcommon::trace_line> lines_since(std::size_t mark) {
        std::vector<testcommon::trace_line> out;
        for (const testcommon::trace_line &t : traces_since(mark)) {
            if (t.func != "get_data_end_pmsg_f" && t.func != "set_data_end_redis") {
                out.push_back(t);
            }
        }
        return out;
    }
};

TEST_F(DispatchTest, KeysMatchingNoRowAreNeverDelivered) {
    start_daemon();
    const std::size_t mark = daemon().mark();
    cfg_set("/bridge/vvlan/other/1", "x");
    cfg_set("debugDovVVlan", "0");         // the debug row listens in database 0
    fwd_set("/bridge/vvlan/vid/100", "x"); // the vid row listens in database 1
    cfg_set("/bri/mac/macTblDyn_vvlan/100/6/00e0bb123456", "x"); // learning row: database 0
    redis().command(1, {"APPEND", "/bridge/vvlan/vid/7", "x"});  // not a delivered event
    barrier();
    EXPECT_TRUE(lines_since(mark).empty()) << daemon().output_since(mark);
    EXPECT_EQ(db0("/bridge/vvlan/vid/7"), std::nullopt);
}

// An expiry set on a configuration key is traced and ignored.
TEST_F(DispatchTest, ExpireEventChangesNothing) {
    start_daemon();
    cfg_set("/bridge/vvlan/cos_dscp/1", bytes({1, 2}));
    barrier();
    fwd_del("/bridge/vvlan/cos_dscp/");
    const std::size_t mark = daemon().mark();
    ASSERT_TRUE(redis().pexpire(1, "/bridge/vvlan/cos_dscp/1", 3600000));
    barrier();
    const std::vector<testcommon::trace_line> lines = lines_since(mark);
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back().func, "get_cos_dscp_pmsg_f");
    EXPECT_EQ(lines.back().level, 2);
    EXPECT_EQ(lines.back().text, "not care CMD_EXPIRE event");
    EXPECT_EQ(db0("/bridge/vvlan/cos_dscp/"), std::nullopt) << "nothing re-published";
}

// Short values, keys with no number, ports that do not exist: reported at
// error level, nothing written, the daemon serves on.
TEST_F(DispatchTest, BadInputIsReportedAndDropped) {
    start_daemon();
    cfg_set("/bridge/vvlan/port_oper/abc/1", "x");
    cfg_set("/bridge/vvlan/port_oper/5/1", std::string("\0\0\0\x05\x01\0\0\0\0\0\0\x01", 12));
    barrier();
    const std::size_t mark = daemon().mark();
    cfg_set("/bridge/vvlan/cos_dscp/1", bytes({5}));
    cfg_set("/bridge/vvlan/age_timer/1", bytes({1}));
    cfg_set("/bridge/vvlan/port_oper/6/1", bytes({0, 0, 0, 6, 1}));
    cfg_set("/bridge/vvlan/port_oper/99/1", std::string("\0\0\0\x63\x01\0\0\0\0\0\0\x01", 12));
    cfg_del("/bridge/vvlan/port_oper/abc/1");
    cfg_set("/bridge/vvlan/oui_oper/00e0bb000000/ffffff000000", bytes({0, 0xe0, 0xbb}));
    fwd_set("/bridge/mac_vlan/table/999", std::string(29, '\0'));
    fwd_set("/bridge/mac_vlan/table/abc", std::string(29, '\0'));
    fwd_set("/bridge/mac_vlan/table/256", std::string(10, '\0'));
    fwd_set("/bri/mac/macTblDyn_vvlan/0/6/00e0", "");
    fwd_set("/bridge/vvlan/spec_oui_msg/00e0/3", "");
    barrier();
    int errors = 0;
    for (const testcommon::trace_line &t : lines_since(mark)) {
        errors += t.level == 2 ? 1 : 0;
    }
    EXPECT_EQ(errors, 11) << daemon().output_since(mark);
    EXPECT_TRUE(daemon().running());
    for (const std::string &key : redis().keys(0, "*")) {
        EXPECT_TRUE(key == "/bridge/vvlan/data/end" || key == "/bridge/vvlan/port_oper/5/1" ||
                    key.rfind("/bridge/mac_vlan/", 0) == 0 || key.rfind("/bri/mac/", 0) == 0 ||
                    key.rfind("/bridge/vvlan/spec_oui_msg/", 0) == 0)
            << "unexpected write " << key;
    }
    EXPECT_TRUE(redis().keys(1, "/bri/mac/*").empty());
}

} // namespace
} // namespace integration
