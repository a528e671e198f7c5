// SPDX-License-Identifier: BSD-3-Clause
#include "io.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <new>
#include <poll.h>

namespace tukredis {

int io_deadline::remaining_ms() const noexcept {
    const auto left = at_ - steady_clock::now();
    if (left <= steady_clock::duration::zero()) {
        return 0;
    }
    const auto ms = std::chrono::ceil<std::chrono::milliseconds>(left).count();
    return ms > INT_MAX ? INT_MAX : static_cast<int>(ms);
}

bool wait_ready(int fd, short events, const io_deadline &deadline, std::string &why) {
    for (;;) {
        pollfd watched{fd, events, 0};
        const int n = poll(&watched, 1, deadline.remaining_ms());
        if (n > 0) {
            if ((watched.revents & POLLNVAL) != 0) {
                why = "socket closed";
                return false;
            }
            // POLLHUP and POLLERR count as ready: the read or write that
            // follows reports what happened.
            return true;
        }
        if (n == 0) {
            why = "timed out";
            return false;
        }
        if (errno != EINTR) {
            why = std::string("poll: ") + std::strerror(errno);
            return false;
        }
    }
}

bool flush_output(redisContext *context, const io_deadline &deadline, std::string &why) {
    for (;;) {
        int done = 0;
        if (redisBufferWrite(context, &done) != REDIS_OK) {
            why = context_error(context);
            return false;
        }
        if (done != 0) {
            return true;
        }
        if (!wait_ready(context->fd, POLLOUT, deadline, why)) {
            return false;
        }
    }
}

reply_ptr read_reply(redisContext *context, const io_deadline &deadline, std::string &why) {
    for (;;) {
        void *raw = nullptr;
        if (redisGetReplyFromReader(context, &raw) != REDIS_OK) {
            why = context_error(context);
            return nullptr;
        }
        if (raw != nullptr) {
            return reply_ptr(static_cast<redisReply *>(raw));
        }
        if (!wait_ready(context->fd, POLLIN, deadline, why)) {
            return nullptr;
        }
        if (redisBufferRead(context) != REDIS_OK) {
            why = context_error(context);
            return nullptr;
        }
    }
}

std::string format_command(const std::vector<std::string_view> &argv) {
    std::vector<const char *> args;
    std::vector<size_t> lengths;
    args.reserve(argv.size());
    lengths.reserve(argv.size());
    for (const std::string_view arg : argv) {
        args.push_back(arg.data());
        lengths.push_back(arg.size());
    }
    char *text = nullptr;
    const int length =
        redisFormatCommandArgv(&text, static_cast<int>(args.size()), args.data(), lengths.data());
    if (length < 0 || text == nullptr) {
        throw std::bad_alloc();
    }
    std::string formatted(text, static_cast<size_t>(length));
    redisFreeCommand(text);
    return formatted;
}

reply_ptr round_trip(redisContext *context, const std::vector<std::string_view> &argv,
                     const io_deadline &deadline, std::string &why) {
    const std::string command = format_command(argv);
    if (redisAppendFormattedCommand(context, command.data(), command.size()) != REDIS_OK) {
        why = context_error(context);
        return nullptr;
    }
    if (!flush_output(context, deadline, why)) {
        return nullptr;
    }
    return read_reply(context, deadline, why);
}

std::string context_error(const redisContext *context) {
    if (context == nullptr) {
        return "no connection";
    }
    if (context->err == 0) {
        return "unknown error";
    }
    return context->errstr;
}

std::string_view reply_text(const redisReply *reply) noexcept {
    if (reply == nullptr || reply->str == nullptr) {
        return {};
    }
    switch (reply->type) {
    case REDIS_REPLY_STRING:
    case REDIS_REPLY_STATUS:
    case REDIS_REPLY_ERROR:
        return {reply->str, reply->len};
    default:
        return {};
    }
}

bool is_push(const redisReply *reply, std::string_view word) noexcept {
    if (reply == nullptr || reply->type != REDIS_REPLY_ARRAY || reply->elements == 0) {
        return false;
    }
    const redisReply *first = reply->element[0];
    if (first == nullptr || first->type != REDIS_REPLY_STRING) {
        return false;
    }
    return reply_text(first) == word;
}

} // namespace tukredis
