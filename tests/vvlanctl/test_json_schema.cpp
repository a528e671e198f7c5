// SPDX-License-Identifier: BSD-3-Clause
// Every JSON document vvlanctl prints, valid against its schema file in the
// tree (python3-jsonschema), in a busy state and in an empty one.
#include "ctl_fixture.h"
#include "validators.h"

namespace ctltest {
namespace {

class JsonSchemaTest : public CtlTest {
  protected:
    void expect_valid(const std::string &schema, const std::vector<std::string> &args) {
        const tool_result r = ctl(args);
        EXPECT_LE(r.status, 2) << join(args) << "\n" << r.err;
        const verdict v = schema_check(server().dir(), schema, r.out);
        EXPECT_EQ(v.status, 0) << join(args) << "\n" << v.says << "\n" << r.out;
    }
    void every_document() {
        for (const std::vector<std::string> &args :
             std::vector<std::vector<std::string>>{{"show", "--json"},
                                                   {"-j", "show"},
                                                   {"show", "port", "5", "-j"},
                                                   {"show", "port", "30", "--json"},
                                                   {"show", "ouis", "--json"},
                                                   {"show", "mac-vlan", "--json"}}) {
            expect_valid("show", args);
        }
        expect_valid("check", {"check", "--json"});
        expect_valid("check", {"-j", "check"});
    }
};

TEST_F(JsonSchemaTest, EmptyDatabases) {
    start_daemon(false);
    every_document();
}

TEST_F(JsonSchemaTest, BusySwitchWithFindings) {
    start_daemon(false);
    configure();
    phone_joins();
    ok({"set", "aging", "30"});
    ok({"set", "cos", "5", "46"});
    ok({"set", "security", "on"});
    ok({"add", "oui", "00:04:f2:00:00:00", "ff:ff:ff:00:00:00"});
    ok({"set", "auto", "7"});
    ok({"specify", "0004f2000000", "8"});
    ok({"add", "mvlan", "0", "00e0bb010203", "ffffff000000", "100"});
    ok({"add", "mvlan", "5", "001122334455", "ffffffffffff", "100"});
    redis().set(0, mvlan_key(9), "short");
    // A finding of every severity: a port joined without its phone (info),
    // a second voice VLAN (warning), a join request with no mode 2 key
    // (critical).
    ok({"age", "100", "6", "00e0bb123456"});
    set_vid(200);
    redis().set(1, join_key(12), "");
    sync();
    const tool_result c = ctl({"check"});
    EXPECT_EQ(c.status, 2) << c.out;
    every_document();
}

TEST_F(JsonSchemaTest, DaemonGone) {
    start_daemon(false);
    configure();
    daemon().kill_now();
    every_document();
}

} // namespace
} // namespace ctltest
