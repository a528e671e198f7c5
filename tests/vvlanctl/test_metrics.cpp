// SPDX-License-Identifier: BSD-3-Clause
// vvlanctl metrics: what node_exporter's textfile collector reads, checked
// by promtool, and its values.
#include "ctl_fixture.h"
#include "validators.h"

namespace ctltest {
namespace {

class MetricsTest : public CtlTest {
  protected:
    std::string metrics() {
        const tool_result r = ok({"metrics"});
        const verdict v = promtool_check(server().dir(), r.out);
        EXPECT_EQ(v.status, 0) << v.says << "\n" << r.out;
        return r.out;
    }
    static bool has(const std::string &text, const std::string &line) {
        return text.find("\n" + line + "\n") != std::string::npos;
    }
};

TEST_F(MetricsTest, HealthySwitch) {
    start_daemon(false);
    configure();
    phone_joins();
    const std::string m = metrics();
    for (const char *line : {
             "dov_vvlan_daemon_subscribed 1",
             "dov_vvlan_voice_vlan_enabled{state=\"applied\"} 1",
             "dov_vvlan_voice_vlan_id{state=\"configured\"} 100",
             "dov_vvlan_voice_vlan_id{state=\"applied\"} 100",
             "dov_vvlan_oui_slots_used 1",
             "dov_vvlan_ports_auto 1",
             "dov_vvlan_ports_joined 1",
             "dov_vvlan_voice_addresses{ifx=\"5\"} 1",
             "dov_vvlan_findings{kind=\"daemon_not_subscribed\",severity=\"critical\"} 0",
             "dov_vvlan_check_status 0",
         }) {
        EXPECT_TRUE(has(m, line)) << line << "\n" << m;
    }
}

TEST_F(MetricsTest, DaemonGone) {
    start_daemon(false);
    configure();
    daemon().kill_now();
    const auto until = std::chrono::steady_clock::now() + integration::patience(10s);
    std::string m = metrics();
    while (!has(m, "dov_vvlan_daemon_subscribed 0") && std::chrono::steady_clock::now() < until) {
        std::this_thread::sleep_for(20ms);
        m = metrics();
    }
    EXPECT_TRUE(has(m, "dov_vvlan_daemon_subscribed 0")) << m;
    EXPECT_TRUE(
        has(m, "dov_vvlan_findings{kind=\"daemon_not_subscribed\",severity=\"critical\"} 1"))
        << m;
    EXPECT_TRUE(has(m, "dov_vvlan_check_status 2")) << m;
}

} // namespace
} // namespace ctltest
