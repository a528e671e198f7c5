// SPDX-License-Identifier: BSD-3-Clause
// The host device manager: the default front-panel map, map files and the
// forced init result.
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <unistd.h>

#include "libsdm.h"
#include "testsupport/fd_capture.h"

namespace {

constexpr int MODE = 2;

// A map file in a private temporary place, removed at the end of the test.
class map_file {
  public:
    explicit map_file(const std::string &text) {
        const char *tmp = std::getenv("TMPDIR");
        path_ = std::string(tmp != nullptr && tmp[0] != '\0' ? tmp : "/tmp") + "/sdm-XXXXXX";
        const int fd = mkstemp(path_.data());
        if (fd >= 0) {
            close(fd);
        }
        std::ofstream(path_) << text;
    }
    ~map_file() { unlink(path_.c_str()); }
    const std::string &path() const { return path_; }

  private:
    std::string path_;
};

class LibsdmTest : public ::testing::Test {
  protected:
    void SetUp() override {
        unsetenv("LIBSDM_PORT_MAP");
        unsetenv("LIBSDM_INIT_RESULT");
        // Back to the default map whatever an earlier test loaded.
        ASSERT_EQ(libsdm_init("dov_vvlan", 0), 0);
    }
    void TearDown() override { SetUp(); }

    // Runs libsdm_init with the map, returning its result and what it said.
    int init_with_map(const std::string &text, std::string *said = nullptr) {
        const map_file file(text);
        setenv("LIBSDM_PORT_MAP", file.path().c_str(), 1);
        testsupport::fd_capture capture;
        const int result = libsdm_init("dov_vvlan", 0);
        if (said != nullptr) {
            *said = capture.text();
        }
        return result;
    }

    static uint32_t ifx_of(uint32_t phyid, int *rc = nullptr) {
        uint32_t ifx = 0xdeadbeef;
        const int result = libsdm_get_ifx_by_phyid(phyid, &ifx, MODE);
        if (rc != nullptr) {
            *rc = result;
        }
        return ifx;
    }
    static uint32_t phyid_of(uint32_t ifx, int *rc = nullptr) {
        uint32_t phyid = 0xdeadbeef;
        const int result = libsdm_get_phyid_by_ifx(ifx, &phyid, MODE);
        if (rc != nullptr) {
            *rc = result;
        }
        return phyid;
    }
};

TEST_F(LibsdmTest, DefaultMapCoversTheFrontPanel) {
    int rc = 0;
    EXPECT_EQ(ifx_of(1, &rc), 0U);
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(ifx_of(53, &rc), 52U);
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(phyid_of(0, &rc), 1U);
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(phyid_of(52, &rc), 53U);
    EXPECT_EQ(rc, 0);
}

TEST_F(LibsdmTest, DefaultMapRefusesPortsOutsideTheFrontPanel) {
    int rc = 0;
    ifx_of(0, &rc);
    EXPECT_NE(rc, 0);
    ifx_of(54, &rc);
    EXPECT_NE(rc, 0);
    ifx_of(UINT32_MAX, &rc);
    EXPECT_NE(rc, 0);
    phyid_of(53, &rc);
    EXPECT_NE(rc, 0);
    phyid_of(UINT32_MAX, &rc);
    EXPECT_NE(rc, 0);
}

TEST_F(LibsdmTest, NullOutputIsRefused) {
    EXPECT_NE(libsdm_get_ifx_by_phyid(1, nullptr, MODE), 0);
    EXPECT_NE(libsdm_get_phyid_by_ifx(0, nullptr, MODE), 0);
}

TEST_F(LibsdmTest, MapFileReplacesTheDefault) {
    ASSERT_EQ(init_with_map("# phyid ifx\n"
                            "\n"
                            "1 100\n"
                            "  2\t-1  \n"
                            "3 4294967295\n"
                            "   # indented comment\n"
                            "60 2147483648\r\n"),
              0);
    int rc = 0;
    EXPECT_EQ(ifx_of(1, &rc), 100U);
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(ifx_of(2, &rc), 0xffffffffU);
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(ifx_of(3, &rc), 0xffffffffU);
    EXPECT_EQ(ifx_of(60, &rc), 0x80000000U);
    EXPECT_EQ(rc, 0);
    // The default map is gone.
    ifx_of(4, &rc);
    EXPECT_NE(rc, 0);
    phyid_of(0, &rc);
    EXPECT_NE(rc, 0);
    // Back: the first line with that ifx wins.
    EXPECT_EQ(phyid_of(100, &rc), 1U);
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(phyid_of(0xffffffffU, &rc), 2U);
    EXPECT_EQ(rc, 0);
}

TEST_F(LibsdmTest, MalformedMapFileFailsAndKeepsTheMapInForce) {
    for (const char *line : {"1", "1 2 3", "x 2", "1 2x", "-1 5", "1 4294967296", "1 -2147483649",
                             "1 +2", "0x1 2", "1 # note"}) {
        std::string said;
        EXPECT_NE(init_with_map(std::string("1 5\n\n") + line + "\n", &said), 0) << line;
        EXPECT_NE(said.find(":3:"), std::string::npos) << said;
        EXPECT_NE(said.find("libsdm: "), std::string::npos) << said;
        int rc = 0;
        EXPECT_EQ(ifx_of(1, &rc), 0U) << "the default map stays";
        EXPECT_EQ(rc, 0);
    }
}

TEST_F(LibsdmTest, MapFileHoldsAtMost256Entries) {
    std::string text;
    for (int i = 1; i <= 256; ++i) {
        text += std::to_string(i) + " " + std::to_string(1000 + i) + "\n";
    }
    ASSERT_EQ(init_with_map(text), 0);
    EXPECT_EQ(ifx_of(256), 1256U);

    std::string said;
    EXPECT_NE(init_with_map(text + "257 1257\n", &said), 0);
    EXPECT_NE(said.find(":257:"), std::string::npos) << said;
}

TEST_F(LibsdmTest, MissingMapFileFails) {
    setenv("LIBSDM_PORT_MAP", "/nonexistent/sdm.map", 1);
    testsupport::fd_capture capture;
    EXPECT_NE(libsdm_init("dov_vvlan", 0), 0);
    EXPECT_NE(capture.text().find("/nonexistent/sdm.map"), std::string::npos);
}

TEST_F(LibsdmTest, InitResultCanBeForced) {
    setenv("LIBSDM_INIT_RESULT", "7", 1);
    EXPECT_EQ(libsdm_init("dov_vvlan", 0), 7);
    setenv("LIBSDM_INIT_RESULT", "-2", 1);
    EXPECT_EQ(libsdm_init("dov_vvlan", 0), -2);
    setenv("LIBSDM_INIT_RESULT", "0", 1);
    EXPECT_EQ(libsdm_init("dov_vvlan", 0), 0);
}

TEST_F(LibsdmTest, UnparsableForcedResultFails) {
    for (const char *text : {"abc", "", "1x", " 1"}) {
        setenv("LIBSDM_INIT_RESULT", text, 1);
        testsupport::fd_capture capture;
        EXPECT_EQ(libsdm_init("dov_vvlan", 0), -1) << '"' << text << '"';
        EXPECT_NE(capture.text().find("LIBSDM_INIT_RESULT"), std::string::npos);
    }
}

TEST_F(LibsdmTest, ForcedResultStillLoadsTheMap) {
    setenv("LIBSDM_INIT_RESULT", "3", 1);
    EXPECT_EQ(init_with_map("1 77\n"), 3);
    EXPECT_EQ(ifx_of(1), 77U);
}

} // namespace
