#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# Another project builds against the platform SDK installed with DESTDIR,
# through find_package(dov_vvlan_platform) and through pkg-config, and its
# programs run with the installed libraries.
#
#   consumer.sh <host build dir>
. "$(dirname "$0")/lib.sh"
build=$1
here=$(cd "$(dirname "$0")" && pwd)

sdk=$SCRATCH/sdk
DESTDIR=$sdk cmake --install "$build" >"$SCRATCH/install.log" || fail "cmake --install failed"
prefix=$(sed -n 's/^CMAKE_INSTALL_PREFIX:PATH=//p' "$build/CMakeCache.txt")
libdir=$(dirname "$(find "$sdk" -name tukredis.pc)")
export PKG_CONFIG_PATH=$libdir PKG_CONFIG_SYSROOT_DIR=$sdk PKG_CONFIG_LIBDIR=$libdir

cmake -S "$here/consumer" -B "$SCRATCH/consumer" -DCMAKE_PREFIX_PATH="$sdk$prefix" \
    >"$SCRATCH/configure.log" 2>&1 || fail "configure failed: $(cat "$SCRATCH/configure.log")"
cmake --build "$SCRATCH/consumer" >"$SCRATCH/build.log" 2>&1 ||
    fail "build failed: $(cat "$SCRATCH/build.log")"
for program in by_cmake_package by_pkg_config; do
    out=$(LD_LIBRARY_PATH=$sdk$prefix/lib "$SCRATCH/consumer/$program" 2>/dev/null) ||
        fail "$program failed"
    [[ $out == "phyid 6 is ifx 5, key length 128" ]] || fail "$program printed '$out'"
    echo "$program: $out"
done
