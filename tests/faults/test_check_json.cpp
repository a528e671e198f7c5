// SPDX-License-Identifier: BSD-3-Clause
// The reader of `vvlanctl check --json`, on the shapes the tool prints.
#include <gtest/gtest.h>

#include <stdexcept>

#include "vvlanctl_check.h"

namespace faults {
namespace {

TEST(CheckJson, EmptyListIsHealthy) {
    EXPECT_TRUE(parse_check_json("[]\n").empty());
}

TEST(CheckJson, KindsAndPortsAreKept) {
    const findings f = parse_check_json(
        R"([{"kind": "join_key_missing", "ifx": 2, "detail": "join request, no \"mode 2\" key"},)"
        R"( {"detail": "secu", "kind": "published_differs"},)"
        R"( {"kind": "joined_not_auto", "ifx": 8, "detail": "x", "extra": true}])");
    const findings expected = {
        {"join_key_missing", 2}, {"published_differs", -1}, {"joined_not_auto", 8}};
    EXPECT_EQ(f, expected);
}

TEST(CheckJson, NullPortIsNoPort) {
    EXPECT_EQ(parse_check_json(R"([{"kind":"published_differs","ifx":null,"detail":""}])"),
              (findings{{"published_differs", -1}}));
}

TEST(CheckJson, AnythingElseIsRefused) {
    EXPECT_THROW(parse_check_json(""), std::runtime_error);
    EXPECT_THROW(parse_check_json("{}"), std::runtime_error);
    EXPECT_THROW(parse_check_json("[{\"kind\": \"x\"}"), std::runtime_error);
    EXPECT_THROW(parse_check_json("[] trailing"), std::runtime_error);
}

} // namespace
} // namespace faults
