// SPDX-License-Identifier: BSD-3-Clause
// What a writing command writes, and writing it so that the configuration
// stays coherent: a setting that the management plane keeps as one key
// replaces any other key of its family in one MULTI/EXEC transaction, or is
// refused naming what is there; a delete of what is not there is told.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "commands.h"
#include "wire/key_families.h"

struct write_op {
    write_op(int d, bool is_del, std::string k, std::string v)
        : db(d), del(is_del), key(std::move(k)), value(std::move(v)) {}

    int db;
    bool del;
    std::string key;
    std::string value;
    // Delete every key under this prefix too (the security mode is the
    // presence of any key under it).
    bool all_under_prefix = false;
    // A setting kept as one key of this family: any other key of it is
    // replaced (with --replace) or makes the write refused.
    std::optional<key_family> single;
    // What a delete removes, for "... is not there".
    std::string what;
};

using plan = std::vector<write_op>;

// Writes the plan in order; stops at the first write not done. The status:
// EXIT_FINE, EXIT_NOT_DONE (reported), or EXIT_CONNECT (reported).
int apply_plan(const tool_context &t, connection &conn, const plan &p, bool replace);
