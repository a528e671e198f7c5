// SPDX-License-Identifier: BSD-3-Clause
// The --help texts of vvlanctl and of each of its commands.
#pragma once

#include <string>

extern const char *const TOOL_HELP;
// The help of a command, or nullptr when there is no such command.
const char *command_help(const std::string &command);
