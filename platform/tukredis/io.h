// SPDX-License-Identifier: BSD-3-Clause
// Timed I/O on non-blocking hiredis contexts.
//
// Every connection of this library is non-blocking and every wait is a poll()
// with a deadline: hiredis's own socket timeouts put a blocking context in
// error state when they fire, and a subscription connection has to sit idle
// for as long as the bus is quiet.
#pragma once

#include <chrono>
#include <hiredis/hiredis.h>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tukredis {

struct reply_free {
    void operator()(redisReply *reply) const noexcept { freeReplyObject(reply); }
};
using reply_ptr = std::unique_ptr<redisReply, reply_free>;

struct context_free {
    void operator()(redisContext *context) const noexcept { redisFree(context); }
};
using context_ptr = std::unique_ptr<redisContext, context_free>;

using steady_clock = std::chrono::steady_clock;

// One time budget shared by the steps of an exchange (write, then read).
class io_deadline {
  public:
    explicit io_deadline(std::chrono::milliseconds budget) : at_(steady_clock::now() + budget) {}
    // Milliseconds left, rounded up, 0 once passed.
    int remaining_ms() const noexcept;

  private:
    steady_clock::time_point at_;
};

// Waits until fd is ready for events. False on timeout or a poll failure,
// with why saying which.
bool wait_ready(int fd, short events, const io_deadline &deadline, std::string &why);

// Writes the context's whole output buffer.
bool flush_output(redisContext *context, const io_deadline &deadline, std::string &why);

// The next reply, from what is already buffered or from the socket. Null on
// failure (why set); the context is then unusable and must be freed.
reply_ptr read_reply(redisContext *context, const io_deadline &deadline, std::string &why);

// Sends one command given as arguments and reads its reply.
reply_ptr round_trip(redisContext *context, const std::vector<std::string_view> &argv,
                     const io_deadline &deadline, std::string &why);

// The protocol text of one command, for pipelines.
std::string format_command(const std::vector<std::string_view> &argv);

// What went wrong on a context, for a report line.
std::string context_error(const redisContext *context);

// The bytes of a string, status or error reply; empty for other types.
std::string_view reply_text(const redisReply *reply) noexcept;

// True for an array reply whose first element is the string word, as the
// push messages of a subscription are.
bool is_push(const redisReply *reply, std::string_view word) noexcept;

} // namespace tukredis
