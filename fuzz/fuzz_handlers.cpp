// Fuzzing every handler with arbitrary notifications: any row, any code, any
// key and value bytes. The daemon's tables carry over from one input to the
// next, as they do in the daemon, so sequences of notifications are explored
// too. The platform here answers value reads with the input's bytes, maps
// ports as the device manager does by default (and some phyids outside the
// switch), and checks every write the handlers make.
//
// Input: byte 0 picks the row, byte 1 the code, byte 2 the key length; then
// the key; the rest is the value (a leading 0xFF byte: no value).
#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "app/subscription_table.h"
#include "autoport/auto_port.h"
#include "libsdm.h"
#include "settings/vvlan_table.h"
#include "trace/debug_level.h"
#include "tukredis.h"

namespace {

struct fuzz_value {
    const uint8_t *bytes;
    uint32_t len;
    bool present;
};

// A write the daemon could never make is a bug: a key it did not cut at 127
// characters, a database other than 0 and 1, a format it does not use.
void check_write(int32_t db, const char *format, const char *key) {
    if ((db != 0 && db != 1) || key == nullptr || std::strlen(key) > 127 ||
        (std::strcmp(format, "SET %s %d") != 0 && std::strcmp(format, "SET %s %hu") != 0 &&
         std::strcmp(format, "SET %s %b") != 0 && std::strcmp(format, "DEL %s") != 0)) {
        std::fprintf(stderr, "bad write: db %d format \"%s\"\n", db, format);
        std::abort();
    }
}

} // namespace

extern "C" {

int32_t tukredis_db_command(int32_t db, int32_t, int32_t, int32_t, const char *format, ...) {
    va_list ap;
    va_start(ap, format);
    const char *key = va_arg(ap, const char *);
    va_end(ap);
    check_write(db, format, key);
    return 0;
}

int32_t tukredis_get_key_reply_intval(void *reply, int32_t *value, int32_t base) {
    const auto *v = static_cast<const fuzz_value *>(reply);
    if (!v->present || v->len == 0 || v->len > 16) {
        return -1;
    }
    char text[17] = {};
    std::memcpy(text, v->bytes, v->len);
    char *end = nullptr;
    const long parsed = std::strtol(text, &end, base);
    if (end != text + v->len) {
        return -1;
    }
    *value = static_cast<int32_t>(parsed);
    return 0;
}

// The value is handed out in a buffer of exactly its length, so that a read
// past it is caught.
int32_t tukredis_get_key_reply_strval(void *reply, char **value, uint32_t *len) {
    const auto *v = static_cast<const fuzz_value *>(reply);
    *value = v->present ? reinterpret_cast<char *>(const_cast<uint8_t *>(v->bytes)) : nullptr;
    *len = v->present ? v->len : 0;
    return 0;
}

// phyid p is ifx p-1 for 1..53; 60..63 map outside the switch's ports.
int libsdm_get_ifx_by_phyid(uint32_t phyid, uint32_t *ifx, int) {
    if (phyid >= 1 && phyid <= 53) {
        *ifx = phyid - 1;
        return 0;
    }
    if (phyid >= 60 && phyid <= 63) {
        *ifx = phyid == 63 ? 0xFFFFFFFFu : phyid;
        return 0;
    }
    return -1;
}
int libsdm_get_phyid_by_ifx(uint32_t ifx, uint32_t *phyid, int) {
    if (ifx > 52 || ifx == 17) { // one port the device manager cannot map
        return -1;
    }
    *phyid = ifx + 1;
    return 0;
}

// Traces are formatted (every argument is read) and dropped.
int dov_vvlan_trace_printf(const char *format, ...) {
    char line[512];
    va_list ap;
    va_start(ap, format);
    const int n = std::vsnprintf(line, sizeof line, format, ap);
    va_end(ap);
    return n;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    // What start-up sets, without the pid file: the replay runs beside
    // the integration tests of its build.
    static const bool ready = [] {
        dov_vvlan_set_dbg(32);
        pthread_mutex_init(&g_flag_lock, nullptr);
        g_vvlan_table.aging_minutes = 1440;
        return true;
    }();
    (void)ready;
    if (size < 3) {
        return 0;
    }
    const tukredis_sub_row &row = g_sub_table[data[0] % g_sub_table.size()];
    // Codes 0, 1, 2, 9, 10 mostly, anything now and then.
    static const int32_t codes[] = {0, 1, 2, 9, 10, 0, 2, 1};
    const int32_t cmd = data[1] < 248 ? codes[data[1] % 8] : static_cast<int32_t>(data[1]) - 250;
    const size_t key_len = std::min<size_t>(data[2], std::min<size_t>(size - 3, 127));
    tukredis_pmsg pmsg{};
    pmsg.db = static_cast<int32_t>(row.db);
    std::memcpy(pmsg.key, data + 3, key_len);
    pmsg.cmd = cmd;
    const uint8_t *rest = data + 3 + key_len;
    const size_t rest_len = size - 3 - key_len;
    const bool present = rest_len == 0 || rest[0] != 0xFF;
    // A copy of exactly the value's length: reads past it are caught.
    auto *copy = static_cast<uint8_t *>(std::malloc(rest_len + 1));
    std::memcpy(copy, rest, rest_len);
    fuzz_value value{copy, static_cast<uint32_t>(rest_len), present};
    pmsg.reply = &value;
    row.handler(&pmsg);
    std::free(copy);
    return 0;
}

} // extern "C"
