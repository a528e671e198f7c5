// SPDX-License-Identifier: BSD-3-Clause
// The pipelining load generator and the helpers around it.
#include <algorithm>
#include <cstdio>
#include <stdexcept>

#include "bus_bench.h"

namespace busbench {
namespace {

// Replies read once this many are owed, so that neither side's buffers grow
// without bound while the server stays busy.
constexpr size_t WINDOW = 4096;

std::string formatted(const std::vector<std::string> &argv) {
    std::vector<const char *> args;
    std::vector<size_t> lengths;
    for (const std::string &arg : argv) {
        args.push_back(arg.data());
        lengths.push_back(arg.size());
    }
    char *text = nullptr;
    const int length =
        redisFormatCommandArgv(&text, static_cast<int>(args.size()), args.data(), lengths.data());
    if (length < 0) {
        throw std::runtime_error("cannot format a command");
    }
    std::string out(text, static_cast<size_t>(length));
    redisFreeCommand(text);
    return out;
}

} // namespace

double seconds_since(steady_clock::time_point start) {
    return std::chrono::duration<double>(steady_clock::now() - start).count();
}

pipeline::pipeline(const std::string &socket_path) {
    context_ = redisConnectUnix(socket_path.c_str());
    if (context_ == nullptr || context_->err != 0) {
        throw std::runtime_error("cannot connect to " + socket_path);
    }
}

pipeline::~pipeline() {
    redisFree(context_);
}

void pipeline::add(int db, const std::vector<std::string> &argv) {
    if (db != db_) {
        const std::string select = formatted({"SELECT", std::to_string(db)});
        redisAppendFormattedCommand(context_, select.data(), select.size());
        ++owed_;
        db_ = db;
    }
    const std::string command = formatted(argv);
    redisAppendFormattedCommand(context_, command.data(), command.size());
    ++owed_;
    if (owed_ >= WINDOW) {
        flush_some(false);
    }
}

// Reads replies until at most half the window is owed (all of them when all
// is set); hiredis sends the output buffer before its first blocking read.
void pipeline::flush_some(bool all) {
    const size_t keep = all ? 0 : WINDOW / 2;
    while (owed_ > keep) {
        void *reply = nullptr;
        if (redisGetReply(context_, &reply) != REDIS_OK) {
            throw std::runtime_error(std::string("load connection: ") + context_->errstr);
        }
        if (static_cast<redisReply *>(reply)->type == REDIS_REPLY_ERROR) {
            ++errors_;
        }
        freeReplyObject(reply);
        --owed_;
    }
}

size_t pipeline::finish() {
    flush_some(true);
    const size_t errors = errors_;
    errors_ = 0;
    return errors;
}

void pipeline::send() {
    int done = 0;
    while (done == 0) {
        if (redisBufferWrite(context_, &done) != REDIS_OK) {
            throw std::runtime_error(std::string("load connection: ") + context_->errstr);
        }
    }
}

redisReply *pipeline::run(int db, const std::vector<std::string> &argv) {
    flush_some(true);
    if (db != db_) {
        freeReplyObject(redisCommand(context_, "SELECT %d", db));
        db_ = db;
    }
    const std::string command = formatted(argv);
    redisAppendFormattedCommand(context_, command.data(), command.size());
    void *reply = nullptr;
    if (redisGetReply(context_, &reply) != REDIS_OK) {
        throw std::runtime_error(std::string("load connection: ") + context_->errstr);
    }
    return static_cast<redisReply *>(reply);
}

std::string learned_key(int phyid, uint32_t serial) {
    char key[80];
    std::snprintf(key, sizeof key, "/bri/mac/macTblDyn_vvlan/100/%d/0205%08x", phyid, serial);
    return key;
}

std::vector<std::vector<std::string>> learning_churn(size_t count) {
    std::vector<std::vector<std::string>> commands;
    commands.reserve(count);
    for (size_t i = 0; i < count; ++i) {
        const std::string key = learned_key(6, static_cast<uint32_t>((i / 2) % 4096));
        if (i % 2 == 0) {
            commands.push_back({"SET", key, ""});
        } else {
            commands.push_back({"DEL", key});
        }
    }
    return commands;
}

percentiles distribution(std::vector<double> samples) {
    percentiles d;
    if (samples.empty()) {
        return d;
    }
    std::sort(samples.begin(), samples.end());
    const auto at = [&](double q) {
        const size_t index = static_cast<size_t>(q * static_cast<double>(samples.size() - 1));
        return samples[index];
    };
    d.p50 = at(0.50);
    d.p99 = at(0.99);
    d.max = samples.back();
    d.sorted = std::move(samples);
    return d;
}

} // namespace busbench
