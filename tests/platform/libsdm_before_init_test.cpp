// SPDX-License-Identifier: BSD-3-Clause
// Lookups before libsdm_init use the default map. A separate executable,
// since any earlier libsdm_init in the process would hide this.
#include <gtest/gtest.h>

#include "libsdm.h"

namespace {

TEST(LibsdmBeforeInit, LookupsUseTheDefaultMap) {
    uint32_t ifx = 0;
    uint32_t phyid = 0;
    EXPECT_EQ(libsdm_get_ifx_by_phyid(53, &ifx, 2), 0);
    EXPECT_EQ(ifx, 52U);
    EXPECT_EQ(libsdm_get_phyid_by_ifx(0, &phyid, 2), 0);
    EXPECT_EQ(phyid, 1U);
    EXPECT_NE(libsdm_get_ifx_by_phyid(54, &ifx, 2), 0);
}

} // namespace
