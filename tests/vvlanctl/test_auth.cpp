// SPDX-License-Identifier: BSD-3-Clause
// A server that requires a password: the daemon as its ACL user and the tool
// with each of its ways of being told who it is; a refusal is one line that
// names the cause and the settings, with the "cannot connect" status.
#include "ctl_fixture.h"
#include "testsupport/server_features.h"

namespace ctltest {
namespace {

class AuthTest : public CtlTest {
  protected:
    // New connections of the default user need this password from now on.
    // The fixture's own client authenticates with it too: servers before 6.0
    // ask it again of connections already open.
    void require_password(const std::string &password) {
        ASSERT_EQ(redis().command({"CONFIG", "SET", "requirepass", password})->type,
                  REDIS_REPLY_STATUS);
        if (!password.empty()) {
            ASSERT_EQ(redis().command({"AUTH", password})->type, REDIS_REPLY_STATUS);
        }
    }
    void add_voice_user() {
        const testsupport::server_features server = testsupport::features_of(redis());
        ASSERT_EQ(redis().command(testsupport::acl_setuser_all(server, "vvlan", "voice-pw"))->type,
                  REDIS_REPLY_STATUS);
    }
    bool server_has_acl_users() { return testsupport::features_of(redis()).acl_users(); }
    static const std::map<std::string, std::string> &as_voice_user() {
        static const std::map<std::string, std::string> env = {{"TUKREDIS_USER", "vvlan"},
                                                               {"TUKREDIS_PASSWORD", "voice-pw"}};
        return env;
    }
};

TEST_F(AuthTest, DaemonAndToolJoinAPhoneOnAServerThatRequiresAPassword) {
    if (!server_has_acl_users()) {
        GTEST_SKIP() << "ACL users came with Redis 6.0";
    }
    add_voice_user();
    require_password("admin-pw");
    start_daemon(false, as_voice_user());
    ok({"--user", "vvlan", "--pass", "voice-pw", "set", "vid", "100"});
    ok({"add", "oui", "00e0bb000000"}, {{"REDISCLI_AUTH", "admin-pw"}});
    ok({"set", "auto", "5"}, as_voice_user());
    ok({"-a", "admin-pw", "learn", "100", "6", "00e0bb123456"});
    ok({"-a", "admin-pw", "sync", "--timeout", "60"});
    EXPECT_EQ(db1(join_key(5)), integration::bytes({0, 0, 0, 5}));
    const tool_result url =
        run_tool(server().dir(), {"-u", "unix://vvlan:voice-pw@" + server().socket_path(), "show"},
                 {}, integration::patience(20s));
    EXPECT_EQ(url.status, 0) << url.err;
    EXPECT_NE(url.out.find("00:e0:bb:12:34:56 (6, 0)"), std::string::npos) << url.out;
}

TEST_F(AuthTest, MissingOrWrongPasswordIsOneLineAndStatus3) {
    require_password("admin-pw");
    const tool_result none = ctl({"show"});
    EXPECT_EQ(none.status, 3);
    EXPECT_NE(none.err.find("the server requires authentication and none is configured: set "
                            "--user and --pass"),
              std::string::npos)
        << none.err;
    const tool_result wrong = ctl({"show"}, {{"REDISCLI_AUTH", "nope"}});
    EXPECT_EQ(wrong.status, 3);
    EXPECT_NE(wrong.err.find("the server refused the password of the default user"),
              std::string::npos)
        << wrong.err;
    EXPECT_EQ(std::count(wrong.err.begin(), wrong.err.end(), '\n'), 1) << wrong.err;
}

// As redis-cli: a password on the command line is warned about, and a server
// without one refuses it.
TEST_F(AuthTest, APasswordOnTheCommandLineIsWarnedAboutAndNeededByTheServer) {
    const tool_result r = ctl({"-a", "unused", "show"});
    EXPECT_EQ(r.status, 3);
    EXPECT_NE(r.err.find("Warning: Using a password with '-a'"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("the server cannot take this AUTH"), std::string::npos) << r.err;
}

TEST_F(AuthTest, UrlsThatSayTooLittleOrTooMuchAreRefused) {
    for (const std::string url :
         {"http://host", "redis://", "redis://host:0", "redis://host/1", "unix://relative.sock"}) {
        const tool_result r =
            run_tool(server().dir(), {"-u", url, "show"}, {}, integration::patience(20s));
        EXPECT_EQ(r.status, 3) << url << ": " << r.err;
        EXPECT_NE(r.err.find("URL"), std::string::npos) << url << ": " << r.err;
    }
}

} // namespace
} // namespace ctltest
