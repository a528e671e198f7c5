// SPDX-License-Identifier: BSD-3-Clause
// The reply readers: binary-safe values, absent keys, strict integers, and a
// value fetched only when a handler asks for it.
#include "tukredis_fixture.h"

namespace platformtest {
namespace {

// The first thing the handler saw, once it has seen something.
seen_notification first_seen() {
    const std::vector<seen_notification> seen = recorder::get().seen();
    return seen.empty() ? seen_notification{} : seen.front();
}

// Reads key's value as an integer through a scan of exactly that key.
struct int_read {
    int32_t rc;
    int32_t value;
};
int_read read_int(const std::string &key, int32_t base) {
    recorder::get().reset();
    recorder::get().set_read(reply_read::INTEGER, base);
    EXPECT_EQ(tukredis_scan_key_pattern(0, key.c_str(), 10, record_handler, 0, 0), 0);
    const std::vector<seen_notification> seen = recorder::get().seen();
    EXPECT_EQ(seen.size(), 1U) << key;
    if (seen.size() != 1) {
        return {-99, 0};
    }
    return {seen.front().int_rc, seen.front().int_value};
}

TEST_F(TukredisTest, StringValueIsBinarySafeAndTerminated) {
    register_rows({recording_row(0, "*")});
    connect_and_subscribe();
    recorder::get().set_read(reply_read::STRING);
    start_pubsub();

    const std::string value("a\0b\0c", 5);
    client_->set(0, "bin", value);
    ASSERT_EVENTUALLY(5s, recorder::get().count() >= 1);
    const seen_notification seen = first_seen();
    EXPECT_EQ(seen.str_rc, 0);
    EXPECT_FALSE(seen.str_null);
    EXPECT_EQ(seen.str, value);
    EXPECT_TRUE(seen.str_terminated);
}

TEST_F(TukredisTest, EmptyValueIsPresentWithLengthZero) {
    register_rows({recording_row(0, "*")});
    connect_and_subscribe();
    recorder::get().set_read(reply_read::STRING);
    start_pubsub();

    client_->set(0, "empty", "");
    ASSERT_EVENTUALLY(5s, recorder::get().count() >= 1);
    const seen_notification seen = first_seen();
    EXPECT_EQ(seen.str_rc, 0);
    EXPECT_FALSE(seen.str_null);
    EXPECT_EQ(seen.str, "");
    EXPECT_TRUE(seen.str_terminated);
}

TEST_F(TukredisTest, AbsentKeyReadsAsNullWithLengthZero) {
    register_rows({recording_row(0, "*")});
    connect_and_subscribe();
    recorder::get().set_read(reply_read::STRING);
    start_pubsub();

    client_->set(0, "gone", "v");
    client_->del(0, "gone");
    ASSERT_EVENTUALLY(5s, recorder::get().count() >= 2);
    const seen_notification del = recorder::get().seen().at(1);
    EXPECT_EQ(del.cmd, TUKREDIS_CMD_DEL);
    EXPECT_EQ(del.str_rc, 0);
    EXPECT_TRUE(del.str_null);
    EXPECT_EQ(del.str, "");
}

TEST_F(TukredisTest, AbsentKeyHasNoIntegerValue) {
    register_rows({recording_row(0, "*")});
    connect_and_subscribe();
    recorder::get().set_read(reply_read::INTEGER);
    start_pubsub();

    client_->set(0, "n", "5");
    client_->del(0, "n");
    ASSERT_EVENTUALLY(5s, recorder::get().count() >= 2);
    EXPECT_NE(recorder::get().seen().at(1).int_rc, 0);
}

TEST_F(TukredisTest, IntegerValuesAreParsedStrictly) {
    ASSERT_EQ(tukredis_db_connect(), 0);
    const struct {
        const char *value;
        int32_t base;
        bool ok;
        int32_t expected;
    } cases[] = {
        {"17", 10, true, 17},
        {"-3", 10, true, -3},
        {"0", 10, true, 0},
        {"2147483647", 10, true, 2147483647},
        {"-2147483648", 10, true, INT32_MIN},
        {"ff", 16, true, 255},
        {"0x1F", 16, true, 31},
        {"101", 2, true, 5},
        {"abc", 10, false, 0},
        {"", 10, false, 0},
        {"12x", 10, false, 0},
        {"12 ", 10, false, 0},
        {" 12", 10, false, 0},
        {"99999999999", 10, false, 0},
        {"2147483648", 10, false, 0},
        {"-2147483649", 10, false, 0},
        {"-", 10, false, 0},
        {"2", 2, false, 0},
        {"12", 99, false, 0},
    };
    int index = 0;
    for (const auto &c : cases) {
        const std::string key = "int" + std::to_string(index++);
        client_->set(0, key, c.value);
        const int_read read = read_int(key, c.base);
        if (c.ok) {
            EXPECT_EQ(read.rc, 0) << '"' << c.value << "\" base " << c.base;
            EXPECT_EQ(read.value, c.expected) << '"' << c.value << "\" base " << c.base;
        } else {
            EXPECT_NE(read.rc, 0) << '"' << c.value << "\" base " << c.base;
        }
    }
    client_->set(0, "nul",
                 std::string("1\0"
                             "2",
                             3));
    EXPECT_NE(read_int("nul", 10).rc, 0);
}

TEST_F(TukredisTest, ValueIsNotFetchedUnlessAHandlerReadsIt) {
    register_rows({recording_row(0, "*")});
    connect_and_subscribe();
    start_pubsub();
    client_->command({"CONFIG", "RESETSTAT"});

    client_->set(0, "unread", "v");
    ASSERT_EVENTUALLY(5s, recorder::get().count() >= 1);
    EXPECT_EQ(client_->command_calls("get"), 0);

    // Read twice: one GET, then the cached value.
    recorder::get().set_read(reply_read::STRING_TWICE);
    client_->set(0, "read", "w");
    ASSERT_EVENTUALLY(5s, recorder::get().count() >= 2);
    EXPECT_EQ(recorder::get().seen().at(1).str, "w");
    EXPECT_EQ(client_->command_calls("get"), 1);
}

TEST_F(TukredisTest, ValueOfTheWrongTypeCannotBeRead) {
    ASSERT_EQ(tukredis_db_connect(), 0);
    client_->command(0, {"RPUSH", "list", "a"});
    recorder::get().set_read(reply_read::STRING);
    ASSERT_EQ(tukredis_scan_key_pattern(0, "list", 10, record_handler, 0, 0), 0);
    ASSERT_EQ(recorder::get().count(), 1U);
    EXPECT_NE(first_seen().str_rc, 0);
    EXPECT_NE(read_int("list", 10).rc, 0);
}

TEST_F(TukredisTest, ReadersRefuseNullArguments) {
    char *value = nullptr;
    uint32_t length = 0;
    int32_t number = 0;
    EXPECT_NE(tukredis_get_key_reply_strval(nullptr, &value, &length), 0);
    EXPECT_NE(tukredis_get_key_reply_intval(nullptr, &number, 10), 0);

    // With a real reply, inside a handler.
    ASSERT_EQ(tukredis_db_connect(), 0);
    client_->set(0, "k", "1");
    static int32_t str_rc_value = 0;
    static int32_t str_rc_length = 0;
    static int32_t int_rc = 0;
    const tukredis_handler check = [](tukredis_pmsg *pmsg) -> int32_t {
        char *v = nullptr;
        uint32_t l = 0;
        str_rc_value = tukredis_get_key_reply_strval(pmsg->reply, nullptr, &l);
        str_rc_length = tukredis_get_key_reply_strval(pmsg->reply, &v, nullptr);
        int_rc = tukredis_get_key_reply_intval(pmsg->reply, nullptr, 10);
        return 0;
    };
    ASSERT_EQ(tukredis_scan_key_pattern(0, "k", 10, check, 0, 0), 0);
    EXPECT_NE(str_rc_value, 0);
    EXPECT_NE(str_rc_length, 0);
    EXPECT_NE(int_rc, 0);
}

} // namespace
} // namespace platformtest
