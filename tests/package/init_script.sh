#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# The installed init script under BusyBox: only `busybox sh` and BusyBox's
# applets on the PATH, the daemon of a DESTDIR install tree, a private
# redis-server. start, status, a second start (which must not start a
# second instance, nor empty the running one's pid file), recovery of an
# emptied pid file, restart, stop, and a failed start-up's exit status.
#
#   init_script.sh <build dir> <daemon's file prefix (DOV_VVLAN_SYSROOT)>
. "$(dirname "$0")/lib.sh"
build=$1 sysroot=$2

root=$SCRATCH/root
DESTDIR=$root cmake --install "$build" >"$SCRATCH/install.log" || fail "cmake --install failed"
prefix=$(sed -n 's/^CMAKE_INSTALL_PREFIX:PATH=//p' "$build/CMakeCache.txt")
daemon=$root$prefix/sbin/dov_vvlan
script=$root$prefix/etc/init.d/dov_vvlan
defaults=$root$prefix/etc/default/dov_vvlan
pidfile=$sysroot/var/run/dov_vvlan.pid
rm -f "$sysroot/var/tmp/dov_vvlan_dbg"

bb=$SCRATCH/busybox
mkdir -p "$bb"
busybox=$(command -v busybox) || fail "busybox is not installed"
for applet in $(busybox --list); do
    ln -s "$busybox" "$bb/$applet"
done

# init <command>: the script as BusyBox init would run it; sets out and rc.
init() {
    rc=0
    out=$(env -i PATH="$bb" DOV_VVLAN_ROOT="$root" "$busybox" sh "$script" "$1" 2>&1) || rc=$?
    echo "init $1 -> $rc: $out"
}
# The pids of processes running the tree's daemon.
ours() {
    local exe p
    for p in /proc/[0-9]*; do
        exe=$(readlink "$p/exe" 2>/dev/null) || continue
        if [[ $exe == "$daemon" ]] && ! grep -q '^State:[[:space:]]*Z' "$p/status" 2>/dev/null; then
            echo "${p#/proc/}"
        fi
    done
}
none_of_ours() { [[ -z $(ours) ]]; }
trap 'for p in $(ours); do kill -KILL "$p"; done; cleanup' EXIT

start_redis "$SCRATCH/redis"
printf 'TUKREDIS_SOCKET=%s\nDOV_VVLAN_LOG=/var/log/dov_vvlan.log\n' "$REDIS_SOCK" >"$defaults"

init status
[[ $rc == 3 ]] || fail "status before start: $rc, not 3"

init start
[[ $rc == 0 && $out == *started* ]] || fail "start"
first=$(ours)
[[ -n $first && $first != *" "* ]] || fail "start: not exactly one daemon: '$first'"
[[ $(cat "$pidfile") == "$first" ]] || fail "start: the pid file does not hold $first"
expect_serving "daemon started by the script"

init status
[[ $rc == 0 && $out == *"pid $first"* ]] || fail "status of a running daemon"

init start
[[ $rc == 0 && $out == *"already running (pid $first)"* ]] || fail "second start"
[[ $(ours) == "$first" ]] || fail "second start: another daemon was started"
[[ $(cat "$pidfile") == "$first" ]] || fail "second start: the pid file was emptied"

# An instance started by hand empties the pid file and exits with 245.
rc=0
env TUKREDIS_SOCKET="$REDIS_SOCK" "$daemon" >/dev/null 2>&1 || rc=$?
[[ $rc == 245 && ! -s $pidfile ]] || fail "a second instance by hand: exit $rc, pid file '$(cat "$pidfile")'"
init status
[[ $rc == 0 && $out == *"pid $first"* ]] || fail "status with an emptied pid file"
init start
[[ $rc == 0 && $(ours) == "$first" ]] || fail "start with an emptied pid file started another"

init restart
second=$(ours)
[[ $rc == 0 && -n $second && $second != "$first" && $second != *" "* ]] ||
    fail "restart: '$first' -> '$second'"
expect_serving "daemon restarted by the script"

init stop
[[ $rc == 0 ]] || fail "stop"
poll 10 none_of_ours || fail "stop: the daemon still runs"
init status
[[ $rc == 3 ]] || fail "status after stop: $rc, not 3"
init stop
[[ $rc == 0 && $out == *"not running"* ]] || fail "stop when stopped"

# A failed start-up step: the script reports the daemon's exit status.
echo "HAM_AGENT_INIT_RESULT=7" >>"$defaults"
init start
[[ $rc == 1 && $out == *"exit status 7"* ]] || fail "a failed start-up was not reported"
none_of_ours || fail "a failed start-up left a daemon"
echo "init script: all steps as expected under busybox sh"
