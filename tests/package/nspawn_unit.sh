#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# The Debian package under a real systemd: a Debian bookworm root (made
# once with debootstrap --variant=minbase plus systemd, dbus and
# redis-server, and cached outside the source tree), a copy of it with this
# tree's .deb installed, booted with systemd-nspawn on a private network.
# From inside the container (nsenter into its leader) it checks that the
# unit runs the daemon as dov_vvlan with no capabilities, holding the lock
# of its pid file; that its traces reach the journal when the debug marker
# exists; that the container's vvlanctl joins a phone's port through the
# container's redis-server (TCP to 127.0.0.1, as shipped); that a kill -9
# is followed by a restart, which honours the health agent's opt-out marker;
# that the drop-in example works with the server on its Unix socket; and
# that exit status 245 (a second instance, started by hand as the user,
# holds the lock) is not followed by a restart. Needs root,
# systemd-nspawn and, the first time, debootstrap and Debian's mirror.
#
#   nspawn_unit.sh <source dir> <version>
# Environment: DOV_VVLAN_NSPAWN_CACHE (default /var/cache/dov_vvlan-nspawn)
# holds the cached root; DOV_VVLAN_NSPAWN_DEB names a built .deb to use
# instead of building one; DEBIAN_MIRROR the mirror for debootstrap.
. "$(dirname "$0")/lib.sh"
source=$1 version=$2
((EUID == 0)) || fail "needs root (systemd-nspawn, debootstrap)"
nspawn=$(PATH=$PATH:/usr/sbin:/sbin command -v systemd-nspawn) || fail "no systemd-nspawn"
start=$SECONDS
stamp() { echo "[$((SECONDS - start)) s] $*"; }

# The cached root, made only when missing; a lock keeps two runs from
# making it at once.
cache=${DOV_VVLAN_NSPAWN_CACHE:-/var/cache/dov_vvlan-nspawn}
base=$cache/bookworm
mkdir -p "$cache"
exec {lockfd}>"$cache/.lock"
flock "$lockfd"
if [[ ! -x $base/lib/systemd/systemd ]]; then
    debootstrap=$(PATH=$PATH:/usr/sbin:/sbin command -v debootstrap) || fail "no debootstrap"
    rm -rf "$base.tmp"
    "$debootstrap" --variant=minbase --include=systemd,dbus,redis-server,libhiredis0.14 \
        bookworm "$base.tmp" "${DEBIAN_MIRROR:-http://deb.debian.org/debian}" \
        >"$SCRATCH/debootstrap.log" 2>&1 ||
        fail "debootstrap failed: $(tail -20 "$SCRATCH/debootstrap.log")"
    mv "$base.tmp" "$base"
    stamp "made the cached root $base"
fi
flock -u "$lockfd"

# The package, as debian_package.sh builds it: the one that test left, when
# it ran first (as in tools/test-all), else built here.
if [[ -n ${DOV_VVLAN_NSPAWN_DEB:-} && -f ${DOV_VVLAN_NSPAWN_DEB:-} ]]; then
    deb=$DOV_VVLAN_NSPAWN_DEB
else
    src=$SCRATCH/src
    mkdir -p "$src"
    tar --exclude=./out --exclude=./.deps --exclude='./build*' --exclude=./.git \
        --exclude='./obj-*' --exclude=./debian/dov-vvlan --exclude=./debian/.debhelper \
        --exclude=./debian/files --exclude='./debian/*.substvars' \
        --exclude=./debian/debhelper-build-stamp -C "$source" -cf - . | tar -C "$src" -xf -
    (cd "$src" && DEB_BUILD_OPTIONS="nocheck parallel=2" dpkg-buildpackage -b -us -uc) \
        >"$SCRATCH/build.log" 2>&1 || fail "dpkg-buildpackage failed: $(tail -40 "$SCRATCH/build.log")"
    deb=$SCRATCH/dov-vvlan_${version}_$(dpkg --print-architecture).deb
fi
[[ -f $deb ]] || fail "no $deb"
stamp "package $(basename "$deb")"

# A copy of the cached root with the package installed and the debug
# marker in place.
root=$SCRATCH/root
cp -a "$base" "$root"
cp "$deb" "$root/tmp/dov-vvlan.deb"
chroot "$root" dpkg -i /tmp/dov-vvlan.deb >"$SCRATCH/dpkg.log" 2>&1 ||
    fail "dpkg -i in the root failed: $(cat "$SCRATCH/dpkg.log")"
touch "$root/var/tmp/dov_vvlan_dbg"
[[ -L $root/etc/systemd/system/multi-user.target.wants/dov_vvlan.service ]] ||
    fail "the package did not enable dov_vvlan.service"
grep -q '^dov_vvlan:' "$root/etc/passwd" || fail "the package did not make the user dov_vvlan"
stamp "installed in a copy of the root"

