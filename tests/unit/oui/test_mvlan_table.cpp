// SPDX-License-Identifier: BSD-3-Clause
// The MAC-VLAN linkage table.
#include "daemon_test.h"
#include "oui/mvlan_table.h"
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
const mac6 PHONE{0x00, 0xe0, 0xbb, 0x12, 0x34, 0x56};

class MvlanTest : public DaemonTest {
  protected:
    void SetUp() override {
        DaemonTest::SetUp();
        g_vvlan_table.vid = 100;
        g_vvlan_table.status = 1;
        g_vvlan_oui_table[3] = vvlan_oui_oper{OUI_A, MASK_24, 1, {}};
        g_vvlan_table.oui_num = 1;
    }
    int32_t set(int n, const std::string &value, int32_t cmd = TUKREDIS_CMD_SET) {
        message m(0, "/bridge/mac_vlan/table/" + std::to_string(n), cmd, value);
        return get_mac_vlan_pmsg_f(&m.pmsg);
    }
    int32_t del(int n, int32_t cmd = TUKREDIS_CMD_DEL) {
        message m(0, "/bridge/mac_vlan/table/" + std::to_string(n), cmd);
        return get_mac_vlan_pmsg_f(&m.pmsg);
    }
};

TEST_F(MvlanTest, NullRecord) {
    EXPECT_EQ(get_mac_vlan_pmsg_f(nullptr), -4);
    EXPECT_THAT(trace_lines(),
                ElementsAre(info_line("get_mac_vlan_pmsg_f", "get_mac_vlan_pmsg_f start"),
                            err_line("get_mac_vlan_pmsg_f", "pmsg is null")));
}

TEST_F(MvlanTest, Key256FillsEntry0AndLinksItsOui) {
    EXPECT_EQ(set(256, mac_vlan_bytes(PHONE, MASK_24, 100)), 0);
    const mvlan_entry &e = g_mvlan_table[0];
    ASSERT_TRUE(e.mvlan_oui);
    EXPECT_EQ(*e.mvlan_oui, OUI_A);
    EXPECT_EQ(e.mvlan_vid, 100);
    EXPECT_EQ(e.oui_fill, 1);
    EXPECT_EQ(e.oui_flag, 1);
    EXPECT_EQ(e.oui_idx, 3);
    EXPECT_THAT(bus().writes(), ElementsAre(set_write(0, "/bridge/vvlan/mvlan_oui_msg/3", "3")));
    EXPECT_THAT(
        trace_lines(),
        ElementsAre(
            info_line("get_mac_vlan_pmsg_f", "get_mac_vlan_pmsg_f start"),
            info_line("get_mac_vlan_pmsg_f", "pmsg db=0 key=/bridge/mac_vlan/table/256 cmd=0"),
            info_line("get_mac_vlan_pmsg_f", "index: 0"),
            info_line("get_mac_vlan_pmsg_f", "mac_vlan_value->ifx = 4, mac_vlan_value->type = 1, "
                                             "mac_vlan_value->oper = 2"),
            info_line(
                "get_mac_vlan_pmsg_f",
                "mac_vlan_value->entry.mac=00e0.bb12.3456 mac_vlan_value->entry.mask = "
                "ffff.ff00.0000mac_vlan_value->entry.vid = 100, mac_vlan_value->entry.priority = "
                "6, mac_vlan_value->entry.flag = 7, mac_vlan_value->entry.field = 8"),
            info_line("maintain_mvlan_table", "mvlan->entry.mac=0x00e0bb"),
            info_line("maintain_mvlan_table",
                      "g_mvlan_table[0].mvlan_oui=0x00e0bb000000, mvlan_vid = 100"),
            info_line("add_mvlan", "the vid of mvlan entry is fill"),
            info_line("add_mvlan", "entry(3) is ENABLED"),
            info_line("set_mvlan_redis", "set_mvlan_redis start"),
            info_line("set_mvlan_redis", "key=/bridge/vvlan/mvlan_oui_msg/3"),
            info_line("set_mvlan_redis", "add mvlan oui entry msg to yem"),
            info_line("set_mvlan_redis", "set_mvlan_redis end"),
            info_line("add_mvlan", "This mvlan entry is valid."),
            info_line("add_mvlan", "g_mvlan_table[0].oui_flag=1, oui_idx=3, oui_fill=1"),
            info_line("get_mac_vlan_pmsg_f", "get_mac_vlan_pmsg_f end")));
}

