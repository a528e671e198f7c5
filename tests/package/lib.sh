# SPDX-License-Identifier: BSD-3-Clause
# Shared by the package tests (bash): a scratch directory removed on exit,
# polling with a deadline, and a private redis-server on a Unix socket.
# Sourced, not run. Every process a test starts is stopped by the exit trap.

set -euo pipefail
# With pipefail, `producer | grep -q` fails whenever grep stops reading
# early and the producer dies of SIGPIPE: let grep read to the end instead
# (grep ... >/dev/null).

fail() {
    echo "FAIL: $*" >&2
    exit 1
}

# Scratch directory of this test, and the processes to stop at the end.
SCRATCH=$(mktemp -d "${TMPDIR:-/tmp}/dov_vvlan_pkg.XXXXXX")
CLEANUP_PIDS=()
cleanup() {
    local pid
    for pid in "${CLEANUP_PIDS[@]}"; do
        kill -KILL "$pid" 2>/dev/null || true
        wait "$pid" 2>/dev/null || true
    done
    if [[ -z ${KEEP_SCRATCH:-} ]]; then
        rm -rf "$SCRATCH"
    else
        echo "scratch kept: $SCRATCH" >&2
    fi
}
trap cleanup EXIT

# poll <seconds> <command...>: runs the command until it succeeds; fails
# when the deadline passes first.
poll() {
    local deadline=$((SECONDS + $1))
    shift
    until "$@"; do
        ((SECONDS < deadline)) || return 1
        sleep 0.05
    done
}

# start_redis <dir>: a private redis-server with its socket at <dir>/redis.sock
# (REDIS_SOCK), no TCP port and no persistence.
start_redis() {
    mkdir -p "$1"
    REDIS_SOCK=$1/redis.sock
    "${REDIS_SERVER:-redis-server}" --port 0 --unixsocket "$REDIS_SOCK" --unixsocketperm 777 \
        --dir "$1" --save '' --appendonly no >"$1/redis.log" 2>&1 &
    CLEANUP_PIDS+=($!)
    poll 10 rcli 0 ping >/dev/null || fail "redis-server did not start (see $1/redis.log)"
}

# rcli <db> <args...>: redis-cli on the private server.
rcli() {
    local db=$1
    shift
    redis-cli -s "$REDIS_SOCK" -n "$db" "$@" 2>/dev/null
}

# key_is <db> <key> <value>: the key holds exactly that value.
key_is() {
    [[ $(rcli "$1" get "$2") == "$3" ]]
}

# expect_serving <what>: a daemon is connected to the private server: the
# load-complete marker written in database 1 is copied to database 0.
expect_serving() {
    local n=$RANDOM
    rcli 1 set /bridge/vvlan/data/end "$n" >/dev/null
    poll 30 key_is 0 /bridge/vvlan/data/end "$n" ||
        fail "$1: the load-complete marker $n was not copied to database 0"
}