# Booted in the background. Without a registration nothing outside knows
# the container: its leader (the container's PID 1) is found as the
# process whose PID in its own namespace is 1, under this nspawn.
"$nspawn" --register=no --keep-unit --private-network --console=passive -q -b -D "$root" \
    >"$SCRATCH/nspawn.log" 2>&1 &
nspawn_pid=$!
CLEANUP_PIDS+=($nspawn_pid)
leader_of() {
    local pid
    for pid in $(pgrep -P "$nspawn_pid"); do
        if grep -qE '^NSpid:.*\s1$' "/proc/$pid/status" 2>/dev/null; then
            echo "$pid"
            return 0
        fi
    done
    return 1
}
poll 30 leader_of >/dev/null || fail "the container did not start: $(cat "$SCRATCH/nspawn.log")"
leader=$(leader_of)
# Killing the leader ends the whole container; it goes before nspawn.
CLEANUP_PIDS=($leader "${CLEANUP_PIDS[@]}")
inside() { nsenter -t "$leader" -a "$@"; }
# Until the container's systemd listens, systemctl cannot connect: quiet.
unit_prop() { inside systemctl show -p "$1" --value dov_vvlan.service 2>/dev/null; }
active() { [[ $(unit_prop ActiveState) == active && $(unit_prop MainPID) != 0 ]]; }
poll 60 active || fail "dov_vvlan.service is not active after boot:
$(inside systemctl status --no-pager dov_vvlan.service 2>&1)"
stamp "booted, dov_vvlan.service active"

# Its user, no capabilities, the lock of its pid file. A simple service is
# active as soon as systemd has forked it: until the child has dropped to
# the user and run the daemon, it is still root. Wait for the daemon itself.
pid=$(unit_prop MainPID)
uid=$(inside id -u dov_vvlan)
running_daemon() { [[ $(inside readlink "/proc/$pid/exe") == */sbin/dov_vvlan ]]; }
poll 10 running_daemon || fail "MainPID $pid never became the daemon"
status=$(inside cat "/proc/$pid/status")
grep -qE "^Uid:\s+$uid\s+$uid\s+$uid\s+$uid\$" <<<"$status" ||
    fail "the daemon does not run as dov_vvlan ($uid): $(grep ^Uid <<<"$status")"
for cap in CapInh CapPrm CapEff CapBnd CapAmb; do
    grep -qE "^$cap:\s+0+\$" <<<"$status" ||
        fail "the daemon has capabilities: $(grep "^$cap" <<<"$status")"
done
inode=$(inside stat -c %i /run/dov_vvlan.pid)
owner=$(inside stat -c %U /run/dov_vvlan.pid)
[[ $owner == dov_vvlan ]] || fail "/run/dov_vvlan.pid belongs to $owner"
inside cat /proc/locks | grep -E "POSIX +ADVISORY +WRITE +$pid +[0-9a-f]+:[0-9a-f]+:$inode " >/dev/null ||
    fail "the daemon ($pid) holds no lock on /run/dov_vvlan.pid ($inode): $(inside cat /proc/locks)"
[[ $(inside cat /run/dov_vvlan.pid) == "$pid" ]] || fail "the pid file does not hold $pid"
echo "daemon $pid runs as dov_vvlan ($uid), no capabilities, holds the lock of its pid file"

# The debug marker was there at start: its traces are in the journal.
journal() { inside journalctl -q -o cat -u dov_vvlan.service; }
traced() { journal | grep 'vvlan_init end' >/dev/null; }
poll 10 traced || fail "no trace of the daemon in the journal: $(journal | tail -20)"
echo "traces reach the journal: $(journal | grep -c .) lines"

# A phone joins port 5 (phyid 6) through the container's server and tool.
ctl() { inside vvlanctl "$@"; }
ctl set vid 100 && ctl add oui 00e0bb000000 ffffff000000 && ctl set auto 5 &&
    ctl learn 100 6 00e0bb123456 || fail "vvlanctl writes failed"
ctl sync || fail "vvlanctl sync: the daemon did not answer"
joined() {
    ctl show --json | python3 -c 'import json, sys
sys.exit(not any(p["ifx"] == int(sys.argv[1]) and p["joined"] for p in json.load(sys.stdin)["ports"]))' "$1"
}
poll 10 joined 5 || fail "port 5 did not join: $(ctl show)"
echo "a phone on port 5 joins the voice VLAN:"
ctl show | sed 's/^/    /'

# kill -9 of the daemon: restarted, a new process. The health agent's
# opt-out marker, put there meanwhile as root with mode 0644, is honoured
# by the new one: the unit's tmpfiles.d line gives it to the daemon's group,
# which may open it read-write, so no exit action is registered.
journal_of() { inside journalctl -q -o cat "_PID=$1"; }
grep 'reg_process_exit_action' <<<"$(journal_of "$pid")" >/dev/null ||
    fail "without the opt-out marker, no exit action was registered"
