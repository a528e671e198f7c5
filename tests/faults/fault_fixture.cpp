// SPDX-License-Identifier: BSD-3-Clause
#include "fault_fixture.h"

#include <algorithm>
#include <iostream>
#include <map>

#include "process_probe.h"
#include "vvlanctl_check.h"

namespace faults {
namespace {

const std::string RESYNC_END = "check_db_validate end";

std::string data_end_key() {
    return key_text(family_key(key_family::data_end));
}

} // namespace

void FaultTest::TearDown() {
    if (HasFailure() && faulted_server_) {
        std::cerr << "---- faulted server's log ----\n" << faulted_server_->log() << "----\n";
    }
    integration::DaemonTest::TearDown();
    faulted_client_.reset();
    faulted_server_.reset();
}

void FaultTest::put(int db, const key_buf &key, std::string value) {
    redis().set(db, key.c_str(), value);
    inputs_.push_back({db, key.c_str(), std::move(value)});
}

void FaultTest::remove(int db, const key_buf &key) {
    redis().del(db, key.c_str());
    inputs_.push_back({db, key.c_str(), std::nullopt});
}

void FaultTest::set_vid(uint16_t vid) {
    put(DB_CONFIG, vid_key(vid), "");
}
void FaultTest::unset_vid(uint16_t vid) {
    remove(DB_CONFIG, vid_key(vid));
}
void FaultTest::set_security() {
    put(DB_CONFIG, key_printf("%s1", prefix_of(key_family::secu_mode)), "");
}
void FaultTest::unset_security() {
    remove(DB_CONFIG, key_printf("%s1", prefix_of(key_family::secu_mode)));
}
void FaultTest::set_cos_dscp(uint8_t cos, uint8_t dscp) {
    put(DB_CONFIG, key_printf("%s1", prefix_of(key_family::cos_dscp)),
        value_text(cos_dscp_codec::encode({cos, dscp})));
}
void FaultTest::set_aging(uint16_t minutes) {
    put(DB_CONFIG, key_printf("%s1", prefix_of(key_family::age_timer)),
        value_text(aging_time_codec::encode(minutes)));
}
void FaultTest::add_oui(const voice_oui &o) {
    put(DB_CONFIG, oui_oper_key(o.oui, o.mask), oui_value(o));
}
void FaultTest::del_oui(const voice_oui &o) {
    remove(DB_CONFIG, oui_oper_key(o.oui, o.mask));
}
void FaultTest::set_auto(int32_t ifx) {
    put(DB_CONFIG, port_oper_key(ifx, PORT_MODE_AUTO), port_value(ifx, PORT_MODE_AUTO));
}
void FaultTest::unset_auto(int32_t ifx) {
    remove(DB_CONFIG, port_oper_key(ifx, PORT_MODE_AUTO));
}
void FaultTest::learn(uint16_t vlan, int32_t ifx, const mac_addr &mac) {
    put(DB_STATE, mac_learning_key(vlan, phyid_of(ifx), mac), "");
}
void FaultTest::age(uint16_t vlan, int32_t ifx, const mac_addr &mac) {
    remove(DB_STATE, mac_learning_key(vlan, phyid_of(ifx), mac));
}
void FaultTest::set_mac_vlan(int32_t number, const mac_addr &mac, const mac_addr &mask,
                             uint16_t vlan) {
    put(DB_STATE, mac_vlan_key(number), mac_vlan_value_of(mac, mask, vlan));
}

void FaultTest::record_learnings(const std::vector<std::string> &keys) {
    for (const std::string &key : keys) {
        inputs_.push_back({DB_STATE, key, std::string()});
    }
}

mac_addr FaultTest::phone_of(int32_t ifx) {
    const voice_oui &o = VOICE_OUIS[static_cast<std::size_t>(ifx / 2 - 1) % 3];
    return device(o.oui, 0x100000 + static_cast<uint32_t>(ifx));
}

void FaultTest::configure_switch() {
    set_cos_dscp(5, 46);
    set_aging(AGING_MINUTES);
    set_security();
    set_vid(VOICE_VLAN);
    for (const voice_oui &o : VOICE_OUIS) {
        add_oui(o);
    }
    for (int32_t ifx : AUTO_PORTS) {
        set_auto(ifx);
    }
    // A linked entry (voice OUI, voice VLAN), one in another VLAN, one
    // that is no voice device.
    set_mac_vlan(MAC_VLAN_KEY_BASE, device(OUI_A.oui, 1), MASK_24, VOICE_VLAN);
    set_mac_vlan(MAC_VLAN_KEY_BASE + 1, device(OUI_B.oui, 1), MASK_24, OTHER_VLAN);
    set_mac_vlan(MAC_VLAN_KEY_BASE + 2, device(PC_PREFIX, 1), MASK_24, VOICE_VLAN);
    for (int32_t ifx : PHONE_PORTS) {
        learn(VOICE_VLAN, ifx, phone_of(ifx));
        learn(VOICE_VLAN, ifx, device(PC_PREFIX, static_cast<uint32_t>(ifx)));
    }
    barrier();
    for (int32_t ifx : PHONE_PORTS) {
        ASSERT_EQ(db1(key_text(join_request_key(ifx))), join_request_value(ifx)) << ifx;
    }
}

void FaultTest::start(std::map<std::string, std::string> env) {
    start_daemon(true, std::move(env));
    baseline_fds_ = open_fds(daemon().pid());
}

int FaultTest::resyncs() const {
    const std::string text = daemon_->output();
    int n = 0;
    for (std::size_t at = text.find(RESYNC_END); at != std::string::npos;
         at = text.find(RESYNC_END, at + 1)) {
        ++n;
    }
    return n;
}

void FaultTest::wait_resync_after(int count, std::chrono::milliseconds deadline) {
    ASSERT_TRUE(testsupport::eventually([&] { return resyncs() > count; }, deadline))
        << "no re-synchronisation after the fault; daemon stderr:\n"
        << daemon().stderr_text();
}

void FaultTest::expect_alive_and_settled() {
    ASSERT_TRUE(daemon().running()) << daemon().stderr_text();
    barrier();
    EXPECT_LE(open_fds(daemon().pid()), baseline_fds_) << "file descriptors grew";
    expect_no_sanitizer_report();
}

void FaultTest::expect_no_sanitizer_report() {
    const std::string err = daemon().stderr_text();
    for (const char *mark :
         {"ThreadSanitizer", "AddressSanitizer", "LeakSanitizer", "runtime error:"}) {
        EXPECT_EQ(err.find(mark), std::string::npos) << err;
    }
}

db_state FaultTest::snapshot() {
    db_state out;
    for (int db : {DB_STATE, DB_CONFIG}) {
        for (const std::string &key : redis().keys(db, "*")) {
            const testsupport::reply_ptr type = redis().command(db, {"TYPE", key});
            const std::string kind(type->str, type->len);
            if (kind == "string") {
                out[{db, key}] = redis().get(db, key).value_or("");
            } else if (kind != "none") {
                out[{db, key}] = "<" + kind + ">";
            }
        }
    }
    return out;
}

db_state FaultTest::fresh_daemon_state() {
    const std::string marker = db1(data_end_key()).value_or("0");
    expect_no_sanitizer_report();
    // One daemon per set of fixed files: the faulted one goes first.
    daemon_.reset();
    faulted_server_ = std::move(server_);
    faulted_client_ = std::move(client_);
    server_ = std::make_unique<testsupport::redis_server>();
    server_->start();
    client_ = std::make_unique<testsupport::redis_client>(server_->socket_path());
    start_daemon(true);

    // Each key as it stands now, in the order of its last write.
    std::map<std::pair<int, std::string>, std::size_t> last;
    for (std::size_t i = 0; i < inputs_.size(); ++i) {
        last[{inputs_[i].db, inputs_[i].key}] = i;
    }
    std::vector<std::size_t> order;
    for (const auto &[key, i] : last) {
        if (inputs_[i].value) {
            order.push_back(i);
        }
    }
    std::sort(order.begin(), order.end());
    for (std::size_t i : order) {
        redis().set(inputs_[i].db, inputs_[i].key, *inputs_[i].value);
    }
    barrier_value_ = std::stoi(marker) - 1;
    barrier();
    return snapshot();
}

void FaultTest::expect_only(const prescribed_losses &losses) {
    const db_state after = snapshot();
    const std::optional<check_result> check = run_vvlanctl_check(server().socket_path());
    const db_state fresh = fresh_daemon_state();
    const std::optional<check_result> fresh_check = run_vvlanctl_check(server().socket_path());

    std::string named;
    for (const std::string &name : losses.names()) {
        named += "  " + name + "\n";
    }
    const state_difference diff = compare_states(after, fresh);
    EXPECT_TRUE(diff == losses.difference())
        << "after the fault, against a fresh daemon on the same inputs:\n"
        << describe(diff) << "prescribed:\n"
        << describe(losses.difference()) << "named losses:\n"
        << named;

    if (!check || !fresh_check) {
        std::cout << "vvlanctl is not built in this tree; `vvlanctl check --json` is expected to "
                     "report after the fault:\n"
                  << describe(losses.check_findings())
                  << "and nothing (exit 0) for the fresh daemon\n";
        return;
    }
    EXPECT_TRUE(check->found == losses.check_findings())
        << "vvlanctl check found:\n"
        << describe(check->found) << "expected:\n"
        << describe(losses.check_findings()) << check->output;
    EXPECT_EQ(check->exit_status, check_status_of(losses.check_findings())) << check->output;
    EXPECT_TRUE(fresh_check->found.empty()) << describe(fresh_check->found);
    EXPECT_EQ(fresh_check->exit_status, 0) << fresh_check->output;
}

} // namespace faults
