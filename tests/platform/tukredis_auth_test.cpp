// SPDX-License-Identifier: BSD-3-Clause
// Authentication: AUTH before anything else on every connection, as the ACL
// user configured; a refusal is one line that names its cause and the
// settings to fix, said again at most once a minute while the retries go on
// at the usual back-off.
#include <sys/stat.h>

#include <fstream>
#include <sstream>

#include "testsupport/fd_capture.h"
#include "tukredis_fixture.h"

namespace platformtest {
namespace {

using namespace std::chrono_literals;

class TukredisAuthTest : public TukredisTest {
  protected:
    void SetUp() override {
        clear_credentials();
        TukredisTest::SetUp();
    }
    void TearDown() override {
        TukredisTest::TearDown();
        clear_credentials();
    }
    static void clear_credentials() {
        for (const char *name : {"TUKREDIS_USER", "TUKREDIS_PASSWORD", "TUKREDIS_PASSWORD_FILE"}) {
            unsetenv(name);
        }
    }
    // New connections of the default user need this password from now on.
    // The fixture's client authenticates with it too: servers before 6.0
    // ask it again of connections already open.
    void require_password(const std::string &password) {
        ASSERT_EQ(client_->command({"CONFIG", "SET", "requirepass", password})->type,
                  REDIS_REPLY_STATUS);
        if (!password.empty()) {
            ASSERT_EQ(client_->command({"AUTH", password})->type, REDIS_REPLY_STATUS);
        }
    }
    // The lines of the library's that contain text.
    static int lines_with(const std::string &log, const std::string &text) {
        int n = 0;
        for (std::size_t at = log.find(text); at != std::string::npos;
             at = log.find(text, at + 1)) {
            ++n;
        }
        return n;
    }
    // The connections of a user in CLIENT LIST's text, one a line; the user
    // field is the line's last before Redis 6.2.
    static int clients_of(const std::string &list, const std::string &user) {
        int n = 0;
        std::istringstream lines(list);
        for (std::string line; std::getline(lines, line);) {
            std::istringstream fields(line);
            for (std::string field; fields >> field;) {
                n += field == "user=" + user ? 1 : 0;
            }
        }
        return n;
    }
    // tukredis_db_connect on a thread, against a server that refuses it
    // until unblock makes it right; waits for four attempts, then returns
    // what the library wrote meanwhile.
    std::string refused_connect_log(const std::function<void()> &unblock) {
        testsupport::fd_capture err;
        std::atomic<int32_t> result{-2};
        background connect([&] { result = tukredis_db_connect(); }, unblock);
        EXPECT_EVENTUALLY(10s, stats().connect_attempts >= 4);
        const std::string log = err.text();
        unblock();
        connect.join();
        EXPECT_EQ(result.load(), 0) << "connects once the server takes it";
        return log;
    }
};

TEST_F(TukredisAuthTest, EveryConnectionAuthenticatesAsTheConfiguredUser) {
    const testsupport::server_features server = testsupport::features_of(*client_);
    if (!server.acl_users()) {
        GTEST_SKIP() << "ACL users came with Redis 6.0";
    }
    register_rows({recording_row(0, "/auth/*")});
    ASSERT_EQ(client_->command(testsupport::acl_setuser_all(server, "vvlan", "voice-pw"))->type,
              REDIS_REPLY_STATUS);
    require_password("admin-pw");
    setenv("TUKREDIS_USER", "vvlan", 1);
    setenv("TUKREDIS_PASSWORD", "voice-pw", 1);
    connect_and_subscribe();
    start_pubsub();
    client_->set(0, "/auth/key", "x");
    ASSERT_EVENTUALLY(5s, recorder::get().count() >= 1);
    // Both of the library's connections are the user's.
    const auto list = client_->command({"CLIENT", "LIST"});
    const std::string clients(list->str, list->len);
    EXPECT_EQ(clients_of(clients, "vvlan"), 2) << clients;
}

TEST_F(TukredisAuthTest, PasswordFromAFileReadableByItsOwnerAlone) {
    register_rows({recording_row(0, "/auth/*")});
    require_password("from-a-file");
    const std::string file = server_.dir() + "/password";
    std::ofstream(file) << "from-a-file\n";
    chmod(file.c_str(), 0600);
    setenv("TUKREDIS_PASSWORD_FILE", file.c_str(), 1);
    connect_and_subscribe();
}

TEST_F(TukredisAuthTest, RefusedPasswordIsOneLineNamingTheSettings) {
    register_rows({recording_row(0, "*")});
    require_password("right");
    setenv("TUKREDIS_PASSWORD", "wrong", 1);
    const std::string log = refused_connect_log([&] { require_password("wrong"); });
    EXPECT_EQ(lines_with(log, "tukredis:"), 1) << log;
    EXPECT_EQ(lines_with(log, "the server refused the password of the default user: check "
                              "TUKREDIS_USER and TUKREDIS_PASSWORD_FILE"),
              1)
        << log;
}

TEST_F(TukredisAuthTest, NoPasswordForAServerThatWantsOneSaysSo) {
    register_rows({recording_row(0, "*")});
    require_password("wanted");
    const std::string log = refused_connect_log([&] { require_password(""); });
    EXPECT_EQ(lines_with(log, "tukredis:"), 1) << log;
    EXPECT_EQ(lines_with(log, "the server requires authentication and none is configured: set "
                              "TUKREDIS_USER and TUKREDIS_PASSWORD_FILE"),
              1)
        << log;
}

TEST_F(TukredisAuthTest, PasswordFileReadableByOthersIsRefused) {
    register_rows({recording_row(0, "*")});
    require_password("secret");
    const std::string file = server_.dir() + "/password";
    std::ofstream(file) << "secret\n";
    chmod(file.c_str(), 0644);
    setenv("TUKREDIS_PASSWORD_FILE", file.c_str(), 1);
    const std::string log = refused_connect_log([&] { chmod(file.c_str(), 0600); });
    EXPECT_EQ(lines_with(log, "tukredis:"), 1) << log;
    EXPECT_EQ(lines_with(log, "may be read by others (mode 0644): make it readable by its owner "
                              "alone (chmod 600)"),
              1)
        << log;
}

} // namespace
} // namespace platformtest
