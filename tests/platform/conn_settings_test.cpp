// SPDX-License-Identifier: BSD-3-Clause
// Where the server is: the command line, then TUKREDIS_SOCKET, TUKREDIS_HOST
// and TUKREDIS_PORT, then 127.0.0.1:6379, the same for every program.
#include "conn_settings.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace {

using conn_settings::address_options;
using conn_settings::server_address;

// Each test starts from an environment without the three variables.
class ConnSettingsTest : public ::testing::Test {
  protected:
    void SetUp() override {
        for (const char *name : {"TUKREDIS_SOCKET", "TUKREDIS_HOST", "TUKREDIS_PORT",
                                 "TUKREDIS_TLS", "TUKREDIS_TLS_CACERT", "TUKREDIS_TLS_CACERTDIR",
                                 "TUKREDIS_TLS_CERT", "TUKREDIS_TLS_KEY", "TUKREDIS_TLS_SNI"}) {
            unsetenv(name);
        }
    }
    void TearDown() override { SetUp(); }

    static server_address resolved(const address_options &given) {
        server_address a;
        std::string why;
        EXPECT_TRUE(conn_settings::resolve(given, a, why)) << why;
        return a;
    }
    static std::string refused(const address_options &given) {
        server_address a;
        std::string why;
        EXPECT_FALSE(conn_settings::resolve(given, a, why)) << a.describe();
        return why;
    }
};

TEST_F(ConnSettingsTest, NothingSetIsTheLocalDefaultPort) {
    const server_address a = resolved({});
    EXPECT_EQ(a.socket_path, "");
    EXPECT_EQ(a.host, "127.0.0.1");
    EXPECT_EQ(a.port, 6379);
    EXPECT_EQ(a.describe(), "127.0.0.1:6379");
}

TEST_F(ConnSettingsTest, SocketWinsOverHostAndPortInTheEnvironment) {
    setenv("TUKREDIS_SOCKET", "/run/redis/redis.sock", 1);
    setenv("TUKREDIS_HOST", "192.0.2.1", 1);
    setenv("TUKREDIS_PORT", "7000", 1);
    server_address a;
    std::string why;
    ASSERT_TRUE(conn_settings::from_environment(a, why)) << why;
    EXPECT_EQ(a.socket_path, "/run/redis/redis.sock");
    EXPECT_EQ(a.describe(), "/run/redis/redis.sock");
}

TEST_F(ConnSettingsTest, EmptyVariablesCountAsUnset) {
    setenv("TUKREDIS_SOCKET", "", 1);
    setenv("TUKREDIS_HOST", "", 1);
    setenv("TUKREDIS_PORT", "", 1);
    EXPECT_EQ(resolved({}).describe(), "127.0.0.1:6379");
}

TEST_F(ConnSettingsTest, HostAndPortFromTheEnvironment) {
    setenv("TUKREDIS_HOST", "192.0.2.1", 1);
    setenv("TUKREDIS_PORT", "7000", 1);
    EXPECT_EQ(resolved({}).describe(), "192.0.2.1:7000");
}

TEST_F(ConnSettingsTest, CommandLineHostOrPortWinsOverTheEnvironmentsSocket) {
    setenv("TUKREDIS_SOCKET", "/run/redis/redis.sock", 1);
    EXPECT_EQ(resolved(address_options::where("", "192.0.2.7", "")).describe(), "192.0.2.7:6379");
    EXPECT_EQ(resolved(address_options::where("", "", "7001")).describe(), "127.0.0.1:7001");
    EXPECT_EQ(resolved(address_options::where("/tmp/other.sock", "", "")).describe(),
              "/tmp/other.sock");
}

TEST_F(ConnSettingsTest, CommandLinePortWinsOverTheEnvironmentsPort) {
    setenv("TUKREDIS_HOST", "192.0.2.1", 1);
    setenv("TUKREDIS_PORT", "7000", 1);
    EXPECT_EQ(resolved(address_options::where("", "", "7002")).describe(), "192.0.2.1:7002");
}

TEST_F(ConnSettingsTest, IPv6HostsAreBracketed) {
    EXPECT_EQ(resolved(address_options::where("", "::1", "16391")).describe(), "[::1]:16391");
}

TEST_F(ConnSettingsTest, PortsOutsideOneTo65535AreRefusedWithTheirSource) {
    EXPECT_EQ(refused(address_options::where("", "", "0")),
              "PORT \"0\" is not a port number (1..65535)");
    EXPECT_EQ(refused(address_options::where("", "", "65536")),
              "PORT \"65536\" is not a port number (1..65535)");
    EXPECT_EQ(refused(address_options::where("", "", "x")),
              "PORT \"x\" is not a port number (1..65535)");
    setenv("TUKREDIS_PORT", "-1", 1);
    EXPECT_EQ(refused({}), "TUKREDIS_PORT \"-1\" is not a port number (1..65535)");
}

