// SPDX-License-Identifier: BSD-3-Clause
// The daemon and vvlanctl over TLS, against a redis-server listening on a
// loopback TLS port with a throwaway CA made by openssl. The test itself
// writes through the server's Unix socket, as the management plane would.
// A certificate signed by another CA is refused with a line that says so,
// and the daemon's reconnect back-off holds while it is.
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "testsupport/free_port.h"
#include "voice_vlan_fixture.h"

namespace integration {
namespace {

const mac6 OUI_A{0x00, 0xe0, 0xbb, 0x00, 0x00, 0x00};

// Runs a shell command; its status, with its output in *output.
int run(const std::string &command, std::string *output = nullptr) {
    FILE *p = popen((command + " 2>&1").c_str(), "r");
    if (p == nullptr) {
        return -1;
    }
    std::string text;
    std::array<char, 4096> buffer{};
    for (size_t n; (n = std::fread(buffer.data(), 1, buffer.size(), p)) > 0;) {
        text.append(buffer.data(), n);
    }
    const int status = pclose(p);
    if (output != nullptr) {
        *output = text;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

class TlsTest : public VoiceVlanTest {
  protected:
    // A CA, a server certificate it signs for 127.0.0.1 and localhost, and
    // another CA that signs nothing here.
    std::vector<std::string> server_args() override {
        dir_ = server().dir();
        port_ = testsupport::free_loopback_port();
        const std::string ec = " -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes";
        std::ofstream(dir_ + "/san.ext") << "subjectAltName=IP:127.0.0.1,DNS:localhost\n";
        for (const std::string &command :
             {"openssl req -x509" + ec + " -days 2 -subj /CN=vvlan-test-ca -keyout " + dir_ +
                  "/ca.key -out " + dir_ + "/ca.pem",
              "openssl req -x509" + ec + " -days 2 -subj /CN=other-ca -keyout " + dir_ +
                  "/other.key -out " + dir_ + "/other-ca.pem",
              "openssl req" + ec + " -subj /CN=localhost -keyout " + dir_ + "/server.key -out " +
                  dir_ + "/server.csr",
              "openssl x509 -req -days 2 -in " + dir_ + "/server.csr -CA " + dir_ +
                  "/ca.pem -CAkey " + dir_ + "/ca.key -CAcreateserial -extfile " + dir_ +
                  "/san.ext -out " + dir_ + "/server.pem"}) {
            std::string output;
            EXPECT_EQ(run(command, &output), 0) << command << "\n" << output;
        }
        return {"--tls-port",         std::to_string(port_),
                "--tls-cert-file",    dir_ + "/server.pem",
                "--tls-key-file",     dir_ + "/server.key",
                "--tls-ca-cert-file", dir_ + "/ca.pem",
                "--tls-auth-clients", "no"};
    }

    // The daemon's settings for the TLS port; TUKREDIS_SOCKET empty counts as
    // unset and keeps the fixture's socket out.
    std::map<std::string, std::string> tls_env(const std::string &ca) const {
        return {{"TUKREDIS_SOCKET", ""},
                {"TUKREDIS_HOST", "127.0.0.1"},
                {"TUKREDIS_PORT", std::to_string(port_)},
                {"TUKREDIS_TLS", "1"},
                {"TUKREDIS_TLS_CACERT", dir_ + "/" + ca}};
    }

    std::string vvlanctl(const std::string &arguments) const {
        return std::string("LIBSDM_PORT_MAP= TUKREDIS_SOCKET= ") + DOV_VVLAN_VVLANCTL + " " +
               arguments;
    }

    long long refused_handshakes() {
        const std::string log = server().log();
        long long count = 0;
        for (size_t at = log.find(REFUSED); at != std::string::npos;
             at = log.find(REFUSED, at + 1)) {
            ++count;
        }
        return count;
    }
    static constexpr const char *REFUSED = "Error accepting a client connection";

    std::string dir_;
    int port_ = 0;
};

TEST_F(TlsTest, TheDaemonJoinsAVoicePortOverTls) {
    start_daemon(true, tls_env("ca.pem"));
    set_aging_minutes(0);
    set_vid(100);
    add_oui(OUI_A);
    auto_port(5);
    barrier();
    ASSERT_EQ(db0("/bridge/vvlan/vid/100"), bytes({0, 0}));
    learn(100, 6, "00e0bb123456");
    ASSERT_TRUE(wait_db(1, join_key(5), testcommon::be32_bytes(5), patience(5s)));
    // Both of the daemon's connections, the subscription and the commands,
    // came in on the TLS port.
    const auto clients = redis().command({"CLIENT", "LIST"});
    const std::string list(clients->str, clients->len);
    const std::string tls_port = "laddr=127.0.0.1:" + std::to_string(port_) + " ";
    int on_tls = 0;
    for (size_t at = list.find(tls_port); at != std::string::npos;
         at = list.find(tls_port, at + 1)) {
        ++on_tls;
    }
    EXPECT_EQ(on_tls, 2) << list;
}

TEST_F(TlsTest, AnotherCaIsRefusedWithAClearLineAndTheBackoffHolds) {
    daemon_ = make_daemon(tls_env("other-ca.pem"), "daemon.err");
    daemon_->start();
    const std::string line = "cannot connect to 127.0.0.1:" + std::to_string(port_) +
                             " with TLS: the server's certificate does not verify: ";
    ASSERT_TRUE(testsupport::eventually(
        [&] { return daemon_->stderr_text().find(line) != std::string::npos; }, patience(10s)))
        << daemon_->stderr_text();
    // 50 ms doubling to 1 s: about 7 attempts in 3 s for each connection. A
    // retry without the pause would make hundreds. The server logs each
    // refused handshake (it never counts them as clients).
    const long long before = refused_handshakes();
    std::this_thread::sleep_for(3s);
    const long long attempts = refused_handshakes() - before;
    EXPECT_GE(attempts, 1);
    EXPECT_LE(attempts, 20);
    EXPECT_EQ(daemon_->stderr_text().find(line), daemon_->stderr_text().rfind(line))
        << "one line when the retrying starts: " << daemon_->stderr_text();
    EXPECT_EQ(db0("/bridge/vvlan/data/end"), std::nullopt);
}

TEST_F(TlsTest, VvlanctlSpeaksTlsAndRefusesAnotherCa) {
    const std::string port = std::to_string(port_);
    cfg_set("/bridge/vvlan/vid/100", "");
    std::string out;
    EXPECT_EQ(
        run(vvlanctl("-h 127.0.0.1 -p " + port + " --tls --cacert " + dir_ + "/ca.pem show"), &out),
        0)
        << out;
    EXPECT_NE(out.find("100"), std::string::npos) << out;
    EXPECT_EQ(
        run(vvlanctl("-u rediss://localhost:" + port + " --cacert " + dir_ + "/ca.pem show"), &out),
        0)
        << out;

    EXPECT_EQ(
        run(vvlanctl("-h 127.0.0.1 -p " + port + " --tls --cacert " + dir_ + "/other-ca.pem show"),
            &out),
        3)
        << out;
    EXPECT_NE(out.find("cannot connect to 127.0.0.1:" + port +
                       " with TLS: the server's certificate does not verify"),
              std::string::npos)
        << out;
    // The name in the certificate is checked too: redis.example is not in it.
    EXPECT_EQ(run(vvlanctl("-h 127.0.0.1 -p " + port + " --tls --sni redis.example --cacert " +
                           dir_ + "/ca.pem show"),
                  &out),
              3)
        << out;
    EXPECT_NE(out.find("does not verify: hostname mismatch"), std::string::npos) << out;
    // --insecure is the operator's own choice.
    EXPECT_EQ(run(vvlanctl("-h 127.0.0.1 -p " + port + " --tls --insecure show"), &out), 0) << out;
    // Plain text to a TLS port is no answer.
    EXPECT_EQ(run(vvlanctl("-h 127.0.0.1 -p " + port + " show"), &out), 3) << out;
}

} // namespace
} // namespace integration
