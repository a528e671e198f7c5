// SPDX-License-Identifier: BSD-3-Clause
#include "oui/oui_table.h"

#include <bit>
#include <cstddef>
#include <cstring>

std::array<vvlan_oui_oper, VVLAN_OUI_MAX> g_vvlan_oui_table{};

namespace {

// The record's bytes as the walk reads them; no padding between the fields.
static_assert(offsetof(vvlan_oui_oper, mac) == 0);
static_assert(offsetof(vvlan_oui_oper, mask) == 6);
static_assert(offsetof(vvlan_oui_oper, enable) == 12);
static_assert(sizeof(vvlan_oui_oper) >= 14);

// The six address bytes of a word loaded from memory: the low end of a
// little-endian word, the high end of a big-endian one.
constexpr uint64_t SIX_BYTES =
    std::endian::native == std::endian::little ? 0x0000ffffffffffffULL : 0xffffffffffff0000ULL;

uint64_t load_word(const unsigned char *bytes) noexcept {
    uint64_t word = 0;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

} // namespace

std::size_t oui_first_match(const mac_addr &address) noexcept {
    std::array<unsigned char, 8> padded{};
    std::memcpy(padded.data(), address.data(), address.size());
    const uint64_t wanted = load_word(padded.data());
    for (std::size_t i = 0; i < VVLAN_OUI_MAX; ++i) {
        const auto *bytes = reinterpret_cast<const unsigned char *>(&g_vvlan_oui_table[i]);
        const uint64_t mac = load_word(bytes);      // mac, then mask[0..1]
        const uint64_t mask = load_word(bytes + 6); // mask, then enable, extra[0]
        if ((((wanted & mask) ^ mac) & SIX_BYTES) == 0 && g_vvlan_oui_table[i].enable != 0) {
            return i;
        }
    }
    return VVLAN_OUI_MAX;
}
