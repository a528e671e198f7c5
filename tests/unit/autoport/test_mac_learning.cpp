// SPDX-License-Identifier: BSD-3-Clause
// MAC-learning notifications and the automatic join.
#include "autoport/auto_port.h"
#include "autoport/join_request.h"
#include "autoport/mac_learning.h"
#include "daemon_test.h"
#include "oui/oui_table.h"
#include "records.h"
#include "settings/vvlan_table.h"

using namespace fake;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

namespace {

const mac6 OUI_A{0x00, 0xe0, 0xbb, 0x00, 0x00, 0x00};
const mac6 MASK_24{0xff, 0xff, 0xff, 0x00, 0x00, 0x00};
const std::string PHONE_KEY = "/bri/mac/macTblDyn_vvlan/100/6/00e0bb123456"; // phyid 6 = ifx 5

class MacNotifyTest : public DaemonTest {
  protected:
    void SetUp() override {
        DaemonTest::SetUp();
        g_vvlan_table.vid = 100;
        g_vvlan_table.status = 1;
        g_vvlan_oui_table[0] = vvlan_oui_oper{OUI_A, MASK_24, 1, {}};
        g_vvlan_table.oui_num = 1;
        g_vvlan_auto_port[5].enable = 1;
    }
    int32_t notify(int32_t cmd, const std::string &key = PHONE_KEY) {
        message m(0, key, cmd, "value is never read");
        const int32_t rv = get_mac_notify_pmsg_f(&m.pmsg);
        EXPECT_EQ(m.rep.reads, 0);
        return rv;
    }
    int32_t learn(const std::string &key = PHONE_KEY) { return notify(TUKREDIS_CMD_NEW_ADDR, key); }
    int32_t age(const std::string &key = PHONE_KEY) { return notify(TUKREDIS_CMD_DEL, key); }
    vvlan_auto_port &port() { return g_vvlan_auto_port[5]; }
};

TEST_F(MacNotifyTest, NullRecord) {
    EXPECT_EQ(get_mac_notify_pmsg_f(nullptr), -4);
    EXPECT_THAT(trace_lines(),
                ElementsAre(info_line("get_mac_notify_pmsg_f", "get_mac_notify_pmsg_f start"),
                            err_line("get_mac_notify_pmsg_f", "pmsg is null")));
}

TEST_F(MacNotifyTest, FirstLearningJoinsThePort) {
    g_vvlan_table.oui_idx = 9;
    EXPECT_EQ(learn(), 0);
    EXPECT_EQ(port().pri_oui_num, 1u);
    EXPECT_EQ(port().refresh_flag, 1);
    EXPECT_EQ(port().aging_flag, 0);
    EXPECT_EQ(port().add_vvlan_flag, 1);
    EXPECT_EQ(g_auto_add_vvlan_table[5].oui_flag[0], OUI_FLAG_LEARNED);
    EXPECT_EQ(g_auto_add_vvlan_table[5].oui_aged_flag[0], 0);
    EXPECT_THAT(bus().writes(),
                ElementsAre(set_write(0, "/bridge/vvlan/port_oper/5/2", bytes({0, 9})),
                            set_write(1, "/bri/mac/macTblDyn_vvlan/5", bytes({0, 0, 0, 5}))));
    const std::vector<platform_call> map = platform().calls("get_ifx");
    ASSERT_EQ(map.size(), 1u);
    EXPECT_EQ(map[0].args, (std::vector<int64_t>{6, 2}));
    EXPECT_THAT(
        trace_lines(),
        ElementsAre(
            info_line("get_mac_notify_pmsg_f", "get_mac_notify_pmsg_f start"),
            info_line("get_mac_notify_pmsg_f", "pmsg db=0 key=" + PHONE_KEY + " cmd=2"),
            info_line("get_mac_notify_pmsg_f", "It is NA notification"),
            info_line("is_vvlan_oui", "entry(0) is ENABLED"), info_line("is_vvlan_oui", "i=0"),
            info_line("set_oui_msg", "set oui msg start"),
            info_line("set_oui_aged_flag", "g_auto_add_vvlan_table[5].oui_aged_flag[0]=0"),
            info_line("set_oui_msg", "pri_oui_num=1"),
            info_line("set_oui_msg", "g_auto_add_vvlan_table[5].oui_flag[0] = 1"),
            info_line("set_oui_msg", "ifx=5, mode=2"),
            info_line("set_port_oper_redis", "set_port_oper_redis start"),
            info_line("set_port_oper_redis",
                      "vvlan_port_oper->ifx=5, vvlan_port_oper->mode=2, vvlan_port_oper->enable=1"),
            info_line("set_port_oper_redis", "key=/bridge/vvlan/port_oper/5/2"),
            info_line("set_port_oper_redis", "set_port_oper_redis end"),
            info_line("set_mac2ce_global", "set_mac2ce_global start"),
            info_line("set_mac2ce_global", "ifx=5"),
            info_line("set_mac2ce_global", "key=/bri/mac/macTblDyn_vvlan/5"),
            info_line("set_mac2ce_global", "TUKREDIS_SET end"),
            info_line("set_mac2ce_global", "set_mac2ce_global end"),
            info_line("set_oui_msg", "set oui msg end"),
            info_line("get_mac_notify_pmsg_f", "get_mac_notify_pmsg_f end")));
}

TEST_F(MacNotifyTest, SecondLearningOnlyCounts) {
    ASSERT_EQ(learn(), 0);
    bus().clear_calls();
    clear_trace();
    EXPECT_EQ(learn(), 0);
    EXPECT_EQ(port().pri_oui_num, 2u);
    EXPECT_THAT(bus().writes(), IsEmpty());
    EXPECT_THAT(trace_lines(),
                Contains(info_line("set_oui_msg", "This auto mode port has add to VVLAN")));
    EXPECT_EQ(trace_lines().back(),
              info_line("get_mac_notify_pmsg_f", "get_mac_notify_pmsg_f end"));
}

TEST_F(MacNotifyTest, OtherVlanIsIgnored) {
    g_vvlan_table.vid = 200;
    EXPECT_EQ(learn(), 0);
    EXPECT_EQ(port().pri_oui_num, 0u);
    EXPECT_THAT(bus().writes(), IsEmpty());
    EXPECT_THAT(platform().calls(), IsEmpty());
    EXPECT_EQ(trace_lines().back(),
              info_line("oui_fw_check", "g_vvlan_table.vid=200, op_args.key.brg_id=100"));
}

// vid keeps the last id after a disable, so learnings there still count.
TEST_F(MacNotifyTest, LearningsInTheLastVidCountWhileDisabled) {
    g_vvlan_table.status = 0;
    EXPECT_EQ(learn(), 0);
    EXPECT_EQ(port().add_vvlan_flag, 1);
}

TEST_F(MacNotifyTest, PortNotInAutoModeIsIgnoredEvenWhenTheOuiMatches) {
    port().enable = 0;
    EXPECT_EQ(learn(), 0);
    EXPECT_EQ(port().pri_oui_num, 0u);
    EXPECT_THAT(bus().writes(), IsEmpty());
    EXPECT_EQ(trace_lines().back(), info_line("oui_fw_check", "!g_vvlan_auto_port[5].enable=0"));
}

TEST_F(MacNotifyTest, AddressWithoutAVoiceOuiIsIgnored) {
    EXPECT_EQ(learn("/bri/mac/macTblDyn_vvlan/100/6/00e0bc123456"), 0);
    EXPECT_EQ(port().pri_oui_num, 0u);
    EXPECT_THAT(bus().writes(), IsEmpty());
    EXPECT_EQ(trace_lines().back(), info_line("is_vvlan_oui", "isn't vvlan  oui start"));
}

TEST_F(MacNotifyTest, UnknownPhyidFails) {
    platform().unmap_phyid(6);
    EXPECT_EQ(learn(), -11);
    const std::vector<expected_line> lines = trace_lines();
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines[lines.size() - 2], info_line("oui_fw_check", "libsdm_get_ifx_by_phyid failed"));
    EXPECT_EQ(lines.back(), info_line("get_mac_notify_pmsg_f", "oui_fw_check failed"));
    EXPECT_EQ(port().pri_oui_num, 0u);
}

