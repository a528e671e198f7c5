// SPDX-License-Identifier: BSD-3-Clause
// Port operation keys: automatic mode in and out, joined and left.
#include "autoport/auto_port.h"
#include "autoport/port_oper.h"
#include "daemon_test.h"
#include "records.h"
#include "settings/vvlan_table.h"

using namespace fake;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class PortOperTest : public DaemonTest {
  protected:
    int32_t set(const std::string &key, const std::string &value) {
        message m(1, key, TUKREDIS_CMD_SET, value);
        return get_port_oper_pmsg_f(&m.pmsg);
    }
    int32_t del(const std::string &key, int32_t cmd = TUKREDIS_CMD_DEL) {
        message m(1, key, cmd);
        return get_port_oper_pmsg_f(&m.pmsg);
    }
};

TEST_F(PortOperTest, NullRecord) {
    EXPECT_EQ(get_port_oper_pmsg_f(nullptr), -4);
    EXPECT_THAT(trace_lines(),
                ElementsAre(info_line("get_port_oper_pmsg_f", "get_port_oper_pmsg_f start"),
                            err_line("get_port_oper_pmsg_f", "pmsg is null")));
}

// The record's own enable byte is not consulted: mode 1 turns auto on.
TEST_F(PortOperTest, SetMode1WithEnable0StillEnablesAndEchoes) {
    g_vvlan_table.oui_idx = 0x0203;
    EXPECT_EQ(set("/bridge/vvlan/port_oper/7/1", port_oper_value(7, 0, 1)), 0);
    EXPECT_EQ(g_vvlan_auto_port[7].enable, 1);
    EXPECT_THAT(bus().writes(),
                ElementsAre(set_write(0, "/bridge/vvlan/port_oper/7/1", bytes({0x02, 0x03}))));
    EXPECT_THAT(
        trace_lines(),
        ElementsAre(
            info_line("get_port_oper_pmsg_f", "get_port_oper_pmsg_f start"),
            info_line("get_port_oper_pmsg_f", "pmsg db=1 key=/bridge/vvlan/port_oper/7/1 cmd=0"),
            info_line("get_port_oper_pmsg_f", "vvlan_port_oper->ifx=7, vvlan_port_oper->mode=1, "
                                              "vvlan_port_oper->enable=0"),
            info_line("set_port_oper_redis", "set_port_oper_redis start"),
            info_line("set_port_oper_redis", "vvlan_port_oper->ifx=7, vvlan_port_oper->mode=1, "
                                             "vvlan_port_oper->enable=0"),
            info_line("set_port_oper_redis", "key=/bridge/vvlan/port_oper/7/1"),
            info_line("set_port_oper_redis", "set_port_oper_redis end"),
            info_line("get_port_oper_pmsg_f", "get_port_oper_pmsg_f end")));
}

// The key is built from the record, not from the notified key.
TEST_F(PortOperTest, KeyComesFromTheRecord) {
    EXPECT_EQ(set("/bridge/vvlan/port_oper/7/1", port_oper_value(52, 1, 1)), 0);
    EXPECT_EQ(g_vvlan_auto_port[52].enable, 1);
    EXPECT_EQ(g_vvlan_auto_port[7].enable, 0);
    EXPECT_THAT(bus().writes(),
                ElementsAre(set_write(0, "/bridge/vvlan/port_oper/52/1", bytes({0, 0}))));
}

TEST_F(PortOperTest, SetMode2ChangesNoStateAndEchoes) {
    EXPECT_EQ(set("/bridge/vvlan/port_oper/7/2", port_oper_value(7, 1, 2)), 0);
    EXPECT_EQ(g_vvlan_auto_port[7].enable, 0);
    EXPECT_EQ(g_vvlan_auto_port[7].add_vvlan_flag, 0);
    EXPECT_THAT(bus().writes(),
                ElementsAre(set_write(0, "/bridge/vvlan/port_oper/7/2", bytes({0, 0}))));
}

