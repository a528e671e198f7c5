// SPDX-License-Identifier: BSD-3-Clause
// Outside judges of vvlanctl's output: the JSON Schema files of the tree,
// through Debian's python3-jsonschema, and Prometheus' promtool.
#pragma once

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

namespace ctltest {

struct verdict {
    int status = -1; // the validator's exit status: 0 valid
    std::string says;
};

// Runs a command line over a file holding text, in dir.
inline verdict judge(const std::string &dir, const std::string &command, const std::string &text) {
    static int serial = 0;
    const std::string base = dir + "/judged" + std::to_string(++serial);
    std::ofstream(base + ".in") << text;
    const std::string line = command + " < '" + base + ".in' > '" + base + ".out' 2>&1";
    const int raw = std::system(line.c_str());
    verdict v;
    v.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    std::ifstream in(base + ".out");
    std::stringstream ss;
    ss << in.rdbuf();
    v.says = ss.str();
    return v;
}

// The text against vvlanctl/schema/<command>.schema.json; lines: one
// document per line (watch --json).
inline verdict schema_check(const std::string &dir, const std::string &command,
                            const std::string &text, bool lines = false) {
    return judge(dir,
                 std::string("/usr/bin/python3 '") + VVLANCTL_TEST_SOURCE_DIR +
                     "/tests/vvlanctl/check_json_schema.py' " + (lines ? "--lines '" : "'") +
                     VVLANCTL_TEST_SOURCE_DIR + "/vvlanctl/schema/" + command + ".schema.json'",
                 text);
}

// The text as node_exporter's textfile collector would read it.
inline verdict promtool_check(const std::string &dir, const std::string &text) {
    return judge(dir, "promtool check metrics", text);
}

} // namespace ctltest
