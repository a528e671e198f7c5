// SPDX-License-Identifier: BSD-3-Clause
// Deleting voice OUIs: found by the key's address under the record's own
// mask, and the whole cascade in order.
#include "autoport/auto_port.h"
#include "daemon_test.h"
#include "oui/mvlan_table.h"
#include "oui/oui_add.h"
#include "oui/oui_delete.h"
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
const std::string KEY_A = "/bridge/vvlan/oui_oper/00e0bb000000/ffffff000000";

class OuiDelTest : public DaemonTest {
  protected:
    // OUI_A in the given slot, as adding leaves it.
    void put_oui(std::size_t slot, const mac6 &mac = OUI_A, const mac6 &mask = MASK_24) {
        g_vvlan_oui_table[slot] = vvlan_oui_oper{mac, mask, 1, {}};
        ++g_vvlan_table.oui_num;
    }
    int32_t del(const std::string &key) {
        message m(1, key, TUKREDIS_CMD_DEL);
        return get_oui_oper_pmsg_f(&m.pmsg);
    }
    void link_mvlan(std::size_t i, uint16_t slot, const mac6 &addr = OUI_A) {
        g_mvlan_table[i].mvlan_vid = 100;
        g_mvlan_table[i].mvlan_oui.reset(static_cast<mac_addr *>(std::malloc(sizeof(mac_addr))));
        *g_mvlan_table[i].mvlan_oui = addr;
        g_mvlan_table[i].oui_fill = 1;
        g_mvlan_table[i].oui_flag = 1;
        g_mvlan_table[i].oui_idx = slot;
    }
};

TEST_F(OuiDelTest, NeverAddedOuiFailsAndWritesNothing) {
    put_oui(0, mac6{0x02, 0, 0, 0, 0, 0});
    EXPECT_EQ(del(KEY_A), -11);
    EXPECT_THAT(bus().writes(), IsEmpty());
    EXPECT_EQ(g_vvlan_table.oui_num, 1);
    const std::vector<expected_line> lines = trace_lines();
    ASSERT_GE(lines.size(), 3u);
    EXPECT_EQ(lines[lines.size() - 3],
              info_line("del_oui", "can't find oui in g_vvlan_oui_table, something wrong!"));
    EXPECT_EQ(lines[lines.size() - 2], info_line("del_oui_oper", "del_oui failed"));
    EXPECT_EQ(lines.back(), info_line("get_oui_oper_pmsg_f", "del_oui_oper failed"));
}

TEST_F(OuiDelTest, DeletesTheRecordAndItsEcho) {
    put_oui(4);
    EXPECT_EQ(del(KEY_A), 0);
    EXPECT_EQ(g_vvlan_oui_table[4].enable, 0);
    EXPECT_EQ(g_vvlan_oui_table[4].mac, mac6{});
    EXPECT_EQ(g_vvlan_table.oui_num, 0);
    EXPECT_EQ(g_vvlan_table.oui_idx, 4);
    EXPECT_THAT(bus().writes(),
                ElementsAre(del_write(0, "/bridge/vvlan/oui_oper/00e0bb000000/ffffff000000/4")));
    EXPECT_THAT(trace_lines(),
                ElementsAre(info_line("get_oui_oper_pmsg_f", "get_oui_oper_pmsg_f start"),
                            info_line("get_oui_oper_pmsg_f", "pmsg db=1 key=" + KEY_A + " cmd=1"),
                            info_line("get_oui_key", "tmp_mac=00e0bb000000/ffffff000000"),
                            info_line("get_oui_key", "mac=0x00e0bb000000"),
                            info_line("get_oui_key", "mask=0xffffff000000"),
                            info_line("del_oui", "entry(4) is ENABLED"),
                            info_line("del_oui", "tmp_mac=0x00e0bb000000"),
                            info_line("del_oui", "i=4"), info_line("del_oui", "oui_num=0"),
                            info_line("del_oui", "oui_del_idx=4"),
                            info_line("del_oui_oper_redis",
                                      "key=/bridge/vvlan/oui_oper/00e0bb000000/ffffff000000/4"),
                            info_line("get_oui_oper_pmsg_f", "get_oui_oper_pmsg_f end")));
}

