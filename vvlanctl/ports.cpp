// SPDX-License-Identifier: BSD-3-Clause
#include "ports.h"

#include "libsdm.h"

namespace {
// The daemons pass mode 2 in every conversion.
constexpr int SDM_MODE = 2;
} // namespace

bool ports_init(std::string *why) {
    static int result = libsdm_init("vvlanctl", 0);
    if (result != 0) {
        *why = "the device manager refused (libsdm_init returned " + std::to_string(result) + ")";
        return false;
    }
    return true;
}

std::optional<uint32_t> ifx_of_phyid(uint32_t phyid) {
    uint32_t ifx = 0;
    if (libsdm_get_ifx_by_phyid(phyid, &ifx, SDM_MODE) != 0) {
        return std::nullopt;
    }
    return ifx;
}

std::optional<uint32_t> phyid_of_ifx(uint32_t ifx) {
    uint32_t phyid = 0;
    if (libsdm_get_phyid_by_ifx(ifx, &phyid, SDM_MODE) != 0) {
        return std::nullopt;
    }
    return phyid;
}
