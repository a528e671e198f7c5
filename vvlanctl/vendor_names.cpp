// SPDX-License-Identifier: BSD-3-Clause
#include "vendor_names.h"

#include <cstdio>
#include <cstdlib>
#include <set>

namespace {

std::string prefix_of(const mac_addr &m) {
    char buf[7];
    std::snprintf(buf, sizeof buf, "%02X%02X%02X", m[0], m[1], m[2]);
    return buf;
}

// One field of a CSV line from at, quotes and doubled quotes undone; at
// moves past the comma.
std::string csv_field(const std::string &line, std::size_t *at) {
    std::string out;
    std::size_t i = *at;
    if (i < line.size() && line[i] == '"') {
        for (++i; i < line.size(); ++i) {
            if (line[i] == '"') {
                if (i + 1 < line.size() && line[i + 1] == '"') {
                    out += '"';
                    ++i;
                } else {
                    ++i;
                    break;
                }
            } else {
                out += line[i];
            }
        }
    } else {
        while (i < line.size() && line[i] != ',') {
            out += line[i++];
        }
    }
    *at = i < line.size() ? i + 1 : i;
    return out;
}

} // namespace

vendor_names::vendor_names(const std::vector<mac_addr> &wanted) {
    if (wanted.empty()) {
        return;
    }
    std::set<std::string> want;
    for (const mac_addr &m : wanted) {
        want.insert(prefix_of(m));
    }
    const char *dir = std::getenv("VVLANCTL_IEEE_DATA");
    const std::string path =
        std::string(dir != nullptr && dir[0] != '\0' ? dir : IEEE_DATA_DIR) + "/oui.csv";
    FILE *f = std::fopen(path.c_str(), "r");
    if (f == nullptr) {
        return;
    }
    std::string line;
    char buf[512];
    while (std::fgets(buf, sizeof buf, f) != nullptr) {
        line += buf;
        if (line.empty() || line.back() != '\n') {
            continue; // a longer line: read on
        }
        line.pop_back();
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        std::size_t at = 0;
        csv_field(line, &at); // Registry
        const std::string assignment = csv_field(line, &at);
        if (want.count(assignment) != 0) {
            names_[assignment] = csv_field(line, &at);
        }
        line.clear();
    }
    std::fclose(f);
}

std::optional<std::string> vendor_names::of(const mac_addr &m) const {
    const auto it = names_.find(prefix_of(m));
    if (it == names_.end()) {
        return std::nullopt;
    }
    return it->second;
}
