// SPDX-License-Identifier: BSD-3-Clause
#include "port_map.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fstream>

namespace sdm {
namespace {

constexpr uint32_t FRONT_PANEL_PORTS = 53;

bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\r';
}

// Splits a line into its whitespace-separated fields.
std::vector<std::string> fields_of(const std::string &line) {
    std::vector<std::string> fields;
    size_t at = 0;
    while (at < line.size()) {
        while (at < line.size() && is_blank(line[at])) {
            ++at;
        }
        const size_t start = at;
        while (at < line.size() && !is_blank(line[at])) {
            ++at;
        }
        if (at > start) {
            fields.push_back(line.substr(start, at - start));
        }
    }
    return fields;
}

// Decimal digits only, optionally after a minus sign, and within [low, high].
bool parse_decimal(const std::string &text, long long low, long long high, long long &value) {
    const size_t digits = text.starts_with('-') ? 1 : 0;
    if (text.size() == digits ||
        text.find_first_not_of("0123456789", digits) != std::string::npos) {
        return false;
    }
    errno = 0;
    char *end = nullptr;
    value = std::strtoll(text.c_str(), &end, 10);
    return errno == 0 && *end == '\0' && value >= low && value <= high;
}

} // namespace

port_map port_map::front_panel() {
    std::vector<port_map_entry> entries;
    for (uint32_t phyid = 1; phyid <= FRONT_PANEL_PORTS; ++phyid) {
        entries.push_back({phyid, phyid - 1});
    }
    return port_map(std::move(entries));
}

// The first entry whose `from` field is `key` gives its `to` field.
bool port_map::lookup(uint32_t port_map_entry::*from, uint32_t port_map_entry::*to, uint32_t key,
                      uint32_t &out) const noexcept {
    const auto it = std::find_if(entries_.begin(), entries_.end(),
                                 [&](const port_map_entry &e) { return e.*from == key; });
    if (it == entries_.end()) {
        return false;
    }
    out = (*it).*to;
    return true;
}

bool port_map::ifx_of(uint32_t phyid, uint32_t &ifx) const noexcept {
    return lookup(&port_map_entry::phyid, &port_map_entry::ifx, phyid, ifx);
}

bool port_map::phyid_of(uint32_t ifx, uint32_t &phyid) const noexcept {
    return lookup(&port_map_entry::ifx, &port_map_entry::phyid, ifx, phyid);
}

bool load_port_map(const std::string &path, std::vector<port_map_entry> &entries,
                   std::string &error) {
    std::ifstream file(path);
    if (!file) {
        error = path + ": cannot be read";
        return false;
    }
    entries.clear();
    std::string line;
    for (unsigned number = 1; std::getline(file, line); ++number) {
        const std::vector<std::string> fields = fields_of(line);
        if (fields.empty() || fields.front().starts_with('#')) {
            continue;
        }
        const std::string where = path + ":" + std::to_string(number) + ": ";
        long long phyid = 0;
        long long ifx = 0;
        if (fields.size() != 2 || !parse_decimal(fields[0], 0, UINT32_MAX, phyid) ||
            !parse_decimal(fields[1], INT32_MIN, UINT32_MAX, ifx)) {
            error = where + "expected \"<phyid> <ifx>\" in decimal, found \"" + line + "\"";
            return false;
        }
        if (entries.size() == port_map::MAX_ENTRIES) {
            error = where + "more than " + std::to_string(port_map::MAX_ENTRIES) + " entries";
            return false;
        }
        // A negative ifx is kept as its two's complement, as the switch's
        // 32-bit interface indexes are.
        entries.push_back(
            {static_cast<uint32_t>(phyid), static_cast<uint32_t>(static_cast<int64_t>(ifx))});
    }
    if (file.bad()) {
        error = path + ": read error";
        return false;
    }
    return true;
}

} // namespace sdm
