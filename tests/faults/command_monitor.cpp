// SPDX-License-Identifier: BSD-3-Clause
#include "command_monitor.h"

#include <hiredis/hiredis.h>
#include <poll.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

#include "wire/key_scan.h"

namespace faults {
namespace {

// One argument as the server quotes it (sdscatrepr).
bool unquote(const std::string &line, std::size_t *pos, std::string *out) {
    std::size_t i = *pos;
    if (i >= line.size() || line[i] != '"') {
        return false;
    }
    ++i;
    out->clear();
    while (i < line.size() && line[i] != '"') {
        char c = line[i++];
        if (c == '\\' && i < line.size()) {
            const char e = line[i++];
            switch (e) {
            case 'n':
                c = '\n';
                break;
            case 'r':
                c = '\r';
                break;
            case 't':
                c = '\t';
                break;
            case 'a':
                c = '\a';
                break;
            case 'b':
                c = '\b';
                break;
            case 'x': {
                uint8_t byte = 0;
                if (i + 1 >= line.size() || !hex_byte(line[i], line[i + 1], &byte)) {
                    return false;
                }
                c = static_cast<char>(byte);
                i += 2;
                break;
            }
            default:
                c = e;
                break;
            }
        }
        out->push_back(c);
    }
    if (i >= line.size()) {
        return false;
    }
    *pos = i + 1;
    return true;
}

} // namespace

bool parse_monitor_line(const std::string &line, monitored_command *out) {
    const std::size_t open = line.find(" [");
    const std::size_t close = line.find("] ", open);
    if (open == std::string::npos || close == std::string::npos) {
        return false;
    }
    const std::string inside = line.substr(open + 2, close - open - 2);
    const std::size_t blank = inside.find(' ');
    if (blank == std::string::npos) {
        return false;
    }
    out->db = std::atoi(inside.substr(0, blank).c_str());
    out->source = inside.substr(blank + 1);
    out->argv.clear();
    std::size_t pos = close + 2;
    while (pos < line.size()) {
        std::string arg;
        if (!unquote(line, &pos, &arg)) {
            return false;
        }
        out->argv.push_back(std::move(arg));
        if (pos < line.size() && line[pos] == ' ') {
            ++pos;
        }
    }
    return !out->argv.empty();
}

command_monitor::command_monitor(const std::string &socket_path) {
    redisContext *c = redisConnectUnix(socket_path.c_str());
    if (c == nullptr || c->err != 0) {
        redisFree(c);
        throw std::runtime_error("monitor: cannot connect to " + socket_path);
    }
    auto *ok = static_cast<redisReply *>(redisCommand(c, "MONITOR"));
    if (ok == nullptr || ok->type != REDIS_REPLY_STATUS) {
        if (ok != nullptr) {
            freeReplyObject(ok);
        }
        redisFree(c);
        throw std::runtime_error("monitor: MONITOR refused");
    }
    freeReplyObject(ok);
    context_ = c;
    fd_ = c->fd;
    thread_ = std::thread([this] { run(); });
}

command_monitor::~command_monitor() {
    stop_ = true;
    if (thread_.joinable()) {
        thread_.join();
    }
    redisFree(static_cast<redisContext *>(context_));
}

void command_monitor::run() {
    auto *c = static_cast<redisContext *>(context_);
    // Read in large chunks: a command carrying a 10 MB value is one 10 MB
    // line, which hiredis's own 16 KB reads would rescan thousands of times.
    std::vector<char> chunk(1 << 20);
    while (!stop_) {
        for (;;) {
            void *raw = nullptr;
            if (redisReaderGetReply(c->reader, &raw) != REDIS_OK || raw == nullptr) {
                break;
            }
            auto *reply = static_cast<redisReply *>(raw);
            monitored_command command;
            if (reply->type == REDIS_REPLY_STATUS &&
                parse_monitor_line(std::string(reply->str, reply->len), &command)) {
                const std::lock_guard lock(mutex_);
                commands_.push_back(std::move(command));
            } else {
                ++unparsed_;
            }
            freeReplyObject(reply);
        }
        pollfd watched{fd_, POLLIN, 0};
        if (poll(&watched, 1, 50) <= 0) {
            continue;
        }
        const ssize_t n = read(fd_, chunk.data(), chunk.size());
        if (n <= 0 ||
            redisReaderFeed(c->reader, chunk.data(), static_cast<size_t>(n)) != REDIS_OK) {
            return;
        }
    }
}

std::vector<monitored_command> command_monitor::commands() const {
    const std::lock_guard lock(mutex_);
    return commands_;
}

std::size_t command_monitor::size() const {
    const std::lock_guard lock(mutex_);
    return commands_.size();
}

bool command_monitor::any_since(
    std::size_t from, const std::function<bool(const monitored_command &)> &predicate) const {
    const std::lock_guard lock(mutex_);
    for (std::size_t i = from; i < commands_.size(); ++i) {
        if (predicate(commands_[i])) {
            return true;
        }
    }
    return false;
}

bool command_monitor::seen(const std::vector<std::string> &argv) const {
    return any_since(0, [&](const monitored_command &c) { return c.argv == argv; });
}

} // namespace faults
