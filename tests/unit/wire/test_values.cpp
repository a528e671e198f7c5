// SPDX-License-Identifier: BSD-3-Clause
// The codec of every value layout. The expected bytes are written out by
// hand, byte by byte, so that a codec bug cannot hide behind itself; the
// field tables that the key reference prints are checked against the same
// bytes.
#include <cstdint>
#include <set>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "wire/values.h"

namespace {

using bytes = std::vector<uint8_t>;

template <std::size_t N>
bytes as_vector(const std::array<uint8_t, N> &a) {
    return bytes(a.begin(), a.end());
}

const mac_addr MAC{0x00, 0xe0, 0xbb, 0x12, 0x34, 0x56};
const mac_addr MASK{0xff, 0xff, 0xff, 0x00, 0x00, 0x00};

vvlan_oui_oper oui_record() {
    vvlan_oui_oper r{MAC, MASK, 1, {}};
    for (std::size_t i = 0; i < r.extra.size(); ++i) {
        r.extra[i] = static_cast<uint8_t>(0x40 + i);
    }
    return r;
}

bytes oui_record_bytes() {
    bytes b{0x00, 0xe0, 0xbb, 0x12, 0x34, 0x56, 0xff, 0xff, 0xff, 0x00, 0x00, 0x00, 0x01};
    for (int i = 0; i < 31; ++i) {
        b.push_back(static_cast<uint8_t>(0x40 + i));
    }
    return b;
}

TEST(Values, PortOperIsBigEndianWithPadding) {
    const bytes golden{0x01, 0x02, 0x03, 0x04, 0x09, 0x00, 0x00, 0x00, 0x0a, 0x0b, 0x0c, 0x0d};
    const vvlan_port_oper v{0x01020304, 9, 0x0A0B0C0D};
    EXPECT_EQ(as_vector(port_oper_codec::encode(v)), golden);
    const auto back = port_oper_codec::decode(golden.data());
    EXPECT_EQ(back.ifx, v.ifx);
    EXPECT_EQ(back.enable, v.enable);
    EXPECT_EQ(back.mode, v.mode);
}

TEST(Values, OuiRecordAndItsEcho) {
    EXPECT_EQ(as_vector(oui_oper_codec::encode(oui_record())), oui_record_bytes());
    const auto back = oui_oper_codec::decode(oui_record_bytes().data());
    EXPECT_EQ(back.mac, MAC);
    EXPECT_EQ(back.mask, MASK);
    EXPECT_EQ(back.enable, 1);
    EXPECT_EQ(back.extra[30], 0x40 + 30);

    bytes echo{0x01, 0x02};
    const bytes record = oui_record_bytes();
    echo.insert(echo.end(), record.begin(), record.end());
    EXPECT_EQ(as_vector(oui_echo_codec::encode(oui_echo{0x0102, oui_record()})), echo);
    const auto echo_back = oui_echo_codec::decode(echo.data());
    EXPECT_EQ(echo_back.pre_entry_idx, 0x0102);
    EXPECT_EQ(echo_back.record.mac, MAC);
}

TEST(Values, MacVlanValue) {
    const bytes golden{0xff, 0xff, 0xff, 0xfe, 0x01, 0x02, 0x03, 0x04, 0x00, 0x00,
                       0x00, 0x07, 0x00, 0xe0, 0xbb, 0x12, 0x34, 0x56, 0xff, 0xff,
                       0xff, 0x00, 0x00, 0x00, 0x01, 0x23, 0x06, 0x07, 0x08};
    const mac_vlan_value v{-2, 0x01020304, 7, MAC, MASK, 0x0123, 6, 7, 8};
    EXPECT_EQ(as_vector(mac_vlan_codec::encode(v)), golden);
    const auto back = mac_vlan_codec::decode(golden.data());
    EXPECT_EQ(back.ifx, -2);
    EXPECT_EQ(back.type, 0x01020304);
    EXPECT_EQ(back.oper, 7);
    EXPECT_EQ(back.mac, MAC);
    EXPECT_EQ(back.mask, MASK);
    EXPECT_EQ(back.vid, 0x0123);
    EXPECT_EQ(back.priority, 6);
    EXPECT_EQ(back.flag, 7);
    EXPECT_EQ(back.field, 8);
}

TEST(Values, CosDscpAndItsEcho) {
    EXPECT_EQ(as_vector(cos_dscp_codec::encode({5, 46})), (bytes{0x05, 0x2e}));
    EXPECT_EQ(as_vector(cos_dscp_echo_codec::encode({3, 5, 46})), (bytes{0x00, 0x03, 0x05, 0x2e}));
    const auto back = cos_dscp_echo_codec::decode(bytes{0x01, 0x02, 0x05, 0x2e}.data());
    EXPECT_EQ(back.pre_entry_idx, 0x0102);
    EXPECT_EQ(back.cos, 5);
    EXPECT_EQ(back.dscp, 46);
}

TEST(Values, SmallIntegers) {
    EXPECT_EQ(as_vector(aging_time_codec::encode(1440)), (bytes{0x05, 0xa0}));
    EXPECT_EQ(aging_time_codec::decode(bytes{0x00, 0x1e}.data()), 30);
    EXPECT_EQ(as_vector(join_request_codec::encode(5)), (bytes{0x00, 0x00, 0x00, 0x05}));
    EXPECT_EQ(join_request_codec::decode(bytes{0x01, 0x02, 0x03, 0x04}.data()), 0x01020304u);
    EXPECT_EQ(as_vector(pre_entry_idx_codec::encode(5)), (bytes{0x00, 0x05}));
}

TEST(Values, ShortValuesDecodeToNothing) {
    const bytes eleven(11, 0);
    EXPECT_FALSE(decode_value<port_oper_codec>(eleven));
    EXPECT_TRUE(decode_value<port_oper_codec>(bytes(13, 0)));
    EXPECT_FALSE(decode_value<oui_oper_codec>(bytes(43, 0)));
    EXPECT_FALSE(decode_value<mac_vlan_codec>(bytes(28, 0)));
    EXPECT_FALSE(decode_value<cos_dscp_codec>(bytes(1, 0)));
    EXPECT_FALSE(decode_value<aging_time_codec>(bytes(1, 0)));
    EXPECT_FALSE(decode_value<join_request_codec>(bytes{}));
}

// The field table of a layout covers its bytes exactly, in order, and each
// field's offset and size are where encode puts it: a field whose bytes are
// all 0xff in a record encoded from all-ones values and all 0x00 from zeros.
template <typename Codec>
void expect_fields_tile_the_layout() {
    std::size_t next = 0;
    for (const field_desc &f : Codec::fields) {
        EXPECT_EQ(f.offset, next) << Codec::name << "." << f.name;
        EXPECT_GT(f.size, 0) << Codec::name << "." << f.name;
        next = f.offset + f.size;
    }
    EXPECT_EQ(next, Codec::size) << Codec::name;
}

TEST(Values, FieldTablesTileEveryLayout) {
    expect_fields_tile_the_layout<port_oper_codec>();
    expect_fields_tile_the_layout<oui_oper_codec>();
    expect_fields_tile_the_layout<oui_echo_codec>();
    expect_fields_tile_the_layout<mac_vlan_codec>();
    expect_fields_tile_the_layout<cos_dscp_codec>();
    expect_fields_tile_the_layout<cos_dscp_echo_codec>();
    expect_fields_tile_the_layout<aging_time_codec>();
    expect_fields_tile_the_layout<join_request_codec>();
    expect_fields_tile_the_layout<pre_entry_idx_codec>();
}

// Where the field tables say a field lies, encode puts it.
TEST(Values, FieldTablesMatchTheEncoders) {
    const auto port = port_oper_codec::encode({0x11111111, 0x22, 0x33333333});
    EXPECT_EQ(port[port_oper_codec::fields[0].offset], 0x11);
    EXPECT_EQ(port[port_oper_codec::fields[1].offset], 0x22);
    EXPECT_EQ(port[port_oper_codec::fields[2].offset], 0x00);
    EXPECT_EQ(port[port_oper_codec::fields[3].offset + 3], 0x33);

    const mac_vlan_value mv{0x11, 0x22, 0x33, {0x44}, {0x55}, 0x0066, 0x77, 0x88, 0x99};
    const auto mvb = mac_vlan_codec::encode(mv);
    const std::vector<uint8_t> last_byte_of_each{0x11, 0x22, 0x33, 0x00, 0x00,
                                                 0x66, 0x77, 0x88, 0x99};
    for (std::size_t i = 0; i < mac_vlan_codec::fields.size(); ++i) {
        const field_desc &f = mac_vlan_codec::fields[i];
        EXPECT_EQ(mvb[f.offset + f.size - 1], last_byte_of_each[i]) << f.name;
    }
    EXPECT_EQ(mvb[mac_vlan_codec::fields[3].offset], 0x44);
    EXPECT_EQ(mvb[mac_vlan_codec::fields[4].offset], 0x55);

    const auto oui = oui_oper_codec::encode(oui_record());
    EXPECT_EQ(oui[oui_oper_codec::fields[1].offset], 0xff);
    EXPECT_EQ(oui[oui_oper_codec::fields[2].offset], 0x01);
    EXPECT_EQ(oui[oui_oper_codec::fields[3].offset], 0x40);
    const auto echo = cos_dscp_echo_codec::encode({0x0102, 0x03, 0x04});
    EXPECT_EQ(echo[cos_dscp_echo_codec::fields[1].offset], 0x03);
    EXPECT_EQ(echo[cos_dscp_echo_codec::fields[2].offset], 0x04);
}

} // namespace
