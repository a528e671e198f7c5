// SPDX-License-Identifier: BSD-3-Clause
// OUI vendor names from the IEEE registry files that Debian's ieee-data
// package installs. Optional: without the files every name is unknown.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "wire/mac_addr.h"

// Where the registry files are; VVLANCTL_IEEE_DATA overrides it.
inline constexpr const char *IEEE_DATA_DIR = "/usr/share/ieee-data";

class vendor_names {
  public:
    // Reads the MA-L registry (oui.csv) once, keeping only the names of
    // the given addresses' first three bytes.
    explicit vendor_names(const std::vector<mac_addr> &wanted);
    // The organisation that holds the address's first three bytes.
    std::optional<std::string> of(const mac_addr &m) const;

  private:
    std::map<std::string, std::string> names_; // "00E0BB" -> name
};