TEST_F(MvlanTest, Key383FillsEntry127) {
    EXPECT_EQ(set(383, mac_vlan_bytes(PHONE, MASK_24, 100)), 0);
    EXPECT_TRUE(g_mvlan_table[127].mvlan_oui);
}

// Numbers outside 256..383, and keys whose number cannot be read, would
// address outside the table: refused with -4 after an error line.
TEST_F(MvlanTest, KeysOutsideTheTableAreRefused) {
    for (const std::string key :
         {"/bridge/mac_vlan/table/255", "/bridge/mac_vlan/table/384", "/bridge/mac_vlan/table/-1",
          "/bridge/mac_vlan/table/abc", "/bridge/mac_vlan/table/",
          "/bridge/mac_vlan/table/99999999999", "/bridge/mac_vlan/table/-2147483648"}) {
        clear_trace();
        for (int32_t cmd : {0, 1}) {
            message m(0, key, cmd, mac_vlan_bytes(PHONE, MASK_24, 100));
            EXPECT_EQ(get_mac_vlan_pmsg_f(&m.pmsg), -4) << key;
            EXPECT_EQ(m.rep.reads, 0);
            EXPECT_EQ(trace_lines().back().level, 2) << key;
        }
    }
    EXPECT_THAT(bus().writes(), IsEmpty());
    for (const mvlan_entry &e : g_mvlan_table) {
        EXPECT_FALSE(e.mvlan_oui);
    }
}

// A re-written key does not replace a filled entry; the OUI match runs
// again on the kept values, so the message is written once more.
TEST_F(MvlanTest, RewrittenEntryKeepsItsValuesAndRelinks) {
    ASSERT_EQ(set(260, mac_vlan_bytes(PHONE, MASK_24, 100)), 0);
    bus().clear_calls();
    clear_trace();
    EXPECT_EQ(set(260, mac_vlan_bytes(mac6{0x02, 0, 0, 0, 0, 0}, MASK_24, 200)), 0);
    EXPECT_EQ(g_mvlan_table[4].mvlan_vid, 100);
    EXPECT_EQ(*g_mvlan_table[4].mvlan_oui, OUI_A);
    EXPECT_THAT(bus().writes(), ElementsAre(set_write(0, "/bridge/vvlan/mvlan_oui_msg/3", "3")));
    EXPECT_THAT(trace_lines(), Contains(info_line("maintain_mvlan_table",
                                                  "The idx 4 of g_mvlan_table is exist entry")));
}

// Matched but in another VLAN: filled, not linked, no message; its delete
// sends no DEL.
TEST_F(MvlanTest, OtherVlanIsFilledButNotLinked) {
    EXPECT_EQ(set(300, mac_vlan_bytes(PHONE, MASK_24, 200)), 0);
    const mvlan_entry &e = g_mvlan_table[44];
    EXPECT_EQ(e.oui_fill, 1);
    EXPECT_EQ(e.oui_idx, 3);
    EXPECT_EQ(e.oui_flag, 0);
    EXPECT_THAT(bus().writes(), IsEmpty());
    EXPECT_EQ(del(300), 0);
    EXPECT_FALSE(g_mvlan_table[44].mvlan_oui);
    EXPECT_EQ(g_mvlan_table[44].oui_fill, 1) << "kept when the entry was not linked";
    EXPECT_THAT(bus().writes(), IsEmpty());
}

