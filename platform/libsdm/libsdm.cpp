// SPDX-License-Identifier: BSD-3-Clause
// Host implementation of the device manager's port conversions.
//
// The map in force is the front panel's until libsdm_init loads another, so
// lookups made before (or without) a successful libsdm_init use the default
// map rather than fail.
#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <vector>

#include "port_map.h"

#pragma GCC visibility push(default)
#include "libsdm.h"
#pragma GCC visibility pop

namespace sdm {
namespace {

// Replaced whole by libsdm_init and read by lookups from any thread, on every
// learned address: a lookup is one atomic load, no lock and no reference
// count. A replaced map is kept, never freed, since a lookup on another
// thread may still be reading it; there is one per successful libsdm_init,
// which a daemon calls once. Never destroyed either: a daemon thread may
// still look up while the process exits.
struct current_map {
    std::mutex installing;
    std::vector<std::unique_ptr<const port_map>> kept;
    std::atomic<const port_map *> map{nullptr};

    current_map() { install(port_map::front_panel()); }

    void install(port_map next) {
        const std::lock_guard lock(installing);
        kept.push_back(std::make_unique<const port_map>(std::move(next)));
        map.store(kept.back().get(), std::memory_order_release);
    }
};

current_map &current() {
    static current_map *const instance = new current_map;
    return *instance;
}

const port_map &map_in_force() {
    return *current().map.load(std::memory_order_acquire);
}

void install(port_map map) {
    current().install(std::move(map));
}

// strtoll alone would accept leading blanks and an empty text.
bool starts_like_integer(const char *text) {
    const char *digits = text[0] == '-' || text[0] == '+' ? text + 1 : text;
    return std::isdigit(static_cast<unsigned char>(digits[0])) != 0;
}

// A test sets the result libsdm_init returns; a value that is not an integer
// is a mistake in the test, reported rather than read as 0.
bool forced_result(int &result) {
    const char *text = std::getenv("LIBSDM_INIT_RESULT");
    if (text == nullptr) {
        return false;
    }
    char *end = nullptr;
    errno = 0;
    const long long value = std::strtoll(text, &end, 10);
    if (!starts_like_integer(text) || errno != 0 || *end != '\0' || value < INT32_MIN ||
        value > INT32_MAX) {
        std::fprintf(stderr, "libsdm: LIBSDM_INIT_RESULT \"%s\" is not an integer\n", text);
        result = -1;
    } else {
        result = static_cast<int>(value);
    }
    return true;
}

int load_map() {
    const char *path = std::getenv("LIBSDM_PORT_MAP");
    if (path == nullptr || path[0] == '\0') {
        install(port_map::front_panel());
        return 0;
    }
    std::vector<port_map_entry> entries;
    std::string error;
    if (!load_port_map(path, entries, error)) {
        // The map in force stays as it was.
        std::fprintf(stderr, "libsdm: %s\n", error.c_str());
        return -1;
    }
    install(port_map(std::move(entries)));
    return 0;
}

} // namespace
} // namespace sdm

using namespace sdm;

// The map is loaded even when the result is forced, so that a test forcing
// the result still sees the ports it configured.
int libsdm_init(const char *name, int flags) {
    (void)name;
    (void)flags;
    try {
        int forced = 0;
        const bool is_forced = forced_result(forced);
        const int loaded = load_map();
        return is_forced ? forced : loaded;
    } catch (...) {
        std::fprintf(stderr, "libsdm: out of memory\n");
        return -1;
    }
}

int libsdm_get_ifx_by_phyid(uint32_t phyid, uint32_t *ifx, int mode) {
    (void)mode;
    if (ifx == nullptr) {
        return -1;
    }
    return map_in_force().ifx_of(phyid, *ifx) ? 0 : -1;
}

int libsdm_get_phyid_by_ifx(uint32_t ifx, uint32_t *phyid, int mode) {
    (void)mode;
    if (phyid == nullptr) {
        return -1;
    }
    return map_in_force().phyid_of(ifx, *phyid) ? 0 : -1;
}
