// SPDX-License-Identifier: BSD-3-Clause
// The build's version text, "dov_vvlan <project version> (<git describe>)",
// for example "dov_vvlan 1.1.0 (g239ff3c)". The daemon carries it only as
// data, found with `strings`: it prints nothing more and takes no argument.
// Tools print it for --version.
#pragma once

extern "C" const char dov_vvlan_version[];
