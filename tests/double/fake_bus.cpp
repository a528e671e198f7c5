// SPDX-License-Identifier: BSD-3-Clause
#include "fake_bus.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fnmatch.h>
#include <sstream>

namespace fake {

db_write set_write(int32_t db, const std::string &key, const std::string &value) {
    return db_write{db, {"SET", key, value}};
}

db_write del_write(int32_t db, const std::string &key) {
    return db_write{db, {"DEL", key}};
}

std::string bytes(std::initializer_list<int> values) {
    std::string out;
    for (int v : values) {
        out.push_back(static_cast<char>(static_cast<uint8_t>(v)));
    }
    return out;
}

bus &bus::get() {
    static bus instance;
    return instance;
}

void bus::reset() {
    const std::lock_guard<std::mutex> lock(mutex_);
    calls_.clear();
    for (int db = 0; db < 2; ++db) {
        store_[db].clear();
        ttl_[db].clear();
    }
    handle_ = 100;
    out_log_none_ = false;
    scan_reply_fails_ = false;
    const std::lock_guard<std::mutex> gate(gate_mutex_);
    gate_armed_ = false;
    gate_waiting_ = false;
    gate_open_ = false;
}

void bus::put(int32_t db, const std::string &key, const std::string &value) {
    const std::lock_guard<std::mutex> lock(mutex_);
    store_[db][key] = value;
    ttl_[db].erase(key);
}

std::optional<std::string> bus::value(int32_t db, const std::string &key) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto it = store_[db].find(key);
    if (it == store_[db].end()) {
        return std::nullopt;
    }
    return it->second;
}

std::vector<std::string> bus::keys(int32_t db) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::vector<std::string> out;
    for (const auto &kv : store_[db]) {
        out.push_back(kv.first);
    }
    return out;
}

bool bus::has_ttl(int32_t db, const std::string &key) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return ttl_[db].count(key) != 0;
}

std::vector<bus_call> bus::calls() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return calls_;
}

std::vector<db_write> bus::writes() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::vector<db_write> out;
    for (const bus_call &c : calls_) {
        if (c.op == "command") {
            out.push_back(db_write{c.db, c.argv});
        }
    }
    return out;
}

void bus::clear_calls() {
    const std::lock_guard<std::mutex> lock(mutex_);
    calls_.clear();
}

void bus::set_out_log_returns_none(bool none) {
    const std::lock_guard<std::mutex> lock(mutex_);
    out_log_none_ = none;
}

void bus::set_scan_reply_fails(bool fail) {
    const std::lock_guard<std::mutex> lock(mutex_);
    scan_reply_fails_ = fail;
}

void bus::arm_command_gate() {
    const std::lock_guard<std::mutex> lock(gate_mutex_);
    gate_armed_ = true;
    gate_waiting_ = false;
    gate_open_ = false;
}

bool bus::wait_command_gate(std::chrono::milliseconds deadline) {
    std::unique_lock<std::mutex> lock(gate_mutex_);
    return gate_cond_.wait_for(lock, deadline, [this] { return gate_waiting_; });
}

void bus::open_command_gate() {
    const std::lock_guard<std::mutex> lock(gate_mutex_);
    gate_open_ = true;
    gate_cond_.notify_all();
}

// Only the thread that meets the armed gate waits; it has cancellation
// disabled while it writes, so nothing unwinds through this wait.
void bus::pass_command_gate() {
    std::unique_lock<std::mutex> lock(gate_mutex_);
    if (!gate_armed_) {
        return;
    }
    gate_armed_ = false;
    gate_waiting_ = true;
    gate_cond_.notify_all();
    gate_cond_.wait(lock, [this] { return gate_open_; });
    gate_waiting_ = false;
}

bool bus::scan_reply_fails() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return scan_reply_fails_;
}

void bus::record(bus_call call) {
    call.thread = std::this_thread::get_id();
    const std::lock_guard<std::mutex> lock(mutex_);
    calls_.push_back(std::move(call));
}

int32_t bus::next_handle() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return out_log_none_ ? -1 : handle_++;
}

