// SPDX-License-Identifier: BSD-3-Clause
#include "tcp_client.h"

#include <stdexcept>

namespace faults {

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
