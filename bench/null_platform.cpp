// The platform as cheap as it can be, so that the benchmarks measure the
// daemon's own work per notification: commands are counted and dropped,
// values come from the record the benchmark hands in, traces are formatted
// into /dev/null as printf would format them onto a console.
#include "null_platform.h"

#include <cstdarg>
#include <cstdio>

#include "libsdm.h"
#include "tukredis.h"

namespace null_platform {

long g_commands = 0;

} // namespace null_platform

extern "C" {

int32_t tukredis_db_command(int32_t, int32_t, int32_t, int32_t, const char *, ...) {
    ++null_platform::g_commands;
    return 0;
}

int32_t tukredis_get_key_reply_intval(void *reply, int32_t *value, int32_t) {
    const auto *v = static_cast<const null_platform::value *>(reply);
    if (v == nullptr || v->bytes == nullptr) {
        return -1;
    }
    *value = 0;
    return 0;
}

int32_t tukredis_get_key_reply_strval(void *reply, char **value, uint32_t *len) {
    const auto *v = static_cast<const null_platform::value *>(reply);
    *value = v != nullptr ? const_cast<char *>(v->bytes) : nullptr;
    *len = v != nullptr ? v->len : 0;
    return 0;
}

int libsdm_get_ifx_by_phyid(uint32_t phyid, uint32_t *ifx, int) {
    if (phyid < 1 || phyid > 53) {
        return -1;
    }
    *ifx = phyid - 1;
    return 0;
}
int libsdm_get_phyid_by_ifx(uint32_t ifx, uint32_t *phyid, int) {
    if (ifx > 52) {
        return -1;
    }
    *phyid = ifx + 1;
    return 0;
}

int dov_vvlan_trace_printf(const char *format, ...) {
    static FILE *sink = std::fopen("/dev/null", "w");
    va_list ap;
    va_start(ap, format);
    const int n = std::vfprintf(sink, format, ap);
    va_end(ap);
    return n;
}

} // extern "C"
