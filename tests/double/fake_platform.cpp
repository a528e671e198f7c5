// SPDX-License-Identifier: BSD-3-Clause
#include "fake_platform.h"

#include "fake_bus.h"

#include "ham_agent.h"
#include "libsdm.h"

namespace fake {

// Starts with the default map, so a benchmark or the fuzzer that never
// resets it maps ports as the device manager does.
platform::platform() {
    reset();
}

platform &platform::get() {
    static platform instance;
    return instance;
}

void platform::reset() {
    const std::lock_guard<std::mutex> lock(mutex_);
    calls_.clear();
    results_.clear();
    phy_to_ifx_.clear();
    for (uint32_t p = 1; p <= 53; ++p) {
        phy_to_ifx_[p] = p - 1;
    }
    refresh_direct();
}

// The lean double maps a phyid without a lock or a tree walk, so that a
// benchmark measures the daemon and not the double.
void platform::refresh_direct() {
    direct_.fill(-1);
    for (const auto &[p, i] : phy_to_ifx_) {
        if (p < direct_.size()) {
            direct_[p] = i;
        }
    }
}

std::vector<platform_call> platform::calls() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return calls_;
}

std::vector<platform_call> platform::calls(const std::string &op) const {
    std::vector<platform_call> out;
    for (const platform_call &c : calls()) {
        if (c.op == op) {
            out.push_back(c);
        }
    }
    return out;
}

void platform::map_port(uint32_t phyid, uint32_t ifx) {
    const std::lock_guard<std::mutex> lock(mutex_);
    phy_to_ifx_[phyid] = ifx;
    refresh_direct();
}

void platform::unmap_phyid(uint32_t phyid) {
    const std::lock_guard<std::mutex> lock(mutex_);
    phy_to_ifx_.erase(phyid);
    refresh_direct();
}

void platform::unmap_ifx(uint32_t ifx) {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (auto it = phy_to_ifx_.begin(); it != phy_to_ifx_.end();) {
        it = it->second == ifx ? phy_to_ifx_.erase(it) : std::next(it);
    }
    refresh_direct();
}

void platform::set_result(const std::string &op, int result) {
    const std::lock_guard<std::mutex> lock(mutex_);
    results_[op] = result;
}

void platform::record(platform_call call) {
    if (!recording()) {
        return;
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    calls_.push_back(std::move(call));
}

int platform::result(const std::string &op) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto it = results_.find(op);
    return it == results_.end() ? 0 : it->second;
}

bool platform::ifx_of(uint32_t phyid, uint32_t *ifx) const {
    if (!recording() && phyid < direct_.size()) {
        if (direct_[phyid] < 0) {
            return false;
        }
        *ifx = static_cast<uint32_t>(direct_[phyid]);
        return true;
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto it = phy_to_ifx_.find(phyid);
    if (it == phy_to_ifx_.end()) {
        return false;
    }
    *ifx = it->second;
    return true;
}

bool platform::phyid_of(uint32_t ifx, uint32_t *phyid) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (const auto &[p, i] : phy_to_ifx_) {
        if (i == ifx) {
            *phyid = p;
            return true;
        }
    }
    return false;
}

} // namespace fake

using fake::platform;

extern "C" {

int libsdm_init(const char *name, int flags) {
    platform::get().record({"libsdm_init", {flags}, name != nullptr ? name : "<null>"});
    return platform::get().result("libsdm_init");
}

int libsdm_get_ifx_by_phyid(uint32_t phyid, uint32_t *ifx, int mode) {
    if (fake::recording()) {
        platform::get().record({"get_ifx", {phyid, mode}, {}});
        if (platform::get().result("get_ifx") != 0) {
            return platform::get().result("get_ifx");
        }
    }
    return ifx != nullptr && platform::get().ifx_of(phyid, ifx) ? 0 : -1;
}

int libsdm_get_phyid_by_ifx(uint32_t ifx, uint32_t *phyid, int mode) {
    if (fake::recording()) {
        platform::get().record({"get_phyid", {ifx, mode}, {}});
        if (platform::get().result("get_phyid") != 0) {
            return platform::get().result("get_phyid");
        }
    }
    return phyid != nullptr && platform::get().phyid_of(ifx, phyid) ? 0 : -1;
}

int ham_agent_init(void) {
    platform::get().record({"ham_agent_init", {}, {}});
    return platform::get().result("ham_agent_init");
}

int reg_process_exit_action(int action, int arg) {
    platform::get().record({"reg_exit", {action, arg}, {}});
    return platform::get().result("reg_exit");
}

} // extern "C"
