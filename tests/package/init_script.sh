#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# The installed init script under BusyBox: only `busybox sh` and BusyBox's
# applets on the PATH, the daemon of a DESTDIR install tree, a private
# redis-server. The script is run from a copy whose ROOT (fixed at build
# time, DOV_VVLAN_INIT_ROOT) names that tree. Steps:
#
#   basics       start, status, a second start (which must not start a
#                second instance, nor empty the running one's pid file),
#                recovery of an emptied pid file, restart, stop, and a
#                failed start-up's exit status
#   upgrade      the binary replaced under the running daemon, as dpkg
#                does: status, start, restart and stop still find it
#   stale_pid    a pid file naming another live process: not the daemon,
#                and never killed
#   env_root     DOV_VVLAN_ROOT in the caller's environment changes nothing
#   kill_recheck stop's SIGKILL after its timeout goes to the daemon only,
#                not to a pid that stopped being the daemon's (a python3
#                process holding the pid file's lock plays that pid)
#   user         DOV_VVLAN_USER=nobody (the steps above have root): the
#                pid file and the health agent's marker given to that user
#                first; a binary that user cannot execute is a failed
#                start-up; then, the tree made traversable, the daemon runs
#                with nobody's real and effective uid, holds its pid file,
#                and status, restart and stop find it (needs root)
#   no_user      a DOV_VVLAN_USER that does not exist: started as root, with
#                one line that says so
#
#   init_script.sh <build dir> <daemon's file prefix (DOV_VVLAN_SYSROOT)> [step...]
#
# Without steps, all of them in that order.
. "$(dirname "$0")/lib.sh"
build=$1 sysroot=$2
shift 2
all_steps=(basics upgrade stale_pid env_root kill_recheck user no_user)
steps=("${@:-${all_steps[@]}}")
for s in "${steps[@]}"; do
    [[ " ${all_steps[*]} " == *" $s "* ]] || fail "no step '$s' (steps: ${all_steps[*]})"
done

root=$SCRATCH/root
DESTDIR=$root cmake --install "$build" >"$SCRATCH/install.log" || fail "cmake --install failed"
prefix=$(sed -n 's/^CMAKE_INSTALL_PREFIX:PATH=//p' "$build/CMakeCache.txt")
init_root=$(sed -n 's/^DOV_VVLAN_INIT_ROOT:[A-Z]*=//p' "$build/CMakeCache.txt")
daemon=$root$prefix/sbin/dov_vvlan
installed=$root$prefix/etc/init.d/dov_vvlan
defaults=$root$prefix/etc/default/dov_vvlan
pidfile=$sysroot/var/run/dov_vvlan.pid
rm -f "$sysroot/var/tmp/dov_vvlan_dbg"

# The installed script has the tree's build-time root; the copy run here
# names the DESTDIR tree instead, and differs in nothing else.
[[ $(grep '^ROOT=' "$installed") == "ROOT='$init_root'" ]] ||
    fail "the installed script's root is $(grep '^ROOT=' "$installed"), not ROOT='$init_root'"
script=$SCRATCH/dov_vvlan.init
sed "s|^ROOT=.*|ROOT='$root'|" "$installed" >"$script"
[[ $(diff "$installed" "$script" | grep -c '^[<>]') == 2 ]] || fail "the copy differs in more than ROOT"

bb=$SCRATCH/busybox
mkdir -p "$bb"
busybox=$(command -v busybox) || fail "busybox is not installed"
for applet in $(busybox --list); do
    ln -s "$busybox" "$bb/$applet"
done

# init <command>: the script as BusyBox init would run it; sets out and rc.
init() {
    rc=0
    out=$(env -i PATH="$bb" "$busybox" sh "$script" "$1" 2>&1) || rc=$?
    echo "init $1 -> $rc: $out"
}
# The pids of processes running the tree's daemon, also one whose binary an
# upgrade has replaced.
ours() {
    local exe p
    for p in /proc/[0-9]*; do
        exe=$(readlink "$p/exe" 2>/dev/null) || continue
        if [[ ${exe% (deleted)} == "$daemon" ]] &&
            ! grep -q '^State:[[:space:]]*Z' "$p/status" 2>/dev/null; then
            echo "${p#/proc/}"
        fi
    done
}
none_of_ours() { [[ -z $(ours) ]]; }
# one_of_ours <what>: prints the pid of the only daemon; fails unless there
# is exactly one.
one_of_ours() {
    local pids
    pids=$(ours)
    [[ -n $pids && $pids != *[[:space:]]* ]] || fail "$1: not exactly one daemon: '$pids'"
    echo "$pids"
}
lives() { kill -0 "$1" 2>/dev/null && ! grep -q '^State:[[:space:]]*Z' "/proc/$1/status" 2>/dev/null; }
pidfile_is() { [[ $(cat "$pidfile" 2>/dev/null) == "$1" ]]; }
# write_defaults [user]: the daemon's user, root unless given.
write_defaults() {
    printf 'TUKREDIS_SOCKET=%s\nDOV_VVLAN_LOG=/var/log/dov_vvlan.log\nDOV_VVLAN_USER=%s\n' \
        "$REDIS_SOCK" "${1:-root}" >"$defaults"
}
# replace_binary: a new file over the installed daemon, as dpkg unpacks it
# (a temporary name renamed into place): a running daemon's executable then
# reads "<path> (deleted)".
replace_binary() {
    cp "$daemon" "$daemon.dpkg-new"
    mv -f "$daemon.dpkg-new" "$daemon"
}
trap 'for p in $(ours); do kill -KILL "$p"; done; cleanup' EXIT

