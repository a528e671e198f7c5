// SPDX-License-Identifier: BSD-3-Clause
// The table between the forwarding layer's physical port ids and the
// switch's interface indexes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace sdm {

struct port_map_entry {
    uint32_t phyid;
    uint32_t ifx;
};

class port_map {
  public:
    // The switch's front panel: phyid p is ifx p-1 for 1 <= p <= 53.
    static port_map front_panel();

    // A table holds at most this many entries, as on the switch.
    static constexpr size_t MAX_ENTRIES = 256;

    explicit port_map(std::vector<port_map_entry> entries) : entries_(std::move(entries)) {}

    // Both directions take the first entry that matches, so a file that maps
    // two phyids to one ifx reads back as its earlier line.
    bool ifx_of(uint32_t phyid, uint32_t &ifx) const noexcept;
    bool phyid_of(uint32_t ifx, uint32_t &phyid) const noexcept;

  private:
    bool lookup(uint32_t port_map_entry::*from, uint32_t port_map_entry::*to, uint32_t key,
                uint32_t &out) const noexcept;
    std::vector<port_map_entry> entries_;
};

// Reads a map file of lines "<phyid> <ifx>" in decimal; blank lines and lines
// starting with '#' are skipped. ifx may be negative or above 2^31 and is
// kept as its 32-bit two's complement. False with error naming the file and
// line when the file cannot be read, a line is malformed or there are more
// than MAX_ENTRIES entries.
bool load_port_map(const std::string &path, std::vector<port_map_entry> &entries,
                   std::string &error);

} // namespace sdm