// The key's address is masked with the record's mask; the specified-OUI
// keys are named by the address as the key wrote it.
TEST_F(OuiDelTest, KeyAddressIsMatchedUnderTheRecordsMask) {
    put_oui(0);
    g_auto_add_vvlan_table[2].oui_flag[0] = OUI_FLAG_SPECIFIED;
    g_auto_add_vvlan_table[2].oui_aged_flag[0] = 1;
    EXPECT_EQ(del("/bridge/vvlan/oui_oper/00e0bb123456/ffffff000000"), 0);
    EXPECT_EQ(g_vvlan_oui_table[0].enable, 0);
    EXPECT_THAT(bus().writes(),
                ElementsAre(del_write(0, "/bridge/vvlan/oui_oper/00e0bb000000/ffffff000000/0"),
                            del_write(0, "/bridge/vvlan/spec_oui_msg/00e0bb123456/3")));
}

TEST_F(OuiDelTest, TheEchoKeyUsesTheKeysMask) {
    put_oui(1);
    EXPECT_EQ(del("/bridge/vvlan/oui_oper/00e0bb000000/ffff00000000"), 0);
    EXPECT_THAT(bus().writes(),
                ElementsAre(del_write(0, "/bridge/vvlan/oui_oper/00e0bb000000/ffff00000000/1")));
}

TEST_F(OuiDelTest, LearnedPortsLoseTheFlagAndOneCount) {
    put_oui(0);
    g_auto_add_vvlan_table[5].oui_flag[0] = OUI_FLAG_LEARNED;
    g_vvlan_auto_port[5].pri_oui_num = 3;
    g_auto_add_vvlan_table[52].oui_flag[0] = OUI_FLAG_LEARNED;
    g_vvlan_auto_port[52].pri_oui_num = 0;
    g_vvlan_auto_port[5].add_vvlan_flag = 1;
    EXPECT_EQ(del(KEY_A), 0);
    EXPECT_EQ(g_auto_add_vvlan_table[5].oui_flag[0], 0);
    EXPECT_EQ(g_vvlan_auto_port[5].pri_oui_num, 2u);
    EXPECT_EQ(g_vvlan_auto_port[52].pri_oui_num, 0xFFFFFFFFu) << "a plain decrement wraps";
    EXPECT_EQ(g_vvlan_auto_port[5].add_vvlan_flag, 1) << "membership is left to aging";
    EXPECT_THAT(trace_lines(),
                Contains(info_line("del_oui", "g_vvlan_auto_port[5].pri_oui_num = 2")));
    EXPECT_THAT(trace_lines(),
                Contains(info_line("del_oui", "g_auto_add_vvlan_table[5].oui_flag[0] = 0")));
    EXPECT_THAT(trace_lines(),
                Contains(info_line("del_oui", "g_vvlan_auto_port[52].pri_oui_num = -1")));
    EXPECT_EQ(bus().writes().size(), 1u);
}

TEST_F(OuiDelTest, SpecifiedPortsNotAgedAreLeftAlone) {
    put_oui(0);
    g_auto_add_vvlan_table[2].oui_flag[0] = OUI_FLAG_SPECIFIED;
    g_auto_add_vvlan_table[2].oui_aged_flag[0] = 0;
    g_vvlan_auto_port[2].pri_oui_num = 1;
    EXPECT_EQ(del(KEY_A), 0);
    EXPECT_EQ(g_auto_add_vvlan_table[2].oui_flag[0], OUI_FLAG_SPECIFIED);
    EXPECT_EQ(g_vvlan_auto_port[2].pri_oui_num, 1u);
    EXPECT_THAT(platform().calls("get_phyid"), IsEmpty());
    EXPECT_EQ(bus().writes().size(), 1u);
}

