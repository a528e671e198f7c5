/* SPDX-License-Identifier: BSD-3-Clause */
/* Calls one function of each installed platform library. */
#include <stdint.h>
#include <stdio.h>

#include "ham_agent.h"
#include "libsdm.h"
#include "tukredis.h"

int main(void) {
    /* Referenced, not called (it would wait for a server): the program must
     * link the bus library too. */
    int32_t (*volatile connect)(void) = tukredis_db_connect;
    uint32_t ifx = 0;
    if (connect == NULL || ham_agent_init() != 0 || libsdm_init("consumer", 0) != 0 ||
        libsdm_get_ifx_by_phyid(6, &ifx, 2) != 0) {
        return 1;
    }
    printf("phyid 6 is ifx %u, key length %d\n", (unsigned)ifx, TUKREDIS_KEY_LEN);
    return 0;
}
