// SPDX-License-Identifier: BSD-3-Clause
// vvlanctl's arguments: every bad one of every command exits 3, names the
// argument in one line, and leaves both databases as they were; help,
// version, and the connection's own statuses.
#include "ctl_fixture.h"

namespace ctltest {
namespace {

struct bad_case {
    std::vector<std::string> args;
    std::string named; // what the one-line error must contain
};

const std::string MAC = "00e0bb123456";
const std::string MASK = "ffffff000000";

// Grouped by command; each group is one test.
const std::map<std::string, std::vector<bad_case>> BAD = {
    {"global",
     {{{"--bogus", "show"}, "\"--bogus\""},
      {{"nosuch"}, "\"nosuch\""},
      {{}, "no command"},
      {{"-p", "99999", "show"}, "PORT \"99999\""},
      {{"-p", "x", "show"}, "PORT \"x\""},
      {{"-h", "localhost", "-s", "/x", "show"}, "exclude"},
      // redis-cli's -h is the host; alone it was meant as help.
      {{"-h"}, "help is --help"}}},
    {"show", {{{"show", "--jsn"}, "\"--jsn\""}, {{"show", "extra"}, "\"extra\""}}},
    {"check", {{{"check", "--yaml"}, "\"--yaml\""}}},
    {"watch",
     {{{"watch", "--count"}, "usage"},
      {{"watch", "--count", "0"}, "N \"0\""},
      {{"watch", "--count", "x"}, "N \"x\""},
      {{"watch", "-n", "3"}, "\"-n\""},
      {{"watch", "port", "53"}, "IFX \"53\""},
      {{"watch", "oui", "00e0bb"}, "OUI \"00e0bb\""},
      {{"watch", "family", "vlan"}, "NAME \"vlan\""},
      {{"watch", "port", "5", "port", "6"}, "twice"},
      {{"watch", "family"}, "missing"}}},
    {"set",
     {{{"set"}, "missing"},
      {{"set", "vlan", "5"}, "WHAT \"vlan\""},
      {{"set", "vid"}, "missing"},
      {{"set", "vid", "0"}, "VLAN \"0\""},
      {{"set", "vid", "4095"}, "VLAN \"4095\""},
      {{"set", "vid", "1x"}, "VLAN \"1x\""},
      {{"set", "vid", "-1"}, "VLAN \"-1\""},
      {{"set", "vid", "100", "200"}, "too many"},
      {{"set", "aging", "65536"}, "MINUTES \"65536\""},
      {{"set", "aging", "ten"}, "MINUTES \"ten\""},
      {{"set", "cos", "8", "46"}, "COS \"8\""},
      {{"set", "cos", "5", "64"}, "DSCP \"64\""},
      {{"set", "cos", "5"}, "missing"},
      {{"set", "security", "maybe"}, "STATE \"maybe\""},
      {{"set", "auto", "53"}, "IFX \"53\""},
      {{"set", "auto", "x"}, "IFX \"x\""},
      {{"set", "vid", "100", "--replace", "200"}, "too many"}}},
    {"unset",
     {{{"unset", "aging"}, "WHAT \"aging\""},
      {{"unset", "vid", "5000"}, "VLAN \"5000\""},
      {{"unset", "auto", "-1"}, "IFX \"-1\""},
      {{"unset", "vid", "100", "--replace"}, "--replace applies to set only"}}},
    {"add",
     {{{"add", "port", "1"}, "WHAT \"port\""},
      {{"add", "oui", "00e0bb"}, "OUI \"00e0bb\""},
      {{"add", "oui", "00e0bb000000", "ffffff00000g"}, "MASK \"ffffff00000g\""},
      {{"add", "oui", "00e0bb000000", "000000000000"}, "MASK \"000000000000\""},
      {{"add", "oui", "00:e0:bb-00:00:00"}, "OUI \"00:e0:bb-00:00:00\""},
      {{"add", "mvlan", "128", MAC, MASK, "100"}, "INDEX \"128\""},
      {{"add", "mvlan", "0", "xx", MASK, "100"}, "MAC \"xx\""},
      {{"add", "mvlan", "0", MAC, "f", "100"}, "MASK \"f\""},
      {{"add", "mvlan", "0", MAC, MASK, "4095"}, "VLAN \"4095\""},
      {{"add", "mvlan", "0", MAC, MASK}, "missing"}}},
    {"del",
     {{{"del", "oui"}, "missing"},
      {{"del", "mvlan", "x"}, "INDEX \"x\""},
      {{"del", "mvlan", "0", "1"}, "too many"}}},
    {"learn",
     {{{"learn", "0", "6", MAC}, "VLAN \"0\""},
      {{"learn", "100", "999", MAC}, "PHYID \"999\""},
      {{"learn", "100", "6", "00e0bb12345"}, "MAC \"00e0bb12345\""},
      {{"learn", "100", "6"}, "missing"}}},
    {"age", {{{"age", "100", "x", MAC}, "PHYID \"x\""}, {{"age", "4095", "6", MAC}, "VLAN"}}},
    {"specify",
     {{{"specify", "00e0bb", "3"}, "OUI \"00e0bb\""},
      {{"specify", "00e0bb000000", "0"}, "PHYID \"0\""},
      {{"specify", "00e0bb000000"}, "missing"}}},
    {"unspecify", {{{"unspecify", "00e0bb000000", "54"}, "PHYID \"54\""}}},
    {"debug",
     {{{"debug"}, "missing"},
      {{"debug", "-1"}, "LEVEL \"-1\""},
      {{"debug", "2147483648"}, "LEVEL \"2147483648\""},
      {{"debug", "abc"}, "LEVEL \"abc\""}}},
    {"sync", {{{"sync", "--timeout", "0"}, "SECONDS \"0\""}, {{"sync", "--wait"}, "\"--wait\""}}},
    {"history",
     {{{"history"}, "no RECORDING"},
      {{"history", "--since", "yesterday", "rec.vvr"}, "--since \"yesterday\""},
      {{"history", "--until"}, "missing"},
      {{"history", "address", "00e0bb", "rec.vvr"}, "MAC \"00e0bb\""},
      {{"history", "address", "00e0bb123456", "address", "00e0bb123456", "rec.vvr"}, "twice"},
      {{"history", "port", "53", "rec.vvr"}, "IFX \"53\""},
      {{"history", "--count", "3", "rec.vvr"}, "\"--count\""},
      {{"history", "no-such.vvr"}, "no-such.vvr"}}},
};

class ArgumentsTest : public CtlTest {
  protected:
    // Some state in both databases, so that a stray write would show.
    void SetUp() override {
        CtlTest::SetUp();
        start_daemon(false);
        configure();
        phone_joins();
    }

