// SPDX-License-Identifier: BSD-3-Clause
// The ceilings: consumers of the same MAC-learning notifications as the
// daemon, each in a process of its own so that each has a core as the daemon
// does. A bare hiredis pattern subscriber (a reply tree per message), a
// reader that scans the raw bytes, and the bus library with empty handlers;
// and for the join latency, a bare hiredis relay.
#include <spawn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string_view>
#include <thread>

#include "bus_bench.h"
#include "tukredis.h"
#include "wire/key_parse.h"
#include "wire/keys.h"

extern char **environ;

namespace busbench {
namespace {

constexpr const char *LEARNING_CHANNELS = "__keyspace@0__:/bri/mac/macTblDyn_vvlan/*";

void say(const char *word) {
    const size_t length = std::strlen(word);
    if (write(STDOUT_FILENO, word, length) != static_cast<ssize_t>(length)) {
        _exit(3);
    }
}

// Blocks until the parent writes a line.
void hear() {
    char c = 0;
    while (read(STDIN_FILENO, &c, 1) == 1 && c != '\n') {
    }
}

bool is_pmessage(const redisReply *reply) {
    return reply->type == REDIS_REPLY_ARRAY && reply->elements == 4 &&
           reply->element[0]->type == REDIS_REPLY_STRING &&
           std::string_view(reply->element[0]->str, reply->element[0]->len) == "pmessage";
}

int hiredis_consumer(const std::string &socket_path, size_t count) {
    redisContext *context = redisConnectUnix(socket_path.c_str());
    if (context == nullptr || context->err != 0) {
        return 2;
    }
    freeReplyObject(redisCommand(context, "PSUBSCRIBE %s", LEARNING_CHANNELS));
    say("ready\n");
    hear();
    for (size_t seen = 0; seen < count;) {
        void *reply = nullptr;
        if (redisGetReply(context, &reply) != REDIS_OK) {
            return 2;
        }
        if (is_pmessage(static_cast<redisReply *>(reply))) {
            ++seen;
        }
        freeReplyObject(reply);
    }
    say("done\n");
    return 0;
}

// Walks RESP frames in place: an array header, then bulk strings. Returns the
// bytes of whole frames consumed; pmessages are counted.
size_t scan_frames(const char *data, size_t size, size_t &pmessages) {
    size_t at = 0;
    for (;;) {
        const size_t start = at;
        const auto line = [&](long &value) {
            const void *end = std::memchr(data + at, '\r', size - at);
            if (end == nullptr || static_cast<const char *>(end) + 1 >= data + size) {
                return false;
            }
            value = std::strtol(data + at + 1, nullptr, 10);
            at = static_cast<size_t>(static_cast<const char *>(end) - data) + 2;
            return true;
        };
        long elements = 0;
        if (at >= size || data[at] != '*' || !line(elements)) {
            return start;
        }
        bool whole = true;
        bool pmessage = false;
        for (long i = 0; i < elements && whole; ++i) {
            long length = 0;
            const bool bulk = at < size && data[at] == '$';
            if (at >= size || !line(length)) {
                whole = false;
                break;
            }
            if (!bulk) {
                continue; // an integer (a confirmation's count) or a status
            }
            if (at + static_cast<size_t>(length) + 2 > size) {
                whole = false;
                break;
            }
            if (i == 0) {
                pmessage = std::string_view(data + at, static_cast<size_t>(length)) == "pmessage";
            }
            at += static_cast<size_t>(length) + 2;
        }
        if (!whole) {
            return start;
        }
        if (pmessage) {
            ++pmessages;
        }
    }
}

int raw_consumer(const std::string &socket_path, size_t count) {
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, socket_path.c_str(), sizeof address.sun_path - 1);
    if (connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) {
        return 2;
    }
    char *command = nullptr;
    const int length = redisFormatCommand(&command, "PSUBSCRIBE %s", LEARNING_CHANNELS);
    if (write(fd, command, static_cast<size_t>(length)) != length) {
        return 2;
    }
    redisFreeCommand(command);
    static char buffer[1 << 17];
    size_t held = 0;
    size_t pmessages = 0;
    // The confirmation is a frame of its own, read before reporting ready.
    while (held == 0 || scan_frames(buffer, held, pmessages) == 0) {
        const ssize_t n = read(fd, buffer + held, sizeof buffer - held);
        if (n <= 0) {
            return 2;
        }
        held += static_cast<size_t>(n);
    }
    const size_t first = scan_frames(buffer, held, pmessages);
    std::memmove(buffer, buffer + first, held - first);
    held -= first;
    say("ready\n");
    hear();
    while (pmessages < count) {
        const ssize_t n = read(fd, buffer + held, sizeof buffer - held);
        if (n <= 0) {
            return 2;
        }
        held += static_cast<size_t>(n);
        const size_t used = scan_frames(buffer, held, pmessages);
        std::memmove(buffer, buffer + used, held - used);
        held -= used;
    }
    say("done\n");
    return 0;
}

std::atomic<size_t> g_learnings{0};
size_t g_target = 0;

// Wakes the waiting thread only once, at the last notification: a wake per
// notification would cost the consumer a system call each.
int32_t count_learning(tukredis_pmsg *) {
    if (g_learnings.fetch_add(1, std::memory_order_release) + 1 == g_target) {
        g_learnings.notify_one();
    }
    return 0;
}

int32_t ignore(tukredis_pmsg *) {
    return 0;
}

// The daemon's subscription table, with handlers that do nothing.
tukredis_sub_row g_rows[11] = {
    {1, "/bridge/vvlan/vid/*", ignore, 0},
    {1, "/bridge/vvlan/secu_mode/*", ignore, 0},
    {1, "/bridge/vvlan/cos_dscp/*", ignore, 0},
    {1, "/bridge/vvlan/age_timer/*", ignore, 0},
    {1, "/bridge/vvlan/port_oper/*", ignore, 0},
    {1, "/bridge/vvlan/oui_oper/*", ignore, 0},
    {0, "/bri/mac/macTblDyn_vvlan/*", count_learning, 0},
    {0, "/bridge/vvlan/spec_oui_msg/*", ignore, 0},
    {0, "/bridge/mac_vlan/table/*", ignore, 0},
    {1, "/bridge/vvlan/data/end", ignore, 0},
    {0, "debugDovVVlan", ignore, 0},
};

int bus_consumer(const std::string &socket_path, size_t count) {
    setenv("TUKREDIS_SOCKET", socket_path.c_str(), 1);
    if (tukredis_init(g_rows, 11, nullptr, 0) != 0 || tukredis_db_connect() != 0 ||
        tukredis_db_psubscrible() != 0) {
        return 2;
    }
    g_target = count;
    say("ready\n");
    hear();
    std::thread([] { tukredis_pubsub(); }).detach();
    for (size_t seen = g_learnings.load(std::memory_order_acquire); seen < count;
         seen = g_learnings.load(std::memory_order_acquire)) {
        g_learnings.wait(seen, std::memory_order_acquire);
    }
    say("done\n");
    return 0;
}

// The join's floor: the daemon's reads and writes for a join without the
// daemon. The port is the learning's phyid less one, as the benchmark's
// device map has it.
int relay(const std::string &socket_path) {
    redisContext *subscription = redisConnectUnix(socket_path.c_str());
    redisContext *command = redisConnectUnix(socket_path.c_str());
    if (subscription == nullptr || subscription->err != 0 || command == nullptr ||
        command->err != 0) {
        return 2;
    }
    freeReplyObject(redisCommand(subscription, "PSUBSCRIBE %s", LEARNING_CHANNELS));
    say("ready\n");
    constexpr std::string_view CHANNEL_PREFIX = "__keyspace@0__:";
    for (;;) {
        void *raw = nullptr;
        if (redisGetReply(subscription, &raw) != REDIS_OK) {
            return 2;
        }
        const auto *reply = static_cast<redisReply *>(raw);
        if (is_pmessage(reply)) {
            const std::string_view channel(reply->element[2]->str, reply->element[2]->len);
            const std::string_view event(reply->element[3]->str, reply->element[3]->len);
            const auto learned = parse_mac_learning_key(channel.substr(CHANNEL_PREFIX.size()));
            if (event == "set" && learned) {
                const int32_t ifx = learned->phyid - 1;
                redisAppendCommand(command, "SELECT 0");
                redisAppendCommand(command, "SET %s relay",
                                   port_oper_key(ifx, PORT_MODE_JOINED).c_str());
                redisAppendCommand(command, "SELECT 1");
                redisAppendCommand(command, "SET %s relay", join_request_key(ifx).c_str());
                for (int i = 0; i < 4; ++i) {
                    void *answer = nullptr;
                    if (redisGetReply(command, &answer) != REDIS_OK) {
                        return 2;
                    }
                    freeReplyObject(answer);
                }
            }
        }
        freeReplyObject(raw);
    }
}

std::string read_word(int fd) {
    std::string word;
    char c = 0;
    while (read(fd, &c, 1) == 1 && c != '\n') {
        word.push_back(c);
    }
    return word;
}

} // namespace

