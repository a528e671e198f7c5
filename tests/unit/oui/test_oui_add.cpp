// SPDX-License-Identifier: BSD-3-Clause
// Adding voice OUIs: slot choice, masking, the echo and the MAC-VLAN links.
#include "daemon_test.h"
#include "oui/mvlan_table.h"
#include "oui/oui_add.h"
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

std::string hex12(const mac6 &m) {
    char buf[13];
    std::snprintf(buf, sizeof buf, "%02x%02x%02x%02x%02x%02x", m[0], m[1], m[2], m[3], m[4], m[5]);
    return buf;
}

// OUI number n: 02:00:n:00:00:00 under a 24-bit mask.
mac6 nth_oui(int n) {
    return mac6{0x02, static_cast<uint8_t>(n >> 8), static_cast<uint8_t>(n), 0, 0, 0};
}

class OuiAddTest : public DaemonTest {
  protected:
    int32_t add(const mac6 &mac, const mac6 &mask, const std::string &value) {
        message m(1, "/bridge/vvlan/oui_oper/" + hex12(mac) + "/" + hex12(mask), TUKREDIS_CMD_SET,
                  value);
        return get_oui_oper_pmsg_f(&m.pmsg);
    }
    int32_t add(const mac6 &mac, const mac6 &mask = MASK_24) {
        return add(mac, mask, oui_value(mac, mask));
    }
    int32_t del(const mac6 &mac, const mac6 &mask = MASK_24) {
        message m(1, "/bridge/vvlan/oui_oper/" + hex12(mac) + "/" + hex12(mask), TUKREDIS_CMD_DEL);
        return get_oui_oper_pmsg_f(&m.pmsg);
    }
    std::string echo_key(const mac6 &mac, const mac6 &mask, int slot) {
        return "/bridge/vvlan/oui_oper/" + hex12(mac) + "/" + hex12(mask) + "/" +
               std::to_string(slot);
    }
    void fill_mvlan(std::size_t i, uint16_t vid, const mac6 &addr) {
        g_mvlan_table[i].mvlan_vid = vid;
        g_mvlan_table[i].mvlan_oui.reset(static_cast<mac_addr *>(std::malloc(sizeof(mac_addr))));
        *g_mvlan_table[i].mvlan_oui = addr;
    }
};

TEST_F(OuiAddTest, NullRecord) {
    EXPECT_EQ(get_oui_oper_pmsg_f(nullptr), -4);
    EXPECT_THAT(trace_lines(),
                ElementsAre(info_line("get_oui_oper_pmsg_f", "get_oui_oper_pmsg_f start"),
                            err_line("get_oui_oper_pmsg_f", "pmsg is null")));
}

TEST_F(OuiAddTest, FirstOuiTakesSlot0AndIsEchoed) {
    const std::string value = oui_value(OUI_A, MASK_24, 1);
    EXPECT_EQ(add(OUI_A, MASK_24, value), 0);
    EXPECT_EQ(g_vvlan_table.oui_num, 1);
    EXPECT_EQ(g_vvlan_oui_table[0].enable, 1);
    EXPECT_EQ(g_vvlan_oui_table[0].mac, OUI_A);
    EXPECT_EQ(g_vvlan_oui_table[0].mask, MASK_24);
    EXPECT_EQ(g_vvlan_oui_table[0].extra[30], 0x40 + 30);
    EXPECT_THAT(bus().writes(),
                ElementsAre(set_write(0, "/bridge/vvlan/oui_oper/00e0bb000000/ffffff000000/0",
                                      bytes({0, 0}) + value)));
    EXPECT_THAT(
        trace_lines(),
        ElementsAre(
            info_line("get_oui_oper_pmsg_f", "get_oui_oper_pmsg_f start"),
            info_line("get_oui_oper_pmsg_f",
                      "pmsg db=1 key=/bridge/vvlan/oui_oper/00e0bb000000/ffffff000000 cmd=0"),
            info_line("set_oui_oper", "oui=00e0bb000000"),
            info_line("set_oui_oper", "mask=ffffff000000"),
            info_line("set_oui_oper", "oui=00e0bb000000"),
            info_line("set_oui_oper", "mask=ffffff000000"), info_line("add_oui", "oui_idx = 0"),
            info_line("add_oui", "oui=00e0bb000000"), info_line("add_oui", "mask=ffffff000000"),
            info_line("add_oui", "oui enable=1"), info_line("add_oui", "oui_num=1"),
            info_line("set_oui_oper_redis",
                      "key=/bridge/vvlan/oui_oper/00e0bb000000/ffffff000000/0"),
            info_line("get_oui_oper_pmsg_f", "get_oui_oper_pmsg_f end")));
}

