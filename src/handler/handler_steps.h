// The steps every notification handler shares: the opening checks of the
// record and its event code, and the read of a raw record value. The traced
// function name is part of what the daemon prints, so each step takes its
// caller's trace site and its lines name the handler, as they always have.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "trace/trace.h"
#include "tukredis.h"

// The key of a record, never read past its 128 bytes.
std::string_view pmsg_key(const tukredis_pmsg *pmsg);

// "<func> start".
void trace_start(trace_site site);
// A null record: "pmsg is null" at error level; the handler returns -4.
bool pmsg_missing(trace_site site, const tukredis_pmsg *pmsg);
// An expiry (code 9) changes nothing: "not care CMD_EXPIRE event" at error
// level; the handler returns 0.
bool expiry_ignored(trace_site site, const tukredis_pmsg *pmsg);

// Most handlers trace the record before they test for an expiry; the
// MAC-learning and specified-OUI handlers test first.
enum class expiry_test { after_record, before_record };

// The common opening: start line, null record, record line and expiry, in
// the handler's order. Returns the handler's result when it ends here, and
// nothing when it goes on.
std::optional<int32_t> handler_open(trace_site site, const tukredis_pmsg *pmsg,
                                    expiry_test order = expiry_test::after_record);

enum class value_read {
    ok,
    failed,      // the reader failed: "get value fail"
    absent,      // no value: "<record> is NULL\n"
    short_value, // fewer bytes than the record: treated as no value
};

// The handler's result for a read that did not give a record.
constexpr int32_t read_failure_result(value_read r) {
    return r == value_read::failed ? -11 : -4;
}

// Reads the value and checks that it holds at least `need` bytes, tracing a
// failure, an absent value ("<record> is NULL\n", with its extra newline) or a
// short one under the caller's name.
value_read read_value_bytes(trace_site site, tukredis_pmsg *pmsg, const char *record,
                            std::size_t need, std::span<const uint8_t> *bytes);

// A record of the codec's layout, or the reason there is none. A short value
// is refused like an absent one, so nothing is ever read past a value.
template <typename Codec>
value_read read_record(trace_site site, tukredis_pmsg *pmsg, const char *record,
                       typename Codec::value_type *out) {
    std::span<const uint8_t> bytes;
    const value_read r = read_value_bytes(site, pmsg, record, Codec::size, &bytes);
    if (r == value_read::ok) {
        *out = Codec::decode(bytes.data());
    }
    return r;
}
