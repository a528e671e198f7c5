// SPDX-License-Identifier: BSD-3-Clause
// vvlanctl's writes keep the configuration coherent: a setting kept as one
// key is replaced, never doubled; deleting what is not there is told; the
// address forms of switch command lines are read, and OUIs no phone can
// have are refused.
#include "ctl_fixture.h"

namespace ctltest {
namespace {

using integration::bytes;

class WritesTest : public CtlTest {
  protected:
    std::vector<std::string> keys1(const std::string &family_prefix) {
        return redis().keys(1, family_prefix + "*");
    }
};

TEST_F(WritesTest, SetVidTwiceLeavesOneConfiguredVlan) {
    start_daemon(false);
    ok({"set", "vid", "100"});
    const tool_result again = ctl({"set", "vid", "200"});
    EXPECT_EQ(again.status, 1) << again.err;
    EXPECT_NE(again.err.find("voice VLAN 100 is configured"), std::string::npos) << again.err;
    EXPECT_NE(again.err.find("--replace"), std::string::npos) << again.err;
    EXPECT_EQ(keys1("/bridge/vvlan/vid/"), std::vector<std::string>{"/bridge/vvlan/vid/100"});

    ok({"set", "vid", "200", "--replace"});
    sync();
    EXPECT_EQ(keys1("/bridge/vvlan/vid/"), std::vector<std::string>{"/bridge/vvlan/vid/200"});
    EXPECT_EQ(redis().keys(0, "/bridge/vvlan/vid/*"),
              std::vector<std::string>{"/bridge/vvlan/vid/200"});
    // Setting what is there already is no conflict.
    ok({"set", "vid", "200"});
}

TEST_F(WritesTest, EverySingleKeySettingIsReplacedNotDoubled) {
    start_daemon(false);
    // What another management plane left under other names.
    cfg_set("/bridge/vvlan/age_timer/mgmt", testcommon::be16_bytes(10));
    cfg_set("/bridge/vvlan/cos_dscp/mgmt", bytes({1, 2}));
    cfg_set("/bridge/vvlan/secu_mode/mgmt", "");
    const std::vector<std::pair<std::vector<std::string>, std::string>> settings = {
        {{"set", "aging", "30"}, "/bridge/vvlan/age_timer/"},
        {{"set", "cos", "5", "46"}, "/bridge/vvlan/cos_dscp/"},
        {{"set", "security", "on"}, "/bridge/vvlan/secu_mode/"},
    };
    for (const auto &[args, prefix] : settings) {
        const tool_result refused = ctl(args);
        EXPECT_EQ(refused.status, 1) << join(args) << ": " << refused.err;
        EXPECT_NE(refused.err.find(prefix + "mgmt"), std::string::npos) << refused.err;
        EXPECT_EQ(keys1(prefix), std::vector<std::string>{prefix + "mgmt"}) << join(args);
        std::vector<std::string> replace = args;
        replace.push_back("--replace");
        ok(replace);
        EXPECT_EQ(keys1(prefix), std::vector<std::string>{prefix + "1"}) << join(args);
    }
    EXPECT_EQ(db1("/bridge/vvlan/age_timer/1"), testcommon::be16_bytes(30));
    // A new value of the same key is the ordinary change.
    ok({"set", "aging", "60"});
    EXPECT_EQ(db1("/bridge/vvlan/age_timer/1"), testcommon::be16_bytes(60));
}

TEST_F(WritesTest, DeletingWhatIsNotThereSaysSo) {
    start_daemon(false);
    configure();
    const auto before = dump();
    for (const std::vector<std::string> &args : std::vector<std::vector<std::string>>{
             {"unset", "vid", "999"},
             {"unset", "auto", "30"},
             {"del", "oui", "0004f2000000"},
             {"age", "100", "6", "00e0bb999999"},
             {"unspecify", "00e0bb000000", "6"},
             {"del", "mvlan", "5"},
             {"set", "security", "off"},
         }) {
        const tool_result r = ctl(args);
        EXPECT_EQ(r.status, 1) << join(args) << ": " << r.err;
        EXPECT_TRUE(r.err.find("not there") != std::string::npos ||
                    r.err.find("not on") != std::string::npos)
            << join(args) << ": " << r.err;
        EXPECT_EQ(r.err.find('\n'), r.err.size() - 1) << r.err;
    }
    EXPECT_EQ(dump(), before);
    // What is there is deleted as before.
    ok({"unset", "auto", "5"});
}

TEST_F(WritesTest, AddressesInEveryFormOfASwitchCommandLine) {
    start_daemon(false);
    configure();
    ok({"learn", "100", "6", "00e0.bb12.3459"});
    ok({"learn", "100", "6", "00-E0-BB-12-34-5A"});
    ok({"learn", "100", "6", "00:e0:bb:12:34:5b"});
    ok({"add", "oui", "0004.f200.0000", "ffff.ff00.0000"});
    EXPECT_EQ(db0(learning_key(100, 6, "00e0bb123459")), "");
    EXPECT_EQ(db0(learning_key(100, 6, "00e0bb12345a")), "");
    EXPECT_EQ(db0(learning_key(100, 6, "00e0bb12345b")), "");
    EXPECT_TRUE(db1("/bridge/vvlan/oui_oper/0004f2000000/ffffff000000").has_value());
    ok({"age", "100", "6", "00e0.bb12.3459"});
    EXPECT_FALSE(db0(learning_key(100, 6, "00e0bb123459")).has_value());
}

TEST_F(WritesTest, OuisNoPhoneCanHaveAreRefusedWithTheReason) {
    start_daemon(false);
    const auto before = dump();
    for (const auto &[args, reason] : std::vector<std::pair<std::vector<std::string>, std::string>>{
             {{"add", "oui", "ffffffffffff"}, "multicast"},
             {{"add", "oui", "0100.5e00.0000"}, "multicast"},
             {{"add", "oui", "000000000000"}, "zero"},
             {{"add", "oui", "00e0bb000000", "000000ffffff"}, "zero"},
             {{"add", "oui", "00e0bb000000", "000000000000"}, "zero"},
         }) {
        const tool_result r = ctl(args);
        EXPECT_EQ(r.status, 3) << join(args) << ": " << r.err;
        EXPECT_NE(r.err.find(reason), std::string::npos) << join(args) << ": " << r.err;
    }
    EXPECT_EQ(dump(), before);
}

} // namespace
} // namespace ctltest