const char *consumer_name(consumer_kind kind) {
    switch (kind) {
    case consumer_kind::HIREDIS:
        return "hiredis";
    case consumer_kind::RAW:
        return "raw";
    case consumer_kind::BUS:
        return "bus";
    case consumer_kind::RELAY:
        return "relay";
    }
    return "?";
}

int consumer_main(consumer_kind kind, const std::string &socket_path, size_t count) {
    switch (kind) {
    case consumer_kind::HIREDIS:
        return hiredis_consumer(socket_path, count);
    case consumer_kind::RAW:
        return raw_consumer(socket_path, count);
    case consumer_kind::BUS:
        return bus_consumer(socket_path, count);
    case consumer_kind::RELAY:
        return relay(socket_path);
    }
    return 2;
}

consumer_process::consumer_process(consumer_kind kind, const std::string &socket_path,
                                   size_t count) {
    int down[2];
    int up[2];
    if (pipe(down) != 0 || pipe(up) != 0) {
        throw std::runtime_error("pipe");
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, down[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, up[1], STDOUT_FILENO);
    const std::string number = std::to_string(count);
    const char *argv[] = {"dov_vvlan_bus_bench", "--consumer",   consumer_name(kind),
                          socket_path.c_str(),   number.c_str(), nullptr};
    pid_t pid = -1;
    if (posix_spawn(&pid, "/proc/self/exe", &actions, nullptr, const_cast<char **>(argv),
                    environ) != 0) {
        throw std::runtime_error("cannot start a consumer");
    }
    posix_spawn_file_actions_destroy(&actions);
    close(down[0]);
    close(up[1]);
    pid_ = pid;
    to_child_ = down[1];
    from_child_ = up[0];
    if (read_word(from_child_) != "ready") {
        throw std::runtime_error(std::string("consumer ") + consumer_name(kind) + " failed");
    }
}

consumer_process::~consumer_process() {
    close(to_child_);
    close(from_child_);
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
}

void consumer_process::go() {
    went_ = steady_clock::now();
    if (write(to_child_, "go\n", 3) != 3) {
        throw std::runtime_error("consumer gone");
    }
}

double consumer_process::finish() {
    if (read_word(from_child_) != "done") {
        throw std::runtime_error("consumer failed");
    }
    return seconds_since(went_);
}

} // namespace busbench