// Only the voice VLAN's id is compared, not its enable state.
TEST_F(MvlanTest, DisabledVoiceVlanWithTheSameIdStillLinks) {
    g_vvlan_table.status = 0;
    EXPECT_EQ(set(256, mac_vlan_bytes(PHONE, MASK_24, 100)), 0);
    EXPECT_EQ(g_mvlan_table[0].oui_flag, 1);
}

TEST_F(MvlanTest, NoMatchingOuiLeavesTheEntryFilledOnly) {
    EXPECT_EQ(set(256, mac_vlan_bytes(mac6{0x02, 1, 2, 3, 4, 5}, MASK_24, 100)), 0);
    EXPECT_TRUE(g_mvlan_table[0].mvlan_oui);
    EXPECT_EQ(g_mvlan_table[0].oui_fill, 0);
    EXPECT_THAT(bus().writes(), IsEmpty());
}

// The message key is per OUI slot: deleting one linked entry deletes it even
// though another linked entry carries the same OUI.
TEST_F(MvlanTest, DeletingALinkedEntryDeletesTheSharedMessageKey) {
    ASSERT_EQ(set(256, mac_vlan_bytes(PHONE, MASK_24, 100)), 0);
    ASSERT_EQ(set(257, mac_vlan_bytes(OUI_A, MASK_24, 100)), 0);
    bus().clear_calls();
    clear_trace();
    EXPECT_EQ(del(256), 0);
    EXPECT_THAT(bus().writes(), ElementsAre(del_write(0, "/bridge/vvlan/mvlan_oui_msg/3")));
    EXPECT_FALSE(g_mvlan_table[0].mvlan_oui);
    EXPECT_EQ(g_mvlan_table[0].oui_flag, 0);
    EXPECT_EQ(g_mvlan_table[0].oui_fill, 0);
    EXPECT_EQ(g_mvlan_table[0].mvlan_vid, 100);
    EXPECT_EQ(g_mvlan_table[0].oui_idx, 3);
    EXPECT_EQ(g_mvlan_table[1].oui_flag, 1);
    EXPECT_THAT(trace_lines(),
                ElementsAre(info_line("get_mac_vlan_pmsg_f", "get_mac_vlan_pmsg_f start"),
                            info_line("get_mac_vlan_pmsg_f",
                                      "pmsg db=0 key=/bridge/mac_vlan/table/256 cmd=1"),
                            info_line("get_mac_vlan_pmsg_f", "index: 0"),
                            info_line("del_mvlan", "entry(3) is ENABLED"),
                            info_line("del_mvlan", "find oui in g_vvlan_oui_table[3].mac"),
                            info_line("set_mvlan_redis", "set_mvlan_redis start"),
                            info_line("set_mvlan_redis", "key=/bridge/vvlan/mvlan_oui_msg/3"),
                            info_line("set_mvlan_redis", "del mvlan oui entry msg to yem"),
                            info_line("set_mvlan_redis", "set_mvlan_redis end"),
                            info_line("del_mvlan", "free g_mvlan_table[0] entry end"),
                            err_line("get_mac_vlan_pmsg_f", "get_mac_vlan_pmsg_f del end!")));
}

TEST_F(MvlanTest, CodesZeroAndTwoSetOneAndTenDeleteNineIsIgnored) {
    EXPECT_EQ(set(256, mac_vlan_bytes(PHONE, MASK_24, 100), 2), 0);
    EXPECT_TRUE(g_mvlan_table[0].mvlan_oui);
    EXPECT_EQ(del(256, 10), 0);
    EXPECT_FALSE(g_mvlan_table[0].mvlan_oui);
    EXPECT_EQ(set(256, mac_vlan_bytes(PHONE, MASK_24, 100), 0), 0);
    EXPECT_EQ(del(256, 9), 0);
    EXPECT_TRUE(g_mvlan_table[0].mvlan_oui);
    EXPECT_EQ(del(256, 1), 0);
    EXPECT_FALSE(g_mvlan_table[0].mvlan_oui);
    EXPECT_EQ(set(256, mac_vlan_bytes(PHONE, MASK_24, 100), 5), 0) << "any other code sets";
    EXPECT_TRUE(g_mvlan_table[0].mvlan_oui);
}

