// SPDX-License-Identifier: BSD-3-Clause
// Hostile keys and values written through the real server while the daemon
// runs on a configured switch, then read again by a re-synchronisation: no
// crash, no sanitizer report, every command the daemon sends stays inside
// its own key set, and a phone learned afterwards still joins its port.
#include <cstdio>
#include <iostream>

#include "command_monitor.h"
#include "daemon_key_set.h"
#include "fault_fixture.h"
#include "hostile_inputs.h"
#include "tcp_client.h"
#include "testsupport/free_port.h"

namespace faults {
namespace {

constexpr int32_t FRESH_PORT = 40; // touched by no hostile input

class HostileInputTest : public FaultTest {
  protected:
    void SetUp() override {
        FaultTest::SetUp();
        // A TCP port beside the Unix socket: the hostile writer's commands
        // are told from the daemon's by where they come from.
        port_ = testsupport::free_loopback_port();
        server().stop();
        server().set_extra_args({"--port", std::to_string(port_), "--bind", "127.0.0.1"});
        server().start();
    }

    // The load-complete marker, written and awaited over TCP, so that the
    // Unix socket carries the daemon's commands only.
    // `after` says what was written last, for the failure message.
    void tcp_barrier(tcp_client &c, const std::string &after = "") {
        const std::string value = std::to_string(++barrier_value_);
        const std::string key = key_text(family_key(key_family::data_end));
        c.run(DB_CONFIG, {"SET", key, value});
        bool copied = false;
        testsupport::eventually(
            [&] {
                const testsupport::reply_ptr r = c.run(DB_STATE, {"GET", key});
                copied = r->type == REDIS_REPLY_STRING && std::string(r->str, r->len) == value;
                return copied || !daemon().running();
            },
            integration::patience(30s), 1ms);
        ASSERT_TRUE(daemon().running()) << "the daemon died after " << after << "\n"
                                        << daemon().stderr_text();
        ASSERT_TRUE(copied) << "the daemon did not copy the load-complete marker " << value
                            << " after " << after;
    }

    static std::string shown(const hostile_input &in) {
        std::string out = "db" + std::to_string(in.db);
        for (const std::string &a : in.argv) {
            out += " \"";
            for (std::size_t i = 0; i < a.size() && i < 80; ++i) {
                const auto c = static_cast<unsigned char>(a[i]);
                if (c >= 0x20 && c < 0x7f) {
                    out.push_back(static_cast<char>(c));
                } else {
                    char hex[5];
                    std::snprintf(hex, sizeof hex, "\\x%02x", c);
                    out += hex;
                }
            }
            out += a.size() > 80 ? "...\"" : "\"";
        }
        return out;
    }

    static bool is_daemons(const monitored_command &c) {
        return c.source == "lua" || c.source.rfind("unix:", 0) == 0;
    }

    // The last commands the monitor saw, for a failure message.
    static std::string last_seen(const command_monitor &m) {
        const std::vector<monitored_command> all = m.commands();
        std::string out = std::to_string(all.size()) + " commands seen; the last ones:\n";
        for (std::size_t i = all.size() > 15 ? all.size() - 15 : 0; i < all.size(); ++i) {
            out += "  " + all[i].source + " db" + std::to_string(all[i].db);
            for (const std::string &a : all[i].argv) {
                out += " \"" + a.substr(0, 60) + "\"";
            }
            out += "\n";
        }
        return out;
    }