// An ifx from the device manager that is not a port never indexes a table.
TEST_F(MacNotifyTest, IfxOutsideThePortsFromTheDeviceManagerIsDropped) {
    platform().map_port(6, 53);
    EXPECT_EQ(learn(), -11);
    platform().map_port(6, 0xFFFFFFFFu);
    EXPECT_EQ(learn(), -11);
    EXPECT_THAT(bus().writes(), IsEmpty());
    EXPECT_THAT(trace_lines(),
                Contains(err_line("oui_fw_check", "phyid=6 maps to ifx=53, not a port, dropped")));
}

TEST_F(MacNotifyTest, ShortMacIsDropped) {
    for (const char *key :
         {"/bri/mac/macTblDyn_vvlan/100/6/00e0bb1234", "/bri/mac/macTblDyn_vvlan/100/6",
          "/bri/mac/macTblDyn_vvlan/100/6/00e0bb12345g"}) {
        clear_trace();
        EXPECT_EQ(learn(key), -4) << key;
        EXPECT_EQ(trace_lines().back().level, 2) << key;
    }
    EXPECT_EQ(port().pri_oui_num, 0u);
    EXPECT_THAT(bus().writes(), IsEmpty());
}

// The value is not read, and extra characters after the 12 digits are fine.
TEST_F(MacNotifyTest, OnlyTheFirst12DigitsCount) {
    EXPECT_EQ(learn("/bri/mac/macTblDyn_vvlan/100/6/00e0bb123456ffff"), 0);
    EXPECT_EQ(port().pri_oui_num, 1u);
}

