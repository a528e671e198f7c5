// SPDX-License-Identifier: BSD-3-Clause
#include "conn_settings.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace conn_settings {
namespace {

const char *env_or_null(const char *name) {
    const char *value = std::getenv(name);
    return value != nullptr && value[0] != '\0' ? value : nullptr;
}

bool socket_path_fits(std::string_view path) {
    return path.size() < sizeof(sockaddr_un::sun_path);
}

timeval to_timeval(std::chrono::milliseconds timeout) {
    return timeval{static_cast<time_t>(timeout.count() / 1000),
                   static_cast<suseconds_t>((timeout.count() % 1000) * 1000)};
}

} // namespace

std::string server_address::describe() const {
    if (!socket_path.empty()) {
        return socket_path;
    }
    const bool ipv6 = host.find(':') != std::string::npos;
    std::string text = ipv6 ? "[" + host + "]" : host;
    text += ':';
    text += std::to_string(port);
    if (tls.enabled) {
        text += " with TLS";
    }
    return text;
}

bool parse_port(std::string_view text, int &port) {
    if (text.empty() || text.size() > 5) {
        return false;
    }
    int value = 0;
    for (const char c : text) {
        if (c < '0' || c > '9') {
            return false;
        }
        value = value * 10 + (c - '0');
    }
    if (value < 1 || value > 65535) {
        return false;
    }
    port = value;
    return true;
}

namespace {

// The environment's TLS settings under what the command line gave.
bool resolve_tls(const address_options &given, tls_settings &tls, std::string &why) {
    if (!tls_from_environment(tls, why)) {
        return false;
    }
    const tls_settings &files = given.tls_files;
    tls.enabled = tls.enabled || given.tls;
    for (auto [from, to] : {std::pair{&files.ca_file, &tls.ca_file},
                            {&files.ca_dir, &tls.ca_dir},
                            {&files.cert_file, &tls.cert_file},
                            {&files.key_file, &tls.key_file},
                            {&files.server_name, &tls.server_name}}) {
        if (!from->empty()) {
            *to = *from;
        }
    }
    tls.verify = !given.insecure;
    return tls_usable(tls, why);
}

} // namespace

bool resolve(const address_options &given, server_address &out, std::string &why) {
    server_address a;
    if (!resolve_tls(given, a.tls, why)) {
        return false;
    }
    const char *env_socket = env_or_null("TUKREDIS_SOCKET");
    if (!given.socket_path.empty()) {
        a.socket_path = given.socket_path;
    } else if (given.host.empty() && given.port.empty() && env_socket != nullptr) {
        a.socket_path = env_socket;
    }
    if (!a.socket_path.empty()) {
        if (!socket_path_fits(a.socket_path)) {
            why = (given.socket_path.empty() ? "TUKREDIS_SOCKET" : "the socket path") +
                  std::string(" is longer than a socket path may be");
            return false;
        }
        if (a.tls.enabled) {
            why = "TLS is asked for, but the server is the Unix socket " + a.socket_path +
                  ": TLS is for a TCP host and port";
            return false;
        }
        out = a;
        return true;
    }

    const char *env_host = env_or_null("TUKREDIS_HOST");
    a.host = !given.host.empty() ? given.host : env_host != nullptr ? env_host : DEFAULT_HOST;
    a.port = DEFAULT_PORT;
    if (!given.port.empty()) {
        if (!parse_port(given.port, a.port)) {
            why = "PORT \"" + given.port + "\" is not a port number (1..65535)";
            return false;
        }
    } else if (const char *env_port = env_or_null("TUKREDIS_PORT")) {
        if (!parse_port(env_port, a.port)) {
            why = std::string("TUKREDIS_PORT \"") + env_port + "\" is not a port number (1..65535)";
            return false;
        }
    }
    out = a;
    return true;
}