mkdir -p "$root/data"
install -m 0644 /dev/null "$root/data/dov_vvlan_ham.txt"
restarts=$(unit_prop NRestarts)
inside systemctl kill -s KILL --kill-who=main dov_vvlan.service
restarted() { active && [[ $(unit_prop MainPID) != "$pid" ]]; }
poll 15 restarted || fail "not restarted after kill -9: $(inside systemctl status --no-pager dov_vvlan.service 2>&1)"
pid2=$(unit_prop MainPID)
echo "restarted after kill -9: $pid -> $pid2, NRestarts $restarts -> $(unit_prop NRestarts)"
poll 10 bash -c "nsenter -t $leader -a journalctl -q -o cat _PID=$pid2 | grep 'vvlan_init end' >/dev/null" ||
    fail "the restarted daemon did not start"
if grep 'reg_process_exit_action' <<<"$(journal_of "$pid2")" >/dev/null; then
    fail "the opt-out marker /data/dov_vvlan_ham.txt was not honoured: $(ls -l "$root/data")"
fi
echo "the health agent's opt-out marker is honoured: $(inside stat -c '%A %U:%G' /data/dov_vvlan_ham.txt)"

# The drop-in example, with the server on its Unix socket (mode 770, group
# redis, which the daemon's user is given): it connects over the socket,
# from a network namespace of its own.
sed -i -e 's|^# *unixsocket /run/redis/redis-server.sock|unixsocket /run/redis/redis-server.sock|' \
    -e 's|^# *unixsocketperm .*|unixsocketperm 770|' "$root/etc/redis/redis.conf"
dropins=$root/etc/systemd/system/dov_vvlan.service.d
mkdir -p "$dropins"
cp "$root/usr/share/doc/dov-vvlan/examples/unix-socket-only.conf" "$dropins/"
printf '[Service]\nSupplementaryGroups=redis\n' >"$dropins/redis-group.conf"
echo 'TUKREDIS_SOCKET=/run/redis/redis-server.sock' >>"$root/etc/default/dov_vvlan"
inside systemctl restart redis-server.service
inside systemctl daemon-reload
inside systemctl restart dov_vvlan.service
poll 15 active || fail "not active with the drop-in: $(inside systemctl status --no-pager dov_vvlan.service 2>&1)"
pid3=$(unit_prop MainPID)
poll 10 bash -c "nsenter -t $leader -a journalctl -q -o cat _PID=$pid3 |
    grep 'connected to /run/redis/redis-server.sock' >/dev/null" ||
    fail "with the drop-in, the daemon did not connect over the socket: $(journal_of "$pid3")"
[[ $(inside readlink "/proc/$pid3/ns/net") != $(inside readlink /proc/1/ns/net) ]] ||
    fail "with the drop-in, the daemon shares the container's network namespace"
# A server restart loses the joined ports' mode 2 keys by design
# (docs/reliability.md): a second phone, on port 7 (phyid 8), joins.
ctl -s /run/redis/redis-server.sock set auto 7 &&
    ctl -s /run/redis/redis-server.sock learn 100 8 00e0bb654321 || fail "vvlanctl writes failed"
ctl -s /run/redis/redis-server.sock sync || fail "with the drop-in, the daemon does not answer"
poll 10 joined 7 || fail "with the drop-in, port 7 did not join: $(ctl show)"
echo "with unix-socket-only.conf: connected over the socket, private network, a phone on port 7 joins"

# 245: a second instance, started by hand as the user, holds the lock; the
# unit's daemon exits 245 and is not restarted.
inside systemctl stop dov_vvlan.service
inside systemctl reset-failed dov_vvlan.service 2>/dev/null || true
inside setpriv --reuid=dov_vvlan --regid=dov_vvlan --clear-groups --inh-caps=-all \
    /usr/sbin/dov_vvlan >/dev/null 2>&1 &
hand=$!
CLEANUP_PIDS=($hand "${CLEANUP_PIDS[@]}")
poll 10 bash -c "nsenter -t $leader -a cat /proc/locks | grep -E ' POSIX +ADVISORY +WRITE +[0-9]+ +[0-9a-f]+:[0-9a-f]+:$inode ' >/dev/null" ||
    fail "the instance started by hand took no lock"
before=$(unit_prop NRestarts)
inside systemctl start dov_vvlan.service || true
exited() { [[ $(unit_prop ExecMainStatus) == 245 ]]; }
poll 10 exited || fail "the unit's daemon did not exit 245: $(inside systemctl status --no-pager dov_vvlan.service 2>&1)"
sleep 3 # three times RestartSec
state=$(unit_prop ActiveState) n=$(unit_prop NRestarts)
[[ $state != active && $state != activating && $n == "$before" ]] ||
    fail "restarted after exit status 245: $state, NRestarts $n"
echo "exit status 245 is not restarted: $state, NRestarts $n"

inside systemctl poweroff >/dev/null 2>&1 || true
poll 30 bash -c "! kill -0 $nspawn_pid 2>/dev/null" || true
stamp "done"
