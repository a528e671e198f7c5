// SPDX-License-Identifier: BSD-3-Clause
// Fuzzing every handler with arbitrary notifications: any row, any code, any
// key and value bytes. The daemon's tables carry over from one input to the
// next, as they do in the daemon, so sequences of notifications are explored
// too. The platform is the lean in-memory double (tests/double): it hands a
// value out in a buffer of exactly its length, so a read past it is caught,
// aborts on any command the daemon could never make, and maps ports as the
// device manager does by default, plus some phyids outside the switch.
//
// Input (fuzz_input.h): byte 0 picks the row, byte 1 the code, byte 2 the key
// length; then the key; the rest is the value (a leading 0xFF byte: no value).
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>

#include "app/subscription_table.h"
#include "autoport/auto_port.h"
#include "fake_bus.h"
#include "fake_platform.h"
#include "fuzz_input.h"
#include "settings/vvlan_table.h"
#include "trace/debug_level.h"
#include "tukredis.h"

namespace {

// What start-up sets, without the pid file: the replay runs beside the
// integration tests of its build. phyids 60 to 62 map to ifx outside the
// switch's ports, 63 to the largest ifx, and port 17 cannot be mapped.
bool start() {
    fake::set_recording(false);
    fake::platform &p = fake::platform::get();
    p.reset();
    for (uint32_t phyid = 60; phyid <= 62; ++phyid) {
        p.map_port(phyid, phyid);
    }
    p.map_port(63, 0xFFFFFFFFu);
    p.unmap_ifx(17);
    dov_vvlan_set_dbg(32);
    pthread_mutex_init(&g_flag_lock, nullptr);
    g_vvlan_table.aging_minutes = 1440;
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const bool ready = start();
    (void)ready;
    if (size < FUZZ_HEADER_LEN) {
        return 0;
    }
    const tukredis_sub_row &row = g_sub_table[data[0] % g_sub_table.size()];
    const size_t key_len =
        std::min<size_t>(data[2], std::min<size_t>(size - FUZZ_HEADER_LEN, TUKREDIS_KEY_LEN - 1));
    const uint8_t *rest = data + FUZZ_HEADER_LEN + key_len;
    const size_t rest_len = size - FUZZ_HEADER_LEN - key_len;
    const bool present = rest_len == 0 || rest[0] != FUZZ_NO_VALUE;
    const int32_t db = static_cast<int32_t>(row.db);
    const int32_t cmd = fuzz_code(data[1]);
    fake::message msg = present ? fake::message(db, "", cmd, std::string(rest, rest + rest_len))
                                : fake::message(db, "", cmd);
    // The key's bytes as they come, NUL and all.
    std::memcpy(msg.pmsg.key, data + FUZZ_HEADER_LEN, key_len);
    row.handler(&msg.pmsg);
    return 0;
}
