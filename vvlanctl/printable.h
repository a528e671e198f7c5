// SPDX-License-Identifier: BSD-3-Clause
// Text for the operator's terminal. Keys and values are written by whoever
// can write to the server; printed as they are, their bytes would reach the
// terminal as escape sequences (set the title, clear the screen, recolour,
// or forge lines of the tool's own output). Every field that comes from the
// server goes through printable() before it is printed as text.
#pragma once

#include <string>
#include <string_view>

// s with every byte outside printable ASCII (0x20 to 0x7e) written as \xNN,
// and the backslash itself as \\, so the text reads back unambiguously.
std::string printable(std::string_view s);
