#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# The installed systemd unit passes `systemd-analyze verify` without a word,
# against the DESTDIR tree (its ExecStart and man page must be there), and
# says what the daemon needs: after redis-server, restarted on failure but
# not on 245 (another instance runs), output to the journal.
#
#   systemd_unit.sh <build dir>
. "$(dirname "$0")/lib.sh"
build=$1

root=$SCRATCH/root
DESTDIR=$root cmake --install "$build" >"$SCRATCH/install.log" || fail "cmake --install failed"
prefix=$(sed -n 's/^CMAKE_INSTALL_PREFIX:PATH=//p' "$build/CMakeCache.txt")
unit=$(find "$root" -name dov_vvlan.service)
[[ -n $unit ]] || fail "no dov_vvlan.service installed"

# The targets the unit is ordered against, as on the machine.
mkdir -p "$root/usr/lib/systemd/system"
cp /lib/systemd/system/*.target "$root/usr/lib/systemd/system/"
rc=0
out=$(MANPATH=$root$prefix/share/man systemd-analyze verify --root="$root" "$unit" 2>&1) || rc=$?
[[ $rc == 0 && -z $out ]] || fail "systemd-analyze verify ($rc):"$'\n'"$out"

for line in 'After=redis-server.service' 'Restart=on-failure' 'RestartPreventExitStatus=245' \
    'StandardOutput=journal' "ExecStart=$prefix/sbin/dov_vvlan"; do
    grep -qE "^${line}( |\$)" "$unit" || fail "the unit lacks $line"
done
echo "unit verified: $unit"
