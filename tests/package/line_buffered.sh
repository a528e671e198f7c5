#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# With standard output on a file, as under an init script, each trace line
# is there as soon as it is printed: the daemon's start-up and the handling
# of one key appear while the process runs, long before 4 KiB of output
# would fill a stdio buffer.
#
#   line_buffered.sh <daemon> <its file prefix (DOV_VVLAN_SYSROOT)>
. "$(dirname "$0")/lib.sh"
daemon=$1 sysroot=$2

marker=$sysroot/var/tmp/dov_vvlan_dbg
mkdir -p "$(dirname "$marker")"
touch "$marker"
trap 'rm -f "$marker"; cleanup' EXIT

start_redis "$SCRATCH/redis"
out=$SCRATCH/daemon.out
TUKREDIS_SOCKET=$REDIS_SOCK "$daemon" >"$out" 2>"$SCRATCH/daemon.err" &
CLEANUP_PIDS+=($!)

has_line() { grep -q "$1" "$out"; }
poll 10 has_line 'vvlan_init end' || fail "'vvlan_init end' did not reach the file while the daemon ran"
expect_serving "daemon"
poll 10 has_line 'dov_vvlan_set_data_end_pmsg_f end' ||
    fail "the trace of one handled key did not reach the file"
echo "$(wc -c <"$out") bytes of trace arrived line by line"