// The echo is 46 bytes: pre_entry_idx (big-endian) then the 44 received
// bytes after masking, the enable byte as received.
TEST_F(OuiAddTest, EchoCarriesTheIndexLastDeletedAndTheEnableByteAsReceived) {
    g_vvlan_table.oui_idx = 0x0107; // slot deleted last, the table now empty
    g_vvlan_table.oui_num = 1;      // pretend another record is in use in slot 3
    g_vvlan_oui_table[3].enable = 1;
    g_vvlan_oui_table[3].mac = nth_oui(9);
    const std::string value = oui_value(OUI_A, MASK_24, 0, 0x90);
    EXPECT_EQ(add(OUI_A, MASK_24, value), 0);
    const std::vector<db_write> w = bus().writes();
    ASSERT_EQ(w.size(), 1u);
    EXPECT_EQ(w[0].argv[1], "/bridge/vvlan/oui_oper/00e0bb000000/ffffff000000/0");
    EXPECT_EQ(w[0].argv[2], bytes({0x01, 0x07}) + value);
    EXPECT_EQ(w[0].argv[2].size(), 46u);
    EXPECT_EQ(g_vvlan_oui_table[0].enable, 1) << "the table copy is forced to 1";
}

TEST_F(OuiAddTest, BitsOutsideTheMaskAreClearedEverywhere) {
    const mac6 phone{0x00, 0xe0, 0xbb, 0x12, 0x34, 0x56};
    EXPECT_EQ(add(phone, MASK_24, oui_value(phone, MASK_24)), 0);
    EXPECT_EQ(g_vvlan_oui_table[0].mac, OUI_A);
    const std::vector<db_write> w = bus().writes();
    ASSERT_EQ(w.size(), 1u);
    EXPECT_EQ(w[0].argv[1], "/bridge/vvlan/oui_oper/00e0bb000000/ffffff000000/0");
    EXPECT_EQ(w[0].argv[2].substr(2, 12), std::string("\x00\xe0\xbb\x00\x00\x00", 6) +
                                              std::string("\xff\xff\xff\x00\x00\x00", 6));
    const std::vector<std::string> texts = trace_texts();
    EXPECT_EQ(texts[2], "oui=00e0bb123456");
    EXPECT_EQ(texts[4], "oui=00e0bb000000");
}

// The same masked address keeps its slot and count, and is overwritten
// whole: here with another mask whose result is the same address.
TEST_F(OuiAddTest, SameOuiTwiceKeepsSlotAndCount) {
    ASSERT_EQ(add(OUI_A), 0);
    bus().clear_calls();
    clear_trace();
    const mac6 mask_32{0xff, 0xff, 0xff, 0xff, 0, 0};
    const mac6 addr{0x00, 0xe0, 0xbb, 0x00, 0x12, 0x34};
    EXPECT_EQ(add(addr, mask_32, oui_value(addr, mask_32, 1, 0x10)), 0);
    EXPECT_EQ(g_vvlan_table.oui_num, 1);
    EXPECT_EQ(g_vvlan_oui_table[0].mask, mask_32);
    EXPECT_EQ(g_vvlan_oui_table[0].extra[0], 0x10);
    EXPECT_EQ(bus().writes().at(0).argv[1], "/bridge/vvlan/oui_oper/00e0bb000000/ffffffff0000/0");
    EXPECT_THAT(trace_lines(), Contains(info_line("add_oui", "entry(0) is ENABLED")));
    EXPECT_THAT(trace_lines(), Contains(info_line("add_oui", "This oui is already exist , i=0")));
}

