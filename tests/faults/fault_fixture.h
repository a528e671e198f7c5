// SPDX-License-Identifier: BSD-3-Clause
// The fixture of the fault tests: the real daemon on a private redis-server
// with a realistic configuration, written by the actors of the switch
// through the shared key builders and codecs. Every input is recorded, so
// that a fresh daemon can be given the same configuration and the same
// learned addresses afterwards and the two states compared.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "daemon_fixture.h"
#include "prescribed.h"
#include "world.h"

namespace faults {

using namespace std::chrono_literals;

class FaultTest : public integration::DaemonTest {
  protected:
    void TearDown() override;

    // The management plane (database 1).
    void set_vid(uint16_t vid);
    void unset_vid(uint16_t vid);
    void set_security();
    void unset_security();
    void set_cos_dscp(uint8_t cos, uint8_t dscp);
    void set_aging(uint16_t minutes);
    void add_oui(const voice_oui &o);
    void del_oui(const voice_oui &o);
    void set_auto(int32_t ifx);
    void unset_auto(int32_t ifx);
    // The forwarding layer (database 0).
    void learn(uint16_t vlan, int32_t ifx, const mac_addr &mac);
    void age(uint16_t vlan, int32_t ifx, const mac_addr &mac);
    void set_mac_vlan(int32_t number, const mac_addr &mac, const mac_addr &mask, uint16_t vlan);
    // Learnings another connection wrote (empty values), in their order.
    void record_learnings(const std::vector<std::string> &keys);

    // Voice VLAN 100, security on, CoS/DSCP, a one-hour aging time, four
    // voice OUIs, six automatic ports, three MAC-VLAN entries, and a phone
    // joined on each of ports 2, 4 and 6. Waits until all of it is applied.
    void configure_switch();
    // The phone of a port in the configuration.
    static mac_addr phone_of(int32_t ifx);

    // Starts the daemon (traces on) and remembers its resource baseline.
    void start(std::map<std::string, std::string> env = {});
    // Re-synchronisations the daemon has finished so far.
    int resyncs() const;
    // Waits until more than `count` re-synchronisations have finished.
    void wait_resync_after(int count, std::chrono::milliseconds deadline);
    // The daemon is alive, answers the load-complete marker, and holds no
    // more file descriptors than after its first start.
    void expect_alive_and_settled();
    // ThreadSanitizer goes on running after a report: its text is the only
    // sign, so it is looked for after every fault.
    void expect_no_sanitizer_report();

    // Every key of both databases with its value.
    db_state snapshot();
    // Stops the daemon, starts a fresh one on a fresh server, gives it the
    // inputs as they stand now (in the order they were last written) and
    // returns its state. The faulted server stays available as faulted().
    db_state fresh_daemon_state();
    // After the fault: the state equals the fresh daemon's except for the
    // prescribed losses, exactly; and `vvlanctl check` names them.
    void expect_only(const prescribed_losses &losses);

    int baseline_fds_ = -1;

  private:
    struct input {
        int db;
        std::string key;
        std::optional<std::string> value; // nullopt: deleted
    };
    void put(int db, const key_buf &key, std::string value);
    void remove(int db, const key_buf &key);

    std::vector<input> inputs_;
    std::unique_ptr<testsupport::redis_server> faulted_server_;
    std::unique_ptr<testsupport::redis_client> faulted_client_;
};

} // namespace faults
