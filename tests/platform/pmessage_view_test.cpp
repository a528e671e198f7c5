// SPDX-License-Identifier: BSD-3-Clause
// The in-place pmessage reader against hiredis's own reader, without a
// server: a stream cut at every byte, mixed with replies only hiredis reads,
// must come out as the same replies in the same order, and a view must stay
// whole until the next frame is asked for.
#include <gtest/gtest.h>

#include <hiredis/hiredis.h>
#include <string>
#include <vector>

#include "pmessage_view.h"

namespace {

using tukredis::in_place;
using tukredis::next_pmessage;
using tukredis::pmessage_view;

std::string bulk(const std::string &s) {
    return "$" + std::to_string(s.size()) + "\r\n" + s + "\r\n";
}

std::string pmessage(const std::string &pattern, const std::string &channel,
                     const std::string &event) {
    return "*4\r\n" + bulk("pmessage") + bulk(pattern) + bulk(channel) + bulk(event);
}

const std::string PONG = "*2\r\n$4\r\npong\r\n$0\r\n\r\n";

struct reader_free {
    void operator()(redisReader *r) const { redisReaderFree(r); }
};

// What a drain of the reader yields: "p|pattern|channel|event" for a frame
// read in place, "h|<first element>" for a reply hiredis read.
class reader_drain {
  public:
    reader_drain() : reader_(redisReaderCreate()) {}

    void feed(std::string_view bytes) {
        ASSERT_EQ(redisReaderFeed(reader_.get(), bytes.data(), bytes.size()), REDIS_OK);
    }

    // Reads until the buffered bytes hold no whole reply. Returns false when
    // hiredis failed.
    bool drain() {
        for (;;) {
            pmessage_view view;
            switch (next_pmessage(reader_.get(), view)) {
            case in_place::MESSAGE:
                seen_.push_back("p|" + std::string(view.pattern) + "|" + std::string(view.channel) +
                                "|" + std::string(view.event));
                continue;
            case in_place::PARTIAL:
                return true;
            case in_place::OTHER:
                break;
            }
            void *reply = nullptr;
            if (redisReaderGetReply(reader_.get(), &reply) != REDIS_OK) {
                return false;
            }
            if (reply == nullptr) {
                return true;
            }
            const auto *r = static_cast<redisReply *>(reply);
            std::string first = r->type == REDIS_REPLY_ARRAY && r->elements > 0 &&
                                        r->element[0]->type == REDIS_REPLY_STRING
                                    ? std::string(r->element[0]->str, r->element[0]->len)
                                    : "type " + std::to_string(r->type);
            seen_.push_back("h|" + first);
            freeReplyObject(reply);
        }
    }

    redisReader *reader() { return reader_.get(); }
    const std::vector<std::string> &seen() const { return seen_; }