TEST_F(PortOperTest, DeleteMode1OnAPortNeverJoinedDeletesOnlyThatKey) {
    g_vvlan_auto_port[7].enable = 1;
    g_vvlan_auto_port[7].pri_oui_num = 4;
    EXPECT_EQ(del("/bridge/vvlan/port_oper/7/1"), 0);
    EXPECT_EQ(g_vvlan_auto_port[7].enable, 0);
    EXPECT_EQ(g_vvlan_auto_port[7].pri_oui_num, 0u);
    EXPECT_THAT(bus().writes(), ElementsAre(del_write(0, "/bridge/vvlan/port_oper/7/1")));
    EXPECT_THAT(
        trace_lines(),
        ElementsAre(
            info_line("get_port_oper_pmsg_f", "get_port_oper_pmsg_f start"),
            info_line("get_port_oper_pmsg_f", "pmsg db=1 key=/bridge/vvlan/port_oper/7/1 cmd=1"),
            info_line("get_port_oper_pmsg_f", "ifx=7, mode=1"),
            info_line("del_port_oper_redis", "del_port_oper_redis start"),
            info_line("del_port_oper_redis", "ifx=7, mode=1"),
            info_line("del_port_oper_redis", "ifx=7: pri_oui_num=0, auto mode enable=0"),
            info_line("del_port_oper_redis", "key=/bridge/vvlan/port_oper/7/1"),
            info_line("del_port_oper_redis", "del_port_oper_redis end"),
            info_line("get_port_oper_pmsg_f", "del_port_oper_redis end"),
            info_line("get_port_oper_pmsg_f", "get_port_oper_pmsg_f end")));
}

// A joined port also leaves the voice VLAN, but its MAC-table join key, its
// per-OUI flags and its refresh_flag stay.
TEST_F(PortOperTest, DeleteMode1OnAJoinedPortAlsoLeaves) {
    vvlan_auto_port &port = g_vvlan_auto_port[7];
    port.enable = 1;
    port.add_vvlan_flag = 1;
    port.aging_flag = 1;
    port.refresh_flag = 1;
    g_auto_add_vvlan_table[7].oui_flag[0] = OUI_FLAG_LEARNED;
    EXPECT_EQ(del("/bridge/vvlan/port_oper/7/1"), 0);
    EXPECT_EQ(port.add_vvlan_flag, 0);
    EXPECT_EQ(port.aging_flag, 0);
    EXPECT_EQ(port.refresh_flag, 1);
    EXPECT_EQ(g_auto_add_vvlan_table[7].oui_flag[0], OUI_FLAG_LEARNED);
    EXPECT_THAT(bus().writes(), ElementsAre(del_write(0, "/bridge/vvlan/port_oper/7/1"),
                                            del_write(0, "/bridge/vvlan/port_oper/7/2")));
    EXPECT_THAT(
        trace_lines(),
        ElementsAre(
            info_line("get_port_oper_pmsg_f", "get_port_oper_pmsg_f start"),
            info_line("get_port_oper_pmsg_f", "pmsg db=1 key=/bridge/vvlan/port_oper/7/1 cmd=1"),
            info_line("get_port_oper_pmsg_f", "ifx=7, mode=1"),
            info_line("del_port_oper_redis", "del_port_oper_redis start"),
            info_line("del_port_oper_redis", "ifx=7, mode=1"),
            info_line("del_port_oper_redis", "ifx=7: pri_oui_num=0, auto mode enable=0"),
            info_line("del_port_oper_redis", "key=/bridge/vvlan/port_oper/7/1"),
            info_line("del_port_oper_redis", "exit_auto_port start"),
            info_line("del_port_oper_redis", "ifx=7, mode=2"),
            info_line("del_port_oper_redis", "key=/bridge/vvlan/port_oper/7/2"),
            info_line("del_port_oper_redis", "exit_auto_port end"),
            info_line("del_port_oper_redis", "ifx=7: add_vvlan_flag=0"),
            info_line("del_port_oper_redis", "del_port_oper_redis end"),
            info_line("get_port_oper_pmsg_f", "del_port_oper_redis end"),
            info_line("get_port_oper_pmsg_f", "get_port_oper_pmsg_f end")));
}

