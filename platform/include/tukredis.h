/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * tukredis: the switch platform's key-value bus client.
 *
 * This header declares exactly the operations and records that the control
 * daemons use. A switch image links the vendor's library; a PC build links
 * the host implementation in platform/tukredis, which runs over hiredis
 * against a real redis-server.
 *
 * Server address (host implementation): TUKREDIS_SOCKET names a Unix socket
 * and wins when set; otherwise TUKREDIS_HOST (default 127.0.0.1) and
 * TUKREDIS_PORT (default 6379).
 *
 * Event codes delivered in tukredis_pmsg.cmd, from the server's keyspace
 * events:
 *
 *   event          code
 *   set            0   (TUKREDIS_CMD_SET)
 *   set            2   (TUKREDIS_CMD_NEW_ADDR) for a key under "/bri/mac/",
 *                      the forwarding layer's MAC table: a learned address
 *   rename_to      as set (0, or 2 under "/bri/mac/")
 *   del            1   (TUKREDIS_CMD_DEL)
 *   rename_from    1
 *   evicted        1
 *   expire         9   (TUKREDIS_CMD_EXPIRE)
 *   expired        10  (TUKREDIS_CMD_EXPIRED)
 *   anything else  not delivered
 *
 * Threads: tukredis_pubsub runs on one thread (the daemon's main thread) and
 * calls the handlers there, one at a time, in the order the server executed
 * the commands. The write path (tukredis_db_out_log, tukredis_db_command,
 * tukredis_db_out_log_stat), the reply readers and the pattern operations
 * may be used from a second thread at the same time. Every operation is
 * safe against deferred cancellation of the calling thread: a cancel never
 * takes effect inside the library.
 *
 * The host implementation ignores SIGPIPE for the process (from
 * tukredis_init on), so that a write to a closed socket returns an error
 * instead of killing the daemon.
 */
#ifndef TUKREDIS_H
#define TUKREDIS_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

enum {
    TUKREDIS_CMD_SET = 0,
    TUKREDIS_CMD_DEL = 1,
    TUKREDIS_CMD_NEW_ADDR = 2,
    TUKREDIS_CMD_EXPIRE = 9,
    TUKREDIS_CMD_EXPIRED = 10,
};

#define TUKREDIS_KEY_LEN 128
#define TUKREDIS_PATTERN_LEN 128

/*
 * One notification, filled by the library and valid only during the handler
 * call. key is always zero-terminated within TUKREDIS_KEY_LEN bytes; keys
 * that do not fit are not delivered. reply is read only through the two
 * reply readers below. 140 bytes where pointers are 4 bytes.
 */
typedef struct tukredis_pmsg {
    int32_t db;
    char key[TUKREDIS_KEY_LEN];
    int32_t cmd;
    void *reply;
} tukredis_pmsg;

/* Returns 0, -4 or -11; the library does not act on the result. */
typedef int32_t (*tukredis_handler)(tukredis_pmsg *pmsg);

/* Re-synchronisation callback: called with 0 after the first successful
 * connection and subscription, with 1 after every later one. */
typedef int32_t (*tukredis_resync_cb)(unsigned int code);

/*
 * One row of the subscription table: keyspace events of keys matching
 * pattern (a Redis glob, zero-terminated) in database db go to handler.
 * 140 bytes where pointers are 4 bytes; reserved is 0.
 */
typedef struct tukredis_sub_row {
    uint32_t db;
    char pattern[TUKREDIS_PATTERN_LEN];
    tukredis_handler handler;
    uint32_t reserved;
} tukredis_sub_row;

/* Registers the table (kept by reference: it must live for the process), its
 * row count and the re-synchronisation callback. flags: 0. Called once. */
int32_t tukredis_init(const tukredis_sub_row *table, int32_t rows, tukredis_resync_cb resync,
                      int32_t flags);

/* (Re)opens the subscription and command connections. Blocks until the
 * server answers, retrying with a bounded back-off; never returns an error
 * for an unreachable server and never exits. Makes sure keyspace events for
 * generic, string, expiry and eviction events are on, adding to the flags the
 * server already has. */
int32_t tukredis_db_connect(void);

/* Pattern-subscribes every row on the subscription connection, then calls
 * the re-synchronisation callback. -1 if the connection is not usable. */
int32_t tukredis_db_psubscrible(void);

/* Serves notifications until the subscription connection is lost (server
 * stopped, client killed, dead peer detected by a periodic ping). */
int32_t tukredis_pubsub(void);

/*
 * Formats one command hiredis-style ("%s", "%b" with pointer and size_t
 * length, and printf conversions such as "%d" and "%hu") and runs it in
 * database db on the command connection. wait: 1 = wait for the reply;
 * timeout_ms: -1 = the library's default; flags: 0. 0 on success, -1 on
 * failure (server unreachable, error reply).
 */
int32_t tukredis_db_command(int32_t db, int32_t wait, int32_t timeout_ms, int32_t flags,
                            const char *format, ...);

/* Write log: announce a write (op 0 = SET, 1 = DEL) before it is made, and
 * complete it afterwards with the returned handle. level: 1 = keep an entry.
 * Returns -1 when no entry was opened. */
int32_t tukredis_db_out_log(const char *key, int32_t op, int32_t db, int32_t level);
int32_t tukredis_db_out_log_stat(int32_t handle);

/* Reply readers. The value is fetched from the server on the first read.
 * intval: parses the whole value as an integer in base; 0 on success.
 * strval: on success (0) *value points at the raw bytes (owned by the reply,
 * zero-terminated after *len bytes), or is NULL with *len 0 when the key
 * no longer exists. Non-zero when the value cannot be fetched. */
int32_t tukredis_get_key_reply_intval(void *reply, int32_t *value, int32_t base);
int32_t tukredis_get_key_reply_strval(void *reply, char **value, uint32_t *len);

/* Pattern operations over SCAN MATCH pattern COUNT count in database db.
 * scan: calls handler once per key, synchronously, with cmd 0 and a reply
 * holding the key's value; limit and flags: 0.
 * pexpire: gives every matching key a time-to-live of ms milliseconds.
 * del_expire: deletes every matching key that still carries a time-to-live,
 * atomically against a concurrent SET (which clears it).
 * Called from the re-synchronisation callback, pexpire's and del_expire's
 * per-key commands are deferred like tukredis_db_command's: 0 then says
 * that they were queued, in order, ahead of anything sent after them. */
int32_t tukredis_scan_key_pattern(int32_t db, const char *pattern, int32_t count,
                                  tukredis_handler handler, int32_t limit, int32_t flags);
int32_t tukredis_pexpire_key_pattern(int32_t db, const char *pattern, int32_t ms, int32_t count);
int32_t tukredis_del_expire_key_pattern(int32_t db, const char *pattern, int32_t count);

#ifdef __cplusplus
}
#endif

#endif /* TUKREDIS_H */