redisContext *connect_blocking(const server_address &address,
                               std::chrono::milliseconds connect_timeout,
                               std::chrono::milliseconds io_timeout, std::string &why) {
    const timeval tv = to_timeval(connect_timeout);
    redisContext *context = address.socket_path.empty()
                                ? redisConnectWithTimeout(address.host.c_str(), address.port, tv)
                                : redisConnectUnixWithTimeout(address.socket_path.c_str(), tv);
    if (context == nullptr) {
        why = "out of memory";
        return nullptr;
    }
    if (context->err != 0 || redisSetTimeout(context, to_timeval(io_timeout)) != REDIS_OK) {
        why = context->errstr;
        redisFree(context);
        return nullptr;
    }
    if (address.tls.enabled && !start_tls(context, address.tls, address.host, io_timeout, why)) {
        redisFree(context);
        return nullptr;
    }
    return context;
}

bool read_password_file(const std::string &path, std::string &password, std::string &why) {
    // Opened first and checked through the descriptor, so that what is read
    // is what was checked; non-blocking, so that a FIFO cannot hold us.
    const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        why = "cannot open the password file " + path + ": " + std::strerror(errno);
        return false;
    }
    struct stat st {};
    std::string text;
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        why = "the password file " + path + " is not a regular file";
    } else if ((st.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        char mode[8];
        std::snprintf(mode, sizeof mode, "%04o", static_cast<unsigned>(st.st_mode & 07777));
        why = "the password file " + path + " may be read by others (mode " + mode +
              "): make it readable by its owner alone (chmod 600)";
    } else {
        char buf[512];
        for (;;) {
            const ssize_t n = read(fd, buf, sizeof buf);
            if (n < 0 && errno == EINTR) {
                continue;
            }
            if (n <= 0 || text.size() > 4096) {
                break;
            }
            text.append(buf, static_cast<std::size_t>(n));
        }
    }
    close(fd);
    if (!why.empty()) {
        return false;
    }
    password = text.substr(0, text.find_first_of("\r\n"));
    if (password.empty()) {
        why = "the password file " + path + " holds no password on its first line";
        return false;
    }
    return true;
}

bool credentials_from_environment(credentials &out, std::string &why) {
    credentials who;
    if (const char *user = env_or_null("TUKREDIS_USER")) {
        who.user = user;
    }
    if (const char *file = env_or_null("TUKREDIS_PASSWORD_FILE")) {
        if (!read_password_file(file, who.password, why)) {
            why = "TUKREDIS_PASSWORD_FILE: " + why;
            return false;
        }
    } else if (const char *password = env_or_null("TUKREDIS_PASSWORD")) {
        who.password = password;
    }
    out = who;
    return true;
}

std::vector<std::string> auth_command(const credentials &who) {
    if (who.user.empty()) {
        return {"AUTH", who.password};
    }
    return {"AUTH", who.user, who.password};
}

std::string auth_refusal(std::string_view reply, const credentials &who,
                         std::string_view settings) {
    const std::string as = who.user.empty() ? "the default user" : "user \"" + who.user + "\"";
    const std::string said = "(the server said: " + std::string(reply) + ")";
    if (reply.starts_with("NOAUTH")) {
        return "the server requires authentication and none is configured: set " +
               std::string(settings) + " " + said;
    }
    if (reply.starts_with("WRONGPASS") || reply.starts_with("ERR invalid password") ||
        reply.starts_with("ERR invalid username-password")) {
        return "the server refused the password of " + as + ": check " + std::string(settings) +
               " " + said;
    }
    if (reply.starts_with("NOPERM")) {
        return "the server denies " + as +
               " a command or key this program needs: give it the "
               "shipped ACL " +
               said;
    }
    if (reply.starts_with("ERR") && (reply.find("AUTH") != std::string_view::npos ||
                                     reply.find("auth") != std::string_view::npos)) {
        return "the server cannot take this AUTH (no password set, or no ACL users before "
               "Redis 6): check " +
               std::string(settings) + " " + said;
    }
    return {};
}