void bus::apply(int32_t db, const std::vector<std::string> &argv) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (db < 0 || db > 1 || argv.size() < 2) {
        return;
    }
    if (argv[0] == "SET" && argv.size() == 3) {
        store_[db][argv[1]] = argv[2];
        ttl_[db].erase(argv[1]);
    } else if (argv[0] == "DEL") {
        store_[db].erase(argv[1]);
        ttl_[db].erase(argv[1]);
    }
}

std::vector<std::pair<std::string, std::string>> bus::matching(int32_t db,
                                                               const std::string &pattern) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::vector<std::pair<std::string, std::string>> out;
    if (db < 0 || db > 1) {
        return out;
    }
    for (const auto &kv : store_[db]) {
        if (fnmatch(pattern.c_str(), kv.first.c_str(), 0) == 0) {
            out.emplace_back(kv.first, kv.second);
        }
    }
    return out;
}

void bus::mark_ttl(int32_t db, const std::string &key) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (store_[db].count(key) != 0) {
        ttl_[db].insert(key);
    }
}

void bus::drop_if_ttl(int32_t db, const std::string &key) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (ttl_[db].erase(key) != 0) {
        store_[db].erase(key);
    }
}

std::string bus::check_write_convention() const {
    const std::vector<bus_call> all = calls();
    std::map<std::thread::id, std::vector<const bus_call *>> per_thread;
    for (const bus_call &c : all) {
        if (c.op == "out_log" || c.op == "command" || c.op == "out_log_stat") {
            per_thread[c.thread].push_back(&c);
        }
    }
    std::ostringstream why;
    for (const auto &[thread, seq] : per_thread) {
        for (std::size_t i = 0; i < seq.size();) {
            const bus_call &log = *seq[i];
            if (log.op != "out_log") {
                why << "call " << i << " is " << log.op << ", not out_log";
                return why.str();
            }
            if (i + 1 >= seq.size() || seq[i + 1]->op != "command") {
                why << "out_log of " << log.key << " is not followed by its command";
                return why.str();
            }
            const bus_call &cmd = *seq[i + 1];
            const int32_t op = cmd.argv.empty() ? -1 : (cmd.argv[0] == "DEL" ? 1 : 0);
            if (cmd.argv.size() < 2 || cmd.argv[1] != log.key || cmd.db != log.db ||
                log.args.size() != 2 || log.args[0] != op || log.args[1] != 1) {
                why << "out_log(" << log.key << ") does not announce its command";
                return why.str();
            }
            if (log.key.size() > 127) {
                why << "key longer than 127 characters: " << log.key;
                return why.str();
            }
            if (cmd.args != std::vector<int32_t>{1, -1, 0}) {
                why << "command on " << log.key << " has other constant arguments";
                return why.str();
            }
            if (log.handle == -1) {
                if (i + 2 < seq.size() && seq[i + 2]->op == "out_log_stat") {
                    why << "out_log_stat called for the handle -1 of " << log.key;
                    return why.str();
                }
                i += 2;
                continue;
            }
            if (i + 2 >= seq.size() || seq[i + 2]->op != "out_log_stat" ||
                seq[i + 2]->handle != log.handle) {
                why << "command on " << log.key << " is not completed by out_log_stat";
                return why.str();
            }
            i += 3;
        }
    }
    return {};
}

message::message(int32_t db, const std::string &key, int32_t cmd) {
    pmsg.db = db;
    std::strncpy(pmsg.key, key.c_str(), sizeof pmsg.key - 1);
    pmsg.cmd = cmd;
    pmsg.reply = &rep;
    rep.what = reply::state::ABSENT;
}

message::message(int32_t db, const std::string &key, int32_t cmd, const std::string &value)
    : message(db, key, cmd) {
    rep.what = reply::state::VALUE;
    rep.value = value;
}

message &message::fail_read(int32_t code) {
    rep.what = reply::state::FAILED;
    rep.fail_code = code;
    return *this;
}

