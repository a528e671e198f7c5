// SPDX-License-Identifier: BSD-3-Clause
// Raw values are big-endian whatever the host's byte order.
#include <gtest/gtest.h>

#include <array>

#include "wire/byte_order.h"

namespace {

TEST(ByteOrder, Put16HighByteFirst) {
    std::array<uint8_t, 2> b{};
    be16_put(b.data(), 0x05A0);
    EXPECT_EQ(b[0], 0x05);
    EXPECT_EQ(b[1], 0xA0);
}

TEST(ByteOrder, Put32HighByteFirst) {
    std::array<uint8_t, 4> b{};
    be32_put(b.data(), 0x01020304u);
    EXPECT_EQ(b, (std::array<uint8_t, 4>{1, 2, 3, 4}));
}

TEST(ByteOrder, GetIsTheInverseOfPut) {
    std::array<uint8_t, 4> b{};
    for (uint32_t v : {0u, 1u, 0x7fu, 0x80u, 0xffffu, 0x12345678u, 0xffffffffu}) {
        be32_put(b.data(), v);
        EXPECT_EQ(be32_get(b.data()), v);
        be16_put(b.data(), static_cast<uint16_t>(v));
        EXPECT_EQ(be16_get(b.data()), static_cast<uint16_t>(v));
    }
}

TEST(ByteOrder, GetReadsHighByteFirst) {
    const std::array<uint8_t, 4> b{0x00, 0x1E, 0xAB, 0xCD};
    EXPECT_EQ(be16_get(b.data()), 30);
    EXPECT_EQ(be32_get(b.data()), 0x001EABCDu);
}

static_assert(be16_get(std::array<uint8_t, 2>{0x05, 0xA0}.data()) == 1440);

} // namespace
