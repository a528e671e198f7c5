// SPDX-License-Identifier: BSD-3-Clause
// The host process-health agent: the exact lines on stderr and the results
// chosen through the environment.
#include <cstdlib>
#include <gtest/gtest.h>

#include "ham_agent.h"
#include "testsupport/fd_capture.h"

namespace {

class HamTest : public ::testing::Test {
  protected:
    void SetUp() override {
        unsetenv("HAM_AGENT_INIT_RESULT");
        unsetenv("HAM_AGENT_REG_RESULT");
    }
    void TearDown() override { SetUp(); }
};

TEST_F(HamTest, InitSaysExactlyOneLine) {
    testsupport::fd_capture capture;
    EXPECT_EQ(ham_agent_init(), 0);
    EXPECT_EQ(capture.text(), "ham: ham_agent_init()\n");
}

TEST_F(HamTest, RegistrationSaysItsArguments) {
    testsupport::fd_capture capture;
    EXPECT_EQ(reg_process_exit_action(3, -1), 0);
    EXPECT_EQ(reg_process_exit_action(0, 2147483647), 0);
    EXPECT_EQ(capture.text(), "ham: reg_process_exit_action(3, -1)\n"
                              "ham: reg_process_exit_action(0, 2147483647)\n");
}

TEST_F(HamTest, ResultsComeFromTheEnvironment) {
    setenv("HAM_AGENT_INIT_RESULT", "5", 1);
    setenv("HAM_AGENT_REG_RESULT", "-4", 1);
    testsupport::fd_capture capture;
    EXPECT_EQ(ham_agent_init(), 5);
    EXPECT_EQ(reg_process_exit_action(1, 2), -4);
    EXPECT_EQ(capture.text(), "ham: ham_agent_init()\n"
                              "ham: reg_process_exit_action(1, 2)\n");
}

TEST_F(HamTest, UnparsableResultsFail) {
    setenv("HAM_AGENT_INIT_RESULT", "five", 1);
    setenv("HAM_AGENT_REG_RESULT", "", 1);
    testsupport::fd_capture capture;
    EXPECT_EQ(ham_agent_init(), -1);
    EXPECT_EQ(reg_process_exit_action(1, 2), -1);
    const std::string said = capture.text();
    EXPECT_EQ(said.rfind("ham: ham_agent_init()\n", 0), 0U) << said;
    EXPECT_NE(said.find("HAM_AGENT_INIT_RESULT"), std::string::npos) << said;
    EXPECT_NE(said.find("HAM_AGENT_REG_RESULT"), std::string::npos) << said;
}

} // namespace