namespace {

// Renders a command the way hiredis splits its format: words separated by
// spaces, each either literal text or one conversion. Only the conversions
// the daemon may use are accepted; anything else is recorded as
// "<bad format>" so that a test fails on it.
std::vector<std::string> render(const char *format, va_list ap) {
    std::vector<std::string> argv;
    std::istringstream words(format);
    std::string word;
    while (words >> word) {
        if (word == "%s") {
            const char *s = va_arg(ap, const char *);
            argv.emplace_back(s != nullptr ? s : "<null>");
        } else if (word == "%d") {
            argv.push_back(std::to_string(va_arg(ap, int)));
        } else if (word == "%hu") {
            argv.push_back(std::to_string(static_cast<unsigned short>(va_arg(ap, int))));
        } else if (word == "%b") {
            const char *p = va_arg(ap, const char *);
            const std::size_t n = va_arg(ap, std::size_t);
            argv.emplace_back(p, n);
        } else if (word.find('%') != std::string::npos) {
            argv.emplace_back("<bad format " + word + ">");
            return argv;
        } else {
            argv.push_back(word);
        }
    }
    return argv;
}

bool strict_int(const std::string &text, int32_t base, int32_t *out) {
    if (text.empty()) {
        return false;
    }
    errno = 0;
    char *end = nullptr;
    const long long v = std::strtoll(text.c_str(), &end, base);
    if (errno != 0 || end != text.c_str() + text.size() || v < INT32_MIN || v > INT32_MAX) {
        return false;
    }
    *out = static_cast<int32_t>(v);
    return true;
}

} // namespace

} // namespace fake

namespace fake {

namespace {
std::atomic<bool> g_recording{true};
std::atomic<long> g_commands{0};

// The daemon's formats are string literals: once one has been compared with
// the four it may be, its address is remembered, so the benchmarks pay for
// the check only once per literal.
bool known_format(const char *format) {
    static std::atomic<const char *> seen[16] = {};
    for (std::atomic<const char *> &s : seen) {
        const char *p = s.load(std::memory_order_relaxed);
        if (p == format) {
            return true;
        }
        if (p == nullptr) {
            break;
        }
    }
    const bool known = std::strcmp(format, "SET %s %d") == 0 ||
                       std::strcmp(format, "SET %s %hu") == 0 ||
                       std::strcmp(format, "SET %s %b") == 0 || std::strcmp(format, "DEL %s") == 0;
    if (known) {
        for (std::atomic<const char *> &s : seen) {
            const char *expected = nullptr;
            if (s.compare_exchange_strong(expected, format) || expected == format) {
                break;
            }
        }
    }
    return known;
}

// Every format of the daemon has the key as its first argument.
void check_command(int32_t db, const char *format, const char *key) {
    if ((db != 0 && db != 1) || !known_format(format) || key == nullptr ||
        strnlen(key, 128) > 127) {
        std::fprintf(stderr, "a command the daemon cannot make: db %d format \"%s\"\n", db, format);
        std::abort();
    }
}
} // namespace

void set_recording(bool on) {
    g_recording.store(on, std::memory_order_relaxed);
}
bool recording() {
    return g_recording.load(std::memory_order_relaxed);
}
long commands_issued() {
    return g_commands.load(std::memory_order_relaxed);
}

} // namespace fake

using fake::bus;
using fake::bus_call;

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

int32_t tukredis_db_command(int32_t db, int32_t wait, int32_t timeout_ms, int32_t flags,
                            const char *format, ...) {
    va_list ap;
    va_start(ap, format);
    va_list key_ap;
    va_copy(key_ap, ap);
    fake::check_command(db, format, va_arg(key_ap, const char *));
    va_end(key_ap);
    fake::g_commands.fetch_add(1, std::memory_order_relaxed);
    if (!fake::recording()) {
        va_end(ap);
        return 0;
    }
    std::vector<std::string> argv = fake::render(format, ap);
    va_end(ap);
    bus::get().pass_command_gate();
    bus_call call;
    call.op = "command";
    call.db = db;
    call.key = argv.size() > 1 ? argv[1] : std::string();
    call.argv = argv;
    call.args = {wait, timeout_ms, flags};
    bus::get().record(call);
    bus::get().apply(db, argv);
    return 0;
}