    void expect_refused(const std::string &group) {
        const auto before = dump();
        ASSERT_FALSE(before.empty());
        for (const bad_case &c : BAD.at(group)) {
            // The global options are tried without -s; the environment
            // names the server, so a stray write would reach it.
            const tool_result r = group == "global"
                                      ? run_tool(server().dir(), c.args,
                                                 {{"TUKREDIS_SOCKET", server().socket_path()}})
                                      : ctl(c.args);
            const std::string what = join(c.args);
            EXPECT_EQ(r.status, 3) << what << "\n" << r.err;
            EXPECT_EQ(r.out, "") << what;
            EXPECT_EQ(r.err.rfind("vvlanctl: ", 0), 0u) << what << ": " << r.err;
            EXPECT_EQ(r.err.find('\n'), r.err.size() - 1) << what << ": one line, not " << r.err;
            EXPECT_NE(r.err.find(c.named), std::string::npos)
                << what << ": \"" << c.named << "\" not named in " << r.err;
        }
        sync();
        // The marker is the one key sync itself writes.
        auto after = dump();
        auto expected = before;
        for (const char *k : {"0 /bridge/vvlan/data/end", "1 /bridge/vvlan/data/end"}) {
            after.erase(k);
            expected.erase(k);
        }
        EXPECT_EQ(after, expected);
    }
};

TEST_F(ArgumentsTest, GlobalOptions) {
    expect_refused("global");
}
TEST_F(ArgumentsTest, Show) {
    expect_refused("show");
}
TEST_F(ArgumentsTest, Check) {
    expect_refused("check");
}
TEST_F(ArgumentsTest, Watch) {
    expect_refused("watch");
}
TEST_F(ArgumentsTest, Set) {
    expect_refused("set");
}
TEST_F(ArgumentsTest, Unset) {
    expect_refused("unset");
}
TEST_F(ArgumentsTest, Add) {
    expect_refused("add");
}
TEST_F(ArgumentsTest, Del) {
    expect_refused("del");
}
TEST_F(ArgumentsTest, Learn) {
    expect_refused("learn");
}
TEST_F(ArgumentsTest, Age) {
    expect_refused("age");
}
TEST_F(ArgumentsTest, Specify) {
    expect_refused("specify");
}
TEST_F(ArgumentsTest, Unspecify) {
    expect_refused("unspecify");
}
TEST_F(ArgumentsTest, Debug) {
    expect_refused("debug");
}
TEST_F(ArgumentsTest, Sync) {
    expect_refused("sync");
}
TEST_F(ArgumentsTest, History) {
    expect_refused("history");
}

class HelpTest : public CtlTest {};

TEST_F(HelpTest, EveryCommandAnswersHelp) {
    const tool_result top = run_tool(server().dir(), {"--help"});
    EXPECT_EQ(top.status, 0);
    EXPECT_EQ(top.out.rfind("usage: vvlanctl ", 0), 0u) << top.out;
    for (const char *c : {"show", "check", "watch", "history", "set", "unset", "add", "del",
                          "learn", "age", "specify", "unspecify", "debug", "sync"}) {
        const tool_result r = run_tool(server().dir(), {c, "--help"});
        EXPECT_EQ(r.status, 0) << c;
        EXPECT_EQ(r.out.rfind("usage: vvlanctl ", 0), 0u) << c << ": " << r.out;
        EXPECT_NE(r.out.find(c), std::string::npos) << c;
    }
    // check's help says what each kind points at and what to do.
    const tool_result check = run_tool(server().dir(), {"check", "--help"});
    for (const char *kind : {"join_key_missing", "joined_without_voice_address",
                             "voice_address_not_joined", "joined_not_auto", "published_differs"}) {
        EXPECT_NE(check.out.find(std::string(kind) + ":"), std::string::npos) << kind;
    }
    EXPECT_EQ(check.out.find("Do:") != std::string::npos, true);
}

// One exit-status table, in the monitoring plugins' terms, for every command.
TEST_F(HelpTest, HelpStatesTheExitStatusTable) {
    const tool_result top = run_tool(server().dir(), {"--help"});
    for (const char *row : {"0  success; check: OK", "1  check: WARNING", "2  check: CRITICAL",
                            "3  UNKNOWN: bad usage or input", "SIGPIPE"}) {
        EXPECT_NE(top.out.find(row), std::string::npos) << row << " not in\n" << top.out;
    }
}

TEST_F(HelpTest, VersionNamesTheToolAndTheProjects) {
    const tool_result r = run_tool(server().dir(), {"--version"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out.rfind("vvlanctl from dov_vvlan " VVLANCTL_TEST_VERSION " (", 0), 0u) << r.out;
    EXPECT_EQ(r.out.back(), '\n');
}

TEST_F(HelpTest, NoServerIsStatus3) {
    for (const std::vector<std::string> &args : {std::vector<std::string>{"show"},
                                                 {"check"},
                                                 {"watch"},
                                                 {"set", "vid", "100"},
                                                 {"sync"}}) {
        std::vector<std::string> full{"-s", server().dir() + "/no.sock"};
        full.insert(full.end(), args.begin(), args.end());
        const tool_result r = run_tool(server().dir(), full);
        EXPECT_EQ(r.status, 3) << join(full) << ": " << r.err;
        EXPECT_NE(r.err.find("cannot connect to " + server().dir() + "/no.sock"), std::string::npos)
            << r.err;
    }
}

// Without -s, the bus library's variables say where the server is.
TEST_F(HelpTest, EnvironmentNamesTheServer) {
    start_daemon(false);
    const tool_result r = run_tool(server().dir(), {"set", "vid", "100"},
                                   {{"TUKREDIS_SOCKET", server().socket_path()}});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(db1("/bridge/vvlan/vid/100").has_value());
    const tool_result bad =
        run_tool(server().dir(), {"show"}, {{"TUKREDIS_SOCKET", ""}, {"TUKREDIS_PORT", "0"}});
    EXPECT_EQ(bad.status, 3) << bad.err;
    EXPECT_NE(bad.err.find("TUKREDIS_PORT \"0\""), std::string::npos) << bad.err;
}

} // namespace
} // namespace ctltest
