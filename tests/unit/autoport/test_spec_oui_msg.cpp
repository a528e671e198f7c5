// SPDX-License-Identifier: BSD-3-Clause
// Specified-OUI messages.
#include "autoport/auto_port.h"
#include "autoport/spec_oui_msg.h"
#include "daemon_test.h"
#include "oui/oui_table.h"
#include "records.h"
#include "settings/vvlan_table.h"

using namespace fake;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

const mac6 OUI_A{0x00, 0xe0, 0xbb, 0x00, 0x00, 0x00};
const mac6 MASK_24{0xff, 0xff, 0xff, 0x00, 0x00, 0x00};
const std::string KEY_P3 = "/bridge/vvlan/spec_oui_msg/00e0bb000000/3"; // phyid 3 = ifx 2

class SpecOuiTest : public DaemonTest {
  protected:
    void SetUp() override {
        DaemonTest::SetUp();
        g_vvlan_oui_table[4] = vvlan_oui_oper{OUI_A, MASK_24, 1, {}};
        g_vvlan_table.oui_num = 1;
    }
    int32_t msg(int32_t cmd, const std::string &key = KEY_P3) {
        message m(0, key, cmd, "never read");
        const int32_t rv = get_spec_oui_pmsg_f(&m.pmsg);
        EXPECT_EQ(m.rep.reads, 0);
        return rv;
    }
    vvlan_auto_port &port2() { return g_vvlan_auto_port[2]; }
};

TEST_F(SpecOuiTest, NullRecord) {
    EXPECT_EQ(get_spec_oui_pmsg_f(nullptr), -4);
    EXPECT_THAT(trace_lines(),
                ElementsAre(info_line("get_spec_oui_pmsg_f", "get_spec_oui_pmsg_f start"),
                            err_line("get_spec_oui_pmsg_f", "pmsg is null")));
}

// Joins at once through the join request; no port operation key, and the
// port's automatic mode is not checked.
TEST_F(SpecOuiTest, SetJoinsThePortAtOnce) {
    EXPECT_EQ(msg(TUKREDIS_CMD_SET), 0);
    EXPECT_EQ(g_auto_add_vvlan_table[2].oui_flag[4], OUI_FLAG_SPECIFIED);
    EXPECT_EQ(port2().pri_oui_num, 1u);
    EXPECT_EQ(port2().add_vvlan_flag, 1);
    EXPECT_EQ(port2().enable, 0);
    EXPECT_EQ(g_auto_oui_flag[4], 1);
    EXPECT_THAT(bus().writes(),
                ElementsAre(set_write(1, "/bri/mac/macTblDyn_vvlan/2", bytes({0, 0, 0, 2}))));
    EXPECT_THAT(trace_lines(),
                ElementsAre(info_line("get_spec_oui_pmsg_f", "get_spec_oui_pmsg_f start"),
                            info_line("get_spec_oui_pmsg_f", "pmsg db=0 key=" + KEY_P3 + " cmd=0"),
                            info_line("get_auto_oui_key", "tmp_mac=00e0bb000000/3"),
                            info_line("get_auto_oui_key", "mac=0x00e0bb000000"),
                            info_line("get_auto_oui_key", "phyid=3"),
                            info_line("set_spec_oui", "set_spec_oui start"),
                            info_line("set_spec_oui", "entry(4) is ENABLED"),
                            info_line("set_spec_oui", "find oui in oui buffer!"),
                            info_line("set_spec_oui", "g_auto_oui_flag[4]=0"),
                            info_line("set_spec_oui", "g_auto_oui_flag[4]=1"),
                            info_line("set_spec_oui", "ifx=2"),
                            info_line("set_mac2ce_global", "set_mac2ce_global start"),
                            info_line("set_mac2ce_global", "ifx=2"),
                            info_line("set_mac2ce_global", "key=/bri/mac/macTblDyn_vvlan/2"),
                            info_line("set_mac2ce_global", "TUKREDIS_SET end"),
                            info_line("set_mac2ce_global", "set_mac2ce_global end"),
                            info_line("set_spec_oui", "g_auto_add_vvlan_table[2].oui_flag[4] = 2"),
                            info_line("set_spec_oui", "pri_oui_num=1"),
                            info_line("set_spec_oui", "add_vvlan_flag=1"),
                            info_line("set_spec_oui", "set_spec_oui end"),
                            info_line("get_spec_oui_pmsg_f", "get_spec_oui_pmsg_f end")));
}

