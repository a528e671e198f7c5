// SPDX-License-Identifier: BSD-3-Clause
#include "server_admin.h"

#include <sstream>
#include <stdexcept>

namespace faults {

std::vector<client_info> list_clients(testsupport::redis_client &admin) {
    const testsupport::reply_ptr reply = admin.command({"CLIENT", "LIST"});
    if (!reply || reply->type != REDIS_REPLY_STRING) {
        throw std::runtime_error("CLIENT LIST gave no text");
    }
    std::vector<client_info> out;
    std::istringstream lines(std::string(reply->str, reply->len));
    std::string line;
    while (std::getline(lines, line)) {
        std::istringstream fields(line);
        std::string field;
        client_info info{-1, ""};
        while (fields >> field) {
            if (field.rfind("id=", 0) == 0) {
                info.id = std::stoll(field.substr(3));
            } else if (field.rfind("flags=", 0) == 0) {
                info.flags = field.substr(6);
            }
        }
        if (info.id >= 0) {
            out.push_back(info);
        }
    }
    return out;
}

int kill_command_clients(testsupport::redis_client &admin, const std::set<long long> &spared) {
    const testsupport::reply_ptr me = admin.command({"CLIENT", "ID"});
    const long long own = me && me->type == REDIS_REPLY_INTEGER ? me->integer : -1;
    int killed = 0;
    for (const client_info &c : list_clients(admin)) {
        // Unix-socket clients carry "U"; subscribed ones "P", monitors "O".
        const bool normal = c.flags.find_first_of("POSM") == std::string::npos;
        if (c.id == own || spared.contains(c.id) || !normal) {
            continue;
        }
        const testsupport::reply_ptr r =
            admin.command({"CLIENT", "KILL", "ID", std::to_string(c.id)});
        if (r && r->type == REDIS_REPLY_INTEGER) {
            killed += static_cast<int>(r->integer);
        }
    }
    return killed;
}

int kill_subscription_clients(testsupport::redis_client &admin) {
    return static_cast<int>(admin.client_kill_pubsub());
}

void shutdown_keeping_data(testsupport::redis_server &server, testsupport::redis_client &admin) {
    try {
        admin.command({"SHUTDOWN", "SAVE"});
    } catch (const std::runtime_error &) {
        // The server closes the connection instead of answering.
    }
    server.stop(); // reaps it; the saved data stay in its directory
}

} // namespace faults
