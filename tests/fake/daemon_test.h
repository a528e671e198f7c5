// SPDX-License-Identifier: BSD-3-Clause
// The fixture every unit test of the daemon derives from, and readable
// printers for what the fakes record.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "daemon_state.h"
#include "fake_bus.h"
#include "fake_platform.h"
#include "fake_posix.h"
#include "fake_trace.h"
#include "records.h"

namespace fake {

// The hand-written record encoders are part of every unit test's toolbox.
using namespace testcommon;

// Bytes as text when printable, hex otherwise.
std::string printable(const std::string &bytes);

void PrintTo(const db_write &w, std::ostream *os);
void PrintTo(const expected_line &l, std::ostream *os);

// (function, level, text) of a line, for ElementsAre and Contains.
inline expected_line level_line(const std::string &func, int level, const std::string &text) {
    return expected_line{func, level, text};
}
inline expected_line info_line(const std::string &func, const std::string &text) {
    return level_line(func, 1, text);
}
inline expected_line err_line(const std::string &func, const std::string &text) {
    return level_line(func, 2, text);
}

} // namespace fake

class DaemonTest : public ::testing::Test {
  protected:
    void SetUp() override { fake::reset_all(); }
    void TearDown() override {
        EXPECT_EQ(fake::bus::get().check_write_convention(), "");
        fake::stop_aging_thread();
        fake::sleep_control::get().reset(fake::sleep_mode::REAL);
    }

    fake::bus &bus() { return fake::bus::get(); }
    fake::platform &platform() { return fake::platform::get(); }
};
