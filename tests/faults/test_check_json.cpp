// SPDX-License-Identifier: BSD-3-Clause
// The reader of `vvlanctl check --json`, on the shapes the tool prints.
#include <gtest/gtest.h>

#include <stdexcept>

#include "vvlanctl_check.h"

namespace faults {
namespace {

TEST(CheckJson, NoFindingIsHealthy) {
    EXPECT_TRUE(parse_check_json(R"({"schema_version": 1, "status": "OK", "exit_code": 0,
  "daemon": {"state": "subscribed", "subscribed": true, "since": null, "client_name": null},
  "findings": []}
)")
                    .empty());
}

TEST(CheckJson, KindsAndPortsAreKept) {
    const findings f = parse_check_json(
        R"({"daemon": {"x": [1, {"y": "z"}]}, "findings": [)"
        R"({"kind": "join_key_missing", "severity": "critical", "ifx": 2, "detail": "no \"mode 2\" key", "advice": "a; b"},)"
        R"( {"detail": "secu", "ifx": null, "kind": "published_differs"},)"
        R"( {"kind": "joined_not_auto", "ifx": 8, "detail": "x", "extra": true}], "status": "CRITICAL"})");
    const findings expected = {
        {"join_key_missing", 2}, {"published_differs", -1}, {"joined_not_auto", 8}};
    EXPECT_EQ(f, expected);
    EXPECT_EQ(check_status_of(f), 2);
    EXPECT_EQ(check_status_of({{"joined_without_voice_address", 3}}), 0);
    EXPECT_EQ(check_status_of({{"joined_not_auto", 3}}), 1);
}

TEST(CheckJson, AnythingElseIsRefused) {
    EXPECT_THROW(parse_check_json(""), std::runtime_error);
    EXPECT_THROW(parse_check_json("[]"), std::runtime_error);
    EXPECT_THROW(parse_check_json("{}"), std::runtime_error);
    EXPECT_THROW(parse_check_json(R"({"findings": [{"kind": "x"})"), std::runtime_error);
    EXPECT_THROW(parse_check_json(R"({"findings": []} trailing)"), std::runtime_error);
}

} // namespace
} // namespace faults
