// SPDX-License-Identifier: BSD-3-Clause
// The load-complete marker.
#include "app/load_complete_marker.h"
#include "daemon_test.h"

using namespace fake;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class DataEndTest : public DaemonTest {};

TEST_F(DataEndTest, CopiesTheValueToDatabase0) {
    message m(1, "/bridge/vvlan/data/end", TUKREDIS_CMD_SET, "17");
    EXPECT_EQ(get_data_end_pmsg_f(&m.pmsg), 0);
    EXPECT_THAT(bus().writes(), ElementsAre(set_write(0, "/bridge/vvlan/data/end", "17")));
    EXPECT_THAT(
        trace_lines(),
        ElementsAre(info_line("get_data_end_pmsg_f", "get_data_end_pmsg_f start"),
                    info_line("get_data_end_pmsg_f", "pmsg db=1 key=/bridge/vvlan/data/end cmd=0"),
                    info_line("set_data_end_redis", "set_data_end_redis start"),
                    info_line("set_data_end_redis", "key=/bridge/vvlan/data/end"),
                    info_line("set_data_end_redis", "dov_vvlan_set_data_end_redis end"),
                    info_line("get_data_end_pmsg_f", "dov_vvlan_set_data_end_pmsg_f end")));
}

TEST_F(DataEndTest, NegativeValuesPassThrough) {
    message m(1, "/bridge/vvlan/data/end", TUKREDIS_CMD_SET, "-2147483648");
    EXPECT_EQ(get_data_end_pmsg_f(&m.pmsg), 0);
    EXPECT_THAT(bus().writes(), ElementsAre(set_write(0, "/bridge/vvlan/data/end", "-2147483648")));
}

TEST_F(DataEndTest, NullRecord) {
    EXPECT_EQ(get_data_end_pmsg_f(nullptr), -4);
    EXPECT_THAT(trace_lines(),
                ElementsAre(info_line("get_data_end_pmsg_f", "get_data_end_pmsg_f start"),
                            err_line("get_data_end_pmsg_f", "pmsg is null")));
}

// A delete of the marker keeps its copy: refused before the record is
// traced.
TEST_F(DataEndTest, DeleteIsRefusedAndNothingIsDeleted) {
    for (int32_t cmd : {1, 9, 10, 2}) {
        clear_trace();
        message m(1, "/bridge/vvlan/data/end", cmd);
        EXPECT_EQ(get_data_end_pmsg_f(&m.pmsg), -4);
        EXPECT_THAT(trace_lines(),
                    ElementsAre(info_line("get_data_end_pmsg_f", "get_data_end_pmsg_f start"),
                                err_line("get_data_end_pmsg_f", "cmd=" + std::to_string(cmd))));
    }
    EXPECT_THAT(bus().writes(), IsEmpty());
}

TEST_F(DataEndTest, NonNumericValueWritesNothing) {
    message m(1, "/bridge/vvlan/data/end", TUKREDIS_CMD_SET, "abc");
    EXPECT_EQ(get_data_end_pmsg_f(&m.pmsg), -11);
    EXPECT_THAT(bus().writes(), IsEmpty());
    EXPECT_EQ(trace_lines().back(),
              err_line("get_data_end_pmsg_f", "tukredis_get_key_reply_intval error"));
}

TEST_F(DataEndTest, AbsentValueWritesNothing) {
    message m(1, "/bridge/vvlan/data/end", TUKREDIS_CMD_SET);
    EXPECT_EQ(get_data_end_pmsg_f(&m.pmsg), -11);
    EXPECT_THAT(bus().writes(), IsEmpty());
}

} // namespace
