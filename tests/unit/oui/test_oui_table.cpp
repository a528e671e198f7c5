// SPDX-License-Identifier: BSD-3-Clause
// The untraced OUI walk against the plain one it replaces on the learning
// path: same slot for every address, on tables with gaps, disabled slots that
// keep their bytes, masks of every shape and several matching slots.
#include <gtest/gtest.h>

#include <random>

#include "oui/oui_table.h"
#include "wire/mac_addr.h"

namespace {

// The walk as the traced path makes it: record by record, field by field.
std::size_t plain_first_match(const mac_addr &address) {
    for (std::size_t i = 0; i < VVLAN_OUI_MAX; ++i) {
        const vvlan_oui_oper &e = g_vvlan_oui_table[i];
        if (e.enable != 0 && (mac_bits(address) & mac_bits(e.mask)) == mac_bits(e.mac)) {
            return i;
        }
    }
    return VVLAN_OUI_MAX;
}

class OuiTableTest : public ::testing::Test {
  protected:
    void SetUp() override { g_vvlan_oui_table = {}; }
    void TearDown() override { g_vvlan_oui_table = {}; }
};

TEST_F(OuiTableTest, EmptyTableMatchesNothing) {
    EXPECT_EQ(oui_first_match(mac_addr{0, 0, 0, 0, 0, 0}), VVLAN_OUI_MAX);
    EXPECT_EQ(oui_first_match(mac_addr{0xff, 0xff, 0xff, 0xff, 0xff, 0xff}), VVLAN_OUI_MAX);
}

TEST_F(OuiTableTest, ADisabledSlotNeverMatchesWhateverItHolds) {
    g_vvlan_oui_table[3] =
        vvlan_oui_oper{{0, 0xe0, 0xbb, 0, 0, 0}, {0xff, 0xff, 0xff, 0, 0, 0}, 0, {}};
    EXPECT_EQ(oui_first_match(mac_addr{0, 0xe0, 0xbb, 1, 2, 3}), VVLAN_OUI_MAX);
    g_vvlan_oui_table[3].enable = 1;
    EXPECT_EQ(oui_first_match(mac_addr{0, 0xe0, 0xbb, 1, 2, 3}), 3U);
}

// Every byte counts: the fourth to sixth under a full mask, and the last
// slot of the table.
TEST_F(OuiTableTest, AllSixBytesAreComparedUpToTheLastSlot) {
    const mac_addr full{0xff, 0xff, 0xff, 0xff, 0xff, 0xff};
    g_vvlan_oui_table[VVLAN_OUI_MAX - 1] = vvlan_oui_oper{{1, 2, 3, 4, 5, 6}, full, 1, {}};
    EXPECT_EQ(oui_first_match(mac_addr{1, 2, 3, 4, 5, 6}), VVLAN_OUI_MAX - 1);
    for (std::size_t b = 0; b < 6; ++b) {
        mac_addr other{1, 2, 3, 4, 5, 6};
        other[b] ^= 0x80;
        EXPECT_EQ(oui_first_match(other), VVLAN_OUI_MAX) << "byte " << b;
    }
}

TEST_F(OuiTableTest, AgreesWithThePlainWalkOnRandomTables) {
    std::mt19937 rng(20261123);
    std::uniform_int_distribution<int> byte(0, 255);
    std::uniform_int_distribution<int> few(0, 3);
    const std::array<mac_addr, 4> masks = {{{0xff, 0xff, 0xff, 0, 0, 0},
                                            {0xff, 0xff, 0xff, 0xff, 0xff, 0xff},
                                            {0xff, 0xf0, 0, 0, 0, 0x0f},
                                            {0, 0, 0, 0, 0, 0}}};
    std::size_t matched = 0;
    for (int table = 0; table < 200; ++table) {
        g_vvlan_oui_table = {};
        for (auto &e : g_vvlan_oui_table) {
            if (few(rng) == 0) {
                continue;
            }
            e.mask = masks[static_cast<std::size_t>(few(rng))];
            if (e.mask == masks[3] && few(rng) != 0) {
                e.mask = masks[0]; // an all-zero mask matches everything: rarely
            }
            for (std::size_t b = 0; b < 6; ++b) {
                e.mac[b] =
                    static_cast<uint8_t>(byte(rng) & e.mask[b] & (few(rng) == 0 ? 0xff : 0x03));
            }
            e.enable = few(rng) == 0 ? 0 : 1;
            e.extra[0] = static_cast<uint8_t>(byte(rng));
        }
        for (int probe = 0; probe < 200; ++probe) {
            mac_addr address{};
            for (auto &b : address) {
                b = static_cast<uint8_t>(byte(rng) & (few(rng) == 0 ? 0xff : 0x03));
            }
            const std::size_t expected = plain_first_match(address);
            ASSERT_EQ(oui_first_match(address), expected)
                << "table " << table << ", probe " << probe;
            matched += expected != VVLAN_OUI_MAX ? 1 : 0;
        }
    }
    EXPECT_GT(matched, 1000U) << "the probes must hit as well as miss";
}

} // namespace
