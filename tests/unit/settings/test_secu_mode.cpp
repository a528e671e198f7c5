// SPDX-License-Identifier: BSD-3-Clause
// Security mode: published only while both it and the voice VLAN are on.
#include "daemon_test.h"
#include "settings/secu_mode.h"
#include "settings/vid.h"
#include "settings/vvlan_table.h"

using namespace fake;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class SecuModeTest : public DaemonTest {
  protected:
    int32_t secu(int32_t cmd, const std::string &key = "/bridge/vvlan/secu_mode/1") {
        message m(1, key, cmd, "ignored");
        const int32_t rv = get_secu_mode_pmsg_f(&m.pmsg);
        EXPECT_EQ(m.rep.reads, 0) << "the value is never read";
        return rv;
    }
};

TEST_F(SecuModeTest, NullRecord) {
    EXPECT_EQ(get_secu_mode_pmsg_f(nullptr), -4);
    EXPECT_THAT(trace_lines(),
                ElementsAre(info_line("get_secu_mode_pmsg_f", "get_secu_mode_pmsg_f start"),
                            err_line("get_secu_mode_pmsg_f", "pmsg is null")));
}

// Set while the voice VLAN is off: configured on, but deleted in database 0;
// a later enable publishes "1".
TEST_F(SecuModeTest, SetWhileVoiceVlanOffDeletesThenEnablePublishes) {
    EXPECT_EQ(secu(TUKREDIS_CMD_SET), 0);
    EXPECT_EQ(g_vvlan_table.secu_mode_en, 1);
    EXPECT_THAT(bus().writes(), ElementsAre(del_write(0, "/bridge/vvlan/secu_mode/")));
    EXPECT_THAT(trace_lines(),
                ElementsAre(info_line("get_secu_mode_pmsg_f", "get_secu_mode_pmsg_f start"),
                            info_line("get_secu_mode_pmsg_f",
                                      "pmsg db=1 key=/bridge/vvlan/secu_mode/1 cmd=0"),
                            info_line("set_secu_mode_redis", "set_secu_mode_redis start"),
                            info_line("set_secu_mode_redis", "key=/bridge/vvlan/secu_mode/"),
                            info_line("set_secu_mode_redis", "secu_mode_en=1"),
                            info_line("set_secu_mode_redis", "set_secu_mode_redis end"),
                            info_line("get_secu_mode_pmsg_f", "get_secu_mode_pmsg_f end")));
    bus().clear_calls();
    message m(1, "/bridge/vvlan/vid/100", TUKREDIS_CMD_SET);
    ASSERT_EQ(get_vid_pmsg_f(&m.pmsg), 0);
    EXPECT_EQ(bus().writes().front(), set_write(0, "/bridge/vvlan/secu_mode/", "1"));
}

TEST_F(SecuModeTest, SetWhileVoiceVlanOnPublishesOne) {
    g_vvlan_table.status = 1;
    EXPECT_EQ(secu(TUKREDIS_CMD_SET), 0);
    EXPECT_THAT(bus().writes(), ElementsAre(set_write(0, "/bridge/vvlan/secu_mode/", "1")));
}

TEST_F(SecuModeTest, DeleteWhileVoiceVlanOnDeletes) {
    g_vvlan_table.status = 1;
    g_vvlan_table.secu_mode_en = 1;
    EXPECT_EQ(secu(TUKREDIS_CMD_DEL), 0);
    EXPECT_EQ(g_vvlan_table.secu_mode_en, 0);
    EXPECT_THAT(bus().writes(), ElementsAre(del_write(0, "/bridge/vvlan/secu_mode/")));
}

TEST_F(SecuModeTest, AnyOtherCodeIsADelete) {
    g_vvlan_table.status = 1;
    for (int32_t cmd : {1, 2, 10, 7}) {
        g_vvlan_table.secu_mode_en = 1;
        EXPECT_EQ(secu(cmd), 0);
        EXPECT_EQ(g_vvlan_table.secu_mode_en, 0) << cmd;
    }
}

TEST_F(SecuModeTest, ExpireChangesNothing) {
    g_vvlan_table.secu_mode_en = 1;
    EXPECT_EQ(secu(TUKREDIS_CMD_EXPIRE), 0);
    EXPECT_EQ(g_vvlan_table.secu_mode_en, 1);
    EXPECT_THAT(bus().writes(), IsEmpty());
}

// The published key is the bare prefix whatever the configured tail.
TEST_F(SecuModeTest, AnyTailPublishesTheBarePrefix) {
    g_vvlan_table.status = 1;
    EXPECT_EQ(secu(TUKREDIS_CMD_SET, "/bridge/vvlan/secu_mode/anything/else"), 0);
    EXPECT_THAT(bus().writes(), ElementsAre(set_write(0, "/bridge/vvlan/secu_mode/", "1")));
}

} // namespace
