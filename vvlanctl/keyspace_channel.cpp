// SPDX-License-Identifier: BSD-3-Clause
#include "keyspace_channel.h"

#include <charconv>
#include <cstdio>

#include "commands.h"
#include "connection.h"
#include "printable.h"

bool split_channel(std::string_view channel, int *db, std::string *key) {
    constexpr std::string_view HEAD = "__keyspace@";
    const std::size_t end = channel.find("__:");
    if (channel.substr(0, HEAD.size()) != HEAD || end == std::string_view::npos ||
        end <= HEAD.size()) {
        return false;
    }
    const std::string_view number = channel.substr(HEAD.size(), end - HEAD.size());
    const auto r = std::from_chars(number.data(), number.data() + number.size(), *db);
    if (r.ec != std::errc() || r.ptr != number.data() + number.size()) {
        return false;
    }
    key->assign(channel.substr(end + 3));
    return true;
}

int check_keyspace_events(connection &c, const char *command, std::string *why,
                          std::string *wanted) {
    std::string missing;
    if (!c.missing_keyspace_events(&missing, wanted)) {
        std::fprintf(stderr,
                     "vvlanctl: %s: cannot read notify-keyspace-events (%s): going on as if "
                     "its flags K, g, $, x and e were on\n",
                     command, printable(c.error()).c_str());
        return EXIT_FINE;
    }
    if (missing.empty()) {
        return EXIT_FINE;
    }
    *why = "the server's notify-keyspace-events lacks the flags \"" + missing +
           "\": set them with redis-cli CONFIG SET notify-keyspace-events \"" + *wanted + "\"";
    return EXIT_NOT_DONE;
}