step_basics() {
    local first second
    init status
    [[ $rc == 3 ]] || fail "status before start: $rc, not 3"

    init start
    [[ $rc == 0 && $out == *started* ]] || fail "start"
    first=$(one_of_ours start)
    pidfile_is "$first" || fail "start: the pid file does not hold $first"
    expect_serving "daemon started by the script"

    init status
    [[ $rc == 0 && $out == *"pid $first"* ]] || fail "status of a running daemon"

    init start
    [[ $rc == 0 && $out == *"already running (pid $first)"* ]] || fail "second start"
    [[ $(ours) == "$first" ]] || fail "second start: another daemon was started"
    pidfile_is "$first" || fail "second start: the pid file was emptied"

    # An instance started by hand empties the pid file and exits with 245.
    rc=0
    env TUKREDIS_SOCKET="$REDIS_SOCK" "$daemon" >/dev/null 2>&1 || rc=$?
    [[ $rc == 245 && ! -s $pidfile ]] || fail "a second instance by hand: exit $rc, pid file '$(cat "$pidfile")'"
    init status
    [[ $rc == 0 && $out == *"pid $first"* ]] || fail "status with an emptied pid file"
    init start
    [[ $rc == 0 && $(ours) == "$first" ]] || fail "start with an emptied pid file started another"

    init restart
    second=$(one_of_ours restart)
    [[ $rc == 0 && $second != "$first" ]] || fail "restart: '$first' -> '$second'"
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
    write_defaults
}

step_upgrade() {
    local first second
    init start
    [[ $rc == 0 ]] || fail "upgrade: start"
    first=$(one_of_ours "upgrade: start")

    replace_binary
    [[ $(readlink "/proc/$first/exe") == "$daemon (deleted)" ]] ||
        fail "upgrade: the running daemon's executable is $(readlink "/proc/$first/exe")"
    init status
    [[ $rc == 0 && $out == *"running (pid $first)"* ]] || fail "upgrade: status of the replaced daemon"
    init start
    [[ $rc == 0 && $out == *"already running (pid $first)"* ]] || fail "upgrade: start beside the replaced daemon"
    [[ $(ours) == "$first" ]] || fail "upgrade: start started another: $(ours)"
    pidfile_is "$first" || fail "upgrade: start emptied the pid file"

    init restart
    [[ $rc == 0 ]] || fail "upgrade: restart"
    second=$(one_of_ours "upgrade: restart")
    [[ $second != "$first" ]] || fail "upgrade: restart left the replaced daemon $first"
    [[ $(readlink "/proc/$second/exe") == "$daemon" ]] || fail "upgrade: restart did not run the new binary"
    pidfile_is "$second" || fail "upgrade: the pid file holds '$(cat "$pidfile")', not $second"
    expect_serving "daemon restarted after an upgrade"

    # Upgraded again and the pid file removed (a cleaned /var/run): found by
    # its binary alone.
    replace_binary
    rm -f "$pidfile"
    init status
    [[ $rc == 0 && $out == *"running (pid $second)"* ]] || fail "upgrade: status without a pid file"
    init stop
    [[ $rc == 0 && $out == *stopped* ]] || fail "upgrade: stop"
    poll 10 none_of_ours || fail "upgrade: stop: the daemon still runs: $(ours)"
    init status
    [[ $rc == 3 ]] || fail "upgrade: status after stop: $rc, not 3"
}