  private:
    std::unique_ptr<redisReader, reader_free> reader_;
    std::vector<std::string> seen_;
};

std::string stream_of(int count, std::vector<std::string> *expected) {
    std::string stream;
    for (int i = 0; i < count; ++i) {
        const std::string channel =
            "__keyspace@0__:/bri/mac/macTblDyn_vvlan/100/6/" + std::to_string(100000 + i);
        stream += pmessage("__keyspace@0__:/bri/mac/*", channel, i % 2 == 0 ? "set" : "del");
        expected->push_back("p|__keyspace@0__:/bri/mac/*|" + channel + "|" +
                            (i % 2 == 0 ? "set" : "del"));
        if (i % 7 == 3) {
            stream += PONG;
            expected->push_back("h|pong");
        }
    }
    return stream;
}

TEST(pmessage_view, AStreamCutAtEveryByteComesOutWholeAndInOrder) {
    std::vector<std::string> expected;
    const std::string stream = stream_of(40, &expected);
    for (size_t cut = 1; cut < 200; cut += 7) {
        reader_drain d;
        for (size_t at = 0; at < stream.size(); at += cut) {
            d.feed(std::string_view(stream).substr(at, cut));
            ASSERT_TRUE(d.drain());
        }
        EXPECT_EQ(d.seen(), expected) << "fed " << cut << " bytes at a time";
    }
}

// Thousands of frames fed at once: the reader drops what it delivered as it
// goes, and the frame handed out must not move under its views meanwhile.
TEST(pmessage_view, ViewsStayWholeWhileTheBufferIsCompacted) {
    std::vector<std::string> expected;
    const std::string stream = stream_of(3000, &expected);
    reader_drain d;
    d.feed(stream);
    ASSERT_TRUE(d.drain());
    EXPECT_EQ(d.seen(), expected);
    EXPECT_LT(d.reader()->len, 1024U + 200U) << "the buffer keeps what it delivered";
}

TEST(pmessage_view, OnlyAPlainPmessageIsReadInPlace) {
    const std::vector<std::pair<std::string, std::string>> others = {
        {"a message, not a pmessage", "*3\r\n" + bulk("message") + bulk("c") + bulk("x")},
        {"a pmessage of five elements",
         "*5\r\n" + bulk("pmessage") + bulk("p") + bulk("c") + bulk("set") + bulk("x")},
        {"a nil channel", "*4\r\n" + bulk("pmessage") + bulk("p") + "$-1\r\n" + bulk("set")},
        {"an integer event", "*4\r\n" + bulk("pmessage") + bulk("p") + bulk("c") + ":1\r\n"},
        {"a confirmation", "*3\r\n" + bulk("psubscribe") + bulk("p") + ":1\r\n"},
        {"an error", "-ERR no\r\n"},
    };
    for (const auto &[what, bytes] : others) {
        reader_drain d;
        d.feed(bytes);
        pmessage_view view;
        EXPECT_EQ(next_pmessage(d.reader(), view), in_place::OTHER) << what;
        EXPECT_TRUE(d.drain()) << what;
        EXPECT_EQ(d.seen().size(), 1U) << what << ": hiredis read it";
    }
}

// A length that does not match its bytes is hiredis's to report as a
// protocol error, never read past.
TEST(pmessage_view, ABrokenFrameIsLeftToHiredis) {
    reader_drain d;
    d.feed("*4\r\n" + bulk("pmessage") + bulk("p") + "$3\r\nchannel\r\n" + bulk("set"));
    pmessage_view view;
    EXPECT_EQ(next_pmessage(d.reader(), view), in_place::OTHER);
}

// A declared length longer than a bulk string may be is never taken for a
// shorter one. With a 32-bit size_t (the switch: this test runs in the
// target tree too), 2^32 + 28 wraps to 28 when the bound is checked after
// the multiplication, and the frame's next 28 bytes became its channel.
TEST(pmessage_view, ALengthThatWouldWrapIsNeverAFrame) {
    for (const std::string length : {"4294967324", "18446744073709551644", "536870913"}) {
        reader_drain d;
        d.feed("*4\r\n" + bulk("pmessage") + bulk("p") + "$" + length + "\r\n" +
               std::string(28, 'c') + "\r\n" + bulk("set"));
        pmessage_view view;
        EXPECT_EQ(next_pmessage(d.reader(), view), in_place::OTHER) << length;
        d.drain(); // hiredis refuses the length or waits for its bytes
        EXPECT_EQ(d.seen(), std::vector<std::string>{}) << length;
    }
}

// hiredis refuses a length with a leading zero as soon as it has read it; a
// frame the in-place reader took for a partial one would hang instead. (The
// reader fuzzer found it.)
TEST(pmessage_view, ALengthWithALeadingZeroIsLeftToHiredis) {
    reader_drain d;
    d.feed("*4\r\n" + bulk("pmessage") + "$01\r\n");
    pmessage_view view;
    EXPECT_EQ(next_pmessage(d.reader(), view), in_place::OTHER);
    EXPECT_FALSE(d.drain()) << "hiredis: bad bulk string length";
}

TEST(pmessage_view, AFrameHalfReadByHiredisIsFinishedByHiredis) {
    reader_drain d;
    const std::string pong = PONG;
    d.feed(pong.substr(0, 6));
    void *reply = nullptr;
    ASSERT_EQ(redisReaderGetReply(d.reader(), &reply), REDIS_OK);
    ASSERT_EQ(reply, nullptr);
    d.feed(pong.substr(6) + pmessage("p", "c", "set"));
    ASSERT_TRUE(d.drain());
    EXPECT_EQ(d.seen(), (std::vector<std::string>{"h|pong", "p|p|c|set"}));
}

} // namespace