// The flag is per OUI, not per port: a second set on any port is refused.
TEST_F(SpecOuiTest, SecondSetOfTheSameOuiIsRefusedOnAnyPort) {
    ASSERT_EQ(msg(TUKREDIS_CMD_SET), 0);
    bus().clear_calls();
    clear_trace();
    EXPECT_EQ(msg(TUKREDIS_CMD_SET, "/bridge/vvlan/spec_oui_msg/00e0bb000000/8"), 0);
    EXPECT_EQ(g_vvlan_auto_port[7].pri_oui_num, 0u);
    EXPECT_EQ(port2().pri_oui_num, 1u);
    EXPECT_THAT(bus().writes(), IsEmpty());
    EXPECT_THAT(platform().calls("get_ifx"), ::testing::SizeIs(1));
    EXPECT_EQ(trace_lines().back(),
              info_line("set_spec_oui", "This oui has received mac learning msg"));
}

TEST_F(SpecOuiTest, SetMatchingOnlyADisabledRecordFails) {
    g_vvlan_oui_table[4].enable = 0;
    EXPECT_EQ(msg(TUKREDIS_CMD_SET), -11);
    const std::vector<expected_line> lines = trace_lines();
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines[lines.size() - 2],
              info_line("set_spec_oui", "can't find oui in g_vvlan_oui_table, something wrong!"));
    EXPECT_EQ(lines.back(), info_line("get_spec_oui_pmsg_f", "set_spec_oui failed"));
    EXPECT_THAT(bus().writes(), IsEmpty());
    EXPECT_EQ(port2().pri_oui_num, 0u);
}

// The OUI of the key is compared exactly, without a mask.
TEST_F(SpecOuiTest, TheKeysOuiIsComparedExactly) {
    EXPECT_EQ(msg(TUKREDIS_CMD_SET, "/bridge/vvlan/spec_oui_msg/00e0bb000001/3"), -11);
}

// A delete works on g_vvlan_table.oui_idx, whatever OUI the key names.
TEST_F(SpecOuiTest, DeleteClearsTheFlagAtTheCurrentOuiIndex) {
    g_vvlan_table.oui_idx = 9;
    g_auto_add_vvlan_table[2].oui_flag[9] = OUI_FLAG_SPECIFIED;
    g_auto_add_vvlan_table[2].oui_flag[4] = OUI_FLAG_SPECIFIED;
    port2().pri_oui_num = 2;
    g_auto_oui_flag[4] = 1;
    EXPECT_EQ(msg(TUKREDIS_CMD_DEL), 0);
    EXPECT_EQ(g_auto_add_vvlan_table[2].oui_flag[9], OUI_FLAG_NONE);
    EXPECT_EQ(g_auto_add_vvlan_table[2].oui_flag[4], OUI_FLAG_SPECIFIED);
    EXPECT_EQ(g_auto_oui_flag[4], 0);
    EXPECT_EQ(port2().pri_oui_num, 1u);
    EXPECT_THAT(bus().writes(), IsEmpty());
    const std::vector<expected_line> lines = trace_lines();
    EXPECT_THAT(lines,
                Contains(info_line("set_spec_oui", "g_auto_add_vvlan_table[2].oui_flag[9] = 0")));
    EXPECT_EQ(lines[lines.size() - 3], info_line("set_spec_oui", "pri_oui_num=1"));
    EXPECT_EQ(lines[lines.size() - 2], info_line("set_spec_oui", "set_spec_oui end"));
}

TEST_F(SpecOuiTest, DeleteOnAPortWithNothingCounted) {
    EXPECT_EQ(msg(TUKREDIS_CMD_DEL), 0);
    EXPECT_EQ(port2().pri_oui_num, 0u);
    const std::vector<expected_line> lines = trace_lines();
    EXPECT_EQ(lines[lines.size() - 2],
              info_line("set_spec_oui", "pri_oui_num for this auto mode port is 0!"));
}

