// SPDX-License-Identifier: BSD-3-Clause
// vvlanctl watch: a known sequence of events, decoded.
#include <signal.h>

#include <sstream>

#include "ctl_fixture.h"
#include "validators.h"

namespace ctltest {
namespace {

class WatchTest : public CtlTest {
  protected:
    std::unique_ptr<tool_process> watch(std::vector<std::string> args) {
        args.insert(args.begin(), {"-s", server().socket_path(), "watch"});
        auto p = std::make_unique<tool_process>(server().dir(), args);
        p->start();
        // It says so once its subscription is in place.
        EXPECT_TRUE(testsupport::eventually(
            [&] { return p->err().find("vvlanctl: watching ") != std::string::npos; },
            integration::patience(20s)))
            << p->err();
        return p;
    }
    // CLIENT KILL TYPE pubsub would end the tool's subscription too: only
    // the daemon's (the one without vvlanctl's client name) is ended.
    void kill_daemon_subscription() {
        const auto list = redis().command({"CLIENT", "LIST"});
        ASSERT_TRUE(list && list->type != REDIS_REPLY_ERROR);
        std::istringstream lines(std::string(list->str, list->len));
        int killed = 0;
        for (std::string line; std::getline(lines, line);) {
            if (line.find(" psub=0 ") != std::string::npos ||
                line.find(" name=vvlanctl-watch ") != std::string::npos) {
                continue;
            }
            const std::string id = line.substr(3, line.find(' ') - 3);
            redis().command({"CLIENT", "KILL", "ID", id});
            ++killed;
        }
        ASSERT_EQ(killed, 1) << std::string(list->str, list->len);
    }
    // "YYYY-MM-DDTHH:MM:SS.mmm+HH:MM ": ISO 8601, local time and its offset.
    static bool is_timestamp(const std::string &t) {
        const std::string shape = "0000-00-00T00:00:00.000+00:00 ";
        if (t.size() != shape.size()) {
            return false;
        }
        for (std::size_t i = 0; i < t.size(); ++i) {
            const bool digit = t[i] >= '0' && t[i] <= '9';
            const bool sign = shape[i] == '+' && t[i] == '-';
            if (shape[i] == '0' ? !digit : (t[i] != shape[i] && !sign)) {
                return false;
            }
        }
        return true;
    }
    // The lines without their time stamps, which must be ISO 8601.
    static std::vector<std::string> untimed(const std::string &out) {
        std::vector<std::string> lines;
        std::size_t start = 0;
        for (std::size_t end = out.find('\n'); end != std::string::npos;
             end = out.find('\n', start)) {
            const std::string line = out.substr(start, end - start);
            EXPECT_TRUE(is_timestamp(line.substr(0, 30))) << line;
            lines.push_back(line.substr(30));
            start = end + 1;
        }
        return lines;
    }
};

TEST_F(WatchTest, CountDecodesAKnownSequence) {
    start_daemon(false);
    configure();
    auto w = watch({"--count", "11"});
    // Each step waits for the daemon's last write, so the order of events
    // is fixed; the waits only read.
    ok({"learn", "100", "6", "00e0bb123456"});
    ASSERT_TRUE(
        wait_db(1, join_key(5), integration::bytes({0, 0, 0, 5}), integration::patience(10s)));
    ok({"set", "cos", "5", "46"});
    ASSERT_TRUE(wait_db(0, "/bridge/vvlan/cos_dscp/", integration::bytes({0, 0, 5, 46}),
                        integration::patience(10s)));
    ok({"add", "oui", "0004f2000000"});
    ASSERT_TRUE(testsupport::eventually(
        [&] { return db0("/bridge/vvlan/oui_oper/0004f2000000/ffffff000000/1").has_value(); },
        integration::patience(10s)));
    ok({"age", "100", "6", "00:e0:bb:12:34:56"});
    ok({"unset", "auto", "5"});
    ASSERT_EQ(w->wait_exit(integration::patience(20s)), 0) << w->out() << w->err();
    EXPECT_EQ(untimed(w->out()),
              std::vector<std::string>({
                  "learn vlan 100 phyid 6 (port 5) 00:e0:bb:12:34:56 voice slot 0",
                  "join port 5",
                  "join request port 5",
                  "set cos 5 dscp 46",
                  "cos 5 dscp 46 applied",
                  "add oui 0004f2000000/ffffff000000",
                  "oui add slot 1 0004f2000000/ffffff000000",
                  "age vlan 100 phyid 6 (port 5) 00:e0:bb:12:34:56 voice slot 0",
                  "unset auto port 5",
                  "auto port 5 withdrawn",
                  "leave port 5",
              }));
}

// A re-synchronisation shows as the marks of what it may sweep.
TEST_F(WatchTest, ResynchronisationShowsItsMarks) {
    start_daemon(false);
    configure();
    auto w = watch({"--count", "1"});
    kill_daemon_subscription();
    ASSERT_EQ(w->wait_exit(integration::patience(20s)), 0) << w->err();
    EXPECT_EQ(untimed(w->out()), std::vector<std::string>({"marked db0 /bridge/vvlan/vid/100"}));
}

TEST_F(WatchTest, EndsOnSigint) {
    start_daemon(false);
    auto w = watch({});
    w->signal(SIGINT);
    EXPECT_EQ(w->wait_exit(integration::patience(10s)), 0) << w->err();
    EXPECT_EQ(w->out(), "");
}

// Keys and values come from whoever can write to the server: none of their
// bytes reaches the terminal as a control sequence.
TEST_F(WatchTest, LinesEscapeWhatTheServerHolds) {
    // No daemon has turned the events on.
    auto w = watch({"--count", "1", "--enable-events"});
    redis().set(0, "debugDovVVlan", HOSTILE);
    ASSERT_EQ(w->wait_exit(integration::patience(20s)), 0) << w->out() << w->err();
    EXPECT_FALSE(has_control_bytes(w->out())) << w->out();
    EXPECT_EQ(untimed(w->out()), std::vector<std::string>({"debug level " + HOSTILE_ESCAPED}));
}

// watch reads the server's configuration, never changes it unless asked,
// and says what is missing and how to set it.
TEST_F(WatchTest, LeavesTheServerConfigurationAloneUnlessAsked) {
    const auto flags = [&] {
        const auto r = redis().command({"CONFIG", "GET", "notify-keyspace-events"});
        return r && r->elements == 2 ? std::string(r->element[1]->str, r->element[1]->len)
                                     : std::string("?");
    };
    const std::string before = flags();
    ASSERT_EQ(before.find('K'), std::string::npos) << "this server has the events on already";
    const tool_result r = ctl({"watch", "--count", "1"});
    EXPECT_EQ(r.status, 1) << r.err;
    EXPECT_NE(r.err.find("lacks the flags \"Kg$xe\""), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("CONFIG SET notify-keyspace-events"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("--enable-events"), std::string::npos) << r.err;
    EXPECT_EQ(flags(), before);

    auto w = watch({"--count", "1", "--enable-events"});
    EXPECT_NE(flags().find('K'), std::string::npos);
    cfg_set("/bridge/vvlan/vid/100", "");
    ASSERT_EQ(w->wait_exit(integration::patience(20s)), 0) << w->err();
    EXPECT_EQ(untimed(w->out()), std::vector<std::string>({"set vid 100"}));
}

// An operator's server may rename CONFIG away; its own configuration turns
// the events on.
TEST_F(WatchTest, WorksWhereConfigIsRenamedAndTheEventsAreOn) {
    server().set_extra_args(
        {"--rename-command", "CONFIG", "", "--notify-keyspace-events", "Kg$xe"});
    server().restart();
    auto w = watch({"--count", "1"});
    EXPECT_NE(w->err().find("cannot read notify-keyspace-events"), std::string::npos) << w->err();
    cfg_set("/bridge/vvlan/vid/100", "");
    ASSERT_EQ(w->wait_exit(integration::patience(20s)), 0) << w->err();
    EXPECT_EQ(untimed(w->out()), std::vector<std::string>({"set vid 100"}));
}

TEST_F(WatchTest, FiltersByPortOuiAndFamily) {
    auto by_port = watch({"--count", "3", "--enable-events", "port", "5"});
    auto by_oui = watch({"--count", "2", "oui", "00e0.bb00.0000"});
    auto by_family = watch({"--count", "1", "family", "vid"});
    cfg_set(port_key(7, 1), testcommon::port_oper_value(7, 1, 1));
    redis().set(1, join_key(5), integration::bytes({0, 0, 0, 5}));
    redis().set(0, learning_key(100, 8, "00e0bb654321"), "");
    redis().set(0, learning_key(100, 6, "0004f2123456"), "");
    cfg_set(oui_key(integration::OUI_A, integration::MASK_24), "");
    cfg_set("/bridge/vvlan/vid/100", "");
    cfg_set(port_key(5, 1), testcommon::port_oper_value(5, 1, 1));
    for (auto *w : {by_port.get(), by_oui.get(), by_family.get()}) {
        ASSERT_EQ(w->wait_exit(integration::patience(20s)), 0) << w->err();
    }
    EXPECT_EQ(untimed(by_port->out()),
              std::vector<std::string>(
                  {"join request port 5",
                   "learn vlan 100 phyid 6 (port 5) 00:04:f2:12:34:56 not a voice address",
                   "set auto port 5"}));
    EXPECT_EQ(untimed(by_oui->out()),
              std::vector<std::string>(
                  {"learn vlan 100 phyid 8 (port 7) 00:e0:bb:65:43:21 not a voice address",
                   "add oui 00e0bb000000/ffffff000000"}));
    EXPECT_EQ(untimed(by_family->out()), std::vector<std::string>({"set vid 100"}));
}

TEST_F(WatchTest, JsonLinesFollowTheSchema) {
    start_daemon(false);
    configure();
    auto w = watch({"--json", "--count", "3"});
    ok({"learn", "100", "6", "00e0bb123456"});
    ASSERT_EQ(w->wait_exit(integration::patience(20s)), 0) << w->err();
    const std::string out = w->out();
    const verdict v = schema_check(server().dir(), "watch", out, true);
    EXPECT_EQ(v.status, 0) << v.says << out;
    EXPECT_NE(out.find(R"("family":"port_oper","port":5,"text":"join port 5")"), std::string::npos)
        << out;
    // A hostile key stays one escaped JSON line.
    auto h = watch({"--json", "--count", "1"});
    redis().set(0, "debugDovVVlan", HOSTILE);
    ASSERT_EQ(h->wait_exit(integration::patience(20s)), 0) << h->err();
    EXPECT_FALSE(has_control_bytes(h->out())) << h->out();
    const verdict hostile = schema_check(server().dir(), "watch", h->out(), true);
    EXPECT_EQ(hostile.status, 0) << hostile.says << h->out();
}

} // namespace
} // namespace ctltest