TEST_F(OuiAddTest, NewOuiTakesTheLowestFreeSlot) {
    for (int n = 0; n < 5; ++n) {
        ASSERT_EQ(add(nth_oui(n)), 0);
    }
    ASSERT_EQ(del(nth_oui(2)), 0);
    clear_trace();
    EXPECT_EQ(add(nth_oui(7)), 0);
    EXPECT_EQ(g_vvlan_oui_table[2].mac, nth_oui(7));
    EXPECT_EQ(g_vvlan_table.oui_num, 5);
    EXPECT_THAT(trace_lines(),
                Contains(info_line("add_oui", "This idx of oui buffer is available :i=2")));
}

// An empty table reuses the slot deleted last, without a scan.
TEST_F(OuiAddTest, EmptyTableReusesTheSlotDeletedLast) {
    for (int n = 0; n < 4; ++n) {
        ASSERT_EQ(add(nth_oui(n)), 0);
    }
    for (int n : {0, 1, 3, 2}) {
        ASSERT_EQ(del(nth_oui(n)), 0);
    }
    EXPECT_EQ(g_vvlan_table.oui_num, 0);
    EXPECT_EQ(g_vvlan_table.oui_idx, 2);
    clear_trace();
    EXPECT_EQ(add(nth_oui(9)), 0);
    EXPECT_EQ(g_vvlan_oui_table[2].mac, nth_oui(9));
    EXPECT_EQ(g_vvlan_oui_table[0].enable, 0);
    EXPECT_THAT(trace_texts(), Contains("oui_idx = 2"));
    EXPECT_THAT(trace_texts(), ::testing::Not(Contains("entry(2) is ENABLED")));
}

TEST_F(OuiAddTest, The125thOuiIsRefused) {
    for (int n = 0; n < 124; ++n) {
        ASSERT_EQ(add(nth_oui(n)), 0) << n;
    }
    EXPECT_EQ(g_vvlan_table.oui_num, 124);
    bus().clear_calls();
    clear_trace();
    EXPECT_EQ(add(nth_oui(124)), -11);
    EXPECT_THAT(bus().writes(), IsEmpty());
    EXPECT_EQ(g_vvlan_table.oui_num, 124);
    const std::vector<expected_line> lines = trace_lines();
    ASSERT_GE(lines.size(), 3u);
    EXPECT_EQ(lines[lines.size() - 3], info_line("add_oui", "Too much oui!"));
    EXPECT_EQ(lines[lines.size() - 2], info_line("set_oui_oper", "add_oui failed"));
    EXPECT_EQ(lines.back(), info_line("get_oui_oper_pmsg_f", "set_oui_oper failed"));
    // An OUI already in the full table is still re-written.
    EXPECT_EQ(add(nth_oui(123)), 0);
}

// Linked: entries with the voice VLAN's id (whether enabled or not) whose
// address is the OUI; entries of another VLAN are not.
TEST_F(OuiAddTest, LinksMvlanEntriesOfTheVoiceVlanId) {
    g_vvlan_table.vid = 100;
    g_vvlan_table.status = 0;
    fill_mvlan(3, 100, OUI_A);
    fill_mvlan(9, 100, OUI_A);
    fill_mvlan(10, 200, OUI_A);
    fill_mvlan(11, 100, nth_oui(5));
    g_vvlan_oui_table[0] = vvlan_oui_oper{nth_oui(77), MASK_24, 1, {}};
    g_vvlan_table.oui_num = 1;
    EXPECT_EQ(add(OUI_A), 0);
    EXPECT_THAT(bus().writes(),
                ElementsAre(set_write(0, "/bridge/vvlan/oui_oper/00e0bb000000/ffffff000000/1",
                                      bytes({0, 0}) + oui_value(OUI_A, MASK_24)),
                            set_write(0, "/bridge/vvlan/mvlan_oui_msg/1", "1"),
                            set_write(0, "/bridge/vvlan/mvlan_oui_msg/1", "1")));
    for (std::size_t i : {3u, 9u}) {
        EXPECT_EQ(g_mvlan_table[i].oui_flag, 1);
        EXPECT_EQ(g_mvlan_table[i].oui_fill, 1);
        EXPECT_EQ(g_mvlan_table[i].oui_idx, 1);
    }
    EXPECT_EQ(g_mvlan_table[10].oui_fill, 0);
    EXPECT_EQ(g_mvlan_table[11].oui_fill, 0);
    EXPECT_THAT(trace_lines(),
                Contains(info_line("find_mvlan_oui", "g_mvlan_table[3] : oui_flag=1, oui_idx=1")));
    EXPECT_THAT(trace_lines(), Contains(info_line("find_mvlan_oui", "This mvlan entry is valid.")));
}

