// SPDX-License-Identifier: BSD-3-Clause
// The fixture of vvlanctl's tests: a private redis-server and the real
// daemon (from the integration tests' fixture), and vvlanctl run against
// them as an operator would.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "tool_process.h"
#include "voice_vlan_fixture.h"

namespace ctltest {

using namespace std::chrono_literals;

class CtlTest : public integration::VoiceVlanTest {
  protected:
    // vvlanctl -s <this test's socket> args...
    tool_result ctl(std::vector<std::string> args, std::map<std::string, std::string> env = {}) {
        args.insert(args.begin(), {"-s", server().socket_path()});
        return run_tool(server().dir(), args, env, integration::patience(20s));
    }
    // The same, and the test fails unless the status is 0.
    tool_result ok(std::vector<std::string> args, std::map<std::string, std::string> env = {}) {
        tool_result r = ctl(args, env);
        EXPECT_EQ(r.status, 0) << join(args) << "\n" << r.err;
        return r;
    }
    static std::string join(const std::vector<std::string> &args) {
        std::string out = "vvlanctl";
        for (const std::string &a : args) {
            out += " " + a;
        }
        return out;
    }
    // Set, title, clear-screen and colour sequences, as a hostile writer of
    // a key would send them to the operator's terminal.
    static inline const std::string HOSTILE = "\x1b]0;pwned\x07\x1b[2J\x1b[31m";
    // What vvlanctl prints of HOSTILE instead.
    static inline const std::string HOSTILE_ESCAPED = "\\x1b]0;pwned\\x07\\x1b[2J\\x1b[31m";
    // Any byte but a newline that a terminal would not print as it is.
    static bool has_control_bytes(const std::string &text) {
        for (const char c : text) {
            const auto b = static_cast<unsigned char>(c);
            if ((b < 0x20 && b != '\n') || b >= 0x7f) {
                return true;
            }
        }
        return false;
    }

    // vvlanctl sync: everything written before has been handled.
    void sync() { ok({"sync", "--timeout", "60"}); }

    // Every key and value of both databases, for "nothing changed".
    std::map<std::string, std::string> dump() {
        std::map<std::string, std::string> out;
        for (int db : {0, 1}) {
            for (const std::string &key : redis().keys(db, "*")) {
                out[std::to_string(db) + " " + key] = redis().get(db, key).value_or("(none)");
            }
        }
        return out;
    }

    // "kind port N" (or "kind") of every finding in check's text output.
    static std::vector<std::string> kinds(const std::string &text) {
        std::vector<std::string> out;
        std::size_t start = 0;
        while (start < text.size()) {
            std::size_t end = text.find('\n', start);
            if (end == std::string::npos) {
                end = text.size();
            }
            const std::string line = text.substr(start, end - start);
            start = end + 1;
            if (line.rfind("  ", 0) == 0) {
                continue; // a finding's advice
            }
            out.push_back(line.substr(0, line.find(':')));
        }
        return out;
    }

    // The usual configuration: voice VLAN 100, OUI 00:e0:bb, port 5
    // automatic.
    void configure() {
        ok({"set", "vid", "100"});
        ok({"add", "oui", "00e0bb000000"});
        ok({"set", "auto", "5"});
        sync();
    }
    // A phone on port 5 (phyid 6), and its port joined.
    void phone_joins() {
        ok({"learn", "100", "6", "00:e0:bb:12:34:56"});
        sync();
        ASSERT_TRUE(db1(join_key(5)).has_value());
        ASSERT_TRUE(db0(port_key(5, 2)).has_value());
    }
};

} // namespace ctltest
