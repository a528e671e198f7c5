// SPDX-License-Identifier: BSD-3-Clause
// What one notification costs the daemon itself, on the lean platform double
// (tests/double: nothing recorded, commands checked and counted): the hot
// path is a phone's address being learned and aged on a joined port. Prints
// the static memory of the tables first.
#include <benchmark/benchmark.h>
#include <pthread.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "app/subscription_table.h"
#include "autoport/auto_port.h"
#include "autoport/mac_learning.h"
#include "autoport/port_oper.h"
#include "fake_bus.h"
#include "oui/mvlan_table.h"
#include "oui/oui_add.h"
#include "oui/oui_table.h"
#include "settings/vvlan_table.h"
#include "trace/debug_level.h"
#include "trace/trace.h"
#include "wire/keys.h"
#include "wire/values.h"

namespace {

const mac_addr MASK_24{0xff, 0xff, 0xff, 0, 0, 0};
const mac_addr OUI_A{0x00, 0xe0, 0xbb, 0, 0, 0};

using fake::message;

// Voice VLAN 100 with `ouis` voice OUIs, OUI_A in the last of them; port 5
// in automatic mode and joined.
void voice_vlan(int ouis) {
    g_vvlan_table = vvlan_table{};
    g_vvlan_table.vid = 100;
    g_vvlan_table.status = 1;
    g_vvlan_oui_table = {};
    for (int i = 0; i < ouis; ++i) {
        const mac_addr mac =
            i == ouis - 1 ? OUI_A : mac_addr{0x02, static_cast<uint8_t>(i), 0, 0, 0, 0};
        g_vvlan_oui_table[static_cast<std::size_t>(i)] = vvlan_oui_oper{mac, MASK_24, 1, {}};
    }
    g_vvlan_table.oui_num = static_cast<uint16_t>(ouis);
    g_vvlan_auto_port[5].enable = 1;
    g_vvlan_auto_port[5].add_vvlan_flag = 1;
    g_vvlan_auto_port[5].pri_oui_num = 0;
    pthread_mutex_init(&g_flag_lock, nullptr);
}

// A learned and an aged address on the joined port: two notifications. A
// figure is only worth something if the learning was counted on port 5.
void learn_and_age(benchmark::State &state, int ouis, uint32_t level) {
    voice_vlan(ouis);
    message na(0, "/bri/mac/macTblDyn_vvlan/100/6/00e0bb123456", TUKREDIS_CMD_NEW_ADDR);
    message aa(0, "/bri/mac/macTblDyn_vvlan/100/6/00e0bb123456", TUKREDIS_CMD_DEL);
    get_mac_notify_pmsg_f(&na.pmsg);
    if (g_vvlan_auto_port[5].pri_oui_num != 1) {
        state.SkipWithError("the learning was not counted on port 5");
        return;
    }
    get_mac_notify_pmsg_f(&aa.pmsg);
    dov_vvlan_set_dbg(level);
    for (auto _ : state) {
        benchmark::DoNotOptimize(get_mac_notify_pmsg_f(&na.pmsg));
        benchmark::DoNotOptimize(get_mac_notify_pmsg_f(&aa.pmsg));
    }
    state.SetItemsProcessed(2 * state.iterations());
    dov_vvlan_set_dbg(0);
}

void bm_learning_on_a_joined_port(benchmark::State &state) {
    learn_and_age(state, 1, 0);
}
BENCHMARK(bm_learning_on_a_joined_port);

// The matching OUI in the last of 124 slots: the longest scan.
void bm_learning_with_124_ouis(benchmark::State &state) {
    learn_and_age(state, 124, 0);
}
BENCHMARK(bm_learning_with_124_ouis);

// The same with every trace line formatted (level 32, into /dev/null).
void bm_learning_traces_on(benchmark::State &state) {
    learn_and_age(state, 1, DBG_ALL);
}
BENCHMARK(bm_learning_traces_on);

// Most learnings on a switch are in other VLANs: dropped at the first check.
void bm_learning_in_another_vlan(benchmark::State &state) {
    voice_vlan(1);
    message na(0, "/bri/mac/macTblDyn_vvlan/200/6/00e0bb123456", TUKREDIS_CMD_NEW_ADDR);
    for (auto _ : state) {
        benchmark::DoNotOptimize(get_mac_notify_pmsg_f(&na.pmsg));
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(bm_learning_in_another_vlan);

// A trace the level filters out: one load and a compare.
void bm_filtered_trace(benchmark::State &state) {
    dov_vvlan_set_dbg(0);
    int value = 0;
    for (auto _ : state) {
        TRACE_INFO("value=%d", value);
        benchmark::DoNotOptimize(++value);
    }
}
BENCHMARK(bm_filtered_trace);

// A join: the first voice learning on a port writes two keys.
void bm_join(benchmark::State &state) {
    voice_vlan(1);
    message na(0, "/bri/mac/macTblDyn_vvlan/100/6/00e0bb123456", TUKREDIS_CMD_NEW_ADDR);
    const long before = fake::commands_issued();
    for (auto _ : state) {
        g_vvlan_auto_port[5].add_vvlan_flag = 0;
        benchmark::DoNotOptimize(get_mac_notify_pmsg_f(&na.pmsg));
    }
    const long writes = fake::commands_issued() - before;
    if (writes != 2 * static_cast<long>(state.iterations())) {
        state.SkipWithError("a join did not write its two keys");
    }
    state.counters["writes/join"] =
        static_cast<double>(writes) / static_cast<double>(state.iterations());
}
BENCHMARK(bm_join);

// Re-writing an OUI of a full table: the slot scan, the echo and the
// MAC-VLAN walk.
void bm_oui_rewrite_in_a_full_table(benchmark::State &state) {
    voice_vlan(124);
    const auto value = oui_oper_codec::encode(vvlan_oui_oper{OUI_A, MASK_24, 1, {}});
    message set(1, oui_oper_key(OUI_A, MASK_24).c_str(), TUKREDIS_CMD_SET,
                std::string(value.begin(), value.end()));
    for (auto _ : state) {
        benchmark::DoNotOptimize(get_oui_oper_pmsg_f(&set.pmsg));
    }
}
BENCHMARK(bm_oui_rewrite_in_a_full_table);

// A MAC-VLAN entry set and deleted: its 6-byte copy allocated and freed.
void bm_mac_vlan_entry_set_and_delete(benchmark::State &state) {
    voice_vlan(1);
    const auto value =
        mac_vlan_codec::encode(mac_vlan_value{0, 0, 0, OUI_A, MASK_24, 100, 0, 0, 0});
    message set(0, "/bridge/mac_vlan/table/300", TUKREDIS_CMD_SET,
                std::string(value.begin(), value.end()));
    message del(0, "/bridge/mac_vlan/table/300", TUKREDIS_CMD_DEL);
    for (auto _ : state) {
        benchmark::DoNotOptimize(get_mac_vlan_pmsg_f(&set.pmsg));
        benchmark::DoNotOptimize(get_mac_vlan_pmsg_f(&del.pmsg));
    }
    state.SetItemsProcessed(2 * state.iterations());
}
BENCHMARK(bm_mac_vlan_entry_set_and_delete);

void print_static_memory() {
    struct table {
        const char *name;
        std::size_t bytes;
    };
    const table tables[] = {
        {"g_vvlan_table", sizeof g_vvlan_table},
        {"g_vvlan_oui_table", sizeof g_vvlan_oui_table},
        {"g_mvlan_table", sizeof g_mvlan_table},
        {"g_vvlan_auto_port", sizeof g_vvlan_auto_port},
        {"g_auto_add_vvlan_table", sizeof g_auto_add_vvlan_table},
        {"g_auto_oui_flag", sizeof g_auto_oui_flag},
        {"g_sub_table", sizeof g_sub_table},
    };
    std::size_t total = 0;
    std::printf("static tables of the daemon (this build, %zu-byte pointers):\n", sizeof(void *));
    for (const table &t : tables) {
        std::printf("  %-24s %6zu bytes\n", t.name, t.bytes);
        total += t.bytes;
    }
    std::printf("  %-24s %6zu bytes; heap: 6 bytes per filled MAC-VLAN entry, at most %zu\n\n",
                "total", total, MVLAN_TABLE_MAX * sizeof(mac_addr));
}

} // namespace

int main(int argc, char **argv) {
    fake::set_recording(false);
    print_static_memory();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
