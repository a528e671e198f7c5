// SPDX-License-Identifier: BSD-3-Clause
// The steps the handlers share trace under their caller's name.
#include <cstring>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "daemon_test.h"
#include "handler/handler_steps.h"
#include "wire/values.h"

namespace {

using namespace fake;

class HandlerStepsTest : public DaemonTest {};

TEST(PmsgKey, NeverReadsPastTheRecord) {
    tukredis_pmsg pmsg{};
    std::memset(pmsg.key, 'k', sizeof pmsg.key);
    pmsg.cmd = 0x7f7f7f7f;
    EXPECT_EQ(pmsg_key(&pmsg).size(), sizeof pmsg.key);
}

int32_t some_handler(tukredis_pmsg *pmsg, expiry_test order) {
    if (const auto done = handler_open(TRACE_SITE, pmsg, order)) {
        return *done;
    }
    return 7;
}

TEST_F(HandlerStepsTest, OpeningTracesUnderTheCallersName) {
    EXPECT_EQ(some_handler(nullptr, expiry_test::after_record), -4);
    EXPECT_THAT(trace_lines(), testing::ElementsAre(info_line("some_handler", "some_handler start"),
                                                    err_line("some_handler", "pmsg is null")));
    clear_trace();
    message expire(1, "/k", TUKREDIS_CMD_EXPIRE);
    EXPECT_EQ(some_handler(&expire.pmsg, expiry_test::after_record), 0);
    EXPECT_THAT(trace_lines(),
                testing::ElementsAre(info_line("some_handler", "some_handler start"),
                                     info_line("some_handler", "pmsg db=1 key=/k cmd=9"),
                                     err_line("some_handler", "not care CMD_EXPIRE event")));
    clear_trace();
    EXPECT_EQ(some_handler(&expire.pmsg, expiry_test::before_record), 0);
    EXPECT_THAT(trace_lines(),
                testing::ElementsAre(info_line("some_handler", "some_handler start"),
                                     err_line("some_handler", "not care CMD_EXPIRE event")));
    clear_trace();
    message set(0, "/k", TUKREDIS_CMD_SET);
    EXPECT_EQ(some_handler(&set.pmsg, expiry_test::before_record), 7);
}

value_read read_cos(tukredis_pmsg *pmsg, vvlan_cos_dscp *out) {
    return read_record<cos_dscp_codec>(TRACE_SITE, pmsg, "rec", out);
}

TEST_F(HandlerStepsTest, ReadsARecordOrSaysWhyNot) {
    vvlan_cos_dscp v{};
    message ok(1, "/k", TUKREDIS_CMD_SET, fake::bytes({5, 46, 9}));
    EXPECT_EQ(read_cos(&ok.pmsg, &v), value_read::ok);
    EXPECT_EQ(v.cos, 5);
    EXPECT_EQ(v.dscp, 46);
    message shorter(1, "/k", TUKREDIS_CMD_SET, fake::bytes({5}));
    EXPECT_EQ(read_cos(&shorter.pmsg, &v), value_read::short_value);
    EXPECT_EQ(trace_lines().back(), err_line("read_cos", "rec is too short, len=1"));
    message none(1, "/k", TUKREDIS_CMD_SET);
    EXPECT_EQ(read_cos(&none.pmsg, &v), value_read::absent);
    EXPECT_EQ(trace_lines().back(), err_line("read_cos", "rec is NULL\n"));
    message failing(1, "/k", TUKREDIS_CMD_SET, fake::bytes({5, 46}));
    failing.fail_read();
    EXPECT_EQ(read_cos(&failing.pmsg, &v), value_read::failed);
    EXPECT_EQ(trace_lines().back(), err_line("read_cos", "get value fail"));
    EXPECT_EQ(read_failure_result(value_read::failed), -11);
    EXPECT_EQ(read_failure_result(value_read::absent), -4);
    EXPECT_EQ(read_failure_result(value_read::short_value), -4);
}

} // namespace