step_stale_pid() {
    local other d
    # Another live process, named like the daemon for pidof, in the pid file
    # a killed daemon left.
    (exec -a dov_vvlan sleep 1000) &
    other=$!
    CLEANUP_PIDS+=("$other")
    echo "$other" >"$pidfile"

    init status
    [[ $rc == 3 && $out == *"not running"* ]] || fail "stale pid file: status: $rc, not 3"
    init start
    [[ $rc == 0 && $out == *started* ]] || fail "stale pid file: start"
    d=$(one_of_ours "stale pid file: start")
    pidfile_is "$d" || fail "stale pid file: the pid file holds '$(cat "$pidfile")', not $d"
    expect_serving "daemon started over a stale pid file"
    init stop
    [[ $rc == 0 ]] || fail "stale pid file: stop"
    poll 10 none_of_ours || fail "stale pid file: stop: the daemon still runs"
    lives "$other" || fail "stale pid file: the other process $other was killed"

    echo "$other" >"$pidfile"
    init stop
    [[ $rc == 0 && $out == *"not running"* ]] || fail "stale pid file: stop with no daemon"
    sleep 0.2
    lives "$other" || fail "stale pid file: stop with no daemon killed the other process $other"
    kill "$other"
}

step_env_root() {
    # The installed script, as it is, with the tree's root in the
    # environment: it must name its own daemon path, not start the tree's.
    if [[ -n $init_root || -e $prefix/sbin/dov_vvlan ]]; then
        echo "env_root: skipped ($prefix/sbin/dov_vvlan exists here, or the tree has a root)"
        return 0
    fi
    rc=0
    out=$(env -i PATH="$bb" DOV_VVLAN_ROOT="$root" "$busybox" sh "$installed" start 2>&1) || rc=$?
    echo "installed script, DOV_VVLAN_ROOT=$root, start -> $rc: $out"
    [[ $rc == 5 && $out == *"$prefix/sbin/dov_vvlan not found"* ]] ||
        fail "DOV_VVLAN_ROOT from the environment changed the daemon the script starts"
    sleep 0.2
    none_of_ours || fail "DOV_VVLAN_ROOT from the environment started $daemon"
}

step_kill_recheck() {
    local d imp
    # A daemon that does not end on SIGTERM (stopped) is killed.
    init start
    [[ $rc == 0 ]] || fail "kill_recheck: start"
    d=$(one_of_ours "kill_recheck: start")
    kill -STOP "$d"
    init stop
    [[ $rc == 0 ]] || fail "kill_recheck: stop of a stopped daemon"
    poll 10 none_of_ours || fail "kill_recheck: a daemon ignoring SIGTERM was not killed"

    # A process the lock names, which drops the lock on SIGTERM and lives
    # on: by the end of the timeout its pid is not the daemon's any more.
    local python
    if ! python=$(command -v python3); then
        echo "kill_recheck: the lock holder's half is skipped: no python3 to take a POSIX lock"
        return 0
    fi
    rm -f "$pidfile"
    cat >"$SCRATCH/lock_holder.py" <<'PY'
import fcntl, os, signal, sys
fd = os.open(sys.argv[1], os.O_RDWR | os.O_CREAT, 0o644)
fcntl.lockf(fd, fcntl.LOCK_EX | fcntl.LOCK_NB)
os.ftruncate(fd, 0)
os.write(fd, str(os.getpid()).encode())
signal.signal(signal.SIGTERM, lambda *_: fcntl.lockf(fd, fcntl.LOCK_UN))
while True:
    signal.pause()
PY
    "$python" "$SCRATCH/lock_holder.py" "$pidfile" &
    CLEANUP_PIDS+=($!)
    poll 10 grep -qs . "$pidfile" || fail "kill_recheck: the lock holder wrote no pid"
    imp=$(cat "$pidfile")
    CLEANUP_PIDS+=("$imp")
    init status
    [[ $rc == 0 && $out == *"running (pid $imp)"* ]] || fail "kill_recheck: the lock's holder is not the daemon"
    init stop
    [[ $rc == 0 ]] || fail "kill_recheck: stop"
    lives "$imp" || fail "kill_recheck: SIGKILL went to $imp, which no longer held the lock"
    init status
    [[ $rc == 3 ]] || fail "kill_recheck: status after stop: $rc, not 3"
    kill -KILL "$imp"
}

