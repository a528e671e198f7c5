// SPDX-License-Identifier: BSD-3-Clause
// Watching the daemon from outside: keyspace events of what it writes, and
// the PING round trip that its latencies are compared with.
#include <poll.h>

#include <stdexcept>
#include <string_view>

#include "bus_bench.h"

namespace busbench {

keyspace_observer::keyspace_observer(const std::string &socket_path) {
    context_ = redisConnectUnix(socket_path.c_str());
    if (context_ == nullptr || context_->err != 0) {
        throw std::runtime_error("observer: cannot connect");
    }
    const char *patterns[] = {"__keyspace@1__:/bri/mac/macTblDyn_vvlan/*",
                              "__keyspace@0__:/bridge/vvlan/port_oper/*",
                              "__keyspace@0__:/bridge/vvlan/data/end"};
    for (const char *pattern : patterns) {
        freeReplyObject(redisCommand(context_, "PSUBSCRIBE %s", pattern));
    }
}

keyspace_observer::~keyspace_observer() {
    redisFree(context_);
}

void keyspace_observer::discard() {
    for (;;) {
        void *raw = nullptr;
        if (redisGetReplyFromReader(context_, &raw) != REDIS_OK) {
            throw std::runtime_error("observer: connection failed");
        }
        if (raw != nullptr) {
            freeReplyObject(raw);
            continue;
        }
        pollfd watched{context_->fd, POLLIN, 0};
        if (poll(&watched, 1, 0) <= 0) {
            return;
        }
        if (redisBufferRead(context_) != REDIS_OK) {
            throw std::runtime_error("observer: connection failed");
        }
    }
}

bool keyspace_observer::wait(int db, const std::string &key, const std::string &event,
                             std::chrono::milliseconds deadline, steady_clock::time_point &at) {
    const std::string channel = "__keyspace@" + std::to_string(db) + "__:" + key;
    const steady_clock::time_point until = steady_clock::now() + deadline;
    for (;;) {
        void *raw = nullptr;
        if (redisGetReplyFromReader(context_, &raw) != REDIS_OK) {
            throw std::runtime_error("observer: connection failed");
        }
        if (raw != nullptr) {
            const auto *reply = static_cast<redisReply *>(raw);
            const bool match =
                reply->type == REDIS_REPLY_ARRAY && reply->elements == 4 &&
                std::string_view(reply->element[2]->str, reply->element[2]->len) == channel &&
                std::string_view(reply->element[3]->str, reply->element[3]->len) == event;
            freeReplyObject(raw);
            if (match) {
                at = steady_clock::now();
                return true;
            }
            continue;
        }
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(until - steady_clock::now())
                .count();
        if (left <= 0) {
            return false;
        }
        pollfd watched{context_->fd, POLLIN, 0};
        if (poll(&watched, 1, static_cast<int>(left)) > 0 &&
            redisBufferRead(context_) != REDIS_OK) {
            throw std::runtime_error("observer: connection failed");
        }
    }
}

double ping_round_trip_us(redisContext *context) {
    const steady_clock::time_point start = steady_clock::now();
    void *reply = redisCommand(context, "PING");
    const double us = seconds_since(start) * 1e6;
    if (reply == nullptr) {
        throw std::runtime_error("ping: connection failed");
    }
    freeReplyObject(reply);
    return us;
}

} // namespace busbench
