#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# cmake --install with DESTDIR gives the whole layout, and the installed
# daemon runs from there with no library path: its RPATH finds the platform
# libraries of the tree, not those of the build.
#
#   install_tree.sh <build dir> <version> <source dir> <daemon's file prefix>
# Environment: REDIS_SERVER, WITH_VVLANCTL=1 when the build has vvlanctl.
. "$(dirname "$0")/lib.sh"
build=$1 version=$2 source=$3 sysroot=$4

root=$SCRATCH/root
DESTDIR=$root cmake --install "$build" >"$SCRATCH/install.log" || fail "cmake --install failed"
prefix=$(sed -n 's/^CMAKE_INSTALL_PREFIX:PATH=//p' "$build/CMakeCache.txt")
top=$root$prefix

expected=(
    sbin/dov_vvlan
    lib/libtukredis.so lib/libsdm.so lib/libham_agent.so
    include/tukredis.h include/libsdm.h include/ham_agent.h
    lib/pkgconfig/tukredis.pc lib/pkgconfig/libsdm.pc lib/pkgconfig/ham_agent.pc
    lib/cmake/dov_vvlan_platform/dov_vvlan_platform-config.cmake
    lib/cmake/dov_vvlan_platform/dov_vvlan_platform-config-version.cmake
    lib/cmake/dov_vvlan_platform/dov_vvlan_platform-targets.cmake
    lib/systemd/system/dov_vvlan.service
    etc/init.d/dov_vvlan etc/default/dov_vvlan
    lib/sysusers.d/dov_vvlan.conf lib/tmpfiles.d/dov_vvlan.conf
    share/doc/dov_vvlan/examples/unix-socket-only.conf
    share/doc/dov_vvlan/LICENSE share/doc/dov_vvlan/THIRD-PARTY-NOTICES
)
if [[ ${WITH_VVLANCTL:-0} == 1 ]]; then
    expected+=(bin/vvlanctl share/bash-completion/completions/vvlanctl)
    for schema in "$source"/vvlanctl/schema/*.schema.json; do
        expected+=("share/dov_vvlan/schema/$(basename "$schema")")
    done
fi
for page in "$source"/man/*.[1-9]; do
    expected+=("share/man/man${page##*.}/$(basename "$page")")
done
for f in "${expected[@]}"; do
    [[ -f $top/$f ]] || fail "not installed: $prefix/$f"
done
for f in sbin/dov_vvlan etc/init.d/dov_vvlan; do
    [[ -x $top/$f ]] || fail "not executable: $prefix/$f"
done
echo "installed: ${#expected[@]} files, as listed"

runpath=$(readelf -d "$top/sbin/dov_vvlan" | sed -n 's/.*(RUNPATH).*\[\(.*\)\]/\1/p')
[[ $runpath == '$ORIGIN/../lib' ]] || fail "daemon RUNPATH is '$runpath', not \$ORIGIN/../lib"

text=$(strings "$top/sbin/dov_vvlan" | grep -E "^dov_vvlan $version( \(.+\))?\$") ||
    fail "no version text 'dov_vvlan $version (...)' in the daemon"
echo "version text: $text"

# The installed daemon, with an empty environment but the server's socket,
# and traces off: the version text adds no output.
rm -f "$sysroot/var/tmp/dov_vvlan_dbg"
start_redis "$SCRATCH/redis"
env -i TUKREDIS_SOCKET="$REDIS_SOCK" "$top/sbin/dov_vvlan" >"$SCRATCH/daemon.out" \
    2>"$SCRATCH/daemon.err" &
daemon=$!
CLEANUP_PIDS+=($daemon)
expect_serving "installed daemon"
for lib in libtukredis.so libsdm.so libham_agent.so; do
    grep -q " $top/lib/$lib\$" "/proc/$daemon/maps" ||
        fail "the installed daemon did not load $prefix/lib/$lib from the tree"
done
[[ ! -s $SCRATCH/daemon.out ]] || fail "the daemon printed with traces off: $(cat "$SCRATCH/daemon.out")"
echo "installed daemon serves the bus, with the tree's platform libraries, silently"
