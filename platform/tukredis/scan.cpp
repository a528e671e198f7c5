// SPDX-License-Identifier: BSD-3-Clause
// The pattern operations: SCAN walks the keyspace a batch at a time, so the
// server never blocks on a large table and the command connection is free
// for the other thread between batches. Each batch costs two round trips at
// most: the SCAN, then one pipeline with a command (or a GET) per key; in the
// re-synchronisation callback, where writes are deferred, a mark's or a
// sweep's batch rides with the next SCAN and costs one.
#include <algorithm>
#include <string>
#include <unordered_set>
#include <vector>

#include "api_guard.h"
#include "command.h"
#include "log.h"
#include "reply.h"

namespace tukredis {
namespace {

// SCAN's COUNT is how many slots of the keyspace one call looks at, not how
// many keys it returns. The daemon asks for 100; with database 0 holding the
// whole MAC table, that is a round trip per 100 MAC addresses for every
// pattern. 1000 slots keep one call well under a millisecond of the
// server's time and the round trips ten times fewer.
constexpr int32_t LEAST_SCAN_COUNT = 1000;

// Deletes the key only while it still carries a time-to-live. A SET after the
// expiry was given clears the TTL, and running check and delete as one script
// keeps such a key even against a SET racing with this call.
constexpr std::string_view DELETE_IF_EXPIRING =
    "if redis.call('PTTL', KEYS[1]) >= 0 then return redis.call('DEL', KEYS[1]) end return 0";

// Walks the keys matching pattern in db, one batch per call of visit, with
// the command mutex released in between.
template <typename Visit>
bool for_each_batch(int32_t db, const char *pattern, int32_t count, const char *operation,
                    Visit &&visit) {
    const std::string batch_size = std::to_string(std::max(count, LEAST_SCAN_COUNT));
    std::string cursor = "0";
    std::vector<std::string> keys;
    do {
        std::string why;
        const reply_ptr reply =
            run_one(db, format_command({"SCAN", cursor, "MATCH", pattern, "COUNT", batch_size}),
                    DEFAULT_COMMAND_TIMEOUT, why);
        if (!reply || reply->type != REDIS_REPLY_ARRAY || reply->elements != 2 ||
            reply->element[0]->type != REDIS_REPLY_STRING ||
            reply->element[1]->type != REDIS_REPLY_ARRAY) {
            if (reply) {
                why = reply_text(reply.get());
            }
            report("%s \"%s\" in database %d: %s", operation, pattern, static_cast<int>(db),
                   why.empty() ? "unexpected reply to SCAN" : why.c_str());
            return false;
        }
        cursor.assign(reply_text(reply->element[0]));
        keys.clear();
        const redisReply *batch = reply->element[1];
        for (size_t i = 0; i < batch->elements; ++i) {
            if (batch->element[i]->type == REDIS_REPLY_STRING) {
                keys.emplace_back(reply_text(batch->element[i]));
            }
        }
        if (!keys.empty() && !visit(keys)) {
            return false;
        }
    } while (cursor != "0");
    return true;
}

// Runs one command per key of a batch as a single pipeline. Inside the
// re-synchronisation callback the commands are deferred like a handler's
// writes: the daemon ignores what a mark or sweep returns, so their replies
// are read behind the next SCAN rather than in a round trip of their own,
// and a refused one is reported when its reply is read.
template <typename Format>
bool per_key_pipeline(int32_t db, const std::vector<std::string> &keys, const char *operation,
                      bool &refused, Format &&format) {
    std::string why;
    if (defer_writes::active()) {
        for (const std::string &key : keys) {
            if (!command_connection().send(db, format(key), why)) {
                report("%s in database %d: %s", operation, static_cast<int>(db), why.c_str());
                return false;
            }
        }
        return true;
    }
    std::vector<std::string> commands;
    commands.reserve(keys.size());
    for (const std::string &key : keys) {
        commands.push_back(format(key));
    }
    std::vector<reply_ptr> replies;
    if (!command_connection().run(db, commands, replies, DEFAULT_COMMAND_TIMEOUT, why)) {
        report("%s in database %d: %s", operation, static_cast<int>(db), why.c_str());
        return false;
    }
    for (const reply_ptr &reply : replies) {
        if (reply->type == REDIS_REPLY_ERROR) {
            refused = true;
        }
    }
    return true;
}

// The values of a batch's keys, one pipelined GET each (not MGET: a key of
// another type must fail to read, as it does when fetched alone). A reply
// that is neither a value nor nil leaves its key to be fetched when read.
void prefetch(int32_t db, const std::vector<std::string> &keys, std::vector<lazy_reply> &replies) {
    std::vector<std::string> commands;
    commands.reserve(keys.size());
    for (const std::string &key : keys) {
        commands.push_back(format_command({"GET", key}));
    }
    std::vector<reply_ptr> values;
    std::string why;
    if (!command_connection().run(db, commands, values, DEFAULT_COMMAND_TIMEOUT, why)) {
        return; // each handler's read tries again, and reports
    }
    for (size_t i = 0; i < values.size() && i < replies.size(); ++i) {
        const redisReply *value = values[i].get();
        if (value->type == REDIS_REPLY_STRING) {
            replies[i].preset(true, {value->str, value->len});
        } else if (value->type == REDIS_REPLY_NIL) {
            replies[i].preset(false, {});
        }
    }
}

int32_t scan(int32_t db, const char *pattern, int32_t count, tukredis_handler handler) {
    if (pattern == nullptr || handler == nullptr) {
        return -1;
    }
    const bool nested = defer_writes::active();
    // SCAN may return a key more than once; the handler sees it once.
    std::unordered_set<std::string> seen;
    std::vector<std::string> fresh;
    std::vector<lazy_reply> replies;
    const bool ok = for_each_batch(db, pattern, count, "scan", [&](const auto &keys) {
        fresh.clear();
        for (const std::string &key : keys) {
            if (deliverable_key(key) && seen.insert(key).second) {
                fresh.push_back(key);
            }
        }
        replies.clear();
        for (const std::string &key : fresh) {
            replies.emplace_back(db, key);
        }
        prefetch(db, fresh, replies);
        // The handlers' writes ride in the pipeline of the next batch.
        const defer_writes defer;
        for (size_t i = 0; i < fresh.size(); ++i) {
            tukredis_pmsg pmsg = make_pmsg(db, fresh[i], TUKREDIS_CMD_SET, replies[i]);
            // A handler's failure concerns its key only.
            (void)handler(&pmsg);
        }
        return true;
    });
    // Called on its own, the scan leaves no write unsent behind it.
    std::string why;
    if (!nested) {
        (void)command_connection().settle(why);
    }
    return ok ? 0 : -1;
}

int32_t pexpire(int32_t db, const char *pattern, int32_t ms, int32_t count) {
    if (pattern == nullptr) {
        return -1;
    }
    const std::string lifetime = std::to_string(ms);
    bool refused = false;
    const bool ok = for_each_batch(db, pattern, count, "pexpire", [&](const auto &keys) {
        return per_key_pipeline(db, keys, "pexpire", refused, [&](const std::string &key) {
            return format_command({"PEXPIRE", key, lifetime});
        });
    });
    return ok && !refused ? 0 : -1;
}

int32_t del_expire(int32_t db, const char *pattern, int32_t count) {
    if (pattern == nullptr) {
        return -1;
    }
    bool refused = false;
    const bool ok = for_each_batch(db, pattern, count, "del_expire", [&](const auto &keys) {
        return per_key_pipeline(db, keys, "del_expire", refused, [&](const std::string &key) {
            return format_command({"EVAL", DELETE_IF_EXPIRING, "1", key});
        });
    });
    return ok && !refused ? 0 : -1;
}

} // namespace
} // namespace tukredis

using namespace tukredis;

int32_t tukredis_scan_key_pattern(int32_t db, const char *pattern, int32_t count,
                                  tukredis_handler handler, int32_t limit, int32_t flags) {
    (void)limit;
    (void)flags;
    return c_entry<int32_t>(-1, [&] { return scan(db, pattern, count, handler); });
}

int32_t tukredis_pexpire_key_pattern(int32_t db, const char *pattern, int32_t ms, int32_t count) {
    return c_entry<int32_t>(-1, [&] { return pexpire(db, pattern, ms, count); });
}

int32_t tukredis_del_expire_key_pattern(int32_t db, const char *pattern, int32_t count) {
    return c_entry<int32_t>(-1, [&] { return del_expire(db, pattern, count); });
}
