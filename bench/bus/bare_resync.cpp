// SPDX-License-Identifier: BSD-3-Clause
// The bare re-synchronisation client: the reads and writes of the daemon's
// re-synchronisation without the daemon. Marks in database 0, re-reads of
// database 1 (a GET per key and a SET of its copy in database 0, as the
// handlers publish), sweeps in database 0.
#include <stdexcept>

#include "bus_bench.h"
#include "conn_settings.h"

namespace busbench {
namespace {

const std::vector<std::string> MARKED = {"/bridge/vvlan/cos_dscp/*",  "/bridge/vvlan/secu_mode/*",
                                         "/bridge/vvlan/age_timer/*", "/bridge/vvlan/vid/*",
                                         "/bridge/vvlan/port_oper/*", "/bridge/vvlan/oui_oper/*"};
const std::vector<std::string> REREAD = {"/bridge/vvlan/cos_dscp/*",  "/bridge/vvlan/secu_mode/*",
                                         "/bridge/vvlan/age_timer/*", "/bridge/vvlan/vid/*",
                                         "/bridge/vvlan/port_oper/*", "/bridge/vvlan/oui_oper/*",
                                         "/bridge/mac_vlan/table/*",  "/bridge/vvlan/data/end"};
constexpr const char *DELETE_IF_EXPIRING =
    "if redis.call('PTTL', KEYS[1]) >= 0 then return redis.call('DEL', KEYS[1]) end return 0";

// The daemon publishes a MAC-VLAN entry's voice-OUI mark under a name of its
// own; every other key under the name it was read from.
std::string published_name(const std::string &key) {
    const std::string table = "/bridge/mac_vlan/table/";
    if (key.rfind(table, 0) == 0) {
        return "/bridge/vvlan/mvlan_oui_msg/" + key.substr(table.size());
    }
    return key;
}

void append(redisContext *context, const std::vector<std::string> &argv) {
    std::vector<const char *> args;
    std::vector<size_t> lengths;
    for (const std::string &arg : argv) {
        args.push_back(arg.data());
        lengths.push_back(arg.size());
    }
    redisAppendCommandArgv(context, static_cast<int>(args.size()), args.data(), lengths.data());
}

redisReply *next(redisContext *context) {
    void *reply = nullptr;
    if (redisGetReply(context, &reply) != REDIS_OK) {
        throw std::runtime_error("bare resync: connection failed");
    }
    return static_cast<redisReply *>(reply);
}

class bare_client {
  public:
    bare_client(redisContext *context, bool pipelined, int scan_count)
        : context_(context), pipelined_(pipelined), count_(std::to_string(scan_count)) {}

    void select(int db) {
        freeReplyObject(conn_settings::command_argv(context_, {"SELECT", std::to_string(db)}));
    }

    // Calls per_batch with each SCAN batch's keys.
    template <typename PerBatch>
    void walk(const std::string &pattern, PerBatch &&per_batch) {
        std::string cursor = "0";
        do {
            redisReply *reply = conn_settings::command_argv(
                context_, {"SCAN", cursor, "MATCH", pattern, "COUNT", count_});
            cursor.assign(reply->element[0]->str, reply->element[0]->len);
            std::vector<std::string> keys;
            for (size_t i = 0; i < reply->element[1]->elements; ++i) {
                keys.emplace_back(reply->element[1]->element[i]->str,
                                  reply->element[1]->element[i]->len);
            }
            freeReplyObject(reply);
            if (!keys.empty()) {
                per_batch(keys);
            }
        } while (cursor != "0");
    }

    // One command per key: each a round trip, or all of them in one pipeline.
    template <typename Make>
    std::vector<redisReply *> per_key(const std::vector<std::string> &keys, Make &&make) {
        std::vector<redisReply *> replies;
        for (const std::string &key : keys) {
            append(context_, make(key));
            if (!pipelined_) {
                replies.push_back(next(context_));
            }
        }
        while (replies.size() < keys.size()) {
            replies.push_back(next(context_));
        }
        return replies;
    }

    void run() {
        select(0);
        for (const std::string &pattern : MARKED) {
            walk(pattern, [&](const std::vector<std::string> &keys) {
                for (redisReply *r : per_key(keys, [](const std::string &key) {
                         return std::vector<std::string>{"PEXPIRE", key, "3600000"};
                     })) {
                    freeReplyObject(r);
                }
            });
        }
        for (const std::string &pattern : REREAD) {
            select(1);
            std::vector<std::pair<std::string, std::string>> values;
            walk(pattern, [&](const std::vector<std::string> &keys) {
                const std::vector<redisReply *> got = per_key(keys, [](const std::string &key) {
                    return std::vector<std::string>{"GET", key};
                });
                for (size_t i = 0; i < keys.size(); ++i) {
                    if (got[i]->type == REDIS_REPLY_STRING) {
                        values.emplace_back(keys[i], std::string(got[i]->str, got[i]->len));
                    }
                    freeReplyObject(got[i]);
                }
            });
            select(0);
            std::vector<std::string> keys;
            for (const auto &kv : values) {
                keys.push_back(kv.first);
            }
            size_t i = 0;
            for (
                redisReply *r : per_key(keys, [&](const std::string &key) {
                    return std::vector<std::string>{"SET", published_name(key), values[i++].second};
                })) {
                freeReplyObject(r);
            }
        }
        for (const std::string &pattern : MARKED) {
            walk(pattern, [&](const std::vector<std::string> &keys) {
                for (redisReply *r : per_key(keys, [](const std::string &key) {
                         return std::vector<std::string>{"EVAL", DELETE_IF_EXPIRING, "1", key};
                     })) {
                    freeReplyObject(r);
                }
            });
        }
    }

  private:
    redisContext *context_;
    bool pipelined_;
    std::string count_;
};

} // namespace

double bare_resync(const std::string &socket_path, bool pipelined, int scan_count) {
    redisContext *context = redisConnectUnix(socket_path.c_str());
    if (context == nullptr || context->err != 0) {
        throw std::runtime_error("bare resync: cannot connect");
    }
    const steady_clock::time_point start = steady_clock::now();
    bare_client(context, pipelined, scan_count).run();
    const double seconds = seconds_since(start);
    redisFree(context);
    return seconds;
}

} // namespace busbench