TEST_F(SpecOuiTest, DeleteOfAnAgedOuiKeepsTheCount) {
    g_auto_add_vvlan_table[2].oui_aged_flag[0] = 1;
    port2().pri_oui_num = 3;
    EXPECT_EQ(msg(TUKREDIS_CMD_EXPIRED), 0);
    EXPECT_EQ(port2().pri_oui_num, 3u);
    const std::vector<expected_line> lines = trace_lines();
    EXPECT_EQ(lines[lines.size() - 2], info_line("set_spec_oui", "This mac address has been aged"));
}

// A delete never takes the port out.
TEST_F(SpecOuiTest, DeleteLeavesTheJoin) {
    ASSERT_EQ(msg(TUKREDIS_CMD_SET), 0);
    bus().clear_calls();
    EXPECT_EQ(msg(TUKREDIS_CMD_DEL), 0);
    EXPECT_EQ(port2().add_vvlan_flag, 1);
    EXPECT_EQ(port2().aging_flag, 0);
    EXPECT_THAT(bus().writes(), IsEmpty());
}

// The flags changed before the lookup stay changed.
TEST_F(SpecOuiTest, UnknownPhyidFailsAfterTheFlagsChanged) {
    platform().unmap_phyid(3);
    EXPECT_EQ(msg(TUKREDIS_CMD_SET), -11);
    EXPECT_EQ(g_auto_oui_flag[4], 1);
    const std::vector<expected_line> lines = trace_lines();
    EXPECT_EQ(lines[lines.size() - 2], info_line("set_spec_oui", "libsdm_get_ifx_by_phyid failed"));
    EXPECT_EQ(lines.back(), info_line("get_spec_oui_pmsg_f", "set_spec_oui failed"));
}

TEST_F(SpecOuiTest, IfxOutsideThePortsIsDropped) {
    platform().map_port(3, 53);
    EXPECT_EQ(msg(TUKREDIS_CMD_SET), -11);
    EXPECT_THAT(bus().writes(), IsEmpty());
    EXPECT_THAT(trace_lines(),
                Contains(err_line("set_spec_oui", "phyid=3 maps to ifx=53, not a port, dropped")));
}

TEST_F(SpecOuiTest, ShortOrNonHexOuiIsDropped) {
    for (const char *key :
         {"/bridge/vvlan/spec_oui_msg/00e0bb/3", "/bridge/vvlan/spec_oui_msg/00e0bb00000z/3",
          "/bridge/vvlan/spec_oui_msg/"}) {
        clear_trace();
        EXPECT_EQ(msg(TUKREDIS_CMD_SET, key), -4) << key;
        EXPECT_EQ(trace_lines().back().level, 2) << key;
    }
    EXPECT_EQ(g_auto_oui_flag[4], 0);
    EXPECT_THAT(platform().calls("get_ifx"), IsEmpty());
}

// The walk does not stop: every equal record is flagged, the last is used.
TEST_F(SpecOuiTest, EqualRecordsAreAllFlaggedAndTheLastIsUsed) {
    g_vvlan_oui_table[10] = vvlan_oui_oper{OUI_A, MASK_24, 1, {}};
    EXPECT_EQ(msg(TUKREDIS_CMD_SET), 0);
    EXPECT_EQ(g_auto_oui_flag[4], 1);
    EXPECT_EQ(g_auto_oui_flag[10], 1);
    EXPECT_EQ(g_auto_add_vvlan_table[2].oui_flag[10], OUI_FLAG_SPECIFIED);
    EXPECT_EQ(g_auto_add_vvlan_table[2].oui_flag[4], OUI_FLAG_NONE);
}

TEST_F(SpecOuiTest, ExpireIsIgnored) {
    EXPECT_EQ(msg(TUKREDIS_CMD_EXPIRE), 0);
    EXPECT_THAT(trace_lines(),
                ElementsAre(info_line("get_spec_oui_pmsg_f", "get_spec_oui_pmsg_f start"),
                            err_line("get_spec_oui_pmsg_f", "not care CMD_EXPIRE event")));
}

} // namespace
