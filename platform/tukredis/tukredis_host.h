// SPDX-License-Identifier: BSD-3-Clause
/*
 * Host-only additions to tukredis, for the tests of the host build: counters
 * and introspection that the switch's own library does not have. The daemon
 * must not include this header.
 */
#ifndef TUKREDIS_HOST_H
#define TUKREDIS_HOST_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct tukredis_host_stats {
    uint32_t delivered;        /* notifications handed to a handler */
    uint32_t dropped;          /* notifications not delivered: key too long or with a NUL byte */
    uint32_t connect_attempts; /* connection attempts made by tukredis_db_connect */
    uint32_t reconnections;    /* successful tukredis_db_connect calls after the first */
    uint32_t deferred;         /* commands sent without waiting for their reply */
    uint32_t exchanges;        /* waits for replies on the command connection */
} tukredis_host_stats;

/* Write-log entries opened and not completed, among the 64 the ring keeps. */
int32_t tukredis_out_log_pending(void);

/* A snapshot of the counters above (since the start or the last reset). */
void tukredis_host_get_stats(tukredis_host_stats *stats);

/* The code a keyspace event on key is delivered with, or -1 when the event
 * is not delivered. event and key are zero-terminated. */
int32_t tukredis_host_event_code(const char *event, const char *key);

/* Puts the library back in its state at process start: closes both
 * connections, forgets the registered table, the first-subscription mark, the
 * connect back-off, the write log and the counters. Only for tests, and only
 * while no other thread is inside the library. SIGPIPE stays ignored. */
void tukredis_host_reset(void);

#ifdef __cplusplus
}
#endif

#endif /* TUKREDIS_HOST_H */
