// SPDX-License-Identifier: BSD-3-Clause
// CoS/DSCP pass-through with the OUI index in front.
#include "daemon_test.h"
#include "settings/cos_dscp.h"
#include "settings/vvlan_table.h"

using namespace fake;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class CosDscpTest : public DaemonTest {};

TEST_F(CosDscpTest, NullRecord) {
    EXPECT_EQ(get_cos_dscp_pmsg_f(nullptr), -4);
    EXPECT_THAT(trace_lines(),
                ElementsAre(info_line("get_cos_dscp_pmsg_f", "get_cos_dscp_pmsg_f start"),
                            err_line("get_cos_dscp_pmsg_f", "pmsg is null")));
}

TEST_F(CosDscpTest, PublishesOuiIndexCosDscp) {
    g_vvlan_table.oui_idx = 3;
    message m(1, "/bridge/vvlan/cos_dscp/1", TUKREDIS_CMD_SET, bytes({0x05, 0x2E}));
    EXPECT_EQ(get_cos_dscp_pmsg_f(&m.pmsg), 0);
    EXPECT_THAT(bus().writes(), ElementsAre(set_write(0, "/bridge/vvlan/cos_dscp/",
                                                      bytes({0x00, 0x03, 0x05, 0x2E}))));
    EXPECT_THAT(
        trace_lines(),
        ElementsAre(
            info_line("get_cos_dscp_pmsg_f", "get_cos_dscp_pmsg_f start"),
            info_line("get_cos_dscp_pmsg_f", "pmsg db=1 key=/bridge/vvlan/cos_dscp/1 cmd=0"),
            info_line("get_cos_dscp_pmsg_f", "vvlan_cos_dscp->cos=5, vvlan_cos_dscp->dscp=46"),
            info_line("set_cos_dscp_redis", "vvlan_cos_dscp->cos=5, vvlan_cos_dscp->dscp=46"),
            info_line("set_cos_dscp_redis", "key=/bridge/vvlan/cos_dscp/"),
            info_line("set_cos_dscp_redis", "pre_entry_idx=3, cos=5, dscp=46"),
            info_line("get_cos_dscp_pmsg_f", "get_cos_dscp_pmsg_f end")));
}

TEST_F(CosDscpTest, HighOuiIndexIsBigEndian) {
    g_vvlan_table.oui_idx = 0x0102;
    message m(1, "/bridge/vvlan/cos_dscp/1", TUKREDIS_CMD_SET, bytes({7, 63, 0xAA, 0xBB}));
    EXPECT_EQ(get_cos_dscp_pmsg_f(&m.pmsg), 0);
    EXPECT_THAT(bus().writes(),
                ElementsAre(set_write(0, "/bridge/vvlan/cos_dscp/", bytes({0x01, 0x02, 7, 63}))));
}

TEST_F(CosDscpTest, RangesAreNotValidated) {
    message m(1, "/bridge/vvlan/cos_dscp/1", TUKREDIS_CMD_SET, bytes({0xFF, 0xFF}));
    EXPECT_EQ(get_cos_dscp_pmsg_f(&m.pmsg), 0);
    EXPECT_THAT(bus().writes(),
                ElementsAre(set_write(0, "/bridge/vvlan/cos_dscp/", bytes({0, 0, 0xFF, 0xFF}))));
}

// Published whatever the voice VLAN's state.
TEST_F(CosDscpTest, PublishedWithTheVoiceVlanOff) {
    g_vvlan_table.status = 0;
    message m(1, "/bridge/vvlan/cos_dscp/x", TUKREDIS_CMD_SET, bytes({1, 2}));
    EXPECT_EQ(get_cos_dscp_pmsg_f(&m.pmsg), 0);
    EXPECT_EQ(bus().writes().size(), 1u);
}

TEST_F(CosDscpTest, TwoTailsPublishToTheSameKeyLastWins) {
    message a(1, "/bridge/vvlan/cos_dscp/a", TUKREDIS_CMD_SET, bytes({1, 10}));
    message b(1, "/bridge/vvlan/cos_dscp/b", TUKREDIS_CMD_SET, bytes({2, 20}));
    EXPECT_EQ(get_cos_dscp_pmsg_f(&a.pmsg), 0);
    EXPECT_EQ(get_cos_dscp_pmsg_f(&b.pmsg), 0);
    EXPECT_EQ(bus().value(0, "/bridge/vvlan/cos_dscp/"), bytes({0, 0, 2, 20}));
}

// A delete re-publishes what the library still yields; it never deletes.
TEST_F(CosDscpTest, DeleteRepublishesWhateverTheLibraryYields) {
    message m(1, "/bridge/vvlan/cos_dscp/1", TUKREDIS_CMD_DEL, bytes({3, 4}));
    EXPECT_EQ(get_cos_dscp_pmsg_f(&m.pmsg), 0);
    EXPECT_THAT(bus().writes(),
                ElementsAre(set_write(0, "/bridge/vvlan/cos_dscp/", bytes({0, 0, 3, 4}))));
}

TEST_F(CosDscpTest, DeleteWithNoValueLeftIsNull) {
    message m(1, "/bridge/vvlan/cos_dscp/1", TUKREDIS_CMD_DEL);
    EXPECT_EQ(get_cos_dscp_pmsg_f(&m.pmsg), -4);
    EXPECT_EQ(trace_lines().back(), err_line("get_cos_dscp_pmsg_f", "vvlan_cos_dscp is NULL\n"));
    EXPECT_THAT(bus().writes(), IsEmpty());
}

TEST_F(CosDscpTest, UnreadableValue) {
    message m(1, "/bridge/vvlan/cos_dscp/1", TUKREDIS_CMD_SET);
    m.fail_read();
    EXPECT_EQ(get_cos_dscp_pmsg_f(&m.pmsg), -11);
    EXPECT_EQ(trace_lines().back(), err_line("get_cos_dscp_pmsg_f", "get value fail"));
    EXPECT_THAT(bus().writes(), IsEmpty());
}

// Shorter than the two-byte record: taken like no value at all.
TEST_F(CosDscpTest, ShortValueIsTakenAsNoValue) {
    for (const std::string &v : {std::string(), bytes({5})}) {
        clear_trace();
        message m(1, "/bridge/vvlan/cos_dscp/1", TUKREDIS_CMD_SET, v);
        EXPECT_EQ(get_cos_dscp_pmsg_f(&m.pmsg), -4);
        EXPECT_EQ(trace_lines().back().level, 2);
    }
    EXPECT_THAT(bus().writes(), IsEmpty());
}

TEST_F(CosDscpTest, ExpireChangesNothing) {
    message m(1, "/bridge/vvlan/cos_dscp/1", TUKREDIS_CMD_EXPIRE, bytes({1, 2}));
    EXPECT_EQ(get_cos_dscp_pmsg_f(&m.pmsg), 0);
    EXPECT_EQ(m.rep.reads, 0);
    EXPECT_THAT(bus().writes(), IsEmpty());
}

} // namespace
