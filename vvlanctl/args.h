// SPDX-License-Identifier: BSD-3-Clause
// Checking a command's arguments before anything is written. Each checker
// gives the value, or false with a one-line reason that names the argument.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "wire/mac_addr.h"

// A decimal number in min..max: digits only, no sign, no blanks.
bool arg_number(std::string_view name, const std::string &text, uint32_t min, uint32_t max,
                uint32_t *out, std::string *why);
// An address: 12 hexadecimal digits, six pairs separated by ':' or '-', or
// three groups of four separated by '.' (aabb.ccdd.eeff, as most switch
// command lines print them).
bool arg_mac(std::string_view name, const std::string &text, mac_addr *out, std::string *why);
// A voice OUI and its mask as they would be written (the OUI masked): the
// mask may not be zero (every address would match) and the masked OUI may
// be neither zero nor a group address (no phone sends from either).
bool arg_oui_mask(const std::string &oui_text, const std::string &mask_text, const mac_addr &oui,
                  const mac_addr &mask, std::string *why);
// A physical port id that the device manager knows; *ifx is its port.
bool arg_phyid(std::string_view name, const std::string &text, uint32_t *phyid, uint32_t *ifx,
               std::string *why);
// The number of arguments a command takes: exactly n, or min..max.
bool arg_count(std::size_t have, std::size_t min, std::size_t max, const std::string &usage,
               std::string *why);

// Voice VLAN ids and VLANs of learned addresses.
inline constexpr uint32_t VLAN_MIN = 1;
inline constexpr uint32_t VLAN_MAX = 4094;
