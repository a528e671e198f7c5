// SPDX-License-Identifier: BSD-3-Clause
#include "write_apply.h"

#include "wire/key_parse.h"

namespace {

// What another key of a single-key family holds, for the refusal.
std::string held_by(key_family f, const std::string &key) {
    if (f == key_family::vid) {
        if (const auto vid = parse_vid_key(key)) {
            return "voice VLAN " + std::to_string(*vid);
        }
    }
    return "key " + key;
}

enum class outcome { DONE, NOT_DONE, LOST };

outcome write_single(const tool_context &t, connection &conn, const write_op &op, bool replace) {
    std::vector<std::string> keys;
    if (!conn.scan(op.db, std::string(prefix_of(*op.single)) + "*", &keys)) {
        return outcome::LOST;
    }
    std::vector<std::vector<std::string>> commands;
    std::string others;
    for (const std::string &k : keys) {
        if (k != op.key) {
            commands.push_back({"DEL", k});
            others += (others.empty() ? "" : ", ") + held_by(*op.single, k);
        }
    }
    if (!commands.empty() && !replace) {
        fail(t, EXIT_NOT_DONE,
             others + " is configured; --replace replaces it, nothing was written");
        return outcome::NOT_DONE;
    }
    commands.push_back({"SET", op.key, op.value});
    return conn.transaction(op.db, commands) ? outcome::DONE : outcome::LOST;
}

outcome write_one(const tool_context &t, connection &conn, const write_op &op, bool replace) {
    if (op.single) {
        return write_single(t, conn, op, replace);
    }
    if (!op.del) {
        return conn.set(op.db, op.key, op.value) ? outcome::DONE : outcome::LOST;
    }
    if (op.all_under_prefix) {
        std::vector<std::string> keys;
        const std::string prefix = op.key.substr(0, op.key.size() - 1);
        if (!conn.scan(op.db, prefix + "*", &keys)) {
            return outcome::LOST;
        }
        if (keys.empty()) {
            fail(t, EXIT_NOT_DONE, op.what + " is not on: nothing to delete");
            return outcome::NOT_DONE;
        }
        std::vector<std::vector<std::string>> commands;
        for (const std::string &k : keys) {
            commands.push_back({"DEL", k});
        }
        return conn.transaction(op.db, commands) ? outcome::DONE : outcome::LOST;
    }
    bool existed = false;
    if (!conn.del(op.db, op.key, &existed)) {
        return outcome::LOST;
    }
    if (!existed) {
        fail(t, EXIT_NOT_DONE,
             op.what + " is not there (no key " + op.key + " in database " + std::to_string(op.db) +
                 "): nothing to delete");
        return outcome::NOT_DONE;
    }
    return outcome::DONE;
}

} // namespace

int apply_plan(const tool_context &t, connection &conn, const plan &p, bool replace) {
    for (const write_op &op : p) {
        switch (write_one(t, conn, op, replace)) {
        case outcome::DONE:
            break;
        case outcome::NOT_DONE:
            return EXIT_NOT_DONE;
        case outcome::LOST:
            return lost(t, conn);
        }
    }
    return EXIT_FINE;
}