TEST_F(MacNotifyTest, AgeingWithNothingOutstandingOnlyMarksTheOuiAged) {
    EXPECT_EQ(age(), 0);
    EXPECT_EQ(g_auto_add_vvlan_table[5].oui_aged_flag[0], 1);
    EXPECT_EQ(port().pri_oui_num, 0u);
    EXPECT_EQ(port().aging_flag, 0);
    EXPECT_THAT(bus().writes(), IsEmpty());
    const std::vector<std::string> texts = trace_texts();
    EXPECT_THAT(texts, Contains("It is AA notification"));
    EXPECT_THAT(texts, Not(Contains("set oui msg end")));
    EXPECT_EQ(texts.back(), "get_mac_notify_pmsg_f end");
}

TEST_F(MacNotifyTest, LastAgeingWithTheVoiceVlanOnMarksThePortForAging) {
    ASSERT_EQ(learn(), 0);
    ASSERT_EQ(learn(), 0);
    bus().clear_calls();
    EXPECT_EQ(age(), 0);
    EXPECT_EQ(port().pri_oui_num, 1u);
    EXPECT_EQ(port().aging_flag, 0);
    EXPECT_EQ(age(), 0);
    EXPECT_EQ(port().pri_oui_num, 0u);
    EXPECT_EQ(port().aging_flag, 1);
    EXPECT_EQ(port().add_vvlan_flag, 1);
    EXPECT_THAT(bus().writes(), IsEmpty());
    EXPECT_THAT(trace_lines(),
                Contains(info_line("set_oui_msg", "g_vvlan_auto_port[5].aging_flag=1")));
}

// With the voice VLAN off there is no aging thread: the port leaves at once,
// but its join key is left for a later aging to delete.
TEST_F(MacNotifyTest, LastAgeingWithTheVoiceVlanOffLeavesAtOnce) {
    ASSERT_EQ(learn(), 0);
    g_vvlan_table.status = 0;
    bus().clear_calls();
    EXPECT_EQ(age(), 0);
    EXPECT_EQ(port().add_vvlan_flag, 0);
    EXPECT_EQ(port().aging_flag, 0);
    EXPECT_THAT(bus().writes(), ElementsAre(del_write(0, "/bridge/vvlan/port_oper/5/2")));
    EXPECT_EQ(bus().value(1, "/bri/mac/macTblDyn_vvlan/5"), bytes({0, 0, 0, 5}));
}

TEST_F(MacNotifyTest, EveryCodeButTwoAndNineIsAnAgeing) {
    for (int32_t cmd : {0, 1, 10, 3}) {
        ASSERT_EQ(learn(), 0);
        EXPECT_EQ(notify(cmd), 0);
        EXPECT_EQ(port().pri_oui_num, 0u) << cmd;
    }
}

