// SPDX-License-Identifier: BSD-3-Clause
// A notification costs no heap allocation once the library has warmed up:
// not in hiredis's reader, not for the record or the reply handle, not for
// matching the row. Counted per thread on the thread that runs the handlers.
#include <array>

#include "alloc_counter.h"
#include "tukredis_fixture.h"

namespace platformtest {
namespace {

constexpr size_t BURST = 500; // keys per MULTI, two events each
constexpr size_t WARM_UP_BURSTS = 2;
constexpr size_t MEASURED_BURSTS = 4;
constexpr size_t EVENTS = 2 * BURST * (WARM_UP_BURSTS + MEASURED_BURSTS);

// The handler only notes the count: the array is sized up front.
std::array<uint64_t, EVENTS> g_counts;
std::atomic<size_t> g_calls{0};

int32_t note_allocations(tukredis_pmsg *pmsg) {
    const size_t call = g_calls.load(std::memory_order_relaxed);
    if (call < g_counts.size()) {
        g_counts[call] = allocations_on_this_thread();
    }
    g_calls.store(call + 1, std::memory_order_release);
    return pmsg != nullptr ? 0 : -4;
}

std::atomic<uint64_t> g_read_allocations{0};

int32_t note_allocations_of_a_read(tukredis_pmsg *pmsg) {
    const uint64_t before = allocations_on_this_thread();
    char *value = nullptr;
    uint32_t length = 0;
    (void)tukredis_get_key_reply_strval(pmsg->reply, &value, &length);
    g_read_allocations = allocations_on_this_thread() - before;
    g_calls.fetch_add(1, std::memory_order_release);
    return 0;
}

tukredis_sub_row row_with(uint32_t db, const char *pattern, tukredis_handler handler) {
    tukredis_sub_row row = recording_row(db, pattern);
    row.handler = handler;
    return row;
}

// Learned and aged addresses, as the forwarding layer writes them, all at
// once: the notifications arrive as a backlog.
void learn_and_age(testsupport::redis_client &client, size_t burst) {
    client.command(0, {"MULTI"});
    for (size_t i = 0; i < BURST; ++i) {
        char key[64];
        std::snprintf(key, sizeof key, "/bri/mac/macTblDyn_vvlan/100/6/00e0bb%06zx",
                      burst * BURST + i);
        client.command(0, {"SET", key, ""});
        client.command(0, {"DEL", key});
    }
    client.command(0, {"EXEC"});
}

TEST_F(TukredisTest, ANotificationAllocatesNothingInSteadyState) {
    g_calls = 0;
    register_rows({row_with(1, "/bridge/vvlan/vid/*", note_allocations),
                   row_with(0, "/bri/mac/macTblDyn_vvlan/*", note_allocations)});
    connect_and_subscribe();
    start_pubsub();
    for (size_t burst = 0; burst < WARM_UP_BURSTS + MEASURED_BURSTS; ++burst) {
        learn_and_age(*client_, burst);
        const size_t expected = 2 * BURST * (burst + 1);
        ASSERT_EVENTUALLY(20s, g_calls.load(std::memory_order_acquire) >= expected);
    }
    ASSERT_EQ(g_calls.load(), EVENTS);
    const size_t first = 2 * BURST * WARM_UP_BURSTS;
    const uint64_t allocations = g_counts[EVENTS - 1] - g_counts[first];
    EXPECT_EQ(allocations, 0U) << "over " << EVENTS - 1 - first << " notifications";
}

// The counter sees the library's allocations: reading a value fetches it
// with a GET, whose reply hiredis allocates.
TEST_F(TukredisTest, AllocationsOfTheLibraryAreCounted) {
    g_calls = 0;
    g_read_allocations = 0;
    register_rows({row_with(0, "/v/*", note_allocations_of_a_read)});
    connect_and_subscribe();
    start_pubsub();
    client_->set(0, "/v/1", "value");
    ASSERT_EVENTUALLY(5s, g_calls.load(std::memory_order_acquire) >= 1);
    EXPECT_GT(g_read_allocations.load(), 0U);
}

} // namespace
} // namespace platformtest
