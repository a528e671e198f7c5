#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# A vendor build through pkg-config: the host platform libraries, installed
# with DESTDIR, stand in for a vendor SDK. The daemon must compile against
# the SDK's headers (not the project's copies), link the SDK's libraries
# (ham_agent by the same name as in a host build) and serve the bus.
#
#   vendor_pkgconfig.sh <host build dir> <source dir>
. "$(dirname "$0")/lib.sh"
build=$1 source=$2

sdk=$SCRATCH/sdk
DESTDIR=$sdk cmake --install "$build" >"$SCRATCH/install.log" || fail "cmake --install failed"
prefix=$(sed -n 's/^CMAKE_INSTALL_PREFIX:PATH=//p' "$build/CMakeCache.txt")
libdir=$(dirname "$(find "$sdk" -name tukredis.pc)")
export PKG_CONFIG_PATH=$libdir PKG_CONFIG_SYSROOT_DIR=$sdk PKG_CONFIG_LIBDIR=$libdir

vendor=$SCRATCH/vendor
cmake -S "$source" -B "$vendor" -DDOV_VVLAN_PLATFORM=vendor \
    -DDOV_VVLAN_VENDOR_PKGCONFIG="tukredis;libsdm;ham_agent" \
    -DDOV_VVLAN_SYSROOT="$SCRATCH/files" -DDOV_VVLAN_TESTS=OFF -DDOV_VVLAN_BENCH=OFF \
    >"$SCRATCH/configure.log" 2>&1 || fail "configure failed: $(cat "$SCRATCH/configure.log")"
cmake --build "$vendor" --target dov_vvlan -j2 >"$SCRATCH/build.log" 2>&1 ||
    fail "vendor build failed: $(tail -30 "$SCRATCH/build.log")"

# Compiled against the SDK's headers only.
grep -qE -- "(-I|-isystem )$sdk$prefix/include" "$vendor/compile_commands.json" ||
    fail "the daemon was not compiled against the SDK's include directory"
if grep -q -- "$source/platform/include" "$vendor/compile_commands.json"; then
    fail "the vendor build still sees the project's platform/include"
fi
for lib in libtukredis.so libsdm.so libham_agent.so; do
    readelf -d "$vendor/dov_vvlan" | grep "NEEDED.*\[$lib\]" >/dev/null || fail "the daemon does not need $lib"
done

mkdir -p "$SCRATCH/files/var/run" "$SCRATCH/files/data" "$SCRATCH/files/var/tmp"
start_redis "$SCRATCH/redis"
LD_LIBRARY_PATH=$sdk$prefix/lib TUKREDIS_SOCKET=$REDIS_SOCK "$vendor/dov_vvlan" \
    >"$SCRATCH/daemon.out" 2>&1 &
CLEANUP_PIDS+=($!)
expect_serving "vendor-built daemon"
echo "vendor build through pkg-config: compiled, linked and serving"
