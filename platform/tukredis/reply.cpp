// SPDX-License-Identifier: BSD-3-Clause
#include "reply.h"

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "api_guard.h"
#include "command.h"
#include "log.h"

namespace tukredis {
namespace {

// The longest text a 32-bit integer can take in any base, with a generous
// margin for leading zeros.
constexpr size_t LONGEST_INTEGER = 64;

// The whole text must be one integer in base within int32 range: a value
// with trailing junk is a corrupted record, not a number.
bool parse_int32(std::string_view text, int base, int32_t &value) {
    if (text.empty() || text.size() > LONGEST_INTEGER) {
        return false;
    }
    if (base != 0 && (base < 2 || base > 36)) {
        return false;
    }
    // strtoll would skip leading blanks.
    if (std::isspace(static_cast<unsigned char>(text.front())) != 0) {
        return false;
    }
    char digits[LONGEST_INTEGER + 1];
    std::memcpy(digits, text.data(), text.size());
    digits[text.size()] = '\0';
    char *end = nullptr;
    errno = 0;
    const long long parsed = std::strtoll(digits, &end, base);
    // A NUL inside the value also stops the parse short of the end.
    if (errno != 0 || end != digits + text.size()) {
        return false;
    }
    if (parsed < INT32_MIN || parsed > INT32_MAX) {
        return false;
    }
    value = static_cast<int32_t>(parsed);
    return true;
}

rate_limit &fetch_reports() {
    static rate_limit *const limit = new rate_limit(std::chrono::seconds(10));
    return *limit;
}

} // namespace

bool lazy_reply::fetch() {
    if (fetched_) {
        return true;
    }
    std::string why;
    const reply_ptr reply =
        run_one(db_, format_command({"GET", key_}), DEFAULT_COMMAND_TIMEOUT, why);
    if (reply && reply->type == REDIS_REPLY_STRING) {
        value_.assign(reply->str, reply->len);
        present_ = true;
    } else if (reply && reply->type == REDIS_REPLY_NIL) {
        present_ = false;
    } else {
        if (reply) {
            why = reply_text(reply.get());
        }
        report_limited(fetch_reports(), "cannot read the value of \"%.*s\" in database %d: %s",
                       static_cast<int>(key_.size()), key_.data(), static_cast<int>(db_),
                       why.c_str());
        return false;
    }
    fetched_ = true;
    return true;
}

bool deliverable_key(std::string_view key) noexcept {
    return key.size() < TUKREDIS_KEY_LEN && key.find('\0') == std::string_view::npos;
}

tukredis_pmsg make_pmsg(int32_t db, std::string_view key, int32_t cmd, lazy_reply &reply) noexcept {
    tukredis_pmsg pmsg{};
    pmsg.db = db;
    std::memcpy(pmsg.key, key.data(), key.size());
    pmsg.cmd = cmd;
    pmsg.reply = &reply;
    return pmsg;
}

} // namespace tukredis

using namespace tukredis;

int32_t tukredis_get_key_reply_strval(void *reply, char **value, uint32_t *len) {
    return c_entry<int32_t>(-1, [&]() -> int32_t {
        if (reply == nullptr || value == nullptr || len == nullptr) {
            return -1;
        }
        auto *lazy = static_cast<lazy_reply *>(reply);
        if (!lazy->fetch()) {
            return -1;
        }
        if (!lazy->present()) {
            *value = nullptr;
            *len = 0;
            return 0;
        }
        if (lazy->value().size() > UINT32_MAX) {
            return -1;
        }
        *value = lazy->value().data();
        *len = static_cast<uint32_t>(lazy->value().size());
        return 0;
    });
}

int32_t tukredis_get_key_reply_intval(void *reply, int32_t *value, int32_t base) {
    return c_entry<int32_t>(-1, [&]() -> int32_t {
        if (reply == nullptr || value == nullptr) {
            return -1;
        }
        auto *lazy = static_cast<lazy_reply *>(reply);
        if (!lazy->fetch() || !lazy->present()) {
            return -1;
        }
        int32_t parsed = 0;
        if (!parse_int32(lazy->value(), base, parsed)) {
            return -1;
        }
        *value = parsed;
        return 0;
    });
}
