// SPDX-License-Identifier: BSD-3-Clause
// Specified-OUI messages, deleting voice OUIs with everything that hangs on
// them, and the MAC-VLAN linkage, against the real daemon.
#include "voice_vlan_fixture.h"

namespace integration {
namespace {

using testcommon::be32_bytes;

const mac6 PHONE_A{0x00, 0xe0, 0xbb, 0x12, 0x34, 0x56};
const mac6 OUI_B{0x00, 0x04, 0x0d, 0x00, 0x00, 0x00};

class LinkageTest : public VoiceVlanTest {};

// A specified-OUI message joins its port at once through the join request;
// no port operation key is written on this path.
TEST_F(LinkageTest, SpecifiedOuiMessageJoinsThePort) {
    start_daemon();
    add_oui(OUI_A);
    barrier();
    fwd_set(spec_key(OUI_A, 3), "");
    ASSERT_TRUE(wait_db(1, join_key(2), be32_bytes(2), patience(5s)));
    barrier();
    EXPECT_EQ(db0(port_key(2, 2)), std::nullopt);
    EXPECT_TRUE(saw_line("set_spec_oui", 1, "g_auto_add_vvlan_table[2].oui_flag[0] = 2"));
    // A second message for the same OUI, on any port, is refused.
    fwd_set(spec_key(OUI_A, 9), "");
    ASSERT_TRUE(
        wait_line("set_spec_oui", 1, "This oui has received mac learning msg", patience(5s)));
    EXPECT_EQ(db1(join_key(8)), std::nullopt);
}

// Deleting an OUI that a phone was learned under: the record, its echo and
// the port's count go; the port stays joined until aging removes it.
TEST_F(LinkageTest, DeletingALearnedOuiKeepsThePortJoined) {
    start_daemon();
    set_vid(100);
    add_oui(OUI_A);
    auto_port(5);
    learn(100, 6, "00e0bb123456");
    ASSERT_TRUE(wait_db(1, join_key(5), be32_bytes(5), patience(5s)));
    ASSERT_TRUE(db0(echo_key(OUI_A, MASK_24, 0)).has_value());
    del_oui(OUI_A);
    ASSERT_TRUE(wait_db(0, echo_key(OUI_A, MASK_24, 0), std::nullopt, patience(5s)));
    barrier();
    EXPECT_TRUE(saw_line("del_oui", 1, "g_vvlan_auto_port[5].pri_oui_num = 0"));
    EXPECT_TRUE(saw_line("del_oui", 1, "g_auto_add_vvlan_table[5].oui_flag[0] = 0"));
    EXPECT_EQ(db0(port_key(5, 2)), bytes({0, 0}));
    EXPECT_EQ(db1(join_key(5)), be32_bytes(5));
}

// Deleting an OUI that a specified-OUI message marked (and whose address
// has aged on the port) deletes that message; the deletion comes back to
// the specified-OUI handler as a removal, working on the freed slot.
TEST_F(LinkageTest, DeletingASpecifiedOuiDeletesItsMessage) {
    start_daemon();
    set_vid(100);
    add_oui(OUI_A);
    auto_port(2);
    barrier();
    fwd_set(spec_key(OUI_A, 3), "");
    ASSERT_TRUE(wait_db(1, join_key(2), be32_bytes(2), patience(5s)));
    learn(100, 3, "00e0bb123456");
    barrier();
    age(100, 3, "00e0bb123456");
    barrier();
    const std::size_t mark = daemon().mark();
    del_oui(OUI_A, MASK_24);
    ASSERT_TRUE(wait_db(0, spec_key(OUI_A, 3), std::nullopt, patience(5s)));
    barrier();
    EXPECT_EQ(db0(echo_key(OUI_A, MASK_24, 0)), std::nullopt);
    EXPECT_EQ(db1(join_key(2)), be32_bytes(2)) << "the port leaves only through aging";
    bool came_back = false;
    for (const testcommon::trace_line &t : traces_since(mark)) {
        came_back |= t.func == "get_spec_oui_pmsg_f" &&
                     t.text == "pmsg db=0 key=" + spec_key(OUI_A, 3) + " cmd=1";
    }
    EXPECT_TRUE(came_back);
    EXPECT_TRUE(saw_line("set_spec_oui", 1, "This mac address has been aged"));
}

TEST_F(LinkageTest, DeletingAnOuiThatWasNeverAddedChangesNothing) {
    start_daemon();
    add_oui(OUI_A);
    barrier();
    cfg_set(oui_key(OUI_B, MASK_24), "x"); // a key with a value nobody can read as a record
    barrier();
    del_oui(OUI_B);
    ASSERT_TRUE(wait_line("get_oui_oper_pmsg_f", 1, "del_oui_oper failed", patience(5s)));
    EXPECT_TRUE(db0(echo_key(OUI_A, MASK_24, 0)).has_value());
}

// Entries of the voice VLAN that carry a voice OUI are linked, one message
// key per OUI slot shared by all of them; an entry of another VLAN is not.
// When the voice VLAN's id changes, links follow it.
TEST_F(LinkageTest, MacVlanEntriesFollowTheVoiceVlanAndTheirOuis) {
    start_daemon();
    set_vid(100);
    set_mvlan(256, PHONE_A, MASK_24, 100);
    set_mvlan(257, mac6{0x00, 0xe0, 0xbb, 0x99, 0x99, 0x99}, MASK_24, 100);
    set_mvlan(258, PHONE_A, MASK_24, 200);
    barrier();
    EXPECT_TRUE(redis().keys(0, "/bridge/vvlan/mvlan_oui_msg/*").empty());

    // Adding the OUI links the existing entries of VLAN 100.
    add_oui(OUI_A);
    ASSERT_TRUE(wait_db(0, oui_msg_key(0), "0", patience(5s)));
    EXPECT_TRUE(saw_line("find_mvlan_oui", 1, "g_mvlan_table[0] : oui_flag=1, oui_idx=0"));
    EXPECT_TRUE(saw_line("find_mvlan_oui", 1, "g_mvlan_table[1] : oui_flag=1, oui_idx=0"));
    barrier();
    EXPECT_FALSE(has_line("find_mvlan_oui", 1, "g_mvlan_table[2] : oui_flag=1, oui_idx=0"));

    // Deleting one linked entry deletes the shared message key.
    fwd_del(mvlan_key(257));
    ASSERT_TRUE(wait_db(0, oui_msg_key(0), std::nullopt, patience(5s)));
    set_mvlan(257, mac6{0x00, 0xe0, 0xbb, 0x99, 0x99, 0x99}, MASK_24, 100);
    ASSERT_TRUE(wait_db(0, oui_msg_key(0), "0", patience(5s)));

    // Adding the OUI only fills entries of the voice VLAN's id. The entry of
    // VLAN 200 is filled when its own key is written again: matched, but not
    // linked, so no message for it.
    barrier();
    std::size_t mark = daemon().mark();
    set_mvlan(258, PHONE_A, MASK_24, 200);
    barrier();
    for (const testcommon::trace_line &t : traces_since(mark)) {
        EXPECT_NE(t.func, "set_mvlan_redis");
    }
    EXPECT_TRUE(saw_line("add_mvlan", 1, "g_mvlan_table[2].oui_flag=0, oui_idx=0, oui_fill=1"));

    // The voice VLAN moves to 200: the entries of 100 withdraw the message,
    // then the filled entry of 200 announces it.
    mark = daemon().mark();
    set_vid(200);
    barrier();
    EXPECT_EQ(db0(oui_msg_key(0)), "0");
    int withdrawn = 0;
    for (const testcommon::trace_line &t : traces_since(mark)) {
        withdrawn += t.text == "del mvlan oui entry msg to yem" ? 1 : 0;
    }
    EXPECT_EQ(withdrawn, 2);

    // Deleting the OUI unlinks the entry of the voice VLAN.
    del_oui(OUI_A);
    ASSERT_TRUE(wait_db(0, oui_msg_key(0), std::nullopt, patience(5s)));
    EXPECT_TRUE(saw_line("del_oui", 1, "This mvlan entry is invalid."));
}

TEST_F(LinkageTest, EntriesOutsideTheTableAreRefused) {
    start_daemon();
    add_oui(OUI_A);
    set_vid(100);
    set_mvlan(255, PHONE_A, MASK_24, 100);
    set_mvlan(384, PHONE_A, MASK_24, 100);
    set_mvlan(383, PHONE_A, MASK_24, 100);
    ASSERT_TRUE(wait_db(0, oui_msg_key(0), "0", patience(5s)));
    barrier();
    EXPECT_TRUE(saw_line("get_mac_vlan_pmsg_f", 2,
                         "mac_vlan key /bridge/mac_vlan/table/255 is not an entry of 256..383, "
                         "dropped"));
    EXPECT_TRUE(saw_line("get_mac_vlan_pmsg_f", 1, "index: 127"));
}

} // namespace
} // namespace integration
