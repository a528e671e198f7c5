// SPDX-License-Identifier: BSD-3-Clause
#include "wire/mac_addr.h"

#include <cstdio>

#include "wire/key_scan.h"

std::array<char, 13> mac_hex12(const mac_addr &mac) {
    std::array<char, 13> out{};
    std::snprintf(out.data(), out.size(), "%02x%02x%02x%02x%02x%02x", MAC_ARGS(mac));
    return out;
}

std::array<char, 18> mac_colon(const mac_addr &mac) {
    std::array<char, 18> out{};
    std::snprintf(out.data(), out.size(), "%02x:%02x:%02x:%02x:%02x:%02x", MAC_ARGS(mac));
    return out;
}

bool mac_parse(std::string_view text, mac_addr *mac) {
    mac_addr out{};
    std::size_t stride = 0;
    char sep = '\0';
    if (text.size() == 12) {
        stride = 2;
    } else if (text.size() == 17 && (text[2] == ':' || text[2] == '-')) {
        stride = 3;
        sep = text[2];
    } else {
        return false;
    }
    for (std::size_t k = 0; k < out.size(); ++k) {
        const std::size_t at = k * stride;
        if (!hex_byte(text[at], text[at + 1], &out[k])) {
            return false;
        }
        if (sep != '\0' && k + 1 < out.size() && text[at + 2] != sep) {
            return false;
        }
    }
    *mac = out;
    return true;
}
