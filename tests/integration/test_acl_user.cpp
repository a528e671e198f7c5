// SPDX-License-Identifier: BSD-3-Clause
// The daemon as the shipped least-privilege Redis user (the user line of
// packaging/dov_vvlan-acl.conf, turned on with a password) on a server with
// ACLs: configuration, a join, an ageing, a re-synchronisation and the
// load-complete marker all work, and the user can write nothing outside the
// daemon's key set.
#include <fstream>
#include <sstream>

#include "testsupport/server_features.h"
#include "voice_vlan_fixture.h"

namespace integration {
namespace {

using testcommon::be32_bytes;

const mac6 OUI_A{0x00, 0xe0, 0xbb, 0x00, 0x00, 0x00};

class AclUserTest : public VoiceVlanTest {
  protected:
    // ACL SETUSER with the shipped rules, on and with a password. The user
    // has no CONFIG: the server's own configuration gives the events.
    // A server of 6.0 has ACL users but no channel permissions (every user
    // may subscribe to every channel): its integrator leaves the channel
    // rules out of the line, and so does the test.
    void add_shipped_user() {
        const testsupport::server_features features = testsupport::features_of(redis());
        if (!features.acl_users()) {
            GTEST_SKIP() << "ACL users came with Redis 6.0";
        }
        std::ifstream in(DOV_VVLAN_ACL_FILE);
        std::vector<std::string> argv{"ACL", "SETUSER"};
        for (std::string line; std::getline(in, line);) {
            if (line.starts_with("user ")) {
                std::istringstream words(line.substr(5));
                for (std::string w; words >> w;) {
                    const bool channel_rule = w == "resetchannels" || w.starts_with("&");
                    if (!channel_rule || features.channel_permissions()) {
                        argv.push_back(w == "off" ? "on" : w);
                    }
                }
            }
        }
        ASSERT_GT(argv.size(), 3u) << "no user line in " << DOV_VVLAN_ACL_FILE;
        ASSERT_EQ(argv[2], "dov_vvlan");
        argv.push_back(">acl-pw");
        const auto set = redis().command(argv);
        ASSERT_EQ(set->type, REDIS_REPLY_STATUS) << std::string(set->str, set->len);
        redis().command({"CONFIG", "SET", "notify-keyspace-events", "Kg$xe"});
    }
    static std::map<std::string, std::string> as_shipped_user() {
        return {{"TUKREDIS_USER", "dov_vvlan"}, {"TUKREDIS_PASSWORD", "acl-pw"}};
    }
};

TEST_F(AclUserTest, TheDaemonWorksAsTheShippedUserAndNoMore) {
    add_shipped_user();
    if (IsSkipped() || HasFatalFailure()) {
        return;
    }
    start_daemon(true, as_shipped_user());
    // CONFIG is refused, and the library says which flags the server needs.
    EXPECT_NE(daemon().stderr_text().find("must include \"Kg$xe\""), std::string::npos)
        << daemon().stderr_text();

    set_aging_minutes(0);
    set_vid(100);
    add_oui(OUI_A);
    auto_port(5);
    barrier();
    ASSERT_EQ(db0("/bridge/vvlan/vid/100"), bytes({0, 0}));

    learn(100, 6, "00e0bb123456");
    ASSERT_TRUE(wait_db(1, join_key(5), be32_bytes(5), patience(5s)));
    age(100, 6, "00e0bb123456");
    ASSERT_TRUE(wait_db(1, join_key(5), std::nullopt, patience(15s)));

    // A re-synchronisation, after the server ended the user's connections.
    const std::size_t mark = daemon().mark();
    const auto killed = redis().command({"CLIENT", "KILL", "USER", "dov_vvlan"});
    ASSERT_EQ(killed->type, REDIS_REPLY_INTEGER);
    EXPECT_EQ(killed->integer, 2) << "the subscription and the command connection";
    ASSERT_TRUE(testsupport::eventually(
        [&] {
            return daemon().output_since(mark).find("check_db_validate end") != std::string::npos;
        },
        patience(15s)));
    barrier();
    EXPECT_EQ(db0("/bridge/vvlan/vid/100"), bytes({0, 0}));
    EXPECT_EQ(daemon().stderr_text().find("NOPERM"), daemon().stderr_text().rfind("NOPERM"))
        << "only CONFIG is refused, once: " << daemon().stderr_text();

    // The user can write its own keys and nothing else.
    testsupport::redis_client as_user(server().socket_path());
    const auto auth = as_user.command({"AUTH", "dov_vvlan", "acl-pw"});
    ASSERT_EQ(auth->type, REDIS_REPLY_STATUS);
    const auto own = as_user.command(0, {"SET", "/bridge/vvlan/data/end", "1"});
    EXPECT_EQ(own->type, REDIS_REPLY_STATUS);
    const auto other = as_user.command(0, {"SET", "/bridge/other/key", "1"});
    ASSERT_EQ(other->type, REDIS_REPLY_ERROR);
    EXPECT_TRUE(std::string(other->str, other->len).starts_with("NOPERM"))
        << std::string(other->str, other->len);
    const auto config = as_user.command({"CONFIG", "SET", "notify-keyspace-events", ""});
    ASSERT_EQ(config->type, REDIS_REPLY_ERROR);
    EXPECT_TRUE(std::string(config->str, config->len).starts_with("NOPERM"));
}

} // namespace
} // namespace integration
