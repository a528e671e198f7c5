// SPDX-License-Identifier: BSD-3-Clause
#include "tls.h"

#include <poll.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>

#if DOV_VVLAN_HAVE_TLS
#include <arpa/inet.h>
#include <hiredis/hiredis_ssl.h>
#include <memory>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#endif

namespace conn_settings {
namespace {

const char *env_or_null(const char *name) {
    const char *value = std::getenv(name);
    return value != nullptr && value[0] != '\0' ? value : nullptr;
}

void take_env(const char *name, std::string &field) {
    if (const char *value = env_or_null(name)) {
        field = value;
    }
}

#if DOV_VVLAN_HAVE_TLS

struct ssl_ctx_free {
    void operator()(SSL_CTX *ctx) const noexcept { SSL_CTX_free(ctx); }
};
struct ssl_free {
    void operator()(SSL *ssl) const noexcept { SSL_free(ssl); }
};
using ssl_ctx_ptr = std::unique_ptr<SSL_CTX, ssl_ctx_free>;
using ssl_ptr = std::unique_ptr<SSL, ssl_free>;

// OpenSSL's reason for the last failure, or fallback.
std::string openssl_reason(const char *fallback) {
    const unsigned long error = ERR_peek_last_error();
    const char *reason = error != 0 ? ERR_reason_error_string(error) : nullptr;
    ERR_clear_error();
    return reason != nullptr ? reason : fallback;
}

bool is_ip_address(const std::string &name) {
    unsigned char bytes[16];
    return inet_pton(AF_INET, name.c_str(), bytes) == 1 ||
           inet_pton(AF_INET6, name.c_str(), bytes) == 1;
}

// What a certificate file, key or CA location gives, or why not.
bool load_files(SSL_CTX *ctx, const tls_settings &tls, std::string &why) {
    if (tls.verify) {
        SSL_CTX_set_verify(ctx, SSL_VERIFY_PEER, nullptr);
        if (!tls.ca_file.empty() || !tls.ca_dir.empty()) {
            if (SSL_CTX_load_verify_locations(
                    ctx, tls.ca_file.empty() ? nullptr : tls.ca_file.c_str(),
                    tls.ca_dir.empty() ? nullptr : tls.ca_dir.c_str()) != 1) {
                why = "TLS: cannot load the CA certificates ";
                why += tls.ca_file.empty() ? tls.ca_dir : tls.ca_file;
                why += ": ";
                why += openssl_reason("unreadable");
                return false;
            }
        } else if (SSL_CTX_set_default_verify_paths(ctx) != 1) {
            why = "TLS: cannot load the system's CA certificates: ";
            why += openssl_reason("unreadable");
            return false;
        }
    } else {
        SSL_CTX_set_verify(ctx, SSL_VERIFY_NONE, nullptr);
    }
    if (!tls.cert_file.empty()) {
        if (SSL_CTX_use_certificate_chain_file(ctx, tls.cert_file.c_str()) != 1) {
            why = "TLS: cannot load the client certificate " + tls.cert_file + ": ";
            why += openssl_reason("unreadable");
            return false;
        }
        if (SSL_CTX_use_PrivateKey_file(ctx, tls.key_file.c_str(), SSL_FILETYPE_PEM) != 1 ||
            SSL_CTX_check_private_key(ctx) != 1) {
            why = "TLS: cannot use the key " + tls.key_file + ": ";
            why += openssl_reason("unreadable");
            return false;
        }
    }
    return true;
}

// One line for a handshake that failed, with what to check.
std::string handshake_failure(SSL *ssl, int error) {
    const long verified = SSL_get_verify_result(ssl);
    if (verified != X509_V_OK) {
        std::string why = "the server's certificate does not verify: ";
        why += X509_verify_cert_error_string(verified);
        why += " (is the CA that signed it given, and is the host its name?)";
        ERR_clear_error();
        return why;
    }
    if (error == SSL_ERROR_SYSCALL || error == SSL_ERROR_ZERO_RETURN) {
        const int saved = errno;
        ERR_clear_error();
        return saved != 0 ? std::string("TLS handshake: ") + std::strerror(saved)
                          : "TLS handshake: the server closed the connection";
    }
    std::string why = "TLS handshake failed: ";
    why += openssl_reason("protocol error");
    why += " (does the server speak TLS on this port?)";
    return why;
}

#endif

} // namespace

bool tls_available() noexcept {
    return DOV_VVLAN_HAVE_TLS != 0;
}

bool tls_from_environment(tls_settings &out, std::string &why) {
    if (const char *on = env_or_null("TUKREDIS_TLS")) {
        const std::string_view value(on);
        if (value == "1" || value == "yes" || value == "on") {
            out.enabled = true;
        } else if (value == "0" || value == "no" || value == "off") {
            out.enabled = false;
        } else {
            why = "TUKREDIS_TLS \"" + std::string(value) + "\" is neither on (1, yes, on) nor off";
            return false;
        }
    }
    take_env("TUKREDIS_TLS_CACERT", out.ca_file);
    take_env("TUKREDIS_TLS_CACERTDIR", out.ca_dir);
    take_env("TUKREDIS_TLS_CERT", out.cert_file);
    take_env("TUKREDIS_TLS_KEY", out.key_file);
    take_env("TUKREDIS_TLS_SNI", out.server_name);
    return true;
}

bool tls_usable(const tls_settings &tls, std::string &why) {
    if (!tls.enabled) {
        return true;
    }
    if (!tls_available()) {
        why = "TLS is unavailable: this build's hiredis has no hiredis_ssl (hiredis 1.0 or later "
              "with OpenSSL is needed)";
        return false;
    }
    if (tls.cert_file.empty() != tls.key_file.empty()) {
        why = "TLS: a client certificate needs its key and a key its certificate";
        return false;
    }
    return true;
}

bool start_tls(redisContext *context, const tls_settings &tls, const std::string &host,
               std::chrono::milliseconds timeout, std::string &why) {
    if (!tls_usable(tls, why)) {
        return false;
    }
#if DOV_VVLAN_HAVE_TLS
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    ssl_ctx_ptr ctx(SSL_CTX_new(TLS_client_method()));
    if (!ctx || SSL_CTX_set_min_proto_version(ctx.get(), TLS1_2_VERSION) != 1) {
        why = "TLS: " + openssl_reason("out of memory");
        return false;
    }
    if (!load_files(ctx.get(), tls, why)) {
        return false;
    }
    // The SSL object holds its own reference to ctx.
    ssl_ptr ssl(SSL_new(ctx.get()));
    if (!ssl) {
        why = "TLS: " + openssl_reason("out of memory");
        return false;
    }
    const std::string &name = tls.server_name.empty() ? host : tls.server_name;
    const bool ip = is_ip_address(name);
    if (!ip && SSL_set_tlsext_host_name(ssl.get(), name.c_str()) != 1) {
        why = "TLS: server name \"" + name + "\": " + openssl_reason("refused");
        return false;
    }
    if (tls.verify) {
        X509_VERIFY_PARAM *param = SSL_get0_param(ssl.get());
        X509_VERIFY_PARAM_set_hostflags(param, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
        const int set = ip ? X509_VERIFY_PARAM_set1_ip_asc(param, name.c_str())
                           : X509_VERIFY_PARAM_set1_host(param, name.c_str(), 0);
        if (set != 1) {
            why = "TLS: cannot check the server's name \"" + name + "\"";
            return false;
        }
    }
    ERR_clear_error();
    errno = 0;
    SSL *raw = ssl.get();
    if (redisInitiateSSL(context, raw) != REDIS_OK) {
        // hiredis has not taken the object: it is still ours to free.
        why = handshake_failure(raw, SSL_get_error(raw, -1));
        return false;
    }
    ssl.release(); // freed with the context from now on
    // A non-blocking context has only begun the handshake; it is finished
    // here, within the deadline, instead of inside the first command.
    while (SSL_is_init_finished(raw) == 0) {
        ERR_clear_error();
        errno = 0;
        const int done = SSL_do_handshake(raw);
        if (done == 1) {
            break;
        }
        const int error = SSL_get_error(raw, done);
        short events = 0;
        if (error == SSL_ERROR_WANT_READ) {
            events = POLLIN;
        } else if (error == SSL_ERROR_WANT_WRITE) {
            events = POLLOUT;
        } else {
            why = handshake_failure(raw, error);
            return false;
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            why = "TLS handshake: no answer within " + std::to_string(timeout.count()) + " ms";
            return false;
        }
        pollfd ready{context->fd, events, 0};
        const int polled = poll(&ready, 1, static_cast<int>(left.count()));
        if (polled < 0 && errno != EINTR) {
            why = std::string("TLS handshake: poll: ") + std::strerror(errno);
            return false;
        }
    }
    return true;
#else
    (void)context;
    (void)host;
    (void)timeout;
    return false;
#endif
}

} // namespace conn_settings
