// SPDX-License-Identifier: BSD-3-Clause
// Keyspace notifications are a server-wide setting that other programs on the
// switch depend on as well, so this library only ever adds to it.
#include <string>

#include "conn.h"
#include "log.h"

namespace tukredis {
namespace {

// K: keyspace channel; g: del, expire, rename; $: set; x: expired;
// e: evicted.
constexpr std::string_view NEEDED = "Kg$xe";
// What the server's 'A' alias covers among the class flags.
constexpr std::string_view ALL_CLASSES = "g$lshzxet";

bool has_flag(std::string_view current, char flag) {
    if (current.find(flag) != std::string_view::npos) {
        return true;
    }
    return current.find('A') != std::string_view::npos &&
           ALL_CLASSES.find(flag) != std::string_view::npos;
}

// A server that refuses CONFIG refuses it on every connection; once a minute
// is enough to say so.
rate_limit &refusal_reports() {
    static rate_limit *const limit = new rate_limit(std::chrono::seconds(60));
    return *limit;
}

} // namespace

std::string missing_notify_flags(std::string_view current) {
    std::string missing;
    for (const char flag : NEEDED) {
        if (!has_flag(current, flag)) {
            missing.push_back(flag);
        }
    }
    return missing;
}

bool ensure_notify_flags(redisContext *context, const io_deadline &deadline, std::string &why) {
    static constexpr std::string_view PARAMETER = "notify-keyspace-events";
    const reply_ptr current = round_trip(context, {"CONFIG", "GET", PARAMETER}, deadline, why);
    if (!current) {
        return false;
    }
    if (current->type != REDIS_REPLY_ARRAY || current->elements != 2 ||
        current->element[1]->type != REDIS_REPLY_STRING) {
        const std::string text(reply_text(current.get()));
        // A server that wants a password refuses everything else too: the
        // connection is of no use, and the reason is the one to report.
        if (text.starts_with("NOAUTH")) {
            why = conn_settings::auth_refusal(text, {}, AUTH_SETTINGS);
            return false;
        }
        // A user without CONFIG (the shipped ACL has none) takes the flags
        // from the server's configuration: say which ones it must have.
        report_limited(refusal_reports(),
                       "cannot read notify-keyspace-events%s%s; keyspace events may be missing: "
                       "the server's notify-keyspace-events must include \"%s\"",
                       text.empty() ? "" : ": ", text.c_str(), std::string(NEEDED).c_str());
        return true;
    }
    const std::string flags(reply_text(current->element[1]));
    const std::string missing = missing_notify_flags(flags);
    if (missing.empty()) {
        return true;
    }
    // Appending keeps whatever the server had, 'A' included, whose meaning
    // depends on the server's version.
    const std::string wanted = flags + missing;
    const reply_ptr set = round_trip(context, {"CONFIG", "SET", PARAMETER, wanted}, deadline, why);
    if (!set) {
        return false;
    }
    if (set->type == REDIS_REPLY_ERROR) {
        report_limited(refusal_reports(),
                       "cannot set notify-keyspace-events to \"%s\": %s; keyspace events may be "
                       "missing",
                       wanted.c_str(), std::string(reply_text(set.get())).c_str());
    } else {
        report("notify-keyspace-events was \"%s\", now \"%s\"", flags.c_str(), wanted.c_str());
    }
    return true;
}

} // namespace tukredis