TEST_F(MacNotifyTest, ExpireIsIgnoredBeforeTheRecordIsTraced) {
    EXPECT_EQ(notify(TUKREDIS_CMD_EXPIRE), 0);
    EXPECT_THAT(trace_lines(),
                ElementsAre(info_line("get_mac_notify_pmsg_f", "get_mac_notify_pmsg_f start"),
                            err_line("get_mac_notify_pmsg_f", "not care CMD_EXPIRE event")));
    EXPECT_EQ(port().pri_oui_num, 0u);
}

TEST_F(MacNotifyTest, AnAddressMatchingTwoOuisCountsAgainstTheLowerIndex) {
    g_vvlan_oui_table[7] = vvlan_oui_oper{
        mac6{0x00, 0xe0, 0xbb, 0x12, 0, 0}, mac6{0xff, 0xff, 0xff, 0xff, 0, 0}, 1, {}};
    g_vvlan_oui_table[0].enable = 0;
    g_vvlan_oui_table[3] = vvlan_oui_oper{OUI_A, MASK_24, 1, {}};
    EXPECT_EQ(learn(), 0);
    EXPECT_EQ(g_auto_add_vvlan_table[5].oui_flag[3], OUI_FLAG_LEARNED);
    EXPECT_EQ(g_auto_add_vvlan_table[5].oui_flag[7], OUI_FLAG_NONE);
    EXPECT_THAT(trace_texts(), Contains("i=3"));
}

// The whole address is compared under the record's mask.
TEST_F(MacNotifyTest, AllSixBytesAreComparedUnderTheMask) {
    g_vvlan_oui_table[0] = vvlan_oui_oper{
        mac6{0x00, 0xe0, 0xbb, 0x12, 0x34, 0x00}, mac6{0xff, 0xff, 0xff, 0xff, 0xff, 0x00}, 1, {}};
    EXPECT_EQ(learn("/bri/mac/macTblDyn_vvlan/100/6/00e0bb123499"), 0);
    EXPECT_EQ(port().pri_oui_num, 1u);
    EXPECT_EQ(learn("/bri/mac/macTblDyn_vvlan/100/6/00e0bb123399"), 0);
    EXPECT_EQ(port().pri_oui_num, 1u);
}

TEST_F(MacNotifyTest, SpecifiedMarkStaysAfterALearning) {
    g_auto_add_vvlan_table[5].oui_flag[0] = OUI_FLAG_SPECIFIED;
    EXPECT_EQ(learn(), 0);
    EXPECT_EQ(g_auto_add_vvlan_table[5].oui_flag[0], OUI_FLAG_SPECIFIED);
    EXPECT_THAT(trace_lines(),
                Contains(info_line("set_oui_msg", "g_auto_add_vvlan_table[5].oui_flag[0] = 2")));
}

// Before any vid key, vid is 0: learnings in VLAN 0 (or with an empty VLAN
// component, which reads as 0) are handled.
TEST_F(MacNotifyTest, BeforeAnyVidKeyVlan0IsTheVoiceVlan) {
    g_vvlan_table.vid = 0;
    EXPECT_EQ(learn("/bri/mac/macTblDyn_vvlan/0/6/00e0bb123456"), 0);
    EXPECT_EQ(port().pri_oui_num, 1u);
    EXPECT_EQ(learn("/bri/mac/macTblDyn_vvlan//6/00e0bb123456"), -11)
        << "an empty VLAN reads as 0, and the port then cannot be read";
}

TEST_F(MacNotifyTest, JoinRequestHoldsTheIfxBigEndian) {
    set_mac2ce_global(0x01020304u, 1);
    set_mac2ce_global(52, 0);
    EXPECT_THAT(bus().writes(),
                ElementsAre(set_write(1, "/bri/mac/macTblDyn_vvlan/16909060", bytes({1, 2, 3, 4})),
                            del_write(1, "/bri/mac/macTblDyn_vvlan/52")));
    EXPECT_THAT(trace_lines(), Contains(info_line("set_mac2ce_global", "TUKREDIS_DEL end")));
}

} // namespace