# ids <pid>: the real and effective uid of that process.
ids() {
    local ids real effective
    ids=$(grep '^Uid:' "/proc/$1/status") || return 1
    read -r _ real effective _ <<<"$ids"
    echo "$real $effective"
}
# owner_mode <file>: its owner's uid, group's gid and mode, as "uid:gid mode".
owner_mode() { stat -c '%u:%g %a' "$1"; }
# searchable <path>: every directory above it lets others through; those in
# the scratch directory (mktemp's are 0700) are made so.
searchable() {
    local d=$1
    while d=$(dirname "$d") && [[ $d != / ]]; do
        [[ $(stat -c %A "$d") == *[xt] ]] && continue
        [[ $d == "$SCRATCH" || $d == "$SCRATCH"/* ]] || return 1
        chmod 0755 "$d"
    done
}

step_user() {
    local uid gid d second lib log=$root/var/log/dov_vvlan.log
    local marker=$sysroot/data/dov_vvlan_ham.txt
    if [[ $EUID != 0 ]] || ! uid=$(id -u nobody 2>/dev/null); then
        echo "user: skipped (not root, or no user nobody)"
        return 0
    fi
    gid=$(id -g nobody)
    write_defaults nobody
    # A pid file root left, and a health agent's marker of root's.
    : >"$pidfile"
    chown 0:0 "$pidfile"
    mkdir -p "$sysroot/data"
    : >"$marker"
    chown 0:0 "$marker"
    chmod 0644 "$marker"

    # Still in the 0700 scratch directory: nobody cannot execute the binary.
    chmod 0700 "$SCRATCH"
    init start
    [[ $rc == 1 && $out == *"start-up failed, exit status 1 "* ]] ||
        fail "user: a binary nobody cannot execute was not a failed start-up"
    grep "can't execute '$daemon': Permission denied" "$log" >/dev/null ||
        fail "user: the log does not say why: $(tail -n 1 "$log")"
    none_of_ours || fail "user: a failed start-up left a daemon"
    [[ $(owner_mode "$pidfile") == "$uid:$gid 644" ]] ||
        fail "user: the pid file is $(owner_mode "$pidfile"), not $uid:$gid 644"
    [[ $(owner_mode "$marker") == "0:$gid 660" ]] ||
        fail "user: the health agent's marker is $(owner_mode "$marker"), not 0:$gid 660"

    # The binary, its libraries, the pid file and the server's socket, all
    # reachable by nobody.
    rm -f "$pidfile"
    for lib in "$daemon" $(ldd "$daemon" | sed -n 's/.*=> \(\/[^ ]*\) .*/\1/p') \
        "$pidfile" "$REDIS_SOCK"; do
        searchable "$lib" || {
            echo "user: skipped (a directory above $lib does not let others through)"
            return 0
        }
    done
    init start
    [[ $rc == 0 && $out == *started* && $out != *"no user"* ]] || fail "user: start"
    d=$(one_of_ours "user: start")
    [[ $(ids "$d") == "$uid $uid" ]] || fail "user: the daemon's real and effective uid are $(ids "$d"), not $uid"
    pidfile_is "$d" || fail "user: the pid file holds '$(cat "$pidfile")', not $d"
    [[ $(owner_mode "$pidfile") == "$uid:$gid 644" ]] ||
        fail "user: the pid file is $(owner_mode "$pidfile"), not $uid:$gid 644"
    expect_serving "daemon started as nobody"
    init status
    [[ $rc == 0 && $out == *"running (pid $d)"* ]] || fail "user: status"
    init start
    [[ $rc == 0 && $out == *"already running (pid $d)"* && $(ours) == "$d" ]] || fail "user: second start"
    init restart
    second=$(one_of_ours "user: restart")
    [[ $rc == 0 && $second != "$d" ]] || fail "user: restart: '$d' -> '$second'"
    [[ $(ids "$second") == "$uid $uid" ]] || fail "user: restarted as $(ids "$second"), not $uid"
    pidfile_is "$second" || fail "user: restart: the pid file holds '$(cat "$pidfile")', not $second"
    init stop
    [[ $rc == 0 && $out == *stopped* ]] || fail "user: stop"
    poll 10 none_of_ours || fail "user: stop: the daemon still runs"
    init status
    [[ $rc == 3 ]] || fail "user: status after stop: $rc, not 3"
    rm -f "$marker"
    chown 0:0 "$pidfile"
    write_defaults
}

step_no_user() {
    local d
    write_defaults no_such_user_here
    init start
    [[ $rc == 0 && $out == *started* ]] || fail "no_user: start"
    [[ $(grep -c 'no_such_user_here' <<<"$out") == 1 &&
        $out == *"dov_vvlan: no user no_such_user_here, starting as root ("*adduser*")"* ]] ||
        fail "no_user: not one line saying it starts as root"
    d=$(one_of_ours "no_user: start")
    [[ $(ids "$d") == "0 0" ]] || fail "no_user: the daemon's real and effective uid are $(ids "$d"), not 0"
    pidfile_is "$d" || fail "no_user: the pid file holds '$(cat "$pidfile")', not $d"
    init stop
    [[ $rc == 0 ]] || fail "no_user: stop"
    poll 10 none_of_ours || fail "no_user: stop: the daemon still runs"
    write_defaults
}

start_redis "$SCRATCH/redis"
write_defaults
for s in "${steps[@]}"; do
    echo "== $s"
    "step_$s"
    none_of_ours || fail "$s left a daemon: $(ours)"
done
echo "init script: steps ${steps[*]} as expected under busybox sh"
