// SPDX-License-Identifier: BSD-3-Clause
// The in-memory doubles of the device manager and the health agent:
// recording, or lean when the bus double is (see fake_bus.h).
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace fake {

struct platform_call {
    std::string op; // "libsdm_init", "get_ifx", "get_phyid", "ham_agent_init", "reg_exit"
    std::vector<int64_t> args;
    std::string name;
};

class platform {
  public:
    platform();
    static platform &get();
    void reset(); // default map phyid p <-> ifx p-1 for 1..53, every call succeeds

    std::vector<platform_call> calls() const;
    std::vector<platform_call> calls(const std::string &op) const;

    void map_port(uint32_t phyid, uint32_t ifx); // replaces the mapping of phyid
    void unmap_phyid(uint32_t phyid);
    void unmap_ifx(uint32_t ifx);
    void set_result(const std::string &op, int result); // non-zero: that call fails

    // Used by the C entry points.
    void record(platform_call call);
    int result(const std::string &op) const;
    bool ifx_of(uint32_t phyid, uint32_t *ifx) const;
    bool phyid_of(uint32_t ifx, uint32_t *phyid) const;

  private:
    mutable std::mutex mutex_;
    std::vector<platform_call> calls_;
    std::map<uint32_t, uint32_t> phy_to_ifx_;
    std::array<int64_t, 256> direct_{}; // phy_to_ifx_ below 256, -1 = unmapped
    void refresh_direct();
    std::map<std::string, int> results_;
};

} // namespace fake
