// SPDX-License-Identifier: BSD-3-Clause
// TLS to the server, for a switch whose Redis listens only on a TLS port or
// an operator reaching a switch over a network. Read with the rest of the
// connection settings, from the same environment:
//
//   TUKREDIS_TLS           "1", "yes" or "on": TCP connections use TLS
//   TUKREDIS_TLS_CACERT    the CA certificates (PEM file) that vouch for
//                          the server; the system's CAs when neither this
//                          nor TUKREDIS_TLS_CACERTDIR is set
//   TUKREDIS_TLS_CACERTDIR a directory of hashed CA certificates
//   TUKREDIS_TLS_CERT      a client certificate (PEM), for a server that
//   TUKREDIS_TLS_KEY       asks for one (tls-auth-clients), and its key
//   TUKREDIS_TLS_SNI       the server's name: sent as SNI and required in
//                          its certificate; the host when unset
//
// The server's certificate is always verified, and its name or address
// checked against the host (or the SNI name). Only a tool run by hand may
// turn verification off (vvlanctl --insecure), never the daemon.
//
// Needs hiredis 1.0 or later with hiredis_ssl; a build without them says
// so when TLS is asked for, and connects to nothing.
#pragma once

#include <hiredis/hiredis.h>

#include <chrono>
#include <string>

namespace conn_settings {

struct tls_settings {
    bool enabled = false;
    std::string ca_file;
    std::string ca_dir;
    std::string cert_file;
    std::string key_file;
    std::string server_name;
    bool verify = true;
};

// Whether this build can speak TLS at all.
bool tls_available() noexcept;

// The TUKREDIS_TLS* variables over out. False with why for a TUKREDIS_TLS
// that is neither on nor off, or a certificate without its key.
bool tls_from_environment(tls_settings &out, std::string &why);

// Checks what can be checked before connecting: a build with TLS, a
// certificate with its key. False with why.
bool tls_usable(const tls_settings &tls, std::string &why);

// Starts TLS on a connected context, blocking or not, and finishes the
// handshake within timeout: the server's certificate is verified against the
// CAs and the host (the name to check, an IP address or a DNS name).
// Afterwards hiredis reads and writes through TLS. False with why: a line
// that names the cause (an unreadable file, a certificate that does not
// verify and why, a server that does not speak TLS, a timeout).
bool start_tls(redisContext *context, const tls_settings &tls, const std::string &host,
               std::chrono::milliseconds timeout, std::string &why);

} // namespace conn_settings
