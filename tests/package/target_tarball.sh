#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# The target's CPack archive, dov_vvlan-<version>-mips-linux-gnu.tar.gz: made
# from the MIPS tree's install, with the expected files, a stripped MIPS
# daemon whose RPATH finds the archive's own platform libraries, and that
# daemon running under qemu-mips against a private redis-server.
#
#   target_tarball.sh <target build dir> <version> <qemu-mips> <target libc root>
. "$(dirname "$0")/lib.sh"
target=$1 version=$2 qemu=$3 libc=$4

name=dov_vvlan-$version-mips-linux-gnu
cpack --config "$target/CPackConfig.cmake" -B "$SCRATCH/cpack" >"$SCRATCH/cpack.log" 2>&1 ||
    fail "cpack failed: $(cat "$SCRATCH/cpack.log")"
archive=$SCRATCH/cpack/$name.tar.gz
[[ -f $archive ]] || fail "no $name.tar.gz: $(ls "$SCRATCH/cpack")"

tar -C "$SCRATCH" -xzf "$archive"
top=$SCRATCH/$name
for f in sbin/dov_vvlan lib/libtukredis.so lib/libsdm.so lib/libham_agent.so \
    include/tukredis.h include/libsdm.h include/ham_agent.h \
    lib/pkgconfig/tukredis.pc lib/pkgconfig/libsdm.pc lib/pkgconfig/ham_agent.pc \
    lib/cmake/dov_vvlan_platform/dov_vvlan_platform-config.cmake \
    lib/systemd/system/dov_vvlan.service etc/init.d/dov_vvlan etc/default/dov_vvlan \
    share/man/man8/dov_vvlan.8 share/doc/dov_vvlan/LICENSE share/doc/dov_vvlan/THIRD-PARTY-NOTICES; do
    [[ -f $top/$f ]] || fail "the archive lacks $name/$f"
done
kind=$(file -b "$top/sbin/dov_vvlan")
[[ $kind == *"32-bit MSB"*MIPS*stripped* && $kind != *"not stripped"* ]] ||
    fail "sbin/dov_vvlan is not a stripped big-endian MIPS program: $kind"
strings "$top/sbin/dov_vvlan" | grep -E "^dov_vvlan $version( \(.+\))?\$" >/dev/null ||
    fail "no version text in the target daemon"
runpath=$(readelf -d "$top/sbin/dov_vvlan" | sed -n 's/.*(RUNPATH).*\[\(.*\)\]/\1/p')
[[ $runpath == '$ORIGIN/../lib' ]] || fail "daemon RUNPATH is '$runpath'"
echo "$name.tar.gz: $(tar -tzf "$archive" | grep -vc '/$') files, $kind"

start_redis "$SCRATCH/redis"
env -i TUKREDIS_SOCKET="$REDIS_SOCK" "$qemu" -L "$libc" "$top/sbin/dov_vvlan" \
    >"$SCRATCH/daemon.out" 2>&1 &
daemon=$!
CLEANUP_PIDS+=($daemon)
expect_serving "target daemon from the archive"
for lib in libtukredis.so libsdm.so libham_agent.so; do
    grep -q " $top/lib/$lib\$" "/proc/$daemon/maps" ||
        fail "the target daemon did not load the archive's $lib"
done
echo "the archive's daemon serves the bus under qemu-mips with the archive's libraries"