TEST_F(MvlanTest, DeletingAFreeEntryIsTracedAndAnswered0) {
    EXPECT_EQ(del(256), 0);
    EXPECT_THAT(
        trace_lines(),
        Contains(info_line("del_mvlan", "g_mvlan_table[0].mvlan_oui is NULL, error return!")));
    EXPECT_EQ(trace_lines().back(),
              err_line("get_mac_vlan_pmsg_f", "get_mac_vlan_pmsg_f del end!"));
}

TEST_F(MvlanTest, BadValues) {
    message failed(0, "/bridge/mac_vlan/table/256", TUKREDIS_CMD_SET);
    failed.fail_read();
    EXPECT_EQ(get_mac_vlan_pmsg_f(&failed.pmsg), -11);
    EXPECT_EQ(trace_lines().back(), err_line("get_mac_vlan_pmsg_f", "get value fail"));
    message null(0, "/bridge/mac_vlan/table/256", TUKREDIS_CMD_SET);
    EXPECT_EQ(get_mac_vlan_pmsg_f(&null.pmsg), -4);
    EXPECT_EQ(trace_lines().back(), err_line("get_mac_vlan_pmsg_f", "mac_vlan_value is NULL\n"));
    // Shorter than 29 bytes: refused like no value, never read past.
    EXPECT_EQ(set(256, mac_vlan_bytes(PHONE, MASK_24, 100).substr(0, 28)), -4);
    EXPECT_EQ(trace_lines().back(),
              err_line("get_mac_vlan_pmsg_f", "mac_vlan_value is too short, len=28"));
    EXPECT_FALSE(g_mvlan_table[0].mvlan_oui);
    EXPECT_THAT(bus().writes(), IsEmpty());
}

// A failed allocation leaves the entry free (with the new id).
TEST_F(MvlanTest, AllocationFailure) {
    posix_faults::fail_malloc(sizeof(mac_addr), 1);
    EXPECT_EQ(set(256, mac_vlan_bytes(PHONE, MASK_24, 321)), -11);
    EXPECT_FALSE(g_mvlan_table[0].mvlan_oui);
    EXPECT_EQ(g_mvlan_table[0].mvlan_vid, 321);
    const std::vector<expected_line> lines = trace_lines();
    ASSERT_GE(lines.size(), 3u);
    EXPECT_EQ(lines[lines.size() - 3], info_line("maintain_mvlan_table", "malloc failed"));
    EXPECT_EQ(lines[lines.size() - 2], info_line("add_mvlan", "maintain_mvlan_table failed"));
    EXPECT_EQ(lines.back(), info_line("get_mac_vlan_pmsg_f", "add_mvlan failed"));
    EXPECT_THAT(bus().writes(), IsEmpty());
}

TEST_F(MvlanTest, MaintainRefusesANullValue) {
    EXPECT_FALSE(maintain_mvlan_table(nullptr, 0));
    EXPECT_FALSE(add_mvlan(nullptr, 0));
    EXPECT_THAT(trace_lines(), ElementsAre(info_line("maintain_mvlan_table", "mvlan is NULL!"),
                                           info_line("maintain_mvlan_table", "mvlan is NULL!"),
                                           info_line("add_mvlan", "maintain_mvlan_table failed")));
}

// Many add/delete cycles over the whole table: every copy is freed (the
// sanitizer build's leak check sees any that is not).
TEST_F(MvlanTest, ManyCyclesKeepTheTableConsistent) {
    for (int round = 0; round < 20; ++round) {
        for (int n = 256; n <= 383; ++n) {
            ASSERT_EQ(set(n, mac_vlan_bytes(PHONE, MASK_24, 100)), 0);
        }
        for (int n = 256; n <= 383; ++n) {
            ASSERT_EQ(del(n), 0);
        }
    }
    for (const mvlan_entry &e : g_mvlan_table) {
        EXPECT_FALSE(e.mvlan_oui);
    }
}

} // namespace
