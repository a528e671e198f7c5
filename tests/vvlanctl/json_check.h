// SPDX-License-Identifier: BSD-3-Clause
// Checking vvlanctl's JSON output against its schema files, with the tests'
// validator (Debian's python3-jsonschema).
#pragma once

#include <cstdlib>
#include <fstream>
#include <string>

namespace ctltest {

// Writes text to dir/name and validates it against the schema of command
// (vvlanctl/schema/<command>.schema.json); lines: one document per line.
// Empty when valid, else what the validator said.
inline std::string schema_errors(const std::string &dir, const std::string &name,
                                 const std::string &command, const std::string &text, bool lines) {
    const std::string doc = dir + "/" + name;
    const std::string report = doc + ".report";
    std::ofstream(doc) << text;
    const std::string cmd = std::string("python3 ") + VVLANCTL_TEST_JSON_CHECK +
                            (lines ? " --lines " : " ") + VVLANCTL_TEST_SCHEMA_DIR + "/" + command +
                            ".schema.json " + doc + " > " + report + " 2>&1";
    const int status = std::system(cmd.c_str());
    if (status == 0) {
        return "";
    }
    std::ifstream in(report);
    std::string out((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    return out.empty() ? "validator status " + std::to_string(status) : out;
}

} // namespace ctltest
