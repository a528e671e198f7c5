/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * A vendor SDK's libsdm.h that differs from the daemon's expectation in one
 * prototype: the interface index comes back through a signed pointer. With
 * C linkage this would link; the daemon's build must refuse it.
 */
#ifndef LIBSDM_H
#define LIBSDM_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

int libsdm_init(const char *name, int flags);
int libsdm_get_ifx_by_phyid(uint32_t phyid, int32_t *ifx, int mode);
int libsdm_get_phyid_by_ifx(uint32_t ifx, uint32_t *phyid, int mode);

#ifdef __cplusplus
}
#endif

#endif /* LIBSDM_H */
