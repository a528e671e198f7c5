// SPDX-License-Identifier: BSD-3-Clause
// The steps every notification handler shares: the opening checks of the
// record and its event code, and the read of a raw record value. The traced
// function name is part of what the daemon prints, so each step takes its
// caller's trace site and its lines name the handler, as they always have.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <string_view>

#include "trace/trace.h"
#include "tukredis.h"

// These run at the start of every notification, so they are inline: the
// opening costs what it did when every handler spelled it out.

// The key of a record, never read past its 128 bytes.
inline std::string_view pmsg_key(const tukredis_pmsg *pmsg) {
    return std::string_view(pmsg->key, strnlen(pmsg->key, sizeof pmsg->key));
}

// "<func> start".
inline void trace_start(trace_site site) {
    TRACE_INFO_AT(site, "%s start", site.func);
}

// A null record: "pmsg is null" at error level; the handler returns -4.
inline bool pmsg_missing(trace_site site, const tukredis_pmsg *pmsg) {
    if (pmsg != nullptr) {
        return false;
    }
    TRACE_ERR_AT(site, "pmsg is null");
    return true;
}

// An expiry (code 9) changes nothing: "not care CMD_EXPIRE event" at error
// level; the handler returns 0.
inline bool expiry_ignored(trace_site site, const tukredis_pmsg *pmsg) {
    if (pmsg->cmd != TUKREDIS_CMD_EXPIRE) {
        return false;
    }
    TRACE_ERR_AT(site, "not care CMD_EXPIRE event");
    return true;
}

// Most handlers trace the record before they test for an expiry; the
// MAC-learning and specified-OUI handlers test first.
enum class expiry_test { after_record, before_record };

// The common opening: start line, null record, record line and expiry, in
// the handler's order. Returns the handler's result when it ends here, and
// nothing when it goes on.
inline std::optional<int32_t> handler_open(trace_site site, const tukredis_pmsg *pmsg,
                                           expiry_test order = expiry_test::after_record) {
    trace_start(site);
    if (pmsg_missing(site, pmsg)) {
        return -4;
    }
    if (order == expiry_test::before_record && expiry_ignored(site, pmsg)) {
        return 0;
    }
    TRACE_PMSG_AT(site, pmsg);
    if (order == expiry_test::after_record && expiry_ignored(site, pmsg)) {
        return 0;
    }
    return std::nullopt;
}

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
// short one under the caller's name. One copy for every record type.
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