int32_t tukredis_db_out_log(const char *key, int32_t op, int32_t db, int32_t level) {
    if (!fake::recording()) {
        return -1; // no entry: the lean double keeps no log
    }
    bus_call call;
    call.op = "out_log";
    call.db = db;
    call.key = key != nullptr ? key : "<null>";
    call.args = {op, level};
    call.handle = bus::get().next_handle();
    bus::get().record(call);
    return call.handle;
}

int32_t tukredis_db_out_log_stat(int32_t handle) {
    if (!fake::recording()) {
        return 0;
    }
    bus_call call;
    call.op = "out_log_stat";
    call.handle = handle;
    bus::get().record(call);
    return 0;
}

int32_t tukredis_get_key_reply_intval(void *reply, int32_t *value, int32_t base) {
    auto *rep = static_cast<fake::reply *>(reply);
    if (fake::recording()) {
        bus_call call;
        call.op = "intval";
        call.args = {base};
        bus::get().record(call);
    }
    if (rep == nullptr || value == nullptr) {
        return -1;
    }
    ++rep->reads;
    if (rep->what == fake::reply::state::FAILED) {
        return rep->fail_code;
    }
    if (rep->what == fake::reply::state::ABSENT || !fake::strict_int(rep->value, base, value)) {
        return -1;
    }
    return 0;
}

int32_t tukredis_get_key_reply_strval(void *reply, char **value, uint32_t *len) {
    auto *rep = static_cast<fake::reply *>(reply);
    if (fake::recording()) {
        bus_call call;
        call.op = "strval";
        bus::get().record(call);
    }
    if (rep == nullptr || value == nullptr || len == nullptr) {
        return -1;
    }
    ++rep->reads;
    switch (rep->what) {
    case fake::reply::state::FAILED:
        return rep->fail_code;
    case fake::reply::state::ABSENT:
        *value = nullptr;
        *len = 0;
        return 0;
    case fake::reply::state::VALUE: {
        static char empty[1] = {'\0'};
        if (rep->exact.size() != rep->value.size() ||
            !std::equal(rep->exact.begin(), rep->exact.end(), rep->value.begin())) {
            rep->exact = std::vector<char>(rep->value.begin(), rep->value.end());
        }
        *value = rep->exact.empty() ? empty : rep->exact.data();
        *len = static_cast<uint32_t>(rep->value.size());
        return 0;
    }
    }
    return -1;
}

int32_t tukredis_scan_key_pattern(int32_t db, const char *pattern, int32_t count,
                                  tukredis_handler handler, int32_t limit, int32_t flags) {
    bus_call call;
    call.op = "scan";
    call.db = db;
    call.key = pattern;
    call.args = {count, limit, flags};
    call.handler = handler;
    bus::get().record(call);
    for (const auto &[key, value] : bus::get().matching(db, pattern)) {
        fake::message msg(db, key, TUKREDIS_CMD_SET, value);
        if (bus::get().scan_reply_fails()) {
            msg.fail_read();
        }
        handler(&msg.pmsg);
    }
    return 0;
}

int32_t tukredis_pexpire_key_pattern(int32_t db, const char *pattern, int32_t ms, int32_t count) {
    bus_call call;
    call.op = "pexpire";
    call.db = db;
    call.key = pattern;
    call.args = {ms, count};
    bus::get().record(call);
    for (const auto &kv : bus::get().matching(db, pattern)) {
        bus::get().mark_ttl(db, kv.first);
    }
    return 0;
}

int32_t tukredis_del_expire_key_pattern(int32_t db, const char *pattern, int32_t count) {
    bus_call call;
    call.op = "del_expire";
    call.db = db;
    call.key = pattern;
    call.args = {count};
    bus::get().record(call);
    for (const auto &kv : bus::get().matching(db, pattern)) {
        bus::get().drop_if_ttl(db, kv.first);
    }
    return 0;
}

} // extern "C"