TEST_F(OuiAddTest, ExpireChangesNothing) {
    message m(1, "/bridge/vvlan/oui_oper/00e0bb000000/ffffff000000", TUKREDIS_CMD_EXPIRE,
              oui_value(OUI_A, MASK_24));
    EXPECT_EQ(get_oui_oper_pmsg_f(&m.pmsg), 0);
    EXPECT_EQ(m.rep.reads, 0);
    EXPECT_EQ(g_vvlan_table.oui_num, 0);
    EXPECT_THAT(bus().writes(), IsEmpty());
}

TEST_F(OuiAddTest, RemovalCodesGoToDeletion) {
    for (int32_t cmd : {1, 10, 2}) {
        ASSERT_EQ(add(OUI_A), 0);
        message m(1, "/bridge/vvlan/oui_oper/00e0bb000000/ffffff000000", cmd);
        EXPECT_EQ(get_oui_oper_pmsg_f(&m.pmsg), 0) << cmd;
        EXPECT_EQ(g_vvlan_table.oui_num, 0) << cmd;
        EXPECT_EQ(m.rep.reads, 0);
    }
}

TEST_F(OuiAddTest, UnreadableNullAndShortValuesFailWithoutChange) {
    struct bad {
        bool fail;
        bool null;
        std::string value;
        std::string text;
    };
    for (const bad &b :
         {bad{true, false, "", "get value fail"}, bad{false, true, "", "vvlan_oui_oper is NULL\n"},
          bad{false, false, oui_value(OUI_A, MASK_24).substr(0, 43),
              "vvlan_oui_oper is too short, len=43"}}) {
        clear_trace();
        message m(1, "/bridge/vvlan/oui_oper/00e0bb000000/ffffff000000", TUKREDIS_CMD_SET, b.value);
        if (b.fail) {
            m.fail_read();
        } else if (b.null) {
            m.rep.what = reply::state::ABSENT;
        }
        EXPECT_EQ(get_oui_oper_pmsg_f(&m.pmsg), -11);
        EXPECT_THAT(trace_lines(),
                    ElementsAre(info_line("get_oui_oper_pmsg_f", "get_oui_oper_pmsg_f start"),
                                ::testing::_, err_line("set_oui_oper", b.text),
                                info_line("get_oui_oper_pmsg_f", "set_oui_oper failed")));
    }
    EXPECT_EQ(g_vvlan_table.oui_num, 0);
    EXPECT_THAT(bus().writes(), IsEmpty());
}

TEST_F(OuiAddTest, LongerValueUsesTheFirst44Bytes) {
    const std::string value = oui_value(OUI_A, MASK_24) + "trailing";
    EXPECT_EQ(add(OUI_A, MASK_24, value), 0);
    EXPECT_EQ(bus().writes().at(0).argv[2], bytes({0, 0}) + value.substr(0, 44));
}

TEST_F(OuiAddTest, AddOuiRefusesANullRecord) {
    uint16_t slot = 0;
    EXPECT_FALSE(add_oui(nullptr, &slot));
    EXPECT_THAT(trace_lines(),
                ElementsAre(info_line("add_oui", "vvlan_oui_oper is NULL, error return")));
}

} // namespace
