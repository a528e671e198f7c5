// SPDX-License-Identifier: BSD-3-Clause
// vvlanctl replay run by a test: this tree's tool, on a PC, whichever
// daemon it plays to (the target's under the emulator too, which run_tool
// would run the target's tool for), with the fixture's redis-server binary
// and a TMPDIR of the test's own.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "ctl_fixture.h"
#include "recording_file.h"
#include "wire/key_parse.h"

namespace ctltest {

std::string read_file(const std::string &path);

struct pc_tool {
    pid_t pid = -1;
    std::string out;
    std::string err;
};

pc_tool start_pc_tool(const std::string &dir, const std::vector<std::string> &args,
                      const std::string &tmp);
// Its status and output; SIGTERM at the deadline (replay stops its daemon
// and server on it) and status -1.
tool_result wait_pc_tool(const pc_tool &t, std::chrono::milliseconds deadline);

class ReplayRunnerTest : public CtlTest {
  protected:
    // Every key of the families in both databases, as a snapshot holds them.
    rec::keyspace capture() {
        rec::keyspace out;
        for (const int db : {0, 1}) {
            for (const std::string &key : redis().keys(db, "*")) {
                const auto v = redis().get(db, key);
                if (v && family_of_key(key)) {
                    out[{db, key}] = {rec::value_kind::string, *v, rec::NO_TTL};
                }
            }
        }
        return out;
    }

    std::string trace_path() { return server().dir() + "/replay.trace"; }

    // vvlanctl replay ... -- <the daemon under test>, with this test's
    // redis-server binary and a TMPDIR of the test's own.
    pc_tool start_replay(const std::vector<std::string> &args) {
        std::vector<std::string> argv = {"replay", "--redis-server", server_bin(), "--trace",
                                         trace_path()};
        argv.insert(argv.end(), args.begin(), args.end());
        argv.push_back("--");
        const auto &config = integration::daemon_config::get();
        argv.insert(argv.end(), config.emulator.begin(), config.emulator.end());
        argv.push_back(config.daemon);
        std::filesystem::create_directories(tmp_dir());
        return start_pc_tool(server().dir(), argv, tmp_dir());
    }
    tool_result replay(const std::vector<std::string> &args) {
        return wait_pc_tool(start_replay(args), integration::patience(60s));
    }
    std::string tmp_dir() { return server().dir() + "/tmp"; }
    // The fixture's server as it was started (its argv[0]: redis-server
    // tells its tools apart by the name it is run under, so not /proc's exe).
    std::string server_bin() {
        std::ifstream in("/proc/" + std::to_string(server().pid()) + "/cmdline");
        std::string argv0;
        std::getline(in, argv0, '\0');
        return argv0.substr(0, argv0.find(' ')); // the server retitles itself
    }
};

} // namespace ctltest
