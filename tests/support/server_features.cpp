// SPDX-License-Identifier: BSD-3-Clause
#include "testsupport/server_features.h"

#include <stdexcept>

namespace testsupport {

server_features features_of(redis_client &client) {
    static constexpr std::string_view FIELD = "redis_version:";
    const std::string info = client.info("server");
    const size_t at = info.find(FIELD);
    if (at == std::string::npos) {
        throw std::runtime_error("INFO server gave no redis_version:\n" + info);
    }
    server_features features;
    const std::string version = info.substr(at + FIELD.size());
    const size_t dot = version.find('.');
    features.major = std::stoi(version);
    features.minor = dot == std::string::npos ? 0 : std::stoi(version.substr(dot + 1));
    return features;
}

std::vector<std::string> acl_setuser_all(const server_features &server, const std::string &user,
                                         const std::string &password) {
    std::vector<std::string> argv{"ACL", "SETUSER", user, "on", ">" + password, "~*", "+@all"};
    if (server.channel_permissions()) {
        argv.emplace_back("&*");
    }
    return argv;
}

} // namespace testsupport
