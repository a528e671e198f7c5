// SPDX-License-Identifier: BSD-3-Clause
// The judge of the hostile-input test: the daemon's own commands pass, the
// ones it must never send do not.
#include <gtest/gtest.h>

#include "daemon_key_set.h"
#include "world.h"

namespace faults {
namespace {

monitored_command daemon_command(int db, std::vector<std::string> argv) {
    return {db, "unix:/tmp/x/redis.sock", std::move(argv)};
}

bool inside(int db, std::vector<std::string> argv) {
    return !outside_key_set(daemon_command(db, std::move(argv))).has_value();
}

TEST(DaemonKeySet, WritesItsPublishersMakeAreInside) {
    EXPECT_TRUE(inside(DB_STATE, {"SET", key_text(port_oper_key(5, 2)), pre_entry_idx_value()}));
    EXPECT_TRUE(inside(DB_STATE, {"DEL", key_text(port_oper_key(5, 2))}));
    EXPECT_TRUE(inside(DB_CONFIG, {"SET", key_text(join_request_key(5)), join_request_value(5)}));
    EXPECT_TRUE(inside(DB_STATE, {"SET", key_text(vid_key(100)), pre_entry_idx_value(3)}));
    EXPECT_TRUE(inside(DB_STATE, {"SET", key_text(family_key(key_family::secu_mode)), "1"}));
    EXPECT_TRUE(inside(DB_STATE, {"SET", key_text(oui_echo_key(OUI_A.oui, OUI_A.mask, 3)),
                                  std::string(oui_echo_codec::size, 'x')}));
    EXPECT_TRUE(inside(DB_STATE, {"SET", key_text(mvlan_oui_msg_key(3)), "3"}));
    EXPECT_TRUE(inside(DB_STATE, {"DEL", key_text(spec_oui_msg_key(OUI_A.oui, 7))}));
    EXPECT_TRUE(inside(DB_STATE, {"SET", key_text(family_key(key_family::data_end)), "-17"}));
}

TEST(DaemonKeySet, WritesOutsideItsFormsAreOutside) {
    // The right key in the wrong database, a value of the wrong length, a
    // key of the wrong form, a configuration key, a key it never writes.
    EXPECT_FALSE(inside(DB_CONFIG, {"SET", key_text(port_oper_key(5, 2)), pre_entry_idx_value()}));
    EXPECT_FALSE(inside(DB_STATE, {"SET", key_text(port_oper_key(5, 2)), "x"}));
    EXPECT_FALSE(inside(DB_STATE, {"SET", key_text(join_request_key(5)), join_request_value(5)}));
    EXPECT_FALSE(inside(DB_STATE, {"SET", "/bridge/vvlan/port_oper/5/2/x", pre_entry_idx_value()}));
    EXPECT_FALSE(inside(DB_STATE, {"SET", key_text(spec_oui_msg_key(OUI_A.oui, 7)), ""}));
    EXPECT_FALSE(inside(DB_STATE, {"DEL", key_text(family_key(key_family::cos_dscp))}));
    EXPECT_FALSE(inside(DB_STATE, {"SET", "/bridge/vvlan/age_timer/", "1"}));
    EXPECT_FALSE(inside(DB_CONFIG, {"DEL", key_text(vid_key(100))}));
    EXPECT_FALSE(inside(DB_STATE, {"FLUSHALL"}));
}

TEST(DaemonKeySet, ReadsMarksAndSweepsStayUnderItsPatterns) {
    EXPECT_TRUE(inside(DB_CONFIG, {"GET", "/bridge/vvlan/oui_oper/anything"}));
    EXPECT_TRUE(inside(DB_CONFIG, {"GET", "/bridge/mac_vlan/table/300"})); // re-read there
    EXPECT_TRUE(inside(DB_STATE, {"GET", "/bridge/mac_vlan/table/300"}));  // subscribed there
    EXPECT_FALSE(inside(DB_STATE, {"GET", "/bridge/vvlan/oui_oper/x"}));
    EXPECT_TRUE(
        inside(DB_CONFIG, {"SCAN", "0", "MATCH", "/bridge/vvlan/data/end", "COUNT", "100"}));
    EXPECT_FALSE(inside(DB_CONFIG, {"SCAN", "0", "MATCH", "*", "COUNT", "100"}));
    EXPECT_TRUE(inside(DB_STATE, {"PEXPIRE", "/bridge/vvlan/vid/7", "3600000"}));
    EXPECT_FALSE(inside(DB_STATE, {"PEXPIRE", "/bridge/mac_vlan/table/300", "3600000"}));
    EXPECT_FALSE(inside(DB_CONFIG, {"PEXPIRE", "/bridge/vvlan/vid/7", "3600000"}));
    EXPECT_TRUE(outside_key_set({DB_STATE, "lua", {"DEL", "/bridge/vvlan/port_oper/9/2"}}) ==
                std::nullopt);
    EXPECT_TRUE(outside_key_set({DB_STATE, "lua", {"DEL", "/bri/mac/macTblDyn_vvlan/9"}}));
    EXPECT_TRUE(inside(DB_STATE, {"PSUBSCRIBE", "__keyspace@1__:/bridge/vvlan/vid/*",
                                  "__keyspace@0__:debugDovVVlan"}));
    EXPECT_FALSE(inside(DB_STATE, {"PSUBSCRIBE", "__keyspace@0__:*"}));
}

} // namespace
} // namespace faults
