// SPDX-License-Identifier: BSD-3-Clause
// Key parsing as the switch's 32-bit C library would do it.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "wire/key_scan.h"

namespace {

TEST(KeyComponent, CountsFromTheFirstComponent) {
    const std::string_view key = "/bri/mac/macTblDyn_vvlan/100/6/00e0bb123456";
    EXPECT_EQ(key_component(key, 1), "bri");
    EXPECT_EQ(key_component(key, 4), "100");
    EXPECT_EQ(key_component(key, 5), "6");
    EXPECT_EQ(key_component(key, 6), "00e0bb123456");
    EXPECT_EQ(key_component(key, 7), "");
    EXPECT_EQ(key_component(key, 0), "");
}

// "%*[^/]" needs at least one character: an empty component stops the scan.
TEST(KeyComponent, EmptyComponentStopsTheScan) {
    EXPECT_EQ(key_component("/bri/mac/macTblDyn_vvlan//6/x", 4), "");
    EXPECT_EQ(key_component("/bri/mac/macTblDyn_vvlan//6/x", 5), "");
    EXPECT_EQ(key_component("bri/mac/x/1", 1), "");
}

TEST(KeyRest, IsTheRestUpToWhiteSpace) {
    const std::string_view key = "/bridge/vvlan/oui_oper/00e0bb000000/ffffff000000";
    EXPECT_EQ(key_rest(key, 4), "00e0bb000000/ffffff000000");
    EXPECT_EQ(key_rest(key, 5), "ffffff000000");
    EXPECT_EQ(key_rest("/a/b/c/ d e", 4), "d");
    EXPECT_EQ(key_rest("/a/b/c/", 4), "");
}

TEST(KeyScan, Uint16TruncatesLikeHu) {
    uint16_t v = 9;
    key_scan a("70000");
    EXPECT_TRUE(a.uint16(&v));
    EXPECT_EQ(v, 70000 & 0xffff);
    key_scan b("-5");
    EXPECT_TRUE(b.uint16(&v));
    EXPECT_EQ(v, 65531);
    // Overflow of the 32-bit unsigned long saturates before truncation.
    key_scan c("99999999999");
    EXPECT_TRUE(c.uint16(&v));
    EXPECT_EQ(v, 0xffff);
    key_scan d(" 100x");
    EXPECT_TRUE(d.uint16(&v));
    EXPECT_EQ(v, 100);
    EXPECT_EQ(d.rest(), "x");
}

TEST(KeyScan, Uint16WithoutDigitsLeavesTheTarget) {
    uint16_t v = 42;
    key_scan a("abc");
    EXPECT_FALSE(a.uint16(&v));
    key_scan b("");
    EXPECT_FALSE(b.uint16(&v));
    key_scan c("-");
    EXPECT_FALSE(c.uint16(&v));
    EXPECT_EQ(v, 42);
}

TEST(KeyScan, Int32SaturatesLikeA32BitLong) {
    int32_t v = 0;
    key_scan a("2147483648");
    EXPECT_TRUE(a.int32(&v));
    EXPECT_EQ(v, INT32_MAX);
    key_scan b("-2147483649");
    EXPECT_TRUE(b.int32(&v));
    EXPECT_EQ(v, INT32_MIN);
    key_scan c("-2147483648");
    EXPECT_TRUE(c.int32(&v));
    EXPECT_EQ(v, INT32_MIN);
    key_scan d("+383/");
    EXPECT_TRUE(d.int32(&v));
    EXPECT_EQ(v, 383);
    EXPECT_TRUE(d.literal("/"));
}

TEST(KeyScan, LiteralAndComponents) {
    key_scan s("/bridge/vvlan/port_oper/7/1");
    int32_t ifx = 0;
    int32_t mode = 0;
    EXPECT_TRUE(s.literal("/bridge/vvlan/port_oper/"));
    EXPECT_TRUE(s.int32(&ifx));
    EXPECT_TRUE(s.literal("/"));
    EXPECT_TRUE(s.int32(&mode));
    EXPECT_EQ(ifx, 7);
    EXPECT_EQ(mode, 1);
    EXPECT_FALSE(key_scan("/bridge").literal("/bridge/vvlan"));
}

TEST(Atoi32, LikeAtoiOnTheTarget) {
    EXPECT_EQ(atoi32("100"), 100);
    EXPECT_EQ(atoi32("  -7"), -7);
    EXPECT_EQ(atoi32("12abc"), 12);
    EXPECT_EQ(atoi32("abc"), 0);
    EXPECT_EQ(atoi32(""), 0);
    EXPECT_EQ(atoi32("99999999999"), INT32_MAX);
    EXPECT_EQ(atoi32("-99999999999"), INT32_MIN);
}

TEST(HexByte, BothDigitsMustBeHex) {
    uint8_t b = 7;
    EXPECT_TRUE(hex_byte('e', '0', &b));
    EXPECT_EQ(b, 0xe0);
    EXPECT_TRUE(hex_byte('F', 'f', &b));
    EXPECT_EQ(b, 0xff);
    EXPECT_FALSE(hex_byte('g', '0', &b));
    EXPECT_FALSE(hex_byte('0', '/', &b));
    EXPECT_EQ(b, 0xff);
}

TEST(MacFromHex, TwelveDigitsFirstByteFirst) {
    std::array<uint8_t, 6> mac{};
    EXPECT_TRUE(mac_from_hex("00e0bb123456/ffff", &mac));
    EXPECT_EQ(mac, (std::array<uint8_t, 6>{0x00, 0xe0, 0xbb, 0x12, 0x34, 0x56}));
}

TEST(MacFromHex, UnconvertiblePairsGiveZero) {
    std::array<uint8_t, 6> mac{1, 1, 1, 1, 1, 1};
    EXPECT_FALSE(mac_from_hex("00e0bb/fffff", &mac));
    EXPECT_EQ(mac, (std::array<uint8_t, 6>{0x00, 0xe0, 0xbb, 0x00, 0xff, 0xff}));
    EXPECT_FALSE(mac_from_hex("00e0", &mac));
    EXPECT_EQ(mac, (std::array<uint8_t, 6>{0x00, 0xe0, 0, 0, 0, 0}));
    EXPECT_FALSE(mac_from_hex("zz", &mac));
    EXPECT_EQ(mac, (std::array<uint8_t, 6>{}));
}

// One pass gives what the component-by-component reads give, for keys of
// every shape a notification may carry.
TEST(KeyWalk, AgreesWithTheSeparateReads) {
    const std::string long_part(100, '7');
    const std::vector<std::string> keys = {
        "/bri/mac/macTblDyn_vvlan/100/6/00e0bb123456",
        "/bri/mac/macTblDyn_vvlan/100/6/",
        "/bri/mac/macTblDyn_vvlan/100/6",
        "/bri/mac/macTblDyn_vvlan/100//00e0bb123456",
        "/bri/mac/macTblDyn_vvlan//6/00e0bb123456",
        "/bri/mac/macTblDyn_vvlan/100/6/00e0 bb",
        "/bri/mac/macTblDyn_vvlan/100/6/ 00e0bb123456/x/y",
        "bri/mac/x/1/2/3",
        "",
        "/",
        "/a/b/c/" + long_part + "/" + long_part + "/" + long_part,
    };
    for (const std::string &key : keys) {
        key_walk walk(key);
        for (int n = 1; n <= 5; ++n) {
            EXPECT_EQ(walk.next(), key_component_bounded(key, n)) << key << " component " << n;
        }
        EXPECT_EQ(walk.rest(), key_rest_bounded(key, 6)) << key;
    }
}

} // namespace