// The specified-OUI key is deleted; the port's flags stay.
TEST_F(OuiDelTest, SpecifiedAndAgedPortsLoseTheirMessageKey) {
    put_oui(0);
    g_auto_add_vvlan_table[2].oui_flag[0] = OUI_FLAG_SPECIFIED;
    g_auto_add_vvlan_table[2].oui_aged_flag[0] = 1;
    EXPECT_EQ(del(KEY_A), 0);
    EXPECT_EQ(g_auto_add_vvlan_table[2].oui_flag[0], OUI_FLAG_SPECIFIED);
    EXPECT_EQ(g_auto_add_vvlan_table[2].oui_aged_flag[0], 1);
    EXPECT_EQ(bus().writes().back(), del_write(0, "/bridge/vvlan/spec_oui_msg/00e0bb000000/3"));
    const std::vector<platform_call> calls = platform().calls("get_phyid");
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].args, (std::vector<int64_t>{2, 2}));
    EXPECT_THAT(trace_lines(), Contains(info_line("del_spec_oui_msg_key", "phyid = 3")));
    EXPECT_THAT(trace_lines(),
                Contains(info_line("del_spec_oui_msg_key",
                                   "key=/bridge/vvlan/spec_oui_msg/00e0bb000000/3")));
}

// No rollback: the record is freed and its echo deleted, the ports after
// the failing one keep their flags and the MAC-VLAN entries stay linked.
TEST_F(OuiDelTest, DeviceManagerFailureStopsTheCascade) {
    put_oui(0);
    g_auto_add_vvlan_table[2].oui_flag[0] = OUI_FLAG_SPECIFIED;
    g_auto_add_vvlan_table[2].oui_aged_flag[0] = 1;
    g_auto_add_vvlan_table[7].oui_flag[0] = OUI_FLAG_LEARNED;
    g_vvlan_auto_port[7].pri_oui_num = 1;
    link_mvlan(0, 0);
    platform().unmap_ifx(2);
    EXPECT_EQ(del(KEY_A), -11);
    EXPECT_EQ(g_vvlan_oui_table[0].enable, 0);
    EXPECT_EQ(g_vvlan_table.oui_num, 0);
    EXPECT_EQ(g_auto_add_vvlan_table[7].oui_flag[0], OUI_FLAG_LEARNED);
    EXPECT_EQ(g_vvlan_auto_port[7].pri_oui_num, 1u);
    EXPECT_EQ(g_mvlan_table[0].oui_flag, 1);
    EXPECT_THAT(bus().writes(),
                ElementsAre(del_write(0, "/bridge/vvlan/oui_oper/00e0bb000000/ffffff000000/0")));
    const std::vector<expected_line> lines = trace_lines();
    ASSERT_GE(lines.size(), 4u);
    EXPECT_EQ(lines[lines.size() - 4],
              info_line("del_spec_oui_msg_key", "libsdm_get_phyid_by_ifx() failed"));
    EXPECT_EQ(lines[lines.size() - 3],
              info_line("del_oui", "del_spec_oui_msg_key failed, error code =-11"));
    EXPECT_EQ(lines[lines.size() - 2], info_line("del_oui_oper", "del_oui failed"));
    EXPECT_EQ(lines.back(), info_line("get_oui_oper_pmsg_f", "del_oui_oper failed"));
}

