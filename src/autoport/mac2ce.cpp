#include "autoport/mac2ce.h"

#include <array>

#include "bus/bus_write.h"
#include "bus/byte_order.h"
#include "bus/key_buf.h"
#include "trace/trace.h"

// Used by the main thread (joins) and by the aging thread (removals). The
// key lives in database 1, so the daemon's own requests never come back to
// the learning handler, which listens in database 0.
void set_mac2ce_global(uint32_t ifx, int add) {
    TRACE_INFO("set_mac2ce_global start");
    TRACE_INFO("ifx=%d", static_cast<int>(ifx));
    const key_buf key = key_printf("%s%d", "/bri/mac/macTblDyn_vvlan/", static_cast<int>(ifx));
    TRACE_INFO("key=%s", key.c_str());
    if (add != 0) {
        std::array<uint8_t, MAC2CE_VALUE_LEN> value{};
        be32_put(value.data(), ifx);
        bus_set_raw(BUS_DB_CONFIG, key.c_str(), value.data(), value.size());
        TRACE_INFO("TUKREDIS_SET end");
    } else {
        bus_del(BUS_DB_CONFIG, key.c_str());
        TRACE_INFO("TUKREDIS_DEL end");
    }
    TRACE_INFO("set_mac2ce_global end");
}
