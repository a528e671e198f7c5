// The bus, device-manager and health-agent calls that the benchmarks and the
// fuzzer never exercise: connection, subscription, the pattern operations of
// re-synchronisation and the write log. All succeed and do nothing.
#include "ham_agent.h"
#include "libsdm.h"
#include "tukredis.h"

extern "C" {

int32_t tukredis_init(const tukredis_sub_row *, int32_t, tukredis_resync_cb, int32_t) {
    return 0;
}
int32_t tukredis_db_connect(void) {
    return 0;
}
int32_t tukredis_db_psubscrible(void) {
    return 0;
}
int32_t tukredis_pubsub(void) {
    return -1;
}
int32_t tukredis_db_out_log(const char *, int32_t, int32_t, int32_t) {
    return -1;
}
int32_t tukredis_db_out_log_stat(int32_t) {
    return 0;
}
int32_t tukredis_scan_key_pattern(int32_t, const char *, int32_t, tukredis_handler, int32_t,
                                  int32_t) {
    return 0;
}
int32_t tukredis_pexpire_key_pattern(int32_t, const char *, int32_t, int32_t) {
    return 0;
}
int32_t tukredis_del_expire_key_pattern(int32_t, const char *, int32_t) {
    return 0;
}
int libsdm_init(const char *, int) {
    return 0;
}
int ham_agent_init(void) {
    return 0;
}
int reg_process_exit_action(int, int) {
    return 0;
}

} // extern "C"
