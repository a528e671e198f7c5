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
        for (const char *name : {"TUKREDIS_SOCKET", "TUKREDIS_HOST", "TUKREDIS_PORT"}) {
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
    EXPECT_EQ(resolved({"", "192.0.2.7", ""}).describe(), "192.0.2.7:6379");
    EXPECT_EQ(resolved({"", "", "7001"}).describe(), "127.0.0.1:7001");
    EXPECT_EQ(resolved({"/tmp/other.sock", "", ""}).describe(), "/tmp/other.sock");
}

TEST_F(ConnSettingsTest, CommandLinePortWinsOverTheEnvironmentsPort) {
    setenv("TUKREDIS_HOST", "192.0.2.1", 1);
    setenv("TUKREDIS_PORT", "7000", 1);
    EXPECT_EQ(resolved({"", "", "7002"}).describe(), "192.0.2.1:7002");
}

TEST_F(ConnSettingsTest, IPv6HostsAreBracketed) {
    EXPECT_EQ(resolved({"", "::1", "16391"}).describe(), "[::1]:16391");
}

TEST_F(ConnSettingsTest, PortsOutsideOneTo65535AreRefusedWithTheirSource) {
    EXPECT_EQ(refused({"", "", "0"}), "PORT \"0\" is not a port number (1..65535)");
    EXPECT_EQ(refused({"", "", "65536"}), "PORT \"65536\" is not a port number (1..65535)");
    EXPECT_EQ(refused({"", "", "x"}), "PORT \"x\" is not a port number (1..65535)");
    setenv("TUKREDIS_PORT", "-1", 1);
    EXPECT_EQ(refused({}), "TUKREDIS_PORT \"-1\" is not a port number (1..65535)");
}

TEST_F(ConnSettingsTest, SocketPathsLongerThanASocketAddressAreRefused) {
    const std::string too_long(200, 'x');
    setenv("TUKREDIS_SOCKET", too_long.c_str(), 1);
    EXPECT_EQ(refused({}), "TUKREDIS_SOCKET is longer than a socket path may be");
    EXPECT_EQ(refused({too_long, "", ""}), "the socket path is longer than a socket path may be");
}

TEST_F(ConnSettingsTest, ConnectingToNothingSaysWhy) {
    std::string why;
    redisContext *c = conn_settings::connect_blocking(
        server_address{"/nonexistent/redis.sock", {}, 0}, std::chrono::milliseconds(100),
        std::chrono::milliseconds(100), why);
    EXPECT_EQ(c, nullptr);
    EXPECT_NE(why.find("No such file"), std::string::npos) << why;
}

} // namespace
