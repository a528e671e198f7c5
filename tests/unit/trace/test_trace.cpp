// SPDX-License-Identifier: BSD-3-Clause
// The trace filter and the line format.
#include <unistd.h>

#include "daemon_test.h"
#include "trace/debug_level.h"
#include "trace/trace.h"

using namespace fake;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

int g_info_line = 0;
int g_error_line = 0;

void traced_function(int value) {
    g_info_line = __LINE__ + 1;
    TRACE_INFO("info value=%d", value);
    g_error_line = __LINE__ + 1;
    TRACE_ERR("error text=%s", "bad");
}

class TraceTest : public DaemonTest {};

struct filter_case {
    uint32_t level;
    bool info;
    bool error;
};

class TraceFilterTest : public TraceTest, public ::testing::WithParamInterface<filter_case> {};

TEST_P(TraceFilterTest, PrintsTheLevelsTheWordSelects) {
    dov_vvlan_set_dbg(GetParam().level);
    traced_function(7);
    std::vector<expected_line> expected;
    if (GetParam().info) {
        expected.push_back(info_line("traced_function", "info value=7"));
    }
    if (GetParam().error) {
        expected.push_back(err_line("traced_function", "error text=bad"));
    }
    EXPECT_EQ(trace_lines(), expected) << "level " << GetParam().level;
}

// 32 is a whole-word comparison: 34 prints error lines only, 48 nothing.
INSTANTIATE_TEST_SUITE_P(Levels, TraceFilterTest,
                         ::testing::Values(filter_case{0, false, false},
                                           filter_case{1, true, false}, filter_case{2, false, true},
                                           filter_case{3, true, true}, filter_case{32, true, true},
                                           filter_case{34, false, true},
                                           filter_case{48, false, false},
                                           filter_case{0xFFFFFFFFu, true, true}),
                         [](const ::testing::TestParamInfo<filter_case> &info) {
                             return "level_" + std::to_string(info.param.level);
                         });

TEST_F(TraceTest, LineIsFunctionLinePidLevelTextCrLf) {
    traced_function(42);
    const std::vector<std::string> raw = raw_trace();
    ASSERT_EQ(raw.size(), 2u);
    const std::string pid = std::to_string(getpid());
    EXPECT_EQ(raw[0], "<traced_function: " + std::to_string(g_info_line) + ">[" + pid +
                          "](1)info value=42\r\n");
    EXPECT_EQ(raw[1], "<traced_function: " + std::to_string(g_error_line) + ">[" + pid +
                          "](2)error text=bad\r\n");
}

TEST_F(TraceTest, EachLineIsOneSinkCall) {
    traced_function(1);
    EXPECT_EQ(trace_sink_calls(), 2);
}

// A filtered-out trace costs a load and a compare: no getpid, no
// formatting, its arguments are not even evaluated.
TEST_F(TraceTest, FilteredTraceFormatsNothing) {
    dov_vvlan_set_dbg(0);
    const long getpid_before = posix_faults::getpid_calls();
    int evaluated = 0;
    TRACE_INFO("x=%d", ++evaluated);
    TRACE_ERR("x=%d", ++evaluated);
    dov_vvlan_set_dbg(2);
    TRACE_INFO("x=%d", ++evaluated);
    EXPECT_EQ(evaluated, 0);
    EXPECT_EQ(trace_sink_calls(), 0);
    EXPECT_EQ(posix_faults::getpid_calls(), getpid_before);
    EXPECT_THAT(raw_trace(), IsEmpty());
}

TEST_F(TraceTest, EnabledTraceAsksThePidPerLine) {
    const long getpid_before = posix_faults::getpid_calls();
    traced_function(1);
    EXPECT_EQ(posix_faults::getpid_calls() - getpid_before, 2);
}

TEST_F(TraceTest, SetDbgStoresAnyWordUnchecked) {
    dov_vvlan_set_dbg(0xdeadbeef);
    EXPECT_EQ(dov_vvlan_dbg_level.load(), 0xdeadbeefu);
    EXPECT_THAT(raw_trace(), IsEmpty());
}

TEST_F(TraceTest, ParserRejectsLinesWithoutCrLf) {
    EXPECT_FALSE(parse_trace_line("<f: 1>[2](1)text\n").well_formed);
    EXPECT_TRUE(parse_trace_line("<f: 1>[2](1)text\r\n").well_formed);
}

} // namespace