// Both entries lose their link; the per-slot message key is deleted twice.
TEST_F(OuiDelTest, EveryLinkedMvlanEntryOfTheOuiIsUnlinked) {
    put_oui(6);
    link_mvlan(1, 6);
    link_mvlan(40, 6);
    link_mvlan(41, 6, mac6{0x02, 0, 0, 0, 0, 0});
    g_mvlan_table[42].oui_fill = 1; // filled, not linked: left alone
    g_mvlan_table[42].mvlan_oui.reset(static_cast<mac_addr *>(std::malloc(sizeof(mac_addr))));
    *g_mvlan_table[42].mvlan_oui = OUI_A;
    EXPECT_EQ(del(KEY_A), 0);
    EXPECT_THAT(bus().writes(),
                ElementsAre(del_write(0, "/bridge/vvlan/oui_oper/00e0bb000000/ffffff000000/6"),
                            del_write(0, "/bridge/vvlan/mvlan_oui_msg/6"),
                            del_write(0, "/bridge/vvlan/mvlan_oui_msg/6")));
    for (std::size_t i : {1u, 40u}) {
        EXPECT_EQ(g_mvlan_table[i].oui_flag, 0);
        EXPECT_EQ(g_mvlan_table[i].oui_fill, 0);
        EXPECT_EQ(g_mvlan_table[i].oui_idx, 6) << "left as it was";
    }
    EXPECT_EQ(g_mvlan_table[41].oui_flag, 1);
    EXPECT_EQ(g_mvlan_table[42].oui_fill, 1);
    EXPECT_THAT(trace_lines(), Contains(info_line("del_oui", "g_mvlan_table[40].oui_flag=0")));
    EXPECT_THAT(trace_lines(), Contains(info_line("del_oui", "This mvlan entry is invalid.")));
}

TEST_F(OuiDelTest, DeletingTheLastOuiLeavesItsSlotForTheNextAdd) {
    put_oui(9);
    ASSERT_EQ(del(KEY_A), 0);
    EXPECT_EQ(g_vvlan_table.oui_num, 0);
    EXPECT_EQ(g_vvlan_table.oui_idx, 9);
    message m(1, KEY_A, TUKREDIS_CMD_SET, oui_value(OUI_A, MASK_24));
    ASSERT_EQ(get_oui_oper_pmsg_f(&m.pmsg), 0);
    EXPECT_EQ(g_vvlan_oui_table[9].enable, 1);
    // The echo of the new record carries the slot deleted last.
    EXPECT_EQ(bus().writes().back().argv[2].substr(0, 2), bytes({0, 9}));
}

// Short or non-hexadecimal components still give defined bytes: 0 for each
// pair that cannot be converted.
TEST_F(OuiDelTest, MalformedKeyComponentsGiveDefinedBytes) {
    mac_addr mac{};
    mac_addr mask{};
    get_oui_key("/bridge/vvlan/oui_oper/00e0bb/ffffff000000", &mac, &mask);
    EXPECT_EQ(mac, (mac_addr{0x00, 0xe0, 0xbb, 0x00, 0xff, 0xff}));
    EXPECT_EQ(mask, (mac_addr{0xff, 0xff, 0xff, 0x00, 0x00, 0x00}));
    get_oui_key("/bridge/vvlan/oui_oper/zz", &mac, &mask);
    EXPECT_EQ(mac, mac_addr{});
    EXPECT_EQ(mask, mac_addr{});
    get_oui_key("/bridge/vvlan/oui_oper", &mac, &mask);
    EXPECT_EQ(mac, mac_addr{});
    EXPECT_THAT(trace_lines(), Contains(info_line("get_oui_key", "mac=0x00e0bb00ffff")));
}

TEST_F(OuiDelTest, LongComponentsAreBounded) {
    const std::string longer(300, 'a');
    mac_addr mac{};
    mac_addr mask{};
    get_oui_key("/bridge/vvlan/oui_oper/" + longer, &mac, &mask);
    EXPECT_EQ(mac, (mac_addr{0xaa, 0xaa, 0xaa, 0xaa, 0xaa, 0xaa}));
    EXPECT_EQ(trace_lines().at(0), info_line("get_oui_key", "tmp_mac=" + std::string(63, 'a')));
}

} // namespace