TEST_F(PortOperTest, DeleteMode2ClearsTheJoinFlagsAndDeletesTheKeyAgain) {
    g_vvlan_auto_port[7].enable = 1;
    g_vvlan_auto_port[7].add_vvlan_flag = 1;
    g_vvlan_auto_port[7].aging_flag = 1;
    g_vvlan_auto_port[7].pri_oui_num = 2;
    EXPECT_EQ(del("/bridge/vvlan/port_oper/7/2", TUKREDIS_CMD_EXPIRED), 0);
    EXPECT_EQ(g_vvlan_auto_port[7].add_vvlan_flag, 0);
    EXPECT_EQ(g_vvlan_auto_port[7].aging_flag, 0);
    EXPECT_EQ(g_vvlan_auto_port[7].enable, 1);
    EXPECT_EQ(g_vvlan_auto_port[7].pri_oui_num, 2u);
    EXPECT_THAT(bus().writes(), ElementsAre(del_write(0, "/bridge/vvlan/port_oper/7/2")));
}

TEST_F(PortOperTest, DeleteOfAnotherModeChangesNoStateButDeletesTheKey) {
    g_vvlan_auto_port[7].enable = 1;
    g_vvlan_auto_port[7].add_vvlan_flag = 1;
    EXPECT_EQ(del("/bridge/vvlan/port_oper/7/3"), 0);
    EXPECT_EQ(g_vvlan_auto_port[7].enable, 1);
    EXPECT_EQ(g_vvlan_auto_port[7].add_vvlan_flag, 1);
    EXPECT_THAT(bus().writes(), ElementsAre(del_write(0, "/bridge/vvlan/port_oper/7/3")));
}

TEST_F(PortOperTest, ExpireChangesNothing) {
    g_vvlan_auto_port[7].enable = 1;
    EXPECT_EQ(del("/bridge/vvlan/port_oper/7/1", TUKREDIS_CMD_EXPIRE), 0);
    EXPECT_EQ(g_vvlan_auto_port[7].enable, 1);
    EXPECT_THAT(bus().writes(), IsEmpty());
    EXPECT_EQ(trace_lines().back(), err_line("get_port_oper_pmsg_f", "not care CMD_EXPIRE event"));
}

// An ifx that is not a port never indexes the tables.
TEST_F(PortOperTest, IfxOutsideThePortsIsDropped) {
    EXPECT_EQ(set("/bridge/vvlan/port_oper/53/1", port_oper_value(53, 1, 1)), -4);
    EXPECT_EQ(set("/bridge/vvlan/port_oper/x/1", port_oper_value(0xFFFFFFFFu, 1, 1)), -4);
    EXPECT_EQ(del("/bridge/vvlan/port_oper/53/1"), -4);
    EXPECT_EQ(del("/bridge/vvlan/port_oper/-1/1"), -4);
    EXPECT_EQ(del("/bridge/vvlan/port_oper/99999999999/1"), -4);
    EXPECT_THAT(bus().writes(), IsEmpty());
    EXPECT_EQ(trace_lines().back().level, 2);
}

TEST_F(PortOperTest, UnreadableKeysAreDropped) {
    for (const char *key : {"/bridge/vvlan/port_oper/7", "/bridge/vvlan/port_oper/abc/1",
                            "/bridge/vvlan/port_oper/7/x", "/bridge/vvlan/port_oper/"}) {
        EXPECT_EQ(del(key), -4) << key;
        EXPECT_EQ(trace_lines().back().level, 2) << key;
    }
    EXPECT_THAT(bus().writes(), IsEmpty());
}

TEST_F(PortOperTest, BadValues) {
    message failed(1, "/bridge/vvlan/port_oper/7/1", TUKREDIS_CMD_SET);
    failed.fail_read();
    EXPECT_EQ(get_port_oper_pmsg_f(&failed.pmsg), -11);
    EXPECT_EQ(trace_lines().back(), err_line("get_port_oper_pmsg_f", "get value fail"));
    message null(1, "/bridge/vvlan/port_oper/7/1", TUKREDIS_CMD_SET);
    EXPECT_EQ(get_port_oper_pmsg_f(&null.pmsg), -4);
    EXPECT_EQ(trace_lines().back(), err_line("get_port_oper_pmsg_f", "vvlan_port_oper is NULL\n"));
    EXPECT_EQ(set("/bridge/vvlan/port_oper/7/1", port_oper_value(7, 1, 1).substr(0, 11)), -4);
    EXPECT_EQ(trace_lines().back(),
              err_line("get_port_oper_pmsg_f", "vvlan_port_oper is too short, len=11"));
    EXPECT_EQ(g_vvlan_auto_port[7].enable, 0);
    EXPECT_THAT(bus().writes(), IsEmpty());
}

} // namespace