redisReply *command_argv(redisContext *context, const std::vector<std::string> &argv) {
    std::vector<const char *> args;
    std::vector<size_t> lengths;
    for (const std::string &a : argv) {
        args.push_back(a.data());
        lengths.push_back(a.size());
    }
    return static_cast<redisReply *>(
        redisCommandArgv(context, static_cast<int>(args.size()), args.data(), lengths.data()));
}

bool authenticate_blocking(redisContext *context, const credentials &who, std::string_view settings,
                           std::string &why) {
    if (who.password.empty()) {
        return true;
    }
    redisReply *reply = command_argv(context, auth_command(who));
    if (reply == nullptr) {
        why = context->err != 0 ? context->errstr : "no reply to AUTH";
        return false;
    }
    bool ok = true;
    if (reply->type == REDIS_REPLY_ERROR) {
        const std::string_view text(reply->str, reply->len);
        why = auth_refusal(text, who, settings);
        if (why.empty()) {
            why = "AUTH: " + std::string(text);
        }
        ok = false;
    }
    freeReplyObject(reply);
    return ok;
}

bool parse_url(std::string_view url, url_parts &out, std::string &why) {
    url_parts parts;
    std::string_view rest;
    bool unix_socket = false;
    if (url.starts_with("redis://")) {
        rest = url.substr(8);
    } else if (url.starts_with("rediss://")) {
        rest = url.substr(9);
        parts.where.tls = true;
    } else if (url.starts_with("unix://")) {
        rest = url.substr(7);
        unix_socket = true;
    } else {
        why =
            "URL \"" + std::string(url) + "\" is neither redis://..., rediss://... nor unix://...";
        return false;
    }
    // The user part ends at the last '@': a password may hold one.
    if (const std::size_t at = rest.rfind('@'); at != std::string_view::npos) {
        const std::string_view user_info = rest.substr(0, at);
        rest = rest.substr(at + 1);
        const std::size_t colon = user_info.find(':');
        parts.who.user = std::string(user_info.substr(0, colon));
        if (colon != std::string_view::npos) {
            parts.who.password = std::string(user_info.substr(colon + 1));
        }
    }
    if (unix_socket) {
        if (!rest.starts_with("/")) {
            why = "URL \"" + std::string(url) + "\" names no socket path";
            return false;
        }
        parts.where.socket_path = std::string(rest);
        out = parts;
        return true;
    }
    std::string_view host = rest;
    std::string_view port;
    if (const std::size_t slash = rest.find('/'); slash != std::string_view::npos) {
        if (rest.size() > slash + 1) {
            why = "URL \"" + std::string(url) +
                  "\" names a database: leave it out, both databases are read as needed";
            return false;
        }
        host = rest.substr(0, slash);
    }
    if (host.starts_with("[")) {
        const std::size_t close = host.find(']');
        if (close == std::string_view::npos) {
            why = "URL \"" + std::string(url) + "\" has an unclosed '['";
            return false;
        }
        if (host.size() > close + 1) {
            if (host[close + 1] != ':') {
                why = "URL \"" + std::string(url) + "\" has something after its host";
                return false;
            }
            port = host.substr(close + 2);
        }
        host = host.substr(1, close - 1);
    } else if (const std::size_t colon = host.rfind(':'); colon != std::string_view::npos) {
        port = host.substr(colon + 1);
        host = host.substr(0, colon);
    }
    if (host.empty()) {
        why = "URL \"" + std::string(url) + "\" names no host";
        return false;
    }
    int number = 0;
    if (!port.empty() && !parse_port(port, number)) {
        why = "URL \"" + std::string(url) + "\": port \"" + std::string(port) +
              "\" is not a port number (1..65535)";
        return false;
    }
    parts.where.host = std::string(host);
    parts.where.port = std::string(port);
    out = parts;
    return true;
}

} // namespace conn_settings
