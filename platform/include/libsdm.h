/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * libsdm: the switch device manager, as used by the control daemons.
 *
 * Converts between the physical port id that the forwarding layer's keys
 * carry (phyid) and the switch's interface index (ifx). Every call returns 0
 * on success and non-zero on failure; the mode argument is 2 in every call
 * of the daemons.
 *
 * Host implementation (platform/libsdm): phyid p maps to ifx p-1 for
 * 1 <= p <= 53, and back. If LIBSDM_PORT_MAP names a file of lines
 * "<phyid> <ifx>" (blank lines and lines starting with '#' are skipped),
 * that table replaces the default; it may map a phyid to any 32-bit ifx.
 * LIBSDM_INIT_RESULT, when set, is the integer libsdm_init returns.
 */
#ifndef LIBSDM_H
#define LIBSDM_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

int libsdm_init(const char *name, int flags);
int libsdm_get_ifx_by_phyid(uint32_t phyid, uint32_t *ifx, int mode);
int libsdm_get_phyid_by_ifx(uint32_t ifx, uint32_t *phyid, int mode);

#ifdef __cplusplus
}
#endif

#endif /* LIBSDM_H */
