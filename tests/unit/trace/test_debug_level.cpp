// SPDX-License-Identifier: BSD-3-Clause
// The debug marker file and the "debugDovVVlan" handler.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <future>

#include "daemon_test.h"
#include "trace/debug_level.h"
#include "trace/trace.h"

using namespace fake;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

const std::string MARKER = DOV_VVLAN_SYSROOT "/var/tmp/dov_vvlan_dbg";

class DbgTest : public DaemonTest {
  protected:
    void TearDown() override {
        unlink(MARKER.c_str());
        DaemonTest::TearDown();
    }
};

TEST_F(DbgTest, MarkerFileRaisesTheLevelTo32) {
    std::ofstream(MARKER) << "content is never read";
    dov_vvlan_set_dbg(0);
    EXPECT_EQ(dov_vvlan_dbg_init(), 0);
    EXPECT_EQ(dov_vvlan_dbg_level.load(), 32u);
}

TEST_F(DbgTest, MissingMarkerFileLeavesTheLevelAndReturnsTheOpenResult) {
    unlink(MARKER.c_str());
    dov_vvlan_set_dbg(3);
    EXPECT_EQ(dov_vvlan_dbg_init(), -1);
    EXPECT_EQ(dov_vvlan_dbg_level.load(), 3u);
}

TEST_F(DbgTest, EmptyMarkerFileCounts) {
    std::ofstream(MARKER).flush();
    dov_vvlan_set_dbg(0);
    EXPECT_EQ(dov_vvlan_dbg_init(), 0);
    EXPECT_EQ(dov_vvlan_dbg_level.load(), 32u);
}

// Anyone can put a FIFO at the marker's path; with no writer, a blocking
// open would never return. The open runs on another thread so that a
// regression fails here instead of hanging the suite: the test then opens
// the FIFO for writing itself, which releases the blocked open.
TEST_F(DbgTest, MarkerFifoCountsAndNeverBlocks) {
    ASSERT_EQ(mkfifo(MARKER.c_str(), 0600), 0) << std::strerror(errno);
    dov_vvlan_set_dbg(0);
    auto init = std::async(std::launch::async, [] { return dov_vvlan_dbg_init(); });
    if (init.wait_for(std::chrono::seconds(5)) != std::future_status::ready) {
        const int writer = open(MARKER.c_str(), O_WRONLY);
        init.wait();
        close(writer);
        FAIL() << "dov_vvlan_dbg_init blocked in open on a FIFO";
    }
    EXPECT_EQ(init.get(), 0);
    EXPECT_EQ(dov_vvlan_dbg_level.load(), 32u);
}

TEST_F(DbgTest, NullRecord) {
    EXPECT_EQ(dov_vvlan_dbg_pmsg_f(nullptr), -4);
    EXPECT_THAT(trace_lines(), ElementsAre(err_line("dov_vvlan_dbg_pmsg_f", "pmsg is null")));
}

TEST_F(DbgTest, WrittenKeySetsTheLevelWithoutStartOrEndLines) {
    message m(0, "debugDovVVlan", TUKREDIS_CMD_SET, "3");
    EXPECT_EQ(dov_vvlan_dbg_pmsg_f(&m.pmsg), 0);
    EXPECT_EQ(dov_vvlan_dbg_level.load(), 3u);
    EXPECT_THAT(trace_lines(), ElementsAre(info_line("dov_vvlan_dbg_pmsg_f",
                                                     "pmsg db=0 key=debugDovVVlan cmd=0")));
    EXPECT_THAT(bus().writes(), IsEmpty());
}

TEST_F(DbgTest, ZeroSilencesEverything) {
    message m(0, "debugDovVVlan", TUKREDIS_CMD_SET, "0");
    EXPECT_EQ(dov_vvlan_dbg_pmsg_f(&m.pmsg), 0);
    EXPECT_EQ(dov_vvlan_dbg_level.load(), 0u);
    clear_trace();
    EXPECT_EQ(dov_vvlan_dbg_pmsg_f(nullptr), -4);
    EXPECT_THAT(raw_trace(), IsEmpty());
}

TEST_F(DbgTest, NegativeValueIsStoredAsItsUnsignedPattern) {
    message m(0, "debugDovVVlan", TUKREDIS_CMD_SET, "-1");
    EXPECT_EQ(dov_vvlan_dbg_pmsg_f(&m.pmsg), 0);
    EXPECT_EQ(dov_vvlan_dbg_level.load(), 0xFFFFFFFFu);
}

TEST_F(DbgTest, ReadsTheValueInBase10) {
    message m(0, "debugDovVVlan", TUKREDIS_CMD_SET, "34");
    EXPECT_EQ(dov_vvlan_dbg_pmsg_f(&m.pmsg), 0);
    const std::vector<bus_call> calls = bus().calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].op, "intval");
    EXPECT_EQ(calls[0].args, std::vector<int32_t>{10});
}

// A non-numeric value keeps the level; the error line names another table
// and the reader's own result is returned, both kept as they are.
TEST_F(DbgTest, NonNumericValueKeepsTheLevelAndReturnsTheReadersResult) {
    dov_vvlan_set_dbg(2);
    message m(0, "debugDovVVlan", TUKREDIS_CMD_SET, "abc");
    m.fail_read(-7);
    EXPECT_EQ(dov_vvlan_dbg_pmsg_f(&m.pmsg), -7);
    EXPECT_EQ(dov_vvlan_dbg_level.load(), 2u);
    EXPECT_THAT(trace_lines(),
                ElementsAre(err_line("dov_vvlan_dbg_pmsg_f", "get mac_vlan failed")));
}

TEST_F(DbgTest, NonNumericValueWithInfoOnlyPrintsNothing) {
    dov_vvlan_set_dbg(1);
    message m(0, "debugDovVVlan", TUKREDIS_CMD_SET, "abc");
    EXPECT_EQ(dov_vvlan_dbg_pmsg_f(&m.pmsg), -1);
    EXPECT_EQ(dov_vvlan_dbg_level.load(), 1u);
    EXPECT_THAT(trace_lines(), ElementsAre(info_line("dov_vvlan_dbg_pmsg_f",
                                                     "pmsg db=0 key=debugDovVVlan cmd=0")));
}

// A deleted or expiring key leaves the level and prints nothing.
TEST_F(DbgTest, AnyOtherCodeIsRefusedSilently) {
    for (int32_t cmd : {1, 2, 9, 10, -1}) {
        dov_vvlan_set_dbg(32);
        message m(0, "debugDovVVlan", cmd, "1");
        EXPECT_EQ(dov_vvlan_dbg_pmsg_f(&m.pmsg), -4) << cmd;
        EXPECT_EQ(dov_vvlan_dbg_level.load(), 32u);
        EXPECT_EQ(m.rep.reads, 0);
    }
    EXPECT_THAT(raw_trace(), IsEmpty());
}

} // namespace
