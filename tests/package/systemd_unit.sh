#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# The installed systemd unit passes `systemd-analyze verify` without a word,
# against the DESTDIR tree (its ExecStart and man page must be there), and
# says what the daemon needs: after redis-server, restarted on failure but
# not on 245 (another instance runs), output to the journal. Then its
# sandbox: `systemd-analyze security --offline=yes` prints the overall
# exposure of the unit as installed, which must be 1.0 at most, and of the
# unit with the installed drop-in example unix-socket-only.conf, which must
# be lower still; the user, the pid file and the marker it binds are those
# of the sysusers.d and tmpfiles.d files installed with it.
#
#   systemd_unit.sh <build dir>
. "$(dirname "$0")/lib.sh"
build=$1

root=$SCRATCH/root
DESTDIR=$root cmake --install "$build" >"$SCRATCH/install.log" || fail "cmake --install failed"
prefix=$(sed -n 's/^CMAKE_INSTALL_PREFIX:PATH=//p' "$build/CMakeCache.txt")
unit=$(find "$root" -name dov_vvlan.service)
[[ -n $unit ]] || fail "no dov_vvlan.service installed"

# The targets the unit is ordered against, and the systemd-tmpfiles its
# ExecStartPre= names, as on the machine.
mkdir -p "$root/usr/lib/systemd/system" "$root/usr/bin"
cp /lib/systemd/system/*.target "$root/usr/lib/systemd/system/"
cp "$(command -v systemd-tmpfiles)" "$root/usr/bin/"
rc=0
out=$(MANPATH=$root$prefix/share/man systemd-analyze verify --root="$root" "$unit" 2>&1) || rc=$?
[[ $rc == 0 && -z $out ]] || fail "systemd-analyze verify ($rc):"$'\n'"$out"

for line in 'After=redis-server.service' 'Restart=on-failure' 'RestartPreventExitStatus=245' \
    'StandardOutput=journal' "ExecStart=$prefix/sbin/dov_vvlan"; do
    grep -qE "^${line}( |\$)" "$unit" || fail "the unit lacks $line"
done
echo "unit verified: $unit"

# The sandbox's score, as installed and with the drop-in example. Offline:
# the unit files alone, not this machine's manager.
max_exposure=1.0
# exposure <unit file>: prints the "Overall exposure level" line and sets
# EXPOSURE to its number.
exposure() {
    local out line
    out=$(systemd-analyze security --offline=yes --no-pager "$1" 2>&1) ||
        fail "systemd-analyze security $1:"$'\n'"$out"
    line=$(grep -E '^→ Overall exposure level' <<<"$out") ||
        fail "systemd-analyze security printed no overall exposure:"$'\n'"$out"
    echo "$line"
    EXPOSURE=$(sed -E 's/.*: ([0-9]+\.[0-9]+) .*/\1/' <<<"$line")
    [[ $EXPOSURE =~ ^[0-9]+\.[0-9]+$ ]] || fail "no number in: $line"
    # Every check it failed, for the log.
    grep -E '^✗' <<<"$out" | sed 's/^/    /' || true
}
above() { awk -v a="$1" -v b="$2" 'BEGIN { exit !(a > b) }'; }

echo "as installed:"
exposure "$unit"
base=$EXPOSURE
above "$base" "$max_exposure" && fail "exposure $base is above $max_exposure"

dropin=$(find "$root" -name unix-socket-only.conf)
[[ -n $dropin ]] || fail "no drop-in example unix-socket-only.conf installed"
grep -qx 'PrivateNetwork=yes' "$dropin" || fail "the drop-in lacks PrivateNetwork=yes"
variant=$SCRATCH/variant
mkdir -p "$variant/dov_vvlan.service.d"
cp "$unit" "$variant/"
cp "$dropin" "$variant/dov_vvlan.service.d/"
echo "with the drop-in $(basename "$dropin"):"
exposure "$variant/dov_vvlan.service"
above "$EXPOSURE" "$base" && fail "the drop-in raises the exposure to $EXPOSURE"
[[ $EXPOSURE != "$base" ]] || fail "the drop-in does not lower the exposure ($base)"

# Its user, and a pid file the sandbox leaves it: the sysusers.d and
# tmpfiles.d files installed with it, and the lines that tie them together.
sysusers=$(find "$root" -path '*/sysusers.d/dov_vvlan.conf')
tmpfiles=$(find "$root" -path '*/tmpfiles.d/dov_vvlan.conf')
[[ -n $sysusers ]] || fail "no sysusers.d/dov_vvlan.conf installed"
[[ -n $tmpfiles ]] || fail "no tmpfiles.d/dov_vvlan.conf installed"
grep -qE '^u dov_vvlan -' "$sysusers" || fail "$sysusers does not make the user dov_vvlan"
pidfile=$(awk '$1 == "f" && $2 ~ /dov_vvlan\.pid$/ && $4 == "dov_vvlan" && $5 == "dov_vvlan" { print $2 }' \
    "$tmpfiles")
[[ -n $pidfile ]] || fail "$tmpfiles does not create the pid file for dov_vvlan"
for line in 'User=dov_vvlan' 'Group=dov_vvlan' "ReadWritePaths=.*/dov_vvlan\\.pid" \
    "ExecStartPre=\\+systemd-tmpfiles --create ${tmpfiles#"$root"}" \
    'BindReadOnlyPaths=-.*/var/tmp/dov_vvlan_dbg'; do
    grep -qE "^${line}\$" "$unit" || fail "the unit lacks $line"
done
echo "user, pid file and marker: $sysusers, $tmpfiles ($pidfile)"
