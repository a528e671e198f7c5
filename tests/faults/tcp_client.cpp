// SPDX-License-Identifier: BSD-3-Clause
#include "tcp_client.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

namespace faults {

int free_local_port() {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (fd < 0 || bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
        getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length) != 0) {
        if (fd >= 0) {
            close(fd);
        }
        throw std::runtime_error("no free local port");
    }
    close(fd);
    return ntohs(address.sin_port);
}

tcp_client::tcp_client(int port) : context_(redisConnect("127.0.0.1", port)) {
    if (context_ == nullptr || context_->err != 0) {
        const std::string why = context_ != nullptr ? context_->errstr : "out of memory";
        redisFree(context_);
        throw std::runtime_error("connect to 127.0.0.1:" + std::to_string(port) + ": " + why);
    }
}

tcp_client::~tcp_client() {
    redisFree(context_);
}

testsupport::reply_ptr tcp_client::run(int db, const std::vector<std::string> &argv) {
    auto exchange = [&](const std::vector<std::string> &args) {
        std::vector<const char *> pointers;
        std::vector<size_t> lengths;
        for (const std::string &a : args) {
            pointers.push_back(a.data());
            lengths.push_back(a.size());
        }
        auto *reply = static_cast<redisReply *>(redisCommandArgv(
            context_, static_cast<int>(args.size()), pointers.data(), lengths.data()));
        if (reply == nullptr) {
            throw std::runtime_error(std::string("tcp client: ") + context_->errstr);
        }
        return testsupport::reply_ptr(reply);
    };
    if (db != db_) {
        exchange({"SELECT", std::to_string(db)});
        db_ = db;
    }
    return exchange(argv);
}

} // namespace faults