    int port_ = 0;
};

TEST_F(HostileInputTest, DaemonStaysInsideItsKeysAndStillJoins) {
    start();
    ASSERT_NO_FATAL_FAILURE(configure_switch());

    command_monitor monitor(server().socket_path());
    tcp_client writer(port_);
    const std::vector<hostile_input> inputs = hostile_inputs();
    // One at a time: the daemon fetches a value when its handler runs, so
    // a value overwritten or deleted before that would never be read.
    for (const hostile_input &in : inputs) {
        writer.run(in.db, in.argv);
        ASSERT_NO_FATAL_FAILURE(tcp_barrier(writer, shown(in)));
    }
    ASSERT_TRUE(daemon().running()) << daemon().stderr_text();

    // Read again by a re-synchronisation, with what is left of them in place.
    const std::size_t before_kill = monitor.size();
    writer.run(DB_STATE, {"CLIENT", "KILL", "TYPE", "pubsub"});
    const std::string marker = key_text(family_key(key_family::data_end));
    ASSERT_TRUE(testsupport::eventually(
        [&] {
            return monitor.any_since(before_kill, [&](const monitored_command &c) {
                return is_daemons(c) && c.argv.size() > 3 && c.argv[0] == "SCAN" &&
                       c.argv[3] == marker;
            });
        },
        integration::patience(15s)))
        << "no re-synchronisation after the subscription was killed; " << last_seen(monitor);
    ASSERT_NO_FATAL_FAILURE(tcp_barrier(writer));

    // A clean slate and a plain configuration: a phone joins its port.
    writer.run(DB_STATE, {"FLUSHALL"});
    writer.run(DB_CONFIG, {"SET", key_text(vid_key(VOICE_VLAN)), ""});
    writer.run(DB_CONFIG, {"SET", key_text(oui_oper_key(OUI_A.oui, OUI_A.mask)), oui_value(OUI_A)});
    writer.run(DB_CONFIG, {"SET", key_text(port_oper_key(FRESH_PORT, PORT_MODE_AUTO)),
                           port_value(FRESH_PORT, PORT_MODE_AUTO)});
    writer.run(DB_STATE, {"SET",
                          key_text(mac_learning_key(VOICE_VLAN, phyid_of(FRESH_PORT),
                                                    device(OUI_A.oui, 0x5555))),
                          ""});
    ASSERT_NO_FATAL_FAILURE(tcp_barrier(writer));
    const testsupport::reply_ptr join =
        writer.run(DB_CONFIG, {"GET", key_text(join_request_key(FRESH_PORT))});
    ASSERT_EQ(join->type, REDIS_REPLY_STRING);
    EXPECT_EQ(std::string(join->str, join->len), join_request_value(FRESH_PORT));
    const testsupport::reply_ptr mode2 =
        writer.run(DB_STATE, {"GET", key_text(port_oper_key(FRESH_PORT, PORT_MODE_JOINED))});
    EXPECT_EQ(mode2->type, REDIS_REPLY_STRING);

    // Everything the daemon sent meanwhile, up to the last marker.
    writer.run(DB_STATE, {"ECHO", "end of the hostile inputs"});
    ASSERT_TRUE(testsupport::eventually(
        [&] {
            return monitor.seen({"ECHO", "end of the hostile inputs"});
        },
        10s));
    long daemons = 0;
    long outside = 0;
    for (const monitored_command &c : monitor.commands()) {
        if (!is_daemons(c)) {
            continue;
        }
        ++daemons;
        if (const std::optional<std::string> why = outside_key_set(c)) {
            if (++outside <= 20) {
                std::string shown;
                for (const std::string &a : c.argv) {
                    shown += " \"" + a.substr(0, 100) + "\"";
                }
                ADD_FAILURE() << "outside the daemon's key set (" << *why << "): db" << c.db
                              << shown;
            }
        }
    }
    EXPECT_EQ(outside, 0);
    EXPECT_EQ(monitor.unparsed(), 0);
    EXPECT_GT(daemons, 500) << "the monitor saw too little of the daemon to judge it";
    std::cout << "hostile inputs tried: " << inputs.size()
              << "; commands the daemon sent: " << daemons << ", outside its key set: " << outside
              << "\n";

    ASSERT_TRUE(daemon().running()) << daemon().stderr_text();
    expect_no_sanitizer_report();
}

} // namespace
} // namespace faults