TEST_F(ConnSettingsTest, SocketPathsLongerThanASocketAddressAreRefused) {
    const std::string too_long(200, 'x');
    setenv("TUKREDIS_SOCKET", too_long.c_str(), 1);
    EXPECT_EQ(refused({}), "TUKREDIS_SOCKET is longer than a socket path may be");
    EXPECT_EQ(refused(address_options::where(too_long, "", "")),
              "the socket path is longer than a socket path may be");
}

TEST_F(ConnSettingsTest, ConnectingToNothingSaysWhy) {
    std::string why;
    redisContext *c = conn_settings::connect_blocking(
        server_address::unix_socket("/nonexistent/redis.sock"), std::chrono::milliseconds(100),
        std::chrono::milliseconds(100), why);
    EXPECT_EQ(c, nullptr);
    EXPECT_NE(why.find("No such file"), std::string::npos) << why;
}

} // namespace

namespace {

// TLS is asked for in the environment, on the command line or by rediss://;
// the command line's files win; a Unix socket or a build without hiredis_ssl
// cannot have it.
TEST_F(ConnSettingsTest, TlsFromTheEnvironmentAndTheCommandLine) {
    if (!conn_settings::tls_available()) {
        address_options given;
        given.tls = true;
        EXPECT_EQ(refused(given), "TLS is unavailable: this build's hiredis has no hiredis_ssl "
                                  "(hiredis 1.0 or later with OpenSSL is needed)");
        return;
    }
    setenv("TUKREDIS_TLS", "yes", 1);
    setenv("TUKREDIS_TLS_CACERT", "/etc/ssl/switch-ca.pem", 1);
    setenv("TUKREDIS_TLS_SNI", "redis.switch", 1);
    server_address a = resolved({});
    EXPECT_TRUE(a.tls.enabled);
    EXPECT_TRUE(a.tls.verify);
    EXPECT_EQ(a.tls.ca_file, "/etc/ssl/switch-ca.pem");
    EXPECT_EQ(a.tls.server_name, "redis.switch");
    EXPECT_EQ(a.describe(), "127.0.0.1:6379 with TLS");

    address_options given;
    given.tls_files.ca_file = "/tmp/other-ca.pem";
    given.insecure = true;
    a = resolved(given);
    EXPECT_EQ(a.tls.ca_file, "/tmp/other-ca.pem");
    EXPECT_EQ(a.tls.server_name, "redis.switch");
    EXPECT_FALSE(a.tls.verify);

    setenv("TUKREDIS_TLS", "off", 1);
    EXPECT_FALSE(resolved({}).tls.enabled);
    given = {};
    given.tls = true;
    EXPECT_TRUE(resolved(given).tls.enabled);
}

TEST_F(ConnSettingsTest, TlsSettingsThatCannotWorkAreRefused) {
    setenv("TUKREDIS_TLS", "maybe", 1);
    EXPECT_EQ(refused({}), "TUKREDIS_TLS \"maybe\" is neither on (1, yes, on) nor off");
    unsetenv("TUKREDIS_TLS");
    if (!conn_settings::tls_available()) {
        GTEST_SKIP() << "built without hiredis_ssl: the refusal is tested above";
    }
    address_options given;
    given.tls = true;
    given.socket_path = "/run/redis.sock";
    EXPECT_EQ(refused(given),
              "TLS is asked for, but the server is the Unix socket /run/redis.sock: "
              "TLS is for a TCP host and port");
    given.socket_path.clear();
    given.tls_files.cert_file = "/etc/ssl/client.pem";
    EXPECT_EQ(refused(given), "TLS: a client certificate needs its key and a key its certificate");
}

TEST_F(ConnSettingsTest, RedissUrlsAskForTls) {
    conn_settings::url_parts parts;
    std::string why;
    ASSERT_TRUE(conn_settings::parse_url("rediss://ops:pw@[::1]:6380", parts, why)) << why;
    EXPECT_TRUE(parts.where.tls);
    EXPECT_EQ(parts.where.host, "::1");
    EXPECT_EQ(parts.where.port, "6380");
    EXPECT_EQ(parts.who.user, "ops");
    ASSERT_TRUE(conn_settings::parse_url("redis://host", parts, why)) << why;
    EXPECT_FALSE(parts.where.tls);
    EXPECT_FALSE(conn_settings::parse_url("redisss://host", parts, why));
    EXPECT_EQ(why, "URL \"redisss://host\" is neither redis://..., rediss://... nor unix://...");
}

} // namespace
