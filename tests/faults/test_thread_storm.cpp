// SPDX-License-Identifier: BSD-3-Clause
// The daemon's two threads under a storm: thousands of voice VLAN id and
// aging-time writes (each aging time restarts the aging thread, a VLAN id
// removal stops it) while phones are learned and aged on six ports, then the
// aging thread's own passes racing the learnings. Meaningful under
// ThreadSanitizer, whose report fails the test; everywhere it shows no
// deadlock, an aging thread that still ages ports, and two threads.
#include <atomic>
#include <iostream>
#include <thread>

#include "fault_fixture.h"
#include "process_probe.h"

namespace faults {
namespace {

constexpr int CONTROL_WRITES = 4000;

class ThreadStormTest : public FaultTest {
  protected:
    // Learns and ages every port's phone in turn until stopped, ending each
    // port on an aged phone. A round of ports every `pause`: a busy switch,
    // not a flood the daemon could only queue.
    void play_phones(const std::atomic<bool> &stop, std::atomic<long> &count,
                     const std::atomic<int> &pause_ms) {
        testsupport::redis_client client(server().socket_path());
        while (!stop) {
            for (int32_t ifx : AUTO_PORTS) {
                const std::string key =
                    key_text(mac_learning_key(VOICE_VLAN, phyid_of(ifx), phone_of(ifx)));
                client.set(DB_STATE, key, "");
                client.del(DB_STATE, key);
                count += 2;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(pause_ms.load()));
        }
    }

    std::string aging_key() const {
        return key_text(key_printf("%s1", prefix_of(key_family::age_timer)));
    }
};

TEST_F(ThreadStormTest, VidAndAgingWritesWhilePhonesComeAndGo) {
    start();
    // Traces off: the storm is about threads, not about the terminal.
    redis().set(DB_STATE, key_text(family_key(key_family::debug_level)), "0");
    set_aging(0);
    set_vid(VOICE_VLAN);
    add_oui(OUI_A);
    add_oui(OUI_B);
    add_oui(OUI_C);
    for (int32_t ifx : AUTO_PORTS) {
        set_auto(ifx);
    }
    // The threads of the process without the aging thread: the main thread,
    // and any a sanitizer runtime started along the first thread.
    unset_vid(VOICE_VLAN);
    barrier();
    const int threads_alone = thread_count(daemon().pid());
    set_vid(VOICE_VLAN);
    barrier();
    EXPECT_EQ(thread_count(daemon().pid()), threads_alone + 1) << "the aging thread runs";

    std::atomic<bool> stop_phones{false};
    std::atomic<long> phone_writes{0};
    std::atomic<int> pause_ms{1};
    std::exception_ptr phone_failure;
    std::thread phones([&] {
        try {
            play_phones(stop_phones, phone_writes, pause_ms);
        } catch (...) {
            phone_failure = std::current_exception();
        }
    });

    // The storm: aging times (each a stop and a start of the aging thread),
    // VLAN id writes, and now and then the voice VLAN off and on again.
    testsupport::redis_client control(server().socket_path());
    const std::string vid = key_text(vid_key(VOICE_VLAN));
    for (int n = 0; n < CONTROL_WRITES; ++n) {
        if (n % 4 == 3) {
            control.set(DB_CONFIG, vid, "");
        } else if (n % 50 == 10) {
            control.del(DB_CONFIG, vid);
        } else {
            control.set(DB_CONFIG, aging_key(),
                        value_text(aging_time_codec::encode(static_cast<uint16_t>(n % 2))));
        }
    }
    control.set(DB_CONFIG, aging_key(), value_text(aging_time_codec::encode(0)));
    control.set(DB_CONFIG, vid, "");
    barrier(); // the main thread has taken every write: no deadlock there
    ASSERT_TRUE(daemon().running()) << daemon().stderr_text();

    // Then the aging thread's own passes against the learnings, for two of
    // its 5-second passes, and every port left with an aged phone.
    const long during_storm = phone_writes.load();
    pause_ms = 20;
    const auto until = std::chrono::steady_clock::now() + 11s;
    while (std::chrono::steady_clock::now() < until && !phone_failure) {
        ASSERT_TRUE(daemon().running()) << daemon().stderr_text();
        std::this_thread::sleep_for(100ms);
    }
    stop_phones = true;
    phones.join();
    if (phone_failure) {
        std::rethrow_exception(phone_failure);
    }
    std::cout << "control writes: " << CONTROL_WRITES + 2
              << "; learnings and ageings: " << during_storm << " during them, "
              << phone_writes.load() << " in all\n";
    EXPECT_GT(during_storm, 0);

    // Every port's last phone aged: the aging thread removes every join. It
    // deletes the join request and then the mode 2 key, two writes apart, so
    // both are waited for.
    for (int32_t ifx : AUTO_PORTS) {
        EXPECT_TRUE(testsupport::eventually(
            [&] {
                return !redis().exists(DB_CONFIG, key_text(join_request_key(ifx))) &&
                       !redis().exists(DB_STATE, key_text(port_oper_key(ifx, PORT_MODE_JOINED)));
            },
            integration::patience(30s)))
            << "port " << ifx << " was not aged out";
    }
    barrier();
    EXPECT_EQ(thread_count(daemon().pid()), threads_alone + 1)
        << "the main thread and one aging thread";
    ASSERT_NO_FATAL_FAILURE(expect_alive_and_settled());
}

} // namespace
} // namespace faults
