// SPDX-License-Identifier: BSD-3-Clause
// The write convention: announce, command, complete.
#include <cstring>

#include "bus/bus_write.h"
#include "daemon_test.h"
#include "wire/key_buf.h"

using namespace fake;
using ::testing::ElementsAre;

namespace {

class BusWriteTest : public DaemonTest {};

TEST_F(BusWriteTest, SetIntIsAnnouncedIssuedAndCompleted) {
    bus_set_int(0, "/bridge/vvlan/data/end", 17);
    const std::vector<bus_call> calls = bus().calls();
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[0].op, "out_log");
    EXPECT_EQ(calls[0].key, "/bridge/vvlan/data/end");
    EXPECT_EQ(calls[0].args, (std::vector<int32_t>{0, 1}));
    EXPECT_EQ(calls[0].db, 0);
    EXPECT_EQ(calls[1].op, "command");
    EXPECT_EQ(calls[1].args, (std::vector<int32_t>{1, -1, 0}));
    EXPECT_EQ(calls[1].argv, (std::vector<std::string>{"SET", "/bridge/vvlan/data/end", "17"}));
    EXPECT_EQ(calls[2].op, "out_log_stat");
    EXPECT_EQ(calls[2].handle, calls[0].handle);
}

TEST_F(BusWriteTest, DelIsAnnouncedAsOperation1) {
    bus_del(1, "/bri/mac/macTblDyn_vvlan/5");
    const std::vector<bus_call> calls = bus().calls();
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[0].args, (std::vector<int32_t>{1, 1}));
    EXPECT_EQ(calls[0].db, 1);
    EXPECT_EQ(calls[1].db, 1);
    EXPECT_EQ(calls[1].argv, (std::vector<std::string>{"DEL", "/bri/mac/macTblDyn_vvlan/5"}));
}

TEST_F(BusWriteTest, NoCompletionWithoutAHandle) {
    bus().set_out_log_returns_none(true);
    bus_set_u16(0, "/bridge/vvlan/mvlan_oui_msg/3", 3);
    const std::vector<bus_call> calls = bus().calls();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].op, "out_log");
    EXPECT_EQ(calls[0].handle, -1);
    EXPECT_EQ(calls[1].op, "command");
}

TEST_F(BusWriteTest, FormatsRenderAsTheServerSeesThem) {
    const uint8_t raw[] = {0x00, 0x05, 0x00, 0xff};
    bus_set_u16(0, "k1", 65535);
    bus_set_raw(0, "k2", raw, sizeof raw);
    bus_set_int(0, "k3", -3);
    EXPECT_THAT(bus().writes(), ElementsAre(set_write(0, "k1", "65535"),
                                            set_write(0, "k2", bytes({0x00, 0x05, 0x00, 0xff})),
                                            set_write(0, "k3", "-3")));
}

TEST_F(BusWriteTest, KeysAreCutAt127Characters) {
    const std::string longer(200, 'x');
    const key_buf key = key_printf("%s%s", "/bridge/vvlan/", longer.c_str());
    EXPECT_EQ(std::strlen(key.c_str()), 127u);
    EXPECT_EQ(key.text[127], '\0');
}

TEST_F(BusWriteTest, KeyBufferStartsCleared) {
    const key_buf key = key_printf("%s", "abc");
    for (std::size_t i = 3; i < key.text.size(); ++i) {
        ASSERT_EQ(key.text[i], '\0') << i;
    }
}

} // namespace
