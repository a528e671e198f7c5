// SPDX-License-Identifier: BSD-3-Clause
#include "keyspace_channel.h"

#include <charconv>

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
