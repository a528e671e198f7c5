// SPDX-License-Identifier: BSD-3-Clause
// The daemon's only heap memory is the 6-byte masked address of each filled
// MAC-VLAN entry. Run the PC daemon under valgrind through many add and
// delete cycles: nothing may be lost, and exactly the copies of the entries
// still filled at the end may remain.
#include <fstream>
#include <sstream>

#include <csignal>

#include "voice_vlan_fixture.h"

namespace integration {
namespace {

const mac6 PHONE_A{0x00, 0xe0, 0xbb, 0x12, 0x34, 0x56};

// valgrind's loss records, one text block each.
std::vector<std::string> loss_records(const std::string &log) {
    std::vector<std::string> records;
    std::istringstream in(log);
    std::string line;
    std::string current;
    while (std::getline(in, line)) {
        const std::size_t body = line.find("== ");
        const std::string text = body == std::string::npos ? line : line.substr(body + 3);
        if (text.find("in loss record") != std::string::npos) {
            if (!current.empty()) {
                records.push_back(current);
            }
            current = text + "\n";
        } else if (!current.empty()) {
            if (text.empty()) {
                records.push_back(current);
                current.clear();
            } else {
                current += text + "\n";
            }
        }
    }
    if (!current.empty()) {
        records.push_back(current);
    }
    return records;
}

class HeapTest : public VoiceVlanTest {};

TEST_F(HeapTest, MacVlanCopiesAreFreedAfterManyCycles) {
    if (!daemon_config::get().emulator.empty()) {
        GTEST_SKIP() << "valgrind checks the PC build of the daemon";
    }
    if (DOV_VVLAN_SANITIZED) {
        GTEST_SKIP() << "a sanitizer build checks its own leaks";
    }
    const std::string log = server().dir() + "/valgrind.log";
    start_daemon_under({DOV_VVLAN_VALGRIND, "--leak-check=full", "--show-leak-kinds=all",
                        "--num-callers=40", "--errors-for-leak-kinds=definite,indirect",
                        "--log-file=" + log},
                       120s);
    add_oui(OUI_A);
    set_vid(100);
    barrier();
    constexpr int ROUNDS = 50;
    for (int round = 0; round < ROUNDS; ++round) {
        for (int n = 256; n < 264; ++n) {
            set_mvlan(n, PHONE_A, MASK_24, round % 2 == 0 ? 100 : 200);
        }
        barrier();
        for (int n = 256; n < 264; ++n) {
            fwd_del(mvlan_key(n));
        }
    }
    set_mvlan(300, PHONE_A, MASK_24, 100);
    set_mvlan(383, PHONE_A, MASK_24, 100);
    barrier();
    ASSERT_EQ(db0(oui_msg_key(0)), "0");
    EXPECT_EQ(daemon().terminate(60s), 128 + SIGTERM);

    std::ifstream in(log);
    std::stringstream text;
    text << in.rdbuf();
    const std::string report = text.str();
    ASSERT_NE(report.find("LEAK SUMMARY"), std::string::npos) << report;
    EXPECT_NE(report.find("definitely lost: 0 bytes in 0 blocks"), std::string::npos) << report;
    EXPECT_NE(report.find("indirectly lost: 0 bytes in 0 blocks"), std::string::npos) << report;
    EXPECT_NE(report.find("ERROR SUMMARY: 0 errors"), std::string::npos) << report;
    int mvlan_records = 0;
    for (const std::string &record : loss_records(report)) {
        if (record.find("maintain_mvlan_table") != std::string::npos) {
            ++mvlan_records;
            EXPECT_NE(record.find("12 bytes in 2 blocks are still reachable"), std::string::npos)
                << record;
        }
    }
    EXPECT_EQ(mvlan_records, 1) << "the two entries still filled, nothing else";
}

} // namespace
} // namespace integration
