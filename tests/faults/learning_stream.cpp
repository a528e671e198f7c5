// SPDX-License-Identifier: BSD-3-Clause
#include "learning_stream.h"

#include <chrono>
#include <stdexcept>

#include "testsupport/redis_client.h"

namespace faults {
namespace {

struct stream_step {
    uint16_t vlan;
    int32_t ifx;
    mac_addr prefix;
};

const std::vector<stream_step> &steps() {
    static const std::vector<stream_step> s = {
        {VOICE_VLAN, 2, OUI_A.oui},  {VOICE_VLAN, 4, OUI_B.oui},
        {VOICE_VLAN, 6, OUI_C.oui},  {VOICE_VLAN, 10, PC_PREFIX},
        {OTHER_VLAN, 10, OUI_A.oui}, {VOICE_VLAN, MANUAL_PORT, OUI_B.oui},
    };
    return s;
}

} // namespace

learning_stream::learning_stream(std::string socket_path)
    : socket_path_(std::move(socket_path)), thread_([this] { run(); }) {}

learning_stream::~learning_stream() {
    stop();
}

std::vector<std::string> learning_stream::stop() {
    stop_ = true;
    if (thread_.joinable()) {
        thread_.join();
    }
    const std::lock_guard lock(mutex_);
    return keys_;
}

void learning_stream::run() {
    testsupport::redis_client client(socket_path_, std::chrono::milliseconds(500));
    for (uint32_t n = 0; !stop_; ++n) {
        const stream_step &s = steps()[n % steps().size()];
        const std::string key =
            key_text(mac_learning_key(s.vlan, phyid_of(s.ifx), device(s.prefix, 0x200000 + n)));
        for (;;) {
            try {
                client.set(DB_STATE, key, "");
                break;
            } catch (const std::runtime_error &) {
                // The server is down or restarting: the forwarding layer
                // tries again. Paced, so that it does not spin meanwhile.
                ++retried_;
                if (stop_) {
                    return;
                }
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
            }
        }
        {
            const std::lock_guard lock(mutex_);
            keys_.push_back(key);
        }
        ++written_;
        // About a thousand learnings a second: a busy switch, not a flood.
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

} // namespace faults
