// SPDX-License-Identifier: BSD-3-Clause
#include "bus/bus_write.h"

#include "tukredis.h"

namespace {

constexpr int32_t OUT_LOG_SET = 0;
constexpr int32_t OUT_LOG_DEL = 1;
constexpr int32_t OUT_LOG_NONE = -1;

// The constant arguments of every command: wait for the reply, the library's
// default timeout, no flags.
constexpr int32_t CMD_WAIT = 1;
constexpr int32_t CMD_TIMEOUT_DEFAULT = -1;
constexpr int32_t CMD_FLAGS = 0;

class out_log_entry {
  public:
    out_log_entry(const char *key, int32_t op, int32_t db)
        : handle_(tukredis_db_out_log(key, op, db, 1)) {}
    ~out_log_entry() {
        if (handle_ != OUT_LOG_NONE) {
            tukredis_db_out_log_stat(handle_);
        }
    }
    out_log_entry(const out_log_entry &) = delete;
    out_log_entry &operator=(const out_log_entry &) = delete;

  private:
    int32_t handle_;
};

} // namespace

void bus_set_int(int32_t db, const char *key, int32_t value) {
    const out_log_entry log(key, OUT_LOG_SET, db);
    tukredis_db_command(db, CMD_WAIT, CMD_TIMEOUT_DEFAULT, CMD_FLAGS, "SET %s %d", key, value);
}

void bus_set_u16(int32_t db, const char *key, uint16_t value) {
    const out_log_entry log(key, OUT_LOG_SET, db);
    tukredis_db_command(db, CMD_WAIT, CMD_TIMEOUT_DEFAULT, CMD_FLAGS, "SET %s %hu", key,
                        static_cast<unsigned>(value));
}

void bus_set_raw(int32_t db, const char *key, const uint8_t *bytes, std::size_t len) {
    const out_log_entry log(key, OUT_LOG_SET, db);
    tukredis_db_command(db, CMD_WAIT, CMD_TIMEOUT_DEFAULT, CMD_FLAGS, "SET %s %b", key, bytes, len);
}

void bus_del(int32_t db, const char *key) {
    const out_log_entry log(key, OUT_LOG_DEL, db);
    tukredis_db_command(db, CMD_WAIT, CMD_TIMEOUT_DEFAULT, CMD_FLAGS, "DEL %s", key);
}
